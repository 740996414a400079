#include "mp4/header_boxes.h"

#include "foundation/console.h"

namespace MP4 {

void readVersionAndFlags(BinFile& file, uint8_t& version, uint32_t& flags) {
    const uint32_t word = file.read32();
    version = static_cast<uint8_t>(word >> 24);
    flags = word & 0xFFFFFF;
}

namespace {

// The creation time sits right after the header and the version and flags.
// A box too small to hold the field is not written.
bool writeCreationTime(BinFile& file, const BOX& box, uint8_t version, uint64_t time) {
    if (box.largeSize || box.size < (version == 1 ? 20u : 16u)) return false;
    const uint64_t saved = file.position();
    file.seek(box.start + 12);
    const bool ok = version == 1 ? file.write64(time) : file.write32(static_cast<uint32_t>(time));
    file.seek(saved);
    return ok;
}

}  // namespace

void MVHD::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readVersionAndFlags(file, version, flags);
    uint64_t duration;
    uint32_t scale;
    if (version == 1) {
        creationTime = file.read64();
        file.skip(8);
        scale = file.read32();
        duration = file.read64();
    } else {
        creationTime = file.read32();
        file.skip(4);
        scale = file.read32();
        duration = file.read32();
    }
    timeScale = static_cast<float>(scale);
    durationSeconds = static_cast<float>(duration) / timeScale;
}

void MVHD::dump() const {
    QVMX::Console::out(L"MP4: %ls<%ls timeStamp=%lu >\n", indent().c_str(), basicTag().c_str(),
                       static_cast<unsigned long>(creationTime));
}

bool MVHD::setTimeStamp(BinFile& file, uint64_t time) const {
    return writeCreationTime(file, *this, version, time);
}

void TKHD::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readVersionAndFlags(file, version, flags);
    if (version == 1) {
        creationTime = file.read64();
        file.skip(24);
    } else {
        creationTime = file.read32();
        file.skip(16);
    }
    file.skip(52);
    const auto w = static_cast<int32_t>(file.read32());
    const auto h = static_cast<int32_t>(file.read32());
    width = static_cast<uint32_t>(static_cast<int32_t>(w * (1.0 / 65536)));
    height = static_cast<uint32_t>(static_cast<int32_t>(h * (1.0 / 65536)));
}

void TKHD::dump() const {
    QVMX::Console::out(L"MP4: %ls<%ls timeStamp=%lu width=%u height=%u >\n", indent().c_str(),
                       basicTag().c_str(), static_cast<unsigned long>(creationTime), width, height);
}

bool TKHD::setTimeStamp(BinFile& file, uint64_t time) const {
    return writeCreationTime(file, *this, version, time);
}

void MDHD::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    readVersionAndFlags(file, version, flags);
    if (version == 1) {
        creationTime = file.read64();
        file.skip(8);
        timeScale = file.read32();
        duration = file.read64();
    } else {
        creationTime = file.read32();
        file.skip(4);
        timeScale = file.read32();
        duration = file.read32();
    }
}

void MDHD::dump() const {
    QVMX::Console::out(L"MP4: %ls<%ls timeStamp=%lu duration=%f time_scale=%f >\n",
                       indent().c_str(), basicTag().c_str(),
                       static_cast<unsigned long>(creationTime), static_cast<double>(duration),
                       static_cast<double>(timeScale));
}

bool MDHD::setTimeStamp(BinFile& file, uint64_t time) const {
    return writeCreationTime(file, *this, version, time);
}

void HDLR::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    file.readBytes(fields.data(), fields.size());
    if (size > 32) {
        std::vector<uint8_t> bytes;
        file.readAvailable(bytes, size - 32);
        name.assign(bytes.begin(), bytes.end());
    }
}

std::string HDLR::handlerType() const {
    return std::string(reinterpret_cast<const char*>(fields.data() + 8), 4);
}

void HDLR::dump() const {
    std::wstring handler;
    for (char c : handlerType()) handler.push_back(static_cast<wchar_t>(static_cast<uint8_t>(c)));
    std::wstring wide;
    for (char c : name) {
        if (c == '\0') break;
        wide.push_back(static_cast<wchar_t>(static_cast<uint8_t>(c)));
    }
    QVMX::Console::out(L"MP4: %ls<%ls handler=%ls name=%ls(%d) >\n", indent().c_str(),
                       basicTag().c_str(), handler.c_str(), wide.c_str(),
                       static_cast<int>(name.size()));
}

}  // namespace MP4
