#include "Core/CByteArray.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

TEST(CByteArray, InlineThenHeapKeepingContent)
{
    qel::CByteArray a;
    EXPECT_EQ(a.capacity(), qel::CByteArray::kInlineBytes);
    std::vector<uint8_t> expected;
    for (int i = 0; i < 300; ++i) {
        const uint8_t b = static_cast<uint8_t>(i * 7);
        ASSERT_TRUE(a.append(&b, 1));
        expected.push_back(b);
    }
    ASSERT_EQ(a.size(), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), a.data()));

    qel::CByteArray copy(a);
    EXPECT_TRUE(copy == a);
    qel::CByteArray moved(std::move(copy));
    EXPECT_TRUE(moved == a);
    EXPECT_TRUE(copy.isEmpty());

    qel::CByteArray small(expected.data(), 10);
    qel::CByteArray target;
    target = std::move(small); // inline source: copied
    EXPECT_EQ(target.size(), 10u);
    EXPECT_EQ(target[9], expected[9]);
    ASSERT_TRUE(target.resize(1000));
    EXPECT_EQ(target[9], expected[9]);
    EXPECT_FALSE(target == a);
}
