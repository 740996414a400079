#include "mp4/header_boxes.h"

#include "foundation/wide_format.h"
#include "mp4/field_buffer.h"

namespace MP4 {

void readVersionAndFlags(BinFile& file, uint8_t& version, uint32_t& flags) {
    const uint32_t word = file.read32();
    version = static_cast<uint8_t>(word >> 24);
    flags = word & 0xFFFFFF;
}

namespace {

// More than the widest layout below (mvhd version 1: 112 bytes); the rest
// of a header box is never needed.
constexpr uint64_t kHeaderFieldBytes = 128;

template <class B>
void readDescribed(B& box, BinFile& file, uint64_t most) {
    const auto bytes = readFieldBytes(file, most);
    Fields fields = Fields::from(bytes);
    box.describe(fields);
}

// The creation time goes where the box's own description puts it.
template <class B>
bool describedCreationTime(const B& box, uint64_t time, FieldBytes& out) {
    B stamped(box);
    stamped.creationTime = time;
    std::vector<uint8_t> bytes;
    Fields fields = Fields::into(bytes);
    fields.watch(&stamped.creationTime);
    stamped.describe(fields);
    const Fields::Span at = fields.watched();
    if (!at.found || box.size < box.headerSize() + at.offset + at.size) return false;
    out.offset = at.offset;
    out.bytes.assign(bytes.begin() + static_cast<long>(at.offset), bytes.begin() + static_cast<long>(at.offset + at.size));
    return true;
}

}  // namespace

bool creationTimeField(const MVHD& box, uint64_t time, FieldBytes& out) {
    return describedCreationTime(box, time, out);
}
bool creationTimeField(const TKHD& box, uint64_t time, FieldBytes& out) {
    return describedCreationTime(box, time, out);
}
bool creationTimeField(const MDHD& box, uint64_t time, FieldBytes& out) {
    return describedCreationTime(box, time, out);
}

bool MVHD::describe(Fields& f) {
    f.versionAndFlags(version, flags);
    const bool wide = version == 1;
    f.u32or64(creationTime, wide);
    f.u32or64(modificationTime, wide);
    f.u32(ticksPerSecond);
    f.u32or64(duration, wide);
    f.u32(rate);
    f.u16(volume);
    f.bytes(reserved);
    f.u32s(matrix);
    f.bytes(preDefined);
    f.u32(nextTrackId);
    return true;
}

void MVHD::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readDescribed(*this, file, kHeaderFieldBytes);
    timeScale = static_cast<float>(ticksPerSecond);
    durationSeconds = static_cast<float>(duration) / timeScale;
}

void MVHD::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls timeStamp=%lu >\n", indent().c_str(), basicTag().c_str(),
                     static_cast<unsigned long>(creationTime)));
}

bool TKHD::describe(Fields& f) {
    f.versionAndFlags(version, flags);
    const bool wide = version == 1;
    f.u32or64(creationTime, wide);
    f.u32or64(modificationTime, wide);
    f.u32(trackId);
    f.bytes(reserved1);
    f.u32or64(duration, wide);
    f.bytes(reserved2);
    f.u16(layer);
    f.u16(alternateGroup);
    f.u16(volume);
    f.bytes(reserved3);
    f.u32s(matrix);
    f.u32(widthFixed);
    f.u32(heightFixed);
    return true;
}

namespace {

// Signed 16.16 to whole pixels, cut towards zero.
uint32_t wholePixels(uint32_t fixed) {
    const auto v = static_cast<int32_t>(fixed);
    return static_cast<uint32_t>(static_cast<int32_t>(v * (1.0 / 65536)));
}

}  // namespace

void TKHD::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readDescribed(*this, file, kHeaderFieldBytes);
    width = wholePixels(widthFixed);
    height = wholePixels(heightFixed);
}

void TKHD::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls timeStamp=%lu width=%u height=%u >\n", indent().c_str(),
                     basicTag().c_str(), static_cast<unsigned long>(creationTime), width, height));
}

bool MDHD::describe(Fields& f) {
    f.versionAndFlags(version, flags);
    const bool wide = version == 1;
    f.u32or64(creationTime, wide);
    f.u32or64(modificationTime, wide);
    f.u32(timeScale);
    f.u32or64(duration, wide);
    f.u16(language);
    f.u16(preDefined);
    return true;
}

void MDHD::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readDescribed(*this, file, kHeaderFieldBytes);
}

void MDHD::dump(const DumpLine& out) const {
    out(QVMX::format(L"MP4: %ls<%ls timeStamp=%lu duration=%f time_scale=%f >\n",
                     indent().c_str(), basicTag().c_str(),
                     static_cast<unsigned long>(creationTime), static_cast<double>(duration),
                     static_cast<double>(timeScale)));
}

bool HDLR::describe(Fields& f) {
    f.bytes(this->fields);
    f.rest(name);
    return true;
}

void HDLR::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readDescribed(*this, file, ~uint64_t(0));
}

std::string HDLR::handlerType() const {
    return std::string(reinterpret_cast<const char*>(fields.data() + 8), 4);
}

void HDLR::dump(const DumpLine& out) const {
    std::wstring handler;
    for (char c : handlerType()) handler.push_back(static_cast<wchar_t>(static_cast<uint8_t>(c)));
    std::wstring wide;
    for (char c : name) {
        if (c == '\0') break;
        wide.push_back(static_cast<wchar_t>(static_cast<uint8_t>(c)));
    }
    out(QVMX::format(L"MP4: %ls<%ls handler=%ls name=%ls(%d) >\n", indent().c_str(),
                     basicTag().c_str(), handler.c_str(), wide.c_str(),
                     static_cast<int>(name.size())));
}

}  // namespace MP4
