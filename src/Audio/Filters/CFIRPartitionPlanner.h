#pragma once

#include <cstdint>

namespace qel {

// How a partitioned convolution cuts a filter: a list of (level, blocks) pairs, block
// length 16 << level, in the order the stages cover the taps.
struct CFIRPartitionPlan
{
    static constexpr int32_t kLevels = 11;

    struct CPart
    {
        int32_t level = 0;
        int32_t blocks = 0;
    };

    CPart parts[kLevels];
    int32_t count = 0;
    double cost = 0.0;

    static int32_t blockLength(int32_t level) { return int32_t(16) << level; }
    // Taps the plan covers: at least the filter's.
    int64_t coveredTaps() const
    {
        int64_t taps = 0;
        for (int32_t i = 0; i < count; ++i)
            taps += int64_t(parts[i].blocks) * blockLength(parts[i].level);
        return taps;
    }
};

// Chooses the partitions of a filter of N taps that runs with blocks of B0 samples: small
// blocks first, for a latency of one small block, and larger ones further into the
// filter, where their latency is covered. The choice is the cheapest by a table of
// measured costs per stage (setup) and per block of a stage (block), searched depth first.
//
// A stage of block 2^k B0 has 2^k times the latency of the first, so it may begin only at
// tap (2^k - 1) B0: a level runs 2^(next - level) - 1 blocks before the next one starts,
// which puts every stage's first tap at its block length less B0.
class CFIRPartitionPlanner
{
public:
    static constexpr double kSetupCost[CFIRPartitionPlan::kLevels] = {
        0.00024855, 0.000220029, 0.000214842, 0.000269852, 0.000291851, 0.000307456,
        0.000388251, 0.000484103, 0.000509724, 0.000617706, 0.000698987};
    static constexpr double kBlockCost[CFIRPartitionPlan::kLevels] = {
        7.8898e-05, 6.8457e-05, 6.4779e-05, 6.684e-05, 6.5163e-05, 6.3092e-05,
        4.6687e-05, 5.0455e-05, 5.2838e-05, 5.5967e-05, 7.1091e-05};

    // Any thread; allocates nothing. `blockLength` is a power of two from 16 to 16384
    // (others are taken at the level that holds them); no taps give an empty plan.
    static CFIRPartitionPlan plan(int64_t taps, int32_t blockLength);

    // The level of the first stage for a block length: ceil(log2(B0)) - 4, within 0 to 10.
    static int32_t firstLevel(int32_t blockLength);

private:
    struct CSearch;
    static void search(CSearch& s, double cost, int64_t remaining, int32_t level);
};

} // namespace qel
