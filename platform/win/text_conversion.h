// UTF-8 <-> UTF-16 conversion with the calling conventions of Windows'
// MultiByteToWideChar and WideCharToMultiByte, which the text and plug-in
// code is written against.
//
// Conventions, as on Windows:
// - srcLen -1 means "up to and including the terminating zero", and the
//   terminator is then counted and written; a positive srcLen converts exactly
//   that many units and adds no terminator.
// - dstLen 0 asks for the required count (dst is not touched).
// - A too small destination, srcLen 0 or below -1, a null source, a negative
//   dstLen, or a null dst with dstLen > 0 gives 0.
// - Ill-formed input becomes U+FFFD, one per maximal ill-formed subpart
//   (lone surrogates too), unless MB_ERR_INVALID_CHARS / WC_ERR_INVALID_CHARS
//   asks for failure (0) instead.
// - Supplementary characters become surrogate pairs.
//
// The ANSI code pages (CP_ACP, CP_OEMCP, CP_THREAD_ACP) are UTF-8 here; any
// other code page gives 0. With CP_UTF8, Windows accepts no flags other than
// the error flag and no default character: those give 0 too.
//
// Thread safety: pure functions.
#pragma once

#include <cstdint>

#include "ncodecbase/win_types.h"

namespace nplat {

constexpr uint32_t CP_OEMCP = 1;
constexpr uint32_t CP_THREAD_ACP = 3;

constexpr DWORD MB_PRECOMPOSED = 0x1;
constexpr DWORD MB_ERR_INVALID_CHARS = 0x8;
constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;

// Returns the number of UTF-16 units written (or needed when dstLen is 0),
// 0 on failure.
int MultiByteToWideChar(uint32_t codePage, DWORD flags, const char* src, int srcLen, WCHAR* dst,
                        int dstLen);

// Returns the number of bytes written (or needed when dstLen is 0), 0 on
// failure. defaultChar and usedDefaultChar must be null with CP_UTF8; with the
// ANSI code pages defaultChar is ignored (U+FFFD is used) and
// *usedDefaultChar tells whether a replacement happened.
int WideCharToMultiByte(uint32_t codePage, DWORD flags, const WCHAR* src, int srcLen, char* dst,
                        int dstLen, const char* defaultChar, BOOL* usedDefaultChar);

}  // namespace nplat
