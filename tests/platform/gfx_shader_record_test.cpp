// Shader records: a well-formed record parses to its version, number,
// sampler count and GLSL text; every kind of damage is refused without
// reading past the bytes given.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/platform/gfx_test_support.h"

namespace {

using namespace nplat;
using gfxtests::MakeShaderRecord;

TEST(GfxShaderRecord, ParsesAWellFormedRecord) {
    std::vector<DWORD> r = MakeShaderRecord(37, D3DPS_VERSION_2_0, 3, "precision mediump float;");
    ShaderRecordInfo info;
    ASSERT_EQ(ParseShaderRecord(r.data(), r.size() * 4, &info), 1);
    EXPECT_EQ(info.version, D3DPS_VERSION_2_0);
    EXPECT_EQ(info.number, 37u);
    EXPECT_EQ(info.samplerCount, 3u);
    EXPECT_EQ(std::string(info.glsl, info.glslLength), "precision mediump float;");
    EXPECT_EQ(info.tokenBytes, r.size() * 4);
    EXPECT_TRUE(info.IsPixelShader());
    EXPECT_EQ(ShaderRecordTokenBytes(r.data()), r.size() * 4);
}

struct Damage {
    const char* name;
    void (*apply)(std::vector<DWORD>* r, size_t* bytes);
};

const Damage kDamages[] = {
    {"truncated", [](std::vector<DWORD>*, size_t* bytes) { *bytes -= 4; }},
    {"unknown_version", [](std::vector<DWORD>* r, size_t*) { (*r)[0] = 0xFFFF0300; }},
    {"no_comment", [](std::vector<DWORD>* r, size_t*) { (*r)[1] = 0x00000001; }},
    {"bad_magic", [](std::vector<DWORD>* r, size_t*) { (*r)[2] ^= 1; }},
    {"number_too_big", [](std::vector<DWORD>* r, size_t*) { (*r)[3] = 43; }},
    {"pixel_number_on_vertex", [](std::vector<DWORD>* r, size_t*) { (*r)[0] = D3DVS_VERSION_2_0; }},
    {"too_many_samplers", [](std::vector<DWORD>* r, size_t*) { (*r)[4] = 17; }},
    {"missing_end", [](std::vector<DWORD>* r, size_t*) { r->back() = 0; }},
    {"comment_too_long", [](std::vector<DWORD>* r, size_t*) { (*r)[1] += 1u << 16; }},
    {"comment_too_short", [](std::vector<DWORD>* r, size_t*) { (*r)[1] = 0x0002FFFE; }},
};

class GfxShaderRecordDamage : public ::testing::TestWithParam<Damage> {};

TEST_P(GfxShaderRecordDamage, IsRefused) {
    std::vector<DWORD> r = MakeShaderRecord(12);
    size_t bytes = r.size() * 4;
    GetParam().apply(&r, &bytes);
    // Copy into an allocation of exactly `bytes` so a read past it is caught
    // under AddressSanitizer.
    std::vector<uint8_t> exact(bytes);
    std::memcpy(exact.data(), r.data(), std::min(bytes, r.size() * 4));
    ShaderRecordInfo info;
    info.number = 99;
    EXPECT_EQ(ParseShaderRecord(exact.data(), exact.size(), &info), 0);
    EXPECT_EQ(info.number, 99u);
}

INSTANTIATE_TEST_SUITE_P(Damages, GfxShaderRecordDamage, ::testing::ValuesIn(kDamages),
                         [](const ::testing::TestParamInfo<Damage>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
