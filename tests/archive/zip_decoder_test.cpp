// CNZipDecoder end to end against archives that Info-ZIP `zip` and Python's
// zipfile write at test time: every method and level they use, traditional
// encryption, data descriptors (`zip -fd`, `zip -e`, output to a pipe,
// Python writing to an unseekable stream), empty and 1-byte files and a
// 50 MB file. Every extracted file must equal its source byte for byte.
// Then the edges of the interface, hostile archives (cut at every header and
// inside the data, sizes pointing past the end) and failing allocations.
#include "ncodecbase/zip_decoder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/kernel/fault.h"
#include "tests/archive/archive_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::archive {
namespace {

namespace fs = std::filesystem;

const char* const kPython = "/usr/bin/python3";

struct SourceFile {
    std::string name;
    Bytes bytes;
};

// Sources and archives, made once for the whole suite.
class ZipOracle : public ::testing::Test {
  public:
    static void TearDownTestSuite() { fs::remove_all(dir_); }
    static void SetUpTestSuite() {
        // ctest runs each test in its own process, several at once: every
        // process makes its own archives.
        dir_ = std::string(NCB_BINARY_DIR) + "/test-scratch/ZipOracle-" + std::to_string(getpid());
        fs::remove_all(dir_);
        fs::create_directories(dir_ + "/src");
        sources_ = {{"empty.txt", {}},
                    {"one.bin", {0x5A}},
                    {"text.txt", TextBytes(300000, 1)},
                    {"random.bin", RandomBytes(100000, 2)},
                    {"runs.bin", Bytes(70000, 0x41)}};
        for (const SourceFile& s : sources_) WriteFile(dir_ + "/src/" + s.name, s.bytes);
        made_ = MakeArchives();
    }

    static std::string Archive(const std::string& name) { return dir_ + "/" + name; }
    static const Bytes* Source(const std::string& entry) {
        for (const SourceFile& s : sources_)
            if (s.name == entry || (entry == "-" && s.name == "text.txt")) return &s.bytes;
        return nullptr;
    }
    static std::string Made() { return made_; }

  protected:
    static std::string dir_;
    static std::vector<SourceFile> sources_;
    static std::string made_;

  private:
    static std::string MakeArchives() {
        const std::string cd = "cd " + Quote(dir_ + "/src") + " && ";
        const std::string all = "empty.txt one.bin text.txt random.bin runs.bin";
        const std::string py = std::string(kPython) + " -c " + Quote(R"(
import sys, zipfile
class Pipe:
    def __init__(self, f): self.f = f
    def write(self, b): return self.f.write(b)
    def flush(self): self.f.flush()
out, method, level, streamed = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), sys.argv[4] == '1'
target = Pipe(open(out, 'wb')) if streamed else out
with zipfile.ZipFile(target, 'w', method, compresslevel=level) as z:
    for name in sys.argv[5:]:
        z.write(name)
)");
        const std::vector<std::string> commands = {
            cd + "zip -q -0 ../izip_store.zip " + all,
            cd + "zip -q -1 ../izip_l1.zip " + all,
            cd + "zip -q -9 ../izip_l9.zip " + all,
            cd + "zip -q -9 -e -P secret ../izip_encrypted.zip " + all,
            cd + "zip -q -0 -P secret ../izip_encrypted_store.zip " + all,
            cd + "zip -q -fd ../izip_descriptors.zip " + all,
            cd + "zip -q -fz- - " + all + " | cat > ../izip_piped.zip",
            cd + "cat text.txt | zip -q -fz- - - | cat > ../izip_stdin_piped.zip",
            cd + py + " ../py_deflate6.zip 8 6 0 " + all,
            cd + py + " ../py_deflate1.zip 8 1 0 " + all,
            cd + py + " ../py_deflate0.zip 8 0 0 " + all,
            cd + py + " ../py_store.zip 0 0 0 " + all,
            cd + py + " ../py_streamed.zip 8 9 1 " + all,
        };
        for (const std::string& c : commands) {
            const CommandResult r = RunShell(c);
            if (r.status != 0) return c + ": " + r.output;
        }
        return "";
    }
};

std::string ZipOracle::dir_;
std::vector<SourceFile> ZipOracle::sources_;
std::string ZipOracle::made_;

struct OracleArchive {
    const char* file;
    const char* password;
    uint16_t flagsSet;  // local header flags every entry must carry
    bool everyEntry;    // all five sources listed (else the stdin "-" entry)
};

class ZipOracleArchives : public ZipOracle, public ::testing::WithParamInterface<OracleArchive> {};

TEST_P(ZipOracleArchives, ExtractsEveryEntryByteForByte) {
    ASSERT_EQ(Made(), "");
    const OracleArchive& a = GetParam();
    const std::string path = Archive(a.file);
    const Bytes zip = ReadFile(path);
    const std::vector<LocalHeaderInfo> headers = LocalHeaders(zip);
    ASSERT_FALSE(headers.empty());
    for (const LocalHeaderInfo& h : headers)
        EXPECT_EQ(h.flags & a.flagsSet, a.flagsSet) << h.name << ": the tool wrote other flags";

    CNZipDecoder reader;
    ASSERT_EQ(reader.Open(path.c_str()), 1);
    ASSERT_EQ(reader.GetTotalFileNumber(), a.everyEntry ? 5 : 1);
    const std::string out = ScratchDir() + "/out";
    for (int i = 0; i < reader.GetTotalFileNumber(); ++i) {
        char name[256];
        unsigned size = 0;
        int encrypted = -1;
        ASSERT_EQ(reader.GetFileInfo(i, &size, name, &encrypted), 1);
        SCOPED_TRACE(name);
        EXPECT_EQ(name, headers[static_cast<size_t>(i)].name);
        const Bytes* source = Source(name);
        ASSERT_NE(source, nullptr);
        EXPECT_EQ(size, source->size());
        EXPECT_EQ(encrypted, a.password ? 1 : 0);
        ASSERT_EQ(reader.DecompressFile(i, out.c_str(), a.password), 1);
        EXPECT_TRUE(ReadFile(out) == *source);
        if (a.password && !source->empty()) {
            EXPECT_EQ(reader.DecompressFile(i, out.c_str(), "wrong"), 0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tools, ZipOracleArchives,
    ::testing::Values(OracleArchive{"izip_store.zip", nullptr, 0, true},
                      OracleArchive{"izip_l1.zip", nullptr, 0, true},
                      OracleArchive{"izip_l9.zip", nullptr, 0, true},
                      OracleArchive{"izip_encrypted.zip", "secret", 1 | 8, true},
                      OracleArchive{"izip_encrypted_store.zip", "secret", 1, true},
                      OracleArchive{"izip_descriptors.zip", nullptr, 8, true},
                      OracleArchive{"izip_piped.zip", nullptr, 8, true},
                      OracleArchive{"izip_stdin_piped.zip", nullptr, 8, false},
                      OracleArchive{"py_deflate6.zip", nullptr, 0, true},
                      OracleArchive{"py_deflate1.zip", nullptr, 0, true},
                      OracleArchive{"py_deflate0.zip", nullptr, 0, true},
                      OracleArchive{"py_store.zip", nullptr, 0, true},
                      OracleArchive{"py_streamed.zip", nullptr, 8, true}),
    [](const ::testing::TestParamInfo<OracleArchive>& info) {
        std::string n = info.param.file;
        return n.substr(0, n.size() - 4);
    });

// A flipped byte in the data fails the stream or the CRC-32; the listing
// does not notice.
TEST_F(ZipOracle, FlippedDataByteIsRefused) {
    ASSERT_EQ(Made(), "");
    for (const char* file : {"izip_store.zip", "izip_l9.zip", "izip_descriptors.zip"}) {
        Bytes zip = ReadFile(Archive(file));
        const std::vector<LocalHeaderInfo> headers = LocalHeaders(zip);
        const size_t text = headers[2].offset + 30 + headers[2].name.size();
        zip[text + 1000] ^= 0x20;
        const std::string damaged = ScratchDir() + "/damaged.zip";
        WriteFile(damaged, zip);
        CNZipDecoder reader;
        ASSERT_EQ(reader.Open(damaged.c_str()), 1);
        ASSERT_EQ(reader.GetTotalFileNumber(), 5) << file;
        const std::string out = ScratchDir() + "/out";
        EXPECT_EQ(reader.DecompressFile(2, out.c_str(), nullptr), 0) << file;
        EXPECT_TRUE(FileExists(out)) << "the partial output stays";
        EXPECT_EQ(reader.DecompressFile(3, out.c_str(), nullptr), 1) << file;
    }
}

// Cut around every local header (its fixed part, its name, its data) and at
// a stride through the data: Open still succeeds with the entries whose
// header and name lie before the cut, and exactly the entries whose data
// lies before the cut extract.
TEST_F(ZipOracle, EveryCutListsThePrefix) {
    ASSERT_EQ(Made(), "");
    Bytes zip;
    {
        std::vector<HandEntry> entries;
        for (int i = 0; i < 4; ++i) {
            HandEntry e;
            e.name = "file" + std::to_string(i) + ".txt";
            const Bytes data = TextBytes(200 + 150 * static_cast<size_t>(i), 20 + i);
            e.data = i % 2 ? data : ZlibDeflateRaw(data, 6);
            e.method = i % 2 ? 0 : 8;
            e.crc = Crc32Of(data.data(), data.size());
            e.uncompressedSize = static_cast<uint32_t>(data.size());
            entries.push_back(e);
        }
        zip = BuildZip(entries);
    }
    const std::vector<LocalHeaderInfo> headers = LocalHeaders(zip);
    ASSERT_EQ(headers.size(), 4u);
    std::vector<size_t> dataEnd;
    for (size_t i = 0; i < headers.size(); ++i)
        dataEnd.push_back(i + 1 < headers.size() ? headers[i + 1].offset : zip.size() - 22);

    std::vector<size_t> cuts;
    for (size_t at = 0; at <= zip.size(); at += 41) cuts.push_back(at);
    for (const LocalHeaderInfo& h : headers)
        for (size_t mark : {h.offset, h.offset + 30, h.offset + 30 + h.name.size()})
            for (size_t d = 0; d < 7; ++d)
                if (mark + d >= 3 && mark + d - 3 <= zip.size()) cuts.push_back(mark + d - 3);
    for (size_t end : dataEnd) cuts.insert(cuts.end(), {end - 1, end});
    cuts.push_back(zip.size());

    const std::string dir = ScratchDir();
    const std::string cut = dir + "/cut.zip", out = dir + "/out";
    for (size_t size : cuts) {
        WriteFile(cut, Bytes(zip.begin(), zip.begin() + static_cast<ptrdiff_t>(size)));
        CNZipDecoder reader;
        ASSERT_EQ(reader.Open(cut.c_str()), 1) << size;
        int listed = 0;
        for (const LocalHeaderInfo& h : headers)
            if (h.offset + 30 + h.name.size() <= size) ++listed;
        ASSERT_EQ(reader.GetTotalFileNumber(), listed) << "cut at " << size;
        for (int i = 0; i < listed; ++i)
            ASSERT_EQ(reader.DecompressFile(i, out.c_str(), nullptr),
                      dataEnd[static_cast<size_t>(i)] <= size ? 1 : 0)
                << "cut at " << size << ", entry " << i;
    }
}

struct HostileCase {
    const char* name;
    std::vector<HandEntry> entries;
    int listed;
    std::vector<int> extracts;  // per listed entry
};

HandEntry Stored(const std::string& name, const Bytes& data) {
    HandEntry e;
    e.name = name;
    e.method = 0;
    e.data = data;
    e.crc = Crc32Of(data.data(), data.size());
    e.uncompressedSize = static_cast<uint32_t>(data.size());
    return e;
}

HandEntry Deflated(const std::string& name, const Bytes& data) {
    HandEntry e = Stored(name, data);
    e.method = 8;
    e.data = ZlibDeflateRaw(data, 9);
    return e;
}

std::vector<HostileCase> HostileCases() {
    std::vector<HostileCase> cases;
    const Bytes text = TextBytes(5000, 9);
    {
        HandEntry longName = Stored(std::string(256, 'n'), text);
        cases.push_back({"NameOf256BytesIsSkipped",
                         {Stored("a", text), longName, Stored("b", text)},
                         2,
                         {1, 1}});
    }
    {
        HandEntry other = Stored("bzip2.bin", text);
        other.method = 12;
        cases.push_back(
            {"OtherMethodsAreSkipped", {other, Deflated("c", text), Stored("d", {})}, 2, {1, 1}});
    }
    {
        HandEntry sizes = Stored("sizes.bin", text);
        sizes.uncompressedSize = 4999;
        cases.push_back({"StoredSizesDiffer", {sizes, Stored("e", text)}, 2, {0, 1}});
    }
    {
        // Claims 4 GiB uncompressed from 5000 bytes of text: the stream ends
        // long before, so the size check fails without writing more.
        HandEntry huge = Deflated("huge.txt", text);
        huge.uncompressedSize = 0xFFFFFFFFu;
        cases.push_back({"ClaimsFourGigabytes", {huge}, 1, {0}});
    }
    {
        HandEntry bad = Deflated("crc.txt", text);
        bad.crc ^= 1;
        cases.push_back({"CrcMismatch", {bad, Deflated("f", text)}, 2, {0, 1}});
    }
    {
        // Encrypted entry shorter than its 12-byte header: left out.
        HandEntry tiny = Stored("tiny", Bytes(5, 1));
        tiny.flags = 1;
        cases.push_back({"EncryptedTooShort", {tiny, Stored("g", text)}, 1, {1}});
    }
    {
        // A descriptor between entries without one is found by its size field.
        HandEntry described = Deflated("described.txt", text);
        described.descriptor = true;
        cases.push_back({"DescriptorFound",
                         {Stored("first", text), described, Stored("after", text)},
                         3,
                         {1, 1, 1}});
    }
    {
        // Flag bit 3 without any descriptor: the search runs to the end of
        // the file, and the listing stops before that entry.
        HandEntry missing = Deflated("missing.txt", text);
        missing.flags = 8;
        cases.push_back(
            {"DescriptorMissing", {Stored("first", text), missing, Stored("after", text)}, 1, {1}});
    }
    return cases;
}

class ZipHostile : public ::testing::TestWithParam<HostileCase> {};

TEST_P(ZipHostile, ListsAndExtractsAsDocumented) {
    const HostileCase& c = GetParam();
    const std::string dir = ScratchDir();
    const std::string path = dir + "/hostile.zip", out = dir + "/out";
    WriteFile(path, BuildZip(c.entries));
    CNZipDecoder reader;
    ASSERT_EQ(reader.Open(path.c_str()), 1);
    ASSERT_EQ(reader.GetTotalFileNumber(), c.listed);
    for (int i = 0; i < c.listed; ++i) {
        EXPECT_EQ(reader.DecompressFile(i, out.c_str(), nullptr),
                  c.extracts[static_cast<size_t>(i)])
            << "entry " << i;
        EXPECT_LE(FileSizeOf(out), 5000) << "never writes past what the data holds";
    }
}

INSTANTIATE_TEST_SUITE_P(Archives, ZipHostile, ::testing::ValuesIn(HostileCases()),
                         [](const ::testing::TestParamInfo<HostileCase>& info) {
                             return std::string(info.param.name);
                         });

// A compressed size pointing past the end: listed, refused on extraction,
// and the walk stops there.
TEST(ZipDecoder, SizePastTheEnd) {
    const Bytes text = TextBytes(3000, 4);
    HandEntry e = Deflated("far.txt", text);
    Bytes zip = BuildZip({e, Stored("next", text)});
    const size_t sizeField = 18;
    zip[sizeField + 2] = 0x7F;  // compressed size + 0x7F0000
    const std::string dir = ScratchDir();
    WriteFile(dir + "/far.zip", zip);
    CNZipDecoder reader;
    ASSERT_EQ(reader.Open((dir + "/far.zip").c_str()), 1);
    ASSERT_EQ(reader.GetTotalFileNumber(), 1);
    EXPECT_EQ(reader.DecompressFile(0, (dir + "/out").c_str(), nullptr), 0);
}

TEST(ZipDecoder, InterfaceEdges) {
    const std::string dir = ScratchDir();
    const Bytes text = TextBytes(1000, 5);
    HandEntry secret = Stored("secret.bin", Bytes(100, 7));
    secret.flags = 1;
    secret.data.insert(secret.data.begin(), 12, 0);  // an encryption header
    WriteFile(dir + "/a.zip", BuildZip({Stored("a.txt", text), secret}));
    WriteFile(dir + "/b.zip",
              BuildZip({Deflated("b1.txt", text), Deflated("b2", {}), Stored("b3", text)}));

    CNZipDecoder reader;
    char name[256];
    unsigned size;
    int encrypted;
    const std::string out = dir + "/out";
    EXPECT_EQ(reader.GetTotalFileNumber(), 0);
    EXPECT_EQ(reader.GetFileInfo(0, &size, name, &encrypted), 0);
    EXPECT_EQ(reader.DecompressFile(0, out.c_str(), nullptr), 0);
    EXPECT_EQ(reader.Open((dir + "/missing.zip").c_str()), 0);
    EXPECT_EQ(reader.Open(dir.c_str()), 0) << "a folder is not an archive";
    EXPECT_EQ(reader.Open(nullptr), 0);

    ASSERT_EQ(reader.Open((dir + "/a.zip").c_str()), 1);
    ASSERT_EQ(reader.GetTotalFileNumber(), 2);
    ASSERT_EQ(reader.GetFileInfo(1, &size, name, &encrypted), 1);
    EXPECT_STREQ(name, "secret.bin");
    EXPECT_EQ(size, 100u);
    EXPECT_EQ(encrypted, 1);
    EXPECT_EQ(reader.GetFileInfo(2, &size, name, &encrypted), 0);
    EXPECT_EQ(reader.GetFileInfo(-1, &size, name, &encrypted), 0);
    EXPECT_EQ(reader.GetFileInfo(0, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(reader.DecompressFile(2, out.c_str(), nullptr), 0);
    EXPECT_EQ(reader.DecompressFile(-1, out.c_str(), nullptr), 0);
    EXPECT_EQ(reader.DecompressFile(0, nullptr, nullptr), 0);
    EXPECT_EQ(reader.DecompressFile(0, (dir + "/no/such/dir").c_str(), nullptr), 0);
    EXPECT_EQ(reader.DecompressFile(1, out.c_str(), nullptr), 0);
    EXPECT_FALSE(FileExists(out)) << "a refused call creates nothing";

    // The output replaces an existing file.
    WriteFile(out, Bytes(5000, 1));
    ASSERT_EQ(reader.DecompressFile(0, out.c_str(), nullptr), 1);
    EXPECT_TRUE(ReadFile(out) == text);

    // Open on an opened reader lists the new archive.
    ASSERT_EQ(reader.Open((dir + "/b.zip").c_str()), 1);
    ASSERT_EQ(reader.GetTotalFileNumber(), 3);
    ASSERT_EQ(reader.DecompressFile(1, out.c_str(), nullptr), 1);
    EXPECT_EQ(FileSizeOf(out), 0);
    reader.Close();
    EXPECT_EQ(reader.GetTotalFileNumber(), 0);
    EXPECT_EQ(reader.GetFileInfo(0, &size, name, &encrypted), 0);
    reader.Close();
}

// The 64-entry table growth and more entries than fit a 4 KiB search step.
TEST(ZipDecoder, ManyEntriesWithDescriptors) {
    std::vector<HandEntry> entries;
    for (int i = 0; i < 300; ++i) {
        HandEntry e = Deflated("f" + std::to_string(i), TextBytes(static_cast<size_t>(i), i));
        e.descriptor = i % 3 == 0;
        entries.push_back(e);
    }
    const std::string dir = ScratchDir();
    WriteFile(dir + "/many.zip", BuildZip(entries));
    CNZipDecoder reader;
    ASSERT_EQ(reader.Open((dir + "/many.zip").c_str()), 1);
    ASSERT_EQ(reader.GetTotalFileNumber(), 300);
    for (int i : {0, 1, 63, 64, 65, 128, 299}) {
        ASSERT_EQ(reader.DecompressFile(i, (dir + "/out").c_str(), nullptr), 1) << i;
        EXPECT_TRUE(ReadFile(dir + "/out") == TextBytes(static_cast<size_t>(i), i));
    }
}

// Every heap allocation of Open and DecompressFile may fail: Open then
// returns 0 or the whole list, and an extraction 0 or the right bytes.
TEST(ZipDecoder, AllocationFailures) {
    std::vector<HandEntry> entries;
    for (int i = 0; i < 70; ++i)
        entries.push_back(Deflated("f" + std::to_string(i), TextBytes(3000, i)));
    const std::string dir = ScratchDir();
    const std::string path = dir + "/many.zip", out = dir + "/out";
    WriteFile(path, BuildZip(entries));
    bool sawOpenFailure = false, sawExtractFailure = false;
    for (int skip = 0; skip < 16; ++skip) {
        CNZipDecoder reader;
        int opened;
        {
            nplat::fault::Scope fault(nplat::fault::Kind::kHeap, skip);
            opened = reader.Open(path.c_str());
        }
        if (!opened) {
            sawOpenFailure = true;
            EXPECT_EQ(reader.GetTotalFileNumber(), 0);
            continue;
        }
        ASSERT_EQ(reader.GetTotalFileNumber(), 70);
        int extracted;
        {
            nplat::fault::Scope fault(nplat::fault::Kind::kHeap, skip);
            extracted = reader.DecompressFile(69, out.c_str(), nullptr);
        }
        if (!extracted) {
            sawExtractFailure = true;
            continue;
        }
        EXPECT_TRUE(ReadFile(out) == TextBytes(3000, 69));
    }
    EXPECT_TRUE(sawOpenFailure);
    EXPECT_TRUE(sawExtractFailure);
}

// A 50 MB file through Info-ZIP: extraction is byte-identical. Compressible
// content keeps the tool fast.
TEST(ZipDecoder, FiftyMegabyteFile) {
    const std::string dir = ScratchDir();
    Bytes big = TextBytes(50u << 20, 77);
    WriteFile(dir + "/big.txt", big);
    const CommandResult made = RunShell("cd " + Quote(dir) + " && zip -q -1 big.zip big.txt");
    ASSERT_EQ(made.status, 0) << made.output;
    CNZipDecoder reader;
    ASSERT_EQ(reader.Open((dir + "/big.zip").c_str()), 1);
    ASSERT_EQ(reader.GetTotalFileNumber(), 1);
    ASSERT_EQ(reader.DecompressFile(0, (dir + "/out").c_str(), nullptr), 1);
    EXPECT_TRUE(ReadFile(dir + "/out") == big);
}

}  // namespace
}  // namespace ncbtest::archive
