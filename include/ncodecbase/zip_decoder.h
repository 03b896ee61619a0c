// CNZipDecoder: lists the files of a ZIP archive and extracts one at a time
// into a file of the caller's choice.
//
// Listing walks the local file headers from the start of the file, one after
// another; the central directory is never read. So an archive with a prefix
// (a self-extractor stub) lists nothing, and entries the central directory
// has dropped are still seen. Methods stored (0) and deflate (8) are listed;
// entries with other methods, or with names of 256 bytes or more, are left
// out silently. Traditional PKWARE encryption is supported; the entry's data
// offset and compressed size then exclude the 12-byte encryption header.
// Entries whose sizes follow their data (flag bit 3) are found by searching
// the data descriptor whose compressed size matches its distance from the
// data start.
//
// Open is lenient: damage or truncation ends the listing with the entries
// found before it and still returns 1. Extraction inflates with the library's
// own decoder and checks the CRC-32 of everything written; it never writes
// more than the entry's uncompressed size. A failed extraction returns 0 and
// leaves the partly written output file in place. A wrong password shows as
// a stream failure or a CRC mismatch: the check byte of the encryption header
// is not compared with anything.
//
// Choices where the interface leaves room:
// - GetFileInfo and DecompressFile refuse (0) an index outside 0 .. count - 1,
//   and DecompressFile refuses an encrypted entry with a null password.
// - Open on an opened reader closes it first.
// - An encrypted entry too short to hold its 12-byte header is left out.
// - Extraction fails unless the deflate stream produces exactly the entry's
//   uncompressed size, however the CRC-32 compares.
// - Entries whose data would start beyond 4 GiB end the listing.
//
// Ownership: the reader owns its entry table and keeps the archive open from
// Open to Close (or destruction). Thread safety: one thread at a time per
// reader; the decryption keys are per object, so DecompressFile calls on one
// object must not overlap. The static members are thread-safe.
#pragma once

#include <array>
#include <cstdint>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"

class NCB_API CNZipDecoder {
  public:
    CNZipDecoder();
    ~CNZipDecoder();
    CNZipDecoder(const CNZipDecoder&) = delete;
    CNZipDecoder& operator=(const CNZipDecoder&) = delete;

    // Lists the archive. 0 when the file cannot be opened, its size cannot be
    // read, or memory for the entry table runs out; otherwise 1.
    int Open(const char* path);
    int GetTotalFileNumber();
    // Uncompressed size, name (zero-terminated; `name` holds 256 bytes) and
    // the encrypted flag of entry `index`. Null out-pointers are skipped.
    int GetFileInfo(int index, unsigned* size, char* name, int* encrypted);
    // Extracts entry `index` into a new file at `outputPath` (replacing one
    // that exists). 1 when the whole entry was written and its CRC-32
    // matches. `password` is needed for encrypted entries only.
    int DecompressFile(int index, const char* outputPath, const char* password);
    // Releases the entry table and closes the archive.
    void Close();

    // Standard CRC-32 update with pre- and post-inversion: start with 0 and
    // chain by passing the previous result. Uses carry-less multiplication
    // where the processor has it; the result never depends on that.
    static unsigned CalcCRC32(unsigned crc, unsigned char* data, int length);

    // Traditional PKWARE decryption: keys from the password and the 12-byte
    // encryption header, then byte-wise decryption in place.
    void DecryptInit(unsigned char* password, int length, unsigned char* header);
    void UpdateKey(unsigned char byte);
    unsigned char DecryptByte();
    void DecryptBuffer(unsigned char* data, int length);

    // Builds a look-up table that CNReadBitStream::GetHuffman8/16 (two
    // levels) or their Once forms (one level) decode, from `count` deflate
    // code lengths (0 = unused symbol). The first level peeks at most
    // `peekBits` bits. Outputs:
    //   lookupBits  bits to peek: the first level's bits for one level, the
    //               longest code length for two;
    //   entryBits   8 or 16: which look-up family reads `table`;
    //   levels      1 or 2;
    //   shifts, masks        two entries each;
    //   subTableOffsets      room for count + 1 entries;
    //   dataShift, lenMask   the entry fields;
    //   invalidValue         the value of positions no code reaches.
    // The entries go into `table` (an owned buffer; its data size becomes
    // the table's bytes). Returns 0 for lengths above 19, over-subscribed
    // lengths, all lengths 0, more than two levels, entries that would not
    // fit 16 bits, or when memory runs out.
    static int CreateHuffmanTable(unsigned char* lengths, int count, int peekBits,
                                  CNCodecBuffer* table, int* lookupBits, int* entryBits,
                                  int* levels, int* shifts, unsigned int* masks,
                                  int* subTableOffsets, int* dataShift, unsigned int* lenMask,
                                  int* invalidValue);

    // The standard CRC-32 table (reflected polynomial 0xEDB88320).
    static const std::array<uint32_t, 256> s_CRCTable;
    // Bit reversal of every n-bit value, n = 2 .. 13.
    static const std::array<uint8_t, 4> s_uBitSwapTable2;
    static const std::array<uint8_t, 8> s_uBitSwapTable3;
    static const std::array<uint8_t, 16> s_uBitSwapTable4;
    static const std::array<uint8_t, 32> s_uBitSwapTable5;
    static const std::array<uint8_t, 64> s_uBitSwapTable6;
    static const std::array<uint8_t, 128> s_uBitSwapTable7;
    static const std::array<uint8_t, 256> s_uBitSwapTable8;
    static const std::array<uint16_t, 512> s_uBitSwapTable9;
    static const std::array<uint16_t, 1024> s_uBitSwapTable10;
    static const std::array<uint16_t, 2048> s_uBitSwapTable11;
    static const std::array<uint16_t, 4096> s_uBitSwapTable12;
    static const std::array<uint16_t, 8192> s_uBitSwapTable13;
    // Order in which a dynamic block sends its code-length code lengths.
    static const std::array<uint8_t, 19> s_uLenHuffmanMappingTable;
    static const std::array<uint32_t, 20> s_uBitMask;      // 2^n - 1
    static const std::array<uint32_t, 32> s_uBitMaxValue;  // 0, then 2^n
    // The fixed literal/length code for a 9-bit peek: (symbol << 4) | (length - 1).
    static const std::array<uint16_t, 512> s_uHuffr16DefalteLengthData;
    // The same code as a two-level table (12 + 6 bits, peek 18).
    static const std::array<uint16_t, 4096 + 64> s_uHuffr16DefalteHuffmanLengthData;
    static const std::array<int, 3> s_nHuffr16DefalteHuffmanLengthIndex;
    static const std::array<unsigned int, 2> s_uHuffr16DefalteHuffmanLengthCheckMask;
    static const std::array<int, 2> s_nHuffr16DefalteHuffmanLengthCheckShiftBit;

  private:
    struct Entry;
    int List(int64_t fileSize);
    int AppendEntry(const Entry& entry);
    int Extract(const Entry& entry, int output, const char* password);

    int m_nOpened = 0;
    int m_nCount = 0;
    CNCodecBuffer* m_pEntryTable = nullptr;
    int m_hFile = -1;  // archive file descriptor
    int m_nBlockType = 0;
    uint32_t m_uKey[3] = {0, 0, 0};
};
