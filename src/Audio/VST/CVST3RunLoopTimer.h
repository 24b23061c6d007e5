#pragma once

#include "pluginterfaces/gui/iplugview.h"

#include <atomic>
#include <cstdint>
#include <initializer_list>

namespace qel {

// A timer on the host's run loop. On Linux that is the one way to be called back on the
// host's main thread without a thread of our own: a plug-in without an open editor has no
// event loop to post to. The run loop holds a reference; the owner detaches the timer
// before it goes away, and a tick that comes later finds no client and does nothing.
//
// SDK interfaces are released, never deleted through their own pointers: they have no
// virtual destructor by design.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class CVST3RunLoopTimer : public Steinberg::Linux::ITimerHandler
{
public:
    class CClient
    {
    public:
        virtual ~CClient() = default;
        // Host main thread.
        virtual void onRunLoopTimer() = 0;
    };

    // Registers a timer with the run loop of the first host object that offers one (null
    // entries are skipped). Null when none does or registering fails. Main thread.
    static CVST3RunLoopTimer* attach(CClient* client, std::initializer_list<Steinberg::FUnknown*> hostObjects,
                                     uint64_t intervalMs);
    // Unregisters, forgets the client and lets go of the owner's reference. Main thread.
    void detach();

    void PLUGIN_API onTimer() override;

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID wanted, void** obj) override;
    Steinberg::uint32 PLUGIN_API addRef() override;
    Steinberg::uint32 PLUGIN_API release() override;

private:
    CVST3RunLoopTimer(CClient* client, Steinberg::Linux::IRunLoop* runLoop);
    virtual ~CVST3RunLoopTimer();

    std::atomic<Steinberg::uint32> m_refCount{1};
    CClient* m_client;
    Steinberg::Linux::IRunLoop* m_runLoop; // one reference held until detach
};
#pragma GCC diagnostic pop

} // namespace qel
