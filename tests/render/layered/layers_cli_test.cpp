// `ncodec layers` as a user runs it: a JSON scene with a PNG bitmap drawn
// into a static layer and mapped twice (once 1:1, once doubled) comes out as
// a PNG whose pixels are the bitmap's; malformed scenes are refused with a
// message and a non-zero exit.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/png_codec.h"
#include "tests/support/test_paths.h"

namespace ncbtest::layered {
namespace {

int Ncodec(const std::string& args, std::string* output) {
    const std::string command = std::string("'") + NCB_NCODEC_PATH + "' " + args + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    char chunk[4096];
    size_t n;
    output->clear();
    while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) output->append(chunk, n);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void WriteFile(const std::string& path, const void* data, size_t size) {
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

// Writes a w x h RGB32 picture as PNG.
void WritePng(const std::string& path, const std::vector<uint32_t>& px, int w, int h) {
    CNCodecBase::VideoFormatInfoTag fmt{}, png{};
    ncb::InitVideoFormat(&fmt, VIDEO_FORMAT_RGB32, w, h);
    std::vector<uint32_t> copy(px);
    CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(copy.data(), w * h * 4, w * h * 4, nullptr);
    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    ASSERT_EQ(CNPngCodec::Encode(&fmt, &png, in, out, 0), 1);
    WriteFile(path, out->GetAddress(), static_cast<size_t>(out->GetDataSize()));
    in->Release();
    out->Release();
}

std::vector<uint32_t> ReadPng(const std::string& path, int* w, int* h) {
    std::ifstream f(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(f)), {});
    std::vector<uint32_t> px;
    if (bytes.empty()) return px;
    CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(
        bytes.data(), static_cast<int>(bytes.size()), static_cast<int>(bytes.size()), nullptr);
    CNCodecBase::VideoFormatInfoTag inFmt{}, outFmt{};
    CNCodecBuffer* decoded = nullptr;
    if (CNPngCodec::Decode(&inFmt, &outFmt, in, &decoded) == 1) {
        *w = outFmt.nWidth, *h = outFmt.nHeight;
        const auto* p = static_cast<const uint32_t*>(decoded->GetAddress());
        px.assign(p, p + outFmt.nWidth * outFmt.nHeight);
        decoded->Release();
    }
    in->Release();
    return px;
}

TEST(LayersCommand, ComposesTheScene) {
    const std::string dir = ScratchDir();
    std::vector<uint32_t> bitmap(16 * 8);
    for (int i = 0; i < 16 * 8; ++i) bitmap[i] = 0xFF000000u | (i * 0x010203u);
    WritePng(dir + "/tile.png", bitmap, 16, 8);
    const std::string scene = R"({"width": 64, "height": 40, "background": "#0000ff",
        "bitmaps": [{"id": 3, "file": "tile.png"}],
        "layers": [{"id": 1, "width": 16, "height": 8, "colour": "#ff000000",
                    "draw": [{"bitmap": 3, "x": 0, "y": 0}],
                    "mappings": [{"dest": [2, 3, 0, 0]},
                                 {"source": [0, 0, 16, 8], "dest": [20, 10, 32, 16]}]}]})";
    WriteFile(dir + "/scene.json", scene.data(), scene.size());
    std::string output;
    ASSERT_EQ(Ncodec("layers '" + dir + "/scene.json' --out '" + dir + "/out.png'", &output), 0)
        << output;
    int w = 0, h = 0;
    const std::vector<uint32_t> px = ReadPng(dir + "/out.png", &w, &h);
    ASSERT_EQ(w, 64);
    ASSERT_EQ(h, 40);
    EXPECT_EQ(px[0] & 0xFFFFFF, 0x0000FFu);
    int differ = 0;
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 16; ++x)
            differ += (px[(3 + y) * 64 + 2 + x] ^ bitmap[y * 16 + x]) & 0xFFFFFF;
    }
    EXPECT_EQ(differ, 0);
    EXPECT_NE(px[20 * 64 + 30] & 0xFFFFFF, 0x0000FFu);  // the doubled copy
    EXPECT_EQ(px[39 * 64 + 63] & 0xFFFFFF, 0x0000FFu);
}

TEST(LayersCommand, RefusesBrokenScenes) {
    const std::string dir = ScratchDir();
    const char* scenes[] = {
        "{\"width\": 10",                                                         // truncated
        "[1, 2]",                                                                 // not an object
        "{\"width\": 0, \"height\": 10}",                                         // no size
        "{\"width\": 10, \"height\": 10, \"background\": \"blue\"}",              // colour
        "{\"width\": 10, \"height\": 10, \"bitmaps\": [{\"file\": \"x.png\"}]}",  // missing file
        "{\"width\": 10, \"height\": 10, \"layers\": [{\"mappings\": [{\"dest\": [1]}]}]}",
    };
    for (const char* scene : scenes) {
        WriteFile(dir + "/bad.json", scene, std::string(scene).size());
        std::string output;
        EXPECT_EQ(Ncodec("layers '" + dir + "/bad.json' --out '" + dir + "/o.png'", &output), 1)
            << scene;
        EXPECT_NE(output.find("ncodec layers:"), std::string::npos) << scene;
    }
    std::string output;
    EXPECT_NE(Ncodec("layers '" + dir + "/bad.json'", &output), 0);
    EXPECT_NE(Ncodec("layers '" + dir + "/bad.json' --out x.png --device gl", &output), 0);
}

}  // namespace
}  // namespace ncbtest::layered
