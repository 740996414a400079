// Runs of tavrel on a movie of about 100 MB ended from outside at moments
// spread over the run: by SIGKILL, after which the output path holds what
// stood there before or, only if the run had finished, the whole result, and
// nothing but hidden temporaries that the next run removes; and by SIGTERM,
// after which the run says it was interrupted, exits 1 and leaves no
// temporary. The suite runs under a CTest label of its own ("interrupt").
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "spawned_run.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kMovieMiB = 100;
constexpr int kKillMoments = 12;
constexpr int kTermMoments = 5;
const std::string kBefore = "what stood at the output before this run\n";
const std::string kInterrupted = ": the run was interrupted; nothing was written.";

class Interrupt : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        shared_ = new testsupport::TempDir;
        makeBigMovie(source(), kMovieMiB);
        sourceHash_ = sha256(source());
        // Written back now, not while the first runs are timed.
        ::sync();
    }
    static void TearDownTestSuite() {
        delete shared_;
        shared_ = nullptr;
    }
    static fs::path source() { return shared_->file("source.mp4"); }

    // Ends runs with the options at moments spread over one run's duration,
    // with or without a file at the output beforehand.
    void endRunsEarly(const std::vector<std::string>& options, bool outputThere);

private:
    static testsupport::TempDir* shared_;
    static std::string sourceHash_;
};

testsupport::TempDir* Interrupt::shared_ = nullptr;
std::string Interrupt::sourceHash_;

bool isTemporaryOf(const std::string& name, const std::string& output) {
    return name.rfind("." + output + ".tavrel-", 0) == 0;
}

void Interrupt::endRunsEarly(const std::vector<std::string>& options, bool outputThere) {
    testsupport::TempDir work;
    fs::create_directories(work.file("reference"));
    const fs::path out = work.file("out.mp4"), reference = work.file("reference/out.mp4");
    const auto arguments = [&](const fs::path& output) {
        std::vector<std::string> all = options;
        all.push_back(source().string());
        all.push_back(output.string());
        return all;
    };
    const auto prepare = [&] {
        std::error_code ignored;
        fs::remove(out, ignored);
        if (outputThere) testsupport::writeFile(out, kBefore);
    };
    // What stands at the output, compared without printing 100 MB.
    const auto asBefore = [&] {
        if (!outputThere) return !fs::exists(out);
        std::error_code error;
        return fs::file_size(out, error) == kBefore.size() && !error && testsupport::readFile(out) == kBefore;
    };

    // Whole runs: the result to compare with, and how long a run takes:
    // the shortest seen so far, as other work on the machine only adds to it.
    Clock::duration duration = Clock::duration::max();
    const auto seconds = [&] { return std::chrono::duration<double>(duration).count(); };
    for (int i = 0; i < 2; ++i) {
        const auto started = Clock::now();
        SpawnedRun whole(tavrelExecutable().string(), arguments(reference));
        whole.wait();
        duration = std::min(duration, Clock::now() - started);
        ASSERT_EQ(whole.exitStatus(), 0) << whole.output();
    }
    std::printf("a whole run takes %.3f s\n", seconds());
    // Waits until started + until, or less when the run ends first (which
    // says how long a run takes).
    const auto hold = [&](SpawnedRun& run, Clock::time_point started, Clock::duration until) {
        while (Clock::now() - started < until) {
            if (run.ended()) {
                duration = std::min(duration, Clock::now() - started);
                return;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    };

    int killed = 0;
    for (int i = 0; i < kKillMoments; ++i) {
        // From the start to a little past the end.
        const double at = double(i) / (kKillMoments - 2);
        const std::string context = "SIGKILL after " + std::to_string(seconds() * at) + " s";
        prepare();
        const auto started = Clock::now();
        SpawnedRun run(tavrelExecutable().string(), arguments(out));
        ASSERT_TRUE(run.started());
        hold(run, started, std::chrono::duration_cast<Clock::duration>(duration * at));
        run.signal(SIGKILL);
        run.wait();
        if (run.endingSignal() == SIGKILL) {
            ++killed;
            // Killed after the rename, the run had in effect finished.
            EXPECT_TRUE(asBefore() || sameBytes(out, reference)) << context;
        } else {
            EXPECT_EQ(run.exitStatus(), 0) << context << "\n" << run.output();
            EXPECT_TRUE(sameBytes(out, reference)) << context;
        }
        for (const std::string& name : entriesOf(work.path())) {
            if (name == "out.mp4" || name == "reference") continue;
            EXPECT_TRUE(isTemporaryOf(name, "out.mp4")) << context << ": " << name;
        }
    }
    // Other work on the machine stretches and shrinks runs; a few kills
    // inside the run are what the test needs.
    EXPECT_GE(killed, 3) << "too few moments fell inside the run";

    // The next run removes what the killed ones left.
    prepare();
    const auto started = Clock::now();
    SpawnedRun next(tavrelExecutable().string(), arguments(out));
    next.wait();
    duration = std::min(duration, Clock::now() - started);
    EXPECT_EQ(next.exitStatus(), 0) << next.output();
    EXPECT_TRUE(sameBytes(out, reference));
    EXPECT_EQ(entriesOf(work.path()), (std::set<std::string>{"out.mp4", "reference"}));

    int interrupted = 0;
    for (int i = 0; i < kTermMoments; ++i) {
        // Over what is left of the run once it has made its temporary file
        // (so the program has set itself up by then).
        const double at = 0.05 + 0.6 * i / (kTermMoments - 1);
        prepare();
        const auto start = Clock::now();
        SpawnedRun run(tavrelExecutable().string(), arguments(out));
        ASSERT_TRUE(run.started());
        const auto writing = [&] {
            for (const std::string& name : entriesOf(work.path())) {
                if (isTemporaryOf(name, "out.mp4")) return true;
            }
            return false;
        };
        while (!writing() && !run.ended()) std::this_thread::sleep_for(std::chrono::microseconds(200));
        const auto writingFrom = Clock::now() - start;
        const std::string context = "SIGTERM after " + std::to_string(at) + " of the run's writing";
        hold(run, start, writingFrom + std::chrono::duration_cast<Clock::duration>((duration - writingFrom) * at));
        run.signal(SIGTERM);
        run.wait();
        EXPECT_EQ(run.endingSignal(), 0) << context << ": ended by the signal itself, not by the program";
        if (contains(run.output(), out.string() + kInterrupted)) {
            ++interrupted;
            EXPECT_EQ(run.exitStatus(), 1) << context;
            EXPECT_TRUE(asBefore()) << context;
        } else {
            // It had finished (or had put the result in place) first.
            EXPECT_TRUE(sameBytes(out, reference)) << context << "\n" << run.output();
        }
        std::set<std::string> names = entriesOf(work.path());
        names.erase("reference");
        EXPECT_EQ(names, (outputThere || fs::exists(out) ? std::set<std::string>{"out.mp4"} : std::set<std::string>{}))
            << context;
    }
    EXPECT_GE(interrupted, 2) << "too few moments fell inside the run";
    EXPECT_EQ(sha256(source()), sourceHash_);
}

TEST_F(Interrupt, AMetadataRunIsWholeOrAbsent) { endRunsEarly({}, false); }

TEST_F(Interrupt, AMetadataRunIsWholeOrLeavesTheOldOutput) { endRunsEarly({}, true); }

TEST_F(Interrupt, AReencodeIsWholeOrAbsent) { endRunsEarly({"-vw:256", "-to:6"}, false); }

TEST_F(Interrupt, AReencodeIsWholeOrLeavesTheOldOutput) { endRunsEarly({"-vw:256", "-to:6"}, true); }

}  // namespace
}  // namespace e2e
