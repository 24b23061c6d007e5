// The partition planner: the product's plans, the cheapest plan against every plan there
// is, and the timing rule that keeps every stage's output in time.

#include "Audio/Filters/CFIRPartitionPlanner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace qel;

namespace {

using Plan = CFIRPartitionPlan;

std::vector<std::pair<int32_t, int32_t>> pairs(const Plan& p)
{
    std::vector<std::pair<int32_t, int32_t>> v;
    for (int32_t i = 0; i < p.count; ++i)
        v.emplace_back(Plan::blockLength(p.parts[i].level), p.parts[i].blocks);
    return v;
}

TEST(FIRPartitionPlanner, TheProductsFiltersAtTheirBlockLengths)
{
    using V = std::vector<std::pair<int32_t, int32_t>>;
    // The up-sampler's steep filter: 3 blocks of 64, then 2 of 256.
    EXPECT_EQ(pairs(CFIRPartitionPlanner::plan(661, 64)), (V{{64, 3}, {256, 2}}));
    // The down-sampler's steep filter: 9 blocks of 128.
    EXPECT_EQ(pairs(CFIRPartitionPlanner::plan(1063, 128)), (V{{128, 9}}));
    // The soft filter of the further octaves: 3 blocks of 32.
    EXPECT_EQ(pairs(CFIRPartitionPlanner::plan(65, 32)), (V{{32, 3}}));
}

TEST(FIRPartitionPlanner, AFilterShorterThanABlockIsOnePartition)
{
    for (const int32_t b0 : {16, 64, 1024, 16384}) {
        for (const int64_t taps : {int64_t(1), int64_t(b0) / 2 + 1, int64_t(b0)}) {
            SCOPED_TRACE(::testing::Message() << b0 << " " << taps);
            const Plan p = CFIRPartitionPlanner::plan(taps, b0);
            ASSERT_EQ(p.count, 1);
            EXPECT_EQ(Plan::blockLength(p.parts[0].level), b0);
            EXPECT_EQ(p.parts[0].blocks, 1);
        }
    }
    EXPECT_EQ(CFIRPartitionPlanner::plan(0, 64).count, 0);
    EXPECT_EQ(CFIRPartitionPlanner::plan(-3, 64).count, 0);
}

TEST(FIRPartitionPlanner, BlockLengthsOutsideTheTableTakeItsEnds)
{
    EXPECT_EQ(CFIRPartitionPlanner::firstLevel(1), 0);
    EXPECT_EQ(CFIRPartitionPlanner::firstLevel(16), 0);
    EXPECT_EQ(CFIRPartitionPlanner::firstLevel(17), 1);
    EXPECT_EQ(CFIRPartitionPlanner::firstLevel(128), 3);
    EXPECT_EQ(CFIRPartitionPlanner::firstLevel(16384), 10);
    EXPECT_EQ(CFIRPartitionPlanner::firstLevel(1 << 20), 10);
}

// Every plan the rules allow, by the set of levels it visits above the first: a level
// that hands over to the next runs 2^(next - level) - 1 blocks, which must leave taps for
// the next; the last covers the rest, and may be last only at level 10 or when a later
// level could have started after the taps ran out.
double cheapestOfAll(int64_t taps, int32_t level0, std::vector<Plan>& all)
{
    double best = 1e10;
    const int32_t above = Plan::kLevels - 1 - level0;
    for (uint32_t set = 0; set < (1u << above); ++set) {
        std::vector<int32_t> levels{level0};
        for (int32_t b = 0; b < above; ++b)
            if (set & (1u << b))
                levels.push_back(level0 + 1 + b);
        Plan p;
        double cost = 0.0;
        int64_t remaining = taps;
        bool isValid = true;
        for (size_t i = 0; i < levels.size() && isValid; ++i) {
            const int64_t B = Plan::blockLength(levels[i]);
            cost += CFIRPartitionPlanner::kSetupCost[levels[i]];
            if (i + 1 < levels.size()) {
                const int64_t n = (int64_t(1) << (levels[i + 1] - levels[i])) - 1;
                isValid = n * B < remaining;
                p.parts[p.count++] = {levels[i], int32_t(n)};
                cost += double(n) * CFIRPartitionPlanner::kBlockCost[levels[i]];
                remaining -= n * B;
            } else {
                isValid = levels[i] == Plan::kLevels - 1 || ((int64_t(1) << (Plan::kLevels - 1 - levels[i])) - 1) * B >= remaining;
                const int64_t k = (remaining + B - 1) / B;
                p.parts[p.count++] = {levels[i], int32_t(k)};
                cost += double(k) * CFIRPartitionPlanner::kBlockCost[levels[i]];
            }
        }
        if (!isValid)
            continue;
        p.cost = cost;
        all.push_back(p);
        best = std::min(best, cost);
    }
    return best;
}

TEST(FIRPartitionPlanner, ChoosesTheCheapestOfEveryPlanThereIs)
{
    for (const int32_t b0 : {16, 32, 64, 128, 512, 4096}) {
        for (const int64_t taps : {int64_t(17), int64_t(65), int64_t(300), int64_t(661), int64_t(1063), int64_t(2047),
                                   int64_t(5000), int64_t(22050), int64_t(100001), int64_t(400000)}) {
            SCOPED_TRACE(::testing::Message() << "B0 " << b0 << ", " << taps << " taps");
            std::vector<Plan> all;
            const double best = cheapestOfAll(taps, CFIRPartitionPlanner::firstLevel(b0), all);
            const Plan p = CFIRPartitionPlanner::plan(taps, b0);
            EXPECT_NEAR(p.cost, best, 1e-15);
            // And it is one of them, cost for cost.
            bool isKnown = false;
            for (const Plan& q : all)
                isKnown = isKnown || (pairs(q) == pairs(p) && std::fabs(q.cost - p.cost) < 1e-15);
            EXPECT_TRUE(isKnown);
        }
    }
}

// Stage s covers taps from its block length less B0: its own latency of one block then
// lands every tap at its place behind the first stage's. The taps are covered, with less
// than one block of the last stage to spare.
TEST(FIRPartitionPlanner, EveryStageStartsWhereItsLatencyIsDue)
{
    for (const int32_t b0 : {16, 64, 128, 2048}) {
        for (int64_t taps = 1; taps < 300000; taps = taps * 3 + 1) {
            SCOPED_TRACE(::testing::Message() << "B0 " << b0 << ", " << taps << " taps");
            const Plan p = CFIRPartitionPlanner::plan(taps, b0);
            ASSERT_GE(p.count, 1);
            EXPECT_EQ(Plan::blockLength(p.parts[0].level), b0);
            int64_t first = 0;
            for (int32_t i = 0; i < p.count; ++i) {
                const int64_t B = Plan::blockLength(p.parts[i].level);
                EXPECT_EQ(first, B - b0) << i;
                if (i > 0) {
                    EXPECT_GT(p.parts[i].level, p.parts[i - 1].level);
                }
                first += p.parts[i].blocks * B;
            }
            EXPECT_GE(p.coveredTaps(), taps);
            EXPECT_LT(p.coveredTaps() - taps, Plan::blockLength(p.parts[p.count - 1].level));
        }
    }
}

} // namespace
