#pragma once

#include "public.sdk/source/vst/vstparameters.h"

#include <atomic>

namespace qel {

class CAudioExtParam;

// A host-visible parameter as the host sees it: one row of the instance's ext-param list,
// its id the row's index. Texts and values go through the row's converter.
//
// The host's value may be written on the audio thread (automation) while the main thread
// reads it, so it is kept here in an atomic rather than in the SDK's plain field.
class CAudioWrapperVST3Parameter : public Steinberg::Vst::Parameter
{
public:
    CAudioWrapperVST3Parameter(CAudioExtParam* extParam, Steinberg::int32 id);

    // Any thread: writes the row first, then remembers the value.
    bool setNormalized(Steinberg::Vst::ParamValue value) override;
    // Remembers a value that came from inside, without writing it back.
    void storeNormalized(Steinberg::Vst::ParamValue value);
    Steinberg::Vst::ParamValue currentNormalized() const { return m_value.load(std::memory_order_relaxed); }

    void toString(Steinberg::Vst::ParamValue valueNorm, Steinberg::Vst::String128 string) const override;
    bool fromString(const Steinberg::Vst::TChar* string, Steinberg::Vst::ParamValue& valueNorm) const override;

    CAudioExtParam* extParam() const { return m_extParam; }

    OBJ_METHODS(CAudioWrapperVST3Parameter, Parameter)

private:
    CAudioExtParam* m_extParam;
    std::atomic<Steinberg::Vst::ParamValue> m_value{0.0};
};

} // namespace qel
