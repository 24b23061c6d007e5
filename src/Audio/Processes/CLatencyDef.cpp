#include "Audio/Processes/CLatencyDef.h"

#include "Core/CPtrArray.h"

#include <cmath>

namespace qel {
namespace {

int32_t readField(const CString& text)
{
    int32_t value = 0;
    return text.toInt(value) ? value : -1;
}

} // namespace

void CLatencyDef::parseLatencies(const CString& text)
{
    m_rows.clear();
    CPtrArray<CString, true> items;
    text.split(';', items, true, true);
    CPtrArray<CString, true> fields;
    for (int i = 0; i < items.count(); ++i) {
        items[i]->split('=', fields, false, true);
        if (fields.count() < 2)
            continue;
        m_rows.push_back({readField(*fields[0]), readField(*fields[1])});
    }
}

const CLatencyDef::CRow* CLatencyDef::latencyRowFor(double sampleRate) const
{
    // Half away from zero; a rate beyond what an i32 holds is beyond every row.
    const double rounded = std::round(sampleRate);
    if (!(rounded <= 2147483647.0))
        return nullptr;
    const auto rate = int64_t(rounded);
    for (const CRow& row : m_rows)
        if (rate <= row.rate)
            return &row;
    return nullptr;
}

} // namespace qel
