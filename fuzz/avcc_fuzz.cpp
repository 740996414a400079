// The avcC record, its SPS and the full-range rewrite on arbitrary bytes.
// The first byte chooses the movie the record is put into (layout, user
// data, range, output path); the rest is the avcC payload. Besides not
// crashing: a model without scaling lists must read back what it wrote,
// a source with an output path keeps its bytes, and no temporary file
// outlives the rewrite.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_file.h"
#include "fuzz/scratch_dir.h"
#include "h264/parameter_sets.h"
#include "mp4/avcc_box.h"
#include "mp4/container.h"
#include "h264/range_flags.h"
#include "meta/full_range_edit.h"

namespace {

using fuzzsupport::checkAndEmpty;
using fuzzsupport::readAll;
using fuzzsupport::wide;
using fuzzsupport::writeAll;

std::string be32(uint32_t v) { return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; }
std::string box(const char* type, const std::string& payload) {
    return be32(uint32_t(payload.size() + 8)) + type + payload;
}
std::string fullBox(const char* type, const std::string& payload) {
    return box(type, std::string(4, '\0') + payload);
}

// ftyp, then moov and mdat in either order; one chunk pointing at the media.
std::string movie(const std::string& avcC, bool moovFirst, int udtaBytes) {
    const std::string ftyp = box("ftyp", "isom" + std::string(4, '\0'));
    const std::string mdat = box("mdat", std::string(32, 'm'));
    const auto moovWith = [&](uint32_t chunk) {
        const std::string avc1 = box("avc1", std::string(78, '\0') + box("avcC", avcC));
        const std::string stbl = box("stbl", fullBox("stsd", be32(1) + avc1) +
                                                 fullBox("stco", be32(1) + be32(chunk)));
        const std::string trak = box("trak", box("mdia", box("minf", stbl)));
        const std::string udta = udtaBytes < 0 ? "" : box("udta", std::string(size_t(udtaBytes), 'u'));
        return box("moov", trak + udta);
    };
    if (moovFirst) {
        const std::string moov = moovWith(0);
        return ftyp + moovWith(uint32_t(ftyp.size() + moov.size() + 8)) + mdat;
    }
    return ftyp + mdat + moovWith(uint32_t(ftyp.size() + 8));
}

// The record and SPS through the box operations; what was written must read
// back with the flags set and the picture unchanged.
void model(const std::string& avcC, bool fullRange) {
    MP4::AVCC box(0, 0, avcC.size() + 8, MP4::fourcc("avcC"), nullptr);
    box.payload = ByteArray(avcC.data(), avcC.size());
    box.dump([](const std::wstring&) {});
    (void)H264::rangeFlags(box.payload);
    H264::AVCC record;
    H264::SPS before;
    if (!box.decode(record, before)) return;
    H264::RangeFlags was;
    auto written = H264::withRange(box.payload, fullRange, was);
    if (!written) return;
    const ByteArray& out = *written;
    // Scaling deltas use a mapping that is not its own inverse.
    if (before.highProfile.seq_scaling_matrix_present_flag == 1) return;
    MP4::AVCC again(0, 0, out.size + 8, MP4::fourcc("avcC"), nullptr);
    again.payload = out;
    H264::AVCC record2;
    H264::SPS after;
    if (!again.decode(record2, after)) std::abort();
    if (after.constraint_set1_flag != 1 || after.vui.video_signal_type_present_flag != 1 ||
        after.vui.video_full_range_flag != (fullRange ? 1u : 0u) ||
        after.profile_idc != before.profile_idc ||
        after.pic_width_in_mbs_minus1 != before.pic_width_in_mbs_minus1 ||
        after.pic_height_in_map_units_minus1 != before.pic_height_in_map_units_minus1 ||
        after.vui.time_scale != before.vui.time_scale) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    if (size < 1) return 0;
    const uint8_t mode = data[0];
    const std::string avcC(reinterpret_cast<const char*>(data + 1), size - 1);
    const bool fullRange = (mode & 1) != 0;
    model(avcC, fullRange);

    const bool moovFirst = (mode & 2) != 0;
    const bool withOutput = (mode & 4) != 0;
    const int udta = (mode & 8) != 0 ? -1 : (mode >> 4) * 3;
    const std::string dir = fuzzsupport::scratchDirectory();
    const std::string source = dir + "/movie.mp4";
    const std::string bytes = movie(avcC, moovFirst, udta);
    writeAll(source, bytes);
    {
        MP4::Container c;
        c.attach(wide(source));
        c.beginEdits();
        (void)meta::declareRange(c, fullRange);
        (void)c.commitEdits(withOutput ? wide(dir + "/out.mp4") : std::wstring());
    }
    if (withOutput && readAll(source) != bytes) std::abort();
    checkAndEmpty(dir);
    return 0;
}
