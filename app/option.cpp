#include "app/option.h"

#include <cmath>
#include <cstdio>
#include <cwchar>

#include "app/version.h"
#include "foundation/console.h"
#include "foundation/wchar.h"
#include "geo/c_locale.h"

namespace {

bool startsWith(const wchar_t* text, const wchar_t* prefix) {
    return std::wcsncmp(text, prefix, std::wcslen(prefix)) == 0;
}

// "-to:" seconds: a decimal fraction in the C conventions, rounded up.
uint32_t endSecondsOf(const wchar_t* text) {
    double seconds;
    {
        geo::CLocaleScope c;
        seconds = std::wcstod(text, nullptr);
    }
    seconds = std::ceil(seconds);
    if (std::isnan(seconds) || seconds >= 4294967295.0) return Option::kToTheEnd;
    if (seconds <= 0.0) return 0;
    return static_cast<uint32_t>(seconds);
}

// "-view:h,p[,fov[,dolly]]" into the view record; false for any other count.
bool readView(const wchar_t* argument, ViewHeading& view) {
    const std::string text = QVMX::wchar::wcs2mbs(argument);
    float values[4] = {NAN, NAN, NAN, NAN};
    int count;
    {
        geo::CLocaleScope c;
        count = std::sscanf(text.c_str(), "-view:%f,%f,%f,%f", &values[0], &values[1], &values[2], &values[3]);
    }
    if (count < 2 || count > 4) return false;
    float* fields[4] = {&view.heading, &view.pitch, &view.horizontalFOV, &view.cameraDolly};
    for (int i = 0; i < count; ++i) *fields[i] = values[i];
    return true;
}

// The automatic video bit rate for a picture width and codec.
uint32_t automaticBitRate(int32_t width, int32_t codec, float frameRate) {
    uint32_t rate;
    if (width >= 1921) {
        rate = 56000000;
    } else if (width >= 1281) {
        rate = frameRate > 29.0f ? 16000000 : 8192000;
    } else {
        rate = 6000000;
    }
    return codec == MetaProbe::kCodecHEVC ? rate / 2 : rate;
}

}  // namespace

bool Option::parse(int argc, wchar_t** argv) {
    *this = Option();
    bool result = true;
    const int count = argc < tavrel::kMaxArguments ? argc : tavrel::kMaxArguments;
    for (int i = 1; i < count && argv != nullptr; ++i) {
        const wchar_t* a = argv[i];
        if (a == nullptr) continue;
        if (std::wcscmp(a, L"-h") == 0) {
            result = false;
        } else if (std::wcscmp(a, L"-view:-") == 0) {
            viewMode = kViewRemoved;
        } else if (startsWith(a, L"-view:")) {
            if (readView(a, view)) {
                viewMode = kViewGiven;
            } else {
                QVMX::Console::out(L"invalid arguments for -view:\n");
                result = false;
            }
        } else if (startsWith(a, L"-vw:")) {
            videoWidth = static_cast<int32_t>(std::wcstol(a + 4, nullptr, 10));
            reencode = true;
        } else if (startsWith(a, L"-ki:")) {
            keyFrameInterval = static_cast<int32_t>(std::wcstol(a + 4, nullptr, 10));
            reencode = true;
        } else if (startsWith(a, L"-vb:")) {
            videoBitRate = static_cast<uint32_t>(std::wcstoul(a + 4, nullptr, 10));
            reencode = true;
        } else if (startsWith(a, L"-ab:")) {
            audioBitRate = static_cast<uint32_t>(std::wcstoul(a + 4, nullptr, 10));
            reencode = true;
        } else if (startsWith(a, L"-ss:")) {
            startSeconds = static_cast<uint32_t>(std::wcstoul(a + 4, nullptr, 10));
            reencode = true;
        } else if (startsWith(a, L"-to:")) {
            endSeconds = endSecondsOf(a + 4);
            reencode = true;
        } else if (startsWith(a, L"-thumb:")) {
            thumbnail = a + 7;
        } else if (std::wcscmp(a, L"-h264") == 0) {
            codec = MetaProbe::kCodecH264;
        } else if (std::wcscmp(a, L"-h265") == 0) {
            codec = MetaProbe::kCodecHEVC;
        } else if (source.empty()) {
            source = a;
        } else {
            output = a;
        }
    }
    if (source.empty()) source = tavrel::kDefaultSource;
    if (output.empty()) output = tavrel::kDefaultOutput;
    if (!result) return false;

    // Without a readable source the run goes on and fails where it needs it.
    // Only a run that decodes anyway may decode to learn the picture size.
    if (!probe.probe(source, reencode || !thumbnail.empty())) return true;
    if (codec == MetaProbe::kCodecUnknown) codec = probe.codec;
    if (keyFrameInterval == -1) {
        keyFrameInterval = framesPerSecond();
        QVMX::Console::out(L"key-frame interval: %d\n", keyFrameInterval);
    }
    if (videoBitRate != kAutomaticBitRate) return true;
    videoBitRate = automaticBitRate(videoWidth >= 1 ? videoWidth : probe.width, codec, probe.frameRate);
    QVMX::Console::out(L"video bitrate: %lu\n", static_cast<unsigned long>(videoBitRate));
    return true;
}

void Option::usage() const {
    const std::wstring version = QVMX::wchar::mbs2wcs(tavrel::kVersion);
    const std::wstring identity = QVMX::wchar::mbs2wcs(tavrel::kIdentity);
    QVMX::Console::out(L"\nTavrel %ls\n", version.c_str());
    QVMX::Console::out(L"  Copyright (c) 2026 the Tavrel developers. License: GNU GPL version 2 or later.\n");
    QVMX::Console::out(
        L"usage: %ls [options] [source.mp4] [output.mp4]\n  source.mp4     : input file.\n    %ls\n"
        L"  output.mp4     : output file.\n    %ls\n\n",
        identity.c_str(), source.c_str(), output.c_str());
}
