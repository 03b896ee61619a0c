// UTF-8 <-> UTF-16 conversion: random text against glibc's iconv, the
// replacement of ill-formed input per maximal subpart (the examples of the
// Unicode standard), and the Windows calling conventions around lengths,
// buffers, flags and code pages.
#include "platform/win/text_conversion.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace nplat;

using U16 = std::u16string;

// iconv between two encodings; the oracle for well-formed text.
std::string Iconv(const char* to, const char* from, const void* data, size_t bytes) {
    iconv_t cd = iconv_open(to, from);
    EXPECT_NE(cd, reinterpret_cast<iconv_t>(-1));
    std::string out(bytes * 4 + 16, '\0');
    char* in = const_cast<char*>(static_cast<const char*>(data));
    char* dst = out.data();
    size_t inLeft = bytes, outLeft = out.size();
    EXPECT_NE(iconv(cd, &in, &inLeft, &dst, &outLeft), static_cast<size_t>(-1));
    iconv_close(cd);
    out.resize(out.size() - outLeft);
    return out;
}

U16 ToWide(const std::string& utf8, DWORD flags = 0, uint32_t codePage = CP_UTF8) {
    int n = MultiByteToWideChar(codePage, flags, utf8.data(), static_cast<int>(utf8.size()),
                                nullptr, 0);
    U16 out(static_cast<size_t>(n), u'\0');
    if (n > 0) {
        EXPECT_EQ(MultiByteToWideChar(codePage, flags, utf8.data(), static_cast<int>(utf8.size()),
                                      out.data(), n),
                  n);
    }
    return out;
}

std::string ToUtf8(const U16& wide, DWORD flags = 0) {
    int n = WideCharToMultiByte(CP_UTF8, flags, wide.data(), static_cast<int>(wide.size()), nullptr,
                                0, nullptr, nullptr);
    std::string out(static_cast<size_t>(n), '\0');
    if (n > 0) {
        EXPECT_EQ(WideCharToMultiByte(CP_UTF8, flags, wide.data(), static_cast<int>(wide.size()),
                                      out.data(), n, nullptr, nullptr),
                  n);
    }
    return out;
}

// Random scalar values from every encoding length, surrogates excluded.
std::u32string RandomText(std::mt19937& rng, size_t length) {
    std::uniform_int_distribution<int> band(0, 3);
    std::u32string text;
    while (text.size() < length) {
        char32_t c;
        switch (band(rng)) {
            case 0:
                c = std::uniform_int_distribution<char32_t>(1, 0x7F)(rng);
                break;
            case 1:
                c = std::uniform_int_distribution<char32_t>(0x80, 0x7FF)(rng);
                break;
            case 2:
                c = std::uniform_int_distribution<char32_t>(0x800, 0xFFFF)(rng);
                break;
            default:
                c = std::uniform_int_distribution<char32_t>(0x10000, 0x10FFFF)(rng);
                break;
        }
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        text.push_back(c);
    }
    return text;
}

TEST(TextConversion, RandomTextMatchesIconvBothWays) {
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    for (int round = 0; round < 200; ++round) {
        std::u32string text = RandomText(rng, 1 + round % 37);
        std::string utf8 = Iconv("UTF-8", "UTF-32LE", text.data(), text.size() * 4);
        std::string utf16 = Iconv("UTF-16LE", "UTF-32LE", text.data(), text.size() * 4);
        U16 wide(reinterpret_cast<const char16_t*>(utf16.data()), utf16.size() / 2);
        ASSERT_EQ(ToWide(utf8), wide);
        ASSERT_EQ(ToUtf8(wide), utf8);
    }
}

struct IllFormed {
    const char* name;
    std::string utf8;
    U16 wide;
};

class IllFormedUtf8Test : public ::testing::TestWithParam<IllFormed> {};

TEST_P(IllFormedUtf8Test, BecomesReplacementCharactersOrFailsOnRequest) {
    const IllFormed& c = GetParam();
    EXPECT_EQ(ToWide(c.utf8), c.wide);
    EXPECT_EQ(ToWide(c.utf8, 0, CP_ACP), c.wide);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, c.utf8.data(),
                                  static_cast<int>(c.utf8.size()), nullptr, 0),
              0);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IllFormedUtf8Test,
    ::testing::Values(
        IllFormed{"LoneContinuation", "a\x80z", u"a\uFFFDz"},
        IllFormed{"OverlongTwoByte", "\xC0\xAF", u"\uFFFD\uFFFD"},
        IllFormed{"OverlongThreeByte", "\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
        IllFormed{"OverlongFourByte", "\xF0\x80\x80\xAF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        IllFormed{"EncodedSurrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        IllFormed{"AboveMaximum", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        IllFormed{"InvalidLeads", "\xF5\xF8\xFE\xFF", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        IllFormed{"TruncatedAtEnd", "ok\xE2\x82", u"ok\uFFFD"},
        IllFormed{"TruncatedBeforeAscii", "\xF0\x9F\x98x", u"\uFFFDx"},
        IllFormed{"TruncatedBeforeLead", "\xE2\x82\xE2\x82\xAC", u"\uFFFD\u20AC"},
        // The Unicode standard's example of maximal subparts.
        IllFormed{"StandardExample", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                  u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"}),
    [](const auto& info) { return std::string(info.param.name); });

struct IllFormedWide {
    const char* name;
    U16 wide;
    std::string utf8;
};

class IllFormedUtf16Test : public ::testing::TestWithParam<IllFormedWide> {};

TEST_P(IllFormedUtf16Test, LoneSurrogatesBecomeReplacementCharacters) {
    const IllFormedWide& c = GetParam();
    EXPECT_EQ(ToUtf8(c.wide), c.utf8);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, c.wide.data(),
                                  static_cast<int>(c.wide.size()), nullptr, 0, nullptr, nullptr),
              0);
    BOOL used = 0;
    char buffer[64];
    EXPECT_GT(WideCharToMultiByte(CP_ACP, 0, c.wide.data(), static_cast<int>(c.wide.size()), buffer,
                                  sizeof(buffer), nullptr, &used),
              0);
    EXPECT_EQ(used, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IllFormedUtf16Test,
    ::testing::Values(IllFormedWide{"LoneHigh", U16{u'a', 0xD83D, u'b'},
                                    "a\xEF\xBF\xBD"
                                    "b"},
                      IllFormedWide{"LoneLow", U16{0xDE00}, "\xEF\xBF\xBD"},
                      IllFormedWide{"HighAtEnd", U16{u'x', 0xD800}, "x\xEF\xBF\xBD"},
                      IllFormedWide{"Reversed", U16{0xDE00, 0xD83D}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
                      IllFormedWide{"TwoHighs", U16{0xD83D, 0xD83D, 0xDE00},
                                    "\xEF\xBF\xBD\xF0\x9F\x98\x80"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TextConversion, SupplementaryCharactersUseSurrogatePairs) {
    EXPECT_EQ(ToWide("\xF0\x9F\x98\x80"), (U16{0xD83D, 0xDE00}));
    EXPECT_EQ(ToWide("\xF4\x8F\xBF\xBF"), (U16{0xDBFF, 0xDFFF}));
    EXPECT_EQ(ToUtf8(U16{0xD800, 0xDC00}), "\xF0\x90\x80\x80");
}

TEST(TextConversion, MinusOneLengthIncludesTheTerminator) {
    WCHAR wide[8];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -1, nullptr, 0), 3);
    ASSERT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -1, wide, 8), 3);
    EXPECT_EQ(U16(wide, 3), (U16{u'h', 0xE9, 0}));

    char narrow[8];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"h\u00E9", -1, nullptr, 0, nullptr, nullptr), 4);
    ASSERT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"h\u00E9", -1, narrow, 8, nullptr, nullptr), 4);
    EXPECT_EQ(std::string(narrow, 4), std::string("h\xC3\xA9", 4));
}

TEST(TextConversion, ExplicitLengthCarriesOnPastZerosAndAddsNoTerminator) {
    std::string withZero("a\0b", 3);
    WCHAR wide[4] = {u'#', u'#', u'#', u'#'};
    ASSERT_EQ(MultiByteToWideChar(CP_UTF8, 0, withZero.data(), 3, wide, 4), 3);
    EXPECT_EQ(U16(wide, 4), (U16{u'a', 0, u'b', u'#'}));
}

TEST(TextConversion, DestinationMustHoldEverything) {
    const char* text = "\xE2\x82\xAC\xF0\x9F\x98\x80";  // 1 + 2 UTF-16 units
    WCHAR wide[3];
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, 3), 0);  // terminator does not fit
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 7, wide, 2), 0);   // pair does not fit
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 7, wide, 3), 3);
    char narrow[7];
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, wide, 3, narrow, 6, nullptr, nullptr), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, wide, 3, narrow, 7, nullptr, nullptr), 7);
}

struct BadCall {
    const char* name;
    uint32_t codePage;
    DWORD flags;
    bool nullSource;
    int srcLen;
    bool nullDest;
    int dstLen;
};

class BadCallTest : public ::testing::TestWithParam<BadCall> {};

TEST_P(BadCallTest, GivesZeroBothWays) {
    const BadCall& c = GetParam();
    WCHAR wide[16];
    char narrow[16];
    EXPECT_EQ(MultiByteToWideChar(c.codePage, c.flags & ~WC_ERR_INVALID_CHARS,
                                  c.nullSource ? nullptr : "abc", c.srcLen,
                                  c.nullDest ? nullptr : wide, c.dstLen),
              0);
    EXPECT_EQ(WideCharToMultiByte(c.codePage, c.flags & ~MB_ERR_INVALID_CHARS,
                                  c.nullSource ? nullptr : u"abc", c.srcLen,
                                  c.nullDest ? nullptr : narrow, c.dstLen, nullptr, nullptr),
              0);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadCallTest,
    ::testing::Values(BadCall{"NullSource", CP_UTF8, 0, true, 3, false, 16},
                      BadCall{"ZeroSourceLength", CP_UTF8, 0, false, 0, false, 16},
                      BadCall{"NegativeSourceLength", CP_UTF8, 0, false, -2, false, 16},
                      BadCall{"NegativeDestLength", CP_UTF8, 0, false, 3, false, -1},
                      BadCall{"NullDestWithLength", CP_UTF8, 0, false, 3, true, 16},
                      BadCall{"UnknownCodePage", 1252, 0, false, 3, false, 16},
                      BadCall{"UnknownFlagWithUtf8", CP_UTF8, 0x400, false, 3, false, 16}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TextConversion, AnsiCodePagesAreUtf8AndAcceptTheirUsualFlags) {
    for (uint32_t cp : {CP_ACP, CP_OEMCP, CP_THREAD_ACP})
        EXPECT_EQ(ToWide("gr\xC3\xBC\xC3\x9F", MB_PRECOMPOSED, cp), u"gr\u00FC\u00DF") << cp;
    // Windows rejects MB_PRECOMPOSED and default characters with CP_UTF8.
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_PRECOMPOSED, "a", 1, nullptr, 0), 0);
    BOOL used = 7;
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"a", 1, nullptr, 0, nullptr, &used), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"a", 1, nullptr, 0, "?", nullptr), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"a", 1, nullptr, 0, "?", &used), 1);
    EXPECT_EQ(used, 0);
}

}  // namespace
