#include "Core/CTreeContext.h"

namespace qel {

int32_t CTreeContext::nextObjectId()
{
    CLockGuard guard(m_idLock);
    return m_objectIdCounter++;
}

CSenderRecord* CTreeContext::pinSender(const CString& senderName, bool create)
{
    CLockGuard guard(m_sendersLock);
    auto it = m_senders.find(senderName);
    if (it == m_senders.end()) {
        if (!create)
            return nullptr;
        it = m_senders.emplace(senderName, std::make_unique<CSenderRecord>()).first;
    }
    ++it->second->usage;
    return it->second.get();
}

void CTreeContext::unpinSender(const CString& senderName, CSenderRecord* record)
{
    CLockGuard guard(m_sendersLock);
    if (--record->usage > 0)
        return;
    // Every user of a record pins it first, under this lock: with no pins left, no other
    // thread is inside the record, so it can be checked without its own lock.
    if (record->events.empty() && record->queue.empty())
        m_senders.erase(senderName);
}

} // namespace qel
