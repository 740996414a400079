#include "tools/dump_h264.h"

#include "foundation/console.h"
#include "h264/parameter_sets.h"
#include "mp4/avcc_box.h"

namespace {

void dumpAvcC(const MP4::AVCC& box) {
    QVMX::Console::out(L"avcC: start=%llu bytes=%llu\n", static_cast<unsigned long long>(box.start),
                       static_cast<unsigned long long>(box.size));
    H264::AVCC record;
    H264::SPS sps;
    if (!box.decode(record, sps)) return;
    const unsigned rest = sps.constraint_set4_to_reserved;
    QVMX::Console::out(
        L"avcC:     profile_idc=%u constraint_set0..5=%u%u%u%u%u%u level_idc=%u\n",
        sps.profile_idc.value, sps.constraint_set0_flag.value, sps.constraint_set1_flag.value,
        sps.constraint_set2_flag.value, sps.constraint_set3_flag.value, (rest >> 3) & 1,
        (rest >> 2) & 1, sps.level_idc.value);
    // Map units are field macroblock rows when frames may be coded as fields.
    const unsigned long long width = sps.pic_width_in_mbs_minus1.value + 1ull;
    const unsigned long long height =
        (sps.pic_height_in_map_units_minus1.value + 1ull) * (2 - sps.frame_mbs_only_flag.value);
    QVMX::Console::out(L"avcC:     macroblocks=%llux%llu frame_mbs_only=%u\n", width, height,
                       sps.frame_mbs_only_flag.value);
    const bool vui = sps.vui_parameters_present_flag == 1;
    const bool signal = vui && sps.vui.video_signal_type_present_flag == 1;
    QVMX::Console::out(L"avcC:     vui=%u video_signal_type=%u video_format=%u video_full_range=%u\n",
                       vui ? 1u : 0u, signal ? 1u : 0u, signal ? sps.vui.video_format.value : 0u,
                       signal ? sps.vui.video_full_range_flag.value : 0u);
}

}  // namespace

void dumpParameterSets(MP4::Container& container) {
    container.find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [](MP4::BOX& box) {
        if (const auto* avcc = dynamic_cast<const MP4::AVCC*>(&box)) dumpAvcC(*avcc);
        return true;
    });
}
