// Parsing of shader records (format in shader_record.h). The parser trusts
// nothing: every length is checked against the bytes it was given, so a
// corrupt resource is refused rather than read past its end.
#include "platform/gfx/shader_record.h"

#include <cstring>

#include "platform/gfx/d3d9.h"

namespace nplat {

namespace {

uint32_t ReadWord(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;  // the library runs on little-endian x86-64 only
}

bool KnownVersion(uint32_t version) {
    return version == D3DVS_VERSION_2_0 || version == D3DPS_VERSION_2_0 ||
           version == D3DPS_VERSION_2_A;
}

// Words in the comment payload before the GLSL text: magic, number, samplers.
constexpr uint32_t kPayloadHeaderWords = 3;

}  // namespace

size_t ShaderRecordTokenBytes(const void* code) {
    if (!code) return 0;
    const uint8_t* p = static_cast<const uint8_t*>(code);
    if (!KnownVersion(ReadWord(p))) return 0;
    uint32_t comment = ReadWord(p + 4);
    if ((comment & 0xFFFF) != kShaderCommentToken) return 0;
    size_t payloadWords = comment >> 16;
    return 4 + 4 + payloadWords * 4 + 4;
}

int ParseShaderRecord(const void* code, size_t bytes, ShaderRecordInfo* info) {
    if (!code || !info || bytes < 8) return 0;
    size_t total = ShaderRecordTokenBytes(code);
    if (total == 0 || total > bytes) return 0;
    const uint8_t* p = static_cast<const uint8_t*>(code);
    uint32_t version = ReadWord(p);
    size_t payloadWords = ReadWord(p + 4) >> 16;
    if (payloadWords < kPayloadHeaderWords) return 0;
    const uint8_t* payload = p + 8;
    if (ReadWord(payload) != kShaderRecordMagic) return 0;
    uint32_t number = ReadWord(payload + 4);
    uint32_t samplers = ReadWord(payload + 8);
    if (number >= kShaderRecordCount || samplers > 16) return 0;
    bool pixel = (version & 0xFFFF0000u) == 0xFFFF0000u;
    if (pixel != (number >= 4)) return 0;
    if (ReadWord(payload + payloadWords * 4) != kShaderEndToken) return 0;

    const char* text = reinterpret_cast<const char*>(payload + kPayloadHeaderWords * 4);
    size_t textCapacity = (payloadWords - kPayloadHeaderWords) * 4;
    const void* nul = std::memchr(text, 0, textCapacity);
    size_t length = nul ? static_cast<size_t>(static_cast<const char*>(nul) - text) : textCapacity;

    info->version = version;
    info->number = number;
    info->samplerCount = samplers;
    info->glsl = text;
    info->glslLength = length;
    info->tokenBytes = total;
    return 1;
}

}  // namespace nplat
