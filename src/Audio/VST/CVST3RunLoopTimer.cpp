#include "Audio/VST/CVST3RunLoopTimer.h"

namespace qel {

using namespace Steinberg;

CVST3RunLoopTimer* CVST3RunLoopTimer::attach(CClient* client, std::initializer_list<FUnknown*> hostObjects,
                                             uint64_t intervalMs)
{
    for (FUnknown* host : hostObjects) {
        Linux::IRunLoop* runLoop = nullptr;
        if (!host || host->queryInterface(Linux::IRunLoop::iid, reinterpret_cast<void**>(&runLoop)) != kResultOk
            || !runLoop)
            continue;
        auto* timer = new CVST3RunLoopTimer(client, runLoop);
        if (runLoop->registerTimer(timer, intervalMs) == kResultOk)
            return timer;
        timer->m_client = nullptr;
        timer->release();
    }
    return nullptr;
}

CVST3RunLoopTimer::CVST3RunLoopTimer(CClient* client, Linux::IRunLoop* runLoop) : m_client(client), m_runLoop(runLoop)
{
}

CVST3RunLoopTimer::~CVST3RunLoopTimer()
{
    if (m_runLoop)
        m_runLoop->release();
}

void CVST3RunLoopTimer::detach()
{
    m_client = nullptr;
    if (m_runLoop)
        m_runLoop->unregisterTimer(this);
    release();
}

void PLUGIN_API CVST3RunLoopTimer::onTimer()
{
    if (m_client)
        m_client->onRunLoopTimer();
}

tresult PLUGIN_API CVST3RunLoopTimer::queryInterface(const TUID wanted, void** obj)
{
    if (!obj)
        return kInvalidArgument;
    QUERY_INTERFACE(wanted, obj, FUnknown::iid, Linux::ITimerHandler)
    QUERY_INTERFACE(wanted, obj, Linux::ITimerHandler::iid, Linux::ITimerHandler)
    *obj = nullptr;
    return kNoInterface;
}

uint32 PLUGIN_API CVST3RunLoopTimer::addRef()
{
    return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint32 PLUGIN_API CVST3RunLoopTimer::release()
{
    const uint32 left = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0)
        delete this;
    return left;
}

} // namespace qel
