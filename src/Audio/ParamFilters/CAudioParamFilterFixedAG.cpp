#include "Audio/ParamFilters/CAudioParamFilterFixedAG.h"

#include "Audio/Converters/CAudioParamConverter.h"
#include "Audio/Converters/CAudioParamConverterSupport.h"
#include "Audio/ParamFilters/CAudioParamFilterFixedAGDef.h"

#include <cmath>

namespace qel {

CErrorPtr CAudioParamFilterFixedAG::init(const CAudioParamFilterDef* definition, CAudioParamCollector* collector,
                                         const std::vector<CString>& sourceNames,
                                         const std::vector<CString>& destinationNames)
{
    QEL_RETURN_IF_ERROR(CAudioParamFilter::init(definition, collector, sourceNames, destinationNames),
                        definition ? definition->getFullName() : CString());
    m_coeffs.clear();
    if (const auto* def = dynamic_cast<const CAudioParamFilterFixedAGDef*>(definition))
        parseCoeffs(def->coeffsText(), m_coeffs);
    return nullptr;
}

void CAudioParamFilterFixedAG::parseCoeffs(const CString& text, std::vector<double>& out)
{
    out.clear();
    int start = 0;
    while (start <= text.length()) {
        int end = text.find(',', start);
        if (end < 0)
            end = text.length();
        const CString token = converter::trimmed(text.substring(start, end - start));
        if (!token.isEmpty()) {
            bool ok = false;
            const double value = CAudioParamConverter::readNumber(token, &ok);
            out.push_back(ok ? value : 1.0);
        }
        start = end + 1;
    }
}

void CAudioParamFilterFixedAG::process(CSources sources, CAudioParam* const*, const CAudioParamChange& change,
                                       CAudioParamUpdateContext& context)
{
    const int32_t group = readGroup(change.group);
    double result = sources[1]->getElementValue(group, 0, 0, 1.0);
    for (size_t i = 0; i < m_coeffs.size(); ++i) {
        const double gain = sources[0]->getElementValue(group, int32_t(i), 0, 1.0);
        // The band's gain in decibels, scaled, and brought back to a factor.
        result *= std::exp(std::log(gain) * kDbPerNeper * m_coeffs[i] * kNeperPerDb);
    }
    writeValue(0, change.group, result, change.source, context);
}

} // namespace qel
