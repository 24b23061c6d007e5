#pragma once

#include "Audio/ParamFilters/CAudioParamFilter.h"

#include <vector>

namespace qel {

// Fixed auto-gain: sources `eq-params.gain` and `outgain`, destination `ingain`. The louder
// the equalizer, the less it drives the stages behind it: each band's gain takes part in
// the input gain with its coefficient of its decibels, and the output gain comes in as a
// plain factor, so ingain = outgain * g0^c0 * g1^c1 * ... in linear units.
class CAudioParamFilterFixedAG : public CAudioParamFilter
{
public:
    // Decibels per neper, and its inverse.
    static constexpr double kDbPerNeper = 8.685889638065037;
    static constexpr double kNeperPerDb = 0.11512925464970228;

    CErrorPtr init(const CAudioParamFilterDef* definition, CAudioParamCollector* collector,
                   const std::vector<CString>& sourceNames, const std::vector<CString>& destinationNames) override;
    int getMinSourceCount() const override { return 2; }

    const std::vector<double>& coeffs() const { return m_coeffs; }
    // "-0.35,-0.35,-0.2": split at ','; an empty token is skipped, one that is no number
    // counts as 1.0.
    static void parseCoeffs(const CString& text, std::vector<double>& out);

protected:
    void process(CSources sources, CAudioParam* const* destinations, const CAudioParamChange& change,
                 CAudioParamUpdateContext& context) override;

private:
    std::vector<double> m_coeffs;
};

} // namespace qel
