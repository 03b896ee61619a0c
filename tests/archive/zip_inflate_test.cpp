// The ZIP reader's inflate against zlib's deflate: every level and strategy,
// sizes around the window's 32 KiB pieces, stored, fixed and dynamic blocks,
// flush points (empty stored blocks) and input handed over in pieces of
// every size the reader asks for. Then streams zlib would never write:
// invalid codes, distances before the first byte, reserved block types,
// lengths that do not match, and bombs that inflate far beyond their size.
#include "archive/zip/zip_inflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "platform/kernel/fault.h"
#include "tests/archive/archive_test_util.h"

namespace ncbtest::archive {
namespace {

class MemorySource : public ncb::zip::InflateSource {
  public:
    explicit MemorySource(const Bytes& data) : data_(data) {}
    bool Read(unsigned char* dest, int count) override {
        if (count < 1 || count > 32768 || static_cast<size_t>(count) > data_.size() - at_)
            return false;
        std::memcpy(dest, data_.data() + at_, static_cast<size_t>(count));
        at_ += static_cast<size_t>(count);
        return true;
    }
    size_t Consumed() const { return at_; }

  private:
    const Bytes& data_;
    size_t at_ = 0;
};

class MemorySink : public ncb::zip::InflateSink {
  public:
    bool Write(const unsigned char* data, int count) override {
        out.insert(out.end(), data, data + count);
        return true;
    }
    Bytes out;
};

struct Result {
    int ok;
    uint32_t crc;
    Bytes out;
};

Result RunInflate(const Bytes& stream, uint32_t uncompressedSize) {
    MemorySource source(stream);
    MemorySink sink;
    uint32_t crc = 0;
    const int ok = ncb::zip::Inflate(&source, static_cast<uint32_t>(stream.size()),
                                     uncompressedSize, &sink, &crc);
    return {ok, crc, sink.out};
}

// LSB-first bit packer for streams made by hand.
class DeflateWriter {
  public:
    void Bits(uint32_t value, int n) {
        for (int i = 0; i < n; ++i) Bit((value >> i) & 1);
    }
    // A Huffman code, most significant bit first.
    void Code(uint32_t code, int length) {
        for (int i = length - 1; i >= 0; --i) Bit((code >> i) & 1);
    }
    // Symbol of the fixed literal/length code.
    void FixedLiteral(int symbol) {
        if (symbol < 144) {
            Code(0x30 + symbol, 8);
        } else if (symbol < 256) {
            Code(0x190 + symbol - 144, 9);
        } else if (symbol < 280) {
            Code(symbol - 256, 7);
        } else {
            Code(0xC0 + symbol - 280, 8);
        }
    }
    Bytes Finish() {
        if (fill_) bytes_.push_back(current_);
        fill_ = 0;
        current_ = 0;
        return bytes_;
    }

  private:
    void Bit(uint32_t b) {
        current_ |= static_cast<uint8_t>(b << fill_);
        if (++fill_ == 8) {
            bytes_.push_back(current_);
            current_ = 0;
            fill_ = 0;
        }
    }
    Bytes bytes_;
    uint8_t current_ = 0;
    int fill_ = 0;
};

enum class Content { kText, kRandom, kZeros, kMixed };

Bytes MakeContent(Content c, size_t size) {
    switch (c) {
        case Content::kText:
            return TextBytes(size, size);
        case Content::kRandom:
            return RandomBytes(size, size + 1);
        case Content::kZeros:
            return Bytes(size, 0);
        case Content::kMixed: {
            Bytes b = TextBytes(size, 3);
            Bytes r = RandomBytes(size / 3, 4);
            std::copy(r.begin(), r.end(), b.begin() + static_cast<ptrdiff_t>(size / 3));
            return b;
        }
    }
    return {};
}

using DeflateCase = std::tuple<int, int, Content, size_t>;  // level, strategy, content, size

class InflateAgainstZlib : public ::testing::TestWithParam<DeflateCase> {};

TEST_P(InflateAgainstZlib, ReproducesTheInput) {
    const auto [level, strategy, content, size] = GetParam();
    const Bytes data = MakeContent(content, size);
    const Bytes stream = ZlibDeflateRaw(data, level, strategy);
    ASSERT_FALSE(stream.empty());
    const Result r = RunInflate(stream, static_cast<uint32_t>(data.size()));
    EXPECT_EQ(r.ok, 1);
    EXPECT_EQ(r.crc, Crc32Of(data.data(), data.size()));
    ASSERT_EQ(r.out.size(), data.size());
    EXPECT_TRUE(r.out == data);
}

INSTANTIATE_TEST_SUITE_P(
    LevelsAndStrategies, InflateAgainstZlib,
    ::testing::Combine(::testing::Values(0, 1, 6, 9),
                       ::testing::Values(Z_DEFAULT_STRATEGY, Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE,
                                         Z_FIXED),
                       ::testing::Values(Content::kText, Content::kRandom, Content::kMixed),
                       ::testing::Values(size_t{1}, size_t{300}, size_t{70000})));

INSTANTIATE_TEST_SUITE_P(WindowEdges, InflateAgainstZlib,
                         ::testing::Combine(::testing::Values(0, 6),
                                            ::testing::Values(Z_DEFAULT_STRATEGY),
                                            ::testing::Values(Content::kText, Content::kZeros),
                                            ::testing::Values(size_t{32767}, size_t{32768},
                                                              size_t{32769}, size_t{65535},
                                                              size_t{65536}, size_t{65537},
                                                              size_t{98304 + 5}, size_t{1} << 20)));

// Full and sync flushes put empty stored blocks and byte alignment in the
// middle of the stream; the reader must carry on past each.
TEST(Inflate, FlushPointsInsideTheStream) {
    const Bytes data = TextBytes(200000, 11);
    z_stream z{};
    ASSERT_EQ(deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
    Bytes stream(deflateBound(&z, data.size()) + 4096);
    z.next_out = stream.data();
    z.avail_out = static_cast<uInt>(stream.size());
    size_t at = 0;
    int piece = 0;
    while (at < data.size()) {
        const size_t n = std::min<size_t>(data.size() - at, 1000 + 7919 * (piece % 5));
        z.next_in = const_cast<Bytef*>(data.data() + at);
        z.avail_in = static_cast<uInt>(n);
        at += n;
        const int flush =
            at == data.size() ? Z_FINISH : (piece++ % 2 ? Z_FULL_FLUSH : Z_SYNC_FLUSH);
        deflate(&z, flush);
    }
    stream.resize(z.total_out);
    deflateEnd(&z);
    const Result r = RunInflate(stream, static_cast<uint32_t>(data.size()));
    EXPECT_EQ(r.ok, 1);
    EXPECT_TRUE(r.out == data);
}

TEST(Inflate, EmptyEntryReadsNothing) {
    const Result r = RunInflate(ZlibDeflateRaw({}, 6), 0);
    EXPECT_EQ(r.ok, 1);
    EXPECT_EQ(r.crc, 0u);
    EXPECT_TRUE(r.out.empty());
}

// Stored blocks longer than the window (65535 bytes, then the rest of
// 70000): written out in 32 KiB pieces.
TEST(Inflate, StoredBlocksLongerThanTheWindow) {
    const Bytes data = RandomBytes(70000, 5);
    Bytes stream;
    auto storedBlock = [&](bool final, size_t from, uint32_t length) {
        DeflateWriter head;
        head.Bits(final ? 1 : 0, 1);
        head.Bits(0, 2);
        const Bytes h = head.Finish();
        stream.insert(stream.end(), h.begin(), h.end());
        const uint32_t inverse = ~length & 0xFFFF;
        stream.insert(stream.end(),
                      {static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8),
                       static_cast<uint8_t>(inverse), static_cast<uint8_t>(inverse >> 8)});
        stream.insert(stream.end(), data.begin() + static_cast<ptrdiff_t>(from),
                      data.begin() + static_cast<ptrdiff_t>(from + length));
    };
    storedBlock(false, 0, 65535);
    storedBlock(true, 65535, 70000 - 65535);
    const Result r = RunInflate(stream, 70000);
    EXPECT_EQ(r.ok, 1);
    EXPECT_TRUE(r.out == data);
}

// Hand-made fixed-code streams, each with what the reader must do.
struct HandStream {
    const char* name;
    Bytes stream;
    uint32_t size;  // uncompressed size claimed
    int ok;
    size_t maxWritten;
};

Bytes FixedBlock(const std::vector<int>& symbolsAndFields) {
    // Pairs: literal/length symbol, then for lengths: extra value, distance
    // code (5 bits), distance extra value; the field widths follow deflate.
    static const int kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                         2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
    static const int kDistanceExtra[32] = {0, 0, 0, 0, 1, 1, 2,  2,  3,  3,  4,  4,  5,  5,  6, 6,
                                           7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 0, 0};
    DeflateWriter w;
    w.Bits(1, 1);
    w.Bits(1, 2);
    for (size_t i = 0; i < symbolsAndFields.size(); ++i) {
        const int s = symbolsAndFields[i];
        w.FixedLiteral(s);
        if (s > 256 && s < 286) {
            w.Bits(symbolsAndFields[++i], kLengthExtra[s - 257]);
            const int code = symbolsAndFields[++i];
            w.Code(code, 5);
            w.Bits(symbolsAndFields[++i], kDistanceExtra[code]);
        }
    }
    w.FixedLiteral(256);
    return w.Finish();
}

std::vector<HandStream> HandStreams() {
    std::vector<HandStream> cases;
    cases.push_back({"ValidFixedBlock", FixedBlock({'a', 'b', 'c', 258, 0, 2, 0}), 7, 1, 7});
    cases.push_back({"DistanceBeforeTheStart", FixedBlock({'a', 258, 0, 1, 0}), 5, 0, 0});
    cases.push_back({"DistanceCode30", FixedBlock({'a', 'b', 258, 0, 30, 0}), 6, 0, 0});
    cases.push_back({"LiteralSymbol286", FixedBlock({'a', 286}), 2, 0, 0});
    // Claims more than the stream holds: the final block ends first.
    cases.push_back({"ShorterThanClaimed", FixedBlock({'a', 'b'}), 5, 0, 2});
    // Claims less: stops at the claim, never writes beyond it.
    cases.push_back({"LongerThanClaimed", FixedBlock({'a', 'b', 'c', 'd'}), 2, 1, 2});
    {
        DeflateWriter w;
        w.Bits(1, 1);
        w.Bits(3, 2);
        cases.push_back({"ReservedBlockType", w.Finish(), 1, 0, 0});
    }
    {
        // HLIT 287 (5 bits of 30) is refused.
        DeflateWriter w;
        w.Bits(1, 1);
        w.Bits(2, 2);
        w.Bits(30, 5);
        w.Bits(0, 5);
        w.Bits(0, 4);
        w.Bits(0, 32);
        cases.push_back({"TooManyLiteralCodes", w.Finish(), 1, 0, 0});
    }
    {
        // Code-length code: every length 1 (over-subscribed).
        DeflateWriter w;
        w.Bits(1, 1);
        w.Bits(2, 2);
        w.Bits(0, 5);
        w.Bits(0, 5);
        w.Bits(15, 4);
        for (int i = 0; i < 19; ++i) w.Bits(1, 3);
        w.Bits(0, 32);
        cases.push_back({"OversubscribedCodeLengths", w.Finish(), 1, 0, 0});
    }
    {
        // A repeat (16) with no previous length.
        DeflateWriter w;
        w.Bits(1, 1);
        w.Bits(2, 2);
        w.Bits(0, 5);
        w.Bits(0, 5);
        w.Bits(0, 4);  // HCLEN 4: lengths of 16, 17, 18, 0
        w.Bits(1, 3);  // 16: length 1 -> code 0
        w.Bits(1, 3);  // 17: length 1 -> code 1
        w.Bits(0, 3);
        w.Bits(0, 3);
        w.Code(0, 1);  // symbol 16 first
        w.Bits(0, 2);
        w.Bits(0, 32);
        cases.push_back({"RepeatWithoutPrevious", w.Finish(), 1, 0, 0});
    }
    {
        // Stored block whose length runs past the stream.
        Bytes s = {0x01, 0x10, 0x00, 0xEF, 0xFF, 'x', 'y'};
        cases.push_back({"StoredLengthPastTheEnd", s, 16, 0, 0});
    }
    cases.push_back({"TruncatedMidBlock", Bytes{0x4B, 0x4C}, 4, 0, 4});
    return cases;
}

class InflateHandStream : public ::testing::TestWithParam<HandStream> {};

TEST_P(InflateHandStream, GivesTheDocumentedResult) {
    const HandStream& c = GetParam();
    const Result r = RunInflate(c.stream, c.size);
    EXPECT_EQ(r.ok, c.ok);
    EXPECT_LE(r.out.size(), c.maxWritten);
    EXPECT_LE(r.out.size(), c.size);
}

INSTANTIATE_TEST_SUITE_P(Streams, InflateHandStream, ::testing::ValuesIn(HandStreams()),
                         [](const ::testing::TestParamInfo<HandStream>& info) {
                             return std::string(info.param.name);
                         });

// A bomb: a few megabytes of fixed-code matches that would inflate to
// 64 MiB. The reader never writes beyond the claimed size: a claim that ends
// on a symbol boundary yields a valid prefix; one inside a match fails (the
// stream would write past it).
TEST(Inflate, BombStopsAtTheClaimedSize) {
    std::vector<int> symbols = {0};
    for (int i = 0; i < (64 << 20) / 258; ++i) symbols.insert(symbols.end(), {285, 0, 0, 0});
    const Bytes stream = FixedBlock(symbols);
    ASSERT_LT(stream.size(), 8u << 20);

    const uint32_t boundary = 1 + 258 * 4000;
    Result r = RunInflate(stream, boundary);
    EXPECT_EQ(r.ok, 1);
    EXPECT_EQ(r.out.size(), boundary);
    EXPECT_TRUE(std::all_of(r.out.begin(), r.out.end(), [](uint8_t b) { return b == 0; }));

    r = RunInflate(stream, 1u << 20);
    EXPECT_EQ(r.ok, 0);
    EXPECT_LE(r.out.size(), 1u << 20);
}

// Every allocation the inflate makes may fail: it reports 0, never crashes.
TEST(Inflate, AllocationFailuresFailCleanly) {
    const Bytes data = TextBytes(100000, 2);
    const Bytes stream = ZlibDeflateRaw(data, 6);
    int failures = 0;
    for (int skip = 0; skip < 32; ++skip) {
        nplat::fault::Scope fault(nplat::fault::Kind::kHeap, skip);
        const Result r = RunInflate(stream, static_cast<uint32_t>(data.size()));
        if (!r.ok) {
            ++failures;
            continue;
        }
        EXPECT_TRUE(r.out == data);
        break;
    }
    EXPECT_GT(failures, 0);
}

}  // namespace
}  // namespace ncbtest::archive
