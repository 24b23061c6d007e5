#pragma once

#include "Audio/CAudioExtParamHostBridge.h"
#include "Audio/CAudioParamCollector.h"
#include "Core/CAppData.h"
#include "Core/CByteArray.h"
#include "Core/CCriticalSection.h"
#include "Core/CUpdateNotifier.h"

#include <cstdint>

namespace qel {

// A parameter bound to a key of an application data store, so that its value outlives
// the instance and is common to every instance: a change of the parameter is written to
// the store, and a write of the store by anyone else is read into the parameter. Floats
// are stored as their display text (tag dstr), so the store reads "Gray" or "750" and a
// value read back goes through the converter, clamped to today's range; strings as their
// text (dstr), raw data as its bytes (adat).
//
// Threads and locks. The store tells its listeners on the writer's thread, under its own
// notifier lock, and each of them then takes its parameter's lock to read the value in.
// A write made under a parameter's lock could thus wait for a notification that waits for
// that parameter. So the store is written later, when the collector delivers the work that
// waits for the last parameter lock to go, as it does for host notifications.
class CAudioParamCollector::CSharedParam : public CUpdateListener, private CAudioExtParamHostBridge
{
public:
    // Hears the writes of the key by others.
    class CDataListener : public CAppDataListener<CSharedParam>
    {
    public:
        explicit CDataListener(CSharedParam* owner) : CAppDataListener<CSharedParam>(owner) {}
        void onUpdate(const CUpdateMessage* message) override;
    };

    CSharedParam(CAudioParamCollector& collector, CAudioParam& param, CAppData& store, const CString& dataName);
    ~CSharedParam() override;

    // Set-up: takes the default text from the parameter's value in group 0, joins the
    // parameter and the store, and reads the stored value in.
    void start();
    // The stored value into group 0 of the parameter; text that does not read keeps the
    // value as it is.
    void load();

    CAudioParam& param() const { return m_param; }
    CAppData& store() const { return m_store; }
    const CString& dataName() const { return m_dataName; }
    const CString& defaultText() const { return m_defaultText; }

    // A change of the parameter, under its lock.
    void onUpdate(const CUpdateMessage* message) override;

private:
    void takeDefaultText();
    void onParamChanged(const CAudioParamChange& change);
    // A write of the store, waiting for the collector's delivery.
    struct CWrite
    {
        bool isSet = false;
        uint32_t tag = 0;
        CByteArray bytes;
    };
    // `write` null: a load waits instead.
    void queueDelivery(const CWrite* write);
    // The collector's delivery, with no parameter lock held: what waits.
    void onExtParamChanged(int index, double value) override;

    CAudioParamCollector& m_collector;
    CAudioParam& m_param;
    CAppData& m_store;
    const CString m_dataName;
    CString m_defaultText;
    // Whether the parameter had a definition to read the store into yet.
    bool m_isLoaded = false;
    CDataListener m_dataListener{this};

    CCriticalSection m_deliveryLock{50};
    bool m_isDeliveryQueued = false; // guarded by m_deliveryLock, with the two below
    bool m_isLoadQueued = false;
    CWrite m_write;
};

} // namespace qel
