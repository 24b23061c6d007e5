#pragma once

#include "Audio/CAudioProcessDefBase.h"

namespace qel {

// A resampler of the oversampling chain (tag audio:modResampler): `is-upsampler` says
// which way it goes. See CModResampler.
class CModResamplerDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override;

    bool isUpsampler() const { return m_isUpsampler; }

protected:
    CAudioProcessBase* newProcess() const override;

private:
    bool m_isUpsampler = false;
};

} // namespace qel
