#pragma once

#include "Audio/CAudioProcessBase.h"

namespace qel {

// A junction. Inside a composite it never runs: the planner links its sources straight to
// whatever it feeds, so other definitions can name a point of the signal path at no cost.
// It runs as the root of a wiring of its own, and as the output side of every composite:
// then it hands each channel of its ports on unchanged, port p's channel c under key
// c + 16 p, at the rate and latency it receives them.
class CModNode : public CAudioProcessBase
{
public:
    void update() override;
    void process() override;
};

} // namespace qel
