#include "mp4/avcc_box.h"

#include <stdexcept>
#include <vector>

#include "foundation/console.h"
#include "foundation/wchar.h"
#include "h264/parameter_sets.h"
#include "mp4/field_buffer.h"

namespace MP4 {

namespace {

enum class Texts { Edit, Dump };

bool decodePayload(const ByteArray& payload, H264::AVCC& record, H264::SPS& sps, Texts texts) {
    try {
        H264::GolombBitStream stream;
        stream.attach(payload);
        record.parse(stream);
    } catch (const char* message) {
        QVMX::Console::out(L"avcc.parse() failed: %ls\n", QVMX::wchar::mbs2wcs(message).c_str());
        return false;
    }
    try {
        record.sps_parse(sps);
    } catch (const char* message) {
        const std::wstring wide = QVMX::wchar::mbs2wcs(message);
        if (texts == Texts::Dump) {
            // The dump's text takes the wide message as a narrow string, so
            // only its first character shows.
            QVMX::Console::out(L"avcc.sps_parse() failed: %s\n",
                               reinterpret_cast<const char*>(wide.c_str()));
        } else {
            QVMX::Console::out(L"avcc.sps_parse() failed: %ls\n", wide.c_str());
        }
        return false;
    } catch (const std::out_of_range& error) {
        // A record without any SPS.
        QVMX::Console::out(L"avcc.sps_parse() failed: %ls\n",
                           QVMX::wchar::mbs2wcs(error.what()).c_str());
        return false;
    }
    return true;
}

bool isFullRange(const H264::SPS& sps) {
    return sps.vui_parameters_present_flag == 1 && sps.vui.video_signal_type_present_flag == 1 &&
           sps.vui.video_full_range_flag == 1;
}

}  // namespace

bool AVCC::describe(Fields& f) {
    f.rest(payload);
    return true;
}

void AVCC::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    const auto bytes = readFieldBytes(file);
    Fields fields = Fields::from(bytes);
    describe(fields);
}

ByteArray AVCC::boxWith(const ByteArray& payload) {
    ByteArray out;
    if (payload.size > 0xFFFFFFFFull - 8) return out;
    AVCC box(0, 0, payload.size + 8, fourcc("avcC"), nullptr);
    box.payload = payload;
    const auto fields = box.describedBytes();
    out.append32be(static_cast<uint32_t>(fields.size() + 8));
    out.append("avcC");
    out.append(fields.data(), fields.size());
    return out;
}

void AVCC::dump() const {
    BOX::dump();
    H264::AVCC record;
    H264::SPS sps;
    decodePayload(payload, record, sps, Texts::Dump);
}

bool AVCC::decode(H264::AVCC& record, H264::SPS& sps) const {
    return decodePayload(payload, record, sps, Texts::Edit);
}

bool AVCC::get_profile_idc_and_constrained_set1_flag(unsigned char& profile_idc,
                                                     bool& constrained_set1,
                                                     bool& fullRange) const {
    H264::AVCC record;
    H264::SPS sps;
    if (!decode(record, sps)) return false;
    profile_idc = static_cast<unsigned char>(sps.profile_idc.value);
    constrained_set1 = sps.constraint_set1_flag == 1;
    fullRange = isFullRange(sps);
    return true;
}

bool AVCC::assign_fullRange_and_constrained_set1_flag(ByteArray& out, bool fullRange,
                                                      bool& wasFullRange,
                                                      bool& wasConstrainedSet1) const {
    out.clear();
    H264::AVCC record;
    H264::SPS sps;
    if (!decode(record, sps)) return false;
    wasFullRange = isFullRange(sps);
    wasConstrainedSet1 = sps.constraint_set1_flag == 1;

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
        H264::GolombBitStream stream;
        record.to_s(stream);
        stream.bytes(written);
    } catch (const char* message) {
        QVMX::Console::out(L"avcc.to_s() failed: %ls\n", QVMX::wchar::mbs2wcs(message).c_str());
        return false;
    } catch (const std::out_of_range& error) {
        QVMX::Console::out(L"avcc.to_s() failed: %ls\n", QVMX::wchar::mbs2wcs(error.what()).c_str());
        return false;
    }
    out = std::move(written);
    return true;
}

}  // namespace MP4
