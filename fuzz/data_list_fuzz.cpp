// Fuzz target for CNDataList. The input is a program of list operations
// (insertions at any position, removals, user values, finds, copies) run on
// the list and on a plain std::vector model; any disagreement aborts.
//
// The last input byte picks options: with its top bit set it arms a heap
// fault (low six bits: allocations to let through first; bit 6: keep failing
// instead of failing once), so insertions and copies run out of memory at
// some point. They must then throw CNException* and leave the list as it was;
// without a fault they must never throw.
//
// Not covered here: thread safety (the list is documented as unsynchronised).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "ncodecbase/base_services.h"
#include "platform/kernel/fault.h"

namespace {

struct Record {
    std::string key;
    std::vector<uint8_t> data;
    int16_t user1 = 0;
    int32_t user2 = 0;
};
using Model = std::vector<Record>;

[[noreturn]] void Fail(const char* what, int position) {
    std::fprintf(stderr, "data_list: %s (position %d)\n", what, position);
    std::abort();
}

void Check(bool ok, const char* what, int position = -1) {
    if (!ok) Fail(what, position);
}

// The operation program; reads past its end yield zeros.
class Program {
  public:
    Program(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool AtEnd() const { return next_ >= size_; }
    uint8_t Byte() { return next_ < size_ ? data_[next_++] : 0; }
    uint32_t Bits(int bytes) {
        uint32_t value = 0;
        for (int i = 0; i < bytes; ++i) value |= static_cast<uint32_t>(Byte()) << (8 * i);
        return value;
    }
    int16_t Int16() { return static_cast<int16_t>(Bits(2)); }
    int32_t Int32() { return static_cast<int32_t>(Bits(4)); }
    // -2 .. count + 1: just outside the list on both sides as well.
    int Position(int count) { return Byte() % (count + 4) - 2; }
    std::string Key() {
        std::string key(Byte() % 8, 'k');
        for (char& c : key) c = static_cast<char>(Byte() | 1);  // never the terminator
        return key;
    }
    std::vector<uint8_t> Bytes() {
        std::vector<uint8_t> bytes(Byte() % 41);
        for (uint8_t& b : bytes) b = Byte();
        return bytes;
    }

  private:
    const uint8_t* data_;
    size_t size_;
    size_t next_ = 0;
};

bool InRange(const Model& model, int position) {
    return position >= 0 && position < static_cast<int>(model.size());
}

uint32_t ModelUint32(const Record& r) {
    uint32_t value = 0;
    if (r.data.size() >= sizeof(value)) std::memcpy(&value, r.data.data(), sizeof(value));
    return value;
}

void CheckEqual(const CNDataList& list, const Model& model) {
    const int count = static_cast<int>(model.size());
    Check(list.GetParameterCount() == count, "count");
    for (int i = 0; i < count; ++i) {
        const Record& r = model[i];
        Check(list.GetKey(i) && r.key == list.GetKey(i), "key", i);
        Check(list.GetBinarySize(i) == static_cast<int>(r.data.size()), "size", i);
        const void* data = list.GetBinaryData(i);
        Check(r.data.empty() ? data == nullptr
                             : data && std::memcmp(data, r.data.data(), r.data.size()) == 0,
              "data", i);
        Check(list.GetUint32(i) == ModelUint32(r), "uint32", i);
        Check(list.GetUserData1(i) == r.user1, "user data 1", i);
        Check(list.GetUserData2(i) == r.user2, "user data 2", i);
    }
    for (int outside : {-1, count}) {
        Check(list.GetKey(outside) == nullptr && list.GetBinaryData(outside) == nullptr &&
                  list.GetBinarySize(outside) == 0 && list.GetUint32(outside) == 0 &&
                  list.GetUserData1(outside) == 0 && list.GetUserData2(outside) == 0,
              "getter outside the list", outside);
    }
}

template <typename Match>
int ModelFind(const Model& model, int start, Match match) {
    for (int i = start < 0 ? 0 : start; i < static_cast<int>(model.size()); ++i)
        if (match(model[i])) return i;
    return -1;
}

int ModelFindMax(const Model& model) {
    int best = -1;
    for (int i = 0; i < static_cast<int>(model.size()); ++i)
        if (best < 0 || model[i].user1 > model[best].user1) best = i;
    return best;
}

class Runner {
  public:
    Runner(CNDataList& list, bool faultArmed) : list_(list), faultArmed_(faultArmed) {}

    void Step(Program& p) {
        const int count = static_cast<int>(model_.size());
        switch (p.Byte() % 17) {
            case 0: {
                Record r{p.Key(), p.Bytes()};
                const int at = p.Position(count);
                Insert(r, at, [&] {
                    return list_.InsertBinary(r.key.c_str(), r.data.data(),
                                              static_cast<int>(r.data.size()), at, 0);
                });
                break;
            }
            case 1: {
                Record r{p.Key(), {}};
                const uint32_t value = static_cast<uint32_t>(p.Int32());
                r.data.resize(sizeof(value));
                std::memcpy(r.data.data(), &value, sizeof(value));
                const int at = p.Position(count);
                Insert(r, at, [&] { return list_.InsertUint32(r.key.c_str(), value, at, 0); });
                break;
            }
            case 2: {
                Record r{p.Key(), {}};
                const int at = p.Position(count);
                Insert(r, at, [&] { return list_.InsertNull(r.key.c_str(), at, 0); });
                break;
            }
            case 3: {
                const int at = p.Position(count);
                list_.Remove(at);
                if (InRange(model_, at)) model_.erase(model_.begin() + at);
                break;
            }
            case 4: {
                const int at = p.Position(count);
                const int n = p.Byte() % 8 - 1;
                list_.RemoveGroup(at, n);
                if (InRange(model_, at) && n > 0)
                    model_.erase(model_.begin() + at, model_.begin() + std::min(at + n, count));
                break;
            }
            case 5:
                list_.RemoveAll(0);
                model_.clear();
                break;
            case 6: {
                const int at = p.Position(count);
                const int16_t value = p.Int16();
                list_.SetUserData1(at, value);
                if (InRange(model_, at)) model_[at].user1 = value;
                break;
            }
            case 7: {
                const int at = p.Position(count);
                const int32_t value = p.Int32();
                list_.SetUserData2(at, value);
                if (InRange(model_, at)) model_[at].user2 = value;
                break;
            }
            case 8: {
                const int at = p.Position(count);
                const bool up = p.Byte() & 1;
                if (up)
                    list_.IncrementUserData2(at);
                else
                    list_.DecrementUserData2(at);
                // Two's complement wrap, as 32-bit counters do.
                if (InRange(model_, at))
                    model_[at].user2 = static_cast<int32_t>(
                        static_cast<uint32_t>(model_[at].user2) + (up ? 1u : ~0u));
                break;
            }
            case 9:
            case 10:
            case 11:
            case 12:
                Find(p, p.Byte() % 4);
                break;
            case 13:
                Check(list_.FindMaxUserData1() == ModelFindMax(model_), "FindMaxUserData1");
                break;
            case 14:
                Copy(copy_, copyModel_, list_, model_);
                CheckEqual(copy_, copyModel_);
                break;
            case 15:
                if (p.Byte() & 1)
                    Copy(list_, model_, list_, model_);  // self-assignment
                else
                    Copy(list_, model_, copy_, copyModel_);
                break;
            case 16: {
                // The stored copy is writable in place.
                const int at = p.Position(count);
                const uint8_t value = p.Byte();
                if (!InRange(model_, at) || model_[at].data.empty()) break;
                const size_t index = value % model_[at].data.size();
                static_cast<uint8_t*>(list_.GetBinaryData(at))[index] = value;
                model_[at].data[index] = value;
                break;
            }
        }
        CheckEqual(list_, model_);
    }

  private:
    template <typename Call>
    void Insert(const Record& r, int at, Call call) {
        const int count = static_cast<int>(model_.size());
        const int expected = at < 0 || at > count ? count : at;
        try {
            Check(call() == expected, "insert position", at);
            model_.insert(model_.begin() + expected, r);
        } catch (CNException* e) {
            e->FreeMe();
            Check(faultArmed_, "insertion threw without a fault", at);
        }
    }

    void Copy(CNDataList& to, Model& toModel, const CNDataList& from, const Model& fromModel) {
        try {
            to = from;
            toModel = fromModel;
        } catch (CNException* e) {
            e->FreeMe();
            Check(faultArmed_, "copy threw without a fault");
        }
        CheckEqual(to, toModel);
    }

    void Find(Program& p, int kind) {
        const int count = static_cast<int>(model_.size());
        const int start = p.Position(count);
        // Half the time look for values that are present.
        const int from = p.Position(count);
        const bool present = p.Byte() & 1 && InRange(model_, from);
        const int16_t v1 = present ? model_[from].user1 : p.Int16();
        const int32_t v2 = present ? model_[from].user2 : p.Int32();
        int got = 0, want = 0;
        switch (kind) {
            case 0:
                got = list_.FindByUserData1(start, v1, -1);
                want = ModelFind(model_, start, [&](const Record& r) { return r.user1 == v1; });
                break;
            case 1:
                got = list_.FindByUserData1Not(start, v1, -1);
                want = ModelFind(model_, start, [&](const Record& r) { return r.user1 != v1; });
                break;
            case 2:
                got = list_.FindByUserData2(start, v2, -1);
                want = ModelFind(model_, start, [&](const Record& r) { return r.user2 == v2; });
                break;
            default:
                got = list_.FindByUserData1and2(start, v1, v2, -1);
                want = ModelFind(model_, start,
                                 [&](const Record& r) { return r.user1 == v1 && r.user2 == v2; });
                break;
        }
        Check(got == want, "find", start);
    }

    CNDataList& list_;
    Model model_;
    CNDataList copy_;
    Model copyModel_;
    bool faultArmed_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t options = data[size - 1];
    std::optional<nplat::fault::Scope> fault;
    if (options & 0x80)
        fault.emplace(nplat::fault::Kind::kHeap, options & 0x3F, options & 0x40 ? 1 << 30 : 1);

    CNDataList* list = CNDataList::NewDataList();
    if (!list) {
        Check(fault.has_value(), "NewDataList failed without a fault");
        return 0;
    }
    {
        Runner runner(*list, fault.has_value());
        Program program(data, size - 1);
        while (!program.AtEnd()) runner.Step(program);
    }
    list->FreeMe();
    return 0;
}
