// RAR 5 block walk for file facts (see rar5_headers.h).
//
// Block layout: CRC-32 (4 bytes), header size (vint, bytes from the type
// field on), header type (vint: 1 main, 2 file, 3 service, 4 encryption,
// 5 end), header flags (vint: 1 extra area, 2 data area, 8 data from the
// previous volume, 16 data into the next), extra area size and data size
// (vints, when flagged), then the type-specific fields and the extra area;
// the data area follows the header.
#include "archive/rar/rar5_headers.h"

#include <cstring>
#include <vector>

#include "archive/archive_file.h"

namespace ncb::rar {
namespace {

constexpr unsigned char kSignature[8] = {'R', 'a', 'r', '!', 0x1A, 0x07, 0x01, 0x00};
constexpr uint64_t kMaxHeaderSize = 2u << 20;
constexpr int kMaxBlocks = 64;  // service headers between file headers are few

class Cursor {
  public:
    Cursor(const unsigned char* data, size_t size) : p_(data), end_(data + size) {}
    bool Vint(uint64_t* value) {
        uint64_t v = 0;
        for (int shift = 0; shift < 64 && p_ < end_; shift += 7) {
            const unsigned char b = *p_++;
            v |= static_cast<uint64_t>(b & 0x7F) << shift;
            if (!(b & 0x80)) {
                *value = v;
                return true;
            }
        }
        return false;
    }
    bool U32(uint32_t* value) {
        if (end_ - p_ < 4) return false;
        *value = static_cast<uint32_t>(p_[0]) | static_cast<uint32_t>(p_[1]) << 8 |
                 static_cast<uint32_t>(p_[2]) << 16 | static_cast<uint32_t>(p_[3]) << 24;
        p_ += 4;
        return true;
    }
    bool Skip(uint64_t n) {
        if (static_cast<uint64_t>(end_ - p_) < n) return false;
        p_ += n;
        return true;
    }
    size_t Used(const unsigned char* start) const { return static_cast<size_t>(p_ - start); }

  private:
    const unsigned char* p_;
    const unsigned char* end_;
};

// Reads the extra area's records; sets `encrypted` on a record of type 1.
// Each record: its size (vint, bytes from the type on), type (vint), data.
bool ReadExtra(const unsigned char* data, size_t size, Rar5FileFacts* facts) {
    size_t at = 0;
    while (at < size) {
        Cursor c(data + at, size - at);
        uint64_t recordSize, type;
        if (!c.Vint(&recordSize)) return false;
        const size_t sizeBytes = c.Used(data + at);
        if (!c.Vint(&type)) return false;
        if (type == 1) facts->encrypted = true;
        if (recordSize > size - at - sizeBytes) return false;
        at += sizeBytes + static_cast<size_t>(recordSize);
    }
    return true;
}

bool ParseFileHeader(Cursor c, uint64_t headerFlags, uint64_t extraSize, const unsigned char* block,
                     size_t blockSize, Rar5FileFacts* facts) {
    uint64_t fileFlags, unpacked, attributes, compression, hostOs, nameLength;
    if (!c.Vint(&fileFlags) || !c.Vint(&unpacked) || !c.Vint(&attributes)) return false;
    uint32_t value;
    if ((fileFlags & 2) && !c.U32(&value)) return false;  // modification time
    if (fileFlags & 4) {
        if (!c.U32(&facts->crc)) return false;
        facts->hasCrc = true;
    }
    if (!c.Vint(&compression) || !c.Vint(&hostOs) || !c.Vint(&nameLength) || !c.Skip(nameLength))
        return false;
    facts->split = (headerFlags & (8 | 16)) != 0;
    if (!(headerFlags & 1)) return true;
    if (extraSize > blockSize) return false;
    return ReadExtra(block + blockSize - extraSize, static_cast<size_t>(extraSize), facts);
}

}  // namespace

bool IsRar5File(int fd) {
    unsigned char head[8];
    return ncb::archive::SeekTo(fd, 0) && ncb::archive::ReadExact(fd, head, sizeof(head)) &&
           std::memcmp(head, kSignature, sizeof(head)) == 0;
}

bool ReadRar5FileFacts(int fd, uint64_t position, Rar5FileFacts* facts) {
    *facts = Rar5FileFacts{};
    unsigned char prefix[16];
    if (!ncb::archive::SeekTo(fd, position) || !ncb::archive::ReadExact(fd, prefix, 8))
        return false;
    if (std::memcmp(prefix, kSignature, 8) == 0) position += 8;
    std::vector<unsigned char> block;
    for (int i = 0; i < kMaxBlocks; ++i) {
        // CRC-32 and the header size (a vint of at most 3 bytes for 2 MiB).
        if (!ncb::archive::SeekTo(fd, position)) return false;
        const int64_t got = ncb::archive::ReadUpTo(fd, prefix, 7);
        if (got < 5) return false;
        Cursor sizeCursor(prefix + 4, static_cast<size_t>(got - 4));
        uint64_t headerSize;
        if (!sizeCursor.Vint(&headerSize) || headerSize == 0 || headerSize > kMaxHeaderSize)
            return false;
        const size_t sizeBytes = sizeCursor.Used(prefix + 4);
        try {
            block.resize(static_cast<size_t>(headerSize));
        } catch (...) {
            return false;
        }
        if (!ncb::archive::SeekTo(fd, position + 4 + sizeBytes) ||
            !ncb::archive::ReadExact(fd, block.data(), block.size()))
            return false;
        Cursor c(block.data(), block.size());
        uint64_t type, flags, extraSize = 0, dataSize = 0;
        if (!c.Vint(&type) || !c.Vint(&flags)) return false;
        if ((flags & 1) && !c.Vint(&extraSize)) return false;
        if ((flags & 2) && !c.Vint(&dataSize)) return false;
        if (type == 2)
            return ParseFileHeader(c, flags, extraSize, block.data(), block.size(), facts);
        if (type == 4 || type == 5) return false;
        position += 4 + sizeBytes + headerSize + dataSize;
    }
    return false;
}

}  // namespace ncb::rar
