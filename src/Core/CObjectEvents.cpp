// CObject: running, firing and subscribing to events, and posting them over bridges.

#include "Core/CObject.h"

#include "Core/CLog.h"
#include "Core/CObjectEventBridge.h"
#include "Core/CThreadId.h"
#include "Core/CTreeContext.h"

namespace qel {

CErrorPtr CObject::runEvent(const CString& name)
{
    CAttrMap params;
    return runEvent(name, params);
}

CErrorPtr CObject::runEvent(const CString& name, CAttrMap& params)
{
    const CEventRecord* record = m_classInfo->findEvent(name);
    if (!record)
        return QEL_ERROR(getFullName(), "@qelstr_CObject_runEvent_UnknownEvent Unknown event '%1'.", name);
    QEL_RETURN_IF_ERROR(record->run(this, params), getFullName());
    return nullptr;
}

void CObject::listenObject(const CString& senderFullName, const CString& eventName, const CString& handlerName)
{
    const CEventRecord* record = m_classInfo->findEvent(handlerName);
    if (!record) {
        CLog::printfObject(getFullName(), "Event handler '%s' not found in listenObject().", handlerName.toUtf8().c_str());
        return;
    }
    m_subscriptions[senderFullName][eventName] = handlerName;
    if (!m_context)
        return;
    CSenderRecord* sender = m_context->pinSender(senderFullName, true);
    {
        CLockGuard guard(sender->lock);
        sender->events[eventName][this] = CSubscription{record, handlerName};
    }
    m_context->unpinSender(senderFullName, sender);
}

void CObject::unlistenObject(const CString& senderFullName, const CString& eventName)
{
    auto subscribed = m_subscriptions.find(senderFullName);
    if (subscribed != m_subscriptions.end()) {
        subscribed->second.erase(eventName);
        if (subscribed->second.empty())
            m_subscriptions.erase(subscribed);
    }
    if (m_context)
        dropDeliveriesOf(senderFullName, eventName);
}

void CObject::dropDeliveriesOf(const CString& senderFullName, const CString& eventName)
{
    CSenderRecord* sender = m_context->pinSender(senderFullName, false);
    if (!sender)
        return;
    {
        CLockGuard guard(sender->lock);
        auto event = sender->events.find(eventName);
        if (event != sender->events.end()) {
            event->second.erase(this);
            if (event->second.empty())
                sender->events.erase(event);
        }
        // Calls already queued for us must not reach a listener that may be going away.
        for (CDelivery& delivery : sender->queue)
            if (delivery.listener == this)
                delivery.finished = true;
    }
    m_context->unpinSender(senderFullName, sender);
}

void CObject::releaseLinks()
{
    const auto subscriptions = m_subscriptions;
    for (const auto& [sender, events] : subscriptions)
        for (const auto& entry : events)
            unlistenObject(sender, entry.first);
    for (const auto& entry : m_attrListeners)
        entry.first->m_attrSources.erase(this);
    for (const auto& entry : m_attrSources)
        entry.first->m_attrListeners.erase(this);
    m_attrListeners.clear();
    m_attrSources.clear();
}

CObject* CObject::findBridgeOwner() const
{
    for (const CObject* o = this; o; o = o->m_parent)
        if (!o->m_bridgeInherited)
            return const_cast<CObject*>(o);
    return nullptr;
}

void CObject::setEventBridge(CObjectEventBridge* bridge, uint32_t ownerThreadId)
{
    m_bridge = bridge;
    m_ownerThreadId = ownerThreadId;
    m_bridgeInherited = bridge == nullptr;
}

CErrorPtr CObject::fireEvent(const CString& name, bool forceBridged)
{
    CAttrMap params;
    return fireEvent(name, params, forceBridged);
}

CErrorPtr CObject::fireEvent(const CString& name, CAttrMap& params, bool forceBridged)
{
    if (!m_context)
        return nullptr;
    const CString sender = getFullName();
    CSenderRecord* record = m_context->pinSender(sender, false);
    if (!record)
        return nullptr;
    params[CString("sender")].setString(sender);
    params[CString("event-name")].setString(name);
    const uint32_t thread = currentThreadId();

    CErrorPtr error;
    {
        CLockGuard guard(record->lock);
        auto event = record->events.find(name);
        if (event != record->events.end()) {
            for (const auto& [listener, subscription] : event->second) {
                CObject* owner = listener->findBridgeOwner();
                if (!owner)
                    continue;
                if (!forceBridged && owner->m_ownerThreadId == thread) {
                    record->queue.push_back(CDelivery{listener, subscription.record, thread, &params, false});
                    continue;
                }
                CAttrMap posted = params;
                posted[CString("listener")].setString(listener->getFullName());
                posted[CString("listener-id")].setInt(listener->m_objectId);
                posted[CString("listener-proc")].setString(subscription.handlerName);
                if (CErrorPtr postError = owner->m_bridge->post(posted))
                    logError(postError.get());
            }
        }

        // Deliver what this thread queued, in order; a handler that fires again appends
        // behind, and the nested call delivers everything of this thread up to its own.
        for (;;) {
            size_t next = record->readIndex;
            while (next < record->queue.size()
                   && (record->queue[next].finished || record->queue[next].threadId != thread))
                ++next;
            if (next >= record->queue.size())
                break;
            CDelivery delivery = record->queue[next];
            record->queue[next].finished = true;
            while (record->readIndex < record->queue.size() && record->queue[record->readIndex].finished)
                ++record->readIndex;
            error = delivery.record->run(delivery.listener, *delivery.params);
            if (error) {
                // Calls that would read this call's parameters must not outlive it.
                for (CDelivery& left : record->queue)
                    if (left.params == &params)
                        left.finished = true;
                break;
            }
        }
        while (record->readIndex < record->queue.size() && record->queue[record->readIndex].finished)
            ++record->readIndex;
        if (record->readIndex == record->queue.size()) {
            record->queue.clear();
            record->readIndex = 0;
        }
    }
    m_context->unpinSender(sender, record);
    if (error)
        return QEL_TRAIL(error, getFullName());
    return nullptr;
}

CErrorPtr CObject::bridgeEvent(const CString& senderName, const CString& procName, CAttrMap& params)
{
    const CAttrMap prepared = prepareBridgeEvent(senderName, procName);
    for (const auto& [name, value] : prepared)
        params[name] = value;
    return postBridgeEvent(params);
}

CAttrMap CObject::prepareBridgeEvent(const CString& senderName, const CString& procName) const
{
    CAttrMap params;
    params[CString("sender")].setString(senderName);
    params[CString("listener")].setString(getFullName());
    params[CString("listener-id")].setInt(m_objectId);
    params[CString("listener-proc")].setString(procName);
    return params;
}

CErrorPtr CObject::postBridgeEvent(const CAttrMap& prepared) const
{
    // Parents and bridges only change while the tree's owner rebuilds the tree, never
    // while something posts into it.
    CObject* owner = findBridgeOwner();
    if (!owner)
        return nullptr;
    if (CErrorPtr error = owner->m_bridge->post(prepared))
        logError(error.get()); // a failed post is dropped once it is in the log
    return nullptr;
}

} // namespace qel
