#include "Core/CUIEventBridge.h"

#include "Core/CStdEventBridge.h"

namespace qel {

CErrorPtr CUIEventBridge::post(const CAttrMap& params)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_queue.push_back(params);
    if (m_waker)
        m_waker->wake();
    return nullptr;
}

int CUIEventBridge::drain()
{
    int delivered = 0;
    for (;;) {
        CAttrMap params;
        {
            std::lock_guard<std::mutex> guard(m_lock);
            if (m_queue.empty())
                return delivered;
            params = std::move(m_queue.front());
            m_queue.pop_front();
        }
        if (CErrorPtr error = m_owner.deliver(params))
            logError(error.get());
        ++delivered;
    }
}

void CUIEventBridge::setWaker(IEventBridgeWaker* waker)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_waker = waker;
}

size_t CUIEventBridge::pendingCount()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_queue.size();
}

} // namespace qel
