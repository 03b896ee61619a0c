// `ncodec show` as a user runs it: two PPM pictures composed through the
// video render come out as one picture of the first one's size, the second
// laid over the right edge at a quarter size; bad arguments are refused.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::string Scratch(const std::string& stem) {
    return ::testing::TempDir() + "ncb_show_cli_" + std::to_string(getpid()) + "_" + stem;
}

int RunShow(const std::string& args) {
    const std::string command = std::string(NCB_NCODEC_PATH) + " show " + args + " >/dev/null 2>&1";
    const int rc = std::system(command.c_str());
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

void WritePpm(const std::string& path, int w, int h, unsigned char r, unsigned char g,
              unsigned char b) {
    std::ofstream f(path, std::ios::binary);
    f << "P6\n" << w << " " << h << "\n255\n";
    for (int i = 0; i < w * h; ++i) f << r << g << b;
}

struct Ppm {
    int w = 0, h = 0;
    std::vector<unsigned char> rgb;
    unsigned Pixel(int x, int y) const {
        const unsigned char* p = &rgb[(static_cast<size_t>(y) * w + x) * 3];
        return p[0] << 16 | p[1] << 8 | p[2];
    }
};

Ppm ReadPpm(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    Ppm p;
    std::string magic;
    int max = 0;
    f >> magic >> p.w >> p.h >> max;
    f.get();
    p.rgb.resize(static_cast<size_t>(p.w) * p.h * 3);
    f.read(reinterpret_cast<char*>(p.rgb.data()), static_cast<std::streamsize>(p.rgb.size()));
    return p;
}

TEST(ShowCli, ComposesPicturesIntoTheFirstOnesView) {
    const std::string a = Scratch("a.ppm"), b = Scratch("b.ppm"), out = Scratch("out.ppm");
    WritePpm(a, 64, 48, 200, 0, 0);
    WritePpm(b, 16, 12, 0, 0, 200);
    ASSERT_EQ(RunShow(a + " " + b + " --text Hi --out " + out), 0);
    const Ppm p = ReadPpm(out);
    ASSERT_EQ(p.w, 64);
    ASSERT_EQ(p.h, 48);
    EXPECT_EQ(p.Pixel(10, 40), 0xC80000u);  // the first picture
    // The second, at the top right, 16 x 12, blended by its own (opaque)
    // alpha, which the per-pixel blend weighs as 127/128.
    const unsigned over = p.Pixel(56, 6);
    EXPECT_LE(over >> 16, 2u);
    EXPECT_NEAR(static_cast<int>(over & 0xFF), 200, 3);
    EXPECT_EQ(p.Pixel(56, 20), 0xC80000u);  // below it the first again
}

TEST(ShowCli, RefusesMissingPicturesAndArguments) {
    EXPECT_EQ(RunShow(""), 2);
    EXPECT_EQ(RunShow("--frobnicate x.ppm"), 2);
    EXPECT_NE(RunShow(Scratch("missing.ppm") + " --out " + Scratch("o.ppm")), 0);
    const std::string a = Scratch("c.ppm");
    WritePpm(a, 8, 8, 1, 2, 3);
    EXPECT_NE(RunShow(a + " --out " + Scratch("o.unknown")), 0);
}

}  // namespace
