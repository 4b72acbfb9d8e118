// SPDX-License-Identifier: MIT
// The observers of the module's calls and of decoding: per thread, removable, may throw.
#include <gtest/gtest.h>
#include <zlib.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "module/host/host_runtime.h"
#include "standinhost/standin_host.h"

namespace {

using vesk::standin::DecodedPiece;
using vesk::standin::HostCall;
using vesk::standin::observeCalls;
using vesk::standin::observeDecoding;
using vesk::standin::takePendingError;

class Observer : public testing::Test {
protected:
    void TearDown() override {
        observeCalls(nullptr, nullptr);
        observeDecoding(nullptr, nullptr);
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
    std::string error;
    vesk::runtime::archives::commitExtractionStaging("", "", error);

    const std::vector<HostCall> expected = {HostCall::hasPendingError, HostCall::runtimeFsPath,
                                            HostCall::commitExtractionStaging};
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

/// What is seen of a decoding.
struct Decoding {
    std::string decoded;
    std::vector<std::uint64_t> inputUsed;
};

void recordPiece(void* context, const DecodedPiece& piece) {
    auto& decoding = *static_cast<Decoding*>(context);
    decoding.decoded.append(piece.bytes.begin(), piece.bytes.end());
    decoding.inputUsed.push_back(piece.inputUsed);
}

void throwAtPiece(void*, const DecodedPiece&) {
    throw std::runtime_error("stop");
}

/// Longer than a piece of the decoder.
std::string someBytes() {
    std::string bytes(300000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 1000);
    return bytes;
}

/// Stored blocks of 60,000 bytes (0xEA60), the last one marked.
std::string stored(const std::string& bytes) {
    std::string data;
    for (std::size_t at = 0; at < bytes.size(); at += 60000) {
        data += at + 60000 == bytes.size() ? '\1' : '\0';
        data += "\x60\xEA\x9F\x15" + bytes.substr(at, 60000);
    }
    return data;
}

bool inflate(const std::string& data, std::uint64_t size) {
    std::istringstream in(data);
    std::ostringstream out;
    std::uint32_t crc = 0;
    std::string error;
    return vesk::runtime::zip::inflateRaw(in, data.size(), size, out, crc, error);
}

bool inflateStored() {
    return inflate(stored(someBytes()), 300000);
}

/// The raw DEFLATE data that zlib makes of `bytes`.
std::string deflated(const std::string& bytes) {
    std::string data(compressBound(bytes.size()), '\0');
    uLongf size = data.size();
    compress(reinterpret_cast<Bytef*>(data.data()), &size,
             reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
    return data.substr(2, size - 6);  // without zlib's header and checksum
}

TEST_F(Observer, IsShownAllThatIsDecodedAndHowMuchInputThatTook) {
    Decoding decoding;
    observeDecoding(recordPiece, &decoding);
    EXPECT_TRUE(inflateStored());
    EXPECT_EQ(decoding.decoded, someBytes());
    EXPECT_GT(decoding.inputUsed.size(), 1U);
    EXPECT_EQ(decoding.inputUsed.back(), 300000U + 5U * 5U);
}

TEST_F(Observer, IsToldOfInputThatHasBeenUsedNotRead) {
    Decoding decoding;
    observeDecoding(recordPiece, &decoding);
    const std::string data = deflated(std::string(1'000'000, '\0'));
    EXPECT_TRUE(inflate(data, 1'000'000));
    EXPECT_GT(decoding.inputUsed.front(), data.size() / 5);
    EXPECT_LT(decoding.inputUsed.front(), data.size() / 3);
    EXPECT_EQ(decoding.inputUsed.back(), data.size());
}

TEST_F(Observer, OfDecodingMayThrowAndBeRemoved) {
    observeDecoding(throwAtPiece, nullptr);
    EXPECT_THROW(inflateStored(), std::runtime_error);
    observeDecoding(nullptr, nullptr);
    EXPECT_TRUE(inflateStored());
}

}  // namespace
