// SPDX-License-Identifier: MIT
// The exported functions run on many threads at once, each with its own pending exception.
#include <gtest/gtest.h>

#include <array>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "module/native_methods.h"
#include "standinhost/standin_host.h"
#include "tests/support/memory_dir.h"
#include "tests/support/tar_bytes.h"
#include "tests/support/tree.h"

namespace vesk::testing {

namespace {

namespace fs = std::filesystem;

constexpr int threadCount = 8;
constexpr int rounds = 125;

using Method = decltype(&vesk_io_archives_TarArchiver_makeArchive);

constexpr Method tarMake = vesk_io_archives_TarArchiver_makeArchive;
constexpr Method tarUnpack = vesk_io_archives_TarArchiver_unpackArchive;
constexpr Method tgzMake = vesk_io_archives_TgzArchiver_makeArchive;
constexpr Method tgzUnpack = vesk_io_archives_TgzArchiver_unpackArchive;

/// A call that fails. Names are below the thread's directory; null means a null argument.
struct FailingCall {
    Method method;
    const char* from;
    const char* to;
    const char* message;
};

constexpr std::array<FailingCall, 8> failingCalls = {{
    {tarUnpack, nullptr, "out", "Archive path is required"},
    {tarMake, nullptr, "new.tar", "Source path is required"},
    {tgzMake, "missing", "new.tgz", "Archive source does not exist"},
    {tgzUnpack, "missing", "out", "Archive file does not exist"},
    {tarMake, "tree", "endless.tar", "Archive already exists"},
    {tarUnpack, "tree.tar", nullptr, "Destination path is required"},
    {tgzUnpack, "endless.tar", "out", "Invalid gzip stream"},
    {tarUnpack, "endless.tar", "out", "TAR archive has no end marker"},
}};

/// The calls of one thread, in its own directory.
class Worker {
public:
    explicit Worker(int number) : number_(number) {
        tree_ = {{"a", "of thread " + std::to_string(number)},
                 {"sub/b", std::string(static_cast<std::size_t>(number) * 1000, 'b')}};
        writeTree(root_ / "tree", tree_);
        writeFile(root_ / "endless.tar", tarEntry("a", "data"));
    }

    void work() {
        for (int round = 0; round < rounds; ++round) {
            expectDone(tarMake, "tree", "tree.tar");
            fail(round);
            expectDone(tgzMake, "tree", "tree.tgz");
            fail(round + 1);
            expectDone(tarUnpack, "tree.tar", "out");
            expectTree();
            fail(round + 2);
            expectDone(tgzUnpack, "tree.tgz", "out");
            expectTree();
            fail(round + 3);
            expectDone(tarMake, "tree/a", "a.tar");
            fail(round + 4);
        }
    }

    int calls() const { return calls_; }
    const std::vector<std::string>& problems() const { return problems_; }

private:
    std::string call(Method method, const char* from, const char* to, bool overwrite) {
        ++calls_;
        const std::string fromPath = from == nullptr ? "" : root_ / from;
        const std::string toPath = to == nullptr ? "" : root_ / to;
        standin::Mode mode{overwrite};
        method(nullptr, from == nullptr ? nullptr : fromPath.c_str(),
               to == nullptr ? nullptr : toPath.c_str(), &mode);
        const auto error = standin::takePendingError();
        return error ? error->className + ": " + error->message : "done";
    }

    void expect(const std::string& seen, const std::string& expected) {
        if (seen != expected) problems_.push_back("'" + seen + "' instead of '" + expected + "'");
    }

    void expectDone(Method method, const char* from, const char* to) {
        expect(call(method, from, to, true), "done");
    }

    /// At any time, threads are at different failures.
    void fail(int round) {
        const FailingCall& row = failingCalls[static_cast<std::size_t>(round + number_) % 8];
        expect(call(row.method, row.from, row.to, false),
               std::string("IOException: ") + row.message);
    }

    void expectTree() {
        if (readTree(root_ / "out") != tree_) problems_.push_back("another tree");
        fs::remove_all(root_ / "out");
    }

    int number_;
    const std::unique_ptr<TempDir> directory_ = makeMemoryDir();
    const TempDir& root_ = *directory_;
    Tree tree_;
    int calls_ = 0;
    std::vector<std::string> problems_;
};

}  // namespace

TEST(Threads, EachSeesItsOwnResultsAndItsOwnPendingException) {
    std::vector<std::unique_ptr<Worker>> workers;
    for (int number = 0; number < threadCount; ++number)
        workers.push_back(std::make_unique<Worker>(number));

    std::latch together(threadCount);
    std::vector<std::thread> threads;
    for (const auto& worker : workers) {
        threads.emplace_back([&together, &worker] {
            together.arrive_and_wait();
            worker->work();
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    int calls = 0;
    for (const auto& worker : workers) {
        EXPECT_EQ(worker->problems(), std::vector<std::string>());
        calls += worker->calls();
    }
    EXPECT_EQ(calls, 10000);
}

}  // namespace vesk::testing
