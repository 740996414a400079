#include "h264/rbsp_reader.h"

namespace H264 {

bool RbspReader::nextByte() {
    if (position_ < size_ && zeros_ >= 2 && data_[position_] == 0x03) {
        ++position_;
        zeros_ = 0;
    }
    if (position_ >= size_) {
        failed_ = true;
        return false;
    }
    current_ = data_[position_++];
    zeros_ = current_ == 0 ? zeros_ + 1 : 0;
    left_ = 8;
    return true;
}

uint32_t RbspReader::bits(int n) {
    uint32_t value = 0;
    for (int i = 0; i < n; ++i) {
        if (left_ == 0 && !nextByte()) return 0;
        --left_;
        value = (value << 1) | ((current_ >> left_) & 1);
    }
    return value;
}

void RbspReader::skip(int n) {
    for (; n > 32; n -= 32) bits(32);
    bits(n);
}

uint32_t RbspReader::ue() {
    int zeros = 0;
    while (bits(1) == 0) {
        if (failed_ || ++zeros > 31) {
            failed_ = true;
            return 0;
        }
    }
    if (failed_) return 0;
    const uint64_t value = (uint64_t(1) << zeros) - 1 + bits(zeros);
    return static_cast<uint32_t>(value);
}

int32_t RbspReader::se() {
    const uint64_t k = ue();
    // Odd code numbers are the positive values.
    const int64_t value = (k & 1) != 0 ? int64_t((k + 1) / 2) : -int64_t(k / 2);
    return static_cast<int32_t>(value);
}

}  // namespace H264
