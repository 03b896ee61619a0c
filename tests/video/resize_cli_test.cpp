// `ncodec resize` as a user runs it: a PPM picture scaled as RGB32 and as
// 4:2:0 comes out as a PPM of the asked size whose flat areas keep their
// colour; a malformed size is refused with the usage exit code.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

std::string Scratch(const std::string& stem) {
    return ::testing::TempDir() + "ncb_resize_cli_" + std::to_string(getpid()) + "_" + stem;
}

int RunNcodec(const std::string& args) {
    const std::string command =
        std::string(NCB_NCODEC_PATH) + " resize " + args + " >/dev/null 2>&1";
    const int rc = std::system(command.c_str());
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

TEST(ResizeCli, ScalesAPpmBothWays) {
    const std::string in = Scratch("in.ppm");
    {
        std::ofstream f(in, std::ios::binary);
        f << "P6\n30 20\n255\n";
        for (int i = 0; i < 30 * 20; ++i)
            f << static_cast<char>(200) << static_cast<char>(100) << static_cast<char>(50);
    }
    for (const char* mode : {"", "--yuv420 "}) {
        const std::string out = Scratch("out.ppm");
        ASSERT_EQ(RunNcodec(std::string(mode) + "47x13 " + in + " " + out), 0) << mode;
        std::ifstream f(out, std::ios::binary);
        std::string magic;
        int w = 0, h = 0, max = 0;
        f >> magic >> w >> h >> max;
        f.get();
        EXPECT_EQ(magic, "P6");
        EXPECT_EQ(w, 47);
        EXPECT_EQ(h, 13);
        char px[3];
        f.seekg(3 * (6 * 47 + 20), std::ios::cur);
        f.read(px, 3);
        // Flat colour: scaling loses at most a level or two, the 4:2:0 trip a few more.
        EXPECT_NEAR(static_cast<uint8_t>(px[0]), 200, 6) << mode;
        EXPECT_NEAR(static_cast<uint8_t>(px[1]), 100, 6) << mode;
        EXPECT_NEAR(static_cast<uint8_t>(px[2]), 50, 6) << mode;
        std::remove(out.c_str());
    }
    EXPECT_EQ(RunNcodec("0x5 " + in + " " + Scratch("x.ppm")), 2);
    EXPECT_EQ(RunNcodec("12 " + in + " " + Scratch("x.ppm")), 2);
    std::remove(in.c_str());
}

}  // namespace
