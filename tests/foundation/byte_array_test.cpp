#include "foundation/byte_array.h"

#include <gtest/gtest.h>

TEST(ByteArray, AppendCopyMoveAndRemoveFront) {
    ByteArray a;
    EXPECT_FALSE(a.append(nullptr, 5));  // a count without bytes is refused
    EXPECT_TRUE(a.append(nullptr, 0));
    a.append("ab", 2);
    a.append32be(0x01020304);
    EXPECT_EQ(a.view(), std::string_view("ab\x01\x02\x03\x04", 6));

    ByteArray b("1234", 4);
    a = b;
    ByteArray c(std::move(a));
    EXPECT_EQ(c.view(), "1234");
    EXPECT_EQ(a.data, nullptr);
    c = c;  // self-assignment keeps the bytes
    c.removeFront(1);
    EXPECT_EQ(c.view(), "234");
    c.removeFront(10);
    EXPECT_TRUE(c.empty());
}
