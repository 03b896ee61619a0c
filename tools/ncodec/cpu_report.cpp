// `ncodec cpu`: what CNHelper::GetCpuInfo reports, word by word, and what
// the library derives from it (processor level, AVX2 and PCLMULQDQ use).
#include "tools/ncodec/cpu_report.h"

#include <cstdio>

#include "base/cpu_features.h"
#include "base/processor_level.h"
#include "ncodecbase/helper.h"
#include "tools/ncodec/commands.h"

namespace ncodec {
namespace {

const char* VendorName(int vendor) {
    switch (vendor) {
        case 0:
            return "Intel";
        case 1:
            return "AMD";
        default:
            return "other";
    }
}

void AddLine(std::string* text, const char* name, long value, const char* note = nullptr) {
    char line[128];
    if (note) {
        std::snprintf(line, sizeof line, "%-18s %ld (%s)\n", name, value, note);
    } else {
        std::snprintf(line, sizeof line, "%-18s %ld\n", name, value);
    }
    *text += line;
}

}  // namespace

bool CpuReport(std::string* text, std::string* error) {
    CNHelper::CPUInfoTag info{};
    if (!CNHelper::GetCpuInfo(&info)) {
        *error = "the processor has no CPUID instruction";
        return false;
    }
    text->clear();
    AddLine(text, "nVendor", info.nVendor, VendorName(info.nVendor));
    AddLine(text, "nPackages", info.nPackages);
    AddLine(text, "nCoresPerPackage", info.nCoresPerPackage);
    AddLine(text, "nThreadsPerCore", info.nThreadsPerCore);
    AddLine(text, "nMMX", info.nMMX);
    AddLine(text, "nSSE", info.nSSE);
    AddLine(text, "nSSE2", info.nSSE2);
    AddLine(text, "nSSE3", info.nSSE3);
    AddLine(text, "nSSSE3", info.nSSSE3);
    AddLine(text, "nSSE41", info.nSSE41);
    AddLine(text, "nSSE42", info.nSSE42);
    AddLine(text, "n3DNow", info.n3DNow);
    AddLine(text, "n3DNowExt", info.n3DNowExt);
    AddLine(text, "nL1CacheSize", info.nL1CacheSize);
    AddLine(text, "nL2CacheSize", info.nL2CacheSize);
    AddLine(text, "nL3CacheSize", info.nL3CacheSize);
    const int level = ncb::ProcessorLevelFromCpuInfo(info);
    AddLine(text, "processor level", level, ncb::ProcessorLevelName(level));
    const ncb::CpuFeatures& features = ncb::GetCpuFeatures();
    *text += std::string("avx2               ") + (features.avx2 ? "yes" : "no") + "\n";
    *text += std::string("pclmul             ") + (features.pclmul ? "yes" : "no") + "\n";
    return true;
}

int RunCpu(const Args& args) {
    if (!args.empty()) {
        std::fprintf(stderr, "ncodec cpu: takes no arguments\n");
        return 2;
    }
    std::string text, error;
    if (!CpuReport(&text, &error)) {
        std::fprintf(stderr, "ncodec cpu: %s\n", error.c_str());
        return 1;
    }
    std::fputs(text.c_str(), stdout);
    return 0;
}

}  // namespace ncodec
