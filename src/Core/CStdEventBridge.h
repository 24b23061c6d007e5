#pragma once

#include "Core/CObject.h"
#include "Core/CUIEventBridge.h"

namespace qel {

// The object (tag ui:ui-event-bridge) whose subtree receives events from other threads on
// the thread that made it.
class CStdEventBridge : public CObject
{
public:
    CStdEventBridge();
    ~CStdEventBridge() override;

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }

    // Owner thread: runs the event on the listener the parameters name, if that path still
    // leads to the same object (same id); otherwise the event is dropped without a word.
    virtual CErrorPtr deliver(CAttrMap& params);
    CUIEventBridge& queue() { return m_queue; }

private:
    CUIEventBridge m_queue;
};

} // namespace qel
