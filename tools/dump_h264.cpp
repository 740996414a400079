#include "tools/dump_h264.h"

#include "foundation/console.h"
#include "mp4/avcc_box.h"
#include "tools/dump_facts.h"

void dumpParameterSets(MP4::Container& container) {
    container.find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [](MP4::BOX& box) {
        const auto* avcc = dynamic_cast<const MP4::AVCC*>(&box);
        if (avcc == nullptr) return true;
        QVMX::Console::out(L"avcC: start=%llu bytes=%llu\n", static_cast<unsigned long long>(avcc->start),
                           static_cast<unsigned long long>(avcc->size));
        const AvcCFact sps = readAvcC(*avcc);
        if (!sps.decoded) {
            QVMX::Console::out(L"%ls\n", sps.failure.c_str());
            return true;
        }
        const unsigned* c = sps.constraintSets;
        QVMX::Console::out(L"avcC:     profile_idc=%u constraint_set0..5=%u%u%u%u%u%u level_idc=%u\n",
                           sps.profileIdc, c[0], c[1], c[2], c[3], c[4], c[5], sps.levelIdc);
        QVMX::Console::out(L"avcC:     macroblocks=%llux%llu frame_mbs_only=%u\n", sps.widthMbs, sps.heightMbs,
                           sps.frameMbsOnly);
        QVMX::Console::out(L"avcC:     vui=%u video_signal_type=%u video_format=%u video_full_range=%u\n", sps.vui,
                           sps.videoSignalType, sps.videoFormat, sps.videoFullRange);
        return true;
    });
}
