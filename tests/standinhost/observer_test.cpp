// SPDX-License-Identifier: MIT
// The observer of host calls: called before the answer, per thread, removable, free to throw.
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "module/host/host_runtime.h"
#include "standinhost/standin_host.h"

namespace {

using vesk::standin::HostCall;
using vesk::standin::observeCalls;
using vesk::standin::takePendingError;

class Observer : public testing::Test {
protected:
    void TearDown() override {
        observeCalls(nullptr, nullptr);
        takePendingError();
    }

    std::vector<HostCall> calls;
};

void record(void* context, HostCall call) {
    static_cast<std::vector<HostCall>*>(context)->push_back(call);
}

void raiseSomething(void*, HostCall) {
    Vesk_raise("IOException", "from the observer");
}

void throwSomething(void*, HostCall) {
    throw std::runtime_error("stop");
}

void removeItself(void* context, HostCall call) {
    record(context, call);
    observeCalls(nullptr, nullptr);
}

TEST_F(Observer, IsToldOfEachCallInOrder) {
    observeCalls(record, &calls);
    Vesk_hasPendingError();
    Vesk_runtimeFsPath("a");
    Vesk_hasPendingError();

    const std::vector<HostCall> expected = {HostCall::hasPendingError, HostCall::runtimeFsPath,
                                            HostCall::hasPendingError};
    EXPECT_EQ(calls, expected);
}

TEST_F(Observer, IsToldBeforeTheAnswer) {
    observeCalls(raiseSomething, nullptr);
    EXPECT_NE(Vesk_hasPendingError(), 0);
}

TEST_F(Observer, IsNotToldOfOtherCalls) {
    observeCalls(record, &calls);
    vesk::runtime::archives::modeIsOverwrite(nullptr);
    vesk::runtime::zip::crc32Update(0, nullptr, 0);
    Vesk_raise("IOException", "first");
    takePendingError();
    EXPECT_TRUE(calls.empty());
}

TEST_F(Observer, MayThrow) {
    observeCalls(throwSomething, nullptr);
    EXPECT_THROW(Vesk_hasPendingError(), std::runtime_error);
    EXPECT_THROW(Vesk_runtimeFsPath("a"), std::runtime_error);
}

TEST_F(Observer, MayRemoveItself) {
    observeCalls(removeItself, &calls);
    Vesk_hasPendingError();
    Vesk_hasPendingError();
    EXPECT_EQ(calls.size(), 1U);
}

TEST_F(Observer, SeesNothingOnceRemoved) {
    observeCalls(record, &calls);
    observeCalls(nullptr, nullptr);
    Vesk_hasPendingError();
    EXPECT_TRUE(calls.empty());
}

TEST_F(Observer, SeesItsOwnThreadOnly) {
    observeCalls(record, &calls);
    std::thread other([] { Vesk_hasPendingError(); });
    other.join();
    EXPECT_TRUE(calls.empty());
}

}  // namespace
