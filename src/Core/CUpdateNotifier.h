#pragma once

#include "Core/CCheckedObject.h"

#include <cstdint>
#include <memory>

namespace qel {

class CUpdateListener;
struct CNotifierCore;

// What a notification carries: always a source and a key; a notifier of a particular kind
// puts its own fields behind them. A null message stands for key 0.
struct CUpdateMessage
{
    uint64_t source = 0;
    uint64_t key = 0;
};

// Tells listeners of a key about changes, on the thread that calls notify. A listener may
// outlive its notifier and the other way round: both sides share a small core that lives
// until the last of them lets go, so neither ever touches the other's memory after it is
// gone, and no lock of a listener is ever taken while the notifier's is held.
class CUpdateNotifier : public CCheckedObject
{
public:
    CUpdateNotifier();
    ~CUpdateNotifier() override;
    CUpdateNotifier(const CUpdateNotifier&) = delete;
    CUpdateNotifier& operator=(const CUpdateNotifier&) = delete;

    // Turns what a listener gave when attaching into the key of its interest.
    virtual uint64_t getListenKey(uintptr_t context) { return context; }

    // Any thread. Calls onUpdate of each listener of the message's key, in the order of
    // their addresses, with the notifier's lock held: a listener must be brief there.
    void notify(const CUpdateMessage* message);
    size_t listenerCount(uint64_t key) const;

private:
    friend class CUpdateListener;
    std::shared_ptr<CNotifierCore> m_core;
};

// Hears the notifications of one key of one notifier.
class CUpdateListener : public CCheckedObject
{
public:
    CUpdateListener() = default;
    ~CUpdateListener() override;
    CUpdateListener(const CUpdateListener&) = delete;
    CUpdateListener& operator=(const CUpdateListener&) = delete;

    // Leaves the current notifier, if any, and joins `notifier` (when not null) under the
    // key it makes of `context`. Any thread, but one at a time for a listener (its owner
    // attaches and detaches it); notifications may arrive from any thread meanwhile. The
    // listener has no lock of its own, so the only lock ever taken here is the
    // notifier's, and a listener may leave from inside a notification.
    void setNotifier(CUpdateNotifier* notifier, uintptr_t context);
    uint64_t key() const { return m_key; }

    // On the thread of notify, under the notifier's lock. A class whose onUpdate uses its
    // own members must leave (setNotifier(nullptr, 0)) first thing in its destructor: that
    // waits for a notification in progress, which could otherwise run on a half-destroyed
    // object. The base hears nothing, so a late call during destruction lands here.
    virtual void onUpdate(const CUpdateMessage*) {}

private:
    void leave();

    std::shared_ptr<CNotifierCore> m_core;
    uint64_t m_key = 0;
};

// A listener that forwards to the object that owns it.
template <class T>
class COwnedUpdateListener : public CUpdateListener
{
public:
    explicit COwnedUpdateListener(T* owner = nullptr) : m_owner(owner) {}
    ~COwnedUpdateListener() override { setNotifier(nullptr, 0); }
    void setOwner(T* owner) { m_owner = owner; }
    T* owner() const { return m_owner; }

protected:
    T* m_owner;
};

} // namespace qel
