#include "foundation/failure.h"

#include <gtest/gtest.h>

#include <string>

#include "foundation/notices.h"

using QVMX::Failure;
using QVMX::Result;
using QVMX::Status;

namespace {

TEST(Failure, TextNamesWhereWhenKnown) {
    EXPECT_EQ((Failure{L"moov.trak.stco", L"box ends past its parent"}).text(),
              L"moov.trak.stco: box ends past its parent");
    EXPECT_EQ((Failure{L"", L"source movie read. but, unmatch size."}).text(),
              L"source movie read. but, unmatch size.");
}

TEST(Failure, ResultAndStatusCarryEitherSide) {
    Result<std::wstring> good(std::wstring(L"avc1"));
    ASSERT_TRUE(good);
    EXPECT_EQ(good->size(), 4u);

    Result<std::wstring> bad(Failure{L"stsd", L"no sample entry"});
    ASSERT_FALSE(bad);
    EXPECT_EQ(bad.failure().where, L"stsd");

    Status done;
    EXPECT_TRUE(done.ok());
    Status failed = Failure{L"udta", L"truncated"};
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.failure().cause, L"truncated");
}

TEST(Notices, CaptureCollectsInOrderAndRestoresTheSinkBefore) {
    std::wstring outer;
    auto before = QVMX::Notices::install([&](const std::wstring& line) { outer += line; });
    {
        QVMX::Notices::Capture capture;
        QVMX::Notices::post(L"%ls: %d\r", L"frames", 12);
        QVMX::Notices::postLine(L"done.\n");
        EXPECT_EQ(capture.text(), L"frames: 12\rdone.\n");
        EXPECT_EQ(capture.lines().size(), 2u);
    }
    QVMX::Notices::post(L"after\n");
    EXPECT_EQ(outer, L"after\n");
    QVMX::Notices::install(before);
}

TEST(Notices, LongLinesAreNotCut) {
    QVMX::Notices::Capture capture;
    const std::wstring word(5000, L'x');
    QVMX::Notices::post(L"%ls\n", word.c_str());
    EXPECT_EQ(capture.text(), word + L"\n");
}

}  // namespace
