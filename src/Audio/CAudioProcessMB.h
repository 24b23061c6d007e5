#pragma once

#include "Audio/CAudioProcessBase.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CModNode;

// A definition run once per frequency band: an optional pre stage, then a chain of
// crossovers, each of which takes the low part of what reaches it for one band (the
// `multiband-lp` definition) and hands the high part on to the next (`multiband-hp`); the
// last band takes what is left. The bands' outputs are summed, each channel aligned to the
// latest band. Band `i` is a copy of the definition with element `i`, and so are the two
// filters of crossover `i`, which read the crossover frequency there. The split works on
// port 0; port 1 reaches every band as it is when `multiband-pt-ports` names it, and no
// band otherwise.
//
// The band count is the count parameter, cut short at the first crossover frequency that
// is not below half the rate or lies below the one before it. Every band and crossover the
// count's range allows is made at set-up; a new count only relinks, and a band that comes
// starts from cleared state.
class CAudioProcessMB : public CAudioProcessBase
{
public:
    static constexpr int32_t kMaxBands = 16;
    // Bands made for a count parameter that has no range.
    static constexpr int32_t kFallbackBands = 4;

    CAudioProcessMB();
    ~CAudioProcessMB() override;

    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void process() override;
    void release() override;
    void attachOutput(CAudioStream* stream) override;
    void detachOutput(CAudioStream* stream) override;
    void reserveOutputs(int32_t count) override;

    // ---- for tests
    int32_t bandCount() const { return m_bandCount; }
    int32_t preparedBandCount() const { return int32_t(m_bands.size()); }
    CAudioProcessBase* band(int32_t index) const;
    CAudioProcessBase* pre() const { return m_pre.get(); }
    const CAudioProcessBase& outputSide() const;

private:
    struct CLink
    {
        CAudioProcessBase* src = nullptr; // null: this process's own input port
        int32_t srcPort = 0;
        CAudioProcessBase* dst = nullptr;
        int32_t dstPort = 0;
        CAudioStream* stream = nullptr;
    };

    int32_t countFromParams() const;
    int32_t bandsToPrepare() const;
    CErrorPtr makeCopy(std::unique_ptr<CAudioProcessBase>& out, const CAudioProcessDefBase* def, const char* suffix,
                       int32_t element, bool isBand);
    void link(CAudioProcessBase* src, int32_t srcPort, CAudioProcessBase* dst, int32_t dstPort);
    void unlinkAll();
    void wire(int32_t bands);
    void setActive(CAudioProcessBase* process, bool& isActive, bool shouldBe);

    CParamBinding* m_countBinding = nullptr;
    CParamBinding* m_freqBinding = nullptr;
    bool m_isPassThrough[kPortCount] = {};
    std::unique_ptr<CAudioProcessBase> m_pre;
    bool m_isPreActive = false;
    std::vector<std::unique_ptr<CAudioProcessBase>> m_bands;
    std::vector<std::unique_ptr<CAudioProcessBase>> m_lowPasses;
    std::vector<std::unique_ptr<CAudioProcessBase>> m_highPasses;
    std::vector<uint8_t> m_isBandActive;
    std::vector<uint8_t> m_isSplitActive;
    std::unique_ptr<CModNode> m_sink;
    std::vector<std::unique_ptr<CAudioStream>> m_streams;
    std::vector<CLink> m_links;
    std::vector<CAudioProcessBase*> m_runList;
    int32_t m_bandCount = 0;
    bool m_isWired = false;
};

} // namespace qel
