// The PNG container as the decoder reads it: the signature, a walk over the
// chunks, and the image header with its validity rules. Shared by the
// decoder and by tools that describe a file (`ncodec info`).
//
// The walk is deliberately forgiving where the format is strict: CRCs are
// never checked, and a chunk whose stated length runs past the end of the
// input ends the walk as IEND would, so a file cut after its image data still
// decodes. It never reads outside [data, data + size).
#pragma once

#include <cstddef>
#include <cstdint>

namespace ncb::png {

inline constexpr uint8_t kSignature[8] = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A};
inline constexpr size_t kChunkFraming = 12;  // length, type, CRC

constexpr uint32_t ChunkType(const char (&name)[5]) {
    return static_cast<uint32_t>(static_cast<uint8_t>(name[0])) << 24 |
           static_cast<uint32_t>(static_cast<uint8_t>(name[1])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(name[2])) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(name[3]));
}

inline constexpr uint32_t kIHDR = ChunkType("IHDR");
inline constexpr uint32_t kPLTE = ChunkType("PLTE");
inline constexpr uint32_t kIDAT = ChunkType("IDAT");
inline constexpr uint32_t kIEND = ChunkType("IEND");
inline constexpr uint32_t kTRNS = ChunkType("tRNS");
inline constexpr uint32_t kGAMA = ChunkType("gAMA");

inline uint32_t LoadBigEndian32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}
inline uint16_t LoadBigEndian16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}
inline void StoreBigEndian32(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

// At least 8 bytes starting with the PNG signature.
bool HasSignature(const uint8_t* data, size_t size);

struct Chunk {
    uint32_t type = 0;
    uint32_t length = 0;
    const uint8_t* data = nullptr;  // `length` bytes, all inside the input
    size_t offset = 0;              // of the length field, from the file start
};

// Walks the chunks after the signature. Next() yields chunks while at least
// 12 bytes remain and the stated length fits in what remains after the
// framing; it yields IEND and then stops.
class ChunkReader {
  public:
    ChunkReader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    bool Next(Chunk* chunk);
    // Where the walk stopped: the offset of the first byte not consumed.
    size_t Position() const { return m_position; }

  private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_position = sizeof(kSignature);
    bool m_ended = false;
};

inline constexpr uint32_t kMaxDimension = 65536;

struct ImageHeader {
    int width = 0;
    int height = 0;
    int bitDepth = 0;
    int colourType = 0;
    int interlace = 0;
};

// Reads and validates IHDR data: at least 13 bytes, width and height 1 to
// 65536, a depth allowed for the colour type (0: 1, 2, 4, 8, 16; 2, 4, 6: 8,
// 16; 3: 1, 2, 4, 8; other types are invalid), compression and filter
// method 0, interlace 0 or 1.
bool ParseImageHeader(const Chunk& chunk, ImageHeader* header);

// Samples per pixel: grey 1, truecolour 3, palette 1, grey+alpha 2, RGBA 4.
int ChannelCount(int colourType);
// Byte distance to the left neighbour when unfiltering: bytes per complete
// pixel, at least 1.
int FilterUnit(const ImageHeader& header);

}  // namespace ncb::png
