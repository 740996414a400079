#include "mp4/avcc_box.h"

#include "foundation/notices.h"
#include "h264/range_flags.h"
#include "mp4/field_buffer.h"

namespace MP4 {

namespace {

enum class Texts { Edit, Dump };

bool decodePayload(const ByteArray& payload, H264::AVCC& record, H264::SPS& sps, Texts texts) {
    const QVMX::Status decoded = H264::decodeRecord(payload, record, sps);
    if (decoded) return true;
    const QVMX::Failure& failure = decoded.failure();
    if (texts == Texts::Dump && failure.where == L"avcc.sps_parse()") {
        // The dump's text takes the wide message as a narrow string, so
        // only its first character shows.
        QVMX::Notices::post(L"%ls failed: %s\n", failure.where.c_str(),
                           reinterpret_cast<const char*>(failure.cause.c_str()));
    } else {
        QVMX::Notices::post(L"%ls failed: %ls\n", failure.where.c_str(), failure.cause.c_str());
    }
    return false;
}

}  // namespace

bool AVCC::describe(Fields& f) {
    f.rest(payload);
    return true;
}

void AVCC::parseBox(BinFile& file, uint64_t end_) {
    limitTo(file, end_);
    const auto bytes = readFieldBytes(file);
    Fields fields = Fields::from(bytes);
    describe(fields);
}

ByteArray AVCC::boxWith(const ByteArray& payload) {
    ByteArray out;
    if (payload.size > 0xFFFFFFFFull - 8) return out;
    AVCC box(0, 0, payload.size + 8, fourcc("avcC"), nullptr);
    box.payload = payload;
    const auto fields = box.describedBytes();
    out.append32be(static_cast<uint32_t>(fields.size() + 8));
    out.append("avcC");
    out.append(fields.data(), fields.size());
    return out;
}

void AVCC::dump() const {
    BOX::dump();
    H264::AVCC record;
    H264::SPS sps;
    decodePayload(payload, record, sps, Texts::Dump);
}

bool AVCC::decode(H264::AVCC& record, H264::SPS& sps) const {
    return decodePayload(payload, record, sps, Texts::Edit);
}

}  // namespace MP4
