// Shader records: the unit of the "shader" resource (id 101). The resource
// is 43 records numbered 0-42, each a little-endian u32 byte count N and then
// N bytes of a Direct3D 9-shaped token stream:
//
//   u32 version token   vs_2_0 0xFFFE0200, ps_2_0 0xFFFF0200, ps_2_a 0xFFFF0201
//   u32 comment token   0x0000FFFE | P << 16, P = payload length in 32-bit words
//   payload             "NCBS", u32 record number, u32 sampler count, then the
//                       GLSL ES 3.00 source text, NUL-padded to whole words
//   u32 end token       0x0000FFFF
//
// CreateVertexShader / CreatePixelShader receive a pointer to the version
// token; the software device runs the C++ formula of the record number, a GPU
// device compiles the GLSL text.
//
// Contract of the formulas, for whoever writes a record's GLSL: c0 is Config,
// c1 is Config2. Samplers are bound in the order the record lists them, and
// read texture-coordinate sets as follows: every sampler of a one-texture
// record (12-29) reads set 0, except a mask (A) which reads set 1; plane
// records read Y from set 0 and their chroma samplers (U, V, UV) from set 1,
// a mask from the set after the last one used (set 2, or set 1 for the
// tinted 33 and 39, which read Y and the mask only). De-interlacers read
// every sampler at set 0. A packed-YUV texture (AYUV in an A8R8G8B8 texture)
// holds Y in red, U in green, V in blue, alpha in alpha; an A8L8 UV plane has
// U in the first channel and V in alpha. De-interlacers take c0.x, c0.y =
// texel width and height of the full picture and c0.z = the parity of the
// rows that are kept (0: even rows, 1: odd rows); a planar source reads each
// sample's chroma from the field texture of the row that sample falls in
// (top: even rows); their output is opaque.
//
// Not here: parsing a real compiled shader's instruction stream.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nplat {

constexpr uint32_t kShaderRecordCount = 43;
constexpr uint32_t kShaderRecordMagic = 0x5342434E;  // "NCBS" read as a little-endian u32
constexpr uint32_t kShaderEndToken = 0x0000FFFF;
constexpr uint32_t kShaderCommentToken = 0x0000FFFE;

struct ShaderRecordInfo {
    uint32_t version = 0;        // the version token
    uint32_t number = 0;         // 0-42
    uint32_t samplerCount = 0;   // samplers the formula reads
    const char* glsl = nullptr;  // GLSL ES 3.00 text, not NUL-terminated
    size_t glslLength = 0;       // up to the first NUL of the padding
    size_t tokenBytes = 0;       // bytes of the whole token stream
    bool IsPixelShader() const { return (version & 0xFFFF0000u) == 0xFFFF0000u; }
};

// Parses the token stream at code, reading at most `bytes` bytes. 1 when it is
// well formed: a known version token, a comment carrying the payload with the
// magic, a record number below 43 that fits the version's kind (0-3 vertex,
// 4-42 pixel), at most 16 samplers, and the end token right after the
// comment. 0 otherwise, and *info is left unchanged.
int ParseShaderRecord(const void* code, size_t bytes, ShaderRecordInfo* info);

// The byte length of the token stream at code as its comment token declares
// it (what CreateVertexShader / CreatePixelShader read, as Direct3D takes no
// length either), or 0 when the first two tokens do not have the record's
// shape. Reads only the first two tokens.
size_t ShaderRecordTokenBytes(const void* code);

}  // namespace nplat
