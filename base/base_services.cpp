// CNDataList keeps an array of record pointers; each record is one heap block
// holding its header, key and data, so GetBinaryData addresses stay put while
// other records move (callers still refetch after insertions, as documented).
// All memory comes from the library heap, so tests can make any insertion run
// out of memory; such an insertion throws CNException* and changes nothing.
#include "ncodecbase/base_services.h"

#include <cstring>

#include "platform/kernel/heap.h"

namespace {
constexpr int kOutOfMemory = 1;

// Counters in user value 2 wrap like the 32-bit words they were, instead of
// overflowing a signed int.
int32_t WrapAdd(int32_t value, int32_t delta) {
    return static_cast<int32_t>(static_cast<uint32_t>(value) + static_cast<uint32_t>(delta));
}
}  // namespace

CNException* CNException::Create(int errorCode) {
    void* p = nplat::HeapAlloc(sizeof(CNException));
    if (p) return new (p) CNException(errorCode, false);
    // Even the exception could not be allocated: hand out a shared one whose
    // FreeMe does nothing.
    static CNException s_fallback(kOutOfMemory, true);
    return &s_fallback;
}

void CNException::FreeMe() {
    if (m_bStatic) return;
    this->~CNException();
    nplat::HeapFree(this);
}

struct CNDataList::Record {
    int16_t userData1;
    int32_t userData2;
    int dataSize;
    int keyLength;
    // Followed by the data bytes (aligned to 16) and the key with its terminator.
    static constexpr size_t kHeader = 16;
    unsigned char* Data() { return reinterpret_cast<unsigned char*>(this) + kHeader; }
    char* Key() { return reinterpret_cast<char*>(Data() + dataSize); }

    static Record* Make(const char* key, const void* data, int size) {
        if (size < 0) size = 0;
        size_t keyLength = key ? std::strlen(key) : 0;
        void* p = nplat::HeapAlloc(kHeader + static_cast<size_t>(size) + keyLength + 1);
        if (!p) return nullptr;
        Record* r = static_cast<Record*>(p);
        r->userData1 = 0;
        r->userData2 = 0;
        r->dataSize = size;
        r->keyLength = static_cast<int>(keyLength);
        if (size > 0) {
            if (data)
                std::memcpy(r->Data(), data, size);
            else
                std::memset(r->Data(), 0, size);
        }
        if (keyLength) std::memcpy(r->Key(), key, keyLength);
        r->Key()[keyLength] = '\0';
        return r;
    }
    Record* Clone() {
        size_t total = kHeader + dataSize + keyLength + 1;
        void* p = nplat::HeapAlloc(total);
        if (p) std::memcpy(p, this, total);
        return static_cast<Record*>(p);
    }
};
static_assert(sizeof(int16_t) + sizeof(int32_t) * 3 <= 16, "record header fits kHeader");

CNDataList::~CNDataList() {
    RemoveAll(1);
    nplat::HeapFree(m_ppRecords);
}

CNDataList* CNDataList::NewDataList() { return nplat::HeapNew<CNDataList>(); }

void CNDataList::FreeMe() { nplat::HeapDelete(this); }

CNDataList& CNDataList::operator=(const CNDataList& other) {
    if (this == &other) return *this;
    // Build the copies first so a failure leaves this list untouched.
    int n = other.m_nCount;
    Record** copies = nullptr;
    if (n > 0) {
        copies = static_cast<Record**>(nplat::HeapAlloc(sizeof(Record*) * n));
        if (!copies) throw CNException::Create(kOutOfMemory);
    }
    for (int i = 0; i < n; ++i) {
        copies[i] = other.m_ppRecords[i]->Clone();
        if (!copies[i]) {
            for (int j = 0; j < i; ++j) nplat::HeapFree(copies[j]);
            nplat::HeapFree(copies);
            throw CNException::Create(kOutOfMemory);
        }
    }
    RemoveAll(1);
    nplat::HeapFree(m_ppRecords);
    m_ppRecords = copies;
    m_nCount = n;
    m_nCapacity = n;
    return *this;
}

bool CNDataList::Reserve(int capacity) {
    if (capacity <= m_nCapacity) return true;
    int grown = m_nCapacity < 8 ? 8 : m_nCapacity * 2;
    if (grown < capacity) grown = capacity;
    void* p = nplat::HeapRealloc(m_ppRecords, sizeof(Record*) * static_cast<size_t>(grown));
    if (!p) return false;
    m_ppRecords = static_cast<Record**>(p);
    m_nCapacity = grown;
    return true;
}

int CNDataList::InsertRecord(Record* record, int position) {
    if (!record || !Reserve(m_nCount + 1)) {
        nplat::HeapFree(record);
        throw CNException::Create(kOutOfMemory);
    }
    if (position < 0 || position > m_nCount) position = m_nCount;
    std::memmove(m_ppRecords + position + 1, m_ppRecords + position,
                 sizeof(Record*) * static_cast<size_t>(m_nCount - position));
    m_ppRecords[position] = record;
    ++m_nCount;
    return position;
}

int CNDataList::InsertBinary(const char* key, const void* data, int size, int position, int) {
    return InsertRecord(Record::Make(key, data, size), position);
}

int CNDataList::InsertUint32(const char* key, uint32_t value, int position, int) {
    return InsertRecord(Record::Make(key, &value, sizeof(value)), position);
}

int CNDataList::InsertNull(const char* key, int position, int) {
    return InsertRecord(Record::Make(key, nullptr, 0), position);
}

CNDataList::Record* CNDataList::At(int position) const {
    if (position < 0 || position >= m_nCount) return nullptr;
    return m_ppRecords[position];
}

void* CNDataList::GetBinaryData(int position) const {
    Record* r = At(position);
    return r && r->dataSize > 0 ? r->Data() : nullptr;
}

int CNDataList::GetBinarySize(int position) const {
    Record* r = At(position);
    return r ? r->dataSize : 0;
}

uint32_t CNDataList::GetUint32(int position) const {
    Record* r = At(position);
    if (!r || r->dataSize < static_cast<int>(sizeof(uint32_t))) return 0;
    uint32_t value;
    std::memcpy(&value, r->Data(), sizeof(value));
    return value;
}

const char* CNDataList::GetKey(int position) const {
    Record* r = At(position);
    return r ? r->Key() : nullptr;
}

void CNDataList::Remove(int position) { RemoveGroup(position, 1); }

void CNDataList::RemoveGroup(int position, int count) {
    if (position < 0 || position >= m_nCount || count <= 0) return;
    if (count > m_nCount - position) count = m_nCount - position;
    for (int i = position; i < position + count; ++i) nplat::HeapFree(m_ppRecords[i]);
    std::memmove(m_ppRecords + position, m_ppRecords + position + count,
                 sizeof(Record*) * static_cast<size_t>(m_nCount - position - count));
    m_nCount -= count;
}

void CNDataList::RemoveAll(int) { RemoveGroup(0, m_nCount); }

int16_t CNDataList::GetUserData1(int position) const {
    Record* r = At(position);
    return r ? r->userData1 : 0;
}

void CNDataList::SetUserData1(int position, int16_t value) {
    if (Record* r = At(position)) r->userData1 = value;
}

int32_t CNDataList::GetUserData2(int position) const {
    Record* r = At(position);
    return r ? r->userData2 : 0;
}

void CNDataList::SetUserData2(int position, int32_t value) {
    if (Record* r = At(position)) r->userData2 = value;
}

void CNDataList::IncrementUserData2(int position) {
    if (Record* r = At(position)) r->userData2 = WrapAdd(r->userData2, 1);
}

void CNDataList::DecrementUserData2(int position) {
    if (Record* r = At(position)) r->userData2 = WrapAdd(r->userData2, -1);
}

template <typename Match>
int CNDataList::FindFrom(int start, Match match) const {
    if (start < 0) start = 0;
    for (int i = start; i < m_nCount; ++i)
        if (match(*m_ppRecords[i])) return i;
    return -1;
}

int CNDataList::FindByUserData1(int start, int16_t value, int) const {
    return FindFrom(start, [value](const Record& r) { return r.userData1 == value; });
}

int CNDataList::FindByUserData1Not(int start, int16_t value, int) const {
    return FindFrom(start, [value](const Record& r) { return r.userData1 != value; });
}

int CNDataList::FindByUserData2(int start, int32_t value, int) const {
    return FindFrom(start, [value](const Record& r) { return r.userData2 == value; });
}

int CNDataList::FindByUserData1and2(int start, int16_t value1, int32_t value2, int) const {
    return FindFrom(start, [value1, value2](const Record& r) {
        return r.userData1 == value1 && r.userData2 == value2;
    });
}

int CNDataList::FindMaxUserData1() const {
    int best = -1;
    for (int i = 0; i < m_nCount; ++i)
        if (best < 0 || m_ppRecords[i]->userData1 > m_ppRecords[best]->userData1) best = i;
    return best;
}
