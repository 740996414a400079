#include "tools/dump_summary.h"

#include "foundation/console.h"
#include "foundation/wchar.h"
#include "meta/meta_probe.h"
#include "tools/dump_camera.h"

namespace {

const wchar_t* codecName(int32_t codec) {
    switch (codec) {
        case MetaProbe::kCodecH264:
            return L"H.264";
        case MetaProbe::kCodecHEVC:
            return L"H.265/HEVC";
        default:
            return L"unknown";
    }
}

}  // namespace

bool dumpSummary(const std::wstring& path) {
    MetaProbe probe;
    const bool described = probe.probe(path);
    QVMX::Console::out(L"summary: model=\"%ls\" code=0x%05x\n", QVMX::wchar::mbs2wcs(probe.model.c_str()).c_str(),
                       probe.modelCode);
    QVMX::Console::out(L"summary: codec=%ls frameRate=%.3f size=%dx%d\n", codecName(probe.codec),
                       double(probe.frameRate), probe.width, probe.height);
    dumpPanoxRecord(L"summary: ", L"panox", probe.record);
    return described;
}
