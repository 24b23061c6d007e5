#include "Audio/ParamFilters/CSharedParam.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/Converters/CAudioParamConverter.h"
#include "Core/CWriteSeqBuffer.h"

#include <cmath>
#include <utility>

namespace qel {

using CSharedParam = CAudioParamCollector::CSharedParam;

CSharedParam::CSharedParam(CAudioParamCollector& collector, CAudioParam& param, CAppData& store,
                           const CString& dataName)
    : m_collector(collector), m_param(param), m_store(store), m_dataName(dataName)
{
}

CSharedParam::~CSharedParam()
{
    // Both notifiers wait for a notification of ours that is running.
    m_dataListener.detach();
    setNotifier(nullptr, 0);
}

void CSharedParam::start()
{
    {
        CAudioParamLock lock(m_param);
        takeDefaultText();
        setNotifier(&m_collector, reinterpret_cast<uintptr_t>(&m_param));
    }
    // Not under the parameter's lock: the store's notifier takes its own lock before that
    // one, when it tells us of a write.
    m_dataListener.attach(&m_store, m_dataName);
    load();
}

void CSharedParam::takeDefaultText()
{
    const CAudioParamInfo* info = m_param.info();
    if (!info)
        return;
    const CAudioParamStorage& values = m_param.values();
    if (info->dataType == CAudioParamStorage::Float) {
        if (!info->converters.empty())
            info->converters[0]->valueToText(m_defaultText, *info, 0, values.getElementValue(0, 0, 0, 0.0),
                                             &values.data(), CAudioParamConverter::TextModeNormal);
    } else if (info->dataType == CAudioParamStorage::String) {
        m_defaultText = m_param.getString(0, 0);
    }
}

void CSharedParam::load()
{
    CAudioParamLock lock(m_param);
    const CAudioParamInfo* info = m_param.info();
    if (!info)
        return;
    m_isLoaded = true;
    CAudioParamUpdateContext context;
    switch (info->dataType) {
    case CAudioParamStorage::Float: {
        if (info->converters.empty())
            return;
        bool ok = false;
        const double value = info->converters[0]->parseValue(*info, 0, m_store.getString(m_dataName, m_defaultText), &ok);
        if (ok)
            m_param.setValue(value, 0, this);
        break;
    }
    case CAudioParamStorage::String:
        m_param.setString(0, 0, m_store.getString(m_dataName, m_defaultText), this, context);
        break;
    default: {
        CByteArray bytes;
        m_store.readData(m_dataName, bytes, CAppData::kTagData, false);
        if (!bytes.isEmpty())
            m_param.setRaw(0, 0, bytes, this, context);
        break;
    }
    }
}

void CSharedParam::onUpdate(const CUpdateMessage* message)
{
    const auto* update = static_cast<const CAudioParamUpdateMessage*>(message);
    if (update && update->change)
        onParamChanged(*update->change);
}

void CSharedParam::onParamChanged(const CAudioParamChange& change)
{
    if (change.source == this)
        return;
    const CAudioParamInfo* info = m_param.info();
    if (!info)
        return;
    if (!m_isLoaded) {
        // The definition arrived after the binding: the stored value comes in over the
        // defaults that just arrived, once this change has run its whole way (its filters
        // must hear it before a change of ours).
        if (change.group == kParamDefaultsGroup) {
            takeDefaultText();
            queueDelivery(nullptr);
        }
        return;
    }
    if (change.group != 0 || change.elementCount < 1)
        return;

    const CAudioParamStorage& values = m_param.values();
    CWriteSeqBuffer buffer;
    CByteArray bytes;
    uint32_t tag = CAppData::kTagString;
    if (info->dataType == CAudioParamStorage::Float) {
        if (info->converters.empty())
            return;
        CString text;
        info->converters[0]->valueToText(text, *info, 0, values.getElementValue(0, 0, 0, 0.0), &values.data(),
                                         CAudioParamConverter::TextModeNormal);
        if (buffer.writeString(text) || buffer.toArray(bytes))
            return;
    } else if (info->dataType == CAudioParamStorage::String) {
        if (buffer.writeString(m_param.getString(0, 0)) || buffer.toArray(bytes))
            return;
    } else {
        tag = CAppData::kTagData;
        bytes = values.data().getRaw(uint32_t(std::lround(values.getElementValue(0, 0, 0, 0.0))));
    }
    const CWrite write{true, tag, bytes};
    queueDelivery(&write);
}

void CSharedParam::queueDelivery(const CWrite* write)
{
    bool isQueued = false;
    {
        CLockGuard guard(m_deliveryLock);
        if (write)
            m_write = *write;
        else
            m_isLoadQueued = true;
        isQueued = m_isDeliveryQueued;
        m_isDeliveryQueued = true;
    }
    // One delivery does whatever waits by then; later changes before it ride along.
    if (!isQueued)
        m_collector.queueHostUpdate(this, 0, 0.0);
}

void CSharedParam::onExtParamChanged(int, double)
{
    CWrite write;
    bool isLoad = false;
    {
        CLockGuard guard(m_deliveryLock);
        if (!m_isDeliveryQueued)
            return;
        m_isDeliveryQueued = false;
        isLoad = m_isLoadQueued;
        m_isLoadQueued = false;
        std::swap(write, m_write);
    }
    if (isLoad)
        load();
    if (write.isSet)
        m_store.writeData(m_dataName, write.bytes, this, write.tag);
}

void CSharedParam::CDataListener::onUpdate(const CUpdateMessage* message)
{
    // Our own writes come back here too; they hold what the parameter holds already.
    if (m_owner && (!message || message->source != uint64_t(reinterpret_cast<uintptr_t>(m_owner))))
        m_owner->load();
}

} // namespace qel
