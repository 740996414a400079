// The command line: the options, the automatic defaults that the probed
// source decides, and the kill request.
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <vector>

#include "app/caught.h"
#include "app/option.h"
#include "foundation/utility.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;

namespace {

struct Parsed {
    Option option;
    bool result = false;
    std::string console;
};

// Parses the words as the entry hands them over: a table of wide strings.
Parsed parse(std::vector<std::wstring> words) {
    words.insert(words.begin(), L"tavrel");
    std::vector<wchar_t*> table;
    for (auto& w : words) table.push_back(w.data());
    Parsed p;
    ConsoleCapture console;
    p.result = p.option.parse(static_cast<int>(table.size()), table.data());
    p.console = console.text();
    return p;
}

// A source movie that declares the given picture (in its track header, a
// height of half the width) and rate (in its time-to-sample table).
struct ProbedSource {
    ProbedSource(int width, float rate, const Bytes& sampleEntry = {}) {
        const uint32_t w = static_cast<uint32_t>(width);
        const Bytes entry = sampleEntry.empty() ? box("avc1", Bytes(78, '\0')) : sampleEntry;
        const Bytes stbl = container("stbl", {stsd({entry}), stts({{1, 100}})});
        const Bytes mdia = container("mdia", {mdhd(0, 0, static_cast<uint32_t>(std::lround(rate * 100)), 100),
                                              hdlr("vide", "video"), container("minf", {stbl})});
        movie = std::make_unique<MovieFile>(buildMovie({}) +
                                            box("moov", container("trak", {tkhd(0, 0, w, w / 2), mdia})));
    }
    std::wstring path() const { return movie->wpath(); }
    std::unique_ptr<MovieFile> movie;
};

}  // namespace

TEST(Option, DefaultsAndWhatEachOptionSets) {
    const Parsed defaults = parse({});
    EXPECT_TRUE(defaults.result);
    EXPECT_EQ(defaults.option.source, L"./images/source.mp4");
    EXPECT_FALSE(defaults.option.reencode);
    EXPECT_EQ(defaults.option.keyFrameInterval, -1);
    EXPECT_EQ(defaults.option.videoBitRate, 0xFFFFFFFFu);
    EXPECT_EQ(defaults.option.endSeconds, 0xFFFFFFFFu);

    struct Case {
        std::wstring argument;
        bool reencode;
        std::function<bool(const Option&)> check;
    } cases[] = {
        {L"-ab:96000", true, [](const Option& o) { return o.audioBitRate == 96000u; }},
        {L"-ss:1.5", true, [](const Option& o) { return o.startSeconds == 1u; }},
        {L"-to:1.2", true, [](const Option& o) { return o.endSeconds == 2u; }},
        {L"-to:-4", true, [](const Option& o) { return o.endSeconds == 0u; }},
        {L"-h265", false, [](const Option& o) { return o.codec == 2; }},
        {L"-view:-", false, [](const Option& o) { return o.viewMode == 2; }},
        {L"-unknown", false, [](const Option& o) { return o.source == L"-unknown"; }},
    };
    for (const auto& c : cases) {
        const Parsed p = parse({c.argument});
        SCOPED_TRACE(std::string(c.argument.begin(), c.argument.end()));
        EXPECT_TRUE(p.result);
        EXPECT_EQ(p.option.reencode, c.reencode);
        EXPECT_TRUE(c.check(p.option));
    }
}

TEST(Option, ViewValuesComeInTwosToFours) {
    const Parsed two = parse({L"-view:90,-12.5"});
    EXPECT_EQ(two.option.viewMode, 1);
    EXPECT_EQ(two.option.view.pitch, -12.5f);
    EXPECT_TRUE(std::isnan(two.option.view.horizontalFOV) && std::isnan(two.option.view.cameraDolly));
    EXPECT_EQ(parse({L"-view:1,2,3,0.5"}).option.view.cameraDolly, 0.5f);
    for (const std::wstring bad : {L"-view:1", L"-view:a,b"}) {
        const Parsed p = parse({bad, L"in.mp4"});
        EXPECT_FALSE(p.result);
        EXPECT_EQ(p.console, "invalid arguments for -view:\n");
        EXPECT_EQ(p.option.source, L"in.mp4");  // parsing went on
    }
}

TEST(Option, PathsFillSourceThenOutputAndOnlyTenArgumentsCount) {
    const Parsed p = parse({L"a.mp4", L"b.mp4", L"c.mp4"});
    EXPECT_EQ(p.option.source, L"a.mp4");
    EXPECT_EQ(p.option.output, L"c.mp4");
    EXPECT_FALSE(parse({L"-h", L"x.mp4"}).result);
    std::vector<std::wstring> many(9, L"o.mp4");
    many.push_back(L"-h");  // the eleventh argument: not read
    EXPECT_TRUE(parse(many).result);
}

TEST(Option, TheProbedSourceDecidesKeyFrameIntervalBitRateAndCodec) {
    // width, rate, more options -> key-frame interval, bit rate
    const std::tuple<int, float, std::vector<std::wstring>, int, uint32_t> cases[] = {
        {1920, 30.0f, {L"-h264"}, 30, 16000000},
        {1921, 30.0f, {}, 30, 56000000},
        {1920, 29.01f, {L"-h265"}, 30, 8000000},
        {1281, 29.0f, {}, 15, 8192000},
        {1280, 30.0f, {L"-h265"}, 30, 3000000},
        {512, 30.0f, {L"-vw:3840"}, 30, 56000000},
        {3840, 30.0f, {L"-vw:1"}, 30, 6000000},
    };
    for (const auto& [width, rate, extra, keyInterval, bitRate] : cases) {
        SCOPED_TRACE(width);
        ProbedSource source(width, rate);
        std::vector<std::wstring> words{source.path()};
        words.insert(words.end(), extra.begin(), extra.end());
        const Parsed p = parse(words);
        EXPECT_EQ(p.option.keyFrameInterval, keyInterval);
        EXPECT_EQ(p.option.videoBitRate, bitRate);
        const std::string lines = "key-frame interval: " + std::to_string(keyInterval) +
                                  "\nvideo bitrate: " + std::to_string(bitRate) + "\n";
        EXPECT_EQ(p.console.substr(p.console.size() - lines.size()), lines);
    }

    // Given values are kept and not printed; the codec comes from the source.
    ProbedSource hevc(1920, 30.0f, box("hvc1", Bytes(78, '\0')));
    const Parsed p = parse({hevc.path(), L"-ki:7", L"-vb:123"});
    EXPECT_EQ(p.option.codec, 2);
    EXPECT_EQ(p.option.keyFrameInterval, 7);
    EXPECT_EQ(p.option.videoBitRate, 123u);
    EXPECT_EQ(p.console.find("key-frame interval"), std::string::npos);
}

// The signal itself is sent in the whole-program test.
TEST(Utility, KillIsOnlyALoneKillArgumentAndBadIdsExit1) {
    const wchar_t* argv[] = {L"tavrel", L"-kill:1", L"extra"};
    int exitCode = -1;
    EXPECT_FALSE(Utility::kill(3, argv, exitCode));
    for (const wchar_t* bad : {L"-kill:0", L"-kill:abc", L"-kill:99999999999"}) {
        const wchar_t* args[] = {L"tavrel", bad};
        exitCode = -1;
        EXPECT_TRUE(Utility::kill(2, args, exitCode));
        EXPECT_EQ(exitCode, 1);
    }
}

TEST(RunCaught, WhateverAStepThrowsEndsItWithALineAndFalse) {
    const std::vector<std::pair<std::function<bool()>, std::string>> steps = {
        {[]() -> bool { throw std::out_of_range("vector::_M_range_check"); }, "vector::_M_range_check\n"},
        {[]() -> bool { throw "Invalid EXIF."; }, "Invalid EXIF.\n"},
        {[]() -> bool { throw 7; }, "unexpected error.\n"},
        {[] { return true; }, ""},
    };
    for (const auto& [step, line] : steps) {
        ConsoleCapture console;
        EXPECT_EQ(runCaught(step), line.empty());
        EXPECT_EQ(console.text(), line);
    }
}
