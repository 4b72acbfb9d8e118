// SPDX-License-Identifier: MIT
// Running a trial in its own process: the child sends its verdict through a pipe. Processes that
// the library starts inherit the pipe and may keep it open, so the verdict itself contains its end.
#include "hostcheck/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <system_error>

#include "hostcheck/signal_queue.h"
#include "hostcheck/wording.h"

namespace vesk::hostcheck {

namespace {

using Clock = std::chrono::steady_clock;

// The first byte of a verdict. A child that fails before its verdict sends nothing.
constexpr char holds = '+';
constexpr char deviates = '-';
/// Ends each of the two texts of a verdict. The texts are made for a report and contain no NUL.
constexpr char textEnd = '\0';

constexpr const char* anEnd = "that the call returns";

std::string verdictOf(char kind, const Deviation& deviation) {
    return kind + deviation.expected + textEnd + deviation.came + textEnd;
}

std::string verdict(const std::function<void()>& body) {
    try {
        body();
        return verdictOf(holds, {});
    } catch (const Deviation& deviation) {
        return verdictOf(deviates, deviation);
    } catch (const std::exception& exception) {
        return verdictOf(deviates, {anEnd, "an exception: " + printable(exception.what())});
    } catch (...) {
        return verdictOf(deviates, {anEnd, "an exception of an unknown class"});
    }
}

bool isComplete(const std::string& text) {
    return std::count(text.begin(), text.end(), textEnd) == 2;
}

/// Runs `body` and exits without the runtime's exit handlers, which are not under test.
[[noreturn]] void runChild(const std::function<void()>& body, int pipeEnd) {
    setpgid(0, 0);
    signalQueue().release();
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const std::string text = verdict(body);
    const bool sent = write(pipeEnd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(sent ? 0 : 1);
}

/// A child process with its own group, which ends with this object, and the output of that child.
class TrialProcess {
public:
    explicit TrialProcess(const std::function<void()>& body);
    TrialProcess(const TrialProcess&) = delete;
    TrialProcess& operator=(const TrialProcess&) = delete;
    ~TrialProcess();

    /// Returns the verdict, or the part of it that an ended child has sent. Returns nothing when
    /// the child has neither finished its verdict nor ended at the time `end`.
    std::optional<std::string> receive(Clock::time_point end);

    /// Kills the whole group and returns the child's status.
    int end();

private:
    bool hasEnded() const;
    void readAvailable(std::string& text);
    bool waitForMore(Clock::time_point end) const;

    pid_t child_ = -1;
    /// -1 after its end.
    int pipeEnd_ = -1;
};

TrialProcess::TrialProcess(const std::function<void()>& body) {
    signalQueue();
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    pipeEnd_ = ends[0];
    std::fflush(nullptr);
    child_ = fork();
    if (child_ == 0) {
        close(ends[0]);
        runChild(body, ends[1]);
    }
    const int error = errno;
    close(ends[1]);
    if (child_ == -1) {
        close(ends[0]);
        throw std::system_error(error, std::generic_category(), "fork");
    }
    // Done here and in the child, since either may run first.
    setpgid(child_, child_);
    fcntl(pipeEnd_, F_SETFL, O_NONBLOCK);
}

TrialProcess::~TrialProcess() {
    end();
    if (pipeEnd_ != -1) close(pipeEnd_);
}

bool TrialProcess::hasEnded() const {
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOHANG | WNOWAIT);
    return info.si_pid == child_;
}

void TrialProcess::readAvailable(std::string& text) {
    std::array<char, 4096> piece{};
    ssize_t length = 0;
    while (pipeEnd_ != -1 && (length = read(pipeEnd_, piece.data(), piece.size())) > 0)
        text.append(piece.data(), static_cast<std::size_t>(length));
    if (pipeEnd_ == -1 || length != 0) return;
    close(pipeEnd_);
    pipeEnd_ = -1;
}

/// Waits for output, for a signal or until `end`. Returns false once `end` is reached.
bool TrialProcess::waitForMore(Clock::time_point end) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    std::array<pollfd, 2> sources = {
        {{pipeEnd_, POLLIN, 0}, {signalQueue().descriptor(), POLLIN, 0}}};
    const int count = poll(sources.data(), sources.size(),
                           static_cast<int>(std::max<Clock::rep>(left.count(), 0)));
    signalQueue().take();
    return count != 0;
}

std::optional<std::string> TrialProcess::receive(Clock::time_point end) {
    std::string text;
    for (;;) {
        // Checked before reading: once the child has ended, all that it has sent can be read.
        const bool ended = hasEnded();
        readAvailable(text);
        if (ended || isComplete(text)) return text;
        if (!waitForMore(end)) return std::nullopt;
    }
}

int TrialProcess::end() {
    if (child_ == -1) return 0;
    // Killed before the child is waited for: until then no other group can have its number.
    kill(-child_, SIGKILL);
    kill(child_, SIGKILL);
    int status = 0;
    while (waitpid(child_, &status, 0) == -1 && errno == EINTR) {
    }
    child_ = -1;
    return status;
}

std::string howItEnded(int status) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): this program has one thread
    if (WIFSIGNALED(status)) return std::string("a crash: ") + strsignal(WTERMSIG(status));
    return "an end of the process with status " + std::to_string(WEXITSTATUS(status));
}

std::optional<Deviation> judged(const std::string& text, int status) {
    if (!isComplete(text)) return Deviation{anEnd, howItEnded(status)};
    if (text.front() == holds) return std::nullopt;
    const std::size_t middle = text.find(textEnd);
    return Deviation{text.substr(1, middle - 1), text.substr(middle + 1, text.size() - middle - 2)};
}

}  // namespace

std::optional<Deviation> deviationInChild(const std::function<void()>& body, unsigned seconds) {
    TrialProcess trial(body);
    const auto text = trial.receive(Clock::now() + std::chrono::seconds(seconds));
    if (text) return judged(*text, trial.end());
    return Deviation{anEnd, "no return within " + std::to_string(seconds) + " seconds"};
}

}  // namespace vesk::hostcheck
