#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/Filters/CAudioFilterParams.h"
#include "Audio/Filters/CAudioFilterStageList.h"
#include "Audio/Filters/CDCDAWFilterWorkspace.h"
#include "Audio/Filters/CDCDAWKernelSet.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioFilterGen;
class CAudioFilterGenArray;

// The recursive filter of one channel (or of all, as a whole module). update asks the
// generator that `index` picks for stages and hands each stage's new coefficients to the
// running stage of the same kind, whose update kernel morphs to them; a stage of another
// kind, or one that is new, starts from its init kernel. process runs the stages one after
// the other, the first into a new buffer and the rest in place on it; with no stage the
// input goes on by reference.
//
// Designing and morphing allocate nothing: the stage list and the state blocks are sized
// when the module is made.
class CModFilterIIRModule : public CAudioModule
{
public:
    static constexpr int32_t kMaxStages = CAudioFilterStageList::kMaxStages;

    // What the process works out once from its definition and all its modules share.
    struct CLayout
    {
        const CAudioFilterGenArray* genArray = nullptr;
        CAudioFilterParamNames names;
        int32_t indexSlot = -1;
        int32_t valueSlots[CAudioFilterParamNames::kMaxNames] = {};
        int32_t slotCount = 0;
        bool isWhole = false;
    };

    explicit CModFilterIIRModule(const CLayout& layout);

    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void process(int32_t n);

    // ---- for tests and diagnostics
    const CAudioFilterGen* generator() const { return m_generator; }
    int32_t stageCount() const { return m_stageCount; }
    const CAudioFilterStage& stage(int32_t i) const { return m_stages[i]; }
    const CDCDAWStageState& state(int32_t channel, int32_t stage) const
    {
        return m_states[size_t(channel * kMaxStages + stage)];
    }
    // The index as read, rounded half away from zero.
    int32_t index() const { return m_index; }

private:
    CDCDAWStageState& stateOf(int32_t channel, int32_t stage) { return m_states[size_t(channel * kMaxStages + stage)]; }
    int32_t stateChannels() const;
    void initStage(int32_t i);

    const CLayout& m_layout;
    const CAudioFilterGen* m_generator = nullptr;
    int32_t m_index = 0;
    CDCDAWFilterWorkspace m_workspace;
    CAudioFilterStageList m_design;
    CAudioFilterStage m_stages[kMaxStages];
    int32_t m_stageCount = 0;
    double m_designRate = 0.0;
    std::vector<CDCDAWStageState> m_states;
    int32_t m_stateChannels = 0;
    double m_values[CAudioFilterParamNames::kMaxNames] = {};
};

} // namespace qel
