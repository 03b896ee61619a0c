// CNCodecBuffer: the one unit of media data that every subsystem passes
// around. A reference-counted, individually locked block of memory with a
// data size, an alignment, a time stamp, caller-defined flag and user words,
// an optional additional-information block and an optional hardware sample.
//
// Kinds, fixed at construction:
// - owned: allocates, re-allocates and frees its own heap block;
// - wrap: describes memory it does not own, optionally keeping a parent alive;
// - pool block: a block of a CNCodecFlatBuffer, given back when destroyed.
//
// Ownership: a buffer made by a Create function starts with one reference and
// is destroyed by the Release that drops the last one; never touch a buffer
// after your last Release. Thread safety: every member holds the buffer's own
// lock, so buffers may be shared between threads.
// Failures are silent: null from Allocate / AllocateAddiInfo / Create*, and
// the buffer keeps its previous state.
#pragma once

#include <cstdint>
#include <mutex>

#include "ncodecbase/export.h"
#include "ncodecbase/win_types.h"

class CNCodecFlatBuffer;

class NCB_API CNCodecBuffer {
  public:
    // Owned kind, empty, align bytes 1.
    CNCodecBuffer();
    // Wrap kind over caller memory; raises `parent`'s count when given.
    CNCodecBuffer(void* address, int bufferSize, int dataSize, CNCodecBuffer* parent);
    // Pool-block kind; does not touch the pool's count (the pool does).
    CNCodecBuffer(CNCodecFlatBuffer* pool, void* address, int bufferSize, int dataSize);
    ~CNCodecBuffer();
    CNCodecBuffer(const CNCodecBuffer&) = delete;
    CNCodecBuffer& operator=(const CNCodecBuffer&) = delete;

    static CNCodecBuffer* CreateBuffer();
    static CNCodecBuffer* CreateWrapBuffer(void* address, int bufferSize, int dataSize,
                                           CNCodecBuffer* parent);
    static CNCodecBuffer* CreateFlatWrapBuffer(CNCodecFlatBuffer* pool, void* address,
                                               int bufferSize, int dataSize);

    static void* NewBuffer(int size);
    static void DeleteBuffer(void* block);
    // Heap block whose address is aligned to `align` (a power of two, 1 to
    // 64); null for other alignments, negative sizes or out of memory.
    static void* NewByteAlignBuffer(int size, int align);
    static void DeleteByteAlignBuffer(void* block);

    int AddRef();
    int Release();
    int GetRefCount();

    // Room for `size` bytes at an address aligned to `align` (0: the stored
    // alignment). Keeps the block when it fits, realigns inside it when the
    // block is large enough, else grows; with keepData 1 the valid bytes move
    // along. Owned kind only; null on refusal or when memory runs out.
    void* Allocate(int size, int align, int keepData);
    void Free();

    void* GetAddress();
    int GetBufferSize();
    int GetDataSize();
    void SetDataSize(int dataSize);  // ignored outside 0..buffer size
    int GetFreeSize();
    int GetAlignBytes();
    // Owned kind only. Values below 1 are ignored: Allocate divides by it.
    void SetAlignBytes(int alignBytes);

    uint32_t GetTimeStamp();
    void SetTimeStamp(uint32_t timeStamp);
    int GetBufferFlag();
    void SetBufferFlag(int flag);
    int GetBufferUserData();
    void SetBufferUserData(int userData);
    int GetBufferId();
    void SetBufferId(int id);
    int GetBufferFlagEx();
    void SetBufferFlagEx(int flag);
    int GetBufferUserDataEx();
    void SetBufferUserDataEx(int userData);
    int GetBufferFlagEx2();
    void SetBufferFlagEx2(int flag);
    int GetBufferUserDataEx2();
    void SetBufferUserDataEx2(int userData);

    // New block of `size` bytes keeping the leading min(old, size) bytes;
    // null (old block kept) when memory runs out.
    void* AllocateAddiInfo(int size);
    void* GetAddiInfo();
    int GetAddiInfoSize();

    // Owned kind, first call only: the event is set when the buffer is destroyed.
    void WrapHardwareSample(void* sample, nplat::HANDLE releaseEvent);
    void* GetHardwareSample();

  private:
    using Guard = std::lock_guard<std::recursive_mutex>;
    bool IsOwned() const { return !m_pPool && !m_nWrap; }

    uint8_t* m_pData = nullptr;
    uint8_t* m_pBlock = nullptr;
    int m_nBufferSize = 0;
    int m_nDataSize = 0;
    int m_nBufferFlag = 0;
    int m_nAlignBytes = 1;
    uint32_t m_uTimeStamp = 0;
    int m_nBufferUserData = 0;
    int m_nBufferId = 0;
    void* m_pAddiInfo = nullptr;
    int m_nAddiInfoSize = 0;
    std::recursive_mutex m_lock;
    int m_nRefCount = 1;
    CNCodecFlatBuffer* m_pPool = nullptr;
    int m_nBufferFlagEx = 0;
    int m_nBufferUserDataEx = 0;
    int m_nBufferFlagEx2 = 0;
    int m_nBufferUserDataEx2 = 0;
    int m_nWrap = 0;
    CNCodecBuffer* m_pParent = nullptr;
    void* m_pHardwareSample = nullptr;
    nplat::HANDLE m_hReleaseEvent = nullptr;
};
