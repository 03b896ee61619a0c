// The shared JPEG test files: every valid file decodes to TurboJPEG's planes
// (stored beside it) within the difference of the two integer transforms,
// every unsupported or corrupt file marked "refuse" is refused, and the
// rest decode or fail without harm. Descriptor words and the user-data
// bookkeeping are checked on the way.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "ncodecbase/codec_base.h"
#include "tests/image/jpeg/jpeg_oracle.h"
#include "tests/support/test_paths.h"

namespace ncbtest::jpeg {
namespace {

struct Entry {
    std::string file, expect, sampling, reference, note;
    int width = 0, height = 0;
    std::string Name() const {
        std::string n = file;
        for (char& c : n)
            if (!isalnum(static_cast<unsigned char>(c))) c = '_';
        return n;
    }
};

std::vector<Entry> LoadExpected() {
    std::vector<Entry> entries;
    std::ifstream f(TestDataPath("jpeg/EXPECTED.tsv"));
    std::string line;
    std::getline(f, line);
    while (std::getline(f, line)) {
        std::vector<std::string> cols;
        std::stringstream ss(line);
        std::string col;
        while (std::getline(ss, col, '\t')) cols.push_back(col);
        if (cols.size() < 9) continue;
        Entry e;
        e.file = cols[0];
        e.expect = cols[1];
        e.width = cols[2] == "-" ? 0 : std::stoi(cols[2]);
        e.height = cols[3] == "-" ? 0 : std::stoi(cols[3]);
        e.sampling = cols[4];
        e.reference = cols[7];
        e.note = cols[8];
        entries.push_back(e);
    }
    return entries;
}

// Splits a reference file (planes back to back, sizes from the note's
// "planes Y WxH, U/V wxh") into visible planes in our layout.
bool LoadReference(const Entry& e, Planes* p) {
    const Bytes data = ReadFile(TestDataPath("jpeg/" + e.reference));
    int yw = 0, yh = 0, cw = 0, ch = 0;
    const size_t at = e.note.find("planes Y ");
    if (at == std::string::npos) return false;
    const int got =
        std::sscanf(e.note.c_str() + at, "planes Y %dx%d, U/V %dx%d", &yw, &yh, &cw, &ch);
    if (got != 2 && got != 4) return false;
    const int X = e.width, Y = e.height;
    p->width = X;
    p->height = Y;
    auto copy = [&](size_t offset, int pitch, int w, int h, bool doubleRows, Bytes* out) {
        out->clear();
        for (int y = 0; y < h; ++y) {
            const size_t row = offset + static_cast<size_t>(doubleRows ? y / 2 : y) * pitch;
            if (row + w > data.size()) return false;
            out->insert(out->end(), data.begin() + static_cast<ptrdiff_t>(row),
                        data.begin() + static_cast<ptrdiff_t>(row + w));
        }
        return true;
    };
    if (!copy(0, yw, X, Y, false, &p->y)) return false;
    if (got == 2) return true;
    const bool rows1x2 = e.sampling.rfind("440", 0) == 0;
    p->chromaWidth = cw == yw ? X : (X + 1) / 2;
    p->chromaHeight = rows1x2 ? Y : (ch == yh ? Y : (Y + 1) / 2);
    const size_t uAt = static_cast<size_t>(yw) * yh;
    const size_t vAt = uAt + static_cast<size_t>(cw) * ch;
    return copy(uAt, cw, p->chromaWidth, p->chromaHeight, rows1x2, &p->u) &&
           copy(vAt, cw, p->chromaWidth, p->chromaHeight, rows1x2, &p->v);
}

void PrintTo(const Entry& e, std::ostream* os) { *os << e.file; }

class JpegTestData : public ::testing::TestWithParam<Entry> {};

TEST_P(JpegTestData, DecodesAsExpected) {
    const Entry& e = GetParam();
    const Bytes file = ReadFile(TestDataPath("jpeg/" + e.file));
    const OursResult ours = DecodeOurs(file);
    if (e.expect == "refuse") {
        EXPECT_EQ(ours.ok, 0) << e.note;
        EXPECT_EQ(ours.userData, 0) << "a refused decode leaves the user data";
        return;
    }
    if (e.expect != "decode") return;  // "any": only that it returned
    ASSERT_EQ(ours.ok, 1) << e.note;
    Planes ref;
    ASSERT_TRUE(LoadReference(e, &ref)) << e.reference;
    const Difference d = Compare(ours.planes, ref);
    std::printf("[ jpeg     ] %-40s max diff %d, PSNR %.1f dB\n", e.file.c_str(), d.maxDiff,
                d.psnr);
    EXPECT_LE(d.maxDiff, 2);
    EXPECT_GE(d.psnr, 45.0);

    const auto& f = ours.format;
    EXPECT_EQ(f.nStructSize, 104);
    EXPECT_EQ(f.nCodecType, VIDEO_TYPE_YUV);
    EXPECT_EQ(f.nWidth, (e.width + 15) & ~15);
    EXPECT_EQ(f.nHeight, (e.height + 15) & ~15);
    EXPECT_EQ(f.nRectRight, e.width);
    EXPECT_EQ(f.nRectBottom, e.height);
    EXPECT_EQ(f.nPictureWidth, e.width);
    EXPECT_EQ(f.nDisplayHeight, e.height);
    const int code = e.sampling.rfind("gray", 0) == 0 ? VIDEO_FORMAT_Y800
                     : e.sampling == "420"            ? VIDEO_FORMAT_YUV420
                     : e.sampling == "422"            ? VIDEO_FORMAT_YUV422
                                                      : VIDEO_FORMAT_YUV444;
    EXPECT_EQ(f.nCodecSubType, code);
    // Every level and the scalar twin give the same bytes.
    for (int level = 1; level <= 2; ++level) {
        const OursResult other = DecodeOurs(file, level);
        EXPECT_EQ(other.planes.y, ours.planes.y) << "level " << level;
        EXPECT_EQ(other.planes.u, ours.planes.u) << "level " << level;
    }
    const OursResult scalar = DecodeOursScalar(file);
    EXPECT_EQ(scalar.planes.y, ours.planes.y);
    EXPECT_EQ(scalar.planes.v, ours.planes.v);
}

INSTANTIATE_TEST_SUITE_P(Files, JpegTestData, ::testing::ValuesIn(LoadExpected()),
                         [](const auto& info) { return info.param.Name(); });

}  // namespace
}  // namespace ncbtest::jpeg
