#include "Audio/Filters/CAudioFilterSerialGen.h"

#include "Audio/Filters/CAudioFilterSerialGenItem.h"

namespace qel {

CErrorPtr CAudioFilterSerialGen::initChilds()
{
    QEL_RETURN_IF_ERROR(CAudioFilterGen::initChilds(), getFullName());
    m_items.clear();
    for (int i = 0; i < childCount(); ++i)
        if (const auto* item = dynamic_cast<const CAudioFilterSerialGenItem*>(child(i)))
            m_items.push_back(item);
    return nullptr;
}

void CAudioFilterSerialGen::createFilter(CDCDAWFilterWorkspace& workspace, double sampleRate,
                                         const CAudioFilterParams& params, CAudioFilterStageList& stages) const
{
    // A ring of serial generators stops at the workspace's depth instead of recursing on.
    if (!workspace.enter())
        return;
    double values[CAudioFilterSerialGenItem::kMaxValues];
    const int32_t count = params.count < CAudioFilterSerialGenItem::kMaxValues ? params.count : CAudioFilterSerialGenItem::kMaxValues;
    for (const CAudioFilterSerialGenItem* item : m_items) {
        if (!item->generator())
            continue;
        for (int32_t j = 0; j < count; ++j)
            values[j] = item->adjusted(j, params.values[j]);
        const CAudioFilterParams adjusted{params.names, values, count};
        item->generator()->createFilter(workspace, sampleRate, adjusted, stages);
    }
    workspace.leave();
}

} // namespace qel
