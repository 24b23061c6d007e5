#include "Core/CStdEventBridge.h"

#include "Core/CThreadId.h"

namespace qel {

CStdEventBridge::CStdEventBridge() : m_queue(*this)
{
    setEventBridge(&m_queue, currentThreadId());
}

CStdEventBridge::~CStdEventBridge()
{
    // The children first: something below may still post into the queue until it goes.
    releaseChildren();
    setEventBridge(nullptr, 0);
}

CErrorPtr CStdEventBridge::deliver(CAttrMap& params)
{
    auto listenerName = params.find(CString("listener"));
    auto listenerId = params.find(CString("listener-id"));
    auto proc = params.find(CString("listener-proc"));
    if (listenerName == params.end() || listenerId == params.end() || proc == params.end())
        return nullptr;
    CObject* listener = findObject(listenerName->second.toString());
    if (!listener || listener->objectId() != listenerId->second.toInt())
        return nullptr;
    return listener->runEvent(proc->second.toString(), params);
}

} // namespace qel
