#include "Audio/Processes/CModResampler.h"

#include "Audio/CAudioParam.h"
#include "Audio/Processes/CModResamplerDef.h"

#include <algorithm>
#include <cmath>

namespace qel {
namespace {

struct CStepPaths
{
    const char* rateChanger;
    const char* firstFilter;
    const char* furtherFilter;
    const char* rateChangerName;
};

constexpr CStepPaths kUpsampler{"shared::audio.modUpsamplerInterpolator", "shared::audio.modUpsamplerFilterSteep",
                                "shared::audio.modResamplerFilterSoft", "modInterpInterp"};
constexpr CStepPaths kDownsampler{"shared::audio.modDownsamplerDecimator", "shared::audio.modDownsamplerFilterSteep",
                                  "shared::audio.modResamplerFilterSoft", "modInterpDec"};

} // namespace

// The steps go before the sequence that holds them lets go of its streams.
CModResampler::~CModResampler() { dropChildren(); }

int32_t CModResampler::octavesFor(double mode, double hostMode)
{
    const auto rounded = [](double x) { return std::isfinite(x) ? std::clamp(std::round(x), -8.0, 8.0) : 0.0; };
    const double m = rounded(mode);
    const double steps = m == 0.0 ? rounded(hostMode) : m - 1.0;
    return int32_t(std::clamp(steps, 0.0, double(kMaxOctaves)));
}

CErrorPtr CModResampler::makeStep(std::unique_ptr<CAudioProcessBase>& out, const CString& defPath, const CString& name)
{
    CAudioProcessDefBase* def = nullptr;
    QEL_RETURN_IF_ERROR(m_def->findObjectChecked(def, defPath), m_fullName);
    CAudioProcessBase* made = nullptr;
    QEL_RETURN_IF_ERROR(def->createProcess(made, this, CString(m_fullName).append(".").append(name), m_env, m_group,
                                           m_element, m_pool, false, false),
                        m_fullName);
    out.reset(made);
    return nullptr;
}

CErrorPtr CModResampler::init()
{
    QEL_RETURN_IF_ERROR(CModProcessSeq::init(), m_fullName);
    const auto* def = dynamic_cast<const CModResamplerDef*>(m_def);
    if (!def)
        return QEL_ERROR(m_fullName, "@qelstr_CModResampler_init_ProcessDefClassInvalid Audio process def of invalid class supplied.");
    m_isUpsampler = def->isUpsampler();
    const CStepPaths& paths = m_isUpsampler ? kUpsampler : kDownsampler;
    m_rateChangerName = CString(paths.rateChangerName);
    m_filterName = CString("modFilter");
    reserveChildren(2 * kMaxOctaves);
    for (int32_t k = 0; k < kMaxOctaves; ++k) {
        COctave& octave = m_octaves[k];
        QEL_RETURN_IF_ERROR(makeStep(octave.rateChanger, CString(paths.rateChanger), m_rateChangerName), m_fullName);
        const char* filter = k == 0 ? paths.firstFilter : paths.furtherFilter;
        QEL_RETURN_IF_ERROR(makeStep(octave.filter, CString(filter), m_filterName), m_fullName);
    }
    return nullptr;
}

double CModResampler::slotValue(int32_t slot) const
{
    const CParamBinding* b = binding(slot);
    const double fallback = slot == SlotMode ? 1.0 : 0.0;
    if (!b || !b->param)
        return fallback;
    return b->param->audioValues().getElementValue(m_group, m_element, 0, fallback);
}

void CModResampler::update()
{
    const int32_t wanted = octavesFor(slotValue(SlotMode), slotValue(SlotHostMode));
    while (m_octaveCount > wanted)
        removeOctave();
    while (m_octaveCount < wanted)
        addOctave();
}

// The upsampler grows at its end (rate changer, then filter), the downsampler at its front
// (decimator, then the filter ahead of it): always at the high-rate end.
void CModResampler::addOctave()
{
    COctave& octave = m_octaves[m_octaveCount++];
    if (m_isUpsampler) {
        insertChild(childCount(), &m_rateChangerName, octave.rateChanger.get());
        insertChild(childCount(), &m_filterName, octave.filter.get());
    } else {
        insertChild(0, &m_rateChangerName, octave.rateChanger.get());
        insertChild(0, &m_filterName, octave.filter.get());
    }
}

void CModResampler::removeOctave()
{
    --m_octaveCount;
    for (int32_t i = 0; i < 2; ++i)
        removeChild(m_isUpsampler ? childCount() - 1 : 0);
}

void CModResampler::release()
{
    CModProcessSeq::release();
    m_octaveCount = 0;
}

} // namespace qel
