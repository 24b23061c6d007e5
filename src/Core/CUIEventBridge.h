#pragma once

#include "Core/CObjectEventBridge.h"

#include <deque>
#include <mutex>

namespace qel {

class CStdEventBridge;

// Told when a bridge has something to deliver, so the owner thread's loop can drain it
// (an eventfd in the host's run loop for a window, for instance).
class IEventBridgeWaker
{
public:
    virtual ~IEventBridgeWaker() = default;
    // Any thread, possibly under the poster's locks: must only signal.
    virtual void wake() = 0;
};

// The queue behind a CStdEventBridge: posts from any thread, delivery on the thread that
// made the bridge. Whatever is still queued when the bridge goes is dropped with it.
class CUIEventBridge : public CObjectEventBridge
{
public:
    explicit CUIEventBridge(CStdEventBridge& owner) : m_owner(owner) {}

    CErrorPtr post(const CAttrMap& params) override;
    // Owner thread: delivers everything queued so far, in order; errors go to the log.
    int drain();
    void setWaker(IEventBridgeWaker* waker);
    size_t pendingCount();

private:
    CStdEventBridge& m_owner;
    std::mutex m_lock;
    std::deque<CAttrMap> m_queue;
    IEventBridgeWaker* m_waker = nullptr;
};

} // namespace qel
