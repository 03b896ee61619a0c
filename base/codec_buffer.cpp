// CNCodecBuffer. Alignment is measured on the low eight bits of an address
// (the padding of A for alignment N is (A mod 256) mod N), which for the
// power-of-two alignments the library uses is ordinary rounding up.
//
// Allocate works in three stages so that re-allocating a frame buffer for a
// similar picture costs nothing: keep the block as it is, realign inside it
// (an overlap-safe move of the valid bytes), or grow into a new heap block.
// A failed stage leaves every field as it was, including the align bytes.
#include "ncodecbase/codec_buffer.h"

#include <cstring>

#include "ncodecbase/codec_flat_buffer.h"
#include "platform/kernel/heap.h"
#include "platform/kernel/sync.h"

namespace {

int AlignPadding(const void* address, int align) {
    int r = static_cast<int>(reinterpret_cast<uintptr_t>(address) & 0xFF) % align;
    return r ? align - r : 0;
}

bool IsPowerOfTwo(int v) { return v > 0 && (v & (v - 1)) == 0; }

}  // namespace

CNCodecBuffer::CNCodecBuffer() = default;

CNCodecBuffer::CNCodecBuffer(void* address, int bufferSize, int dataSize, CNCodecBuffer* parent)
    : m_pData(static_cast<uint8_t*>(address)),
      m_pBlock(static_cast<uint8_t*>(address)),
      m_nBufferSize(bufferSize),
      m_nDataSize(dataSize),
      m_nWrap(1),
      m_pParent(parent) {
    if (parent) parent->AddRef();
}

CNCodecBuffer::CNCodecBuffer(CNCodecFlatBuffer* pool, void* address, int bufferSize, int dataSize)
    : m_pData(static_cast<uint8_t*>(address)),
      m_pBlock(static_cast<uint8_t*>(address)),
      m_nBufferSize(bufferSize),
      m_nDataSize(dataSize),
      m_nAlignBytes(16),
      m_pPool(pool) {}

CNCodecBuffer::~CNCodecBuffer() {
    nplat::HeapFree(m_pAddiInfo);
    if (m_pPool) {
        // May destroy the pool when this block held its last reference.
        m_pPool->ReleaseFlatBuffer(m_pBlock);
    } else if (m_nWrap) {
        if (m_pParent) m_pParent->Release();
    } else {
        nplat::HeapFree(m_pBlock);
        if (m_hReleaseEvent) nplat::SetEvent(m_hReleaseEvent);
    }
}

CNCodecBuffer* CNCodecBuffer::CreateBuffer() { return nplat::HeapNew<CNCodecBuffer>(); }

CNCodecBuffer* CNCodecBuffer::CreateWrapBuffer(void* address, int bufferSize, int dataSize,
                                               CNCodecBuffer* parent) {
    return nplat::HeapNew<CNCodecBuffer>(address, bufferSize, dataSize, parent);
}

CNCodecBuffer* CNCodecBuffer::CreateFlatWrapBuffer(CNCodecFlatBuffer* pool, void* address,
                                                   int bufferSize, int dataSize) {
    return nplat::HeapNew<CNCodecBuffer>(pool, address, bufferSize, dataSize);
}

void* CNCodecBuffer::NewBuffer(int size) {
    return size < 0 ? nullptr : nplat::HeapAlloc(static_cast<size_t>(size));
}

void CNCodecBuffer::DeleteBuffer(void* block) { nplat::HeapFree(block); }

void* CNCodecBuffer::NewByteAlignBuffer(int size, int align) {
    // The distance to the block start is stored in the byte before the result
    // and read back as a signed byte, which limits alignments to 64.
    if (size < 0 || !IsPowerOfTwo(align) || align > 64) return nullptr;
    auto* block = static_cast<uint8_t*>(nplat::HeapAlloc(static_cast<size_t>(size) + align));
    if (!block) return nullptr;
    uint8_t* result = block + 1;
    result += AlignPadding(result, align);
    result[-1] = static_cast<uint8_t>(result - block);
    return result;
}

void CNCodecBuffer::DeleteByteAlignBuffer(void* block) {
    if (!block) return;
    auto* result = static_cast<uint8_t*>(block);
    nplat::HeapFree(result - static_cast<int8_t>(result[-1]));
}

int CNCodecBuffer::AddRef() {
    Guard guard(m_lock);
    return ++m_nRefCount;
}

int CNCodecBuffer::Release() {
    int count;
    {
        Guard guard(m_lock);
        count = --m_nRefCount;
    }
    if (count == 0) nplat::HeapDelete(this);
    return count;
}

int CNCodecBuffer::GetRefCount() {
    Guard guard(m_lock);
    return m_nRefCount;
}

void* CNCodecBuffer::Allocate(int size, int align, int keepData) {
    Guard guard(m_lock);
    if (!IsOwned() || size < 0 || align < 0) return nullptr;
    const int n = align ? align : m_nAlignBytes;
    if (n < 1) return nullptr;

    const int room = static_cast<int>(m_pData - m_pBlock) + m_nBufferSize;

    // Keep in place.
    if (room >= size && reinterpret_cast<uintptr_t>(m_pData) % static_cast<unsigned>(n) == 0 &&
        m_nBufferSize >= size) {
        m_nAlignBytes = n;
        if (keepData == 0) m_nDataSize = 0;
        return m_pData;
    }

    // Realign inside the current block.
    const int padding = AlignPadding(m_pBlock, n);
    if (m_pBlock && static_cast<int64_t>(size) + padding <= room) {
        uint8_t* data = m_pBlock + padding;
        m_nBufferSize = room - padding;
        if (keepData == 1 && m_nDataSize > 0) {
            if (m_nDataSize > m_nBufferSize) m_nDataSize = m_nBufferSize;
            std::memmove(data, m_pData, static_cast<size_t>(m_nDataSize));
        } else {
            m_nDataSize = 0;
        }
        m_pData = data;
        m_nAlignBytes = n;
        return m_pData;
    }

    // Grow into a new block.
    const int64_t blockSize = static_cast<int64_t>(size) + n;
    if (blockSize > INT32_MAX) return nullptr;
    auto* block = static_cast<uint8_t*>(nplat::HeapAlloc(static_cast<size_t>(blockSize)));
    if (!block) return nullptr;
    const int newPadding = AlignPadding(block, n);
    uint8_t* data = block + newPadding;
    const int bufferSize = static_cast<int>(blockSize) - newPadding;
    if (keepData == 1 && m_nDataSize > 0) {
        if (m_nDataSize > bufferSize) m_nDataSize = bufferSize;
        std::memcpy(data, m_pData, static_cast<size_t>(m_nDataSize));
    } else {
        m_nDataSize = 0;
    }
    nplat::HeapFree(m_pBlock);
    m_pBlock = block;
    m_pData = data;
    m_nBufferSize = bufferSize;
    m_nAlignBytes = n;
    return m_pData;
}

void CNCodecBuffer::Free() {
    Guard guard(m_lock);
    if (!IsOwned()) return;
    nplat::HeapFree(m_pBlock);
    m_pBlock = m_pData = nullptr;
    m_nBufferSize = m_nDataSize = 0;
}

void* CNCodecBuffer::GetAddress() {
    Guard guard(m_lock);
    return m_pData;
}

int CNCodecBuffer::GetBufferSize() {
    Guard guard(m_lock);
    return m_nBufferSize;
}

int CNCodecBuffer::GetDataSize() {
    Guard guard(m_lock);
    return m_nDataSize;
}

void CNCodecBuffer::SetDataSize(int dataSize) {
    Guard guard(m_lock);
    if (dataSize >= 0 && dataSize <= m_nBufferSize) m_nDataSize = dataSize;
}

int CNCodecBuffer::GetFreeSize() {
    Guard guard(m_lock);
    return m_nBufferSize - m_nDataSize;
}

int CNCodecBuffer::GetAlignBytes() {
    Guard guard(m_lock);
    return m_nAlignBytes;
}

void CNCodecBuffer::SetAlignBytes(int alignBytes) {
    Guard guard(m_lock);
    if (IsOwned() && alignBytes >= 1) m_nAlignBytes = alignBytes;
}

// Plain fields: stored and returned as they are, under the buffer's lock.
#define NCB_BUFFER_FIELD(Type, Name, member)    \
    Type CNCodecBuffer::Get##Name() {           \
        Guard guard(m_lock);                    \
        return member;                          \
    }                                           \
    void CNCodecBuffer::Set##Name(Type value) { \
        Guard guard(m_lock);                    \
        member = value;                         \
    }
NCB_BUFFER_FIELD(uint32_t, TimeStamp, m_uTimeStamp)
NCB_BUFFER_FIELD(int, BufferFlag, m_nBufferFlag)
NCB_BUFFER_FIELD(int, BufferUserData, m_nBufferUserData)
NCB_BUFFER_FIELD(int, BufferId, m_nBufferId)
NCB_BUFFER_FIELD(int, BufferFlagEx, m_nBufferFlagEx)
NCB_BUFFER_FIELD(int, BufferUserDataEx, m_nBufferUserDataEx)
NCB_BUFFER_FIELD(int, BufferFlagEx2, m_nBufferFlagEx2)
NCB_BUFFER_FIELD(int, BufferUserDataEx2, m_nBufferUserDataEx2)
#undef NCB_BUFFER_FIELD

void* CNCodecBuffer::AllocateAddiInfo(int size) {
    Guard guard(m_lock);
    if (size < 0) return nullptr;
    void* block = nplat::HeapAlloc(static_cast<size_t>(size));
    if (!block) return nullptr;
    int keep = m_nAddiInfoSize < size ? m_nAddiInfoSize : size;
    if (keep > 0) std::memcpy(block, m_pAddiInfo, static_cast<size_t>(keep));
    nplat::HeapFree(m_pAddiInfo);
    m_pAddiInfo = block;
    m_nAddiInfoSize = size;
    return block;
}

void* CNCodecBuffer::GetAddiInfo() {
    Guard guard(m_lock);
    return m_pAddiInfo;
}

int CNCodecBuffer::GetAddiInfoSize() {
    Guard guard(m_lock);
    return m_nAddiInfoSize;
}

void CNCodecBuffer::WrapHardwareSample(void* sample, nplat::HANDLE releaseEvent) {
    Guard guard(m_lock);
    if (!IsOwned() || m_pHardwareSample) return;
    m_pHardwareSample = sample;
    m_hReleaseEvent = releaseEvent;
}

void* CNCodecBuffer::GetHardwareSample() {
    Guard guard(m_lock);
    return m_pHardwareSample;
}
