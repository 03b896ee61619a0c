// NDataStreamBufferInfoTag: one element of the chain of caller memory blocks
// that every stream reader and writer walks in place.
//
// The logical byte sequence of a stream is the blocks' bytes in array order.
// The chain (a plain array of these) and the blocks belong to the caller, who
// keeps them alive and unchanged in shape while a stream uses them; streams
// never copy, allocate or free them.
//
// Elements are expected to have a size of at least 1. A size of 0 (or below)
// reads as the end of the data: a stream treats everything from that element
// on as absent, so a bad size can never make it touch memory it was not given.
#pragma once

#include <cstddef>
#include <cstdint>

struct NDataStreamBufferInfoTag {
    unsigned char* pBuffer;  // first byte of the block
    int32_t nSize;           // bytes in the block
};
static_assert(offsetof(NDataStreamBufferInfoTag, pBuffer) == 0);
static_assert(offsetof(NDataStreamBufferInfoTag, nSize) == sizeof(void*));
static_assert(sizeof(NDataStreamBufferInfoTag) == 2 * sizeof(void*));
