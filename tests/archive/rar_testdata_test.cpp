// CNRarDecoder with its libarchive backend over the shared RAR test archives,
// against their EXPECTED.tsv. What libarchive cannot do (decrypt RAR) is
// held to a clean failure with extended error 4 instead of the content: no
// row may extract wrong bytes.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "archive/rar/rar_library.h"
#include "ncodecbase/rar_decoder.h"
#include "tests/archive/archive_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::archive {
namespace {

bool CannotDecrypt(const ExpectedRow& row) {
    return row.note.find("libarchive cannot decrypt RAR") != std::string::npos;
}

std::vector<std::string> RarArchives() {
    std::set<std::string> names;
    for (const ExpectedRow& r : ReadExpected("rar")) names.insert(r.archive);
    return {names.begin(), names.end()};
}

class RarTestData : public ::testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        if (!ncb::rar::HasRarBackend()) GTEST_SKIP() << "built without libarchive";
    }
};

TEST_P(RarTestData, MatchesExpectedTable) {
    const std::string archive = GetParam();
    const std::string path = TestDataPath("rar/" + archive);
    const std::string dir = ScratchDir();
    std::vector<ExpectedRow> rows;
    for (const ExpectedRow& r : ReadExpected("rar"))
        if (r.archive == archive) rows.push_back(r);

    // Archive-level rows ("-" entry): the listing itself fails.
    for (const ExpectedRow& row : rows) {
        if (row.entry != "-") continue;
        SCOPED_TRACE("listing: " + row.expect);
        CNRarDecoder rar;
        EXPECT_EQ(rar.Open(path.c_str(), row.password.empty() ? nullptr : row.password.c_str()), 0);
        const int error = rar.GetExtendErrorCode();
        if (row.expect == "bad_password") {
            EXPECT_EQ(error, CNRarDecoder::ERROR_PASSWORD);
        } else {
            EXPECT_TRUE(error == CNRarDecoder::ERROR_ARCHIVE ||
                        error == CNRarDecoder::ERROR_OPEN_ARCHIVE)
                << error;
        }
        EXPECT_EQ(rar.GetTotalFileNumber(), 0);
    }

    bool listingFails = false;
    for (const ExpectedRow& row : rows) listingFails |= row.entry == "-";

    CNRarDecoder rar;
    if (!rar.Open(path.c_str(), nullptr)) {
        // Without a listing, every entry must be one a reader that follows
        // the library's bad-data rule cannot reach (the archive-level row says
        // the listing fails), or one libarchive would need a key for.
        const int error = rar.GetExtendErrorCode();
        for (const ExpectedRow& row : rows) {
            if (row.entry == "-" || listingFails) continue;
            SCOPED_TRACE(row.entry + " (" + row.expect + ")");
            EXPECT_TRUE(CannotDecrypt(row) || row.expect == "bad_password");
            EXPECT_EQ(error, CNRarDecoder::ERROR_PASSWORD);
        }
        return;
    }
    ASSERT_FALSE(listingFails) << "the listing should have failed";

    std::map<std::string, int> indexOf;
    for (int i = 0; i < rar.GetTotalFileNumber(); ++i) {
        char name[256];
        ASSERT_EQ(rar.GetFileInfo(i, nullptr, name), 1);
        indexOf[name] = i;
    }
    for (const ExpectedRow& row : rows) {
        SCOPED_TRACE(row.entry + " (" + row.expect + ", password '" + row.password + "')");
        const auto found = indexOf.find(row.entry);
        ASSERT_NE(found, indexOf.end()) << "not listed";
        unsigned size = 0;
        char name[256];
        ASSERT_EQ(rar.GetFileInfo(found->second, &size, name), 1);
        if (row.size != "-") {
            EXPECT_EQ(std::to_string(size), row.size);
        }

        const std::string out = dir + "/out" + std::to_string(found->second);
        const char* password = row.password.empty() ? nullptr : row.password.c_str();
        const int result = rar.DecompressFile(found->second, out.c_str(), password);
        if (row.expect == "ok" && !CannotDecrypt(row)) {
            EXPECT_EQ(result, 1) << "error " << rar.GetExtendErrorCode();
            if (row.sha256 != "-") {
                EXPECT_EQ(Sha256OfFile(out), row.sha256);
            }
        } else if (row.expect == "ok" || row.expect == "bad_password") {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_PASSWORD);
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_ARCHIVE);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Archives, RarTestData, ::testing::ValuesIn(RarArchives()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param.substr(0, info.param.size() - 4);
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
}  // namespace ncbtest::archive
