// The counts a batch ends with, and the figures people read.
#include <gtest/gtest.h>

#include "tools/batch/progress.h"
#include "tools/batch/report.h"

namespace batch {
namespace {

Entry entry(Status status, uint64_t bytes) {
    Entry e;
    e.status = status;
    e.bytesWritten = bytes;
    return e;
}

TEST(Report, OnlyThisRunsOutputsCountAsWrittenAndOnlySuccessIsGood) {
    Summary summary;
    summary.add(entry(Status::Ok, 1500));
    summary.add(entry(Status::Skipped, 1000000));  // written by an earlier run
    EXPECT_TRUE(summary.allGood());
    EXPECT_EQ(summary.bytesWritten, 1500u);
    summary.seconds = 2.25;
    EXPECT_EQ(summaryLine(summary), "2 movies: 1 ok, 0 refused, 0 failed, 0 interrupted, 1 skipped; 1.5 kB written in 2.2 s");
    for (const Status bad : {Status::Refused, Status::Failed, Status::Interrupted}) {
        Summary one;
        one.add(entry(bad, 0));
        EXPECT_FALSE(one.allGood()) << statusName(bad);
    }
    // The JSON report is read end to end (BatchRun, BatchBadInput).
}

TEST(Report, SizesAndDurationsReadAsPeopleWriteThem) {
    EXPECT_EQ(bytesText(999), "999 B");
    EXPECT_EQ(bytesText(1000), "1.0 kB");
    EXPECT_EQ(bytesText(151400000), "151.4 MB");
    EXPECT_EQ(bytesText(~uint64_t(0)), "18446.7 PB");  // the largest unit goes on counting
    EXPECT_EQ(durationText(0), "0:00");
    EXPECT_EQ(durationText(65.4), "1:05");
    EXPECT_EQ(durationText(3723), "1:02:03");
    EXPECT_EQ(durationText(-3), "0:00");
}

}  // namespace
}  // namespace batch
