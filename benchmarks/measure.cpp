// SPDX-License-Identifier: MIT
// vesk-measure: runs a command, or several joined by pipes, and reports what they cost.
//
//     vesk-measure OUTPUT COMMAND [ARGUMENT...] ['|' COMMAND [ARGUMENT...]]...
//
// The last command writes its standard output to the file OUTPUT. On standard output comes a line
// "wall SECONDS", from before the first start to after the last end, and for each command a line
//     STATUS USER SYSTEM PEAK FAULTS
// with the wait status, seconds, the peak resident memory in KiB and the page faults that needed no
// reading. Exit status 1 when a command failed or could not be started.
//
// A separate program, because a process starts with the peak memory of its parent: that of an
// interpreter would hide the memory of a small command.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

struct Command {
    std::vector<char*> words;  // ends with a null pointer, as the system wants it
    pid_t process = 0;
};

struct Cost {
    int status = 0;
    rusage usage{};
};

std::vector<Command> splitAtPipes(char** words) {
    std::vector<Command> commands(1);
    for (; *words != nullptr; ++words) {
        if (std::strcmp(*words, "|") != 0) {
            commands.back().words.push_back(*words);
            continue;
        }
        commands.back().words.push_back(nullptr);
        commands.emplace_back();
    }
    commands.back().words.push_back(nullptr);
    return commands;
}

// Starts `command` between the two descriptors and closes them here.
bool start(Command& command, int input, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    const int error = posix_spawnp(&command.process, command.words[0], &actions, nullptr,
                                   command.words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input);
    close(output);
    if (error != 0) {
        std::fprintf(stderr, "vesk-measure: %s: %s\n", command.words[0], std::strerror(error));
    }
    return error == 0;
}

bool startAll(std::vector<Command>& commands, int output) {
    int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    for (Command& command : commands) {
        int ends[2] = {-1, output};
        if (&command != &commands.back() && pipe2(ends, O_CLOEXEC) != 0) return false;
        if (!start(command, input, ends[1])) return false;
        input = ends[0];
    }
    return true;
}

std::vector<Cost> waitForAll(const std::vector<Command>& commands) {
    std::vector<Cost> costs(commands.size());
    for (std::size_t i = 0; i < commands.size(); ++i) {
        wait4(commands[i].process, &costs[i].status, 0, &costs[i].usage);
    }
    return costs;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

bool report(const std::vector<Cost>& costs, std::chrono::duration<double> wall) {
    bool succeeded = true;
    std::printf("wall %.9f\n", wall.count());
    for (const auto& [status, usage] : costs) {
        std::printf("%d %.6f %.6f %ld %ld\n", status, seconds(usage.ru_utime),
                    seconds(usage.ru_stime), usage.ru_maxrss, usage.ru_minflt);
        succeeded = succeeded && status == 0;
    }
    return succeeded;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: vesk-measure OUTPUT COMMAND [ARGUMENT...] ['|' COMMAND...]...\n",
                   stderr);
        return 2;
    }
    const int output = open(argv[1], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (output < 0) {
        std::perror(argv[1]);
        return 1;
    }
    std::vector<Command> commands = splitAtPipes(argv + 2);

    const auto begin = std::chrono::steady_clock::now();
    if (!startAll(commands, output)) return 1;
    const std::vector<Cost> costs = waitForAll(commands);
    return report(costs, std::chrono::steady_clock::now() - begin) ? 0 : 1;
}
