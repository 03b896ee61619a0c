// Internal view of the Huffman table cache: reading records back out of the
// caller's buffer without trusting what the caller may have put there.
#pragma once

#include <cstdint>

#include "ncodecbase/jpeg_codec.h"

namespace ncb::jpeg {

using HuffmanRecord = CNJpegCodec::HuffmanTableTag;

// The record at `offset` of a cache whose data are `data`, `size` bytes, if
// its header and every part it points at lie inside the record; else null.
const HuffmanRecord* RecordAt(const uint8_t* data, int size, int offset);

// The symbols that follow a record's header.
inline const uint8_t* RecordSymbols(const HuffmanRecord* r) {
    return reinterpret_cast<const uint8_t*>(r) + sizeof(HuffmanRecord);
}

}  // namespace ncb::jpeg
