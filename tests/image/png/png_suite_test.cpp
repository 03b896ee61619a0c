// The PNG suite (shared test data, EXPECTED.tsv beside it) through our
// decoder, with libpng as the oracle for every file it can read.
//
// Where our decoder is meant to differ from libpng, the test says why:
// - gamma: libpng leaves samples alone unless asked; our decoder applies the
//   gAMA exponent 1 / (2.2 g) itself, so the oracle's pixels get the same
//   table before comparing;
// - CRCs: libpng refuses the two files whose only damage is a wrong CRC
//   (EXPECTED.tsv says "CRC-only damage"); our decoder never checks CRCs, so
//   they must decode, and match libpng told to ignore CRCs;
// - 16-bit samples: both keep the high byte (libpng's strip_16), no rounding.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/image/png/png_oracle.h"
#include "tests/support/test_paths.h"

namespace ncbtest::png {
namespace {

struct SuiteEntry {
    std::string file;
    bool expectDecode = false;
    bool crcOnly = false;  // refused by libpng only for a CRC
    int width = 0;
    int height = 0;
    std::string note;
};

std::vector<SuiteEntry> LoadSuite() {
    std::vector<SuiteEntry> entries;
    std::ifstream in(TestDataPath("png/EXPECTED.tsv"));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        std::vector<std::string> fields;
        std::stringstream row(line);
        std::string field;
        while (std::getline(row, field, '\t')) fields.push_back(field);
        if (fields.size() < 8) continue;
        SuiteEntry e;
        e.file = fields[0];
        e.expectDecode = fields[1] == "decode";
        e.note = fields[7];
        e.crcOnly = e.note.find("CRC-only damage") != std::string::npos;
        if (fields[2] != "-") e.width = std::stoi(fields[2]);
        if (fields[3] != "-") e.height = std::stoi(fields[3]);
        entries.push_back(e);
    }
    return entries;
}

class PngSuite : public ::testing::TestWithParam<SuiteEntry> {};

TEST_P(PngSuite, DecodesAsLibpngOrRefuses) {
    const SuiteEntry& e = GetParam();
    const Bytes file = ReadFile(TestDataPath("png/" + e.file));
    ASSERT_FALSE(file.empty()) << e.file;
    Picture ours;
    CNCodecBase::VideoFormatInfoTag format{};
    const int result = OurDecode(file, &ours, &format);

    if (!e.expectDecode && !e.crcOnly) {
        EXPECT_EQ(result, 0) << e.file << ": " << e.note;
        return;
    }
    ASSERT_EQ(result, 1) << e.file << ": " << e.note;
    EXPECT_EQ(ours.width, e.width);
    EXPECT_EQ(ours.height, e.height);

    Picture oracle;
    uint32_t gamma = 0;
    std::string error;
    ASSERT_TRUE(LibpngDecode(file, &oracle, &gamma, &error)) << e.file << ": " << error;
    if (gamma) ApplyDocumentedGamma(gamma, &oracle);
    ASSERT_EQ(ours.width, oracle.width);
    ASSERT_EQ(ours.height, oracle.height);
    for (size_t i = 0; i < ours.bgra.size(); ++i) {
        if (ours.bgra[i] != oracle.bgra[i]) {
            const size_t pixel = i / 4;
            FAIL() << e.file << ": pixel (" << pixel % ours.width << ", " << pixel / ours.width
                   << ") byte " << i % 4 << " is " << int{ours.bgra[i]} << ", libpng gives "
                   << int{oracle.bgra[i]};
        }
    }
}

std::string EntryName(const ::testing::TestParamInfo<SuiteEntry>& info) {
    return info.param.file.substr(0, info.param.file.find('.'));
}

INSTANTIATE_TEST_SUITE_P(Suite, PngSuite, ::testing::ValuesIn(LoadSuite()), EntryName);

// Guards against a missing or truncated suite silently shrinking the run.
TEST(PngSuiteCoverage, EveryFileIsListed) {
    const std::vector<SuiteEntry> entries = LoadSuite();
    int decode = 0, refuse = 0, crcOnly = 0;
    for (const SuiteEntry& e : entries) {
        if (e.crcOnly) {
            ++crcOnly;
        } else if (e.expectDecode) {
            ++decode;
        } else {
            ++refuse;
        }
    }
    EXPECT_EQ(entries.size(), 175u);
    EXPECT_EQ(decode, 161);
    EXPECT_EQ(refuse, 12);
    EXPECT_EQ(crcOnly, 2);
}

}  // namespace
}  // namespace ncbtest::png
