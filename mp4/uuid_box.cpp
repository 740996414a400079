#include "mp4/uuid_box.h"

#include <cwchar>
#include <mutex>
#include <optional>
#include <vector>

#include "foundation/wide_format.h"
#include "mp4/container_boxes.h"
#include "mp4/field_buffer.h"

namespace MP4 {

namespace {

struct BoxHolder {
    UserType kind;
    FourCC track;
};

// Written at start-up, read by every parse (the parses of one run may
// happen on two threads).
std::mutex holdersLock;
std::vector<BoxHolder>& boxHolders() {
    static std::vector<BoxHolder> holders;
    return holders;
}

// The track type of a registered kind.
std::optional<FourCC> holderOf(const UserType& kind) {
    std::lock_guard lock(holdersLock);
    for (const BoxHolder& h : boxHolders()) {
        if (h.kind == kind) return h.track;
    }
    return std::nullopt;
}

}  // namespace

void registerBoxHolder(const UserType& kind, FourCC track) {
    if (holderOf(kind)) return;
    std::lock_guard lock(holdersLock);
    boxHolders().push_back({kind, track});
}

UUID::UUID(const UserType& userType_, std::string_view payload_)
    : NestedBox(0, 0, payload_.size() + kHeaderSize, fourcc("uuid"), nullptr),
      userType(userType_),
      payload(payload_.data(), payload_.size()) {}

bool UUID::hasChild() const { return size >= kHeaderSize && holderOf(userType).has_value(); }

bool UUID::describe(Fields& f) {
    f.bytes(userType);
    f.rest(payload);
    return true;
}

void UUID::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    // The user type alone first: a box holder's children, which may hold a
    // whole track's data, are not read as a payload.
    auto bytes = readFieldBytes(file, userType.size());
    {
        Fields fields = Fields::from(bytes);
        describe(fields);
    }
    if (hasChild()) {
        parseChildren(file, end_);
        return;
    }
    if (bytes.size() < userType.size()) return;
    // Only the bytes really present are read.
    file.readAvailable(bytes, file.remaining());
    Fields fields = Fields::from(bytes);
    describe(fields);
}

std::unique_ptr<BOX> UUID::allocChild(BOX& header) {
    const auto track = size >= kHeaderSize ? holderOf(userType) : std::nullopt;
    if (track && header.isType(*track)) return std::make_unique<TRAK>(BOX::Header{header});
    return NestedBox::allocChild(header);
}

void UUID::dump(const DumpLine& out) const {
    wchar_t text[40];
    std::swprintf(text, 40,
                  L"%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  userType[0], userType[1], userType[2], userType[3], userType[4], userType[5],
                  userType[6], userType[7], userType[8], userType[9], userType[10],
                  userType[11], userType[12], userType[13], userType[14], userType[15]);
    out(QVMX::format(L"MP4: %ls<%ls uuid=%ls >\n", indent().c_str(), basicTag().c_str(), text));
}

ByteArray UUID::to_byteArray() const {
    const auto fields = describedBytes();
    ByteArray out;
    out.append32be(static_cast<uint32_t>(fields.size() + 8));
    out.append("uuid");
    out.append(fields.data(), fields.size());
    return out;
}

bool UUID::write(QVMX::FileIO& file) const {
    const ByteArray bytes = to_byteArray();
    uint64_t done = 0;
    while (done < bytes.size) {
        const uint64_t put = file.write(bytes.data + done, bytes.size - done);
        if (put == QVMX::FileIO::kError || put == 0) break;
        done += put;
    }
    return done == payload.size + kHeaderSize;
}

}  // namespace MP4
