// `ncodec` on GIF files as a user runs it: `info` lists the screen, loop
// count and every frame with its delay, transparency and disposal, and says
// why a damaged file is refused; `convert` takes a GIF's first frame to PNG
// and back, and says plainly when a GIF would pass the encoder's 1 MiB cap.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <random>
#include <string>
#include <vector>

#include "tests/image/gif/gif_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::gif {
namespace {

int Ncodec(const std::string& args, std::string* output) {
    Bytes out;
    const std::string command = std::string("'") + NCB_NCODEC_PATH + "' " + args + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0)
        out.insert(out.end(), chunk, chunk + n);
    const int status = pclose(pipe);
    *output = Text(out);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Quoted(const std::string& path) { return "'" + path + "'"; }

TEST(GifCli, InfoListsFramesDelaysAndTransparency) {
    std::string out;
    ASSERT_EQ(0, Ncodec("info " + Quoted(TestDataPath("gif/made/anim_transparency.gif")), &out))
        << out;
    EXPECT_NE(out.find("format: GIF"), std::string::npos) << out;
    EXPECT_NE(out.find("screen: 48 x 48"), std::string::npos) << out;
    EXPECT_NE(out.find("frames: 3"), std::string::npos) << out;
    EXPECT_NE(out.find("transparent index"), std::string::npos) << out;
    EXPECT_NE(out.find("decode: ok, RGB32 48 x 48"), std::string::npos) << out;

    ASSERT_EQ(0, Ncodec("info " + Quoted(TestDataPath("gif/made/gce_delay7_then_none.gif")), &out));
    EXPECT_NE(out.find("delay 70 ms"), std::string::npos) << out;
    EXPECT_NE(out.find("delay none"), std::string::npos) << out;
}

TEST(GifCli, InfoSaysWhyAFileIsRefused) {
    std::string out;
    EXPECT_NE(0, Ncodec("info " + Quoted(TestDataPath("gif/made/subblocks_1025.gif")), &out));
    EXPECT_NE(out.find("refused: more than 1024 sub-blocks"), std::string::npos) << out;
}

TEST(GifCli, ConvertToPngAndBack) {
    const std::string dir = ScratchDir();
    std::string out;
    ASSERT_EQ(0, Ncodec("convert " + Quoted(TestDataPath("gif/made/rose.gif")) + " " +
                            Quoted(dir + "/rose.png"),
                        &out))
        << out;
    ASSERT_EQ(
        0, Ncodec("convert " + Quoted(dir + "/rose.png") + " " + Quoted(dir + "/rose.gif"), &out))
        << out;
    // The rose has at most 256 colours: the round trip keeps every pixel.
    const Decoded a = DecodeAll(ReadFile(TestDataPath("gif/made/rose.gif")));
    const Decoded b = DecodeAll(ReadFile(dir + "/rose.gif"));
    ASSERT_EQ(b.frames.size(), 1u);
    ASSERT_EQ(a.frames[0].pixels.size(), b.frames[0].pixels.size());
    for (size_t i = 0; i < a.frames[0].pixels.size(); ++i)
        ASSERT_EQ(a.frames[0].pixels[i] & 0xFFFFFF, b.frames[0].pixels[i] & 0xFFFFFF) << i;
}

TEST(GifCli, ConvertSaysWhenTheGifWouldPassOneMebibyte) {
    const std::string dir = ScratchDir();
    // 1100 x 1000 noise as PPM: no GIF of it fits in 1 MiB.
    std::string ppm = "P6\n1100 1000\n255\n";
    std::mt19937 rng(1);
    for (int i = 0; i < 1100 * 1000 * 3; ++i) ppm.push_back(static_cast<char>(rng()));
    ASSERT_TRUE(WriteFile(dir + "/noise.ppm", Bytes(ppm.begin(), ppm.end())));
    std::string out;
    EXPECT_NE(0, Ncodec("convert " + Quoted(dir + "/noise.ppm") + " " + Quoted(dir + "/noise.gif"),
                        &out));
    EXPECT_NE(out.find("1 MiB"), std::string::npos) << out;
}

TEST(GifCli, DemoStepWritesAnAnimationInfoReads) {
    const std::string dir = ScratchDir();
    std::string out;
    ASSERT_EQ(0, Ncodec("demo --step gif --out " + Quoted(dir), &out)) << out;
    ASSERT_EQ(0, Ncodec("info " + Quoted(dir + "/gif_animation.gif"), &out)) << out;
    EXPECT_NE(out.find("frames: 24"), std::string::npos) << out;
    EXPECT_NE(out.find("total delay: 1440 ms"), std::string::npos) << out;
}

}  // namespace
}  // namespace ncbtest::gif
