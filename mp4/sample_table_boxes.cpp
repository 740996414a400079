#include "mp4/sample_table_boxes.h"

#include "foundation/wide_format.h"
#include "mp4/field_buffer.h"

namespace MP4 {

namespace {

// Tables are read as far as their bytes are present, and no further.
template <class B>
void readDescribed(B& box, BinFile& file, uint64_t most = ~uint64_t(0)) {
    const auto bytes = readFieldBytes(file, most);
    Fields fields = Fields::from(bytes);
    box.describe(fields);
}

}  // namespace

bool STTS::describe(Fields& f) {
    f.versionAndFlags(version, flags);
    f.u32(entryCount);
    f.table(entries, entryCount, [](Fields& g, Entry& e) {
        g.u32(e.sampleCount);
        g.u32(e.sampleDelta);
    });
    return true;
}

void STTS::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readDescribed(*this, file);
}

void STTS::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls entryCount=%d >\n", indent().c_str(), basicTag().c_str(),
                     static_cast<int>(entryCount)));
}

bool STSC::describe(Fields& f) {
    f.versionAndFlags(version, flags);
    f.u32(entryCount);
    f.table(entries, entryCount, [](Fields& g, Entry& e) {
        g.u32(e.firstChunk);
        g.u32(e.samplesPerChunk);
        g.u32(e.sampleDescriptionIndex);
    });
    return true;
}

void STSC::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readDescribed(*this, file);
}

void STSC::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls entryCount=%d >\n", indent().c_str(), basicTag().c_str(),
                     static_cast<int>(entryCount)));
}

bool STSZ::describe(Fields& f) {
    f.versionAndFlags(version, flags);
    f.u32(sampleSize);
    f.u32(sampleCount);
    // One size for every sample, or a table of them.
    if (sampleSize == 0 && sampleCount != 0) {
        f.table(sizes, sampleCount, [](Fields& g, uint32_t& v) { g.u32(v); });
    }
    return true;
}

void STSZ::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readDescribed(*this, file);
}

void STSZ::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls sampleSize=%d sample_count=%d >\n", indent().c_str(),
                     basicTag().c_str(), static_cast<int>(sampleSize),
                     static_cast<int>(sampleCount)));
}

bool STCO::describe(Fields& f) {
    f.versionAndFlags(version, flags);
    f.u32(entryCount);
    return true;
}

void STCO::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    const uint64_t from = file.position();
    // Only the fields: the table itself stays in the file.
    const auto bytes = readFieldBytes(file, describedBytes().size());
    Fields fields = Fields::from(bytes);
    describe(fields);
    tableOffset = from + fields.offset();
}

void STCO::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls indexes=%u >\n", indent().c_str(), basicTag().c_str(),
                     entryCount));
}

bool SOWT::describe(Fields& f) {
    f.bytes(reserved1);
    f.u16(dataReferenceIndex);
    f.bytes(reserved2);
    f.u16(channelCount);
    f.u16(sampleSize);
    f.u16(preDefined);
    f.bytes(reserved3);
    f.u32(sampleRate);
    return true;
}

void SOWT::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    const auto bytes = readFieldBytes(file, describedBytes().size());
    Fields fields = Fields::from(bytes);
    describe(fields);
    // Child boxes follow only whole fields.
    if (!fields.failed()) parseChildren(file, end_);
}

void SOWT::dump(const DumpLine& out) const {
    out(QVMX::format(
        L"MP4: %ls<%ls data_reference_index=%u channel_count=%u sample_size=%u pre_defined=%u "
        L"samplelate=%x>\n",
        indent().c_str(), basicTag().c_str(), dataReferenceIndex, channelCount, sampleSize,
        preDefined, sampleRate));
}

}  // namespace MP4
