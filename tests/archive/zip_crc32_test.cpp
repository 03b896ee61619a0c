// CRC-32 of the ZIP reader: known values, chaining, zlib's crc32 as the
// oracle over every length and misalignment, and every kernel (each
// processor level and the carry-less kernel where the CPU has it) against
// the scalar slice-by-8 twin through the kernel checker.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "archive/zip/crc32_kernels.h"
#include "base/cpu_features.h"
#include "ncodecbase/zip_decoder.h"
#include "tests/archive/archive_test_util.h"
#include "tests/support/kernel_checker.h"

namespace ncbtest::archive {
namespace {

TEST(ZipCrc32, KnownValues) {
    unsigned char abc[] = {'a', 'b', 'c'};
    EXPECT_EQ(CNZipDecoder::CalcCRC32(0, abc, 3), 0x352441C2u);
    unsigned char digits[] = "123456789";
    EXPECT_EQ(CNZipDecoder::CalcCRC32(0, digits, 9), 0xCBF43926u);
    EXPECT_EQ(CNZipDecoder::CalcCRC32(0x1234, digits, 0), 0x1234u);
    EXPECT_EQ(CNZipDecoder::CalcCRC32(0x1234, nullptr, 5), 0x1234u);
    EXPECT_EQ(CNZipDecoder::CalcCRC32(0x1234, digits, -1), 0x1234u);
}

TEST(ZipCrc32, TableIsTheStandardOne) {
    EXPECT_EQ(CNZipDecoder::s_CRCTable[0], 0u);
    EXPECT_EQ(CNZipDecoder::s_CRCTable[1], 0x77073096u);
    EXPECT_EQ(CNZipDecoder::s_CRCTable[255], 0x2D02EF8Du);
}

// Every length up to 600 at every start offset modulo 16, against zlib, and
// chained in two pieces split anywhere.
TEST(ZipCrc32, MatchesZlibAtEveryLengthAndOffset) {
    Bytes data = RandomBytes(4096 + 16, 99);
    for (int offset = 0; offset < 16; ++offset) {
        for (int length = 0; length <= 600; ++length) {
            const uint8_t* p = data.data() + offset;
            const uint32_t want = Crc32Of(p, static_cast<size_t>(length));
            ASSERT_EQ(CNZipDecoder::CalcCRC32(0, data.data() + offset, length), want)
                << "offset " << offset << " length " << length;
            const int split = length / 3;
            const unsigned first = CNZipDecoder::CalcCRC32(0, data.data() + offset, split);
            ASSERT_EQ(CNZipDecoder::CalcCRC32(first, data.data() + offset + split, length - split),
                      want);
        }
    }
}

TEST(ZipCrc32, LargeBufferMatchesZlib) {
    Bytes data = RandomBytes((8 << 20) + 13, 7);
    EXPECT_EQ(CNZipDecoder::CalcCRC32(0, data.data() + 1, static_cast<int>(data.size() - 1)),
              Crc32Of(data.data() + 1, data.size() - 1));
}

struct CrcCase {
    Plane data;
    Plane result;  // one 32-bit register value
    uint32_t start = 0;
    std::vector<const Plane*> Planes() const { return {&data, &result}; }
    std::string Describe() const {
        return "length " + std::to_string(data.Width()) + ", start register " +
               std::to_string(start);
    }
};

void RunKernel(ncb::zip::Crc32Kernel kernel, CrcCase& c) {
    const uint32_t reg = kernel(c.start, c.data.Data(), static_cast<size_t>(c.data.Width()));
    std::memcpy(c.result.Data(), &reg, sizeof(reg));
}

TEST(ZipCrc32, EveryKernelEqualsTheScalarTwin) {
    ncbtest::KernelFamily<CrcCase> family{
        .name = "crc32",
        .make =
            [](CaseRandom& r) {
                CrcCase c;
                c.data = r.MakeSamples<uint8_t>(r.Size(1, 5000), "data");
                c.result = r.MakeSamples<uint32_t>(1, "register");
                c.start = static_cast<uint32_t>(r.Next());
                return c;
            },
        .twin = [](CrcCase& c) { RunKernel(ncb::zip::Crc32Update_c, c); },
        .atLevel = [](CrcCase& c,
                      int level) { RunKernel(ncb::zip::Crc32KernelForLevel(level), c); },
    };
    if (ncb::GetCpuFeatures().pclmul)
        family.extra.push_back(
            {"pclmul", [](CrcCase& c) { RunKernel(ncb::zip::Crc32Update_pclmul, c); }});
    CheckAllLevels(family, {.cases = 300});
}

}  // namespace
}  // namespace ncbtest::archive
