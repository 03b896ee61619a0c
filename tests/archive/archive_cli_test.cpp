// `ncodec zip` and `ncodec rar` as a user runs them: listings, extraction
// into a folder with names and indices, passwords, and names that would land
// outside the folder, which are refused while the safe entries still come
// out. Exit status 0 on success, 1 on any failure, 2 on usage errors.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "archive/rar/rar_library.h"
#include "tests/archive/archive_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::archive {
namespace {

CommandResult Ncodec(const std::string& args) {
    return RunShell(Quote(NCB_NCODEC_PATH) + " " + args);
}

std::string Zip(const std::string& name) { return Quote(TestDataPath("zip/" + name)); }

TEST(ArchiveCli, ZipListShowsEveryEntry) {
    const CommandResult r = Ncodec("zip list " + Zip("deflate_level9.zip"));
    EXPECT_EQ(r.status, 0) << r.output;
    for (const char* name : {"lorem.txt", "random.bin", "one.bin", "167215", "3 entries"})
        EXPECT_NE(r.output.find(name), std::string::npos) << name;
}

TEST(ArchiveCli, ZipExtractsSelectedEntries) {
    const std::string dir = ScratchDir();
    CommandResult r =
        Ncodec("zip extract " + Zip("deflate_level9.zip") + " one.bin 0 -o " + Quote(dir + "/out"));
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(Sha256OfFile(dir + "/out/lorem.txt"),
              "992e5b97d3e1d68b41828c549835c85775af8323a43ee70df9e78571d2b9ec56");
    EXPECT_EQ(FileSizeOf(dir + "/out/one.bin"), 1);
    EXPECT_FALSE(FileExists(dir + "/out/random.bin"));

    r = Ncodec("zip extract " + Zip("directories.zip") + " -o " + Quote(dir + "/tree"));
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(std::filesystem::is_directory(dir + "/tree/dir/sub"));
    EXPECT_EQ(FileSizeOf(dir + "/tree/dir/sub/nested.txt"), 12);

    r = Ncodec("zip extract " + Zip("deflate_level9.zip") + " nothing.txt -o " + Quote(dir));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("nothing.txt"), std::string::npos);
}

TEST(ArchiveCli, ZipRefusesNamesOutsideTheFolder) {
    const std::string dir = ScratchDir();
    const std::string out = dir + "/a/b";
    const CommandResult r =
        Ncodec("zip extract " + Zip("path_traversal.zip") + " -o " + Quote(out));
    EXPECT_EQ(r.status, 1) << r.output;
    EXPECT_NE(r.output.find("refusing"), std::string::npos);
    // Only the safe entry was written, and nothing above the folder.
    size_t files = 0;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir))
        if (e.is_regular_file()) {
            ++files;
            EXPECT_EQ(e.path().parent_path().string(), out) << e.path();
        }
    EXPECT_EQ(files, 1u);
}

TEST(ArchiveCli, ZipPasswords) {
    const std::string dir = ScratchDir();
    CommandResult r = Ncodec("zip extract " + Zip("encrypted_deflate.zip") + " -o " + Quote(dir));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("--password"), std::string::npos);
    r = Ncodec("zip extract " + Zip("encrypted_deflate.zip") + " -o " + Quote(dir) +
               " --password wrong");
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(FileExists(dir + "/lorem.txt")) << "a failed entry leaves no partial file";
    r = Ncodec("zip extract " + Zip("encrypted_deflate.zip") + " -o " + Quote(dir) +
               " --password secret");
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(Sha256OfFile(dir + "/hello.txt"),
              "62d611865cb5bb7df66bb646391c794ec37c912a1380c49f30c97c25d2389166");
}

TEST(ArchiveCli, UsageAndMissingArchives) {
    EXPECT_EQ(Ncodec("zip").status, 2);
    EXPECT_EQ(Ncodec("zip extract " + Zip("stored.zip")).status, 2) << "no -o";
    EXPECT_EQ(Ncodec("zip list").status, 2);
    EXPECT_EQ(Ncodec("rar frobnicate x").status, 2);
    const CommandResult r = Ncodec("zip list /no/such/archive.zip");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("cannot open"), std::string::npos);
    EXPECT_EQ(Ncodec("rar list /no/such/archive.rar").status, 1);
}

TEST(ArchiveCli, RarListAndExtract) {
    if (!ncb::rar::HasRarBackend()) GTEST_SKIP() << "built without libarchive";
    const std::string archive = Quote(TestDataPath("rar/test_read_format_rar.rar"));
    CommandResult r = Ncodec("rar list " + archive);
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("testdir/test.txt"), std::string::npos);
    const std::string dir = ScratchDir();
    r = Ncodec("rar extract " + archive + " testdir/test.txt -o " + Quote(dir));
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(Sha256OfFile(dir + "/testdir/test.txt"),
              "5a5f16e01faf8adf92eb4499a2d3e93010c4b41dbb7f698f4a8466d9f58e6dd2");
    r = Ncodec("rar extract " + Quote(TestDataPath("rar/test_read_format_rar5_encrypted.rar")) +
               " b.txt -o " + Quote(dir) + " --password password");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("password"), std::string::npos);
}

}  // namespace
}  // namespace ncbtest::archive
