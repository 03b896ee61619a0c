// `ncodec scenes` as a user runs it: over PNG files written from a pan of
// one mosaic and a switch to another, and over the same frames as one raw
// 4:2:0 file, it prints one line per frame (index, cut or not, confidence)
// with the cut at the switch; pictures of different sizes and a missing
// file list are refused.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ncodecbase/png_codec.h"
#include "tests/support/test_paths.h"
#include "tests/video/scene_test_pictures.h"

namespace {

using ncbtest::scene::FramePtr;
using ncbtest::scene::Grey;

int Ncodec(const std::string& args, std::string* output) {
    const std::string command = std::string("'") + NCB_NCODEC_PATH + "' " + args + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    output->clear();
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) output->append(chunk, n);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

const Grey& Mosaic(bool second) {
    static const Grey a =
        ncbtest::scene::Mosaic({"f00n2c08.png", "basn2c08.png", "tbbn3p08.png", "g03n2c08.png",
                                "ccwn2c08.png", "cs5n2c08.png", "pp0n6a08.png", "ps1n0g08.png",
                                "ch1n3p04.png", "exif2c08.png", "tp1n3p08.png", "basn0g08.png"},
                               8, 6, 2);
    static const Grey b =
        ncbtest::scene::Mosaic({"z00n2c08.png", "f00n0g08.png", "tbrn2c08.png", "tp0n2c08.png",
                                "cdfn2c08.png", "cdhn2c08.png", "cs8n2c08.png", "cm0n0g04.png",
                                "ctzn0g04.png", "oi1n2c16.png", "bgan6a16.png", "tbyn3p08.png"},
                               8, 6, 2);
    return second ? b : a;
}

void WritePng(const std::string& path, const FramePtr& luma, int w, int h) {
    std::vector<uint8_t> rgb(static_cast<size_t>(w) * h * 4);
    const uint8_t* y = static_cast<const uint8_t*>(luma->GetAddress());
    for (int i = 0; i < w * h; ++i) {
        rgb[4 * i] = rgb[4 * i + 1] = rgb[4 * i + 2] = y[i];
        rgb[4 * i + 3] = 255;
    }
    CNCodecBase::VideoFormatInfoTag in, out;
    ncb::InitVideoFormat(&in, VIDEO_FORMAT_RGB32, w, h);
    CNCodecBuffer input(rgb.data(), static_cast<int>(rgb.size()), static_cast<int>(rgb.size()),
                        nullptr);
    CNCodecBuffer file;
    ASSERT_EQ(CNPngCodec::Encode(&in, &out, &input, &file, 0), 1);
    std::ofstream(path, std::ios::binary)
        .write(static_cast<const char*>(file.GetAddress()), file.GetDataSize());
}

struct Frames {
    std::string dir = ncbtest::ScratchDir();
    std::string pngs;  // the PNG paths, quoted, in order
    std::string raw = dir + "/all.yuv";
};

// Four views of a pan over the first mosaic, then three of the second.
Frames WriteFrames(int w, int h) {
    Frames f;
    std::ofstream raw(f.raw, std::ios::binary);
    for (int i = 0; i < 7; ++i) {
        FramePtr frame = ncbtest::scene::View(Mosaic(i >= 4), w, h, 40 + 2.5 * i, 30 + 1.5 * i);
        const std::string path = f.dir + "/frame" + std::to_string(i) + ".png";
        WritePng(path, frame, w, h);
        f.pngs += " '" + path + "'";
        raw.write(static_cast<const char*>(frame->GetAddress()), w * h);
        const std::string chroma(static_cast<size_t>(w / 2) * (h / 2) * 2, '\x80');
        raw.write(chroma.data(), static_cast<std::streamsize>(chroma.size()));
    }
    return f;
}

// The frame indices the output calls cuts; every line is checked for shape.
std::vector<int> Cuts(const std::string& output, int frames) {
    std::istringstream in(output);
    std::vector<int> cuts;
    int index = 0, confidence = 0, lines = 0;
    std::string verdict;
    while (in >> index >> verdict >> confidence) {
        EXPECT_EQ(index, lines++);
        if (verdict == "cut") {
            EXPECT_GE(confidence, 75);
            cuts.push_back(index);
        } else {
            EXPECT_EQ(verdict, "-");
            EXPECT_EQ(confidence, 0);
        }
    }
    EXPECT_EQ(lines, frames) << output;
    return cuts;
}

TEST(SceneCommand, FindsTheSwitchInPicturesAndInRawFrames) {
    const Frames f = WriteFrames(320, 240);
    std::string out;
    ASSERT_EQ(Ncodec("scenes" + f.pngs, &out), 0) << out;
    std::printf("%s", out.c_str());
    EXPECT_EQ(Cuts(out, 7), std::vector<int>{4}) << out;
    std::string raw;
    ASSERT_EQ(Ncodec("scenes --size 320x240 '" + f.raw + "'", &raw), 0) << raw;
    EXPECT_EQ(raw, out);
    // Plain options (no stage, no context) are accepted too.
    ASSERT_EQ(Ncodec("scenes --options 0 --size 320x240 '" + f.raw + "'", &raw), 0) << raw;
    Cuts(raw, 7);
}

TEST(SceneCommand, RefusesMixedSizesAndMissingFiles) {
    const Frames f = WriteFrames(96, 80);
    std::string out;
    FramePtr other = ncbtest::scene::View(Mosaic(false), 100, 80, 0, 0);
    WritePng(f.dir + "/other.png", other, 100, 80);
    EXPECT_EQ(Ncodec("scenes" + f.pngs + " '" + f.dir + "/other.png'", &out), 1) << out;
    EXPECT_NE(out.find("100x80"), std::string::npos) << out;
    EXPECT_EQ(Ncodec("scenes", &out), 2);
    EXPECT_EQ(Ncodec("scenes '" + f.dir + "/nothing.png'", &out), 1);
    EXPECT_EQ(Ncodec("scenes --size 12 x.yuv", &out), 2);
}

}  // namespace
