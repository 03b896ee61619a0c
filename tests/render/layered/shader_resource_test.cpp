// Shader resource 101 as the build embeds it, read back through the resource
// lookup and the device layer's record parser, against the GLSL sources and
// the manifest in the source tree: 43 records in order, each with the version
// token of its profile, its sampler count and exactly its source text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "platform/gfx/shader_record.h"
#include "platform/kernel/resource.h"

namespace ncbtest::layered {
namespace {

struct ManifestLine {
    int number;
    std::string profile;
    int samplers;
    std::string file;
};

std::vector<ManifestLine> ReadManifest(const std::string& dir) {
    std::ifstream in(dir + "/shaders.manifest");
    std::vector<ManifestLine> lines;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        ManifestLine m;
        std::string samplers;
        fields >> m.number >> m.profile >> samplers >> m.file;
        m.samplers = samplers == "-"
                         ? 0
                         : 1 + static_cast<int>(std::count(samplers.begin(), samplers.end(), ','));
        lines.push_back(m);
    }
    return lines;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(ShaderResource, RecordsMatchTheSources) {
    const std::string dir = std::string(NCB_SOURCE_DIR) + "/render/layered/shaders";
    const std::vector<ManifestLine> manifest = ReadManifest(dir);
    ASSERT_EQ(manifest.size(), 43u);

    nplat::HRSRC found = nplat::FindResourceA(nullptr, nplat::MAKEINTRESOURCEA(101), "shader");
    ASSERT_NE(found, nullptr);
    const auto* bytes =
        static_cast<const uint8_t*>(nplat::LockResource(nplat::LoadResource(nullptr, found)));
    ASSERT_NE(bytes, nullptr);
    const size_t total = nplat::SizeofResource(nullptr, found);
    size_t offset = 0;
    for (const ManifestLine& m : manifest) {
        SCOPED_TRACE(m.file);
        ASSERT_LE(offset + 4, total);
        uint32_t length;
        std::memcpy(&length, bytes + offset, 4);
        ASSERT_LE(offset + 4 + length, total);
        ASSERT_EQ(reinterpret_cast<uintptr_t>(bytes + offset + 4) % 4, 0u);
        nplat::ShaderRecordInfo info;
        ASSERT_EQ(nplat::ParseShaderRecord(bytes + offset + 4, length, &info), 1);
        EXPECT_EQ(info.tokenBytes, length);
        EXPECT_EQ(static_cast<int>(info.number), m.number);
        EXPECT_EQ(static_cast<int>(info.samplerCount), m.samplers);
        const uint32_t want = m.profile == "vs_2_0"   ? 0xFFFE0200u
                              : m.profile == "ps_2_0" ? 0xFFFF0200u
                                                      : 0xFFFF0201u;
        EXPECT_EQ(info.version, want);
        EXPECT_EQ(std::string(info.glsl, info.glslLength), ReadFile(dir + "/" + m.file));
        offset += 4 + length;
    }
    EXPECT_EQ(offset, total);
}

TEST(ShaderResource, LookupRefusesWhatItDoesNotHold) {
    EXPECT_EQ(nplat::FindResourceA(nullptr, nplat::MAKEINTRESOURCEA(102), "shader"), nullptr);
    EXPECT_EQ(nplat::FindResourceA(nullptr, nplat::MAKEINTRESOURCEA(101), "image"), nullptr);
    EXPECT_EQ(nplat::FindResourceA(nullptr, "SHADER", "shader"), nullptr);
    EXPECT_EQ(nplat::FindResourceA(nullptr, nplat::MAKEINTRESOURCEA(101), nullptr), nullptr);
    EXPECT_EQ(nplat::LockResource(nullptr), nullptr);
    nplat::resourcetest::HideResource(101, "shader", true);
    EXPECT_EQ(nplat::FindResourceA(nullptr, nplat::MAKEINTRESOURCEA(101), "shader"), nullptr);
    nplat::resourcetest::HideResource(101, "shader", false);
    EXPECT_NE(nplat::FindResourceA(nullptr, nplat::MAKEINTRESOURCEA(101), "shader"), nullptr);
}

}  // namespace
}  // namespace ncbtest::layered
