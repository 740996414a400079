#pragma once

// What the rest of a run needs to know of the source movie: the camera that
// recorded it, its video codec, the maker record, its frame rate and size.
#include <cstdint>
#include <memory>
#include <string>

#include "meta/exif_parser.h"

namespace MP4 {
class Container;
}

class MetaProbe {
public:
    enum Codec : int32_t { kCodecUnknown = 0, kCodecH264 = 1, kCodecHEVC = 2 };

    // Resets the fields, reads everything; true when the video has a width.
    // The frame rate and size are the movie's own declarations; only when
    // it declares no size, and mayDecode allows, is its first frame decoded.
    bool probe(const std::wstring& path, bool mayDecode = true);

    void readModel(MP4::Container& container);
    void readKMKN(MP4::Container& container);
    void readCodec(MP4::Container& container);
    // The frame rate of the first video track from its sample tables (and
    // its fragments' runs), and its size from the SPS of its codec
    // configuration, else from its sample entry or its track header.
    void readFrameDescription(MP4::Container& container);
    // The room of the maker thumbnail box that the user-data copy fills.
    void readThumbnailRoom(MP4::Container& container);
    // The frame rate and size, as the video pipeline reports them.
    void detect_movie(const std::wstring& path);

    uint32_t modelCode = 0;
    float frameRate = 0.0f;
    int32_t width = 0;
    int32_t height = 0;
    int32_t codec = kCodecUnknown;
    int32_t reserved = -1;  // set at every probe, read nowhere
    ExifParser::PANOX record;
    // The "@mod" text the model code was read from.
    std::string model;
    // Payload bytes of the maker thumbnail box in the user data (the JPEG
    // made for it must fit them); 0 without one.
    uint64_t thumbnailRoom = 0;
    // The movie as parsed for the probe, kept for the run that follows so
    // that it is parsed once; null when it could not be opened.
    std::shared_ptr<MP4::Container> movie;
};
