// SPDX-License-Identifier: MIT
// Starting the program as another user.
#include "tests/sandbox/program_copy.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <array>
#include <filesystem>

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words)
        pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

bool becomeForGood(const ActingUser& user) {
    if (user.uid == geteuid()) return true;
    return setgroups(0, nullptr) == 0 && setresgid(user.gid, user.gid, user.gid) == 0 &&
           setresuid(user.uid, user.uid, user.uid) == 0;
}

std::string readToEnd(int end) {
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0; (count = read(end, piece.data(), piece.size())) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(count));
    close(end);
    return text;
}

int statusOf(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ProgramCopy::ProgramCopy() {
    fs::permissions(directory_.path(), fs::perms{0755});
    for (const char* room : {"bin", "lib"})
        fs::create_directory(directory_ / room);
    const fs::path libraries[] = {VESK_MODULE, VESK_STANDIN_HOST};
    for (const fs::path& library : libraries)
        fs::copy_file(library, directory_ / "lib" / library.filename());
    fs::copy_file(VESK_ARCHIVE, directory_ / "bin/vesk-archive");
    for (const auto& entry : fs::recursive_directory_iterator(directory_.path()))
        fs::permissions(entry, fs::perms{0755});
}

ProgramEnd ProgramCopy::run(const std::vector<std::string>& words, const ActingUser& user,
                            mode_t mask) const {
    std::vector<std::string> command = {directory_ / "bin/vesk-archive"};
    command.insert(command.end(), words.begin(), words.end());
    const std::vector<char*> arguments = pointersTo(command);
    const std::vector<std::string> variables = {"LC_ALL=C",
                                                "LD_LIBRARY_PATH=" + (directory_ / "lib").native()};
    const std::vector<char*> environment = pointersTo(variables);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        umask(mask);
        dup2(ends[1], STDERR_FILENO);
        if (becomeForGood(user)) execve(arguments[0], arguments.data(), environment.data());
        _exit(127);
    }
    close(ends[1]);
    std::string error = readToEnd(ends[0]);
    return {statusOf(child), std::move(error)};
}

}  // namespace vesk::testing
