// The RAR adapter's own RAR 5 header walk: the facts it reads from the test
// archives (which entries are encrypted, stored CRC-32s), and that it stays
// inside the file and ends for every start position, cut and flipped byte
// (run under AddressSanitizer, this is a small fuzz of the walk).
#include "archive/rar/rar5_headers.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "archive/archive_file.h"
#include "tests/archive/archive_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::archive {
namespace {

using ncb::rar::Rar5FileFacts;

// Facts of every file header, walking from the start.
std::vector<Rar5FileFacts> AllFacts(const std::string& path, const std::vector<uint64_t>& starts) {
    ncb::archive::FileHandle file(ncb::archive::OpenForRead(path.c_str()));
    std::vector<Rar5FileFacts> facts;
    for (uint64_t start : starts) {
        Rar5FileFacts f;
        if (ncb::rar::ReadRar5FileFacts(file.Get(), start, &f)) facts.push_back(f);
    }
    return facts;
}

TEST(Rar5Headers, ReadsEncryptionAndCrc) {
    const std::string path = TestDataPath("rar/test_read_format_rar5_encrypted.rar");
    ncb::archive::FileHandle file(ncb::archive::OpenForRead(path.c_str()));
    ASSERT_TRUE(ncb::rar::IsRar5File(file.Get()));
    // Header positions as libarchive reports them for a.txt .. d.txt.
    const std::vector<Rar5FileFacts> facts = AllFacts(path, {0, 77, 210, 264});
    ASSERT_EQ(facts.size(), 4u);
    EXPECT_FALSE(facts[0].encrypted);
    EXPECT_TRUE(facts[1].encrypted);
    EXPECT_FALSE(facts[2].encrypted);
    EXPECT_TRUE(facts[3].encrypted);
    EXPECT_TRUE(facts[0].hasCrc);
    EXPECT_FALSE(facts[0].split);

    const std::string rar4 = TestDataPath("rar/test_read_format_rar.rar");
    ncb::archive::FileHandle old(ncb::archive::OpenForRead(rar4.c_str()));
    EXPECT_FALSE(ncb::rar::IsRar5File(old.Get()));
}

class Rar5Walk : public ::testing::TestWithParam<std::string> {};

TEST_P(Rar5Walk, EndsInsideTheFileFromAnywhere) {
    const Bytes original = ReadFile(TestDataPath("rar/" + GetParam()));
    ASSERT_FALSE(original.empty());
    const std::string path = ScratchDir() + "/walk.rar";
    std::mt19937 rng(7);
    for (int variant = 0; variant < 24; ++variant) {
        Bytes bytes = original;
        if (variant % 3 == 1) bytes.resize(rng() % bytes.size());
        if (variant % 3 == 2)
            for (int k = 0; k < 4; ++k) bytes[rng() % bytes.size()] ^= static_cast<uint8_t>(rng());
        WriteFile(path, bytes);
        ncb::archive::FileHandle file(ncb::archive::OpenForRead(path.c_str()));
        for (uint64_t start = 0; start <= bytes.size() + 2; ++start) {
            Rar5FileFacts facts;
            ncb::rar::ReadRar5FileFacts(file.Get(), start, &facts);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Archives, Rar5Walk,
                         ::testing::Values("test_read_format_rar5_stored_manyfiles.rar",
                                           "test_read_format_rar5_encrypted.rar",
                                           "test_read_format_rar5_symlink.rar",
                                           "test_read_format_rar5_bad_tables.rar"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string n = info.param.substr(17, info.param.size() - 21);
                             for (char& c : n)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

}  // namespace
}  // namespace ncbtest::archive
