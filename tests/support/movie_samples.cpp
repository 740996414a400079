#include "support/movie_samples.h"

#include "mp4/container.h"
#include "mp4/sample_table_boxes.h"
#include "tools/builders/box_builder.h"
#include "support/test_files.h"

using namespace builders;

namespace testsupport {

namespace {

struct Tables {
    std::vector<uint64_t> offsets;
    std::vector<uint32_t> sizes;
    std::vector<MP4::STSC::Entry> stsc;
};

uint64_t be(const std::string& bytes, uint64_t at, unsigned width) {
    uint64_t v = 0;
    for (unsigned i = 0; i < width; ++i) v = (v << 8) | uint8_t(bytes[at + i]);
    return v;
}

std::vector<Tables> readTables(const std::filesystem::path& movie) {
    const std::string bytes = readFile(movie);
    MP4::Container container;
    container.attach(widen(movie.string()));
    std::vector<Tables> tracks;
    container.find("moov.trak", [&](MP4::BOX& trak) {
        Tables t;
        static_cast<MP4::NestedBox&>(trak).find("mdia.minf.stbl", [&](MP4::BOX& stbl) {
            for (const auto& child : static_cast<MP4::NestedBox&>(stbl).children) {
                if (auto* co = dynamic_cast<MP4::STCO*>(child.get())) {
                    for (uint32_t i = 0; i < co->entryCount; ++i) {
                        const uint64_t at = co->tableOffset + uint64_t(i) * co->entryWidth();
                        if (at + co->entryWidth() > bytes.size()) break;
                        t.offsets.push_back(be(bytes, at, co->entryWidth()));
                    }
                } else if (auto* sz = dynamic_cast<MP4::STSZ*>(child.get())) {
                    t.sizes = sz->sizes;
                    if (sz->sampleSize != 0) t.sizes.assign(sz->sampleCount, sz->sampleSize);
                } else if (auto* sc = dynamic_cast<MP4::STSC*>(child.get())) {
                    t.stsc = sc->entries;
                }
            }
            return false;
        });
        tracks.push_back(std::move(t));
        return true;
    });
    return tracks;
}

}  // namespace

std::vector<std::vector<std::string>> trackSamples(const std::filesystem::path& movie) {
    const std::string bytes = readFile(movie);
    std::vector<std::vector<std::string>> out;
    for (const Tables& t : readTables(movie)) {
        std::vector<std::string> samples;
        size_t sample = 0;
        for (size_t chunk = 0; chunk < t.offsets.size(); ++chunk) {
            uint32_t perChunk = 0;
            for (const auto& e : t.stsc) {
                if (e.firstChunk <= chunk + 1) perChunk = e.samplesPerChunk;
            }
            uint64_t at = t.offsets[chunk];
            for (uint32_t k = 0; k < perChunk && sample < t.sizes.size(); ++k, ++sample) {
                const uint64_t size = t.sizes[sample];
                samples.push_back(at + size <= bytes.size() ? bytes.substr(at, size) : "<outside>");
                at += size;
            }
        }
        out.push_back(std::move(samples));
    }
    return out;
}

std::vector<std::string> allSamples(const std::filesystem::path& movie) {
    std::vector<std::string> flat;
    for (auto& track : trackSamples(movie)) {
        for (auto& s : track) flat.push_back(std::move(s));
    }
    return flat;
}

std::vector<std::vector<uint64_t>> chunkOffsets(const std::filesystem::path& movie) {
    std::vector<std::vector<uint64_t>> out;
    for (auto& t : readTables(movie)) out.push_back(std::move(t.offsets));
    return out;
}

}  // namespace testsupport
