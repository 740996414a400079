#pragma once

// The camera's own description of a movie: a TIFF/EXIF block in the user
// data box "KMKN" (or a whole JPEG, or a bare maker note). ExifParser walks
// IFD0, the EXIF IFD, the maker note and the PANOX IFD inside it, and its
// static patchers rewrite single values of such a block in place.
//
// Every failure is a thrown `const char*` message; callers catch exactly that.
#include <bit>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class ExifParser {
public:
    // Carried as 32-bit integers; -1 always means "not present".
    enum PROJECTION_TYPE : int32_t {
        PROJECTION_TYPE_NOT_PRESENT = -1,
        PROJECTION_TYPE_EQUIRECTANGULAR = 1,  // what every output is marked with
    };
    enum TOPBOTTOM_CORRECTION_TYPE : int32_t {
        TOPBOTTOM_CORRECTION_NOT_PRESENT = -1,
        TOPBOTTOM_CORRECTION_OFF = 0,
        TOPBOTTOM_CORRECTION_ON = 1,
    };
    // Tag 0x1014 holds 1 to 5; -1 and 0 both leave a block alone.
    enum VIDEO_STABILIZATION : int32_t {
        VIDEO_STABILIZATION_NOT_PRESENT = -1,
        VIDEO_STABILIZATION_OFF = 0,
    };

    static constexpr float kNaN = std::bit_cast<float>(0x7FC00000u);

    // The maker's values. Strings hold exactly `count` bytes of the block, so
    // they keep the NUL (and any padding) that the EXIF count includes.
    struct PANOX {
        std::string model;           // IFD0 0x0110
        std::string software;        // IFD0 0x0131
        std::string makerNote0002;   // maker IFD 0x0002
        std::string makerNote0005;   // maker IFD 0x0005
        uint32_t projectionType = 0;          // PANOX 0x0001
        uint32_t panox0002 = 0;               // PANOX 0x0002
        float zenithAngles[2] = {kNaN, kNaN};  // PANOX 0x0003, degrees
        float compass = kNaN;                  // PANOX 0x0004, degrees
        uint32_t panox0005 = 0;               // PANOX 0x0005
        float heading = kNaN;                  // from attachCompass()
        uint32_t topBottomCorrection = 0xFFFFFFFF;  // PANOX 0x0007, TOPBOTTOM_CORRECTION_TYPE
        uint32_t videoStabilization = 0xFFFFFFFF;   // PANOX 0x1014, VIDEO_STABILIZATION
        bool stabilizationFlag1 = false;
        bool stabilizationFlag2 = false;

        // Leaves model and software alone: a second read of a block without
        // IFD0 strings keeps those of the first.
        void clear();
        // The compass corrected for a camera lying on its side (zenith angle
        // beyond +-45 degrees); otherwise the compass as it stands.
        void attachCompass();
    };

    static constexpr char korvaExifCameraInfo[24] = "[Korva Camera Info]";
    static constexpr uint64_t korvaExifCameraInfo_length = 19;

    using EntryCallback = std::function<void(uint16_t tag, uint16_t type, uint32_t count, uint32_t value)>;
    using EntryPredicate = std::function<bool(uint16_t tag, uint16_t type, uint32_t count, uint32_t value)>;

    ExifParser();
    ExifParser(const ExifParser&) = delete;
    ExifParser& operator=(const ExifParser&) = delete;
    virtual ~ExifParser();

    // Holds a private copy of the bytes (nothing when data is null or size 0)
    // and forgets every position. Used for a whole JPEG file.
    void attachBytes(const unsigned char* data, unsigned long size);
    // A "KMKN" payload: a TIFF block, or a bare maker note that begins with
    // the maker signature.
    void attachKMKN(const unsigned char* data, unsigned long size);

    void readPNAOX(PANOX& record);

    // --- reading; every read is bounds-checked ("Invalid position") -------
    uint16_t read16();
    uint32_t read32();
    void read(unsigned char* out, unsigned long n, unsigned long at);
    void readEntry(uint16_t& tag, uint16_t& type, uint32_t& count, uint32_t& value);

    // --- the IFD walk: the first entry with the tag wins -------------------
    bool enumEntry(unsigned short& count, const EntryPredicate& predicate);
    bool findEntry(unsigned short& count, unsigned short tag, const EntryCallback& callback);
    bool find(unsigned short tag, const EntryCallback& callback);

    // Each leaves the position on the entry count of its IFD, computing and
    // caching the IFD's position on first use.
    void seekToIFD0();
    void seekToEXIF();
    void seekToMakerNote();
    void seekToKORVAMakerNote();
    void seekToPANOX();

    // --- values ------------------------------------------------------------
    // The SHORT held in the first two bytes of an entry's value field.
    uint16_t toUINT16(unsigned int value) const;
    void toString(uint16_t type, uint32_t count, uint32_t value, std::string& out);

    // --- patchers on a caller-owned "KMKN" payload; the length never changes
    static void updateProjectionType(unsigned char* data, unsigned long size, PROJECTION_TYPE v);
    static void updateSphereAdjZenith(unsigned char* data, unsigned long size, TOPBOTTOM_CORRECTION_TYPE v);
    static void updateVideoStabilization(unsigned char* data, unsigned long size, VIDEO_STABILIZATION v);

    uint64_t position() const { return pos; }
    void setPosition(uint64_t position) { pos = position; }
    uint64_t length() const { return size; }
    bool isBigEndian() const { return bigEndian; }
    bool isOnlyMakerNote() const { return onlyMakerNote; }
    uint64_t tiffBasePosition() const { return tiffBase; }

private:
    // The TIFF header at pos: byte order, the 42, the IFD0 offset. A block
    // that fails the 42 is dropped when dropOnBadId is set.
    void readTiffHeader(bool dropOnBadId);
    // Numerator over denominator at the position; pos is kept.
    float readRational(uint64_t at, bool signedNumerator);
    // The position a value offset names (tiffBase + offset).
    uint64_t atOffset(uint32_t offset) const { return tiffBase + offset; }

    std::unique_ptr<unsigned char[]> bytes;
    uint64_t size = 0;
    uint64_t pos = 0;
    std::vector<uint64_t> posStack;
    bool bigEndian = true;
    uint64_t tiffBase = 0;
    uint64_t ifd0Pos = 0;
    uint64_t exifIfdPos = 0;
    uint64_t makerNotePos = 0;
    uint64_t korvaIfdPos = 0;
    uint64_t panoxIfdPos = 0;
    bool onlyMakerNote = false;
};
