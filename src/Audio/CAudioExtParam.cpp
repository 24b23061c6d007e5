#include "Audio/CAudioExtParam.h"

#include "Audio/CAudioExtParamHostBridge.h"
#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/Converters/CAudioParamConverter.h"

#include <algorithm>

namespace qel {

CAudioExtParam::~CAudioExtParam()
{
    setNotifier(nullptr, 0);
}

CErrorPtr CAudioExtParam::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    m_extName = getAttrString(CString("ext-name"));
    if (m_extName.isEmpty() || m_extName.length() > 7)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioExtParam_attrExtName_LongName Externalized parameter name '%1' is too long",
                         m_extName);
    QEL_RETURN_IF_ERROR(findObjectByAttr(m_collector, CString("param-collector")), getFullName());
    m_group = getAttrInt(CString("group"));
    m_element = getAttrInt(CString("element-index"));
    m_param = m_collector->getParam(getAttrString(CString("param-name")));
    setNotifier(m_collector, reinterpret_cast<uintptr_t>(m_param));
    return nullptr;
}

void CAudioExtParam::releaseLinks()
{
    setNotifier(nullptr, 0);
    CObject::releaseLinks();
}

void CAudioExtParam::setHostBridge(CAudioExtParamHostBridge* bridge, int index)
{
    m_hostBridge = bridge;
    m_hostIndex = index;
}

double CAudioExtParam::currentNorm()
{
    const CAudioParamInfo* info = m_param ? m_param->info() : nullptr;
    if (!info || info->converters.empty())
        return 0.5;
    const double value = m_param->values().getElementValue(m_group, m_element, 0, 0.0);
    return info->converters[0]->valueToNorm(*info, 0, value);
}

void CAudioExtParam::setNormalized(double norm)
{
    if (!m_param || !m_param->info() || m_param->info()->converters.empty())
        return;
    norm = std::clamp(norm, 0.0, 1.0);
    // onUpdate reads and writes the remembered position under the parameter's lock, on
    // whichever thread writes; so does this.
    CAudioParamLock lock(*m_param);
    m_normValue = norm;
    const CAudioParamInfo& info = *m_param->info();
    // The parameter fills a gap up to the element with defaults itself.
    m_param->setElementValue(info.converters[0]->normToValue(info, 0, norm), m_group, m_element, this);
}

double CAudioExtParam::getNormalized()
{
    if (!m_param)
        return 0.5;
    CAudioParamLock lock(*m_param);
    return currentNorm();
}

void CAudioExtParam::getLabel(CString& out)
{
    const CAudioParamInfo* info = m_param ? m_param->info() : nullptr;
    out = info && !info->converters.empty() ? info->converters[0]->label() : CString();
}

void CAudioExtParam::normToText(CString& out, double norm)
{
    out = CString();
    const CAudioParamInfo* info = m_param ? m_param->info() : nullptr;
    if (!info || info->converters.empty())
        return;
    CAudioParamLock lock(*m_param);
    const double value = info->converters[0]->normToValue(*info, 0, std::clamp(norm, 0.0, 1.0));
    info->converters[0]->valueToText(out, *info, 0, value, &m_param->values().data(),
                                     CAudioParamConverter::TextModeShort);
}

double CAudioExtParam::textToNorm(const CString& text)
{
    const CAudioParamInfo* info = m_param ? m_param->info() : nullptr;
    if (!info || info->converters.empty())
        return 0.5;
    CAudioParamLock lock(*m_param);
    bool ok = false;
    double value = info->converters[0]->parseValue(*info, 0, text, &ok);
    if (!ok)
        value = m_param->values().getElementValue(m_group, m_element, 0, 0.0);
    return info->converters[0]->valueToNorm(*info, 0, value);
}

void CAudioExtParam::onUpdate(const CUpdateMessage* message)
{
    // In the writer's thread under the parameter's lock: only remember and queue; the
    // host hears of it when the last lock is let go.
    const auto* update = static_cast<const CAudioParamUpdateMessage*>(message);
    if (!update || !update->change || update->change->source == this)
        return;
    const CAudioParamChange& c = *update->change;
    if (c.group != kParamDefaultsGroup) {
        const bool groupHit = c.group == m_group || (c.isSingleGroup && c.group == 0);
        const bool elementHit = (c.isSingleElement && c.firstElement == 0)
                                || (m_element >= c.firstElement
                                    && (m_element < c.firstElement + c.elementCount || c.isListEnd));
        if (!groupHit || !elementHit)
            return;
    }
    const double norm = currentNorm();
    if (norm == m_normValue)
        return;
    m_normValue = norm;
    if (m_hostBridge && m_collector)
        m_collector->queueHostUpdate(m_hostBridge, m_hostIndex, norm);
}

void CAudioExtParamList::onChildAdded(CObject* child)
{
    if (auto* param = dynamic_cast<CAudioExtParam*>(child))
        m_params.push_back(param);
}

void CAudioExtParamList::removeChild(CObject* child)
{
    m_params.erase(std::remove(m_params.begin(), m_params.end(), child), m_params.end());
    CObject::removeChild(child);
}

} // namespace qel
