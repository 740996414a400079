#include "tools/builders/box_builder.h"

#include <algorithm>
#include <stdexcept>

namespace builders {

Bytes be16(uint16_t v) { return {char(v >> 8), char(v)}; }
Bytes be32(uint32_t v) { return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; }
Bytes be64(uint64_t v) { return be32(uint32_t(v >> 32)) + be32(uint32_t(v)); }

Bytes box(const std::string& type, const Bytes& payload) {
    if (type.size() != 4) throw std::invalid_argument("box type must be 4 bytes");
    return be32(uint32_t(payload.size() + 8)) + type + payload;
}

Bytes largeBox(const std::string& type, const Bytes& payload) {
    return be32(1) + type + be64(payload.size() + 16) + payload;
}

Bytes fullBox(const std::string& type, uint8_t version, uint32_t flags, const Bytes& payload) {
    return box(type, Bytes(1, char(version)) + Bytes{char(flags >> 16), char(flags >> 8), char(flags)} +
                         payload);
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out += p;
    return out;
}

Bytes container(const std::string& type, std::initializer_list<Bytes> children) {
    return box(type, join(children));
}

Bytes uuidBox(const std::string& userType16, const Bytes& payload) {
    if (userType16.size() != 16) throw std::invalid_argument("user type must be 16 bytes");
    return be32(uint32_t(payload.size() + 24)) + "uuid" + userType16 + payload;
}

Bytes mvhd(uint8_t version, uint64_t creation, uint32_t timeScale, uint64_t duration) {
    Bytes p = version == 1 ? be64(creation) + be64(creation) + be32(timeScale) + be64(duration)
                           : be32(uint32_t(creation)) + be32(uint32_t(creation)) + be32(timeScale) +
                                 be32(uint32_t(duration));
    p += be32(0x00010000) + be16(0x0100) + Bytes(10, '\0');
    // unity matrix
    p += be32(0x00010000) + be32(0) + be32(0) + be32(0) + be32(0x00010000) + be32(0) + be32(0) +
         be32(0) + be32(0x40000000);
    p += Bytes(24, '\0') + be32(3);
    return fullBox("mvhd", version, 0, p);
}

Bytes tkhd(uint8_t version, uint64_t creation, uint32_t width, uint32_t height) {
    Bytes p = version == 1 ? be64(creation) + be64(creation) + be32(1) + be32(0) + be64(0)
                           : be32(uint32_t(creation)) + be32(uint32_t(creation)) + be32(1) +
                                 be32(0) + be32(0);
    p += Bytes(8, '\0') + be16(0) + be16(0) + be16(width == 0 ? 0x0100 : 0) + be16(0);
    p += be32(0x00010000) + be32(0) + be32(0) + be32(0) + be32(0x00010000) + be32(0) + be32(0) +
         be32(0) + be32(0x40000000);
    p += be32(width << 16) + be32(height << 16);
    return fullBox("tkhd", version, 3, p);
}

Bytes mdhd(uint8_t version, uint64_t creation, uint32_t timeScale, uint64_t duration) {
    Bytes p = version == 1 ? be64(creation) + be64(creation) + be32(timeScale) + be64(duration)
                           : be32(uint32_t(creation)) + be32(uint32_t(creation)) + be32(timeScale) +
                                 be32(uint32_t(duration));
    p += be16(0x55C4) + be16(0);
    return fullBox("mdhd", version, 0, p);
}

Bytes hdlr(const std::string& handler, const std::string& name) {
    return fullBox("hdlr", 0, 0, be32(0) + handler + Bytes(12, '\0') + name + Bytes(1, '\0'));
}

Bytes stts(const std::vector<std::pair<uint32_t, uint32_t>>& entries) {
    Bytes p = be32(uint32_t(entries.size()));
    for (auto [count, delta] : entries) p += be32(count) + be32(delta);
    return fullBox("stts", 0, 0, p);
}

Bytes stsc(const std::vector<std::vector<uint32_t>>& entries) {
    Bytes p = be32(uint32_t(entries.size()));
    for (const auto& e : entries) {
        for (uint32_t v : e) p += be32(v);
    }
    return fullBox("stsc", 0, 0, p);
}

Bytes stsz(uint32_t sampleSize, const std::vector<uint32_t>& sizes, uint32_t count) {
    Bytes p = be32(sampleSize) + be32(sampleSize != 0 ? count : uint32_t(sizes.size()));
    for (uint32_t s : sizes) p += be32(s);
    return fullBox("stsz", 0, 0, p);
}

Bytes stco(const std::vector<uint32_t>& offsets) {
    Bytes p = be32(uint32_t(offsets.size()));
    for (uint32_t o : offsets) p += be32(o);
    return fullBox("stco", 0, 0, p);
}

Bytes co64(const std::vector<uint64_t>& offsets) {
    Bytes p = be32(uint32_t(offsets.size()));
    for (uint64_t o : offsets) p += be64(o);
    return fullBox("co64", 0, 0, p);
}

Bytes avc1(uint16_t width, uint16_t height, std::initializer_list<Bytes> children) {
    Bytes p = Bytes(6, '\0') + be16(1) + Bytes(16, '\0') + be16(width) + be16(height) +
              be32(0x00480000) + be32(0x00480000) + be32(0) + be16(1) + Bytes(32, '\0') +
              be16(0x0018) + be16(0xFFFF);
    return box("avc1", p + join(children));
}

Bytes sowt(uint16_t channels, uint16_t sampleSize, uint32_t sampleRate16_16) {
    Bytes p = Bytes(6, '\0') + be16(1) + Bytes(8, '\0') + be16(channels) + be16(sampleSize) +
              be16(0) + be16(0) + be32(sampleRate16_16);
    return box("sowt", p);
}

Bytes stsd(std::initializer_list<Bytes> entries) {
    return fullBox("stsd", 0, 0, be32(uint32_t(entries.size())) + join(entries));
}

namespace {

struct TrackLayout {
    uint32_t samples;
    uint32_t sampleSize;
    int index;
};

Bytes sampleBytes(int track, uint32_t i, uint32_t size) {
    return Bytes(size, char((track * 64 + int(i)) & 0xFF));
}

// Chunk offsets of one track when its chunks are laid out one after the other
// from base, tracks interleaved chunk by chunk.
Bytes buildMoov(const MovieShape& shape, const std::vector<TrackLayout>& tracks,
                const std::vector<std::vector<uint64_t>>& offsets) {
    Bytes traks;
    for (size_t t = 0; t < tracks.size(); ++t) {
        const auto& tr = tracks[t];
        const bool video = tr.index == 0;
        std::vector<uint32_t> sizes(tr.samples, tr.sampleSize);
        Bytes table;
        if (shape.use64) {
            table = co64(offsets[t]);
        } else {
            std::vector<uint32_t> small(offsets[t].begin(), offsets[t].end());
            table = stco(small);
        }
        Bytes entry = video ? avc1(shape.width, shape.height,
                                   {shape.avcC.empty() ? Bytes() : box("avcC", shape.avcC)})
                            : sowt(2, 16, 48000u << 16);
        Bytes stbl = container("stbl", {stsd({entry}), stts({{tr.samples, video ? 1000u : 1024u}}),
                                        stsc({{1, shape.samplesPerChunk, 1}}), stsz(0, sizes),
                                        table});
        Bytes mdia = container("mdia", {mdhd(0, 100, video ? 30000 : 48000, tr.samples * 1000),
                                        hdlr(video ? "vide" : "soun", video ? "Video" : "Sound"),
                                        container("minf", {stbl})});
        traks += container("trak", {tkhd(0, 100, video ? shape.width : 0, video ? shape.height : 0),
                                    mdia});
    }
    Bytes udta = shape.withUdta ? box("udta", shape.udtaChildren) : Bytes();
    return box("moov", mvhd(0, 100, 1000, 1000) + traks + udta);
}

std::vector<TrackLayout> layouts(const MovieShape& shape) {
    std::vector<TrackLayout> tracks{{shape.videoSamples, 100, 0}};
    if (shape.withAudio) tracks.push_back({shape.audioSamples, 40, 1});
    return tracks;
}

// Lays the samples out chunk by chunk, alternating tracks; returns the mdat
// payload and each track's chunk offsets relative to the payload's start.
Bytes layoutMdat(const MovieShape& shape, const std::vector<TrackLayout>& tracks,
                 std::vector<std::vector<uint64_t>>& offsets) {
    Bytes payload;
    offsets.assign(tracks.size(), {});
    std::vector<uint32_t> next(tracks.size(), 0);
    bool more = true;
    while (more) {
        more = false;
        for (size_t t = 0; t < tracks.size(); ++t) {
            if (next[t] >= tracks[t].samples) continue;
            offsets[t].push_back(payload.size());
            for (uint32_t k = 0; k < shape.samplesPerChunk && next[t] < tracks[t].samples; ++k) {
                payload += sampleBytes(tracks[t].index, next[t]++, tracks[t].sampleSize);
            }
            more = true;
        }
    }
    return payload;
}

}  // namespace

Bytes buildMovie(const MovieShape& shape) {
    const auto tracks = layouts(shape);
    std::vector<std::vector<uint64_t>> offsets;
    const Bytes payload = layoutMdat(shape, tracks, offsets);
    const Bytes ftyp = box("ftyp", Bytes("isom") + be32(0x200) + "isomiso2avc1mp41");
    const Bytes mdat = box("mdat", payload);
    // The moov size does not depend on the offset values, so build it once
    // to learn its size, then again with the real offsets.
    const Bytes probe = buildMoov(shape, tracks, offsets);
    const uint64_t base = shape.moovFirst ? ftyp.size() + probe.size() + 8 : ftyp.size() + 8;
    for (auto& list : offsets) {
        for (auto& o : list) o += base;
    }
    const Bytes moov = buildMoov(shape, tracks, offsets);
    return shape.moovFirst ? ftyp + moov + mdat : ftyp + mdat + moov;
}

Bytes buildLaidOutMovie(const MovieShape& shape, const std::vector<Bytes>& layout) {
    const auto tracks = layouts(shape);
    std::vector<std::vector<uint64_t>> relative;
    const Bytes payload = layoutMdat(shape, tracks, relative);
    // Every chunk start, in payload order, with its track.
    std::vector<std::pair<uint64_t, size_t>> chunks;
    for (size_t t = 0; t < relative.size(); ++t) {
        for (uint64_t o : relative[t]) chunks.emplace_back(o, t);
    }
    std::sort(chunks.begin(), chunks.end());
    const size_t parts = size_t(std::count_if(layout.begin(), layout.end(),
                                              [](const Bytes& b) { return b == "mdat" || b == "mdat64"; }));
    // Part k holds chunks [k * n / parts, (k + 1) * n / parts).
    auto cut = [&](size_t k) -> uint64_t {
        const size_t index = parts == 0 ? 0 : k * chunks.size() / parts;
        return index < chunks.size() ? chunks[index].first : payload.size();
    };
    const uint64_t moovSize = buildMoov(shape, tracks, relative).size();

    std::vector<std::vector<uint64_t>> offsets(tracks.size());
    uint64_t position = 0;
    size_t part = 0;
    for (const Bytes& entry : layout) {
        if (entry == "moov") {
            position += moovSize;
        } else if (entry == "mdat" || entry == "mdat64") {
            const uint64_t header = entry == "mdat" ? 8 : 16;
            const uint64_t from = cut(part), to = cut(part + 1);
            for (const auto& [o, t] : chunks) {
                if (o >= from && o < to) offsets[t].push_back(position + header + (o - from));
            }
            position += header + (to - from);
            ++part;
        } else {
            position += entry.size();
        }
    }
    Bytes out;
    part = 0;
    for (const Bytes& entry : layout) {
        if (entry == "moov") {
            out += buildMoov(shape, tracks, offsets);
        } else if (entry == "mdat" || entry == "mdat64") {
            const uint64_t from = cut(part), to = cut(part + 1);
            const Bytes bytes = payload.substr(from, to - from);
            out += entry == "mdat" ? box("mdat", bytes) : largeBox("mdat", bytes);
            ++part;
        } else {
            out += entry;
        }
    }
    return out;
}

std::vector<Bytes> movieSamples(const MovieShape& shape) {
    std::vector<Bytes> out;
    for (const auto& tr : layouts(shape)) {
        for (uint32_t i = 0; i < tr.samples; ++i) out.push_back(sampleBytes(tr.index, i, tr.sampleSize));
    }
    return out;
}

}  // namespace builders
