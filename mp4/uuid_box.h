#pragma once

#include <array>
#include <string_view>

#include "foundation/byte_array.h"
#include "foundation/file_io.h"
#include "mp4/box.h"

namespace MP4 {

using UserType = std::array<uint8_t, 16>;

// A 'uuid' box: a 24-byte header (size, type, 16-byte user type). Kinds
// registered as box holders hold child boxes; every other kind a payload.
class UUID : public NestedBox {
public:
    static constexpr uint64_t kHeaderSize = 24;

    using NestedBox::NestedBox;
    // A box built in memory, to be written into a file.
    UUID(const UserType& userType, std::string_view payload);

    bool hasChild() const override;
    void dump(const DumpLine& out) const override;
    void parseBox(BinFile& file, uint64_t end) override;
    // The user type, then the payload (empty for a box holder, whose
    // children follow the user type).
    bool describe(Fields& f) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;

    bool isKind(const UserType& kind) const { return size >= kHeaderSize && userType == kind; }
    // The whole box: 32-bit size, "uuid", user type, payload.
    ByteArray to_byteArray() const;
    // Writes the whole box at the file's position; true when all of it went.
    bool write(QVMX::FileIO& file) const;

    UserType userType{};
    ByteArray payload;
};

// A kind of uuid box whose payload is child boxes, of which those of type
// track are complete track boxes (their chunk offsets are followed like the
// movie's). Registered by the code that knows the kind, before its movies
// are parsed; registering twice is harmless.
void registerBoxHolder(const UserType& kind, FourCC track);

}  // namespace MP4
