#pragma once

#include "Audio/CAudioProcessBase.h"
#include "Audio/Processes/CModProcessSwitchDef.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

// Holds the sub-process its `index` parameter (slot 0) picks from the definition's table,
// or with `is-allpass-bank` a chain of `count - index - 1` of them (`count`, slot 1). A
// change of either drops what it held and starts the new choice from cleared state at the
// block boundary, without a crossfade; the delay lines behind it fade to the new latency.
//
// Every choice is made at set-up, a bank as long as its parameters' ranges allow (or
// kFallbackBank without a range), together with the streams between them: switching then
// only rewires and resets on the audio thread. A bank asked to be longer than was made
// plays as long as it was made.
class CModProcessSwitch : public CAudioProcessBase
{
public:
    enum Slot : int32_t { SlotIndex = 0, SlotCount = 1 };
    static constexpr int32_t kMaxBank = 64;
    static constexpr int32_t kFallbackBank = 8;

    CModProcessSwitch();
    ~CModProcessSwitch() override;

    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void process() override;
    void release() override;
    void attachOutput(CAudioStream* stream) override;
    void detachOutput(CAudioStream* stream) override;
    void reserveOutputs(int32_t count) override;

    // ---- for tests
    int32_t instanceCount() const { return m_activeCount; }
    CAudioProcessBase* instance(int32_t i) const;
    int32_t preparedInstanceCount() const;

private:
    struct CChain
    {
        const CModProcessSwitchDef::CEntry* entry = nullptr;
        std::vector<std::unique_ptr<CAudioProcessBase>> instances;
        std::unique_ptr<CAudioStream> feeds[kPortCount];
        // Between instance j and j + 1, one per port: links[j * kPortCount + p].
        std::vector<std::unique_ptr<CAudioStream>> links;
    };

    int32_t bankLength() const;
    CErrorPtr addChain(const CModProcessSwitchDef::CEntry* entry, int32_t length);
    CChain* chainFor(const CModProcessSwitchDef::CEntry* entry) const;
    double slotValue(int32_t slot) const;
    void select(int32_t index, int32_t count);
    void deselect();

    std::vector<std::unique_ptr<CChain>> m_chains;
    std::vector<CAudioStream*> m_switchOutputs;
    CChain* m_active = nullptr;
    int32_t m_activeCount = 0;
    bool m_isSelected = false;
    int32_t m_index = 0;
    int32_t m_count = 0;
};

} // namespace qel
