// SPDX-License-Identifier: MIT
// Running a trial in a process of its own: the child sends its verdict through a pipe.
#include "hostcheck/child_process.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <system_error>

namespace vesk::hostcheck {

namespace {

using Clock = std::chrono::steady_clock;

// The first byte of a verdict; nothing at all comes from a child that did not get that far.
constexpr char holds = '+';
constexpr char deviates = '-';
/// Between the two texts of a deviation, which contain none: they are made for a report.
constexpr char separator = '\0';

constexpr const char* anEnd = "that the call returns";

std::string verdictOn(const Deviation& deviation) {
    return deviates + deviation.expected + separator + deviation.came;
}

std::string verdict(const std::function<void()>& body) {
    try {
        body();
        return {holds};
    } catch (const Deviation& deviation) {
        return verdictOn(deviation);
    } catch (const std::exception& exception) {
        return verdictOn({anEnd, std::string("an exception: ") + exception.what()});
    } catch (...) {
        return verdictOn({anEnd, "an exception of an unknown class"});
    }
}

/// A runtime's own exit handlers are none of ours: the child leaves without them.
[[noreturn]] void runChild(const std::function<void()>& body, int pipeEnd) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const std::string text = verdict(body);
    const bool sent = write(pipeEnd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(sent ? 0 : 1);
}

/// Returns all that comes out of the pipe; nothing when it has not been closed by `end`.
std::optional<std::string> receive(int pipeEnd, Clock::time_point end) {
    std::string text;
    std::array<char, 4096> piece{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd ready{pipeEnd, POLLIN, 0};
        const int count = left.count() <= 0 ? 0 : poll(&ready, 1, static_cast<int>(left.count()));
        if (count == 0) return std::nullopt;
        if (count < 0 && errno == EINTR) continue;
        const ssize_t length = read(pipeEnd, piece.data(), piece.size());
        if (length <= 0) return text;
        text.append(piece.data(), static_cast<std::size_t>(length));
    }
}

std::string howItEnded(int status) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): this program has one thread
    if (WIFSIGNALED(status)) return std::string("a crash: ") + strsignal(WTERMSIG(status));
    return "an end of the process with status " + std::to_string(WEXITSTATUS(status));
}

std::optional<Deviation> judged(const std::string& text, int status) {
    if (text.empty()) return Deviation{anEnd, howItEnded(status)};
    if (text.front() == holds) return std::nullopt;
    const std::size_t middle = text.find(separator);
    return Deviation{text.substr(1, middle - 1), text.substr(middle + 1)};
}

}  // namespace

std::optional<Deviation> deviationInChild(const std::function<void()>& body, unsigned seconds) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == -1) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        close(ends[0]);
        runChild(body, ends[1]);
    }
    close(ends[1]);
    const auto text = receive(ends[0], Clock::now() + std::chrono::seconds(seconds));
    close(ends[0]);

    if (!text) kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    if (text) return judged(*text, status);
    return Deviation{anEnd, "no return within " + std::to_string(seconds) + " seconds"};
}

}  // namespace vesk::hostcheck
