// Helpers for the archive reader tests (see archive_test_util.h).
#include "tests/archive/archive_test_util.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <zlib.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "tests/support/test_paths.h"

namespace ncbtest::archive {

namespace {

std::vector<std::string> SplitTabs(const std::string& line) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, '\t')) fields.push_back(field);
    if (!line.empty() && line.back() == '\t') fields.push_back("");
    return fields;
}

void PutLe16(Bytes& b, uint32_t v) {
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
}

void PutLe32(Bytes& b, uint32_t v) {
    PutLe16(b, v & 0xFFFF);
    PutLe16(b, v >> 16);
}

}  // namespace

std::vector<ExpectedRow> ReadExpected(const std::string& folder) {
    std::ifstream in(TestDataPath(folder + "/EXPECTED.tsv"));
    std::vector<ExpectedRow> rows;
    std::string line;
    std::getline(in, line);
    const bool zipLayout = line.find("password") != std::string::npos;
    while (std::getline(in, line)) {
        std::vector<std::string> f = SplitTabs(line);
        if (f.size() < 6) continue;
        ExpectedRow r;
        r.archive = f[0];
        r.entry = f[1];
        r.size = f[2];
        r.sha256 = f[3];
        r.expect = f[4];
        if (zipLayout) {
            r.password = f[5];
            r.note = f.size() > 6 ? f[6] : "";
        } else {
            r.note = f[5];
            const size_t at = r.note.find("password=");
            if (at != std::string::npos) {
                size_t end = r.note.find(';', at);
                r.password = r.note.substr(at + 9, end == std::string::npos ? end : end - at - 9);
            }
        }
        rows.push_back(r);
    }
    return rows;
}

Bytes ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes{std::istreambuf_iterator<char>(in), {}};
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

bool FileExists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

int64_t FileSizeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? static_cast<int64_t>(st.st_size) : -1;
}

std::string Sha256OfFile(const std::string& path) {
    CommandResult r = RunShell("sha256sum " + Quote(path));
    if (r.status != 0 || r.output.size() < 64) return "";
    return r.output.substr(0, 64);
}

CommandResult RunShell(const std::string& command) {
    CommandResult result;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0) result.output.append(buffer, n);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string Quote(const std::string& text) {
    std::string q = "'";
    for (char c : text) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    return q + "'";
}

Bytes RandomBytes(size_t size, uint64_t seed) {
    std::mt19937_64 rng(seed);
    Bytes b(size);
    for (uint8_t& v : b) v = static_cast<uint8_t>(rng());
    return b;
}

Bytes TextBytes(size_t size, uint64_t seed) {
    static const char* const kWords[] = {
        "the",      "archive",  "reader", "lists",   "every", "local", "header", "and",
        "inflates", "data",     "window", "of",      "bits",  "codes", "length", "distance",
        "block",    "stored",   "fixed",  "dynamic", "table", "entry", "name",   "size",
        "crc",      "password", "key",    "stream",  "zip",   "file",  "byte",   "output"};
    std::mt19937_64 rng(seed);
    Bytes b;
    b.reserve(size + 16);
    while (b.size() < size) {
        const char* w = kWords[rng() % (sizeof(kWords) / sizeof(kWords[0]))];
        b.insert(b.end(), w, w + std::char_traits<char>::length(w));
        const uint64_t r = rng() % 16;
        b.push_back(r == 0 ? '\n' : r == 1 ? ',' : ' ');
        if (r == 2) {
            const std::string number = std::to_string(rng() % 100000);
            b.insert(b.end(), number.begin(), number.end());
        }
    }
    b.resize(size);
    return b;
}

std::vector<LocalHeaderInfo> LocalHeaders(const Bytes& zip) {
    std::vector<LocalHeaderInfo> headers;
    auto le16 = [&](size_t at) { return static_cast<uint16_t>(zip[at] | zip[at + 1] << 8); };
    auto le32 = [&](size_t at) { return uint32_t{le16(at)} | uint32_t{le16(at + 2)} << 16; };
    for (size_t at = 0; at + 30 <= zip.size(); ++at) {
        if (le32(at) != 0x04034B50) continue;
        LocalHeaderInfo h{at, le16(at + 6), le16(at + 8), ""};
        const size_t nameLength = le16(at + 26);
        if (at + 30 + nameLength <= zip.size())
            h.name.assign(reinterpret_cast<const char*>(&zip[at + 30]), nameLength);
        headers.push_back(h);
    }
    return headers;
}

uint32_t Crc32Of(const uint8_t* data, size_t size) {
    return static_cast<uint32_t>(::crc32_z(0, data, size));
}

Bytes ZlibDeflateRaw(const Bytes& data, int level, int strategy) {
    z_stream z{};
    if (deflateInit2(&z, level, Z_DEFLATED, -15, 8, strategy) != Z_OK) return {};
    Bytes out(deflateBound(&z, data.size()) + 64);
    z.next_in = const_cast<Bytef*>(data.data());
    z.avail_in = static_cast<uInt>(data.size());
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    const int rc = deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return rc == Z_STREAM_END ? out : Bytes{};
}

Bytes BuildZip(const std::vector<HandEntry>& entries) {
    Bytes zip;
    for (const HandEntry& e : entries) {
        const bool descriptor = e.descriptor;
        PutLe32(zip, 0x04034B50);
        PutLe16(zip, 20);
        PutLe16(zip, e.flags | (descriptor ? 8 : 0));
        PutLe16(zip, e.method);
        PutLe32(zip, 0);  // time and date
        PutLe32(zip, descriptor ? 0 : e.crc);
        PutLe32(zip, descriptor ? 0 : static_cast<uint32_t>(e.data.size()));
        PutLe32(zip, descriptor ? 0 : e.uncompressedSize);
        PutLe16(zip, static_cast<uint32_t>(e.name.size()));
        PutLe16(zip, 0);
        zip.insert(zip.end(), e.name.begin(), e.name.end());
        zip.insert(zip.end(), e.data.begin(), e.data.end());
        if (descriptor) {
            PutLe32(zip, 0x08074B50);
            PutLe32(zip, e.crc);
            PutLe32(zip, static_cast<uint32_t>(e.data.size()));
            PutLe32(zip, e.uncompressedSize);
        }
    }
    // An end-of-central-directory record without a directory, so that the
    // walk ends on a foreign signature as it does in real archives.
    PutLe32(zip, 0x06054B50);
    zip.resize(zip.size() + 18, 0);
    return zip;
}

}  // namespace ncbtest::archive
