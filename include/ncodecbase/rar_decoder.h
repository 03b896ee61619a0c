// CNRarDecoder: lists the files of a RAR archive and extracts one at a time,
// through the RAR library interface (RAROpenArchiveEx, RARReadHeaderEx,
// RARReadHeader, RARProcessFile, RARSetCallback, RARCloseArchive). This
// library serves that interface with an adapter over libarchive, which reads
// RAR 4 and RAR 5 (multi-volume archives named NAME.partN.rar too) but
// cannot decrypt: an encrypted entry or encrypted headers ask the callback
// for the password and then fail with extended error 4. A build without
// libarchive has no backend, and every Open fails with extended error 3.
//
// The reader keeps only names and sizes; every extraction opens the archive
// again and walks its headers up to the wanted entry. Passwords reach the
// library through the callback, which copies the stored password (at most
// 63 characters) into the library's buffer, cut to the size the library
// gives.
//
// Extended error codes (GetExtendErrorCode), set by every failure (a success
// leaves the code as it was):
//   1 bad argument: already open (Open), not open, index out of range, or a
//     path that is null or 255 characters or longer;
//   2 out of memory;
//   3 the archive could not be opened;
//   4 bad data after the library asked for the password (wrong or missing
//     password, or one the library cannot use);
//   5 any other archive error.
//
// Choices where the interface leaves room:
// - Names longer than the 255 bytes an entry holds are cut at a UTF-8
//   character boundary (refusing them would shift the indices of every later
//   entry against the extraction walk).
// - A negative index is refused like one past the end (error 1).
// - Packed sizes are 0: libarchive does not report them.
// - Extraction writes only the output path: a folder entry becomes a folder
//   there, a link entry an empty file (links are never created or followed).
//
// Ownership: the reader owns its entry table; no archive handle is kept
// between calls. Thread safety: one call at a time per reader; the callback
// runs on the calling thread inside the library calls.
#pragma once

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"

class NCB_API CNRarDecoder {
  public:
    static constexpr int ERROR_BAD_ARGUMENT = 1;
    static constexpr int ERROR_OUT_OF_MEMORY = 2;
    static constexpr int ERROR_OPEN_ARCHIVE = 3;
    static constexpr int ERROR_PASSWORD = 4;
    static constexpr int ERROR_ARCHIVE = 5;

    CNRarDecoder();
    ~CNRarDecoder();
    CNRarDecoder(const CNRarDecoder&) = delete;
    CNRarDecoder& operator=(const CNRarDecoder&) = delete;

    // Lists the archive at `path` (`password` may be null). 1 on success,
    // else 0 with the extended error set.
    int Open(const char* path, const char* password);
    // The entry count, 0 when not open.
    int GetTotalFileNumber();
    // Unpacked size (low 32 bits) and name (zero-terminated; `name` holds
    // 256 bytes) of entry `index`. 0 when not open or out of range. Null
    // out-pointers are skipped.
    int GetFileInfo(int index, unsigned* size, char* name);
    // Extracts entry `index` into the file `outputPath`. 1 on success, and
    // also when the archive now has fewer headers than it had when listed
    // (nothing is extracted then); else 0 with the extended error set.
    int DecompressFile(int index, const char* outputPath, const char* password);
    int GetExtendErrorCode();
    // Releases the entry table; the reader can be opened again.
    void Close();

    // The library callback; `userData` is the reader.
    static int CallbackProcStub(unsigned message, long userData, long p1, long p2);
    int CallbackProc(unsigned message, long p1, long p2);

  private:
    void StorePassword(const char* password);
    int AppendEntry(const char* name, unsigned unpacked, unsigned packed);
    int Fail(int code);

    int m_nOpened = 0;
    int m_nCount = 0;
    int m_nErrorCode = 0;
    int m_nPasswordRequested = 0;
    CNCodecBuffer* m_pEntryTable = nullptr;
    char m_chArchivePath[256] = {};
    char m_chPassword[64] = {};
};
