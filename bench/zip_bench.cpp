// ZIP benchmarks: extraction of a 100 MB deflated file, ours against zlib's
// inflate over the same stream and against libarchive's extraction, and
// CRC-32 against zlib's crc32.
//
// Input: 100 MB of deterministic word-like text (compresses about 3:1, like
// prose and source code), deflated by zlib at level 6 into a one-entry ZIP
// archive in the temporary folder. Every extractor does the whole job a
// host would: read the archive file, inflate, compute the CRC-32 and write
// the 100 MB to /dev/null (so the page cache is not measured):
//   ours        CNZipDecoder::DecompressFile on an opened reader;
//   zlib        read 32 KiB pieces, inflate (raw), crc32, write;
//   libarchive  archive_read_data into 64 KiB pieces, write (it checks the
//               CRC itself).
// CRC-32 runs over 4 KiB and 1 MiB buffers; ours_l0 is the scalar twin
// (slice-by-8), `ours` what CalcCRC32 picks on this processor.
//
// Names: zip/inflate/<case>/{ours,zlib,libarchive}, zip/crc32/<case>/{ours,ours_l0,zlib}.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#if defined(NCB_BENCH_LIBARCHIVE)
#include <archive.h>
#include <archive_entry.h>
#endif

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "archive/zip/crc32_kernels.h"
#include "ncodecbase/zip_decoder.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr size_t kInflateSize = 100u << 20;
constexpr uint32_t kDataOffset = 30 + 8;  // local header + "text.txt"

Bytes Text(size_t size) {
    static const char* const kWords[] = {
        "archive", "inflate", "window", "the",   "of",  "and", "length", "distance",
        "symbol",  "table",   "header", "bits",  "a",   "to",  "in",     "stream",
        "buffer",  "entry",   "return", "value", "int", "for", "if",     "while"};
    std::mt19937 rng(20240601);
    Bytes b;
    b.reserve(size + 16);
    while (b.size() < size) {
        const char* w = kWords[rng() % (sizeof(kWords) / sizeof(kWords[0]))];
        b.insert(b.end(), w, w + std::strlen(w));
        const uint32_t r = rng() % 12;
        b.push_back(r == 0 ? '\n' : r == 1 ? ';' : ' ');
        if (r == 2) {
            const std::string n = std::to_string(rng() % 65536);
            b.insert(b.end(), n.begin(), n.end());
        }
    }
    b.resize(size);
    return b;
}

void Put16(Bytes& b, uint32_t v) {
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
}
void Put32(Bytes& b, uint32_t v) {
    Put16(b, v & 0xFFFF);
    Put16(b, v >> 16);
}

struct Archive {
    std::string path;
    uint32_t crc = 0;
    uint32_t compressed = 0;
};

// The archive, written once per process.
const Archive& TextArchive() {
    static const Archive archive = [] {
        const Bytes text = Text(kInflateSize);
        Archive a;
        a.crc = static_cast<uint32_t>(crc32_z(0, text.data(), text.size()));
        z_stream z{};
        deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
        Bytes deflated(deflateBound(&z, text.size()));
        z.next_in = const_cast<Bytef*>(text.data());
        z.avail_in = static_cast<uInt>(text.size());
        z.next_out = deflated.data();
        z.avail_out = static_cast<uInt>(deflated.size());
        deflate(&z, Z_FINISH);
        deflated.resize(z.total_out);
        deflateEnd(&z);
        a.compressed = static_cast<uint32_t>(deflated.size());

        Bytes zip;
        Put32(zip, 0x04034B50);
        Put16(zip, 20);
        Put16(zip, 0);
        Put16(zip, 8);
        Put32(zip, 0);
        Put32(zip, a.crc);
        Put32(zip, a.compressed);
        Put32(zip, static_cast<uint32_t>(kInflateSize));
        Put16(zip, 8);
        Put16(zip, 0);
        const char* name = "text.txt";
        zip.insert(zip.end(), name, name + 8);
        zip.insert(zip.end(), deflated.begin(), deflated.end());
        // Central directory and its end record, for libarchive's benefit.
        const uint32_t directory = static_cast<uint32_t>(zip.size());
        Put32(zip, 0x02014B50);
        Put16(zip, 20);
        Put16(zip, 20);
        Put16(zip, 0);
        Put16(zip, 8);
        Put32(zip, 0);
        Put32(zip, a.crc);
        Put32(zip, a.compressed);
        Put32(zip, static_cast<uint32_t>(kInflateSize));
        Put16(zip, 8);
        for (int i = 0; i < 4; ++i) Put16(zip, 0);
        Put32(zip, 0);
        Put32(zip, 0);
        zip.insert(zip.end(), name, name + 8);
        const uint32_t directorySize = static_cast<uint32_t>(zip.size()) - directory;
        Put32(zip, 0x06054B50);
        Put32(zip, 0);
        Put16(zip, 1);
        Put16(zip, 1);
        Put32(zip, directorySize);
        Put32(zip, directory);
        Put16(zip, 0);

        a.path = (std::filesystem::temp_directory_path() /
                  ("ncb-zip-bench-" + std::to_string(::getpid()) + ".zip"))
                     .string();
        FILE* f = std::fopen(a.path.c_str(), "wb");
        std::fwrite(zip.data(), 1, zip.size(), f);
        std::fclose(f);
        std::atexit([] { std::remove(TextArchive().path.c_str()); });
        return a;
    }();
    return archive;
}

void SetCounters(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(kInflateSize));
}

void InflateOurs(benchmark::State& state) {
    const Archive& a = TextArchive();
    CNZipDecoder zip;
    if (!zip.Open(a.path.c_str()) || zip.GetTotalFileNumber() != 1) {
        state.SkipWithError("open failed");
        return;
    }
    for (auto _ : state) {
        if (!zip.DecompressFile(0, "/dev/null", nullptr)) state.SkipWithError("extraction failed");
    }
    SetCounters(state);
}

void InflateZlib(benchmark::State& state) {
    const Archive& a = TextArchive();
    Bytes in(32768), out(65536);
    const int sink = ::open("/dev/null", O_WRONLY);
    for (auto _ : state) {
        const int fd = ::open(a.path.c_str(), O_RDONLY);
        ::lseek(fd, kDataOffset, SEEK_SET);
        z_stream z{};
        inflateInit2(&z, -15);
        uint32_t left = a.compressed;
        uLong crc = 0;
        int rc = Z_OK;
        while (rc != Z_STREAM_END) {
            if (z.avail_in == 0 && left > 0) {
                const uint32_t n = left < in.size() ? left : static_cast<uint32_t>(in.size());
                if (::read(fd, in.data(), n) != static_cast<ssize_t>(n)) break;
                left -= n;
                z.next_in = in.data();
                z.avail_in = n;
            }
            z.next_out = out.data();
            z.avail_out = static_cast<uInt>(out.size());
            rc = inflate(&z, Z_NO_FLUSH);
            if (rc != Z_OK && rc != Z_STREAM_END) break;
            const size_t produced = out.size() - z.avail_out;
            crc = crc32_z(crc, out.data(), produced);
            if (::write(sink, out.data(), produced) != static_cast<ssize_t>(produced)) break;
        }
        inflateEnd(&z);
        ::close(fd);
        if (rc != Z_STREAM_END || crc != a.crc) state.SkipWithError("zlib failed");
    }
    ::close(sink);
    SetCounters(state);
}

#if defined(NCB_BENCH_LIBARCHIVE)
void InflateLibarchive(benchmark::State& state) {
    const Archive& a = TextArchive();
    Bytes out(65536);
    const int sink = ::open("/dev/null", O_WRONLY);
    for (auto _ : state) {
        struct archive* ar = archive_read_new();
        archive_read_support_format_zip(ar);
        struct archive_entry* entry;
        bool ok = archive_read_open_filename(ar, a.path.c_str(), 65536) == ARCHIVE_OK &&
                  archive_read_next_header(ar, &entry) == ARCHIVE_OK;
        la_ssize_t n;
        size_t total = 0;
        while (ok && (n = archive_read_data(ar, out.data(), out.size())) > 0) {
            total += static_cast<size_t>(n);
            ok = ::write(sink, out.data(), static_cast<size_t>(n)) == n;
        }
        archive_read_free(ar);
        if (!ok || total != kInflateSize) state.SkipWithError("libarchive failed");
    }
    ::close(sink);
    SetCounters(state);
}
#endif

Bytes CrcInput(size_t size) {
    Bytes b(size + 1);
    std::mt19937 rng(7);
    for (uint8_t& v : b) v = static_cast<uint8_t>(rng());
    return b;
}

// The buffer starts one byte in, so no implementation gets an aligned start.
void CrcOurs(benchmark::State& state, size_t size) {
    Bytes b = CrcInput(size);
    for (auto _ : state)
        benchmark::DoNotOptimize(CNZipDecoder::CalcCRC32(0, b.data() + 1, static_cast<int>(size)));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

void CrcOursScalar(benchmark::State& state, size_t size) {
    Bytes b = CrcInput(size);
    for (auto _ : state)
        benchmark::DoNotOptimize(~ncb::zip::Crc32Update_c(~0u, b.data() + 1, size));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

void CrcZlib(benchmark::State& state, size_t size) {
    Bytes b = CrcInput(size);
    for (auto _ : state) benchmark::DoNotOptimize(crc32_z(0, b.data() + 1, size));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

void Register() {
    benchmark::RegisterBenchmark("zip/inflate/text_100MB/ours", InflateOurs)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("zip/inflate/text_100MB/zlib", InflateZlib)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
#if defined(NCB_BENCH_LIBARCHIVE)
    benchmark::RegisterBenchmark("zip/inflate/text_100MB/libarchive", InflateLibarchive)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
#endif
    for (size_t size : {size_t{4096}, size_t{1} << 20}) {
        const std::string c = size == 4096 ? "4KiB" : "1MiB";
        benchmark::RegisterBenchmark(("zip/crc32/" + c + "/ours").c_str(), CrcOurs, size);
        benchmark::RegisterBenchmark(("zip/crc32/" + c + "/ours_l0").c_str(), CrcOursScalar, size);
        benchmark::RegisterBenchmark(("zip/crc32/" + c + "/zlib").c_str(), CrcZlib, size);
    }
}

const int registered = (Register(), 0);

}  // namespace
