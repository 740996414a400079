#include "foundation/notices.h"

#include <gtest/gtest.h>

#include <string>

namespace {

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
