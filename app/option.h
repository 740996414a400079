#pragma once

// The parsed command line. Parsing probes the source movie, whose frame
// rate, width and codec decide the automatic key-frame interval and bit rate.
#include <cstdint>
#include <string>

#include "geo/view_heading.h"
#include "meta/meta_probe.h"

struct Option {
    enum ViewMode : int32_t { kViewNone = 0, kViewGiven = 1, kViewRemoved = 2 };

    static constexpr uint32_t kAutomaticBitRate = 0xFFFFFFFF;
    static constexpr uint32_t kToTheEnd = 0xFFFFFFFF;

    int32_t keyFrameInterval = -1;
    int32_t videoWidth = -1;
    uint32_t videoBitRate = kAutomaticBitRate;
    uint32_t audioBitRate = 128000;
    uint32_t startSeconds = 0;
    uint32_t endSeconds = kToTheEnd;
    bool reencode = false;
    int32_t codec = MetaProbe::kCodecUnknown;
    std::wstring source;
    std::wstring output;
    std::wstring thumbnail;
    MetaProbe probe;
    ViewHeading view;
    int32_t viewMode = kViewNone;

    // argv holds at most tavrel::kMaxArguments entries; the rest of argc is
    // not read. False when the usage text is to be shown.
    bool parse(int argc, wchar_t** argv);
    void usage() const;

    // 30 for sources above 29 frames per second, else 15: the key-frame
    // interval, and the frames per second of the sensor streams.
    int framesPerSecond() const { return probe.frameRate > 29.0f ? 30 : 15; }
};
