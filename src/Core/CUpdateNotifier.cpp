#include "Core/CUpdateNotifier.h"

#include "Core/CMap.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <vector>

namespace qel {

// Shared by a notifier and its listeners. While a notification runs, a listener that
// leaves (its destructor, on the notifying thread) only empties its slot, so the walk
// never meets freed memory and the list is tidied afterwards.
struct CNotifierCore
{
    std::recursive_mutex lock;
    bool alive = true;
    int notifying = 0;
    CMap<uint64_t, std::vector<CUpdateListener*>> listeners; // by key, ordered by address

    void compact()
    {
        for (auto it = listeners.begin(); it != listeners.end();) {
            auto& list = it->second;
            list.erase(std::remove(list.begin(), list.end(), nullptr), list.end());
            it = list.empty() ? listeners.erase(it) : std::next(it);
        }
    }
};

CUpdateNotifier::CUpdateNotifier() : m_core(std::make_shared<CNotifierCore>()) {}

CUpdateNotifier::~CUpdateNotifier()
{
    std::lock_guard<std::recursive_mutex> guard(m_core->lock);
    m_core->alive = false;
    if (m_core->notifying == 0)
        m_core->listeners.clear();
    else
        for (auto& entry : m_core->listeners)
            std::fill(entry.second.begin(), entry.second.end(), nullptr);
}

void CUpdateNotifier::notify(const CUpdateMessage* message)
{
    const uint64_t key = message ? message->key : 0;
    // Our own reference: a listener may destroy the notifier from inside onUpdate.
    const std::shared_ptr<CNotifierCore> keep = m_core;
    CNotifierCore& core = *keep;
    std::lock_guard<std::recursive_mutex> guard(core.lock);
    auto it = core.listeners.find(key);
    if (it == core.listeners.end())
        return;
    ++core.notifying;
    // By index and up to the count at the start: a listener that joins during the round
    // hears the next one, and the vector may grow under us.
    const size_t count = it->second.size();
    for (size_t i = 0; i < count; ++i) {
        CUpdateListener* listener = it->second[i];
        if (listener)
            listener->onUpdate(message);
    }
    if (--core.notifying == 0)
        core.compact();
}

size_t CUpdateNotifier::listenerCount(uint64_t key) const
{
    std::lock_guard<std::recursive_mutex> guard(m_core->lock);
    auto it = m_core->listeners.find(key);
    if (it == m_core->listeners.end())
        return 0;
    return size_t(std::count_if(it->second.begin(), it->second.end(), [](CUpdateListener* l) { return l; }));
}

CUpdateListener::~CUpdateListener() { leave(); }

void CUpdateListener::leave()
{
    if (!m_core)
        return;
    {
        std::lock_guard<std::recursive_mutex> guard(m_core->lock);
        auto it = m_core->listeners.find(m_key);
        if (it != m_core->listeners.end()) {
            auto& list = it->second;
            auto at = std::find(list.begin(), list.end(), this);
            if (at != list.end()) {
                if (m_core->notifying > 0) {
                    *at = nullptr;
                } else {
                    list.erase(at);
                    if (list.empty())
                        m_core->listeners.erase(it);
                }
            }
        }
    }
    m_core.reset();
}

void CUpdateListener::setNotifier(CUpdateNotifier* notifier, uintptr_t context)
{
    leave();
    if (!notifier)
        return;
    const uint64_t key = notifier->getListenKey(context);
    std::shared_ptr<CNotifierCore> core = notifier->m_core;
    std::lock_guard<std::recursive_mutex> coreGuard(core->lock);
    if (!core->alive)
        return;
    m_key = key;
    auto& list = core->listeners[m_key];
    list.insert(std::upper_bound(list.begin(), list.end(), this, std::less<CUpdateListener*>()), this);
    m_core = std::move(core);
}

} // namespace qel
