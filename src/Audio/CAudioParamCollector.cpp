#include "Audio/CAudioParamCollector.h"

#include "Audio/CAudioEnv.h"
#include "Audio/CAudioExtParamHostBridge.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/ParamFilters/CAudioParamFilter.h"
#include "Audio/ParamFilters/CAudioParamFilterDef.h"
#include "Audio/ParamFilters/CSharedParam.h"

#include <algorithm>
#include <mutex>

namespace qel {

CAudioParamCollector::CAudioParamCollector() = default;

CAudioParamCollector::~CAudioParamCollector()
{
    CAudioParamQueuedChange::freeList(m_pending);
    // Filters and shared parameters leave their parameters while those are still here.
    for (CFilterEntry& entry : m_filters)
        entry.filter->detach();
    m_filters.clear();
    m_sharedParams.clear();
    // A parameter gives the listener nodes still claiming it back as it goes: that must
    // happen while the nodes' blocks and their lock are still here.
    m_params.clear();
}

CErrorPtr CAudioParamCollector::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    QEL_RETURN_IF_ERROR(findObjectByAttr(m_env, CString("env")), getFullName());
    if (const CObject* project = findObject(CString("shared::project"))) {
        const int32_t groups = project->getAttrInt(CString("plugin-group-count"));
        if (groups > 0)
            m_reservedGroups = groups;
    }
    return nullptr;
}

CString CAudioParamCollector::resolveAlias(const CString& name) const
{
    CString target = name;
    // An alias chain can't loop for long: each step must lead to a name not seen before.
    for (size_t steps = 0; steps <= m_aliases.size(); ++steps) {
        auto alias = m_aliases.find(target);
        if (alias == m_aliases.end())
            break;
        target = alias->second;
    }
    return target;
}

CAudioParam* CAudioParamCollector::getParam(const CString& name)
{
    CLockGuard guard(m_paramsLock);
    const CString target = resolveAlias(name);
    auto it = m_params.find(target);
    if (it == m_params.end()) {
        it = m_params.emplace(target, std::make_unique<CAudioParam>(this, target)).first;
        if (m_isStarted)
            offerToRegistries(it->second.get());
    }
    return it->second.get();
}

CAudioParam* CAudioParamCollector::findParam(const CString& name)
{
    CLockGuard guard(m_paramsLock);
    auto it = m_params.find(resolveAlias(name));
    return it == m_params.end() ? nullptr : it->second.get();
}

void CAudioParamCollector::getParams(std::vector<CAudioParam*>& out)
{
    CLockGuard guard(m_paramsLock);
    out.clear();
    out.reserve(m_params.size());
    for (auto& entry : m_params)
        out.push_back(entry.second.get());
}

bool CAudioParamCollector::isAliased(const CString& name)
{
    CLockGuard guard(m_paramsLock);
    return m_aliases.count(name) != 0;
}

void CAudioParamCollector::addAlias(const CString& alias, const CString& target)
{
    CLockGuard guard(m_paramsLock);
    m_aliases[alias] = target;
}

void CAudioParamCollector::addSharedParam(const CString& paramName, CAppData* store, const CString& dataName)
{
    if (!store)
        return;
    CAudioParam* param = getParam(paramName);
    CLockGuard guard(m_linksLock);
    for (const auto& shared : m_sharedParams)
        if (&shared->param() == param && &shared->store() == store && shared->dataName() == dataName)
            return;
    m_sharedParams.push_back(std::make_unique<CSharedParam>(*this, *param, *store, dataName));
    m_sharedParams.back()->start();
}

CErrorPtr CAudioParamCollector::addFilter(const CAudioParamFilterDef& definition, const CString& processName,
                                          const std::vector<CString>& sourceNames,
                                          const std::vector<CString>& destinationNames)
{
    CLockGuard guard(m_linksLock);
    for (const CFilterEntry& entry : m_filters)
        if (entry.definition == &definition && entry.processName == processName)
            return nullptr;
    std::unique_ptr<CAudioParamFilter> filter(definition.createFilter());
    if (!filter)
        return nullptr;
    QEL_RETURN_IF_ERROR(filter->init(&definition, this, sourceNames, destinationNames), definition.getFullName());
    filter->attach();
    m_filters.push_back(CFilterEntry{&definition, processName, std::move(filter)});
    return nullptr;
}

size_t CAudioParamCollector::sharedParamCount()
{
    CLockGuard guard(m_linksLock);
    return m_sharedParams.size();
}

size_t CAudioParamCollector::filterCount()
{
    CLockGuard guard(m_linksLock);
    return m_filters.size();
}

void CAudioParamCollector::start()
{
    std::vector<CAudioParamRegistry*> registries;
    {
        CLockGuard guard(m_paramsLock);
        if (m_isStarted)
            return;
        m_isStarted = true;
        for (auto& entry : m_params)
            offerToRegistries(entry.second.get());
        registries = m_registries;
    }
    // Outside the lock: a registry takes its own locks first, and asks for parameters.
    for (CAudioParamRegistry* registry : registries)
        registry->start();
}

void CAudioParamCollector::offerToRegistries(CAudioParam* param)
{
    // An enumerated registry owns the parameters its presets load; the others must not
    // store them a second time.
    for (CAudioParamRegistry* registry : m_registries)
        if (registry->isEnumerated() && registry->addParam(param, param->name()))
            return;
    for (CAudioParamRegistry* registry : m_registries)
        if (!registry->isEnumerated())
            registry->addParam(param, param->name());
}

CAudioParamRegistry* CAudioParamCollector::findRegistry(const CString& fullName)
{
    CLockGuard guard(m_paramsLock);
    for (CAudioParamRegistry* registry : m_registries)
        if (registry->getFullName() == fullName)
            return registry;
    return nullptr;
}

void CAudioParamCollector::addRegistry(CAudioParamRegistry* registry)
{
    CLockGuard guard(m_paramsLock);
    if (std::find(m_registries.begin(), m_registries.end(), registry) != m_registries.end())
        return;
    m_registries.push_back(registry);
    const CString fullName = registry->getFullName();
    for (auto& entry : m_params) {
        CAudioParam* param = entry.second.get();
        // Selectors whose definition arrived before the registry joined.
        const CAudioParamInfo* info = param->info();
        if (info && info->registryName == fullName && info->elementSize == 1
            && info->dataType == CAudioParamStorage::Float)
            param->setRegistry(registry);
        if (m_isStarted)
            registry->addParam(param, param->name());
    }
}

void CAudioParamCollector::removeRegistry(CAudioParamRegistry* registry)
{
    CLockGuard guard(m_paramsLock);
    m_registries.erase(std::remove(m_registries.begin(), m_registries.end(), registry), m_registries.end());
    for (auto& entry : m_params)
        if (entry.second->registry() == registry)
            entry.second->setRegistry(nullptr);
}

void CAudioParamCollector::getRegistries(std::vector<CAudioParamRegistry*>& out)
{
    CLockGuard guard(m_paramsLock);
    out = m_registries;
}

// ---- the queue

void CAudioParamCollector::appendFolding(CAudioParamQueuedChange* change)
{
    // While audio sleeps nothing drains the queue: a change is folded into the last queued
    // one of its parameter and group, so the queue stays short however many edits come.
    // A defaults change is never folded, and nothing is folded across one.
    const CAudioParamChange& c = change->change();
    if (c.group != kParamDefaultsGroup) {
        CAudioParamQueuedChange* remembered = nullptr;
        for (CAudioParamQueuedChange* q = m_pending; q; q = q->next) {
            if (q->param() != change->param())
                continue;
            if (q->change().group == kParamDefaultsGroup)
                remembered = nullptr;
            else if (q->change().group == c.group)
                remembered = q;
        }
        if (remembered && remembered->merge(c)) {
            delete change;
            return;
        }
    }
    if (m_pendingTail)
        m_pendingTail->next = change;
    else
        m_pending = change;
    m_pendingTail = change;
}

void CAudioParamCollector::post(CAudioParamQueuedChange* change)
{
    change->next = nullptr;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    if (m_env->isActive()) {
        if (m_pendingTail)
            m_pendingTail->next = change;
        else
            m_pending = change;
        m_pendingTail = change;
        return;
    }
    appendFolding(change);
}

void CAudioParamCollector::postChanges(CAudioParamQueuedChange* list)
{
    if (!list)
        return;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    // While audio sleeps even a batch is folded change by change: it may hold many edits of
    // one element, as a queue that was empty before may not.
    if (m_env->isActive()) {
        CAudioParamQueuedChange* tail = list;
        while (tail->next)
            tail = tail->next;
        if (m_pendingTail)
            m_pendingTail->next = list;
        else
            m_pending = list;
        m_pendingTail = tail;
        return;
    }
    while (list) {
        CAudioParamQueuedChange* next = list->next;
        list->next = nullptr;
        appendFolding(list);
        list = next;
    }
}

CAudioParamQueuedChange* CAudioParamCollector::takePendingChanges()
{
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    CAudioParamQueuedChange* list = m_pending;
    m_pending = m_pendingTail = nullptr;
    return list;
}

void CAudioParamCollector::applyPendingChanges(CAudioParamQueuedChange* list)
{
    for (CAudioParamQueuedChange* q = list; q; q = q->next)
        q->param()->applyToAudio(q->change());
}

size_t CAudioParamCollector::pendingCount()
{
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    size_t count = 0;
    for (CAudioParamQueuedChange* q = m_pending; q; q = q->next)
        ++count;
    return count;
}

// ---- host notifications

void CAudioParamCollector::queueHostUpdate(CAudioExtParamHostBridge* bridge, int index, double value)
{
    {
        CLockGuard guard(m_updatesLock);
        m_hostUpdates.push_back(HostUpdate{bridge, index, value});
        if (m_lockDepth > 0 || m_batchDepth > 0)
            return;
        // Outside every lock already: deliver now, the way the last release does.
        ++m_lockDepth;
    }
    releaseUpdate(false);
}

void CAudioParamCollector::enterLock()
{
    CLockGuard guard(m_updatesLock);
    ++m_lockDepth;
}

void CAudioParamCollector::enterBatch()
{
    CLockGuard guard(m_updatesLock);
    ++m_batchDepth;
}

void CAudioParamCollector::releaseUpdate(bool isBatch)
{
    std::vector<HostUpdate> updates;
    {
        CLockGuard guard(m_updatesLock);
        int32_t& depth = isBatch ? m_batchDepth : m_lockDepth;
        if (depth > 0)
            --depth;
        // With nothing to deliver the list keeps its room: taking it would free it here,
        // and this may be the audio thread, writing a host's automation.
        if (m_lockDepth > 0 || m_batchDepth > 0 || m_hostUpdates.empty())
            return;
        updates.swap(m_hostUpdates);
    }
    // No parameter lock is held now; the host may call back into us.
    while (!updates.empty()) {
        for (const HostUpdate& update : updates)
            update.bridge->onExtParamChanged(update.index, update.value);
        updates.clear();
        CLockGuard guard(m_updatesLock);
        if (m_lockDepth > 0 || m_batchDepth > 0)
            return;
        updates.swap(m_hostUpdates);
    }
}

// ---- listener nodes

CAudioParamListener* CAudioParamCollector::allocListener()
{
    CLockGuard guard(m_listenerLock);
    if (!m_freeListeners) {
        // Block k holds 1 << k nodes, so claiming stays cheap however many there are.
        const size_t count = size_t(1) << m_listenerBlocks.size();
        m_listenerBlocks.push_back(std::make_unique<CAudioParamListener[]>(count));
        CAudioParamListener* block = m_listenerBlocks.back().get();
        for (size_t i = 0; i < count; ++i) {
            block[i].next = m_freeListeners;
            m_freeListeners = &block[i];
        }
    }
    CAudioParamListener* node = m_freeListeners;
    m_freeListeners = node->next;
    *node = CAudioParamListener{};
    return node;
}

void CAudioParamCollector::freeListener(CAudioParamListener* node)
{
    CLockGuard guard(m_listenerLock);
    node->next = m_freeListeners;
    m_freeListeners = node;
}

// ---- CAudioParamLock

CAudioParamLock::CAudioParamLock(CAudioParam& param) : m_param(param)
{
    if (param.collector())
        param.collector()->enterLock();
    param.lock().lock();
}

CAudioParamLock::~CAudioParamLock()
{
    m_param.lock().unlock();
    if (m_param.collector())
        m_param.collector()->releaseUpdate(false);
}

} // namespace qel
