// The RAR library interface served by libarchive, which reads RAR 4 and
// RAR 5 archives (solid, multi-volume, stored and compressed) but cannot
// decrypt them.
//
// Mapping:
// - Opening reads the signature; a missing file is ERAR_EOPEN, a file
//   libarchive does not recognise ERAR_BAD_ARCHIVE. NAME.part1.rar (any
//   number of digits) brings in NAME.part2.rar, ... while they exist, as the
//   RAR library moves on to the next volume by itself.
// - Header reads: the end of the archive is ERAR_END_ARCHIVE; every error
//   libarchive reports (truncation, bad data, unsupported features) is
//   ERAR_BAD_DATA, so a damaged archive never lists as complete. When the
//   headers are encrypted, or an encrypted entry came before (libarchive
//   gives up on the rest of a solid archive then), the callback is asked
//   for the password first: the key is what is missing.
// - Extraction of an encrypted entry asks the callback for the password and
//   fails (ERAR_MISSING_PASSWORD without one, else ERAR_BAD_PASSWORD): no
//   bytes are written that could be mistaken for the content. Data errors
//   are ERAR_BAD_DATA; the output file is created only at the destination
//   name given, directories become a directory there and links an empty
//   file (never a link, which could point anywhere). Where the RAR 5
//   header carries a CRC-32 of the data, it is checked here as well, since
//   libarchive does not check it for stored files.
// - Packed sizes are not reported by libarchive and read as 0.
// - Names come out as UTF-8 whatever the host's locale (see Utf8Locale).
// - libarchive 3.6 does not report RAR 5 encryption; for single-volume RAR 5
//   archives the adapter reads the file headers itself (rar5_headers.h).
//
// Without libarchive at build time, the same table only refuses to open.
#include "archive/rar/rar_library.h"

#if defined(NCB_HAVE_LIBARCHIVE)

#include <archive.h>
#include <archive_entry.h>
#include <errno.h>
#include <locale.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "archive/archive_file.h"
#include "archive/rar/rar5_headers.h"
#include "ncodecbase/zip_decoder.h"
#include "platform/kernel/heap.h"

namespace ncb::rar {
namespace {

constexpr size_t kBlockSize = 65536;
constexpr int kPasswordBufferSize = 128;

// libarchive converts names through the calling thread's locale; RAR 4
// stores Unicode names as UTF-16, which the "C" locale cannot represent. The
// adapter switches its own thread to a UTF-8 character type for the length
// of each call (uselocale is per thread, so the host's locale is untouched).
class Utf8Locale {
  public:
    Utf8Locale() {
        static const locale_t utf8 = [] {
            locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
            return l ? l : newlocale(LC_CTYPE_MASK, "en_US.UTF-8", static_cast<locale_t>(0));
        }();
        if (utf8) previous_ = uselocale(utf8);
    }
    ~Utf8Locale() {
        if (previous_) uselocale(previous_);
    }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

  private:
    locale_t previous_ = static_cast<locale_t>(0);
};

struct Archive {
    ~Archive() {
        if (reader) archive_read_free(reader);
    }
    struct archive* reader = nullptr;
    UNRARCALLBACK callback = nullptr;
    LPARAM userData = 0;
    struct archive_entry* entry = nullptr;  // the header just read, owned by `reader`
    bool encrypted = false;                 // the current entry's data
    bool sawEncrypted = false;              // some entry so far was encrypted
    bool encryptedHeaders = false;
    std::vector<std::string> volumes;
    // RAR 5, single volume: our own look at the file headers.
    ncb::archive::FileHandle rar5;
    bool haveFacts = false;
    Rar5FileFacts facts;
};

// NAME.partN.rar with N a run of digits: every following volume that exists.
std::vector<std::string> FindVolumes(const std::string& first) {
    std::vector<std::string> volumes{first};
    const size_t dot = first.rfind('.');
    if (dot == std::string::npos || dot < 5) return volumes;
    size_t digits = dot;
    while (digits > 0 && first[digits - 1] >= '0' && first[digits - 1] <= '9') --digits;
    if (digits == dot || dot - digits > 5 || digits < 5 ||
        first.compare(digits - 5, 5, ".part") != 0)
        return volumes;
    const std::string number = first.substr(digits, dot - digits);
    if (std::strtoul(number.c_str(), nullptr, 10) != 1) return volumes;
    for (unsigned long n = 2; n < 100000; ++n) {
        // snprintf, not std::to_string: the latter drags a libstdc++ table
        // with default visibility into our exported symbols.
        char digitsText[16];
        std::snprintf(digitsText, sizeof(digitsText), "%lu", n);
        std::string text = digitsText;
        if (text.size() < number.size()) text.insert(0, number.size() - text.size(), '0');
        std::string next = first.substr(0, digits) + text + first.substr(dot);
        struct stat st;
        if (::stat(next.c_str(), &st) != 0) break;
        volumes.push_back(next);
    }
    return volumes;
}

// RAR 4 main header flag 0x0080, or a RAR 5 archive-encryption header
// right after the signature: names and sizes cannot be read without the key.
bool HasEncryptedHeaders(const std::string& path) {
    ncb::archive::FileHandle file(ncb::archive::OpenForRead(path.c_str()));
    unsigned char head[32] = {};
    if (!file.IsOpen() || ncb::archive::ReadUpTo(file.Get(), head, sizeof(head)) < 16) return false;
    static const unsigned char kRar4[7] = {'R', 'a', 'r', '!', 0x1A, 0x07, 0x00};
    static const unsigned char kRar5[8] = {'R', 'a', 'r', '!', 0x1A, 0x07, 0x01, 0x00};
    if (std::memcmp(head, kRar4, 7) == 0) return head[9] == 0x73 && (head[10] & 0x80) != 0;
    if (std::memcmp(head, kRar5, 8) != 0) return false;
    // CRC32, then the header size and the header type as variable-length integers.
    size_t at = 12;
    while (at < sizeof(head) && (head[at] & 0x80)) ++at;
    ++at;
    return at < sizeof(head) && head[at] == 4;
}

// Asks the callback for the password; true when it gave a non-empty one.
bool AskPassword(Archive* a) {
    char password[kPasswordBufferSize] = {};
    if (a->callback)
        a->callback(UCM_NEEDPASSWORD, a->userData, reinterpret_cast<LPARAM>(password),
                    kPasswordBufferSize);
    return password[0] != 0;
}

// Copies a UTF-8 name into `out` of `size` bytes, cut at a character boundary.
void CopyName(const char* name, char* out, size_t size) {
    if (!name) name = "";
    size_t n = strnlen(name, size);
    if (n >= size) {
        n = size - 1;
        while (n > 0 && (static_cast<unsigned char>(name[n]) & 0xC0) == 0x80) --n;
    }
    std::memcpy(out, name, n);
    out[n] = 0;
}

template <typename Header>
int ReadHeader(RarHandle handle, Header* header) {
    auto* a = static_cast<Archive*>(handle);
    if (!a || !header) return ERAR_UNKNOWN;
    Utf8Locale locale;
    std::memset(header, 0, sizeof(*header));
    const int r = archive_read_next_header(a->reader, &a->entry);
    if (r == ARCHIVE_EOF) {
        a->entry = nullptr;
        return ERAR_END_ARCHIVE;
    }
    if (r != ARCHIVE_OK && r != ARCHIVE_WARN) {
        // With encryption in play (encrypted headers, or libarchive giving up
        // on a solid archive after an encrypted entry), the key is what is
        // missing: ask for it, as the RAR library would before decoding.
        a->entry = nullptr;
        if (a->encryptedHeaders || a->sawEncrypted) AskPassword(a);
        return ERAR_BAD_DATA;
    }
    const char* name = archive_entry_pathname_utf8(a->entry);
    if (!name) name = archive_entry_pathname(a->entry);
    CopyName(name, header->FileName, sizeof(header->FileName));
    CopyName(a->volumes.front().c_str(), header->ArcName, sizeof(header->ArcName));
    const int64_t size = archive_entry_size_is_set(a->entry) ? archive_entry_size(a->entry) : 0;
    header->UnpSize = static_cast<unsigned int>(static_cast<uint64_t>(size));
    if constexpr (requires { header->UnpSizeHigh; })
        header->UnpSizeHigh = static_cast<unsigned int>(static_cast<uint64_t>(size) >> 32);
    if (archive_entry_filetype(a->entry) == AE_IFDIR) header->Flags |= RHDF_DIRECTORY;
    a->haveFacts = a->rar5.IsOpen() &&
                   ReadRar5FileFacts(a->rar5.Get(),
                                     static_cast<uint64_t>(archive_read_header_position(a->reader)),
                                     &a->facts);
    a->encrypted = archive_entry_is_data_encrypted(a->entry) ||
                   archive_entry_is_encrypted(a->entry) || (a->haveFacts && a->facts.encrypted);
    if (a->encrypted) header->Flags |= RHDF_ENCRYPTED;
    a->sawEncrypted = a->sawEncrypted || a->encrypted;
    return ERAR_SUCCESS;
}

int Extract(Archive* a, const char* destination) {
    if (archive_entry_filetype(a->entry) == AE_IFDIR) {
        if (::mkdir(destination, 0777) == 0) return ERAR_SUCCESS;
        struct stat st;
        return errno == EEXIST && ::stat(destination, &st) == 0 && S_ISDIR(st.st_mode)
                   ? ERAR_SUCCESS
                   : ERAR_ECREATE;
    }
    ncb::archive::FileHandle out(ncb::archive::CreateAlways(destination));
    if (!out.IsOpen()) return ERAR_ECREATE;
    auto* block = static_cast<unsigned char*>(nplat::HeapAlloc(kBlockSize));
    if (!block) return ERAR_NO_MEMORY;
    int result = ERAR_SUCCESS;
    unsigned crc = 0;
    for (;;) {
        const la_ssize_t n = archive_read_data(a->reader, block, kBlockSize);
        if (n == 0) break;
        if (n < 0) {
            result = ERAR_BAD_DATA;
            break;
        }
        if (a->callback &&
            a->callback(UCM_PROCESSDATA, a->userData, reinterpret_cast<LPARAM>(block), n) == -1) {
            result = ERAR_UNKNOWN;
            break;
        }
        if (!ncb::archive::WriteAll(out.Get(), block, static_cast<size_t>(n))) {
            result = ERAR_EWRITE;
            break;
        }
        crc = CNZipDecoder::CalcCRC32(crc, block, static_cast<int>(n));
    }
    nplat::HeapFree(block);
    // Links carry no data of their own: their header CRC is not of what we read.
    const bool plainFile = archive_entry_filetype(a->entry) == AE_IFREG &&
                           !archive_entry_hardlink(a->entry) && !archive_entry_symlink(a->entry);
    if (result == ERAR_SUCCESS && a->haveFacts && a->facts.hasCrc && !a->facts.split && plainFile &&
        crc != a->facts.crc)
        result = ERAR_BAD_DATA;
    return result;
}

int Test(Archive* a) {
    auto* block = static_cast<unsigned char*>(nplat::HeapAlloc(kBlockSize));
    if (!block) return ERAR_NO_MEMORY;
    la_ssize_t n;
    while ((n = archive_read_data(a->reader, block, kBlockSize)) > 0) {
    }
    nplat::HeapFree(block);
    return n == 0 ? ERAR_SUCCESS : ERAR_BAD_DATA;
}

RarHandle OpenArchiveEx(RAROpenArchiveDataEx* data) {
    if (!data) return nullptr;
    Utf8Locale locale;
    data->OpenResult = ERAR_EOPEN;
    if (!data->ArcName) return nullptr;
    {
        ncb::archive::FileHandle probe(ncb::archive::OpenForRead(data->ArcName));
        if (!probe.IsOpen()) return nullptr;
    }
    Archive* a = nplat::HeapNew<Archive>();
    if (!a) {
        data->OpenResult = ERAR_NO_MEMORY;
        return nullptr;
    }
    std::vector<const char*> names;
    try {
        a->volumes = FindVolumes(data->ArcName);
        for (const std::string& v : a->volumes) names.push_back(v.c_str());
        names.push_back(nullptr);
    } catch (...) {
        nplat::HeapDelete(a);
        data->OpenResult = ERAR_NO_MEMORY;
        return nullptr;
    }
    a->encryptedHeaders = HasEncryptedHeaders(a->volumes.front());
    if (a->volumes.size() == 1) {
        a->rar5.Reset(ncb::archive::OpenForRead(data->ArcName));
        if (a->rar5.IsOpen() && !IsRar5File(a->rar5.Get())) a->rar5.Reset(-1);
    }
    a->reader = archive_read_new();
    if (!a->reader) {
        nplat::HeapDelete(a);
        data->OpenResult = ERAR_NO_MEMORY;
        return nullptr;
    }
    archive_read_support_format_rar(a->reader);
    archive_read_support_format_rar5(a->reader);
    if (archive_read_open_filenames(a->reader, names.data(), kBlockSize) != ARCHIVE_OK) {
        nplat::HeapDelete(a);
        data->OpenResult = ERAR_BAD_ARCHIVE;
        return nullptr;
    }
    a->callback = data->Callback;
    a->userData = data->UserData;
    data->OpenResult = ERAR_SUCCESS;
    if (data->CmtBuf && data->CmtBufSize > 0) data->CmtBuf[0] = 0;
    data->CmtSize = 0;
    data->CmtState = 0;
    return a;
}

int CloseArchive(RarHandle handle) {
    auto* a = static_cast<Archive*>(handle);
    if (!a) return ERAR_ECLOSE;
    Utf8Locale locale;
    nplat::HeapDelete(a);
    return ERAR_SUCCESS;
}

int ReadHeaderPlain(RarHandle handle, RARHeaderData* header) { return ReadHeader(handle, header); }

int ReadHeaderEx(RarHandle handle, RARHeaderDataEx* header) { return ReadHeader(handle, header); }

int ProcessFile(RarHandle handle, int operation, char* destPath, char* destName) {
    auto* a = static_cast<Archive*>(handle);
    if (!a || !a->entry) return ERAR_UNKNOWN;
    Utf8Locale locale;
    if (operation == RAR_SKIP) {
        a->entry = nullptr;
        if (archive_read_data_skip(a->reader) == ARCHIVE_OK) return ERAR_SUCCESS;
        // Skipping inside a solid archive decompresses, which needs the key.
        if (a->encrypted) AskPassword(a);
        return ERAR_BAD_DATA;
    }
    if (a->encrypted) {
        a->entry = nullptr;
        return AskPassword(a) ? ERAR_BAD_PASSWORD : ERAR_MISSING_PASSWORD;
    }
    int result = ERAR_UNKNOWN;
    if (operation == RAR_TEST) {
        result = Test(a);
    } else if (operation == RAR_EXTRACT) {
        result = destName && !destPath ? Extract(a, destName) : ERAR_ECREATE;
    }
    a->entry = nullptr;
    return result;
}

void SetCallback(RarHandle handle, UNRARCALLBACK callback, LPARAM userData) {
    auto* a = static_cast<Archive*>(handle);
    if (!a) return;
    a->callback = callback;
    a->userData = userData;
}

const RarLibrary kLibArchive = {OpenArchiveEx, CloseArchive, ReadHeaderPlain,
                                ReadHeaderEx,  ProcessFile,  SetCallback};

}  // namespace

const RarLibrary& BuiltInRarLibrary() { return kLibArchive; }
bool HasRarBackend() { return true; }

}  // namespace ncb::rar

#else  // no libarchive: a library that cannot open anything

namespace ncb::rar {
namespace {

RarHandle OpenArchiveEx(RAROpenArchiveDataEx* data) {
    if (data) data->OpenResult = ERAR_EOPEN;
    return nullptr;
}
int CloseArchive(RarHandle) { return ERAR_ECLOSE; }
int ReadHeaderPlain(RarHandle, RARHeaderData*) { return ERAR_END_ARCHIVE; }
int ReadHeaderEx(RarHandle, RARHeaderDataEx*) { return ERAR_END_ARCHIVE; }
int ProcessFile(RarHandle, int, char*, char*) { return ERAR_UNKNOWN; }
void SetCallback(RarHandle, UNRARCALLBACK, LPARAM) {}

const RarLibrary kNone = {OpenArchiveEx, CloseArchive, ReadHeaderPlain,
                          ReadHeaderEx,  ProcessFile,  SetCallback};

}  // namespace

const RarLibrary& BuiltInRarLibrary() { return kNone; }
bool HasRarBackend() { return false; }

}  // namespace ncb::rar

#endif
