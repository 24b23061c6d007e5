#pragma once

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/Processes/CModFilterIIRModule.h"

namespace qel {

// The leaf that runs recursive filters from a generator array (tag audio:modFilterIIR):
// the equalizer's bands, the half-band filters of the oversampling chain, the output
// high-pass. Slot `index` picks the generator (through the module crossfade when its row is
// smooth); every other slot but `count` and `points` is a value the generator designs from,
// named after its parameter and in slot order.
// Its modules take the layout when they are made, so it derives from the base of the
// terminal template rather than from the template, whose modules have no arguments.
class CModFilterIIR : public CAudioProcessTerminalBase
{
public:
    CErrorPtr init() override;

    const CModFilterIIRModule::CLayout& layout() const { return m_layout; }

protected:
    CAudioModule* createModule() override;
    void runModule(CAudioModule& module, int32_t n) override { static_cast<CModFilterIIRModule&>(module).process(n); }

private:
    CModFilterIIRModule::CLayout m_layout;
};

} // namespace qel
