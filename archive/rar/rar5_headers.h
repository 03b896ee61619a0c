// A small reader of RAR 5 block headers, for the two facts about a file that
// libarchive 3.6 does not give: whether its data is encrypted, and the
// CRC-32 of its data (libarchive does not check it for stored files).
//
// It walks blocks from a position libarchive reports (the signature, main,
// service and file headers are all skipped by their declared sizes) to the
// first file header, and reads that header's flags, CRC-32 and extra
// records. Headers are bounded (2 MiB) and every field is range-checked; on
// anything unexpected the walk reports nothing rather than guessing. Not
// here: RAR 4 (libarchive reports its encryption and checks its CRCs),
// names, times, and encrypted headers.
#pragma once

#include <cstdint>

namespace ncb::rar {

struct Rar5FileFacts {
    bool encrypted = false;  // an encryption record in the extra area
    bool hasCrc = false;     // a data CRC-32 is stored (not BLAKE2 instead)
    uint32_t crc = 0;
    bool split = false;  // data continues from or into another volume
};

// True when the file starts with the RAR 5 signature.
bool IsRar5File(int fd);
// Facts of the first file header at or after `position`; false when none
// can be read.
bool ReadRar5FileFacts(int fd, uint64_t position, Rar5FileFacts* facts);

}  // namespace ncb::rar
