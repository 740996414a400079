#include "h264/range_flags.h"

#include <stdexcept>

#include "foundation/wchar.h"

namespace H264 {

namespace {

QVMX::Failure failure(const wchar_t* step, const char* message) {
    return {step, QVMX::wchar::mbs2wcs(message)};
}

bool isFullRange(const SPS& sps) {
    return sps.vui_parameters_present_flag == 1 && sps.vui.video_signal_type_present_flag == 1 &&
           sps.vui.video_full_range_flag == 1;
}

RangeFlags flagsOf(const SPS& sps) {
    return {static_cast<unsigned>(sps.profile_idc.value), isFullRange(sps), sps.constraint_set1_flag == 1};
}

}  // namespace

QVMX::Status decodeRecord(const ByteArray& payload, AVCC& record, SPS& sps) {
    try {
        GolombBitStream stream;
        stream.attach(payload);
        record.parse(stream);
    } catch (const char* message) {
        return failure(L"avcc.parse()", message);
    }
    try {
        record.sps_parse(sps);
    } catch (const char* message) {
        return failure(L"avcc.sps_parse()", message);
    } catch (const std::out_of_range& error) {
        // A record without any SPS.
        return failure(L"avcc.sps_parse()", error.what());
    }
    return {};
}

QVMX::Result<RangeFlags> rangeFlags(const ByteArray& payload) {
    AVCC record;
    SPS sps;
    if (auto decoded = decodeRecord(payload, record, sps); !decoded) return decoded.failure();
    return flagsOf(sps);
}

QVMX::Result<ByteArray> withRange(const ByteArray& payload, bool fullRange, RangeFlags& flags) {
    AVCC record;
    SPS sps;
    if (auto decoded = decodeRecord(payload, record, sps); !decoded) return decoded.failure();
    flags = flagsOf(sps);

    // A VUI the SPS lacked is written from its cleared state: every other
    // flag 0.
    sps.vui_parameters_present_flag = 1;
    sps.vui.video_signal_type_present_flag = 1;
    // 5 (unspecified) also replaces an existing 0; the fresh VUI needs it.
    if (sps.vui.video_format == 0) sps.vui.video_format = 5;
    sps.vui.video_full_range_flag = fullRange ? 1 : 0;
    sps.constraint_set1_flag = 1;

    ByteArray written;
    try {
        record.sps_store(sps);
        GolombBitStream stream;
        record.to_s(stream);
        stream.bytes(written);
    } catch (const char* message) {
        return failure(L"avcc.to_s()", message);
    } catch (const std::out_of_range& error) {
        return failure(L"avcc.to_s()", error.what());
    }
    return written;
}

}  // namespace H264
