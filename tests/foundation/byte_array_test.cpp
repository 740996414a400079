#include "foundation/byte_array.h"

#include <gtest/gtest.h>

TEST(ByteArray, AppendGrowsExactlyAndKeepsOrder) {
    ByteArray a;
    EXPECT_EQ(a.data, nullptr);
    a.append("ab", 2);
    a.append32be(0x01020304);
    EXPECT_EQ(a.size, 6u);
    EXPECT_EQ(a.view(), std::string_view("ab\x01\x02\x03\x04", 6));
}

TEST(ByteArray, AssignReplacesAndMoveEmptiesSource) {
    ByteArray a("xyz", 3);
    ByteArray b("1234", 4);
    a = b;
    EXPECT_EQ(a.view(), "1234");
    ByteArray c(std::move(a));
    EXPECT_EQ(c.view(), "1234");
    EXPECT_EQ(a.size, 0u);
    EXPECT_EQ(a.data, nullptr);
    c = c;  // self-assignment keeps the bytes
    EXPECT_EQ(c.view(), "1234");
}

TEST(ByteArray, RemoveFrontShiftsTheRest) {
    ByteArray a("abcdef", 6);
    a.removeFront(2);
    EXPECT_EQ(a.view(), "cdef");
    a.removeFront(10);
    EXPECT_TRUE(a.empty());
}

TEST(ByteArray, RefusesNullSourceWithCount) {
    ByteArray a;
    EXPECT_FALSE(a.append(nullptr, 5));
    EXPECT_TRUE(a.append(nullptr, 0));
    EXPECT_TRUE(a.empty());
}
