#pragma once

#include "Audio/Processes/CModNodeDef.h"
#include "Core/CLog.h"

namespace qel {

// Stands for a process whose class this build does not have yet (resampler, rate
// changers, FIR filter, latency uniformer, meter): the definition loads with all its
// parameters and slots, and the process hands its input on unchanged, as a junction that
// runs. At "1X" with linear-phase oversampling off, none of these is in the signal path,
// so the sound is the product's; elsewhere the chain runs at the host's rate without
// them. Told once per definition when it loads.
class CModPassThroughDef : public CModNodeDef
{
public:
    static void initClassInfo(CClassInfo& info) { CModNodeDef::initClassInfo(info); }

    CErrorPtr init() override
    {
        QEL_RETURN_IF_ERROR(CModNodeDef::init(), getFullName());
        CLog::printfObject(getFullName(), "No '%s' process in this build: it passes its input through",
                           tag().toUtf8().c_str());
        return nullptr;
    }
};

} // namespace qel
