#pragma once

#include "Core/CAttrMap.h"
#include "Core/CClassInfo.h"
#include "Core/CCriticalSection.h"
#include "Core/CMap.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CObject;

// A listener's entry for one event of one sender.
struct CSubscription
{
    const CEventRecord* record = nullptr;
    CString handlerName;
};

// One pending call of a handler on the thread that fired the event.
struct CDelivery
{
    CObject* listener;
    const CEventRecord* record;
    uint32_t threadId;
    CAttrMap* params;
    bool finished;
};

// Everything about the subscribers of one sender. Its lock is held while handlers run;
// it re-enters, so a handler may fire events itself and they are delivered in order.
struct CSenderRecord
{
    CCriticalSection lock{4000};
    int usage = 0;
    CMap<CString, CMap<CObject*, CSubscription>> events;
    std::vector<CDelivery> queue;
    size_t readIndex = 0;
};

// What one instance tree shares: object ids and the event subscriptions by sender name.
// The id lock and the subscription lock are never held together.
class CTreeContext
{
public:
    explicit CTreeContext(uint32_t id) : m_id(id) {}
    CTreeContext(const CTreeContext&) = delete;
    CTreeContext& operator=(const CTreeContext&) = delete;

    uint32_t id() const { return m_id; }
    int32_t nextObjectId();

    // Finds (or, with create, makes) a sender record and pins it; null when absent.
    CSenderRecord* pinSender(const CString& senderName, bool create);
    // Unpins; a record that nothing pins and nobody subscribes to any more goes away.
    void unpinSender(const CString& senderName, CSenderRecord* record);

private:
    uint32_t m_id;
    CCriticalSection m_idLock{50};
    int32_t m_objectIdCounter = 0;
    CCriticalSection m_sendersLock{4000};
    CMap<CString, std::unique_ptr<CSenderRecord>> m_senders;
};

} // namespace qel
