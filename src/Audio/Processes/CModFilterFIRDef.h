#pragma once

#include "Audio/CAudioProcessDefBase.h"

namespace qel {

// Definition of a long FIR filter process (tag audio:modFilterFIR): `gen-array`, the path
// of the generator array that designs its taps ("/x" and "shared::x" are absolute),
// resolved when a process is made, once the whole definition exists; and
// `is-zero-latency`, which runs the first taps directly so that the convolution adds no
// block of latency.
class CModFilterFIRDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override;

    const CString& genArrayPath() const { return m_genArrayPath; }
    bool isZeroLatency() const { return m_isZeroLatency; }

protected:
    CAudioProcessBase* newProcess() const override;

private:
    CString m_genArrayPath;
    bool m_isZeroLatency = false;
};

} // namespace qel
