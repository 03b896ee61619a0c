// Fuzz target for the ZIP listing and extraction: the input is an archive.
// It is handed to CNZipDecoder as a memory file (memfd); every listed entry
// is extracted to /dev/null, encrypted ones with a fixed password.
//
// The last input byte picks options (a real archive ends in its directory
// record, whose last bytes are usually zero): bit 7 arms a heap fault after
// (bits 0-3) successful allocations, so Open and DecompressFile meet failing
// allocations at every point.
//
// Checked: GetFileInfo agrees with the count (names terminated within 256
// bytes), and sizes stay within what the input could describe. Crashes,
// leaks and overreads are caught by the sanitizers.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ncodecbase/zip_decoder.h"
#include "platform/kernel/fault.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "zip_list: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t options = data[size - 1];
    const int fd = memfd_create("zip_list_fuzz", 0);
    if (fd < 0) return 0;
    if (write(fd, data, size) != static_cast<ssize_t>(size)) {
        close(fd);
        return 0;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(fd);

    if (options & 0x80) nplat::fault::Arm(nplat::fault::Kind::kHeap, options & 15);
    CNZipDecoder zip;
    if (zip.Open(path.c_str())) {
        const int count = zip.GetTotalFileNumber();
        Check(count >= 0 && static_cast<size_t>(count) <= size / 30, "entry count");
        for (int i = 0; i < count; ++i) {
            char name[256 + 16];
            std::memset(name, 0x55, sizeof(name));
            unsigned entrySize = 0;
            int encrypted = -1;
            Check(zip.GetFileInfo(i, &entrySize, name, &encrypted) == 1, "info");
            Check(std::memchr(name, 0, 256) != nullptr, "name terminated");
            Check(encrypted == 0 || encrypted == 1, "encrypted flag");
            zip.DecompressFile(i, "/dev/null", "password");
        }
        Check(zip.GetFileInfo(count, nullptr, nullptr, nullptr) == 0, "index past the end");
    }
    nplat::fault::Disarm();
    close(fd);
    return 0;
}
