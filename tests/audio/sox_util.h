// sox as an oracle: runs the command-line tool on raw 16-bit files in a
// scratch folder. Tests that need it skip when it is not installed
// (scripts/install-deps installs it).
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace ncbtest::audio {

inline bool SoxAvailable() {
    static const bool available = std::system("sox --version > /dev/null 2>&1") == 0;
    return available;
}

// A fresh path in the test scratch folder.
inline std::string ScratchPath(const std::string& stem) {
    static std::atomic<int> counter{0};
    return ::testing::TempDir() + "ncb_audio_" + std::to_string(getpid()) + "_" +
           std::to_string(counter++) + "_" + stem;
}

inline bool WriteRaw(const std::string& path, const std::vector<int16_t>& samples) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(samples.data()),
              static_cast<std::streamsize>(samples.size() * 2));
    return static_cast<bool>(out);
}

inline std::vector<int16_t> ReadRaw(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

inline std::string RawFormat(int rate, int channels) {
    return "-t raw -e signed -b 16 -L -r " + std::to_string(rate) + " -c " +
           std::to_string(channels);
}

// sox's own very-high-quality resampling, without dither.
inline std::vector<int16_t> SoxResample(const std::vector<int16_t>& in, int channels, int inRate,
                                        int outRate) {
    const std::string src = ScratchPath("in.raw"), dst = ScratchPath("out.raw");
    WriteRaw(src, in);
    const std::string command = "sox -D " + RawFormat(inRate, channels) + " " + src + " " +
                                RawFormat(outRate, channels) + " " + dst + " rate -v";
    const int rc = std::system(command.c_str());
    std::vector<int16_t> out = rc == 0 ? ReadRaw(dst) : std::vector<int16_t>{};
    std::filesystem::remove(src);
    std::filesystem::remove(dst);
    return out;
}

}  // namespace ncbtest::audio
