#include "Audio/Filters/CDCDAWKernelSet.h"

#include <cstring>

namespace qel::dcdaw {
namespace {

void biquadInitAny(CDCDAWStageState& st, const CAudioFilterStage& stage, double rate) { biquadInit(st.biquad, stage, rate); }
void biquadUpdateAny(CDCDAWStageState& st, const CAudioFilterStage& stage) { biquadUpdate(st.biquad, stage); }
void biquadProcessAny(CDCDAWStageState& st, const double* in, double* out, int32_t n) { biquadProcess(st.biquad, in, out, n); }

void onePoleInitAny(CDCDAWStageState& st, const CAudioFilterStage& stage, double rate) { onePoleInit(st.onePole, stage, rate); }
void onePoleUpdateAny(CDCDAWStageState& st, const CAudioFilterStage& stage) { onePoleUpdate(st.onePole, stage); }
void lowPass1Any(CDCDAWStageState& st, const double* in, double* out, int32_t n) { lowPass1Process(st.onePole, in, out, n); }
void highPass1Any(CDCDAWStageState& st, const double* in, double* out, int32_t n) { highPass1Process(st.onePole, in, out, n); }
void highPass1GainAny(CDCDAWStageState& st, const double* in, double* out, int32_t n)
{
    highPass1GainProcess(st.onePole, in, out, n);
}

void halfBandInitAny(CDCDAWStageState& st, const CAudioFilterStage& stage, double rate) { halfBandInit(st.halfBand, stage, rate); }
template <int32_t N>
void halfBandAny(CDCDAWStageState& st, const double* in, double* out, int32_t n)
{
    static_assert(N >= 1 && N <= CDCDAWHalfBandState::kMaxSections);
    halfBandProcess(N)(st.halfBand, in, out, n);
}

// The biquads whose zeros are known run through the general loop: the multiplies they
// could save are not where a biquad spends its time, the recursion is.
constexpr const char* kBiquadInit = "DCDAW_fltbiqi";
constexpr const char* kBiquadUpdate = "DCDAW_fltbiqu";
constexpr const char* kOnePoleInit = "DCDAW_fltlphp1i";
constexpr const char* kOnePoleUpdate = "DCDAW_fltlphp1u";

const CDCDAWKernelSet kHalfBand[CDCDAWHalfBandState::kMaxSections] = {
    {"DCDAW_flthbf2", "DCDAW_flthbf2i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<1>},
    {"DCDAW_flthbf4", "DCDAW_flthbf4i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<2>},
    {"DCDAW_flthbf6", "DCDAW_flthbf6i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<3>},
    {"DCDAW_flthbf8", "DCDAW_flthbf8i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<4>},
    {"DCDAW_flthbf10", "DCDAW_flthbf10i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<5>},
    {"DCDAW_flthbf12", "DCDAW_flthbf12i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<6>},
    {"DCDAW_flthbf14", "DCDAW_flthbf14i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<7>},
    {"DCDAW_flthbf16", "DCDAW_flthbf16i", nullptr, &halfBandInitAny, nullptr, &halfBandAny<8>},
};

} // namespace

const CDCDAWKernelSet kBiquadCommon = {"DCDAW_fltbiqcommon", kBiquadInit, kBiquadUpdate, &biquadInitAny, &biquadUpdateAny, &biquadProcessAny};
const CDCDAWKernelSet kBiquadLowPass = {"DCDAW_fltbiqlp", kBiquadInit, kBiquadUpdate, &biquadInitAny, &biquadUpdateAny, &biquadProcessAny};
const CDCDAWKernelSet kBiquadHighPass = {"DCDAW_fltbiqhp", kBiquadInit, kBiquadUpdate, &biquadInitAny, &biquadUpdateAny, &biquadProcessAny};
const CDCDAWKernelSet kBiquadBandPass = {"DCDAW_fltbiqbp", kBiquadInit, kBiquadUpdate, &biquadInitAny, &biquadUpdateAny, &biquadProcessAny};
const CDCDAWKernelSet kBiquadNotch = {"DCDAW_fltbiqnotch", kBiquadInit, kBiquadUpdate, &biquadInitAny, &biquadUpdateAny, &biquadProcessAny};
const CDCDAWKernelSet kLowPass1 = {"DCDAW_fltlp1", kOnePoleInit, kOnePoleUpdate, &onePoleInitAny, &onePoleUpdateAny, &lowPass1Any};
const CDCDAWKernelSet kHighPass1 = {"DCDAW_flthp1", kOnePoleInit, kOnePoleUpdate, &onePoleInitAny, &onePoleUpdateAny, &highPass1Any};
const CDCDAWKernelSet kHighPass1Gain = {"DCDAW_flthp1g", kOnePoleInit, kOnePoleUpdate, &onePoleInitAny, &onePoleUpdateAny, &highPass1GainAny};
const CDCDAWKernelSet kFirTaps = {"DCDAW_firtaps", nullptr, nullptr, nullptr, nullptr, nullptr};

const CDCDAWKernelSet* halfBandKernels(int32_t sections)
{
    return sections >= 1 && sections <= CDCDAWHalfBandState::kMaxSections ? &kHalfBand[sections - 1] : nullptr;
}

const CDCDAWKernelSet* findKernelSet(const char* name)
{
    static const CDCDAWKernelSet* const kNamed[] = {&kBiquadCommon, &kBiquadLowPass, &kBiquadHighPass, &kBiquadBandPass,
                                                     &kBiquadNotch, &kLowPass1, &kHighPass1, &kHighPass1Gain, &kFirTaps};
    if (!name)
        return nullptr;
    for (const CDCDAWKernelSet* set : kNamed)
        if (std::strcmp(set->name, name) == 0)
            return set;
    for (const CDCDAWKernelSet& set : kHalfBand)
        if (std::strcmp(set.name, name) == 0)
            return &set;
    return nullptr;
}

} // namespace qel::dcdaw
