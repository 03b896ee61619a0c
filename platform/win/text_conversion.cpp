// UTF-8 / UTF-16 transcoding for the Windows-shaped conversion calls.
//
// One pass decodes and writes through a small sink that counts when there is
// no destination and stops at the first unit that does not fit, so asking for
// the size and converting share every rule. Ill-formed UTF-8 is replaced per
// maximal subpart (the Unicode recommendation that Windows follows): a
// sequence is cut at the first byte that cannot continue it, and that byte
// starts the next attempt.
//
// Not here: real ANSI code pages, normalisation (MB_PRECOMPOSED and friends
// are accepted and ignored), best-fit mappings.
#include "platform/win/text_conversion.h"

#include <climits>
#include <cstddef>

namespace nplat {
namespace {

constexpr uint32_t kReplacement = 0xFFFD;

bool IsAnsiCodePage(uint32_t codePage) {
    return codePage == CP_ACP || codePage == CP_OEMCP || codePage == CP_THREAD_ACP;
}

// Writes units into dst, or only counts them when capacity is 0.
template <typename Unit>
class Sink {
  public:
    Sink(Unit* dst, int capacity) : m_dst(dst), m_capacity(capacity) {}

    void Put(Unit unit) {
        if (m_count == INT_MAX) {
            m_overflow = true;
            return;
        }
        if (m_capacity) {
            if (m_count >= m_capacity) {
                m_overflow = true;
                return;
            }
            m_dst[m_count] = unit;
        }
        ++m_count;
    }
    bool Overflow() const { return m_overflow; }
    int Count() const { return m_count; }

  private:
    Unit* m_dst;
    int m_capacity;
    int m_count = 0;
    bool m_overflow = false;
};

// Decodes one UTF-8 sequence at src[0..len); sets *used to the bytes it
// consumed and returns the code point, or kReplacement with *valid false.
uint32_t DecodeUtf8(const uint8_t* src, int len, int* used, bool* valid) {
    uint8_t lead = src[0];
    *used = 1;
    *valid = true;
    if (lead < 0x80) return lead;
    int extra;
    uint8_t lo = 0x80, hi = 0xBF;  // range of the second byte
    uint32_t cp;
    if (lead >= 0xC2 && lead <= 0xDF) {
        extra = 1;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        extra = 2;
        cp = lead & 0x0F;
        if (lead == 0xE0) lo = 0xA0;  // no overlongs
        if (lead == 0xED) hi = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        extra = 3;
        cp = lead & 0x07;
        if (lead == 0xF0) lo = 0x90;  // no overlongs
        if (lead == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
    } else {
        *valid = false;
        return kReplacement;
    }
    for (int i = 1; i <= extra; ++i) {
        if (i >= len || src[i] < lo || src[i] > hi) {
            *valid = false;
            return kReplacement;
        }
        cp = (cp << 6) | (src[i] & 0x3F);
        *used = i + 1;
        lo = 0x80;
        hi = 0xBF;
    }
    return cp;
}

void PutUtf16(Sink<WCHAR>& sink, uint32_t cp) {
    if (cp < 0x10000) {
        sink.Put(static_cast<WCHAR>(cp));
        return;
    }
    cp -= 0x10000;
    sink.Put(static_cast<WCHAR>(0xD800 | (cp >> 10)));
    sink.Put(static_cast<WCHAR>(0xDC00 | (cp & 0x3FF)));
}

void PutUtf8(Sink<char>& sink, uint32_t cp) {
    if (cp < 0x80) {
        sink.Put(static_cast<char>(cp));
    } else if (cp < 0x800) {
        sink.Put(static_cast<char>(0xC0 | (cp >> 6)));
        sink.Put(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        sink.Put(static_cast<char>(0xE0 | (cp >> 12)));
        sink.Put(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        sink.Put(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        sink.Put(static_cast<char>(0xF0 | (cp >> 18)));
        sink.Put(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        sink.Put(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        sink.Put(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Decodes one UTF-16 character at src[0..len); a lone surrogate gives
// kReplacement with *valid false.
uint32_t DecodeUtf16(const WCHAR* src, int len, int* used, bool* valid) {
    uint32_t unit = src[0];
    *used = 1;
    *valid = true;
    if (unit < 0xD800 || unit > 0xDFFF) return unit;
    if (unit <= 0xDBFF && len > 1 && src[1] >= 0xDC00 && src[1] <= 0xDFFF) {
        *used = 2;
        return 0x10000 + ((unit - 0xD800) << 10) + (src[1] - 0xDC00);
    }
    *valid = false;
    return kReplacement;
}

bool ArgumentsValid(const void* src, int srcLen, const void* dst, int dstLen) {
    return src && srcLen != 0 && srcLen >= -1 && dstLen >= 0 && (dst || dstLen == 0);
}

template <typename Unit>
int LengthWithTerminator(const Unit* src) {
    size_t n = 0;
    while (src[n]) ++n;
    return n + 1 > static_cast<size_t>(INT_MAX) ? -1 : static_cast<int>(n + 1);
}

}  // namespace

int MultiByteToWideChar(uint32_t codePage, DWORD flags, const char* src, int srcLen, WCHAR* dst,
                        int dstLen) {
    if (!ArgumentsValid(src, srcLen, dst, dstLen)) return 0;
    if (codePage == CP_UTF8) {
        if (flags & ~MB_ERR_INVALID_CHARS) return 0;
    } else if (!IsAnsiCodePage(codePage)) {
        return 0;
    }
    int len = srcLen == -1 ? LengthWithTerminator(src) : srcLen;
    if (len < 0) return 0;

    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(src);
    Sink<WCHAR> sink(dst, dstLen);
    for (int pos = 0; pos < len && !sink.Overflow();) {
        int used;
        bool valid;
        uint32_t cp = DecodeUtf8(bytes + pos, len - pos, &used, &valid);
        if (!valid && (flags & MB_ERR_INVALID_CHARS)) return 0;
        PutUtf16(sink, cp);
        pos += used;
    }
    return sink.Overflow() ? 0 : sink.Count();
}

int WideCharToMultiByte(uint32_t codePage, DWORD flags, const WCHAR* src, int srcLen, char* dst,
                        int dstLen, const char* defaultChar, BOOL* usedDefaultChar) {
    if (!ArgumentsValid(src, srcLen, dst, dstLen)) return 0;
    if (codePage == CP_UTF8) {
        if ((flags & ~WC_ERR_INVALID_CHARS) || defaultChar || usedDefaultChar) return 0;
    } else if (!IsAnsiCodePage(codePage)) {
        return 0;
    }
    int len = srcLen == -1 ? LengthWithTerminator(src) : srcLen;
    if (len < 0) return 0;

    bool replaced = false;
    Sink<char> sink(dst, dstLen);
    for (int pos = 0; pos < len && !sink.Overflow();) {
        int used;
        bool valid;
        uint32_t cp = DecodeUtf16(src + pos, len - pos, &used, &valid);
        if (!valid) {
            if (flags & WC_ERR_INVALID_CHARS) return 0;
            replaced = true;
        }
        PutUtf8(sink, cp);
        pos += used;
    }
    if (sink.Overflow()) return 0;
    if (usedDefaultChar) *usedDefaultChar = replaced ? 1 : 0;
    return sink.Count();
}

}  // namespace nplat
