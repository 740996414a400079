// Which typed object each container makes for a child header. Every type
// not listed becomes a plain BOX, kept by position and size only.
#include "mp4/avcc_box.h"
#include "mp4/container_boxes.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_table_boxes.h"
#include "mp4/user_data_boxes.h"
#include "mp4/uuid_box.h"

namespace MP4 {

namespace {

template <typename T>
std::unique_ptr<BOX> make(BOX& header) {
    return std::make_unique<T>(BOX::Header{header});
}

struct Entry {
    FourCC type;
    std::unique_ptr<BOX> (*make)(BOX&);
};

template <size_t N>
std::unique_ptr<BOX> lookup(const Entry (&table)[N], BOX& header) {
    for (const Entry& e : table) {
        if (header.type == e.type) return e.make(header);
    }
    return std::make_unique<BOX>(header);
}

constexpr FourCC kCopyrightXYZ = {0xA9, 'x', 'y', 'z'};

}  // namespace

std::unique_ptr<BOX> ROOT::allocChild(BOX& header) {
    static const Entry table[] = {
        {fourcc("ftyp"), make<FTYP>}, {fourcc("mdat"), make<MDAT>}, {fourcc("meta"), make<META>},
        {fourcc("moov"), make<MOOV>}, {fourcc("uuid"), make<UUID>},
    };
    return lookup(table, header);
}

std::unique_ptr<BOX> MOOV::allocChild(BOX& header) {
    static const Entry table[] = {
        {fourcc("mvhd"), make<MVHD>}, {fourcc("udta"), make<UDTA>}, {fourcc("trak"), make<TRAK>},
    };
    return lookup(table, header);
}

std::unique_ptr<BOX> TRAK::allocChild(BOX& header) {
    static const Entry table[] = {
        {fourcc("uuid"), make<UUID>}, {fourcc("tkhd"), make<TKHD>}, {fourcc("mdia"), make<MDIA>},
    };
    return lookup(table, header);
}

std::unique_ptr<BOX> MDIA::allocChild(BOX& header) {
    static const Entry table[] = {
        {fourcc("mdhd"), make<MDHD>}, {fourcc("minf"), make<MINF>},
    };
    return lookup(table, header);
}

std::unique_ptr<BOX> MINF::allocChild(BOX& header) {
    static const Entry table[] = {{fourcc("stbl"), make<STBL>}};
    return lookup(table, header);
}

std::unique_ptr<BOX> STBL::allocChild(BOX& header) {
    static const Entry table[] = {
        {fourcc("co64"), make<CO64>}, {fourcc("stco"), make<STCO>}, {fourcc("stsc"), make<STSC>},
        {fourcc("stsd"), make<STSD>}, {fourcc("stsz"), make<STSZ>}, {fourcc("stts"), make<STTS>},
    };
    return lookup(table, header);
}

std::unique_ptr<BOX> STSD::allocChild(BOX& header) {
    static const Entry table[] = {{fourcc("sowt"), make<SOWT>}, {fourcc("avc1"), make<AVC1>}};
    return lookup(table, header);
}

std::unique_ptr<BOX> AVC1::allocChild(BOX& header) {
    static const Entry table[] = {{fourcc("avcC"), make<AVCC>}};
    return lookup(table, header);
}

std::unique_ptr<BOX> UDTA::allocChild(BOX& header) {
    static const Entry table[] = {{fourcc("loci"), make<LOCI>}, {kCopyrightXYZ, make<XYZ>}};
    return lookup(table, header);
}

std::unique_ptr<BOX> META::allocChild(BOX& header) {
    static const Entry table[] = {{fourcc("hdlr"), make<HDLR>}};
    return lookup(table, header);
}

}  // namespace MP4
