#pragma once

#include "Audio/CAudioProcessDefBase.h"

namespace qel {

// Definition of a level meter (tag audio:modMeter). `fps`, when given, fixes the meter's
// frames per second (a text that does not parse, or a rate that is not positive, gives 30);
// without it the meter follows the environment's rate. `is-diff` compares port 0 with
// port 1, `is-compression` tracks the lowest level, `is-inverted` reports reciprocals.
class CModMeterDef : public CAudioProcessDefBase
{
public:
    static constexpr double kFallbackFps = 30.0;

    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override;

    bool hasFixedFps() const { return m_hasFixedFps; }
    double fps() const { return m_fps; }
    bool isDiff() const { return m_isDiff; }
    bool isCompression() const { return m_isCompression; }
    bool isInverted() const { return m_isInverted; }

protected:
    CAudioProcessBase* newProcess() const override;

private:
    bool m_hasFixedFps = false;
    double m_fps = kFallbackFps;
    bool m_isDiff = false;
    bool m_isCompression = false;
    bool m_isInverted = false;
};

} // namespace qel
