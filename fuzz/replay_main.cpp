// Replays fuzz inputs without libFuzzer, so ctest can run every seed corpus
// and every past crasher in the ordinary (and sanitizer) builds. Each argument
// is a file or a folder; a folder's regular files run in name order. Each
// input is copied into a block of exactly its size, so reads past the end are
// caught under AddressSanitizer as they would be under libFuzzer.
//
// Not a fuzzer: no mutation, no coverage. Fails when no input was found, so
// a mistyped corpus path cannot pass silently.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

std::vector<std::filesystem::path> CollectInputs(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path arg = argv[i];
        if (!fs::is_directory(arg)) {
            inputs.push_back(arg);
            continue;
        }
        std::vector<fs::path> files;
        for (const fs::directory_entry& entry : fs::directory_iterator(arg))
            if (entry.is_regular_file()) files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        inputs.insert(inputs.end(), files.begin(), files.end());
    }
    return inputs;
}

}  // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    const std::vector<std::filesystem::path> inputs = CollectInputs(argc, argv);
    if (inputs.empty()) {
        std::fprintf(stderr, "usage: %s FILE-OR-FOLDER... (no inputs found)\n", argv[0]);
        return 2;
    }
    for (const std::filesystem::path& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            return 2;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        // Printed first: if the input crashes, this is the last line shown.
        std::printf("replaying %s (%zu bytes)\n", path.c_str(), bytes.size());
        std::fflush(stdout);
        std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        LLVMFuzzerTestOneInput(exact.get(), bytes.size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return 0;
}
