// CNRarDecoder over the RAR library interface (rar_library.h).
//
// Listing opens the archive in list mode, reads every header and skips its
// data; extraction opens it again in extract mode and walks the headers to
// the wanted index. Only a header read that reports bad data fails a walk;
// any other stop (normally the end of the archive) ends it as success, the
// way the library's own tools treat a missing end-of-archive block. Whether
// the library asked for a password during the call decides between "wrong or
// missing password" (4) and "archive error" (5).
//
// The entry table grows geometrically rather than one entry at a time, so
// listing stays linear in the number of entries.
#include "ncodecbase/rar_decoder.h"

#include <cstring>

#include "archive/rar/rar_library.h"
#include "base/checked_size.h"

using namespace ncb::rar;

namespace {

constexpr int kMaxPathChars = 254;
constexpr int kNameBytes = 256;

struct RarEntry {
    char name[kNameBytes];
    uint32_t unpackedSize;
    uint32_t packedSize;
};
static_assert(sizeof(RarEntry) == 264);

// Copies a zero-terminated UTF-8 name into `out` (kNameBytes), cut at a
// character boundary when it does not fit.
void CopyName(const char* name, char* out) {
    size_t n = strnlen(name, kNameBytes);
    if (n >= kNameBytes) {
        n = kNameBytes - 1;
        while (n > 0 && (static_cast<unsigned char>(name[n]) & 0xC0) == 0x80) --n;
    }
    std::memcpy(out, name, n);
    out[n] = 0;
}

// Closes the library handle when it goes out of scope.
class ArchiveGuard {
  public:
    ArchiveGuard(const RarLibrary& library, RarHandle handle)
        : library_(library), handle_(handle) {}
    ~ArchiveGuard() {
        if (handle_) library_.RARCloseArchive(handle_);
    }
    ArchiveGuard(const ArchiveGuard&) = delete;
    ArchiveGuard& operator=(const ArchiveGuard&) = delete;

  private:
    const RarLibrary& library_;
    RarHandle handle_;
};

}  // namespace

CNRarDecoder::CNRarDecoder() = default;

CNRarDecoder::~CNRarDecoder() {
    Close();
    if (m_pEntryTable) m_pEntryTable->Release();
}

int CNRarDecoder::Fail(int code) {
    m_nErrorCode = code;
    return 0;
}

void CNRarDecoder::StorePassword(const char* password) {
    if (!password) {
        m_chPassword[0] = 0;
        return;
    }
    const size_t n = strnlen(password, sizeof(m_chPassword) - 1);
    std::memcpy(m_chPassword, password, n);
    m_chPassword[n] = 0;
}

int CNRarDecoder::AppendEntry(const char* name, unsigned unpacked, unsigned packed) {
    if (!m_pEntryTable) {
        m_pEntryTable = CNCodecBuffer::CreateBuffer();
        if (!m_pEntryTable) return 0;
    }
    const int used = m_nCount * static_cast<int>(sizeof(RarEntry));
    if (m_pEntryTable->GetBufferSize() - used < static_cast<int>(sizeof(RarEntry))) {
        int capacity = m_nCount < 16 ? 16 : m_nCount;
        int bytes;
        if (!ncb::CheckedMul(capacity, 2, &capacity) ||
            !ncb::CheckedMul(capacity, static_cast<int>(sizeof(RarEntry)), &bytes))
            return 0;
        m_pEntryTable->SetDataSize(used);
        if (!m_pEntryTable->Allocate(bytes, 4, 1)) return 0;
    }
    RarEntry entry{};
    CopyName(name, entry.name);
    entry.unpackedSize = unpacked;
    entry.packedSize = packed;
    std::memcpy(static_cast<unsigned char*>(m_pEntryTable->GetAddress()) + used, &entry,
                sizeof(entry));
    ++m_nCount;
    m_pEntryTable->SetDataSize(used + static_cast<int>(sizeof(RarEntry)));
    return 1;
}

int CNRarDecoder::Open(const char* path, const char* password) {
    if (m_nOpened) return Fail(ERROR_BAD_ARGUMENT);
    if (!path || strnlen(path, kMaxPathChars + 1) > kMaxPathChars) return Fail(ERROR_BAD_ARGUMENT);
    std::memcpy(m_chArchivePath, path, std::strlen(path) + 1);
    StorePassword(password);
    m_nCount = 0;
    m_nPasswordRequested = 0;

    const RarLibrary& library = ActiveRarLibrary();
    char comment[256];
    RAROpenArchiveDataEx open{};
    open.ArcName = m_chArchivePath;
    open.OpenMode = RAR_OM_LIST;
    open.CmtBuf = comment;
    open.CmtBufSize = sizeof(comment);
    RarHandle handle = library.RAROpenArchiveEx(&open);
    ArchiveGuard guard(library, handle);
    if (!handle || open.OpenResult != ERAR_SUCCESS) return Fail(ERROR_OPEN_ARCHIVE);
    library.RARSetCallback(handle, CallbackProcStub, reinterpret_cast<LPARAM>(this));

    RARHeaderDataEx header;
    int result;
    while ((result = library.RARReadHeaderEx(handle, &header)) == ERAR_SUCCESS) {
        if (library.RARProcessFile(handle, RAR_SKIP, nullptr, nullptr) != ERAR_SUCCESS) {
            result = -1;
            break;
        }
        header.FileName[sizeof(header.FileName) - 1] = 0;
        if (!AppendEntry(header.FileName, header.UnpSize, header.PackSize)) {
            m_nCount = 0;
            return Fail(ERROR_OUT_OF_MEMORY);
        }
    }
    if (result == -1 || result == ERAR_BAD_DATA) {
        m_nCount = 0;
        return Fail(m_nPasswordRequested ? ERROR_PASSWORD : ERROR_ARCHIVE);
    }
    m_nOpened = 1;
    return 1;
}

int CNRarDecoder::GetTotalFileNumber() { return m_nOpened ? m_nCount : 0; }

int CNRarDecoder::GetFileInfo(int index, unsigned* size, char* name) {
    if (!m_nOpened || index < 0 || index >= m_nCount) return 0;
    const RarEntry* e = static_cast<const RarEntry*>(m_pEntryTable->GetAddress()) + index;
    if (size) *size = e->unpackedSize;
    if (name) std::memcpy(name, e->name, std::strlen(e->name) + 1);
    return 1;
}

int CNRarDecoder::DecompressFile(int index, const char* outputPath, const char* password) {
    if (!m_nOpened || index < 0 || index >= m_nCount || !outputPath ||
        strnlen(outputPath, kMaxPathChars + 1) > kMaxPathChars)
        return Fail(ERROR_BAD_ARGUMENT);
    StorePassword(password);
    m_nPasswordRequested = 0;

    const RarLibrary& library = ActiveRarLibrary();
    char comment[256];
    RAROpenArchiveDataEx open{};
    open.ArcName = m_chArchivePath;
    open.OpenMode = RAR_OM_EXTRACT;
    open.CmtBuf = comment;
    open.CmtBufSize = sizeof(comment);
    RarHandle handle = library.RAROpenArchiveEx(&open);
    ArchiveGuard guard(library, handle);
    if (!handle || open.OpenResult != ERAR_SUCCESS) return Fail(ERROR_OPEN_ARCHIVE);
    library.RARSetCallback(handle, CallbackProcStub, reinterpret_cast<LPARAM>(this));

    char destination[kMaxPathChars + 1];
    std::memcpy(destination, outputPath, std::strlen(outputPath) + 1);
    RARHeaderData header;
    for (int i = 0;; ++i) {
        const int result = library.RARReadHeader(handle, &header);
        if (result == ERAR_BAD_DATA)
            return Fail(m_nPasswordRequested ? ERROR_PASSWORD : ERROR_ARCHIVE);
        if (result != ERAR_SUCCESS) break;  // fewer headers than listed: nothing to do
        if (i == index) {
            if (library.RARProcessFile(handle, RAR_EXTRACT, nullptr, destination) != ERAR_SUCCESS)
                return Fail(m_nPasswordRequested ? ERROR_PASSWORD : ERROR_ARCHIVE);
            break;
        }
        if (library.RARProcessFile(handle, RAR_SKIP, nullptr, nullptr) != ERAR_SUCCESS)
            return Fail(ERROR_ARCHIVE);
    }
    return 1;
}

int CNRarDecoder::GetExtendErrorCode() { return m_nErrorCode; }

void CNRarDecoder::Close() {
    if (!m_nOpened) return;
    if (m_pEntryTable) m_pEntryTable->Free();
    m_nCount = 0;
    m_nOpened = 0;
}

int CNRarDecoder::CallbackProcStub(unsigned message, long userData, long p1, long p2) {
    auto* reader = reinterpret_cast<CNRarDecoder*>(userData);
    return reader ? reader->CallbackProc(message, p1, p2) : 0;
}

int CNRarDecoder::CallbackProc(unsigned message, long p1, long p2) {
    if (message != UCM_NEEDPASSWORD) return 0;
    auto* buffer = reinterpret_cast<char*>(p1);
    if (buffer && p2 > 0) {
        size_t n = std::strlen(m_chPassword);
        if (n > static_cast<size_t>(p2) - 1) n = static_cast<size_t>(p2) - 1;
        std::memcpy(buffer, m_chPassword, n);
        buffer[n] = 0;
    }
    m_nPasswordRequested = 1;
    return 0;
}
