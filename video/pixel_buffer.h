#pragma once

#include <cstdint>
#include <memory>

struct AVFrame;

namespace QVMX {

// Pixel format codes as the callers name them (four characters, big-endian).
constexpr uint32_t kPixelFormat32BGRA = 0x42475241;                          // "BGRA"
constexpr uint32_t kPixelFormat420YpCbCr8BiPlanarFullRange = 0x34323066;     // "420f"
constexpr uint32_t kPixelFormat420YpCbCr8Planar = 0x79343230;                // "y420"

// True for the three codes above.
bool isKnownPixelFormat(uint32_t pixelFormatType);

// One picture of a known pixel format. Planes are reached through
// baseAddressOfPlane / bytesPerRowOfPlane: one plane for "BGRA", two for
// "420f" (luma, interleaved chroma), three for "y420".
class PixelBuffer {
public:
    // Allocated and uninitialised; nullptr for an unknown format, a size
    // below 1, or no memory.
    static std::unique_ptr<PixelBuffer> create(uint32_t pixelFormatType, int width, int height);
    // Holds a new reference to frame's data; nullptr when it cannot.
    static std::unique_ptr<PixelBuffer> wrap(const AVFrame* frame, uint32_t pixelFormatType);

    ~PixelBuffer();
    PixelBuffer(const PixelBuffer&) = delete;
    PixelBuffer& operator=(const PixelBuffer&) = delete;

    int width() const;
    int height() const;
    uint32_t pixelFormatType() const { return pixelFormatType_; }
    int planeCount() const;
    uint8_t* baseAddressOfPlane(int plane) const;
    int bytesPerRowOfPlane(int plane) const;
    int heightOfPlane(int plane) const;

    const AVFrame* frame() const { return frame_; }

private:
    PixelBuffer(AVFrame* frame, uint32_t pixelFormatType) : frame_(frame), pixelFormatType_(pixelFormatType) {}
    AVFrame* frame_;
    uint32_t pixelFormatType_;
};

}  // namespace QVMX

namespace QVMX {
// Copies the picture when both buffers have the same format and size.
bool copyPixels(const PixelBuffer& from, PixelBuffer& to);
}  // namespace QVMX
