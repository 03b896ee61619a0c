// The ZIP reader's inflate: decodes one deflate stream (RFC 1951) of a known
// compressed size into exactly its entry's uncompressed size.
//
// Input arrives through a source in pieces of at most 32 768 bytes (the
// source decrypts when the entry is encrypted); output leaves through a sink
// from a 64 KiB window, 32 768 bytes at a time, with the CRC-32 of everything
// written. Bits come from CNReadBitStream in plain mode with every byte
// bit-reversed; codes are looked up in tables of its Huffman format, built
// by CNZipDecoder::CreateHuffmanTable.
//
// Limits: nothing past the uncompressed size is ever written; a stream that
// would produce more, or ends (final block) before producing that many bytes,
// fails. Truncated input, invalid codes, distances reaching before the first
// byte and the reserved block type fail too. Not here: the zlib and gzip
// wrappers (ZIP stores raw deflate) and deflate64.
#pragma once

#include <cstdint>

class CNZipDecoder;

namespace ncb::zip {

class InflateSource {
  public:
    virtual ~InflateSource() = default;
    // Exactly `count` bytes (1 .. 32 768) into `dest`, decrypted; false otherwise.
    virtual bool Read(unsigned char* dest, int count) = 0;
};

class InflateSink {
  public:
    virtual ~InflateSink() = default;
    // All `count` bytes, or false.
    virtual bool Write(const unsigned char* data, int count) = 0;
};

// Block type of the block being decoded (0 stored, 1 fixed, 2 dynamic) goes
// to *blockType when given. *crc receives the CRC-32 of the bytes written,
// also on failure. Returns 1 when the stream decoded cleanly into exactly
// `uncompressedSize` bytes, else 0 (memory, input, output or stream failure).
int Inflate(InflateSource* source, uint32_t compressedSize, uint32_t uncompressedSize,
            InflateSink* sink, uint32_t* crc, int* blockType = nullptr);

}  // namespace ncb::zip
