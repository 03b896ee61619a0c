// `ncodec zip ...` and `ncodec rar ...`: list an archive, or extract entries
// into a folder through CNZipDecoder and CNRarDecoder.
//
//   ncodec zip list ARCHIVE
//   ncodec zip extract ARCHIVE [NAME|INDEX...] -o DIR [--password P]
//   ncodec rar list ARCHIVE [--password P]
//   ncodec rar extract ARCHIVE [NAME|INDEX...] -o DIR [--password P]
//
// Entry names come from the archive and are not trusted: a name that is
// absolute, has a drive letter or a ".." component is refused rather than
// written outside DIR ("\" counts as a separator too). Folders on the way
// are created; entries whose names end in "/" are folders. A failed entry
// does not stop the others, its partial output is removed, and the exit
// status is 1 when anything failed (2 for usage errors). Large entries show
// a progress bar on a terminal: the extraction runs on a worker thread while
// this one watches the output file grow.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "ncodecbase/rar_decoder.h"
#include "ncodecbase/zip_decoder.h"
#include "tools/ncodec/commands.h"

namespace ncodec {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kProgressFrom = 16u << 20;

// The two readers behind one small interface.
class Reader {
  public:
    virtual ~Reader() = default;
    virtual bool Open(const std::string& path, const char* password, std::string* error) = 0;
    virtual int Count() = 0;
    virtual bool Info(int index, std::string* name, uint64_t* size, bool* encrypted) = 0;
    virtual bool Extract(int index, const std::string& out, const char* password,
                         std::string* error) = 0;
};

class ZipReader : public Reader {
  public:
    bool Open(const std::string& path, const char*, std::string* error) override {
        if (zip_.Open(path.c_str())) return true;
        *error = "cannot open or read the archive";
        return false;
    }
    int Count() override { return zip_.GetTotalFileNumber(); }
    bool Info(int index, std::string* name, uint64_t* size, bool* encrypted) override {
        char buffer[256];
        unsigned s = 0;
        int e = 0;
        if (!zip_.GetFileInfo(index, &s, buffer, &e)) return false;
        *name = buffer;
        *size = s;
        *encrypted = e != 0;
        return true;
    }
    bool Extract(int index, const std::string& out, const char* password,
                 std::string* error) override {
        std::string name;
        uint64_t size;
        bool encrypted = false;
        Info(index, &name, &size, &encrypted);
        if (encrypted && !password) {
            *error = "encrypted: give the password with --password";
            return false;
        }
        if (zip_.DecompressFile(index, out.c_str(), password)) return true;
        *error = encrypted ? "wrong password, damaged data or CRC mismatch"
                           : "damaged data, CRC mismatch or write error";
        return false;
    }

  private:
    CNZipDecoder zip_;
};

const char* RarError(int code) {
    switch (code) {
        case CNRarDecoder::ERROR_BAD_ARGUMENT:
            return "bad argument (path too long?)";
        case CNRarDecoder::ERROR_OUT_OF_MEMORY:
            return "out of memory";
        case CNRarDecoder::ERROR_OPEN_ARCHIVE:
            return "cannot open the archive (missing, not RAR, or no RAR support in this build)";
        case CNRarDecoder::ERROR_PASSWORD:
            return "password missing or wrong, or encryption this build cannot read";
        default:
            return "damaged archive or data";
    }
}

class RarReader : public Reader {
  public:
    bool Open(const std::string& path, const char* password, std::string* error) override {
        if (rar_.Open(path.c_str(), password)) return true;
        *error = RarError(rar_.GetExtendErrorCode());
        return false;
    }
    int Count() override { return rar_.GetTotalFileNumber(); }
    bool Info(int index, std::string* name, uint64_t* size, bool* encrypted) override {
        char buffer[256];
        unsigned s = 0;
        if (!rar_.GetFileInfo(index, &s, buffer)) return false;
        *name = buffer;
        *size = s;
        *encrypted = false;  // the RAR reader does not report it
        return true;
    }
    bool Extract(int index, const std::string& out, const char* password,
                 std::string* error) override {
        if (rar_.DecompressFile(index, out.c_str(), password)) return true;
        *error = RarError(rar_.GetExtendErrorCode());
        return false;
    }

  private:
    CNRarDecoder rar_;
};

struct Options {
    std::string archive;
    std::vector<std::string> selectors;
    std::string outDir;
    bool havePassword = false;
    std::string password;
};

int Usage(const char* kind) {
    std::fprintf(stderr,
                 "usage: ncodec %s list ARCHIVE%s\n"
                 "       ncodec %s extract ARCHIVE [NAME|INDEX...] -o DIR [--password P]\n",
                 kind, std::string(kind) == "rar" ? " [--password P]" : "", kind);
    return 2;
}

// Splits `args` (after list/extract); false on a malformed line.
bool ParseOptions(const Args& args, bool extract, Options* o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-o" || a == "--out") {
            if (!extract || ++i == args.size()) return false;
            o->outDir = args[i];
        } else if (a == "--password") {
            if (++i == args.size()) return false;
            o->havePassword = true;
            o->password = args[i];
        } else if (o->archive.empty()) {
            o->archive = a;
        } else if (extract) {
            o->selectors.push_back(a);
        } else {
            return false;
        }
    }
    return !o->archive.empty() && (!extract || !o->outDir.empty());
}

// A name from the archive as a path inside the output folder, or the reason
// it cannot be one.
bool SafeRelativePath(const std::string& name, fs::path* out, std::string* why) {
    if (name.empty()) {
        *why = "empty name";
        return false;
    }
    if (name[0] == '/' || name[0] == '\\') {
        *why = "absolute path";
        return false;
    }
    if (name.size() >= 2 && name[1] == ':') {
        *why = "drive letter";
        return false;
    }
    fs::path path;
    std::string part;
    for (size_t i = 0; i <= name.size(); ++i) {
        if (i < name.size() && name[i] != '/' && name[i] != '\\') {
            part += name[i];
            continue;
        }
        if (part == "..") {
            *why = "parent folder (..) in the name";
            return false;
        }
        if (!part.empty() && part != ".") path /= part;
        part.clear();
    }
    if (path.empty()) {
        *why = "name without a file part";
        return false;
    }
    *out = path;
    return true;
}

bool IsNumber(const std::string& s) {
    if (s.empty() || s.size() > 9) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

// Entry indices the selectors name (every entry when there are none).
bool SelectEntries(Reader& reader, const std::vector<std::string>& selectors,
                   std::vector<int>* indices) {
    const int count = reader.Count();
    if (selectors.empty()) {
        for (int i = 0; i < count; ++i) indices->push_back(i);
        return true;
    }
    bool ok = true;
    for (const std::string& s : selectors) {
        bool found = false;
        for (int i = 0; i < count; ++i) {
            std::string name;
            uint64_t size;
            bool encrypted;
            reader.Info(i, &name, &size, &encrypted);
            if (name == s) {
                indices->push_back(i);
                found = true;
            }
        }
        if (!found && IsNumber(s) && std::stoi(s) < count) {
            indices->push_back(std::stoi(s));
            found = true;
        }
        if (!found) {
            std::fprintf(stderr, "ncodec: no entry named or numbered '%s'\n", s.c_str());
            ok = false;
        }
    }
    return ok;
}

void DrawProgress(const std::string& name, uint64_t done, uint64_t total) {
    const int width = 30;
    const int filled = total ? static_cast<int>(done * width / total) : width;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.resize(width, '-');
    std::fprintf(stderr, "\r  [%s] %3d%% %s", bar.c_str(),
                 total ? static_cast<int>(done * 100 / total) : 100, name.c_str());
    std::fflush(stderr);
}

// Runs the extraction, with a progress bar for large entries on a terminal.
bool ExtractWithProgress(Reader& reader, int index, const std::string& name, uint64_t size,
                         const std::string& out, const char* password, std::string* error) {
    if (size < kProgressFrom || !::isatty(STDERR_FILENO))
        return reader.Extract(index, out, password, error);
    std::atomic<bool> finished{false};
    bool ok = false;
    std::thread worker([&] {
        ok = reader.Extract(index, out, password, error);
        finished = true;
    });
    while (!finished) {
        struct stat st;
        const uint64_t done = ::stat(out.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
        DrawProgress(name, done < size ? done : size, size);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    worker.join();
    DrawProgress(name, ok ? size : 0, size);
    std::fprintf(stderr, "\n");
    return ok;
}

int List(Reader& reader, const Options& o) {
    std::string error;
    if (!reader.Open(o.archive, o.havePassword ? o.password.c_str() : nullptr, &error)) {
        std::fprintf(stderr, "ncodec: %s: %s\n", o.archive.c_str(), error.c_str());
        return 1;
    }
    std::printf("%5s %12s  %s\n", "index", "size", "name");
    for (int i = 0; i < reader.Count(); ++i) {
        std::string name;
        uint64_t size = 0;
        bool encrypted = false;
        reader.Info(i, &name, &size, &encrypted);
        std::printf("%5d %12llu %s %s\n", i, static_cast<unsigned long long>(size),
                    encrypted ? "*" : " ", name.c_str());
    }
    std::printf("%d entries\n", reader.Count());
    return 0;
}

int Extract(Reader& reader, const Options& o) {
    const char* password = o.havePassword ? o.password.c_str() : nullptr;
    std::string error;
    if (!reader.Open(o.archive, password, &error)) {
        std::fprintf(stderr, "ncodec: %s: %s\n", o.archive.c_str(), error.c_str());
        return 1;
    }
    std::vector<int> indices;
    if (!SelectEntries(reader, o.selectors, &indices)) return 1;
    std::error_code ec;
    fs::create_directories(o.outDir, ec);
    if (!fs::is_directory(o.outDir)) {
        std::fprintf(stderr, "ncodec: cannot create the folder %s\n", o.outDir.c_str());
        return 1;
    }

    int failures = 0;
    for (int index : indices) {
        std::string name;
        uint64_t size = 0;
        bool encrypted = false;
        reader.Info(index, &name, &size, &encrypted);
        fs::path relative;
        std::string why;
        if (!SafeRelativePath(name, &relative, &why)) {
            std::fprintf(stderr, "ncodec: refusing entry %d '%s': %s\n", index, name.c_str(),
                         why.c_str());
            ++failures;
            continue;
        }
        const fs::path target = fs::path(o.outDir) / relative;
        const bool folder = name.back() == '/' || name.back() == '\\';
        fs::create_directories(folder ? target : target.parent_path(), ec);
        if (folder) {
            if (!fs::is_directory(target)) {
                std::fprintf(stderr, "ncodec: cannot create the folder %s\n", target.c_str());
                ++failures;
            }
            continue;
        }
        if (!ExtractWithProgress(reader, index, name, size, target.string(), password, &error)) {
            std::fprintf(stderr, "ncodec: %s: %s\n", name.c_str(), error.c_str());
            if (fs::is_regular_file(target, ec)) fs::remove(target, ec);
            ++failures;
            continue;
        }
        std::printf("%s\n", target.c_str());
    }
    if (failures)
        std::fprintf(stderr, "ncodec: %d of %zu entries failed\n", failures, indices.size());
    return failures ? 1 : 0;
}

int Run(const Args& args, const char* kind, std::unique_ptr<Reader> reader) {
    if (args.empty() || (args[0] != "list" && args[0] != "extract")) return Usage(kind);
    const bool extract = args[0] == "extract";
    Options o;
    if (!ParseOptions(Args(args.begin() + 1, args.end()), extract, &o)) return Usage(kind);
    return extract ? Extract(*reader, o) : List(*reader, o);
}

}  // namespace

int RunZip(const Args& args) { return Run(args, "zip", std::make_unique<ZipReader>()); }

int RunRar(const Args& args) { return Run(args, "rar", std::make_unique<RarReader>()); }

}  // namespace ncodec
