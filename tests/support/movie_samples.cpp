#include "support/movie_samples.h"

#include "mp4/container.h"
#include "mp4/sample_table_boxes.h"
#include "support/test_files.h"

namespace testsupport {

namespace {

struct Tables {
    std::vector<uint64_t> offsets;
    std::vector<uint32_t> sizes;
    std::vector<MP4::STSC::Entry> stsc;
};

// Each track's tables; the chunk offsets read from the file's bytes.
std::vector<Tables> readTables(const std::filesystem::path& movie, const std::string& bytes) {
    MP4::Container container;
    container.attach(widen(movie.string()));
    std::vector<Tables> tracks;
    container.find("moov.trak", [&](MP4::BOX& trak) {
        Tables& t = tracks.emplace_back();
        static_cast<MP4::NestedBox&>(trak).find("mdia.minf.stbl", [&](MP4::BOX& stbl) {
            for (const auto& child : static_cast<MP4::NestedBox&>(stbl).children) {
                if (auto* co = dynamic_cast<MP4::STCO*>(child.get())) {
                    for (uint64_t at = co->tableOffset, i = 0; i < co->entryCount; ++i, at += co->entryWidth()) {
                        if (at + co->entryWidth() > bytes.size()) break;
                        uint64_t v = 0;
                        for (unsigned k = 0; k < co->entryWidth(); ++k) v = (v << 8) | uint8_t(bytes[at + k]);
                        t.offsets.push_back(v);
                    }
                } else if (auto* sz = dynamic_cast<MP4::STSZ*>(child.get())) {
                    t.sizes = sz->sampleSize != 0 ? std::vector<uint32_t>(sz->sampleCount, sz->sampleSize) : sz->sizes;
                } else if (auto* sc = dynamic_cast<MP4::STSC*>(child.get())) {
                    t.stsc = sc->entries;
                }
            }
            return false;
        });
        return true;
    });
    return tracks;
}

}  // namespace

std::vector<std::string> allSamples(const std::filesystem::path& movie) {
    const std::string bytes = readFile(movie);
    std::vector<std::string> samples;
    for (const Tables& t : readTables(movie, bytes)) {
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
    }
    return samples;
}

std::vector<std::vector<uint64_t>> chunkOffsets(const std::filesystem::path& movie) {
    std::vector<std::vector<uint64_t>> out;
    for (auto& t : readTables(movie, readFile(movie))) out.push_back(std::move(t.offsets));
    return out;
}

}  // namespace testsupport
