// Chunk walk and image-header validation (see png_chunks.h). The walk keeps
// every length in size_t arithmetic against what remains of the input, so a
// hostile length can only end the walk, never move a pointer outside it.
#include "image/png/png_chunks.h"

#include <cstring>

namespace ncb::png {

bool HasSignature(const uint8_t* data, size_t size) {
    return data && size >= sizeof(kSignature) &&
           std::memcmp(data, kSignature, sizeof(kSignature)) == 0;
}

bool ChunkReader::Next(Chunk* chunk) {
    if (m_ended || m_position > m_size || m_size - m_position < kChunkFraming) return false;
    const uint8_t* p = m_data + m_position;
    const uint32_t length = LoadBigEndian32(p);
    if (length > m_size - m_position - kChunkFraming) {
        m_ended = true;  // cut short: treated as the end of the file
        return false;
    }
    chunk->length = length;
    chunk->type = LoadBigEndian32(p + 4);
    chunk->data = p + 8;
    chunk->offset = m_position;
    m_position += kChunkFraming + length;
    if (chunk->type == kIEND) m_ended = true;
    return true;
}

namespace {

bool DepthAllowed(int colourType, int depth) {
    switch (colourType) {
        case 0:
            return depth == 1 || depth == 2 || depth == 4 || depth == 8 || depth == 16;
        case 2:
        case 4:
        case 6:
            return depth == 8 || depth == 16;
        case 3:
            return depth == 1 || depth == 2 || depth == 4 || depth == 8;
        default:
            return false;
    }
}

}  // namespace

bool ParseImageHeader(const Chunk& chunk, ImageHeader* header) {
    if (chunk.length < 13) return false;
    const uint8_t* d = chunk.data;
    const uint32_t width = LoadBigEndian32(d);
    const uint32_t height = LoadBigEndian32(d + 4);
    if (width < 1 || width > kMaxDimension || height < 1 || height > kMaxDimension) return false;
    const int depth = d[8], colourType = d[9];
    if (!DepthAllowed(colourType, depth)) return false;
    if (d[10] != 0 || d[11] != 0 || d[12] > 1) return false;
    header->width = static_cast<int>(width);
    header->height = static_cast<int>(height);
    header->bitDepth = depth;
    header->colourType = colourType;
    header->interlace = d[12];
    return true;
}

int ChannelCount(int colourType) {
    switch (colourType) {
        case 2:
            return 3;
        case 4:
            return 2;
        case 6:
            return 4;
        default:
            return 1;
    }
}

int FilterUnit(const ImageHeader& header) {
    if (header.bitDepth < 8) return 1;
    return header.bitDepth / 8 * ChannelCount(header.colourType);
}

}  // namespace ncb::png
