#include "mp4/avcc_box.h"

#include "h264/range_flags.h"
#include "mp4/field_buffer.h"

namespace MP4 {

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

void AVCC::dump(const DumpLine& out) const {
    BOX::dump(out);
    H264::AVCC record;
    H264::SPS sps;
    const QVMX::Status decoded = decode(record, sps);
    if (decoded) return;
    const QVMX::Failure& failure = decoded.failure();
    // The dump has always shown only the first character of an SPS's
    // cause; its readers compare the text.
    const std::wstring cause = failure.where == L"avcc.sps_parse()" ? failure.cause.substr(0, 1) : failure.cause;
    out(failure.where + L" failed: " + cause + L"\n");
}

QVMX::Status AVCC::decode(H264::AVCC& record, H264::SPS& sps) const {
    return H264::decodeRecord(payload, record, sps);
}

}  // namespace MP4
