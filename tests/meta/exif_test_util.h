#pragma once

// Shared by the maker EXIF tests: running the parser on builder bytes and
// catching its thrown messages.
#include <functional>
#include <string>

#include "meta/exif_parser.h"
#include "tools/builders/camera_builders.h"

namespace exiftest {

inline const unsigned char* u8(const std::string& bytes) { return reinterpret_cast<const unsigned char*>(bytes.data()); }
inline unsigned char* u8(std::string& bytes) { return reinterpret_cast<unsigned char*>(bytes.data()); }

// The message thrown by fn, or "(none)".
inline std::string thrown(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const char* message) {
        return message;
    }
    return "(none)";
}

// attachKMKN (or attachBytes, for a whole JPEG) + readPNAOX; the message
// thrown on the way, "(none)" when none.
struct Read {
    ExifParser::PANOX record;
    std::string error;
};
inline Read readKMKN(const std::string& block, bool jpeg = false) {
    Read r;
    ExifParser parser;
    r.error = thrown([&] {
        if (jpeg) {
            parser.attachBytes(u8(block), block.size());
        } else {
            parser.attachKMKN(u8(block), block.size());
        }
        parser.readPNAOX(r.record);
    });
    return r;
}
inline Read readJPEG(const std::string& file) { return readKMKN(file, true); }

}  // namespace exiftest
