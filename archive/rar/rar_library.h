// The RAR library interface the RAR reader calls: the published functions of
// the RAR decompression library ("unrar.dll") with their structures, codes
// and callback messages, as a table of function pointers.
//
// The table in use is the libarchive adapter (rar_libarchive.cpp) when the
// library was built with libarchive, otherwise a stand-in whose every open
// fails with ERAR_EOPEN. Tests install a scripted table of their own through
// SetRarLibraryForTesting to drive the reader's password and error paths.
//
// Only the fields the reader and the adapter use are declared; the layout is
// ours (the real library's structures are never passed across a binary
// boundary here).
#pragma once

#include <cstdint>

namespace ncb::rar {

using RarHandle = void*;
using LPARAM = long;  // the callback's user-data and parameter words
using UNRARCALLBACK = int (*)(unsigned int message, LPARAM userData, LPARAM p1, LPARAM p2);

// Results.
constexpr int ERAR_SUCCESS = 0;
constexpr int ERAR_END_ARCHIVE = 10;
constexpr int ERAR_NO_MEMORY = 11;
constexpr int ERAR_BAD_DATA = 12;
constexpr int ERAR_BAD_ARCHIVE = 13;
constexpr int ERAR_UNKNOWN_FORMAT = 14;
constexpr int ERAR_EOPEN = 15;
constexpr int ERAR_ECREATE = 16;
constexpr int ERAR_ECLOSE = 17;
constexpr int ERAR_EREAD = 18;
constexpr int ERAR_EWRITE = 19;
constexpr int ERAR_SMALL_BUF = 20;
constexpr int ERAR_UNKNOWN = 21;
constexpr int ERAR_MISSING_PASSWORD = 22;
constexpr int ERAR_EREFERENCE = 23;
constexpr int ERAR_BAD_PASSWORD = 24;

// Open modes.
constexpr unsigned int RAR_OM_LIST = 0;
constexpr unsigned int RAR_OM_EXTRACT = 1;

// RARProcessFile operations.
constexpr int RAR_SKIP = 0;
constexpr int RAR_TEST = 1;
constexpr int RAR_EXTRACT = 2;

// Callback messages. UCM_NEEDPASSWORD: p1 is a char buffer, p2 its size.
constexpr unsigned int UCM_CHANGEVOLUME = 0;
constexpr unsigned int UCM_PROCESSDATA = 1;
constexpr unsigned int UCM_NEEDPASSWORD = 2;

// RARHeaderData(Ex) flags.
constexpr unsigned int RHDF_ENCRYPTED = 0x04;
constexpr unsigned int RHDF_DIRECTORY = 0x20;

struct RAROpenArchiveDataEx {
    char* ArcName;
    unsigned int OpenMode;
    unsigned int OpenResult;
    char* CmtBuf;
    unsigned int CmtBufSize;
    unsigned int CmtSize;
    unsigned int CmtState;
    unsigned int Flags;
    UNRARCALLBACK Callback;
    LPARAM UserData;
};

struct RARHeaderData {
    char ArcName[260];
    char FileName[260];  // UTF-8, zero-terminated, cut to fit
    unsigned int Flags;
    unsigned int PackSize;
    unsigned int UnpSize;
    unsigned int FileCRC;
};

struct RARHeaderDataEx {
    char ArcName[1024];
    char FileName[1024];  // UTF-8, zero-terminated, cut to fit
    unsigned int Flags;
    unsigned int PackSize;
    unsigned int PackSizeHigh;
    unsigned int UnpSize;
    unsigned int UnpSizeHigh;
    unsigned int FileCRC;
};

struct RarLibrary {
    // Null on failure, with the reason in data->OpenResult.
    RarHandle (*RAROpenArchiveEx)(RAROpenArchiveDataEx* data);
    int (*RARCloseArchive)(RarHandle archive);
    // 0 with the next header, ERAR_END_ARCHIVE at the end, else an error.
    int (*RARReadHeader)(RarHandle archive, RARHeaderData* header);
    int (*RARReadHeaderEx)(RarHandle archive, RARHeaderDataEx* header);
    // Skips, tests or extracts the file of the header just read. Extraction
    // writes to destName (destPath is not supported and must be null).
    int (*RARProcessFile)(RarHandle archive, int operation, char* destPath, char* destName);
    void (*RARSetCallback)(RarHandle archive, UNRARCALLBACK callback, LPARAM userData);
};

// The table RAR readers use now.
const RarLibrary& ActiveRarLibrary();
// The built-in table: libarchive's adapter, or the stand-in without it.
const RarLibrary& BuiltInRarLibrary();
// True when the built-in table can read archives at all.
bool HasRarBackend();
// Replaces the active table (null restores the built-in one). Not
// thread-safe: tests only, while no reader is working.
void SetRarLibraryForTesting(const RarLibrary* library);

}  // namespace ncb::rar
