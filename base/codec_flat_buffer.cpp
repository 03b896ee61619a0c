// CNCodecFlatBuffer. The block list tiles the reserved region without gaps:
// each record holds {length, committed}, its state in user value 1 and its
// offset from the region start in user value 2. Allocation is first fit in
// address order; freeing merges with free neighbours so two free records are
// never adjacent. A list insertion that runs out of memory throws
// CNException*, which every operation turns into its failure result with the
// list as it was.
#include "ncodecbase/codec_flat_buffer.h"

#include "ncodecbase/codec_buffer.h"
#include "platform/kernel/heap.h"
#include "platform/kernel/virtual_memory.h"

namespace {
using Guard = std::lock_guard<std::recursive_mutex>;
}

CNCodecFlatBuffer::~CNCodecFlatBuffer() {
    Guard guard(m_lock);
    UninitLocked();
}

CNCodecFlatBuffer* CNCodecFlatBuffer::CreateFlatBuffer() {
    return nplat::HeapNew<CNCodecFlatBuffer>();
}

int CNCodecFlatBuffer::AddRef() {
    Guard guard(m_lock);
    return ++m_nRefCount;
}

int CNCodecFlatBuffer::Release() {
    int count;
    {
        Guard guard(m_lock);
        count = --m_nRefCount;
    }
    if (count == 0) nplat::HeapDelete(this);
    return count;
}

int CNCodecFlatBuffer::Init(int size) {
    Guard guard(m_lock);
    if (m_pRegion || size <= 0) return 0;
    auto* region = static_cast<uint8_t*>(nplat::VirtualReserve(static_cast<size_t>(size)));
    if (!region) return 0;
    try {
        BlockData whole{size, 0};
        int index = m_listBlock.InsertBinary("", &whole, sizeof(whole), -1, 0);
        m_listBlock.SetUserData1(index, kFree);
        m_listBlock.SetUserData2(index, 0);
    } catch (CNException* e) {
        e->FreeMe();
        nplat::VirtualRelease(region, static_cast<size_t>(size));
        return 0;
    }
    m_pRegion = region;
    m_nRegionSize = size;
    return 1;
}

int CNCodecFlatBuffer::Uninit() {
    Guard guard(m_lock);
    if (!m_pRegion) return 0;
    UninitLocked();
    return 1;
}

void CNCodecFlatBuffer::UninitLocked() {
    if (!m_pRegion) return;
    for (int i = 0; i < m_listBlock.GetParameterCount(); ++i) {
        int16_t state = m_listBlock.GetUserData1(i);
        if (state == kFree) continue;
        if (state == kHandedOver) ++m_nOrphanedBlocks;
        if (DataOf(i)->committed > 0)
            nplat::VirtualDecommit(AddressOf(i), static_cast<size_t>(DataOf(i)->committed));
    }
    m_listBlock.RemoveAll(1);
    nplat::VirtualRelease(m_pRegion, static_cast<size_t>(m_nRegionSize));
    m_pRegion = nullptr;
    m_nRegionSize = 0;
}

uint8_t* CNCodecFlatBuffer::AddressOf(int index) {
    return m_pRegion + m_listBlock.GetUserData2(index);
}

CNCodecFlatBuffer::BlockData* CNCodecFlatBuffer::DataOf(int index) {
    return static_cast<BlockData*>(m_listBlock.GetBinaryData(index));
}

// Index of the first record at `address` (in `state`, or any state when
// negative), or -1. Addresses outside the region match nothing.
int CNCodecFlatBuffer::FindBlock(void* address, int state) {
    auto* p = static_cast<uint8_t*>(address);
    if (!m_pRegion || p < m_pRegion || p >= m_pRegion + m_nRegionSize) return -1;
    int32_t offset = static_cast<int32_t>(p - m_pRegion);
    if (state < 0) return m_listBlock.FindByUserData2(0, offset, -1);
    return m_listBlock.FindByUserData1and2(0, static_cast<int16_t>(state), offset, -1);
}

void* CNCodecFlatBuffer::AllocateFlatBuffer(int length, int commitSize) {
    Guard guard(m_lock);
    if (!m_pRegion || length <= 0 || commitSize < 0 || commitSize > length) return nullptr;

    int found = -1;
    for (int i = m_listBlock.FindByUserData1(0, kFree, -1); i >= 0;
         i = m_listBlock.FindByUserData1(i + 1, kFree, -1)) {
        if (DataOf(i)->length >= length) {
            found = i;
            break;
        }
    }
    if (found < 0) return nullptr;

    const bool split = DataOf(found)->length > length;
    const int32_t offset = m_listBlock.GetUserData2(found);
    if (split) {
        try {
            BlockData block{length, commitSize};
            m_listBlock.InsertBinary("", &block, sizeof(block), found, 0);
        } catch (CNException* e) {
            e->FreeMe();
            return nullptr;
        }
    }
    uint8_t* address = m_pRegion + offset;
    if (commitSize > 0 && !nplat::VirtualCommit(address, static_cast<size_t>(commitSize))) {
        if (split) m_listBlock.Remove(found);
        return nullptr;
    }
    if (split) {
        m_listBlock.SetUserData1(found, kAllocated);
        m_listBlock.SetUserData2(found, offset);
        DataOf(found + 1)->length -= length;
        m_listBlock.SetUserData2(found + 1, offset + length);
    } else {
        DataOf(found)->committed = commitSize;
        m_listBlock.SetUserData1(found, kAllocated);
    }
    return address;
}

int CNCodecFlatBuffer::CommitMemory(void* address, int committed) {
    Guard guard(m_lock);
    int index = FindBlock(address, kAllocated);
    if (index < 0) return 0;
    BlockData* block = DataOf(index);
    if (committed < 0 || committed > block->length) return 0;
    auto* base = static_cast<uint8_t*>(address);
    bool ok = true;
    if (committed > block->committed)
        ok = nplat::VirtualCommit(base + block->committed,
                                  static_cast<size_t>(committed - block->committed));
    else if (committed < block->committed)
        ok = nplat::VirtualDecommit(base + committed,
                                    static_cast<size_t>(block->committed - committed));
    if (!ok) return 0;
    block->committed = committed;
    return 1;
}

bool CNCodecFlatBuffer::ReturnBlock(void* address, BlockState expected) {
    // Searching by state as well matters only for a block detached with
    // nothing committed: it has length 0 and shares its address with the
    // block that follows it.
    int index = FindBlock(address, expected);
    if (index < 0) return false;
    if (DataOf(index)->committed > 0)
        nplat::VirtualDecommit(address, static_cast<size_t>(DataOf(index)->committed));

    // Merging only removes records, so it cannot run out of memory.
    int length = DataOf(index)->length;
    if (index > 0 && m_listBlock.GetUserData1(index - 1) == kFree) {
        m_listBlock.Remove(index);
        --index;
        length += DataOf(index)->length;
    }
    if (index + 1 < m_listBlock.GetParameterCount() &&
        m_listBlock.GetUserData1(index + 1) == kFree) {
        length += DataOf(index + 1)->length;
        m_listBlock.Remove(index + 1);
    }
    *DataOf(index) = BlockData{length, 0};
    m_listBlock.SetUserData1(index, kFree);
    return true;
}

void CNCodecFlatBuffer::FreeFlatBuffer(void* address) {
    Guard guard(m_lock);
    ReturnBlock(address, kAllocated);
}

void CNCodecFlatBuffer::ReleaseFlatBuffer(void* address) {
    int count;
    {
        Guard guard(m_lock);
        if (!ReturnBlock(address, kHandedOver)) {
            // A block orphaned by a direct Uninit still holds its reference.
            if (m_nOrphanedBlocks == 0 || FindBlock(address, -1) >= 0) return;
            --m_nOrphanedBlocks;
        }
        count = --m_nRefCount;
    }
    if (count == 0) nplat::HeapDelete(this);
}

CNCodecBuffer* CNCodecFlatBuffer::DetachFlatBuffer(void* address, int dataSize) {
    Guard guard(m_lock);
    int index = FindBlock(address, kAllocated);
    if (index < 0 || dataSize < 0 || dataSize > DataOf(index)->committed) return nullptr;

    BlockData* block = DataOf(index);
    const int tail = block->length - block->committed;
    if (tail > 0) {
        const int32_t tailOffset = m_listBlock.GetUserData2(index) + block->committed;
        const int next = index + 1;
        if (next < m_listBlock.GetParameterCount() && m_listBlock.GetUserData1(next) == kFree) {
            DataOf(next)->length += tail;
            m_listBlock.SetUserData2(next, tailOffset);
            block->length = block->committed;
        } else {
            try {
                BlockData free{tail, 0};
                m_listBlock.InsertBinary("", &free, sizeof(free), next, 0);
                m_listBlock.SetUserData1(next, kFree);
                m_listBlock.SetUserData2(next, tailOffset);
                DataOf(index)->length = DataOf(index)->committed;
            } catch (CNException* e) {
                // The block is handed over at its full length.
                e->FreeMe();
            }
        }
    }

    CNCodecBuffer* buffer =
        CNCodecBuffer::CreateFlatWrapBuffer(this, address, DataOf(index)->committed, dataSize);
    if (!buffer) return nullptr;
    m_listBlock.SetUserData1(index, kHandedOver);
    ++m_nRefCount;
    return buffer;
}

void* CNCodecFlatBuffer::GetRegionAddress() {
    Guard guard(m_lock);
    return m_pRegion;
}

int CNCodecFlatBuffer::GetRegionSize() {
    Guard guard(m_lock);
    return m_nRegionSize;
}

int CNCodecFlatBuffer::GetBlockCount() {
    Guard guard(m_lock);
    return m_listBlock.GetParameterCount();
}

int CNCodecFlatBuffer::GetBlockInfo(int index, void** address, int* length, int* committed,
                                    int* state) {
    Guard guard(m_lock);
    if (index < 0 || index >= m_listBlock.GetParameterCount()) return 0;
    if (address) *address = AddressOf(index);
    if (length) *length = DataOf(index)->length;
    if (committed) *committed = DataOf(index)->committed;
    if (state) *state = m_listBlock.GetUserData1(index);
    return 1;
}
