#include "mp4/container_boxes.h"

#include "foundation/wide_format.h"

namespace MP4 {

ROOT::ROOT(uint64_t size_) : NestedBox(~uint32_t(0), 0, size_, fourcc("root"), nullptr) {}

void ROOT::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: == %ls ==\n", basicTag().c_str()));
    dumpChildren(out);
}

void STSD::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    file.readBytes(versionAndFlags.data(), 4);
    entryCount = file.read32();
    parseChildren(file, end_);
}

void AVC1::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    file.skip(78);
    parseChildren(file, end_);
}

}  // namespace MP4
