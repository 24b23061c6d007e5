#include "Core/CPtrArray.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Tracked
{
    Tracked(int id, std::vector<int>& log) : m_id(id), m_log(log) {}
    ~Tracked() { m_log.push_back(m_id); }
    int m_id;
    std::vector<int>& m_log;
};

} // namespace

TEST(CPtrArray, GrowsInlineThenByTwiceCapacityPlusOne)
{
    qel::CPtrArray<int> a;
    EXPECT_EQ(a.capacity(), 0);
    int values[40];
    std::vector<int> capacities;
    for (int i = 0; i < 40; ++i) {
        a.append(&values[i]);
        if (capacities.empty() || capacities.back() != a.capacity())
            capacities.push_back(a.capacity());
        if (i < 8) {
            EXPECT_TRUE(a.isInline()) << i;
        }
    }
    EXPECT_EQ(capacities, (std::vector<int>{8, 17, 35, 71}));
    EXPECT_FALSE(a.isInline());
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(a[i], &values[i]);

    qel::CPtrArray<int> r;
    r.resize(20); // 8 -> 13 -> 20, new slots empty
    EXPECT_EQ(r.capacity(), 20);
    EXPECT_EQ(r.count(), 20);
    for (int* p : r)
        EXPECT_EQ(p, nullptr);
    r.resize(3);
    EXPECT_EQ(r.count(), 3);
    EXPECT_EQ(r.capacity(), 20);
}

TEST(CPtrArray, InsertRemoveAndMove)
{
    int v[5];
    qel::CPtrArray<int> a;
    a.append(&v[0]);
    a.append(&v[2]);
    a.insert(1, &v[1]);
    a.insert(3, &v[3]);
    a.insert(0, &v[4]);
    ASSERT_EQ(a.count(), 5);
    EXPECT_EQ(a[0], &v[4]);
    EXPECT_EQ(a[1], &v[0]);
    EXPECT_EQ(a[4], &v[3]);
    EXPECT_EQ(a.indexOf(&v[2]), 3);
    EXPECT_EQ(a.take(0), &v[4]);
    EXPECT_EQ(a.indexOf(&v[4]), -1);
    EXPECT_EQ(a.last(), &v[3]);

    qel::CPtrArray<int> moved(std::move(a)); // inline storage is copied into the new array
    EXPECT_EQ(moved.count(), 4);
    EXPECT_EQ(moved[0], &v[0]);
    EXPECT_TRUE(moved.isInline());
    EXPECT_EQ(a.count(), 0);
    a.append(&v[1]);
    EXPECT_EQ(a[0], &v[1]);
}

TEST(CPtrArray, OwningArrayDeletesLastFirst)
{
    std::vector<int> log;
    {
        qel::CPtrArray<Tracked, true> owned;
        for (int i = 0; i < 12; ++i)
            owned.append(new Tracked(i, log));
        owned.remove(5);
        EXPECT_EQ(log, std::vector<int>{5});
        Tracked* kept = owned.take(0);
        delete kept;
        log.clear();
    }
    EXPECT_EQ(log, (std::vector<int>{11, 10, 9, 8, 7, 6, 4, 3, 2, 1}));
}
