// SPDX-License-Identifier: MIT
// The pending exception: copied, the first one kept, per thread, cleared when it is taken.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "module/host/host_runtime.h"
#include "standinhost/standin_host.h"

namespace {

using vesk::standin::takePendingError;

TEST(PendingError, NothingIsPendingBeforeARaise) {
    EXPECT_EQ(Vesk_hasPendingError(), 0);
    EXPECT_FALSE(takePendingError().has_value());
}

TEST(PendingError, KeepsCopiesOfBothStrings) {
    char className[] = "IOException";
    char message[] = "Archive already exists";
    Vesk_raise(className, message);
    className[0] = message[0] = 'x';

    const auto error = takePendingError();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->className, "IOException");
    EXPECT_EQ(error->message, "Archive already exists");
}

TEST(PendingError, KeepsAnEmptyMessage) {
    Vesk_raise("IOException", "");
    EXPECT_NE(Vesk_hasPendingError(), 0);

    const auto error = takePendingError();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->message, "");
}

TEST(PendingError, StaysWhenItIsAskedFor) {
    Vesk_raise("IOException", "first");
    EXPECT_NE(Vesk_hasPendingError(), 0);
    EXPECT_NE(Vesk_hasPendingError(), 0);
    takePendingError();
}

TEST(PendingError, FirstRaiseStaysUntilItIsTaken) {
    Vesk_raise("IOException", "first");
    Vesk_raise("OtherException", "second");

    const auto error = takePendingError();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->className, "IOException");
    EXPECT_EQ(error->message, "first");
}

TEST(PendingError, TakingClearsItAndMakesRoomForTheNext) {
    Vesk_raise("IOException", "first");
    takePendingError();
    EXPECT_EQ(Vesk_hasPendingError(), 0);
    EXPECT_FALSE(takePendingError().has_value());

    Vesk_raise("IOException", "second");
    const auto error = takePendingError();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->message, "second");
}

TEST(PendingError, BelongsToTheThreadThatRaised) {
    Vesk_raise("IOException", "main");
    std::string otherMessage;
    int otherPending = -1;
    std::thread other([&] {
        otherPending = Vesk_hasPendingError();
        Vesk_raise("IOException", "other");
        if (const auto error = takePendingError()) otherMessage = error->message;
    });
    other.join();

    EXPECT_EQ(otherPending, 0);
    EXPECT_EQ(otherMessage, "other");
    const auto error = takePendingError();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->message, "main");
}

}  // namespace
