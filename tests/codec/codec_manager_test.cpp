// The codec plug-in manager against real plug-ins: the tables' indexes and
// file names, loading on demand, shared files, counts, freezing, unloading as
// seen in /proc/self/maps, and every failure with nothing left behind.
#include "ncodecbase/codec_manager.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/kernel/fault.h"
#include "tests/codec/plugin_probe.h"
#include "tests/support/test_paths.h"

namespace {

using M = CNCodecManager;
using ncbtest::CodecPluginDir;
using ncbtest::LoadedRecords;
using ncbtest::MappingCount;

const std::string kAudioDir = CodecPluginDir("audio");
const std::string kVideoDir = CodecPluginDir("video");
const std::string kBrokenDir = CodecPluginDir("broken");

const NTestDecoder* AsDecoder(void* instance) { return static_cast<NTestDecoder*>(instance); }

// Every test starts and ends with the manager uninitialised and no plug-in
// left behind.
class CodecManagerTest : public ::testing::Test {
  protected:
    void SetUp() override { M::Uninit(); }
    void TearDown() override {
        M::Uninit();
        EXPECT_TRUE(LoadedRecords().empty());
    }
    static void InitGood() { ASSERT_EQ(M::Init(kAudioDir.c_str(), kVideoDir.c_str()), 1); }
};

// ---- The tables -----------------------------------------------------------

struct TableRow {
    int firstIndex;
    int type;
    std::vector<int> subtypes;
    const char* file;
    int flag;
};

std::vector<int> Span(int first, int last) {
    std::vector<int> values;
    for (int v = first; v <= last; ++v) values.push_back(v);
    return values;
}

std::vector<int> Join(std::initializer_list<std::vector<int>> parts) {
    std::vector<int> values;
    for (const auto& part : parts) values.insert(values.end(), part.begin(), part.end());
    return values;
}

const std::vector<TableRow> kAudioTable = {
    {0, 0x100, Join({{-1}, Span(0x101, 0x109)}), "NAudioDecoderMpeg.dll", 1},
    {10, 0x200, Join({{-1}, Span(0x201, 0x204)}), "NAudioDecoderAAC.dll", 1},
    {15, 0x400, Join({{-1}, Span(0x401, 0x403)}), "NAudioDecoderAC3.dll", 1},
    {19, 0x500, {-1, 0x501, 0x504}, "NAudioDecoderDTS.dll", 1},
    {22, 0x800, {-1, 0x801}, "NAudioDecoderVorbis.dll", 1},
    {24, 0x600, {-1, 0x601}, "NAudioDecoderReal.dll", 1},
    {26, 0x700, {-1, 0x701, 0x702}, "NAudioDecoderWMA.dll", 1},
    {29, 0x700, Span(0x703, 0x705), "NAudioDecoderWMA_DMO.dll", 0},
    {32, 0x300, Join({{-1}, Span(0x301, 0x303)}), "NAudioDecoderAMR.dll", 0},
    {36, 0xA00, {-1, 0xA01}, "NAudioDecoderAPE.dll", 1},
    {38, 0xB00, {-1, 0xB01}, "NAudioDecoderFlac.dll", 1},
    {40, 0x900, {-1, 0x902}, "NAudioDecoderCommon.dll", 1},
    {42, 0, {2, 3, -1, 1, 4, 5, 6, 7, 8, 0xA, 9, 0xF}, "NAudioDecoderCommon.dll", 1},
};
constexpr int kAudioEnd = 54;

const std::vector<TableRow> kVideoTable = {
    {0, 0x1000, {-1, 0x1001}, "NVideoDecoderMpeg12.dll", 1},
    {2, 0x1100, {-1, 0x1101}, "NVideoDecoderMpeg12.dll", 1},
    {4, 0x1200, {-1, 0x1201, 0x1202}, "NVideoDecoderMpeg4.dll", 1},
    {7, 0x1400, Join({{-1}, Span(0x1401, 0x1407)}), "NVideoDecoder263.dll", 1},
    {15, 0x1500, Join({{-1}, Span(0x1501, 0x1504)}), "NVideoDecoder264.dll", 1},
    {20, 0x1600, {-1, 0x1601, 0x1602}, "NVideoDecoderReal.dll", 1},
    {23, 0x1700, {-1, 0x1701, 0x1702, 0x1704}, "NVideoDecoderVC1.dll", 1},
    {27, 0x1800, Join({{-1}, Span(0x1801, 0x1805)}), "NVideoDecoderWMV.dll", 1},
    {33, 0x1800, Span(0x1806, 0x180A), "NVideoDecoderWMV_DMO.dll", 0},
    {38, 0x1D00, {-1, 0x1D01, 0x1D02}, "NVideoDecoderCommon.dll", 1},
    {41, 0x200, {-1, 0x201, 0x203, 0x204, 0x205}, "NVideoDecoderCommon.dll", 1},
    {46, 0x300, {-1, 0x301, 0x302}, "NVideoDecoderCommon.dll", 1},
    {49, 0x500, {-1, 0x501, 0x502}, "NVideoDecoderCommon.dll", 1},
    {52, 0x100, Join({{-1}, Span(0x100, 0x109), {0x10B, 0x10C}}), "NVideoDecoderCommon.dll", 1},
    {65, 0, Join({{-1}, Span(0, 4), Span(6, 0xD), Span(0x11, 0x15)}), "NVideoDecoderCommon.dll", 1},
};
constexpr int kVideoEnd = 84;

// One family of the manager, so each behaviour is tested for audio and video.
struct Family {
    const char* name;
    const std::vector<TableRow>* table;
    int endIndex;
    const M::CodecMappingRuleInfoTag* rules;
    const std::string* folder;
    void* (*allocate)(int, int);
    void (*free)(void*, int, int);
    int (*freeze)(int, int);
    void (*unfreeze)(int, int);
    int (*find)(int, int);
    bool video;
    // Two rules of one plug-in file, for the lifecycle tests.
    int type, subtypeA, subtypeB;
    const char* file;

    int KeyOf(int rule) const { return video ? -1 - rule : rule; }
    std::string Path(const char* fileName) const { return *folder + "/" + fileName; }
    int Mapped() const { return MappingCount(Path(file)); }
};

const Family kAudioFamily{"Audio",
                          &kAudioTable,
                          kAudioEnd,
                          M::s_stAudioMappingRule,
                          &kAudioDir,
                          M::AllocateAudioDecoder,
                          M::FreeAudioDecoder,
                          M::FreezeAudioDecoder,
                          M::UnfreezeAudioDecoder,
                          M::FindAudioDecoderPos,
                          false,
                          0x200,
                          0x201,
                          0x202,
                          "NAudioDecoderAAC.dll"};
const Family kVideoFamily{"Video",
                          &kVideoTable,
                          kVideoEnd,
                          M::s_stVideoMappingRule,
                          &kVideoDir,
                          M::AllocateVideoDecoder,
                          M::FreeVideoDecoder,
                          M::FreezeVideoDecoder,
                          M::UnfreezeVideoDecoder,
                          M::FindVideoDecoderPos,
                          true,
                          0x1500,
                          0x1501,
                          0x1502,
                          "NVideoDecoder264.dll"};

class CodecManagerFamilyTest : public CodecManagerTest,
                               public ::testing::WithParamInterface<Family> {};

INSTANTIATE_TEST_SUITE_P(Families, CodecManagerFamilyTest,
                         ::testing::Values(kAudioFamily, kVideoFamily),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(CodecManagerFamilyTest, TableRowsSitAtTheirIndexes) {
    const Family& f = GetParam();
    int expected = 0;
    for (const TableRow& row : *f.table) {
        ASSERT_EQ(row.firstIndex, expected) << "rows of the test table must be contiguous";
        for (int subtype : row.subtypes) {
            SCOPED_TRACE(testing::Message() << "rule " << expected);
            const M::CodecMappingRuleInfoTag& rule = f.rules[expected];
            EXPECT_EQ(rule.nFlag, row.flag);
            EXPECT_EQ(rule.nCodecType, row.type);
            EXPECT_EQ(rule.nCodecSubType, subtype);
            EXPECT_STREQ(rule.pFileName, row.file);
            EXPECT_EQ(f.find(row.type, subtype), expected);
            ++expected;
        }
    }
    EXPECT_EQ(expected, f.endIndex);
    EXPECT_EQ(f.rules[f.endIndex].nCodecType, -1);
    // The end record stops the search; it is never a match itself.
    EXPECT_EQ(f.find(-1, f.rules[f.endIndex].nCodecSubType), -1);
    EXPECT_EQ(f.find(f.type, 0x7FFF), -1);
}

// Every rule, end to end: the instance comes from the file the table names,
// made for the pair asked for, and nothing stays loaded afterwards.
TEST_P(CodecManagerFamilyTest, EveryRuleLoadsItsFileAndUnloadsIt) {
    const Family& f = GetParam();
    InitGood();
    int rule = 0;
    for (const TableRow& row : *f.table) {
        for (int subtype : row.subtypes) {
            SCOPED_TRACE(testing::Message() << "rule " << rule);
            void* instance = f.allocate(row.type, subtype);
            ASSERT_NE(instance, nullptr);
            EXPECT_STREQ(AsDecoder(instance)->fileName, row.file);
            EXPECT_EQ(AsDecoder(instance)->codecType, row.type);
            EXPECT_EQ(AsDecoder(instance)->codecSubType, subtype);
            EXPECT_GT(MappingCount(f.Path(row.file)), 0);
            auto records = LoadedRecords();
            ASSERT_EQ(records.size(), 1u);
            EXPECT_EQ(records[0].key, f.KeyOf(rule));
            EXPECT_EQ(records[0].count, 1);
            EXPECT_EQ(records[0].flags, f.video ? M::MODULE_FLAG_VIDEO : M::MODULE_FLAG_AUDIO);
            f.free(instance, row.type, subtype);
            EXPECT_EQ(MappingCount(f.Path(row.file)), 0);
            EXPECT_TRUE(LoadedRecords().empty());
            ++rule;
        }
    }
}

// ---- Lifecycle ------------------------------------------------------------

TEST_P(CodecManagerFamilyTest, OnePairSharesARecordAndTheLastFreeUnloads) {
    const Family& f = GetParam();
    InitGood();
    void* first = f.allocate(f.type, f.subtypeA);
    void* second = f.allocate(f.type, f.subtypeA);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    auto records = LoadedRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].count, 2);
    EXPECT_EQ(ncbtest::LiveInstances(records[0].module), 2);
    EXPECT_GT(f.Mapped(), 0);

    f.free(first, f.type, f.subtypeA);
    EXPECT_EQ(LoadedRecords().at(0).count, 1);
    EXPECT_EQ(ncbtest::LiveInstances(records[0].module), 1);
    EXPECT_GT(f.Mapped(), 0);
    f.free(second, f.type, f.subtypeA);
    EXPECT_TRUE(LoadedRecords().empty());
    EXPECT_EQ(f.Mapped(), 0);
}

TEST_P(CodecManagerFamilyTest, PairsOfOneFileKeepRecordsOfTheirOwn) {
    const Family& f = GetParam();
    InitGood();
    void* a = f.allocate(f.type, f.subtypeA);
    void* b = f.allocate(f.type, f.subtypeB);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    auto records = LoadedRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].key, f.KeyOf(f.find(f.type, f.subtypeA)));
    EXPECT_EQ(records[1].key, f.KeyOf(f.find(f.type, f.subtypeB)));
    EXPECT_EQ(records[0].module, records[1].module);  // one copy in memory
    EXPECT_EQ(ncbtest::LiveInstances(records[0].module), 2);

    f.free(a, f.type, f.subtypeA);
    EXPECT_EQ(LoadedRecords().size(), 1u);
    EXPECT_GT(f.Mapped(), 0) << "the other rule still holds the file";
    f.free(b, f.type, f.subtypeB);
    EXPECT_EQ(f.Mapped(), 0);
}

TEST_P(CodecManagerFamilyTest, FrozenPluginOutlivesItsInstancesUntilAFreeAfterUnfreeze) {
    const Family& f = GetParam();
    InitGood();
    void* instance = f.allocate(f.type, f.subtypeA);
    ASSERT_NE(instance, nullptr);
    nplat::HMODULE module = LoadedRecords().at(0).module;
    ASSERT_EQ(f.freeze(f.type, f.subtypeA), 1);
    f.free(instance, f.type, f.subtypeA);
    auto records = LoadedRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].count, 0);
    EXPECT_TRUE(records[0].flags & M::MODULE_FLAG_FROZEN);
    EXPECT_GT(f.Mapped(), 0);
    EXPECT_EQ(ncbtest::LiveInstances(module), 0);

    // The frozen record serves the next request without loading again.
    instance = f.allocate(f.type, f.subtypeA);
    ASSERT_NE(instance, nullptr);
    records = LoadedRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].module, module);
    EXPECT_EQ(records[0].count, 1);

    f.unfreeze(f.type, f.subtypeA);
    EXPECT_FALSE(LoadedRecords().at(0).flags & M::MODULE_FLAG_FROZEN);
    EXPECT_GT(f.Mapped(), 0) << "unfreezing never unloads";
    f.free(instance, f.type, f.subtypeA);
    EXPECT_TRUE(LoadedRecords().empty());
    EXPECT_EQ(f.Mapped(), 0);
}

TEST_P(CodecManagerFamilyTest, IdleUnfrozenPluginGoesAtUninit) {
    const Family& f = GetParam();
    InitGood();
    void* instance = f.allocate(f.type, f.subtypeA);
    ASSERT_NE(instance, nullptr);
    ASSERT_EQ(f.freeze(f.type, f.subtypeA), 1);
    f.free(instance, f.type, f.subtypeA);
    f.unfreeze(f.type, f.subtypeA);
    EXPECT_GT(f.Mapped(), 0);
    EXPECT_EQ(M::Uninit(), 1);
    EXPECT_EQ(f.Mapped(), 0);
}

TEST_P(CodecManagerFamilyTest, FreezeNeverLoads) {
    const Family& f = GetParam();
    EXPECT_EQ(f.freeze(f.type, f.subtypeA), 0);  // not inited
    InitGood();
    EXPECT_EQ(f.freeze(f.type, f.subtypeA), 0);  // not loaded
    EXPECT_EQ(f.freeze(f.type, 0x7FFF), 0);      // no rule
    f.unfreeze(f.type, f.subtypeA);
    EXPECT_EQ(f.Mapped(), 0);
    EXPECT_TRUE(LoadedRecords().empty());

    // Loaded through one rule is not loaded for another rule of the file.
    void* instance = f.allocate(f.type, f.subtypeA);
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(f.freeze(f.type, f.subtypeB), 0);
    EXPECT_EQ(LoadedRecords().size(), 1u);
    f.free(instance, f.type, f.subtypeA);
    EXPECT_EQ(f.Mapped(), 0);
}

TEST_P(CodecManagerFamilyTest, FreeWithoutALiveInstanceDoesNothing) {
    const Family& f = GetParam();
    InitGood();
    void* instance = f.allocate(f.type, f.subtypeA);
    ASSERT_NE(instance, nullptr);
    nplat::HMODULE module = LoadedRecords().at(0).module;
    auto destroyCalls = ncbtest::PluginProc<NTestDestroyCallsProc>(module, "NTestDestroyCalls");
    ASSERT_NE(destroyCalls, nullptr);

    f.free(instance, f.type, f.subtypeB);  // that rule has no record
    f.free(instance, f.type, 0x7FFF);      // no rule at all
    EXPECT_EQ(destroyCalls(), 0);
    ASSERT_EQ(f.freeze(f.type, f.subtypeA), 1);
    f.free(instance, f.type, f.subtypeA);
    EXPECT_EQ(destroyCalls(), 1);
    f.free(instance, f.type, f.subtypeA);  // count is 0 now: nothing
    EXPECT_EQ(destroyCalls(), 1);
    EXPECT_EQ(LoadedRecords().at(0).count, 0);
}

TEST_P(CodecManagerFamilyTest, UninitUnloadsEvenWithLiveInstances) {
    const Family& f = GetParam();
    InitGood();
    void* a = f.allocate(f.type, f.subtypeA);
    void* b = f.allocate(f.type, f.subtypeB);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(f.freeze(f.type, f.subtypeA), 1);
    EXPECT_EQ(M::Uninit(), 1);
    EXPECT_EQ(f.Mapped(), 0);
    EXPECT_TRUE(LoadedRecords().empty());
    // Not destroyed: the plug-in never saw them again.
    EXPECT_EQ(AsDecoder(a)->magic, NTEST_DECODER_LIVE);
    EXPECT_EQ(AsDecoder(b)->magic, NTEST_DECODER_LIVE);
    // The plug-in is gone, so a Free now must not call into it.
    f.free(a, f.type, f.subtypeA);
    InitGood();
    f.free(b, f.type, f.subtypeB);
    EXPECT_EQ(f.Mapped(), 0);
    std::free(a);
    std::free(b);
}

// ---- Init, Uninit and calls outside them ------------------------------------

TEST_F(CodecManagerTest, EverythingFailsBeforeInitAndAfterUninit) {
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round ? "after Uninit" : "before Init");
        EXPECT_EQ(M::Uninit(), 0);
        EXPECT_EQ(M::AllocateAudioDecoder(0x200, 0x201), nullptr);
        EXPECT_EQ(M::AllocateVideoDecoder(0x1500, 0x1501), nullptr);
        EXPECT_EQ(M::FreezeAudioDecoder(0x200, 0x201), 0);
        EXPECT_EQ(M::FreezeVideoDecoder(0x1500, 0x1501), 0);
        M::UnfreezeAudioDecoder(0x200, 0x201);
        M::FreeAudioDecoder(nullptr, 0x200, 0x201);
        M::FreeVideoDecoder(nullptr, 0x1500, 0x1501);
        EXPECT_EQ(MappingCount(kAudioDir + "/NAudioDecoderAAC.dll"), 0);
        EXPECT_TRUE(LoadedRecords().empty());
        // The tables need no Init.
        EXPECT_EQ(M::FindAudioDecoderPos(0x200, 0x201), 11);
        EXPECT_EQ(M::FindVideoDecoderPos(0x1500, 0x1501), 16);
        InitGood();
        EXPECT_EQ(M::Uninit(), 1);
    }
}

TEST_F(CodecManagerTest, SecondInitFailsAndKeepsTheFirstFolders) {
    InitGood();
    EXPECT_EQ(M::Init(kBrokenDir.c_str(), kBrokenDir.c_str()), 0);
    EXPECT_EQ(M::s_nInited, 1);
    EXPECT_EQ(kAudioDir, M::s_chAudioCodecPath);
    EXPECT_EQ(kVideoDir, M::s_chVideoCodecPath);
    void* instance = M::AllocateAudioDecoder(0x100, -1);  // broken folder would refuse
    ASSERT_NE(instance, nullptr);
    M::FreeAudioDecoder(instance, 0x100, -1);
}

TEST_F(CodecManagerTest, FoldersMustFitTheirBuffers) {
    std::string fits(M::CODEC_PATH_SIZE - 1, 'a');
    std::string tooLong(M::CODEC_PATH_SIZE, 'a');
    EXPECT_EQ(M::Init(tooLong.c_str(), fits.c_str()), 0);
    EXPECT_EQ(M::Init(fits.c_str(), tooLong.c_str()), 0);
    EXPECT_EQ(M::Init(nullptr, fits.c_str()), 0);
    EXPECT_EQ(M::Init(fits.c_str(), nullptr), 0);
    EXPECT_EQ(M::s_nInited, 0);
    EXPECT_EQ(M::Init(fits.c_str(), fits.c_str()), 1);
    EXPECT_EQ(M::AllocateAudioDecoder(0x200, 0x201), nullptr);  // no such folder
}

// A folder of the longest accepted length still yields a loadable path.
TEST_F(CodecManagerTest, LongestFolderStillLoads) {
    const size_t longest = M::CODEC_PATH_SIZE - 1;
    std::string folder = ncbtest::ScratchDir();
    ASSERT_LT(folder.size(), longest - 200);
    while (folder.size() < longest) {
        size_t remaining = longest - folder.size();  // '/' and a name
        size_t name = remaining - 1;
        if (name > 200) name = remaining == 202 ? 199 : 200;  // never leave room for '/' only
        folder += "/" + std::string(name, 'd');
    }
    ASSERT_EQ(folder.size(), longest);
    std::filesystem::create_directories(folder);
    const std::string file = folder + "/NAudioDecoderAAC.dll";
    std::filesystem::copy_file(kAudioDir + "/NAudioDecoderAAC.dll", file);
    ASSERT_EQ(M::Init(folder.c_str(), kVideoDir.c_str()), 1);
    void* instance = M::AllocateAudioDecoder(0x200, -1);
    ASSERT_NE(instance, nullptr);
    EXPECT_GT(MappingCount(file), 0);
    M::FreeAudioDecoder(instance, 0x200, -1);
    EXPECT_EQ(MappingCount(file), 0);
}

// ---- Plug-ins that fail ---------------------------------------------------

TEST_F(CodecManagerTest, PairWithoutARuleTouchesNothing) {
    InitGood();
    EXPECT_EQ(M::AllocateAudioDecoder(0x200, 0x205), nullptr);
    EXPECT_EQ(M::AllocateAudioDecoder(-1, -1), nullptr);
    EXPECT_EQ(MappingCount(kAudioDir + "/NAudioDecoderAAC.dll"), 0);
    EXPECT_TRUE(LoadedRecords().empty());
    // The same pair has a video rule.
    void* instance = M::AllocateVideoDecoder(0x200, 0x205);
    ASSERT_NE(instance, nullptr);
    EXPECT_STREQ(AsDecoder(instance)->fileName, "NVideoDecoderCommon.dll");
    M::FreeVideoDecoder(instance, 0x200, 0x205);
}

TEST_F(CodecManagerTest, AudioAndVideoRecordsNeverCollide) {
    InitGood();
    void* audio = M::AllocateAudioDecoder(0x100, 0x103);  // audio rule 3
    void* video = M::AllocateVideoDecoder(0x1100, -1);    // video rule 2
    ASSERT_NE(audio, nullptr);
    ASSERT_NE(video, nullptr);
    auto records = LoadedRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].key, 3);
    EXPECT_EQ(records[1].key, -3);
    M::FreeAudioDecoder(audio, 0x100, 0x103);
    records = LoadedRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].key, -3);
    M::FreeVideoDecoder(video, 0x1100, -1);
    EXPECT_EQ(MappingCount(kAudioDir + "/NAudioDecoderMpeg.dll"), 0);
    EXPECT_EQ(MappingCount(kVideoDir + "/NVideoDecoderMpeg12.dll"), 0);
}

struct BrokenCase {
    const char* name;
    int type, subtype;
    const char* file;
};

class CodecManagerBrokenTest : public CodecManagerTest,
                               public ::testing::WithParamInterface<BrokenCase> {};

INSTANTIATE_TEST_SUITE_P(
    Plugins, CodecManagerBrokenTest,
    ::testing::Values(BrokenCase{"Missing", 0xB00, -1, "NAudioDecoderFlac.dll"},
                      BrokenCase{"NoEntryPoints", 0x100, 0x101, "NAudioDecoderMpeg.dll"},
                      BrokenCase{"CreateOnly", 0x200, 0x201, "NAudioDecoderAAC.dll"},
                      BrokenCase{"DestroyOnly", 0x400, 0x401, "NAudioDecoderAC3.dll"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_P(CodecManagerBrokenTest, GivesNullAndLeavesNothingLoaded) {
    const BrokenCase& c = GetParam();
    ASSERT_EQ(M::Init(kBrokenDir.c_str(), kBrokenDir.c_str()), 1);
    EXPECT_EQ(M::AllocateAudioDecoder(c.type, c.subtype), nullptr);
    EXPECT_EQ(MappingCount(kBrokenDir + "/" + c.file), 0);
    EXPECT_TRUE(LoadedRecords().empty());
    EXPECT_EQ(M::FreezeAudioDecoder(c.type, c.subtype), 0);
    // Failing again goes through the same steps rather than remembering.
    EXPECT_EQ(M::AllocateAudioDecoder(c.type, c.subtype), nullptr);
    EXPECT_TRUE(LoadedRecords().empty());
}

TEST_F(CodecManagerTest, FileThatIsNotALibraryGivesNull) {
    std::string folder = ncbtest::ScratchDir();
    std::ofstream(folder + "/NAudioDecoderDTS.dll") << "MZ not an ELF object";
    ASSERT_EQ(M::Init(folder.c_str(), folder.c_str()), 1);
    EXPECT_EQ(M::AllocateAudioDecoder(0x500, 0x501), nullptr);
    EXPECT_TRUE(LoadedRecords().empty());
}

// A plug-in that refuses to create stays loaded with an idle record; Free has
// nothing to destroy (the plug-in aborts if its NDestroyInstance is called).
TEST_F(CodecManagerTest, RefusingPluginStaysLoadedUntilUninit) {
    ASSERT_EQ(M::Init(kBrokenDir.c_str(), kBrokenDir.c_str()), 1);
    const std::string path = kBrokenDir + "/NVideoDecoder264.dll";
    EXPECT_EQ(M::AllocateVideoDecoder(0x1500, 0x1503), nullptr);
    EXPECT_EQ(M::AllocateVideoDecoder(0x1500, 0x1503), nullptr);
    auto records = LoadedRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].key, -1 - 18);
    EXPECT_EQ(records[0].count, 0);
    EXPECT_GT(MappingCount(path), 0);
    auto createCalls = ncbtest::PluginProc<int (*)()>(records[0].module, "NTestCreateCalls");
    ASSERT_NE(createCalls, nullptr);
    EXPECT_EQ(createCalls(), 2);  // loaded once, asked twice

    int dummy = 0;
    M::FreeVideoDecoder(&dummy, 0x1500, 0x1503);
    EXPECT_EQ(LoadedRecords().size(), 1u);
    EXPECT_EQ(M::FreezeVideoDecoder(0x1500, 0x1503), 1);  // loaded, so it can be frozen
    EXPECT_EQ(M::Uninit(), 1);
    EXPECT_EQ(MappingCount(path), 0);
}

// ---- Folder encodings -------------------------------------------------------

// A folder with non-ASCII characters, holding a copy of the AAC plug-in.
std::string NonAsciiFolder(const std::string& tail = "") {
    std::filesystem::path folder =
        std::filesystem::path(ncbtest::ScratchDir()) / std::u8string(u8"Plüg-ins \u20AC");
    if (!tail.empty()) folder /= tail;
    std::filesystem::create_directories(folder);
    std::filesystem::copy_file(kAudioDir + "/NAudioDecoderAAC.dll",
                               folder / "NAudioDecoderAAC.dll");
    return folder.string();
}

const std::string kByteOrderMark = "\xEF\xBB\xBF";

TEST_F(CodecManagerTest, FolderWithByteOrderMarkLoadsThroughTheWidePath) {
    std::string folder = NonAsciiFolder();
    std::string file = folder + "/NAudioDecoderAAC.dll";
    for (const std::string& given : {kByteOrderMark + folder, folder}) {
        ASSERT_EQ(M::Init(given.c_str(), kVideoDir.c_str()), 1);
        void* instance = M::AllocateAudioDecoder(0x200, 0x203);
        ASSERT_NE(instance, nullptr);
        EXPECT_GT(MappingCount(file), 0);
        M::FreeAudioDecoder(instance, 0x200, 0x203);
        EXPECT_EQ(MappingCount(file), 0);
        EXPECT_EQ(M::Uninit(), 1);
    }
}

// The wide path holds 259 characters and a terminator; a longer one fails
// instead of loading a truncated path.
TEST_F(CodecManagerTest, WidePathHolds259Characters) {
    const size_t fileUnits = std::string("/NAudioDecoderAAC.dll").size();
    std::u16string base = std::filesystem::path(NonAsciiFolder()).u16string();
    ASSERT_LT(base.size() + 2 + fileUnits, 259u);
    for (size_t units : {259u, 260u}) {
        SCOPED_TRACE(units);
        // One more folder level whose name brings the path to `units`.
        std::string name(units - base.size() - 1 - fileUnits, 'w');
        std::string folder = NonAsciiFolder(name);
        ASSERT_EQ(std::filesystem::path(folder + "/NAudioDecoderAAC.dll").u16string().size(),
                  units);
        ASSERT_EQ(M::Init((kByteOrderMark + folder).c_str(), kVideoDir.c_str()), 1);
        void* instance = M::AllocateAudioDecoder(0x200, 0x201);
        EXPECT_EQ(instance != nullptr, units == 259u);
        if (instance) M::FreeAudioDecoder(instance, 0x200, 0x201);
        EXPECT_TRUE(LoadedRecords().empty());
        EXPECT_EQ(M::Uninit(), 1);
        std::filesystem::remove_all(folder);
    }
}

// ---- Out of memory ------------------------------------------------------------

class CodecManagerMemoryTest : public CodecManagerTest,
                               public ::testing::WithParamInterface<bool> {};

INSTANTIATE_TEST_SUITE_P(Paths, CodecManagerMemoryTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Wide" : "Narrow"; });

// Each heap allocation of a first Allocate fails in turn: every one gives
// null with nothing loaded, until the manager gets all it needs.
TEST_P(CodecManagerMemoryTest, EachFailedAllocationLeavesNothingLoaded) {
    std::string folder = NonAsciiFolder();
    std::string file = folder + "/NAudioDecoderAAC.dll";
    std::string given = (GetParam() ? kByteOrderMark : "") + folder;
    ASSERT_EQ(M::Init(given.c_str(), kVideoDir.c_str()), 1);
    int failures = 0;
    for (int skip = 0; skip < 64; ++skip) {
        void* instance = nullptr;
        {
            nplat::fault::Scope fault(nplat::fault::Kind::kHeap, skip);
            instance = M::AllocateAudioDecoder(0x200, 0x204);
        }
        if (instance) {
            EXPECT_EQ(LoadedRecords().size(), 1u);
            M::FreeAudioDecoder(instance, 0x200, 0x204);
            break;
        }
        ++failures;
        EXPECT_TRUE(LoadedRecords().empty()) << "skip " << skip;
        EXPECT_EQ(MappingCount(file), 0) << "skip " << skip;
    }
    EXPECT_GE(failures, GetParam() ? 2 : 1);
    EXPECT_EQ(MappingCount(file), 0);
}

// ---- Calls back into the manager ----------------------------------------------

// What a hook does, once, from inside a plug-in's entry point.
struct HookAction {
    enum { kAllocateVideo, kFreeVideo, kFreeAudio } what;
    int type, subtype;
    void* instance = nullptr;
    bool done = false;
};

void RunHook(void* context) {
    auto* action = static_cast<HookAction*>(context);
    if (action->done) return;  // the nested call reaches the same hook again
    action->done = true;
    switch (action->what) {
        case HookAction::kAllocateVideo:
            action->instance = M::AllocateVideoDecoder(action->type, action->subtype);
            break;
        case HookAction::kFreeVideo:
            M::FreeVideoDecoder(action->instance, action->type, action->subtype);
            break;
        case HookAction::kFreeAudio:
            M::FreeAudioDecoder(action->instance, action->type, action->subtype);
            break;
    }
}

// A plug-in may call the manager from inside its entry points (the lock is
// re-entrant), even in ways that move the caller's record in the list.
TEST_F(CodecManagerTest, PluginsMayCallBackIntoTheManager) {
    InitGood();
    void* anchor = M::AllocateAudioDecoder(0x200, 0x201);  // keeps the hooked copy loaded
    ASSERT_NE(anchor, nullptr);
    auto setHooks =
        ncbtest::PluginProc<NTestSetHooksProc>(LoadedRecords().at(0).module, "NTestSetHooks");
    ASSERT_NE(setHooks, nullptr);

    HookAction allocateVideo{HookAction::kAllocateVideo, 0x1500, 0x1501};
    setHooks(RunHook, nullptr, &allocateVideo);
    void* second = M::AllocateAudioDecoder(0x200, 0x202);
    ASSERT_NE(second, nullptr);
    ASSERT_NE(allocateVideo.instance, nullptr);
    auto records = LoadedRecords();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[1].key, 12);
    EXPECT_EQ(records[1].count, 1);
    EXPECT_EQ(records[2].key, -17);

    // The new record lands behind the video one, which goes during the create.
    HookAction freeVideo{HookAction::kFreeVideo, 0x1500, 0x1501, allocateVideo.instance};
    setHooks(RunHook, nullptr, &freeVideo);
    void* third = M::AllocateAudioDecoder(0x200, 0x203);
    ASSERT_NE(third, nullptr);
    records = LoadedRecords();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[2].key, 13);
    EXPECT_EQ(records[2].count, 1) << "the count must go to the moved record";
    EXPECT_EQ(MappingCount(kVideoDir + "/NVideoDecoder264.dll"), 0);

    // Destroying `third` frees `anchor` from inside, which removes the first
    // record before the manager looks at `third`'s record again.
    HookAction freeAnchor{HookAction::kFreeAudio, 0x200, 0x201, anchor};
    setHooks(nullptr, RunHook, &freeAnchor);
    M::FreeAudioDecoder(third, 0x200, 0x203);
    records = LoadedRecords();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].key, 12);
    EXPECT_EQ(ncbtest::LiveInstances(records[0].module), 1);
    EXPECT_GT(MappingCount(kAudioDir + "/NAudioDecoderAAC.dll"), 0);

    setHooks(nullptr, nullptr, nullptr);
    M::FreeAudioDecoder(second, 0x200, 0x202);
    EXPECT_EQ(MappingCount(kAudioDir + "/NAudioDecoderAAC.dll"), 0);
}

}  // namespace
