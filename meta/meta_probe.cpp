#include "meta/meta_probe.h"

#include "foundation/console.h"
#include "foundation/wchar.h"
#include "meta/box_payload.h"
#include "meta/media_services.h"
#include "meta/meta_builder.h"
#include "mp4/box.h"
#include "mp4/container.h"

namespace {

// The first sample entry of the first track whose handler is video; empty
// when there is none.
std::string videoSampleEntry(MP4::Container& container) {
    std::string entry;
    container.find("moov.trak", [&](MP4::BOX& trak) {
        if (!trak.hasChild()) return true;
        auto& nested = static_cast<MP4::NestedBox&>(trak);
        bool video = false;
        nested.find("mdia.hdlr", [&](MP4::BOX& hdlr) {
            // version and flags, pre_defined, then the handler type.
            const std::string payload = readBoxPayload(container, hdlr, 12);
            video = payload.size() >= 12 && payload.compare(8, 4, "vide") == 0;
            return false;
        });
        if (!video) return true;
        nested.find("mdia.minf.stbl.stsd", [&](MP4::BOX& stsd) {
            const auto* list = stsd.hasChild() ? &static_cast<MP4::NestedBox&>(stsd).children : nullptr;
            if (list != nullptr && !list->empty()) entry = list->front()->name();
            return false;
        });
        return entry.empty();
    });
    return entry;
}

}  // namespace

bool MetaProbe::probe(const std::wstring& path) {
    modelCode = 0;
    frameRate = 0.0f;
    width = 0;
    height = 0;
    codec = kCodecUnknown;
    reserved = -1;
    record.clear();
    model.clear();
    {
        MP4::Container container;
        if (container.attach(path, MP4::Container::kAll)) {
            readModel(container);
            readKMKN(container);
            readCodec(container);
            detect_movie(path);
        }
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
        QVMX::Console::out(L"source movie model: %ls (%x)\n", QVMX::wchar::mbs2wcs(model.c_str()).c_str(),
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
            QVMX::Console::out(L"source movie panoramaImageType: %d\n", static_cast<int>(record.projectionType));
        } catch (const char*) {
            QVMX::Console::out(L"EXIF can't read.\n");
        }
        return false;
    });
    if (!found) QVMX::Console::out(L"KMKN not found.\n");
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
        QVMX::Console::out(L"H.264 detected.\n");
    }
    container.find("moov.trak.mdia.minf.stbl.stsd", [&](MP4::BOX& stsd) {
        if (!stsd.hasChild()) return true;
        for (const auto& entry : static_cast<MP4::NestedBox&>(stsd).children) {
            if (entry->isType(MP4::fourcc("hvc1"))) {
                codec = kCodecHEVC;
                QVMX::Console::out(L"H.265/HEVC detected(hvc1).\n");
            } else if (entry->isType(MP4::fourcc("hev1"))) {
                codec = kCodecHEVC;
                QVMX::Console::out(L"H.265/HEVC detected(hev1).\n");
            }
        }
        return true;
    });
    // Whether another codec can be re-encoded is the re-encode's to say.
    if (codec != kCodecUnknown) return;
    const std::string entry = videoSampleEntry(container);
    if (!entry.empty()) QVMX::Console::out(L"codec: %ls\n", QVMX::wchar::mbs2wcs(entry.c_str()).c_str());
}

void MetaProbe::detect_movie(const std::wstring& path) {
    const auto& describe = mediaServices().describe;
    MovieDescription description;
    if (!describe || !describe(path, description)) return;
    frameRate = description.frameRate;
    width = description.width;
    height = description.height;
}
