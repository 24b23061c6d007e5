#include "Audio/Filters/CFIRPartitionPlanner.h"

namespace qel {

struct CFIRPartitionPlanner::CSearch
{
    CFIRPartitionPlan best;
    CFIRPartitionPlan path; // the pairs recorded on the way down
};

int32_t CFIRPartitionPlanner::firstLevel(int32_t blockLength)
{
    int32_t order = 0;
    while (order < 30 && (int32_t(1) << order) < blockLength)
        ++order;
    const int32_t level = order - 4;
    return level < 0 ? 0 : level >= CFIRPartitionPlan::kLevels ? CFIRPartitionPlan::kLevels - 1 : level;
}

CFIRPartitionPlan CFIRPartitionPlanner::plan(int64_t taps, int32_t blockLength)
{
    CSearch s;
    s.best.cost = 1e10;
    if (taps <= 0)
        return CFIRPartitionPlan();
    search(s, 0.0, taps, firstLevel(blockLength));
    return s.best;
}

// One call stands for a stage at `level` that begins with `remaining` taps still to
// cover. Either it covers them all, or it runs just enough blocks for a later level to
// take over in time, and the search goes on there.
void CFIRPartitionPlanner::search(CSearch& s, double cost, int64_t remaining, int32_t level)
{
    const int64_t B = CFIRPartitionPlan::blockLength(level);
    const double c = cost + kSetupCost[level];
    const auto finish = [&](int64_t blocks) {
        const double total = c + double(blocks) * kBlockCost[level];
        // Strictly lower: among plans of equal cost the first found stands.
        if (total < s.best.cost) {
            s.best = s.path;
            s.best.parts[s.best.count++] = {level, int32_t(blocks)};
            s.best.cost = total;
        }
    };
    const int64_t allBlocks = (remaining + B - 1) / B;
    if (level == CFIRPartitionPlan::kLevels - 1) {
        finish(allBlocks);
        return;
    }
    for (int32_t next = level + 1; next < CFIRPartitionPlan::kLevels; ++next) {
        const int64_t n = (int64_t(1) << (next - level)) - 1;
        if (n * B >= remaining) {
            // This level ends the filter; so it would for every later `next`, at the same
            // cost, which cannot replace the plan found now.
            finish(allBlocks);
            return;
        }
        s.path.parts[s.path.count++] = {level, int32_t(n)};
        search(s, c + double(n) * kBlockCost[level], remaining - n * B, next);
        --s.path.count;
    }
}

} // namespace qel
