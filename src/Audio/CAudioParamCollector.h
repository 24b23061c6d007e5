#pragma once

#include "Audio/CAudioParam.h"
#include "Core/CCriticalSection.h"
#include "Core/CMap.h"
#include "Core/CObject.h"
#include "Core/CUpdateNotifier.h"

#include <memory>
#include <vector>

namespace qel {

class CAppData;
class CAudioEnv;
class CAudioExtParamHostBridge;
class CAudioParamFilterDef;
class CAudioParamQueuedChange;
class CAudioParamRegistry;

// What the collector's listeners hear on every change of a parameter, in the writer's
// thread and under the parameter's lock. The key is the parameter's address.
struct CAudioParamUpdateMessage : CUpdateMessage
{
    CAudioParam* param = nullptr;
    const CAudioParamChange* change = nullptr;
    CAudioParamUpdateContext* context = nullptr;
};

// The one place where an instance's live parameters exist (tag audio:param-collector,
// attribute `env`). It owns them, moves every change to the audio thread through a queue
// whose lock is only held to exchange pointers, tells whoever listens, and calls the host
// only when no parameter lock is held any more.
class CAudioParamCollector : public CObject, public CUpdateNotifier
{
public:
    // A parameter bound to a key of an application data store; its own file.
    class CSharedParam;

    CAudioParamCollector();
    ~CAudioParamCollector() override;

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    // Finds or makes the parameter, following aliases first. Any thread but audio.
    CAudioParam* getParam(const CString& name);
    // As getParam, but null for a name nobody asked for yet: readers of stored data must
    // not make parameters out of names they find there.
    CAudioParam* findParam(const CString& name);
    // Every parameter made so far, in the order of their names.
    void getParams(std::vector<CAudioParam*>& out);
    bool isAliased(const CString& name);
    void addAlias(const CString& alias, const CString& target);
    CAudioEnv* env() const { return m_env; }
    // Sets isStarted and offers every parameter to the registries: first to the
    // enumerated ones, in order, the first that claims it keeping it; when none does, to
    // all others. Then each registry starts. A parameter made later is offered at once.
    void start();
    bool isStarted() const { return m_isStarted; }
    // Groups and elements the audio side's copies keep room for.
    int32_t reservedGroups() const { return m_reservedGroups; }

    // ---- the registries that give parts of the tree presets, in order of joining
    // By the registry's full name; null when none has joined under it.
    CAudioParamRegistry* findRegistry(const CString& fullName);
    void addRegistry(CAudioParamRegistry* registry);
    void removeRegistry(CAudioParamRegistry* registry);
    void getRegistries(std::vector<CAudioParamRegistry*>& out);

    // Listeners attach with the parameter's address as context.
    uint64_t getListenKey(uintptr_t context) override { return context; }

    // ---- what process definitions tie to parameters, made at set-up. One of each per
    // parameter, store and key, or per filter definition and process name: every copy of
    // a stacked process asks, and the first one makes it. They live as long as the
    // collector.
    void addSharedParam(const CString& paramName, CAppData* store, const CString& dataName);
    // `sourceNames` and `destinationNames` are full names; the filter's init may refuse them.
    CErrorPtr addFilter(const CAudioParamFilterDef& definition, const CString& processName,
                        const std::vector<CString>& sourceNames, const std::vector<CString>& destinationNames);
    size_t sharedParamCount();
    size_t filterCount();

    // ---- the queue to the audio thread
    void post(CAudioParamQueuedChange* change);
    void postChanges(CAudioParamQueuedChange* list);
    // Audio thread, at the start of a block: takes everything queued so far.
    CAudioParamQueuedChange* takePendingChanges();
    // Audio thread: applies a taken list, in order; the caller frees it afterwards.
    static void applyPendingChanges(CAudioParamQueuedChange* list);
    size_t pendingCount();

    // ---- host notifications, delivered when the last lock or batch ends
    void queueHostUpdate(CAudioExtParamHostBridge* bridge, int index, double value);
    void enterLock();
    void enterBatch();
    void releaseUpdate(bool isBatch);

    // ---- the nodes by which processes claim parameters
    CAudioParamListener* allocListener();
    void freeListener(CAudioParamListener* node);
    CCriticalSection& listenerLock() { return m_listenerLock; }

private:
    struct HostUpdate
    {
        CAudioExtParamHostBridge* bridge;
        int index;
        double value;
    };
    struct CFilterEntry
    {
        const CAudioParamFilterDef* definition = nullptr;
        CString processName;
        std::unique_ptr<CAudioParamFilter> filter;
    };

    void appendFolding(CAudioParamQueuedChange* change);
    // Under m_paramsLock.
    void offerToRegistries(CAudioParam* param);
    // The name a parameter is kept under, following aliases. Under m_paramsLock.
    CString resolveAlias(const CString& name) const;

    CAudioEnv* m_env = nullptr;
    CAudioParamQueuedChange* m_pending = nullptr; // guarded by the env's queue lock
    CAudioParamQueuedChange* m_pendingTail = nullptr;
    bool m_isStarted = false;
    int32_t m_reservedGroups = 8;
    CCriticalSection m_paramsLock{4000};
    CMap<CString, std::unique_ptr<CAudioParam>> m_params;
    CMap<CString, CString> m_aliases;
    std::vector<CAudioParamRegistry*> m_registries; // guarded by m_paramsLock
    CCriticalSection m_linksLock{4000}; // guards the two lists below; set-up only
    std::vector<std::unique_ptr<CSharedParam>> m_sharedParams;
    std::vector<CFilterEntry> m_filters;
    CCriticalSection m_updatesLock{4000};
    std::vector<HostUpdate> m_hostUpdates;
    int32_t m_lockDepth = 0;
    int32_t m_batchDepth = 0;
    CCriticalSection m_listenerLock{4000};
    std::vector<std::unique_ptr<CAudioParamListener[]>> m_listenerBlocks;
    CAudioParamListener* m_freeListeners = nullptr;
};

// Holds a parameter's lock for a scope, and counts it, so that host notifications wait
// until the last one is let go.
class CAudioParamLock
{
public:
    explicit CAudioParamLock(CAudioParam& param);
    ~CAudioParamLock();
    CAudioParamLock(const CAudioParamLock&) = delete;
    CAudioParamLock& operator=(const CAudioParamLock&) = delete;

private:
    CAudioParam& m_param;
};

} // namespace qel
