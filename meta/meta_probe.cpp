#include "meta/spatial_block.h"
#include "meta/meta_probe.h"

#include <cstdint>
#include <optional>
#include <vector>

#include "foundation/notices.h"
#include "foundation/wchar.h"
#include "h264/picture_size.h"
#include "meta/box_payload.h"
#include "meta/media_services.h"
#include "meta/meta_builder.h"
#include "mp4/box.h"
#include "mp4/container.h"
#include "mp4/frame_rate.h"
#include "mp4/header_boxes.h"
#include "mp4/sample_entry.h"
#include "mp4/sample_table_boxes.h"

namespace {

// A movie fragment's boxes are read this far; a larger one is damaged.
constexpr uint64_t kMaxFragmentHeader = uint64_t(16) << 20;

// The first track whose handler is video, the one the media libraries take
// for the movie's video; null when there is none.
MP4::NestedBox* firstVideoTrack(MP4::Container& container) {
    MP4::NestedBox* found = nullptr;
    container.find("moov.trak", [&](MP4::BOX& trak) {
        if (!trak.hasChild()) return true;
        auto& nested = static_cast<MP4::NestedBox&>(trak);
        nested.find("mdia.hdlr", [&](MP4::BOX& hdlr) {
            // version and flags, pre_defined, then the handler type.
            const std::string payload = readBoxPayload(container, hdlr, 12);
            if (payload.size() >= 12 && payload.compare(8, 4, "vide") == 0) found = &nested;
            return false;
        });
        return found == nullptr;
    });
    return found;
}

// The first sample entry of a track; null when it has none.
MP4::BOX* firstSampleEntry(MP4::NestedBox& track) {
    MP4::BOX* entry = nullptr;
    track.find("mdia.minf.stbl.stsd", [&](MP4::BOX& stsd) {
        const auto* list = stsd.hasChild() ? &static_cast<MP4::NestedBox&>(stsd).children : nullptr;
        if (list != nullptr && !list->empty()) entry = list->front().get();
        return false;
    });
    return entry;
}

// The first box at path below from that is a T; null when there is none.
template <class T>
T* firstOf(MP4::NestedBox& from, const char* path) {
    T* found = nullptr;
    from.find(path, [&found](MP4::BOX& box) {
        found = dynamic_cast<T*>(&box);
        return found == nullptr;
    });
    return found;
}

// The picture size a video sample entry declares: the SPS in its avcC or
// hvcC, else the entry's own width and height.
std::optional<H264::PictureSize> declaredSize(MP4::Container& container, const MP4::BOX& entry) {
    const std::string payload = readBoxPayload(container, entry, kMaxSampleDescriptions);
    const auto* bytes = reinterpret_cast<const uint8_t*>(payload.data());
    if (payload.size() < MP4::kVisualEntryFields) return std::nullopt;
    uint64_t stopped = 0;
    for (const MP4::ChildSpan& child : MP4::childSpans(bytes, payload.size(), MP4::kVisualEntryFields, stopped)) {
        const uint8_t* record = bytes + child.start + child.headerSize;
        const size_t length = static_cast<size_t>(child.size - child.headerSize);
        std::optional<H264::PictureSize> size;
        if (child.type == MP4::fourcc("avcC")) size = H264::avcConfigPictureSize(record, length);
        if (child.type == MP4::fourcc("hvcC")) size = H264::hevcConfigPictureSize(record, length);
        if (size) return size;
    }
    // Reserved fields and the data reference, pre-defined fields, then the
    // 16-bit width and height.
    constexpr size_t kWidthField = 24;
    const uint32_t width = uint32_t(bytes[kWidthField]) << 8 | bytes[kWidthField + 1];
    const uint32_t height = uint32_t(bytes[kWidthField + 2]) << 8 | bytes[kWidthField + 3];
    if (width == 0 || height == 0) return std::nullopt;
    return H264::PictureSize{width, height};
}

// The samples of a fragmented movie's runs for one track, over all its
// movie fragments; nothing for a movie without fragments.
MP4::SampleSpan fragmentSamples(MP4::Container& container, uint32_t trackId) {
    MP4::SampleSpan span;
    if (container.root() == nullptr) return span;
    uint32_t defaultDuration = 0;
    bool first = true;
    container.find("moov.mvex", [&](MP4::BOX& mvex) {
        const std::string payload = readBoxPayload(container, mvex, kMaxSampleDescriptions);
        const auto* bytes = reinterpret_cast<const uint8_t*>(payload.data());
        if (first) defaultDuration = MP4::trexDefaultDuration(bytes, payload.size(), trackId);
        first = false;
        return false;
    });
    for (const auto& box : container.root()->children) {
        if (!box->isType(MP4::fourcc("moof"))) continue;
        const std::string payload = readBoxPayload(container, *box, kMaxFragmentHeader);
        const auto* bytes = reinterpret_cast<const uint8_t*>(payload.data());
        MP4::addFragmentSamples(bytes, payload.size(), trackId, defaultDuration, span);
    }
    return span;
}

}  // namespace

bool MetaProbe::probe(const std::wstring& path, bool mayDecode) {
    modelCode = 0;
    frameRate = 0.0f;
    width = 0;
    height = 0;
    codec = kCodecUnknown;
    reserved = -1;
    record.clear();
    model.clear();
    thumbnailRoom = 0;
    // The run that follows edits this tree: the camera's spatial block must
    // be seen with its track from the start.
    meta::knowSpatialBlock();
    movie = std::make_shared<MP4::Container>();
    if (movie->attach(path, MP4::Container::kAll)) {
        MP4::Container& container = *movie;
        readModel(container);
        readKMKN(container);
        readCodec(container);
        readThumbnailRoom(container);
        readFrameDescription(container);
        // A run that decodes anyway may decode for what the movie does not declare.
        if ((width < 1 || frameRate <= 0.0f) && mayDecode) detect_movie(path);
    } else {
        movie.reset();
    }
    return width >= 1;
}

void MetaProbe::readModel(MP4::Container& container) {
    bool done = false;
    container.find("moov.udta.@mod", [&](MP4::BOX& box) {
        if (done || box.size < 9) return true;
        done = true;
        model = textOf(readBoxPayload(container, box, kMaxModelText));
        modelCode = MetaBuilder::camera_version(model);
        QVMX::Notices::post(L"source movie model: %ls (%x)\n", QVMX::wchar::mbs2wcs(model.c_str()).c_str(),
                           modelCode);
        return false;
    });
}

void MetaProbe::readKMKN(MP4::Container& container) {
    bool found = false;
    bool done = false;
    container.find("moov.udta.KMKN", [&](MP4::BOX& box) {
        found = true;
        if (done || box.size < 9) return true;
        done = true;
        const std::string payload = readBoxPayload(container, box, kMaxMakerBlock);
        try {
            ExifParser parser;
            parser.attachKMKN(reinterpret_cast<const unsigned char*>(payload.data()), payload.size());
            parser.readPNAOX(record);
            QVMX::Notices::post(L"source movie panoramaImageType: %d\n", static_cast<int>(record.projectionType));
        } catch (const char*) {
            QVMX::Notices::post(L"EXIF can't read.\n");
        }
        return false;
    });
    if (!found) QVMX::Notices::post(L"KMKN not found.\n");
}

void MetaProbe::readCodec(MP4::Container& container) {
    codec = kCodecUnknown;
    bool avc = false;
    container.find("moov.trak.mdia.minf.stbl.stsd.avc1", [&](MP4::BOX&) {
        avc = true;
        return false;
    });
    if (avc) {
        codec = kCodecH264;
        QVMX::Notices::post(L"H.264 detected.\n");
    }
    container.find("moov.trak.mdia.minf.stbl.stsd", [&](MP4::BOX& stsd) {
        if (!stsd.hasChild()) return true;
        for (const auto& entry : static_cast<MP4::NestedBox&>(stsd).children) {
            if (entry->isType(MP4::fourcc("hvc1"))) {
                codec = kCodecHEVC;
                QVMX::Notices::post(L"H.265/HEVC detected(hvc1).\n");
            } else if (entry->isType(MP4::fourcc("hev1"))) {
                codec = kCodecHEVC;
                QVMX::Notices::post(L"H.265/HEVC detected(hev1).\n");
            }
        }
        return true;
    });
    // Whether another codec can be re-encoded is the re-encode's to say.
    if (codec != kCodecUnknown) return;
    MP4::NestedBox* track = firstVideoTrack(container);
    const MP4::BOX* first = track != nullptr ? firstSampleEntry(*track) : nullptr;
    const std::string entry = first != nullptr ? first->name() : std::string();
    if (!entry.empty()) QVMX::Notices::post(L"codec: %ls\n", QVMX::wchar::mbs2wcs(entry.c_str()).c_str());
}

void MetaProbe::readFrameDescription(MP4::Container& container) {
    MP4::NestedBox* track = firstVideoTrack(container);
    if (track == nullptr) return;
    const MP4::MDHD* mdhd = firstOf<MP4::MDHD>(*track, "mdia.mdhd");
    const MP4::STTS* stts = firstOf<MP4::STTS>(*track, "mdia.minf.stbl.stts");
    const MP4::TKHD* tkhd = firstOf<MP4::TKHD>(*track, "tkhd");
    const MP4::SampleSpan fragments = tkhd != nullptr ? fragmentSamples(container, tkhd->trackId) : MP4::SampleSpan();
    if (mdhd != nullptr) {
        const std::vector<MP4::STTS::Entry> none;
        frameRate = MP4::nominalFrameRate(mdhd->timeScale, stts != nullptr ? stts->entries : none, fragments);
    }

    if (const MP4::BOX* entry = firstSampleEntry(*track)) {
        if (const auto size = declaredSize(container, *entry)) {
            width = static_cast<int32_t>(size->width);
            height = static_cast<int32_t>(size->height);
            return;
        }
    }
    if (tkhd != nullptr && tkhd->width >= 1 && tkhd->height >= 1 && tkhd->width <= INT32_MAX &&
        tkhd->height <= INT32_MAX) {
        width = static_cast<int32_t>(tkhd->width);
        height = static_cast<int32_t>(tkhd->height);
    }
}

void MetaProbe::readThumbnailRoom(MP4::Container& container) {
    // The box the user-data copy fills: the first direct child of the first
    // udta, of at least 9 bytes, with a 32-bit size.
    bool first = true;
    container.find("moov.udta", [&](MP4::BOX& udta) {
        if (!first || !udta.hasChild()) return false;
        first = false;
        for (const auto& child : static_cast<MP4::NestedBox&>(udta).children) {
            if (!child->isType(MP4::fourcc("KTHU")) || child->size < 9 || child->largeSize) continue;
            if (child->start < udta.start || child->end() > udta.end()) continue;
            thumbnailRoom = child->size - 8;
            break;
        }
        return false;
    });
}

void MetaProbe::detect_movie(const std::wstring& path) {
    const auto& describe = mediaServices().describe;
    MovieDescription description;
    if (!describe || !describe(path, description)) return;
    frameRate = description.frameRate;
    width = description.width;
    height = description.height;
}
