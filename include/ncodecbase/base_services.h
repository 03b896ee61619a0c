// Record list, re-entrant lock and exception object that every subsystem uses
// for its bookkeeping (frames, layers, pool blocks, loaded modules, ...).
//
// Ownership: a CNDataList is embedded in its owner or made by NewDataList and
// released by FreeMe. A CNException* thrown by an insertion belongs to the
// catcher, which releases it with FreeMe.
// Thread safety: CNDataList is not safe for concurrent use (owners guard it
// with their own CNLock); CNLock is re-entrant.
#pragma once

#include <cstdint>
#include <mutex>

#include "ncodecbase/export.h"

// Thrown (as a pointer) when an insertion or a copy runs out of memory.
class NCB_API CNException {
  public:
    // The thrown object, or a shared static one when even that allocation fails.
    static CNException* Create(int errorCode);
    void FreeMe();
    int GetErrorCode() const { return m_nErrorCode; }

  private:
    explicit CNException(int errorCode, bool isStatic)
        : m_nErrorCode(errorCode), m_bStatic(isStatic) {}
    int m_nErrorCode;
    bool m_bStatic;
};

// Mutual exclusion between threads; the holder may lock again and unlocks as
// often as it locked.
class NCB_API CNLock {
  public:
    CNLock() = default;
    CNLock(const CNLock&) = delete;
    CNLock& operator=(const CNLock&) = delete;
    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }
    // BasicLockable, so std::lock_guard<CNLock> works.
    void lock() { Lock(); }
    void unlock() { Unlock(); }

  private:
    std::recursive_mutex m_mutex;
};

// Ordered sequence of records addressed by zero-based position. A record holds
// a key, a copy of caller data (bytes, a 32-bit value or nothing), user value 1
// (16-bit signed) and user value 2 (32-bit signed); a new record's user values
// are 0. Positions out of range make getters return 0 / null and removals do
// nothing. Insertion positions outside 0..count append.
class NCB_API CNDataList {
  public:
    CNDataList() = default;
    ~CNDataList();
    CNDataList(const CNDataList&) = delete;
    // Copies every record with its user values; throws CNException* when
    // memory runs out (the list is then left as it was).
    CNDataList& operator=(const CNDataList& other);

    static CNDataList* NewDataList();  // null when memory runs out
    void FreeMe();                     // for lists made by NewDataList

    // Each returns the new record's position; throws CNException* when memory
    // runs out, leaving the list unchanged. `reserved` is always 0.
    int InsertBinary(const char* key, const void* data, int size, int position, int reserved);
    int InsertUint32(const char* key, uint32_t value, int position, int reserved);
    int InsertNull(const char* key, int position, int reserved);

    // Address of the stored copy, writable; valid until the next insertion or removal.
    void* GetBinaryData(int position) const;
    int GetBinarySize(int position) const;
    uint32_t GetUint32(int position) const;
    const char* GetKey(int position) const;
    int GetParameterCount() const { return m_nCount; }

    void Remove(int position);
    void RemoveGroup(int position, int count);
    void RemoveAll(int reserved);

    int16_t GetUserData1(int position) const;
    void SetUserData1(int position, int16_t value);
    int32_t GetUserData2(int position) const;
    void SetUserData2(int position, int32_t value);
    void IncrementUserData2(int position);
    void DecrementUserData2(int position);

    // First position at or after `start` that matches, or -1 (also when
    // `start` is at or past the end). `reserved` is always -1.
    int FindByUserData1(int start, int16_t value, int reserved) const;
    int FindByUserData1Not(int start, int16_t value, int reserved) const;
    int FindByUserData2(int start, int32_t value, int reserved) const;
    int FindByUserData1and2(int start, int16_t value1, int32_t value2, int reserved) const;
    // Position of the first record with the largest user value 1; -1 when empty.
    int FindMaxUserData1() const;

  private:
    struct Record;
    bool Reserve(int capacity);
    int InsertRecord(Record* record, int position);
    Record* At(int position) const;
    template <typename Match>
    int FindFrom(int start, Match match) const;

    Record** m_ppRecords = nullptr;
    int m_nCount = 0;
    int m_nCapacity = 0;
};
