// CNZipDecoder: listing by local headers, the entry table, extraction of
// stored and deflated entries, CRC-32 and traditional PKWARE decryption.
//
// Listing reads each local header (286 bytes: the fixed part and a name of
// up to 255 bytes) through a little-endian CNReadByteStream and jumps to the
// next one by the sizes it declares, or by the data descriptor it finds when
// flag bit 3 says the sizes follow the data. Any doubt ends the listing
// quietly with what was found: callers of a lenient reader want the entries
// before the damage. Extraction re-reads the archive through the descriptor
// kept open since Open and writes through a plain file descriptor, so
// nothing but the named output file is ever created.
//
// Deliberately not here: the central directory, Zip64, AES and the other
// compression methods, and names of 256 bytes or more (all left out of the
// list rather than mis-extracted).
#include "ncodecbase/zip_decoder.h"

#include <climits>
#include <cstring>

#include "archive/archive_file.h"
#include "archive/zip/crc32_kernels.h"
#include "archive/zip/zip_inflate.h"
#include "base/checked_size.h"
#include "ncodecbase/read_byte_stream.h"
#include "platform/kernel/heap.h"

struct CNZipDecoder::Entry {
    char name[256];
    uint32_t uncompressedSize;
    uint32_t dataOffset;
    uint32_t compressedSize;
    uint32_t encrypted;
    uint32_t deflate;
    uint32_t crc;
};

namespace {

constexpr uint32_t kLocalHeaderSignature = 0x04034B50;
constexpr uint32_t kDescriptorSignature = 0x08074B50;
constexpr int kLocalHeaderSize = 30;
constexpr int kHeaderReadSize = kLocalHeaderSize + 256;
constexpr int kDescriptorSize = 16;
constexpr int kDescriptorStep = 4096;
constexpr int kEncryptionHeaderSize = 12;
constexpr int kTableGrowth = 64;
constexpr int kChunkSize = 32768;

uint32_t Le32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

struct LocalHeader {
    uint16_t flags;
    uint16_t method;
    uint32_t crc;
    uint32_t compressedSize;
    uint32_t uncompressedSize;
    uint16_t nameLength;
    uint16_t extraLength;
};

// False when the bytes do not start with a local file header.
bool ParseLocalHeader(unsigned char* bytes, int count, LocalHeader* h) {
    NDataStreamBufferInfoTag chain{bytes, count};
    unsigned char pad[4] = {};
    CNReadByteStream stream;
    stream.Init(3, &chain, 1, pad, sizeof(pad));  // little-endian, bytes as stored
    if (stream.ReadUint32() != kLocalHeaderSignature) return false;
    stream.Skip(2);  // version needed
    h->flags = stream.ReadUint16();
    h->method = stream.ReadUint16();
    stream.Skip(4);  // time and date
    h->crc = stream.ReadUint32();
    h->compressedSize = stream.ReadUint32();
    h->uncompressedSize = stream.ReadUint32();
    h->nameLength = stream.ReadUint16();
    h->extraLength = stream.ReadUint16();
    return stream.Uninit() == 1;
}

// Searches the data descriptor of an entry whose data starts at `dataStart`:
// the first signature whose compressed-size field equals its own distance
// from the data start. Fills crc and sizes; false when none is found.
bool FindDescriptor(int fd, int64_t fileSize, uint64_t dataStart, LocalHeader* h) {
    const uint64_t end = static_cast<uint64_t>(fileSize) - kDescriptorSize;
    unsigned char buffer[kDescriptorStep + kDescriptorSize];
    for (uint64_t search = dataStart; search < end;) {
        const int n =
            end - search < kDescriptorStep ? static_cast<int>(end - search) : kDescriptorStep;
        if (!ncb::archive::SeekTo(fd, search) ||
            !ncb::archive::ReadExact(fd, buffer, static_cast<size_t>(n) + kDescriptorSize))
            return false;
        for (int p = 0; p < n; ++p) {
            const void* hit = std::memchr(buffer + p, 0x50, static_cast<size_t>(n - p));
            if (!hit) break;
            p = static_cast<int>(static_cast<const unsigned char*>(hit) - buffer);
            const unsigned char* d = buffer + p;
            if (Le32(d) != kDescriptorSignature) continue;
            if (Le32(d + 8) != search + static_cast<uint64_t>(p) - dataStart) continue;
            h->crc = Le32(d + 4);
            h->compressedSize = Le32(d + 8);
            h->uncompressedSize = Le32(d + 12);
            return true;
        }
        search += static_cast<uint64_t>(n);
    }
    return false;
}

// Reads the entry's data from the archive, decrypting when asked.
class ArchiveSource : public ncb::zip::InflateSource {
  public:
    ArchiveSource(int fd, CNZipDecoder* decoder, bool encrypted)
        : fd_(fd), decoder_(decoder), encrypted_(encrypted) {}
    bool Read(unsigned char* dest, int count) override {
        if (!ncb::archive::ReadExact(fd_, dest, static_cast<size_t>(count))) return false;
        if (encrypted_) decoder_->DecryptBuffer(dest, count);
        return true;
    }

  private:
    int fd_;
    CNZipDecoder* decoder_;
    bool encrypted_;
};

class FileSink : public ncb::zip::InflateSink {
  public:
    explicit FileSink(int fd) : fd_(fd) {}
    bool Write(const unsigned char* data, int count) override {
        return ncb::archive::WriteAll(fd_, data, static_cast<size_t>(count));
    }

  private:
    int fd_;
};

}  // namespace

CNZipDecoder::CNZipDecoder() = default;

CNZipDecoder::~CNZipDecoder() { Close(); }

int CNZipDecoder::Open(const char* path) {
    Close();
    const int fd = ncb::archive::OpenForRead(path);
    if (fd < 0) return 0;
    const int64_t size = ncb::archive::FileSize(fd);
    m_pEntryTable = size >= 0 ? CNCodecBuffer::CreateBuffer() : nullptr;
    if (!m_pEntryTable) {
        ncb::archive::CloseFile(fd);
        return 0;
    }
    m_hFile = fd;
    m_nCount = 0;
    if (!List(size)) {
        Close();
        return 0;
    }
    m_nOpened = 1;
    return 1;
}

// Walks the local headers; 0 only when the entry table cannot grow.
int CNZipDecoder::List(int64_t fileSize) {
    unsigned char header[kHeaderReadSize];
    uint64_t position = 0;
    for (;;) {
        if (!ncb::archive::SeekTo(m_hFile, position)) return 1;
        const int64_t got = ncb::archive::ReadUpTo(m_hFile, header, sizeof(header));
        if (got < kLocalHeaderSize) return 1;
        LocalHeader h{};
        if (!ParseLocalHeader(header, static_cast<int>(got), &h)) return 1;

        const uint64_t dataStart = position + kLocalHeaderSize + h.nameLength + h.extraLength;
        uint64_t descriptorLength = 0;
        if (h.flags & 8) {
            if (fileSize < kDescriptorSize ||
                dataStart >= static_cast<uint64_t>(fileSize) - kDescriptorSize)
                return 1;
            if (!FindDescriptor(m_hFile, fileSize, dataStart, &h)) return 1;
            descriptorLength = kDescriptorSize;
        }

        const bool encrypted = (h.flags & 1) != 0;
        const bool listed = h.nameLength < 256 && (h.method == 0 || h.method == 8) &&
                            got >= kLocalHeaderSize + h.nameLength &&
                            (!encrypted || h.compressedSize >= kEncryptionHeaderSize);
        if (listed) {
            const uint64_t offset = dataStart + (encrypted ? kEncryptionHeaderSize : 0);
            if (offset > UINT32_MAX) return 1;
            Entry e{};
            std::memcpy(e.name, header + kLocalHeaderSize, h.nameLength);
            e.name[h.nameLength] = 0;
            e.uncompressedSize = h.uncompressedSize;
            e.dataOffset = static_cast<uint32_t>(offset);
            e.compressedSize = h.compressedSize - (encrypted ? kEncryptionHeaderSize : 0);
            e.encrypted = encrypted ? 1 : 0;
            e.deflate = h.method != 0 ? 1 : 0;
            e.crc = h.crc;
            if (!AppendEntry(e)) return 0;
        }
        position = dataStart + descriptorLength + h.compressedSize;
    }
}

int CNZipDecoder::AppendEntry(const Entry& entry) {
    static_assert(sizeof(Entry) == 280, "name, then six 32-bit words");
    const int used = m_nCount * static_cast<int>(sizeof(Entry));
    if (m_pEntryTable->GetBufferSize() - used < static_cast<int>(sizeof(Entry))) {
        int bytes;
        if (!ncb::CheckedMul(m_nCount + kTableGrowth, static_cast<int>(sizeof(Entry)), &bytes))
            return 0;
        m_pEntryTable->SetDataSize(used);
        if (!m_pEntryTable->Allocate(bytes, 4, 1)) return 0;
    }
    auto* table = static_cast<unsigned char*>(m_pEntryTable->GetAddress());
    std::memcpy(table + used, &entry, sizeof(Entry));
    ++m_nCount;
    m_pEntryTable->SetDataSize(used + static_cast<int>(sizeof(Entry)));
    return 1;
}

int CNZipDecoder::GetTotalFileNumber() { return m_nCount; }

int CNZipDecoder::GetFileInfo(int index, unsigned* size, char* name, int* encrypted) {
    if (!m_nOpened || index < 0 || index >= m_nCount) return 0;
    const Entry* e = static_cast<const Entry*>(m_pEntryTable->GetAddress()) + index;
    if (size) *size = e->uncompressedSize;
    if (name) std::memcpy(name, e->name, std::strlen(e->name) + 1);
    if (encrypted) *encrypted = static_cast<int>(e->encrypted);
    return 1;
}

int CNZipDecoder::DecompressFile(int index, const char* outputPath, const char* password) {
    if (!m_nOpened || index < 0 || index >= m_nCount || !outputPath) return 0;
    Entry entry;
    std::memcpy(&entry, static_cast<const Entry*>(m_pEntryTable->GetAddress()) + index,
                sizeof(Entry));
    if (entry.encrypted && !password) return 0;
    ncb::archive::FileHandle output(ncb::archive::CreateAlways(outputPath));
    if (!output.IsOpen()) return 0;
    return Extract(entry, output.Get(), password);
}

int CNZipDecoder::Extract(const Entry& entry, int output, const char* password) {
    if (entry.encrypted) {
        unsigned char header[kEncryptionHeaderSize];
        if (!ncb::archive::SeekTo(m_hFile, entry.dataOffset - kEncryptionHeaderSize) ||
            !ncb::archive::ReadExact(m_hFile, header, sizeof(header)))
            return 0;
        const size_t length = std::strlen(password);
        if (length > INT_MAX) return 0;
        DecryptInit(reinterpret_cast<unsigned char*>(const_cast<char*>(password)),
                    static_cast<int>(length), header);
    }
    if (!ncb::archive::SeekTo(m_hFile, entry.dataOffset)) return 0;
    ArchiveSource source(m_hFile, this, entry.encrypted != 0);

    if (entry.deflate) {
        FileSink sink(output);
        uint32_t crc = 0;
        const int ok = ncb::zip::Inflate(&source, entry.compressedSize, entry.uncompressedSize,
                                         &sink, &crc, &m_nBlockType);
        return ok && crc == entry.crc ? 1 : 0;
    }

    if (entry.compressedSize != entry.uncompressedSize) return 0;
    auto* chunk = static_cast<unsigned char*>(nplat::HeapAlloc(kChunkSize));
    if (!chunk) return 0;
    uint32_t crc = 0;
    bool ok = true;
    for (uint32_t left = entry.compressedSize; ok && left > 0;) {
        const int n = left < kChunkSize ? static_cast<int>(left) : kChunkSize;
        ok = source.Read(chunk, n) && ncb::archive::WriteAll(output, chunk, static_cast<size_t>(n));
        if (ok) crc = CalcCRC32(crc, chunk, n);
        left -= static_cast<uint32_t>(n);
    }
    nplat::HeapFree(chunk);
    return ok && crc == entry.crc ? 1 : 0;
}

void CNZipDecoder::Close() {
    if (m_pEntryTable) {
        m_pEntryTable->Release();
        m_pEntryTable = nullptr;
    }
    ncb::archive::CloseFile(m_hFile);
    m_hFile = -1;
    m_nCount = 0;
    m_nOpened = 0;
}

unsigned CNZipDecoder::CalcCRC32(unsigned crc, unsigned char* data, int length) {
    if (!data || length <= 0) return crc;
    return ~ncb::zip::ActiveCrc32Kernel()(~crc, data, static_cast<size_t>(length));
}

void CNZipDecoder::DecryptInit(unsigned char* password, int length, unsigned char* header) {
    m_uKey[0] = 0x12345678;
    m_uKey[1] = 0x23456789;
    m_uKey[2] = 0x34567890;
    for (int i = 0; password && i < length; ++i) UpdateKey(password[i]);
    for (int i = 0; header && i < kEncryptionHeaderSize; ++i)
        UpdateKey(static_cast<unsigned char>(header[i] ^ DecryptByte()));
}

void CNZipDecoder::UpdateKey(unsigned char byte) {
    m_uKey[0] = s_CRCTable[(m_uKey[0] ^ byte) & 0xFF] ^ (m_uKey[0] >> 8);
    m_uKey[1] = (m_uKey[1] + (m_uKey[0] & 0xFF)) * 134775813u + 1;
    m_uKey[2] = s_CRCTable[(m_uKey[2] ^ (m_uKey[1] >> 24)) & 0xFF] ^ (m_uKey[2] >> 8);
}

unsigned char CNZipDecoder::DecryptByte() {
    const uint32_t t = (m_uKey[2] & 0xFFFF) | 2;
    return static_cast<unsigned char>(((t * (t ^ 1)) >> 8) & 0xFF);
}

void CNZipDecoder::DecryptBuffer(unsigned char* data, int length) {
    for (int i = 0; data && i < length; ++i) {
        const unsigned char plain = static_cast<unsigned char>(data[i] ^ DecryptByte());
        UpdateKey(plain);
        data[i] = plain;
    }
}
