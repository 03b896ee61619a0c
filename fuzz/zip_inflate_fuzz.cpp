// Fuzz target for the ZIP reader's inflate, differential against zlib.
//
// Input: a 4-byte little-endian uncompressed size (kept below 4 MiB so a
// bomb stays quick), then a raw deflate stream. The stream is fed to the
// inflate in the pieces it asks for and the output collected in memory.
//
// Checked: a successful inflate wrote exactly the claimed size with the
// CRC-32 of those bytes; whatever prefix zlib produces from the same stream
// before it stops or fails equals ours (our reader deliberately accepts a
// few things zlib refuses, such as an unchecked NLEN, but never decodes a
// byte differently); and a failed inflate never wrote more than claimed.
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "archive/zip/zip_inflate.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "zip_inflate: %s\n", what);
    std::abort();
}

class Source : public ncb::zip::InflateSource {
  public:
    Source(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool Read(unsigned char* dest, int count) override {
        Check(count >= 1 && count <= 32768, "read size");
        if (static_cast<size_t>(count) > size_ - at_) return false;
        std::memcpy(dest, data_ + at_, static_cast<size_t>(count));
        at_ += static_cast<size_t>(count);
        return true;
    }

  private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

class Sink : public ncb::zip::InflateSink {
  public:
    bool Write(const unsigned char* data, int count) override {
        out.insert(out.end(), data, data + count);
        return true;
    }
    std::vector<uint8_t> out;
};

// What zlib makes of the stream, up to `limit` bytes, stopping at its end
// or its first error.
std::vector<uint8_t> ZlibPrefix(const uint8_t* data, size_t size, size_t limit) {
    std::vector<uint8_t> out(limit + 1);
    z_stream z{};
    if (inflateInit2(&z, -15) != Z_OK) return {};
    z.next_in = const_cast<Bytef*>(data);
    z.avail_in = static_cast<uInt>(size);
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    inflate(&z, Z_SYNC_FLUSH);
    out.resize(z.total_out);
    inflateEnd(&z);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    uint32_t claimed = static_cast<uint32_t>(data[0]) | static_cast<uint32_t>(data[1]) << 8 |
                       static_cast<uint32_t>(data[2]) << 16 |
                       static_cast<uint32_t>(data[3] & 0x3F) << 24;
    claimed &= (4u << 20) - 1;
    const uint8_t* stream = data + 4;
    const size_t streamSize = size - 4;

    Source source(stream, streamSize);
    Sink sink;
    uint32_t crc = 0;
    const int ok =
        ncb::zip::Inflate(&source, static_cast<uint32_t>(streamSize), claimed, &sink, &crc);
    Check(sink.out.size() <= claimed, "wrote past the claimed size");
    Check(crc == static_cast<uint32_t>(crc32_z(0, sink.out.data(), sink.out.size())),
          "crc of what was written");
    if (!ok) return 0;
    Check(sink.out.size() == claimed, "success with another size");
    const std::vector<uint8_t> zlib = ZlibPrefix(stream, streamSize, claimed);
    const size_t common = zlib.size() < sink.out.size() ? zlib.size() : sink.out.size();
    Check(common == 0 || std::memcmp(zlib.data(), sink.out.data(), common) == 0,
          "differs from zlib");
    return 0;
}
