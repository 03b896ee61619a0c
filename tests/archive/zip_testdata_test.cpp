// CNZipDecoder over the shared ZIP test archives, against their EXPECTED.tsv:
// every entry expected to extract does so with the documented SHA-256; CRC
// damage and wrong passwords are refused; entries of other methods, names of
// 256 bytes or more and entries a walk over local headers cannot reach are
// not listed (or, where a damaged header still lists them, fail to extract).
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "ncodecbase/zip_decoder.h"
#include "tests/archive/archive_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::archive {
namespace {

struct Listed {
    std::string name;
    unsigned size;
    int encrypted;
};

std::vector<Listed> ListAll(CNZipDecoder& zip) {
    std::vector<Listed> out;
    for (int i = 0; i < zip.GetTotalFileNumber(); ++i) {
        char name[256];
        unsigned size = 0;
        int encrypted = -1;
        EXPECT_EQ(zip.GetFileInfo(i, &size, name, &encrypted), 1);
        out.push_back({name, size, encrypted});
    }
    return out;
}

std::vector<std::string> ZipArchives() {
    std::set<std::string> names;
    for (const ExpectedRow& r : ReadExpected("zip")) names.insert(r.archive);
    return {names.begin(), names.end()};
}

class ZipTestData : public ::testing::TestWithParam<std::string> {};

TEST_P(ZipTestData, MatchesExpectedTable) {
    const std::string archive = GetParam();
    const std::string dir = ScratchDir();
    CNZipDecoder zip;
    ASSERT_EQ(zip.Open(TestDataPath("zip/" + archive).c_str()), 1);
    const std::vector<Listed> listed = ListAll(zip);
    std::map<std::string, int> indexOf;
    for (size_t i = 0; i < listed.size(); ++i) indexOf[listed[i].name] = static_cast<int>(i);

    std::set<std::string> accounted;
    int extracted = 0;
    for (const ExpectedRow& row : ReadExpected("zip")) {
        if (row.archive != archive) continue;
        if (row.entry == "-" && row.size == "0" && row.sha256 == "-") continue;  // no entries
        SCOPED_TRACE(row.entry + " (" + row.expect + ", password '" + row.password + "')");
        const auto found = indexOf.find(row.entry);
        const bool mustList =
            row.expect == "ok" || row.expect == "crc_error" || row.expect == "bad_password";
        if (!mustList) {
            // Left out, or listed from a damaged header and refused on extraction.
            if (found != indexOf.end()) {
                const std::string out = dir + "/refused_" + std::to_string(found->second);
                EXPECT_EQ(
                    zip.DecompressFile(found->second, out.c_str(),
                                       row.password.empty() ? "" : row.password.c_str()),
                    row.expect == "refuse" && row.note.find("unsafe name") != std::string::npos
                        ? 1
                        : 0);
                accounted.insert(row.entry);
            }
            continue;
        }
        ASSERT_NE(found, indexOf.end()) << "not listed";
        accounted.insert(row.entry);
        const Listed& entry = listed[found->second];
        EXPECT_EQ(std::to_string(entry.size), row.size);
        EXPECT_EQ(entry.encrypted, row.password.empty() ? 0 : 1);
        const std::string out = dir + "/out_" + std::to_string(extracted++);
        const char* password = row.password.empty() ? nullptr : row.password.c_str();
        const int result = zip.DecompressFile(found->second, out.c_str(), password);
        if (row.expect == "ok") {
            EXPECT_EQ(result, 1);
            EXPECT_EQ(Sha256OfFile(out), row.sha256);
        } else {
            EXPECT_EQ(result, 0);
            // The output file stays, whatever was written before the failure.
            EXPECT_TRUE(FileExists(out));
            if (row.expect == "crc_error" && row.sha256 != "-") {
                EXPECT_EQ(Sha256OfFile(out), row.sha256) << "damaged bytes are written as stored";
            }
        }
    }
    for (const Listed& l : listed) EXPECT_TRUE(accounted.count(l.name)) << "unexpected " << l.name;
}

INSTANTIATE_TEST_SUITE_P(Archives, ZipTestData, ::testing::ValuesIn(ZipArchives()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param.substr(0, info.param.size() - 4);
                             for (char& c : name)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

}  // namespace
}  // namespace ncbtest::archive
