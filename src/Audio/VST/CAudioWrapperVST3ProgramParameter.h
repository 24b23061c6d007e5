#pragma once

#include "public.sdk/source/vst/vstparameters.h"

namespace qel {

class CAudioWrapper;

// The host's program selector (id 999): a list over the wrapper's program slots. Choosing
// an entry loads that slot; the load names the wrapper as its source, so the change is not
// echoed back to the host as a program change of ours. Main thread.
class CAudioWrapperVST3ProgramParameter : public Steinberg::Vst::Parameter
{
public:
    static constexpr Steinberg::Vst::ParamID kId = 999;

    explicit CAudioWrapperVST3ProgramParameter(CAudioWrapper* wrapper);

    // The slot count when the parameter was made; the host keeps the list it read then.
    Steinberg::int32 slotCount() const { return m_slots; }
    Steinberg::int32 indexOf(Steinberg::Vst::ParamValue valueNorm) const;
    Steinberg::Vst::ParamValue normalizedOf(Steinberg::int32 index) const;

    // Loads the slot, then remembers the value.
    bool setNormalized(Steinberg::Vst::ParamValue value) override;
    // Remembers a slot chosen elsewhere, without loading it.
    void storeNormalized(Steinberg::Vst::ParamValue value);

    // "<number> <name>", numbered from 1.
    void toString(Steinberg::Vst::ParamValue valueNorm, Steinberg::Vst::String128 string) const override;
    // A program's text as toString gives it, or its bare name.
    bool fromString(const Steinberg::Vst::TChar* string, Steinberg::Vst::ParamValue& valueNorm) const override;
    Steinberg::Vst::ParamValue toPlain(Steinberg::Vst::ParamValue valueNorm) const override;
    Steinberg::Vst::ParamValue toNormalized(Steinberg::Vst::ParamValue plain) const override;

    OBJ_METHODS(CAudioWrapperVST3ProgramParameter, Parameter)

private:
    // slots - 1, kept at least 1: a single slot must not divide by zero.
    double span() const { return m_slots > 1 ? double(m_slots - 1) : 1.0; }

    CAudioWrapper* m_wrapper;
    Steinberg::int32 m_slots;
};

} // namespace qel
