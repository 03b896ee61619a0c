// Helpers shared by the archive reader tests: the shared test data's
// EXPECTED.tsv tables, files as byte vectors, SHA-256 through coreutils, and
// running the oracle tools (Info-ZIP zip, Python's zipfile) in a shell.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ncbtest::archive {

using Bytes = std::vector<uint8_t>;

// One line of zip/EXPECTED.tsv or rar/EXPECTED.tsv. "-" fields stay "-";
// `password` comes from the zip column or, for RAR, a "password=" note.
struct ExpectedRow {
    std::string archive;
    std::string entry;
    std::string size;
    std::string sha256;
    std::string expect;  // ok, refuse, crc_error, bad_password, unsupported
    std::string password;
    std::string note;
};

std::vector<ExpectedRow> ReadExpected(const std::string& folder);

Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& bytes);
bool FileExists(const std::string& path);
int64_t FileSizeOf(const std::string& path);

// Lower-case hex SHA-256 of a file, or "" when it cannot be read.
std::string Sha256OfFile(const std::string& path);

struct CommandResult {
    int status = -1;     // exit status, -1 when it did not exit normally
    std::string output;  // stdout and stderr together
};
// Runs `command` with /bin/sh.
CommandResult RunShell(const std::string& command);
// Single-quotes `text` for the shell.
std::string Quote(const std::string& text);

// Deterministic test contents.
Bytes RandomBytes(size_t size, uint64_t seed);
// Word-like text that compresses like prose.
Bytes TextBytes(size_t size, uint64_t seed);

// Local-header walk of an archive made by a tool: offset of every local
// header, and general-purpose flags of each, to check what the tool wrote.
struct LocalHeaderInfo {
    size_t offset;
    uint16_t flags;
    uint16_t method;
    std::string name;
};
std::vector<LocalHeaderInfo> LocalHeaders(const Bytes& zip);

uint32_t Crc32Of(const uint8_t* data, size_t size);  // zlib's crc32, the oracle
// Raw deflate (no zlib header) by zlib, for building archives by hand.
Bytes ZlibDeflateRaw(const Bytes& data, int level, int strategy = 0);

// A ZIP archive written by hand: local header, data, optional descriptor.
struct HandEntry {
    std::string name;
    uint16_t method = 8;
    uint16_t flags = 0;
    Bytes data;  // as stored (compressed, encryption header included)
    uint32_t crc = 0;
    uint32_t uncompressedSize = 0;
    bool descriptor = false;  // write sizes after the data (sets flag bit 3)
};
Bytes BuildZip(const std::vector<HandEntry>& entries);

}  // namespace ncbtest::archive
