#pragma once

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/Processes/CModMeterModule.h"

namespace qel {

// A level meter (tag audio:modMeter): a leaf that changes no sound and hands nothing on,
// one CModMeterModule per channel of port 0, with the channels of port 1 as the second
// signal of a comparing meter. Slots as CModMeterModule::Slot names them.
//
// At set-up it reads its definition and asks the environment's viz receiver for the
// source of its full name, once; the modules hand their records there. Without a
// receiver they measure and drop. Its modules share the settings it read, so it derives
// from the base of the terminal template, whose modules have no arguments.
class CModMeter : public CAudioProcessTerminalBase
{
public:
    CErrorPtr init() override;

    const CModStatsModule::CSettings& settings() const { return m_settings; }

protected:
    CAudioModule* createModule() override;
    void runModule(CAudioModule& module, int32_t n) override { static_cast<CModMeterModule&>(module).process(n); }

private:
    CModStatsModule::CSettings m_settings;
};

} // namespace qel
