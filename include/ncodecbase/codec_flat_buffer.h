// CNCodecFlatBuffer: one reserved range of address space out of which callers
// carve blocks (first fit), commit them page by page as far as they need, and
// hand them over as pool-block CNCodecBuffer objects that give the block back
// when their last reference goes.
//
// Lengths and commit sizes are bytes and are not rounded; the platform commits
// and decommits every page a byte range touches, so callers keep lengths and
// commit sizes multiples of 4096 or neighbouring blocks share pages.
//
// Ownership: reference-counted; the creator holds one reference and every
// live handed-over block one more, so the pool outlives its last buffer.
// Thread safety: every operation holds the pool's lock; blocks may be
// allocated, freed and released from several threads.
#pragma once

#include <mutex>

#include "ncodecbase/base_services.h"
#include "ncodecbase/export.h"

class CNCodecBuffer;

class NCB_API CNCodecFlatBuffer {
  public:
    CNCodecFlatBuffer() = default;
    ~CNCodecFlatBuffer();  // uninitialises
    CNCodecFlatBuffer(const CNCodecFlatBuffer&) = delete;
    CNCodecFlatBuffer& operator=(const CNCodecFlatBuffer&) = delete;

    // A new, uninitialised pool with one reference; null when memory runs out.
    static CNCodecFlatBuffer* CreateFlatBuffer();
    int AddRef();
    // At 0 the pool is uninitialised and destroyed (heap pools only).
    int Release();

    // Reserves `size` bytes as one free block. 0 when already initialised,
    // when the size is not positive or the reservation or bookkeeping fails.
    int Init(int size);
    // Releases every block and the region; 0 when not initialised. Buffers
    // still handed over keep their (now invalid) addresses and only drop
    // their pool reference when destroyed; destroy them first.
    int Uninit();

    // First fit: a new block of `length` bytes whose first `commitSize` bytes
    // are committed, or null (no free block long enough, 0 < length and
    // 0 <= commitSize <= length not met, commit or bookkeeping failure).
    void* AllocateFlatBuffer(int length, int commitSize);
    // New committed size (0..length) of an allocated block; 1 or 0.
    int CommitMemory(void* address, int committed);
    // Gives an allocated block back; other addresses are ignored.
    void FreeFlatBuffer(void* address);
    // Hands an allocated block over as a pool-block buffer of its committed
    // size; the uncommitted tail goes back to the pool. Null on failure.
    CNCodecBuffer* DetachFlatBuffer(void* address, int dataSize);
    // Called by a pool-block buffer's destructor; not for users.
    void ReleaseFlatBuffer(void* address);

    // Introspection for tools and tests: the region and the block records.
    void* GetRegionAddress();
    int GetRegionSize();
    int GetBlockCount();
    // Block at `index` in address order: 1 and its fields, or 0 past the end.
    // State: 0 free, 1 allocated, 2 handed over.
    int GetBlockInfo(int index, void** address, int* length, int* committed, int* state);

  private:
    struct BlockData {
        int length;
        int committed;
    };
    enum BlockState : int16_t { kFree = 0, kAllocated = 1, kHandedOver = 2 };

    uint8_t* AddressOf(int index);
    BlockData* DataOf(int index);
    int FindBlock(void* address, int state);
    // Shared body of FreeFlatBuffer and ReleaseFlatBuffer; true when freed.
    bool ReturnBlock(void* address, BlockState expected);
    void UninitLocked();

    uint8_t* m_pRegion = nullptr;
    int m_nRegionSize = 0;
    // One record per block in address order. User value 1: state; user value
    // 2: offset of the block from the region start (an address would not fit
    // the 32-bit user value on a 64-bit system).
    CNDataList m_listBlock;
    std::recursive_mutex m_lock;
    int m_nRefCount = 1;
    // Handed-over blocks that were still alive when Uninit dropped their
    // records; their return only drops the pool reference they hold.
    int m_nOrphanedBlocks = 0;
};
