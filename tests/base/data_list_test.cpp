#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ncodecbase/base_services.h"
#include "platform/kernel/fault.h"

namespace {

using nplat::fault::Kind;
using nplat::fault::Scope;

// Positions and contents of a list as plain values, for whole-list comparisons.
std::vector<uint32_t> Values(const CNDataList& list) {
    std::vector<uint32_t> out;
    for (int i = 0; i < list.GetParameterCount(); ++i) out.push_back(list.GetUint32(i));
    return out;
}

TEST(DataList, InsertsAtPositionAndAppends) {
    CNDataList list;
    EXPECT_EQ(list.InsertUint32("", 10, -1, 0), 0);
    EXPECT_EQ(list.InsertUint32("", 30, -1, 0), 1);
    EXPECT_EQ(list.InsertUint32("", 20, 1, 0), 1);
    EXPECT_EQ(list.InsertUint32("", 5, 0, 0), 0);
    EXPECT_EQ(list.InsertUint32("", 99, 1000, 0), 4);  // past the end appends
    EXPECT_EQ(Values(list), (std::vector<uint32_t>{5, 10, 20, 30, 99}));
}

TEST(DataList, StoresCopiesThatCallersChangeInPlace) {
    CNDataList list;
    char text[] = "hello";
    int pos = list.InsertBinary("", text, sizeof(text), -1, 0);
    text[0] = 'j';
    auto* stored = static_cast<char*>(list.GetBinaryData(pos));
    ASSERT_NE(stored, nullptr);
    EXPECT_STREQ(stored, "hello");
    stored[0] = 'c';
    EXPECT_STREQ(static_cast<char*>(list.GetBinaryData(pos)), "cello");
    EXPECT_EQ(list.GetBinarySize(pos), 6);

    int empty = list.InsertNull("", -1, 0);
    EXPECT_EQ(list.GetBinaryData(empty), nullptr);
    EXPECT_EQ(list.GetBinaryData(17), nullptr);
    EXPECT_EQ(list.GetUint32(-3), 0u);
}

TEST(DataList, RemovalsShiftLaterRecordsDown) {
    CNDataList list;
    for (uint32_t v = 0; v < 6; ++v) list.InsertUint32("", v, -1, 0);
    list.Remove(1);
    EXPECT_EQ(Values(list), (std::vector<uint32_t>{0, 2, 3, 4, 5}));
    list.RemoveGroup(1, 2);
    EXPECT_EQ(Values(list), (std::vector<uint32_t>{0, 4, 5}));
    list.RemoveGroup(2, 50);  // clipped to the end
    EXPECT_EQ(Values(list), (std::vector<uint32_t>{0, 4}));
    list.Remove(7);  // out of range: nothing
    EXPECT_EQ(list.GetParameterCount(), 2);
    list.RemoveAll(1);
    EXPECT_EQ(list.GetParameterCount(), 0);
}

TEST(DataList, UserValuesAndFinds) {
    CNDataList list;
    const int16_t user1[] = {3, 7, 3, -2, 7};
    const int32_t user2[] = {100, 200, 300, 200, -5};
    for (int i = 0; i < 5; ++i) {
        list.InsertNull("", -1, 0);
        list.SetUserData1(i, user1[i]);
        list.SetUserData2(i, user2[i]);
    }
    EXPECT_EQ(list.FindByUserData1(0, 3, -1), 0);
    EXPECT_EQ(list.FindByUserData1(1, 3, -1), 2);
    EXPECT_EQ(list.FindByUserData1(3, 3, -1), -1);
    EXPECT_EQ(list.FindByUserData1(5, 7, -1), -1);  // start at the end
    EXPECT_EQ(list.FindByUserData1Not(0, 3, -1), 1);
    EXPECT_EQ(list.FindByUserData2(2, 200, -1), 3);
    EXPECT_EQ(list.FindByUserData1and2(0, 7, -5, -1), 4);
    EXPECT_EQ(list.FindByUserData1and2(0, 7, 300, -1), -1);
    EXPECT_EQ(list.GetUserData1(list.FindMaxUserData1()), 7);

    list.IncrementUserData2(0);
    list.IncrementUserData2(0);
    list.DecrementUserData2(4);
    EXPECT_EQ(list.GetUserData2(0), 102);
    EXPECT_EQ(list.GetUserData2(4), -6);

    // Counters wrap like 32-bit words.
    list.SetUserData2(1, INT32_MAX);
    list.IncrementUserData2(1);
    EXPECT_EQ(list.GetUserData2(1), INT32_MIN);
    list.DecrementUserData2(1);
    EXPECT_EQ(list.GetUserData2(1), INT32_MAX);
}

TEST(DataList, AssignmentCopiesRecordsAndUserValues) {
    CNDataList a, b;
    a.InsertBinary("", "abc", 4, -1, 0);
    a.SetUserData1(0, 9);
    a.SetUserData2(0, -77);
    b.InsertUint32("", 1, -1, 0);
    b = a;
    ASSERT_EQ(b.GetParameterCount(), 1);
    EXPECT_STREQ(static_cast<char*>(b.GetBinaryData(0)), "abc");
    EXPECT_NE(b.GetBinaryData(0), a.GetBinaryData(0));
    EXPECT_EQ(b.GetUserData1(0), 9);
    EXPECT_EQ(b.GetUserData2(0), -77);
}

TEST(DataList, OutOfMemoryThrowsAndLeavesListUnchanged) {
    CNDataList list;
    for (uint32_t v = 0; v < 8; ++v) list.InsertUint32("", v, -1, 0);  // fills capacity 8
    const auto before = Values(list);
    // First the record itself, then the growth of the record array fails.
    for (int skip = 0; skip < 2; ++skip) {
        Scope fail(Kind::kHeap, skip);
        bool thrown = false;
        try {
            list.InsertUint32("", 42, 3, 0);
        } catch (CNException* e) {
            thrown = true;
            e->FreeMe();
        }
        EXPECT_TRUE(thrown) << "skip " << skip;
        EXPECT_EQ(Values(list), before);
    }

    CNDataList copy;
    copy.InsertUint32("", 1234, -1, 0);
    for (int skip = 0; skip < 4; ++skip) {
        Scope fail(Kind::kHeap, skip);
        try {
            copy = list;
            ADD_FAILURE() << "copy survived a failure at allocation " << skip;
        } catch (CNException* e) {
            e->FreeMe();
        }
        EXPECT_EQ(Values(copy), std::vector<uint32_t>{1234});
    }
}

TEST(DataList, ExceptionIsHandedOutEvenWhenItCannotBeAllocated) {
    CNDataList list;
    Scope fail(Kind::kHeap, 0, 10);
    try {
        list.InsertNull("", -1, 0);
        ADD_FAILURE();
    } catch (CNException* e) {
        EXPECT_NE(e->GetErrorCode(), 0);
        e->FreeMe();  // the shared fallback: FreeMe must be harmless
    }
}

TEST(DataList, NewDataListAndFreeMe) {
    CNDataList* list = CNDataList::NewDataList();
    ASSERT_NE(list, nullptr);
    list->InsertBinary("key", "x", 2, -1, 0);
    EXPECT_STREQ(list->GetKey(0), "key");
    list->FreeMe();
    Scope fail(Kind::kHeap, 0);
    EXPECT_EQ(CNDataList::NewDataList(), nullptr);
}

TEST(Lock, IsReentrant) {
    CNLock lock;
    lock.Lock();
    lock.Lock();
    lock.Unlock();
    lock.Unlock();
    std::lock_guard<CNLock> guard(lock);
}

}  // namespace
