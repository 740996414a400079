#include "mp4/sample_table_boxes.h"

#include <algorithm>

#include "foundation/console.h"
#include "mp4/header_boxes.h"

namespace MP4 {

namespace {

// Reads up to count records of width bytes that really lie in the box, as
// one block, and returns them for decoding.
std::vector<uint8_t> readRecords(BinFile& file, uint64_t count, uint64_t width) {
    std::vector<uint8_t> bytes;
    const uint64_t present = std::min(count, file.remaining() / width);
    bytes.reserve(static_cast<size_t>(present * width));
    file.readAvailable(bytes, present * width);
    return bytes;
}

}  // namespace

void STTS::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readVersionAndFlags(file, version, flags);
    entryCount = file.read32();
    const auto bytes = readRecords(file, entryCount, 8);
    entries.reserve(bytes.size() / 8);
    for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
        entries.push_back({readBE32(&bytes[i]), readBE32(&bytes[i + 4])});
    }
}

void STTS::dump() const {
    QVMX::Console::out(L"MP4: %ls<%ls entryCount=%d >\n", indent().c_str(), basicTag().c_str(),
                       static_cast<int>(entryCount));
}

void STSC::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readVersionAndFlags(file, version, flags);
    entryCount = file.read32();
    const auto bytes = readRecords(file, entryCount, 12);
    entries.reserve(bytes.size() / 12);
    for (size_t i = 0; i + 12 <= bytes.size(); i += 12) {
        entries.push_back({readBE32(&bytes[i]), readBE32(&bytes[i + 4]), readBE32(&bytes[i + 8])});
    }
}

void STSC::dump() const {
    QVMX::Console::out(L"MP4: %ls<%ls entryCount=%d >\n", indent().c_str(), basicTag().c_str(),
                       static_cast<int>(entryCount));
}

void STSZ::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readVersionAndFlags(file, version, flags);
    sampleSize = file.read32();
    sampleCount = file.read32();
    if (sampleSize != 0 || sampleCount == 0) return;
    const auto bytes = readRecords(file, sampleCount, 4);
    sizes.reserve(bytes.size() / 4);
    for (size_t i = 0; i + 4 <= bytes.size(); i += 4) sizes.push_back(readBE32(&bytes[i]));
}

void STSZ::dump() const {
    QVMX::Console::out(L"MP4: %ls<%ls sampleSize=%d sample_count=%d >\n", indent().c_str(),
                       basicTag().c_str(), static_cast<int>(sampleSize),
                       static_cast<int>(sampleCount));
}

void STCO::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readVersionAndFlags(file, version, flags);
    entryCount = file.read32();
    tableOffset = file.position();
}

void STCO::dump() const {
    QVMX::Console::out(L"MP4: %ls<%ls indexes=%u >\n", indent().c_str(), basicTag().c_str(),
                       entryCount);
}

void SOWT::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    file.skip(6);
    dataReferenceIndex = file.read16();
    file.skip(8);
    channelCount = file.read16();
    sampleSize = file.read16();
    preDefined = file.read16();
    file.skip(2);
    sampleRate = file.read32();
    parseChildren(file, end_);
}

void SOWT::dump() const {
    QVMX::Console::out(
        L"MP4: %ls<%ls data_reference_index=%u channel_count=%u sample_size=%u pre_defined=%u "
        L"samplelate=%x>\n",
        indent().c_str(), basicTag().c_str(), dataReferenceIndex, channelCount, sampleSize,
        preDefined, sampleRate);
}

}  // namespace MP4
