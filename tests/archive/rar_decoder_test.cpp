// CNRarDecoder against a scripted RAR library (installed through
// SetRarLibraryForTesting): the listing and extraction walks, every extended
// error code, the password callback and its buffer sizes, name cutting, and
// that every archive the reader opens is closed again. The real libarchive
// backend is covered by rar_testdata_test.cpp.
#include "ncodecbase/rar_decoder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "archive/rar/rar_library.h"
#include "platform/kernel/fault.h"

namespace ncbtest::archive {
namespace {

using namespace ncb::rar;

// What the scripted library does, and what it saw.
struct Script {
    int openResult = ERAR_SUCCESS;
    std::vector<std::string> names;
    std::vector<unsigned> sizes;
    int endResult = ERAR_END_ARCHIVE;  // header read after the last name
    int askPasswordAtEnd = 0;          // ask before returning endResult
    int failProcessAt = -1;            // entry whose RARProcessFile fails
    int processFailure = ERAR_BAD_DATA;
    int askPasswordOnProcess = 0;
    int passwordBufferSize = 128;
    int headersInExtractMode = -1;  // -1: all names

    // Observations.
    int opens = 0;
    int closes = 0;
    std::vector<unsigned> openModes;
    std::string lastArchiveName;
    std::vector<std::string> operations;  // "skip 0", "extract 2 -> path"
    std::string passwordSeen;
    bool passwordTerminated = true;
};

Script* g_script = nullptr;

struct Handle {
    unsigned mode;
    int next = 0;
    int current = -1;
    UNRARCALLBACK callback = nullptr;
    LPARAM userData = 0;
};

void AskPassword(Handle* h) {
    std::vector<char> buffer(static_cast<size_t>(g_script->passwordBufferSize) + 8, 'X');
    h->callback(UCM_NEEDPASSWORD, h->userData, reinterpret_cast<LPARAM>(buffer.data()),
                g_script->passwordBufferSize);
    const size_t n = strnlen(buffer.data(), static_cast<size_t>(g_script->passwordBufferSize));
    g_script->passwordTerminated = n < static_cast<size_t>(g_script->passwordBufferSize);
    g_script->passwordSeen.assign(buffer.data(), n);
}

RarHandle FakeOpen(RAROpenArchiveDataEx* data) {
    g_script->lastArchiveName = data->ArcName;
    g_script->openModes.push_back(data->OpenMode);
    data->OpenResult = static_cast<unsigned>(g_script->openResult);
    if (g_script->openResult != ERAR_SUCCESS) return nullptr;
    ++g_script->opens;
    return new Handle{data->OpenMode};
}

int FakeClose(RarHandle handle) {
    ++g_script->closes;
    delete static_cast<Handle*>(handle);
    return ERAR_SUCCESS;
}

template <typename Header>
int FakeRead(RarHandle handle, Header* header) {
    auto* h = static_cast<Handle*>(handle);
    int available = static_cast<int>(g_script->names.size());
    if (h->mode == RAR_OM_EXTRACT && g_script->headersInExtractMode >= 0)
        available = g_script->headersInExtractMode;
    if (h->next >= available) {
        if (g_script->askPasswordAtEnd) AskPassword(h);
        return g_script->endResult;
    }
    std::memset(header, 0, sizeof(*header));
    const std::string& name = g_script->names[static_cast<size_t>(h->next)];
    std::strncpy(header->FileName, name.c_str(), sizeof(header->FileName) - 1);
    header->UnpSize = g_script->sizes[static_cast<size_t>(h->next)];
    header->PackSize = header->UnpSize / 2;
    h->current = h->next++;
    return ERAR_SUCCESS;
}

int FakeReadEx(RarHandle handle, RARHeaderDataEx* header) { return FakeRead(handle, header); }
int FakeReadPlain(RarHandle handle, RARHeaderData* header) { return FakeRead(handle, header); }

int FakeProcess(RarHandle handle, int operation, char* destPath, char* destName) {
    auto* h = static_cast<Handle*>(handle);
    std::string op = operation == RAR_SKIP ? "skip " : operation == RAR_EXTRACT ? "extract " : "? ";
    op += std::to_string(h->current);
    if (destPath) op += " path " + std::string(destPath);
    if (destName) op += " -> " + std::string(destName);
    g_script->operations.push_back(op);
    if (h->current == g_script->failProcessAt) {
        if (g_script->askPasswordOnProcess) AskPassword(h);
        return g_script->processFailure;
    }
    return ERAR_SUCCESS;
}

void FakeSetCallback(RarHandle handle, UNRARCALLBACK callback, LPARAM userData) {
    auto* h = static_cast<Handle*>(handle);
    h->callback = callback;
    h->userData = userData;
}

const RarLibrary kFake = {FakeOpen,   FakeClose,   FakeReadPlain,
                          FakeReadEx, FakeProcess, FakeSetCallback};

class RarScripted : public ::testing::Test {
  protected:
    void SetUp() override {
        g_script = &script_;
        script_.names = {"a.txt", "dir/b.bin", "c"};
        script_.sizes = {10, 20000, 0};
        SetRarLibraryForTesting(&kFake);
    }
    void TearDown() override {
        SetRarLibraryForTesting(nullptr);
        EXPECT_EQ(script_.opens, script_.closes) << "every opened archive is closed";
        g_script = nullptr;
    }
    Script script_;
};

TEST_F(RarScripted, ListsNamesAndSizes) {
    CNRarDecoder rar;
    ASSERT_EQ(rar.Open("archive.rar", nullptr), 1);
    EXPECT_EQ(script_.openModes, std::vector<unsigned>{RAR_OM_LIST});
    EXPECT_EQ(script_.lastArchiveName, "archive.rar");
    ASSERT_EQ(rar.GetTotalFileNumber(), 3);
    char name[256];
    unsigned size = 0;
    ASSERT_EQ(rar.GetFileInfo(1, &size, name), 1);
    EXPECT_STREQ(name, "dir/b.bin");
    EXPECT_EQ(size, 20000u);
    EXPECT_EQ(rar.GetFileInfo(3, &size, name), 0);
    EXPECT_EQ(rar.GetFileInfo(-1, &size, name), 0);
    EXPECT_EQ((std::vector<std::string>{"skip 0", "skip 1", "skip 2"}), script_.operations);
}

TEST_F(RarScripted, OpenTwiceKeepsTheList) {
    CNRarDecoder rar;
    ASSERT_EQ(rar.Open("archive.rar", nullptr), 1);
    script_.names.pop_back();
    EXPECT_EQ(rar.Open("other.rar", nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_BAD_ARGUMENT);
    EXPECT_EQ(rar.GetTotalFileNumber(), 3);
    rar.Close();
    EXPECT_EQ(rar.GetTotalFileNumber(), 0);
    ASSERT_EQ(rar.Open("other.rar", nullptr), 1);
    EXPECT_EQ(rar.GetTotalFileNumber(), 2);
}

TEST_F(RarScripted, PathLengths) {
    CNRarDecoder rar;
    EXPECT_EQ(rar.Open(nullptr, nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_BAD_ARGUMENT);
    EXPECT_EQ(rar.Open(std::string(255, 'p').c_str(), nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_BAD_ARGUMENT);
    EXPECT_TRUE(script_.openModes.empty()) << "refused before the library is called";
    const std::string longest(254, 'p');
    ASSERT_EQ(rar.Open(longest.c_str(), nullptr), 1);
    EXPECT_EQ(script_.lastArchiveName, longest);

    EXPECT_EQ(rar.DecompressFile(0, std::string(255, 'o').c_str(), nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_BAD_ARGUMENT);
    EXPECT_EQ(rar.DecompressFile(0, std::string(254, 'o').c_str(), nullptr), 1);
    EXPECT_EQ(script_.operations.back(), "extract 0 -> " + std::string(254, 'o'));
}

struct ListingFailure {
    const char* name;
    int openResult;
    int endResult;
    int askAtEnd;
    int failSkipAt;
    int askOnSkip;
    int opened;
    int error;
};

class RarListingFailures : public RarScripted,
                           public ::testing::WithParamInterface<ListingFailure> {};

TEST_P(RarListingFailures, SetTheDocumentedError) {
    const ListingFailure& f = GetParam();
    script_.openResult = f.openResult;
    script_.endResult = f.endResult;
    script_.askPasswordAtEnd = f.askAtEnd;
    script_.failProcessAt = f.failSkipAt;
    script_.askPasswordOnProcess = f.askOnSkip;
    CNRarDecoder rar;
    EXPECT_EQ(rar.Open("archive.rar", "pw"), f.opened);
    if (!f.opened) {
        EXPECT_EQ(rar.GetExtendErrorCode(), f.error);
        EXPECT_EQ(rar.GetTotalFileNumber(), 0);
    } else {
        EXPECT_EQ(rar.GetTotalFileNumber(), 3);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RarListingFailures,
    ::testing::Values(
        ListingFailure{"OpenFails", ERAR_EOPEN, ERAR_END_ARCHIVE, 0, -1, 0, 0, 3},
        ListingFailure{"BadArchive", ERAR_BAD_ARCHIVE, ERAR_END_ARCHIVE, 0, -1, 0, 0, 3},
        ListingFailure{"BadDataAtEnd", ERAR_SUCCESS, ERAR_BAD_DATA, 0, -1, 0, 0, 5},
        ListingFailure{"BadDataAfterPassword", ERAR_SUCCESS, ERAR_BAD_DATA, 1, -1, 0, 0, 4},
        // Only bad data fails a listing; other stops end it as success.
        ListingFailure{"MissingPasswordEndsListing", ERAR_SUCCESS, ERAR_MISSING_PASSWORD, 1, -1, 0,
                       1, 0},
        ListingFailure{"ReadErrorEndsListing", ERAR_SUCCESS, ERAR_EREAD, 0, -1, 0, 1, 0},
        ListingFailure{"SkipFails", ERAR_SUCCESS, ERAR_END_ARCHIVE, 0, 1, 0, 0, 5},
        ListingFailure{"SkipFailsAfterPassword", ERAR_SUCCESS, ERAR_END_ARCHIVE, 0, 1, 1, 0, 4}),
    [](const ::testing::TestParamInfo<ListingFailure>& info) {
        return std::string(info.param.name);
    });

TEST_F(RarScripted, ExtractionWalksToTheIndex) {
    CNRarDecoder rar;
    ASSERT_EQ(rar.Open("archive.rar", nullptr), 1);
    script_.operations.clear();
    ASSERT_EQ(rar.DecompressFile(2, "/out/c", nullptr), 1);
    EXPECT_EQ(script_.openModes.back(), RAR_OM_EXTRACT);
    EXPECT_EQ((std::vector<std::string>{"skip 0", "skip 1", "extract 2 -> /out/c"}),
              script_.operations);
}

TEST_F(RarScripted, ExtractionErrors) {
    CNRarDecoder rar;
    EXPECT_EQ(rar.DecompressFile(0, "out", nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_BAD_ARGUMENT) << "not open";
    ASSERT_EQ(rar.Open("archive.rar", nullptr), 1);
    for (int index : {-1, 3}) {
        EXPECT_EQ(rar.DecompressFile(index, "out", nullptr), 0);
        EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_BAD_ARGUMENT);
    }
    EXPECT_EQ(rar.DecompressFile(0, nullptr, nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_BAD_ARGUMENT);

    script_.openResult = ERAR_EOPEN;
    EXPECT_EQ(rar.DecompressFile(0, "out", nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_OPEN_ARCHIVE);
    script_.openResult = ERAR_SUCCESS;

    // Extraction of the entry fails: 5, or 4 once the password was asked for.
    script_.failProcessAt = 1;
    EXPECT_EQ(rar.DecompressFile(1, "out", "pw"), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_ARCHIVE);
    script_.askPasswordOnProcess = 1;
    EXPECT_EQ(rar.DecompressFile(1, "out", "pw"), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_PASSWORD);
    // A skip that fails before the wanted entry is an archive error, always.
    EXPECT_EQ(rar.DecompressFile(2, "out", "pw"), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_ARCHIVE);
    script_.failProcessAt = -1;

    // Bad data reading the headers.
    script_.headersInExtractMode = 1;
    script_.endResult = ERAR_BAD_DATA;
    script_.askPasswordAtEnd = 0;
    EXPECT_EQ(rar.DecompressFile(2, "out", nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_ARCHIVE);
    script_.askPasswordAtEnd = 1;
    EXPECT_EQ(rar.DecompressFile(2, "out", nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_PASSWORD);

    // Fewer headers than listed, ended another way: 1, nothing extracted.
    script_.endResult = ERAR_END_ARCHIVE;
    script_.operations.clear();
    EXPECT_EQ(rar.DecompressFile(2, "out", nullptr), 1);
    EXPECT_EQ(script_.operations, std::vector<std::string>{"skip 0"});
}

TEST_F(RarScripted, PasswordReachesTheCallbackWithinItsBuffer) {
    CNRarDecoder rar;
    ASSERT_EQ(rar.Open("archive.rar", "listing"), 1);
    script_.failProcessAt = 0;
    script_.askPasswordOnProcess = 1;

    struct Case {
        const char* password;
        int bufferSize;
        std::string seen;
    };
    const std::string long70(70, 'k');
    const Case cases[] = {{"secret", 128, "secret"},
                          {"secret", 4, "sec"},
                          {"secret", 1, ""},
                          {nullptr, 128, ""},
                          {long70.c_str(), 128, std::string(63, 'k')}};
    for (const Case& c : cases) {
        script_.passwordBufferSize = c.bufferSize;
        script_.passwordSeen = "unset";
        EXPECT_EQ(rar.DecompressFile(0, "out", c.password), 0);
        EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_PASSWORD);
        EXPECT_EQ(script_.passwordSeen, c.seen) << "buffer " << c.bufferSize;
        EXPECT_TRUE(script_.passwordTerminated);
    }
}

TEST_F(RarScripted, CallbackMessages) {
    CNRarDecoder rar;
    ASSERT_EQ(rar.Open("archive.rar", "pw"), 1);
    char buffer[8] = "xxxxxxx";
    const LPARAM self = reinterpret_cast<LPARAM>(&rar);
    EXPECT_EQ(CNRarDecoder::CallbackProcStub(UCM_CHANGEVOLUME, self, 0, 0), 0);
    EXPECT_EQ(
        CNRarDecoder::CallbackProcStub(UCM_PROCESSDATA, self, reinterpret_cast<LPARAM>(buffer), 8),
        0);
    EXPECT_STREQ(buffer, "xxxxxxx") << "only the password message writes";
    EXPECT_EQ(
        CNRarDecoder::CallbackProcStub(UCM_NEEDPASSWORD, self, reinterpret_cast<LPARAM>(buffer), 8),
        0);
    EXPECT_STREQ(buffer, "pw");
    EXPECT_EQ(CNRarDecoder::CallbackProcStub(UCM_NEEDPASSWORD, 0, 0, 0), 0) << "no reader";
    EXPECT_EQ(rar.CallbackProc(UCM_NEEDPASSWORD, 0, 16), 0) << "no buffer";
}

// Names longer than an entry holds are cut at a UTF-8 character boundary.
TEST_F(RarScripted, LongNamesAreCut) {
    std::string name(253, 'a');
    name += "\xE2\x82\xAC\xE2\x82\xAC";  // two 3-byte characters across byte 255
    script_.names = {name, std::string(600, 'b')};
    script_.sizes = {1, 2};
    CNRarDecoder rar;
    ASSERT_EQ(rar.Open("archive.rar", nullptr), 1);
    char out[256];
    ASSERT_EQ(rar.GetFileInfo(0, nullptr, out), 1);
    EXPECT_EQ(std::string(out), std::string(253, 'a'));
    ASSERT_EQ(rar.GetFileInfo(1, nullptr, out), 1);
    EXPECT_EQ(std::string(out), std::string(255, 'b'));
}

TEST_F(RarScripted, OutOfMemoryWhileListing) {
    script_.names.assign(100, "n");
    script_.sizes.assign(100, 1);
    bool sawFailure = false;
    for (int skip = 0; skip < 12; ++skip) {
        CNRarDecoder rar;
        int opened;
        {
            nplat::fault::Scope fault(nplat::fault::Kind::kHeap, skip);
            opened = rar.Open("archive.rar", nullptr);
        }
        if (!opened) {
            sawFailure = true;
            EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_OUT_OF_MEMORY);
            EXPECT_EQ(rar.GetTotalFileNumber(), 0);
        } else {
            EXPECT_EQ(rar.GetTotalFileNumber(), 100);
        }
    }
    EXPECT_TRUE(sawFailure);
}

// The built-in backend: an archive it cannot open is error 3.
TEST(RarBuiltIn, UnopenableArchives) {
    CNRarDecoder rar;
    EXPECT_EQ(rar.Open("/no/such/archive.rar", nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_OPEN_ARCHIVE);
    const std::string notRar = std::string(NCB_TESTDATA_DIR) + "/zip/stored.zip";
    EXPECT_EQ(rar.Open(notRar.c_str(), nullptr), 0);
    EXPECT_EQ(rar.GetExtendErrorCode(), CNRarDecoder::ERROR_OPEN_ARCHIVE);
}

}  // namespace
}  // namespace ncbtest::archive
