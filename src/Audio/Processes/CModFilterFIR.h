#pragma once

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/Processes/CModFilterFIRModule.h"

#include <atomic>

namespace qel {

// The leaf that runs long FIR filters from a generator array (tag audio:modFilterFIR),
// such as the linear-phase filters of the oversampling chain. Slots with a fixed role:
// `count` (filters asked for, 1 when unbound), `index` (element i picks filter i's
// generator, 0 when unbound), `latency` (base 2 logarithm of the convolution's block, 7
// when unbound), `fixsr` (at 0.5 or above: designed at 44100 Hz whatever the rate, so the
// same taps at every rate), `points`, `points2`, `points3` (point lists, whose shapes the
// generator is told). Every other slot is a value the generator designs from, named after
// its parameter and in slot order.
//
// Its modules take the layout when they are made, so it derives from the base of the
// terminal template rather than from the template, whose modules have no arguments.
class CModFilterFIR : public CAudioProcessTerminalBase
{
public:
    CErrorPtr init() override;

    const CModFilterFIRModule::CLayout& layout() const { return m_layout; }
    // Any thread: a module was asked for more than one FIR filter, which it cannot
    // combine; told each time it designs so.
    void noteCombining() const;

protected:
    CAudioModule* createModule() override;
    void runModule(CAudioModule& module, int32_t n) override { static_cast<CModFilterFIRModule&>(module).process(n); }

private:
    CModFilterFIRModule::CLayout m_layout;
};

} // namespace qel
