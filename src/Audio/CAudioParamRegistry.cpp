#include "Audio/CAudioParamRegistry.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Audio/CAudioParamRegistryNameListener.h"
#include "Audio/CAudioParamUndo.h"
#include "Audio/CAudioPresetList.h"
#include "Audio/CAudioRoutingInfoProvider.h"
#include "Core/CAppData.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

namespace qel {
namespace {

const char* const kUserPresetName = "User";

CString nameBehindColon(const CString& fullName)
{
    CString id, name;
    CAudioPreset::splitPresetName(fullName, id, name);
    return name;
}

bool isBlank(char16_t c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Holds the collector's batch depth up for a scope: host notifications wait for its end.
class CBatchScope
{
public:
    explicit CBatchScope(CAudioParamCollector& collector) : m_collector(collector) { m_collector.enterBatch(); }
    ~CBatchScope() { m_collector.releaseUpdate(true); }
    CBatchScope(const CBatchScope&) = delete;
    CBatchScope& operator=(const CBatchScope&) = delete;

private:
    CAudioParamCollector& m_collector;
};

} // namespace

CAudioParamRegistry::CAudioParamRegistry() : m_nameListener(std::make_unique<CAudioParamRegistryNameListener>(this)) {}

CAudioParamRegistry::~CAudioParamRegistry()
{
    detach();
}

// ---- life cycle

CErrorPtr CAudioParamRegistry::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    m_hierarchy = getAttrString(CString("hierarchy"));
    m_hierarchy.append(".");
    QEL_RETURN_IF_ERROR(parseRemaps(getAttrString(CString("def-name-remap"))), getFullName());
    m_isMaster = getAttrBool(CString("is-master"));
    m_isEnumerated = getAttrBool(CString("is-enumerated"));
    m_isElementEnum = getAttrBool(CString("is-element-enum"));
    m_isGlobalParamStorable = getAttrBool(CString("is-global-param-storable"));
    m_file = getAttrString(CString("file"));
    m_storeName = getAttrString(CString("store-name"));
    m_id = getAttrString(CString("id"));
    QEL_RETURN_IF_ERROR(findObjectByAttr(m_collector, CString("param-collector")), getFullName());
    m_presetNaming = getAttrString(CString("preset-naming"));
    if (!getAttrString(CString("param-undo")).isEmpty())
        QEL_RETURN_IF_ERROR(findObjectByAttr(m_undo, CString("param-undo")), getFullName());
    const CString nameParam = getAttrString(CString("preset-name-param"));
    if (!nameParam.isEmpty())
        m_presetNameParam = m_collector->getParam(nameParam);
    const CString groupNames = getAttrString(CString("group-names-param"));
    if (!groupNames.isEmpty())
        m_groupNamesParam = m_collector->getParam(groupNames);
    if (m_isMaster)
        initMasterBanks();
    if (m_isEnumerated && !m_storeName.isEmpty())
        initEnumBank();
    return nullptr;
}

CErrorPtr CAudioParamRegistry::initChilds()
{
    QEL_RETURN_IF_ERROR(CObject::initChilds(), getFullName());
    if (m_presetNameParam)
        m_nameListener->setNotifier(m_collector, reinterpret_cast<uintptr_t>(m_presetNameParam));
    m_collector->addRegistry(this);
    m_joinedCollector = true;
    return nullptr;
}

void CAudioParamRegistry::releaseLinks()
{
    detach();
    CObject::releaseLinks();
}

void CAudioParamRegistry::detach()
{
    m_nameListener->setNotifier(nullptr, 0);
    if (m_joinedCollector) {
        m_collector->removeRegistry(this);
        m_joinedCollector = false;
    }
    std::vector<CAudioParam*> nameParams;
    {
        CLockGuard guard(m_smallLock);
        nameParams.swap(m_nameParams);
    }
    for (CAudioParam* param : nameParams)
        param->removeNameRegistry(this);
}

CErrorPtr CAudioParamRegistry::parseRemaps(const CString& text)
{
    m_nameRemaps.clear();
    for (int i = 0; i < text.length();) {
        while (i < text.length() && isBlank(text.at(i)))
            ++i;
        const int start = i;
        while (i < text.length() && !isBlank(text.at(i)))
            ++i;
        if (i == start)
            break;
        const CString pair = text.substring(start, i - start);
        const int equals = pair.find('=');
        if (equals < 0)
            return QEL_ERROR(getFullName(), "@qelstr_CAudioParamRegistry_init_InvalidRemap Invalid remapping string '%1' defined.",
                             pair);
        m_nameRemaps.push_back(CNameRemap{pair.substring(0, equals), pair.substring(equals + 1)});
    }
    return nullptr;
}

void CAudioParamRegistry::initMasterBanks()
{
    CLockGuard bank(m_bankLock);
    m_factoryBank.clear();
    m_sessionBank.clear();
    CErrorPtr error = m_file.isEmpty() ? nullptr : m_factoryBank.loadFile(m_file);
    if (m_file.isEmpty() || error) {
        // A missing or damaged factory bank leaves both banks to the one default preset.
        if (error) {
            error = QEL_TRAIL(error, getFullName());
            logError(error.get());
        }
        m_factoryBank = m_sessionBank;
    } else {
        m_sessionBank = m_factoryBank;
    }
    m_factoryBank.setName(CString("Factory ROM"));
    m_sessionBank.setName(CString("Session Bank"));
    if (m_sessionBank.presetCount() == 0)
        m_sessionBank.addPreset(CAudioPreset(m_id + CString(":Default")));
    m_histories.clear();
    m_histories.resize(size_t(m_sessionBank.presetCount()));

    // The user's own default preset, as the preset manager stored it.
    CByteArray bytes;
    CAppData::local().readData(CString("default-preset"), bytes, CAppData::kTagPresets, false);
    if (bytes.isEmpty())
        return;
    CAudioPreset stored;
    if (CErrorPtr readError = stored.fromBytes(bytes)) {
        readError = QEL_TRAIL(readError, getFullName());
        logError(readError.get());
        return;
    }
    CString id, name;
    CAudioPreset::splitPresetName(stored.name(), id, name);
    if (id != m_id)
        return;
    m_sessionBank.preset(0) = std::move(stored);
    m_hasStoredDefault = true;
}

void CAudioParamRegistry::initEnumBank()
{
    const bool isGlobal = m_storeName.at(0) == '/';
    CAppData& store = isGlobal ? CAppData::global() : CAppData::local();
    CByteArray bytes;
    store.readData(isGlobal ? m_storeName.substring(1) : m_storeName, bytes, CAppData::kTagList, false);
    if (bytes.isEmpty())
        return;
    CAudioPresetList list;
    if (CErrorPtr error = list.fromBytes(bytes)) {
        error = QEL_TRAIL(error, getFullName());
        logError(error.get());
        return;
    }
    if (!list.hasBank())
        return;
    CLockGuard guard(m_smallLock);
    m_enumBank = std::make_shared<const CAudioPresetBank>(list.bank());
}

// ---- the collector's side

bool CAudioParamRegistry::addParam(CAudioParam* param, const CString& name)
{
    CString key;
    if (!CAudioPreset::makeKey(name, m_hierarchy, key))
        return false;
    CLockGuard guard(m_smallLock);
    m_pendingParams.push_back(CPending{param, key});
    // A hand edit of one of these parameters makes the shown preset name a lie.
    if (!m_isMaster && !m_isEnumerated && m_presetNameParam && param != m_presetNameParam) {
        param->addNameRegistry(this);
        m_nameParams.push_back(param);
    }
    return true;
}

void CAudioParamRegistry::flushPending()
{
    std::vector<CPending> taken;
    {
        CLockGuard guard(m_smallLock);
        taken.swap(m_pendingParams);
    }
    for (CPending& pending : taken)
        m_paramsByKey[pending.key] = pending.param;
}

CAudioParam* CAudioParamRegistry::findByKey(const CString& key)
{
    auto it = m_paramsByKey.find(key);
    return it == m_paramsByKey.end() ? nullptr : it->second;
}

void CAudioParamRegistry::start()
{
    m_isStarted.store(true, std::memory_order_release);
    if (m_isMaster) {
        CLockGuard bank(m_bankLock);
        const CAudioPreset first = m_sessionBank.preset(0);
        CAudioParamUpdateContext context;
        if (CErrorPtr error = applyPreset(first, false, true, context, -1, -1, true)) {
            error = QEL_TRAIL(error, getFullName());
            logError(error.get());
        }
        // Its values are the defaults from now on.
        if (CErrorPtr error = applyPreset(first, true, true, context, -1, -1, true)) {
            error = QEL_TRAIL(error, getFullName());
            logError(error.get());
        }
        if (!m_hasStoredDefault)
            if (CAudioParam* instanceName = m_collector->findParam(m_hierarchy + CString("instance-name")))
                instanceName->reset(-1, -1, true, context, this);
    }
    if (m_isEnumerated) {
        // A selector shows a mode from the first moment ("Tube 2", "Very Soft") that the
        // covered parameters' own defaults don't match: each group gets the preset its
        // selector shows, so that what the user sees is what sounds. A reset of the
        // selector later comes through onSelectorChanged and does the same.
        std::vector<CAudioParam*> params;
        m_collector->getParams(params);
        CAudioParamQueuedChange* batch = nullptr;
        CAudioParamUpdateContext context;
        context.batchTail = &batch;
        {
            CBatchScope scope(*m_collector);
            for (CAudioParam* param : params)
                if (param->registry() == this)
                    applySelection(*param, context);
            postLocal(batch);
        }
    }
}

void CAudioParamRegistry::applySelection(CAudioParam& selector, CAudioParamUpdateContext& context)
{
    const int32_t groups = std::max(m_collector->reservedGroups(), 1);
    for (int32_t g = 0; g < groups; ++g) {
        std::vector<double> values;
        bool isSingleGroup = false;
        {
            CAudioParamLock lock(selector);
            const CAudioParamStorage& shown = selector.values();
            if (!shown.isFormatSet())
                return;
            isSingleGroup = shown.isSingleGroup();
            const int32_t count = shown.elementCount(g);
            if (count > 0)
                values.assign(shown.groupValues(g), shown.groupValues(g) + count);
            else
                values = shown.defaultValues();
        }
        CAudioParamChange change;
        change.group = g;
        change.elementCount = int32_t(values.size());
        change.isListEnd = true;
        change.isSingleGroup = isSingleGroup;
        change.values = values.data();
        change.source = this;
        onSelectorChanged(change, context);
        if (isSingleGroup)
            return;
    }
}

void CAudioParamRegistry::onSelectorChanged(const CAudioParamChange& change, CAudioParamUpdateContext& context,
                                            CAudioParam* selector)
{
    // Changes of the defaults and those before start select nothing: start applies what
    // the selector shows by then.
    if (!m_isStarted.load(std::memory_order_acquire) || change.group == kParamDefaultsGroup)
        return;
    const std::shared_ptr<const CAudioPresetBank> bank = enumBankSnapshot();
    if (!bank)
        return;
    auto indexOf = [&](int32_t k) { return std::lround(change.values[k]); };
    auto logFailure = [&](CErrorPtr error) {
        if (error) {
            error = QEL_TRAIL(error, getFullName());
            logError(error.get());
        }
    };
    if (!m_isElementEnum) {
        if (change.firstElement > 0)
            return;
        if (change.elementCount == 0 && change.isListEnd && selector) {
            // A cut list (a reset) reads the selector's default: what it shows is what
            // sounds.
            std::vector<double> shown;
            {
                CAudioParamLock lock(*selector);
                shown = selector->values().defaultValues();
            }
            if (!shown.empty()) {
                CAudioParamChange showing = change;
                showing.elementCount = 1;
                showing.values = shown.data();
                onSelectorChanged(showing, context, nullptr);
                return;
            }
        }
        if (change.elementCount >= 1 && change.values) {
            const long index = indexOf(0);
            if (index >= 0 && index < bank->presetCount()) {
                logFailure(applyPreset(bank->preset(int32_t(index)), false, false, context, change.group, -1, true));
                return;
            }
        }
        resetParams(context, change.group, -1, false);
        return;
    }
    if (change.firstElement == 0 && change.elementCount == 0 && change.isListEnd) {
        resetParams(context, change.group, -1, true);
        return;
    }
    for (int32_t k = 0; k < change.elementCount && change.values; ++k) {
        const int32_t element = change.firstElement + k;
        const bool isListEnd = change.isListEnd && k == change.elementCount - 1;
        const long index = indexOf(k);
        if (index >= 0 && index < bank->presetCount())
            logFailure(applyPreset(bank->preset(int32_t(index)), false, false, context, change.group, element, isListEnd));
        else
            resetParams(context, change.group, element, isListEnd);
    }
}

// ---- the core

bool CAudioParamRegistry::isStoredInfo(const CAudioParamInfo& info, bool includePersistent) const
{
    return info.isStorable || (info.isPersistent && includePersistent) || (m_isGlobalParamStorable && info.isGlobal);
}

bool CAudioParamRegistry::isStoredParam(const CAudioParam& param, bool includePersistent) const
{
    const CAudioParamInfo* info = param.info();
    return info && isStoredInfo(*info, includePersistent);
}

const CAudioParamInfo* CAudioParamRegistry::lookUpDefinition(const CString& paramName) const
{
    for (const CNameRemap& remap : m_nameRemaps) {
        const int prefix = remap.oldPrefix.length();
        if (paramName.length() < prefix || compareStrings(paramName.substring(0, prefix), remap.oldPrefix) != 0)
            continue;
        const CString definitionName = remap.newPrefix + paramName.substring(prefix);
        if (auto* definition = dynamic_cast<CAudioParamDef*>(findObject(CString("shared::") + definitionName)))
            return &definition->info();
    }
    return nullptr;
}

bool CAudioParamRegistry::resolveDefinition(CAudioParam& param, CAudioParamUpdateContext& context)
{
    if (param.info())
        return true;
    const CAudioParamInfo* info = lookUpDefinition(param.name());
    if (!info)
        return false;
    param.attachDefinition(info, context);
    return true;
}

CErrorPtr CAudioParamRegistry::applyPreset(const CAudioPreset& preset, bool asDefaults, bool includePersistent,
                                           CAudioParamUpdateContext& context, int32_t group, int32_t element,
                                           bool isListEnd)
{
    CBatchScope scope(*m_collector);
    CLockGuard guard(m_paramsLock);
    flushPending();
    // The audio side takes the whole preset as one list, whether or not the caller
    // gathers its own batch.
    CAudioParamQueuedChange* local = nullptr;
    CAudioParamUpdateContext applying = context;
    if (!applying.batchTail)
        applying.batchTail = &local;

    CMap<CString, CAudioParam*> untouched;
    if (!asDefaults)
        untouched = m_paramsByKey;
    CErrorPtr error;
    for (const auto& [key, entry] : preset.entries()) {
        CAudioParam* param = findByKey(key);
        if (!param) {
            // Made here, offered to the registries, and ours when it lies under us and no
            // enumerated registry claims it.
            m_collector->getParam(m_hierarchy + key);
            flushPending();
            param = findByKey(key);
            if (!param)
                continue;
        }
        untouched.erase(key);
        // One that isn't stored isn't even locked: a selector may be in the middle of a
        // change of its own.
        if (param->info() && !isStoredParam(*param, includePersistent))
            continue;
        CAudioParamLock lock(*param);
        if (!resolveDefinition(*param, applying) || !isStoredParam(*param, includePersistent))
            continue;
        error = param->load(entry, asDefaults, applying, group, element, isListEnd, this);
        if (error) {
            error = QEL_TRAIL(error, key);
            break;
        }
    }
    if (!asDefaults && !error) {
        // A stored parameter the preset lacks goes to its default, not its old value.
        for (const auto& [key, param] : untouched) {
            if (param->info() && !isStoredParam(*param, includePersistent))
                continue;
            CAudioParamLock lock(*param);
            if (resolveDefinition(*param, applying) && isStoredParam(*param, includePersistent))
                param->reset(group, element, isListEnd, applying, this);
        }
        if (CAudioRoutingInfoProvider* provider = m_routingProvider.load(std::memory_order_acquire))
            provider->updateRouting(applying);
    }
    if (!context.batchTail)
        postLocal(local);
    else
        context.batchTail = applying.batchTail;
    flushPending();
    return error;
}

void CAudioParamRegistry::postLocal(CAudioParamQueuedChange* batch)
{
    if (batch)
        m_collector->postChanges(batch);
}

void CAudioParamRegistry::resetParams(CAudioParamUpdateContext& context, int32_t group, int32_t element, bool isListEnd)
{
    CBatchScope scope(*m_collector);
    CLockGuard guard(m_paramsLock);
    flushPending();
    CAudioParamQueuedChange* local = nullptr;
    CAudioParamUpdateContext resetting = context;
    if (!resetting.batchTail)
        resetting.batchTail = &local;
    resetLocked(resetting, group, element, isListEnd);
    if (!context.batchTail)
        postLocal(local);
    else
        context.batchTail = resetting.batchTail;
}

void CAudioParamRegistry::resetLocked(CAudioParamUpdateContext& context, int32_t group, int32_t element, bool isListEnd)
{
    for (const auto& [key, param] : m_paramsByKey) {
        if (param->info() && !isStoredParam(*param, false))
            continue;
        CAudioParamLock lock(*param);
        if (resolveDefinition(*param, context) && isStoredParam(*param, false))
            param->reset(group, element, isListEnd, context, this);
    }
}

void CAudioParamRegistry::capturePreset(CAudioPreset& preset, int32_t group)
{
    CString name;
    if (m_isMaster) {
        CLockGuard bank(m_bankLock);
        name = m_sessionBank.preset(m_currentPreset.load()).name();
    } else {
        name = m_id + CString(":");
        if (m_presetNameParam)
            name.append(m_presetNameParam->getString(std::max(group, 0), 0));
    }
    preset.clear();
    preset.setName(name);
    CLockGuard guard(m_paramsLock);
    flushPending();
    for (const auto& [key, param] : m_paramsByKey) {
        if (!isStoredParam(*param, true))
            continue;
        CAudioParamLock lock(*param);
        if (group >= 0 && param->values().elementCount(group) == 0)
            continue;
        if (CErrorPtr error = param->save(preset.entry(key), group)) {
            preset.removeEntry(key);
            error = QEL_TRAIL(error, getFullName());
            logError(error.get());
        }
    }
}

CErrorPtr CAudioParamRegistry::checkPreset(const CAudioPreset& preset, bool includePersistent)
{
    CLockGuard guard(m_paramsLock);
    flushPending();
    const int32_t maxGroups = m_collector->reservedGroups();
    for (const auto& [key, entry] : preset.entries()) {
        const CString name = m_hierarchy + key;
        CAudioParam* param = findByKey(key);
        // One that exists but belongs to another registry is left alone by the apply.
        if (!param && m_collector->findParam(name))
            continue;
        const CAudioParamInfo* info = param ? param->info() : nullptr;
        if (!info)
            info = lookUpDefinition(name);
        if (!info || !isStoredInfo(*info, includePersistent))
            continue;
        CAudioParamStorage parsed;
        QEL_RETURN_IF_ERROR(CAudioParam::parseEntry(*info, maxGroups, entry, parsed), key);
    }
    return nullptr;
}

CErrorPtr CAudioParamRegistry::readChecked(CInputStream& in, bool includePersistent, CAudioPreset& out)
{
    CAudioPreset preset;
    QEL_RETURN_IF_ERROR(preset.read(in), getFullName());
    CString id, name;
    CAudioPreset::splitPresetName(preset.name(), id, name);
    if (id != m_id)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamRegistry_activatePreset_IncompatiblePreset Incompatible preset.");
    // All of it is checked before anything changes: a damaged state changes nothing.
    QEL_RETURN_IF_ERROR(checkPreset(preset, includePersistent), getFullName());
    out = std::move(preset);
    return nullptr;
}

// ---- presets and programs

CErrorPtr CAudioParamRegistry::activatePreset(CInputStream& in, bool includePersistent, int32_t group, const void* source)
{
    CAudioPreset preset;
    QEL_RETURN_IF_ERROR(readChecked(in, includePersistent, preset), CString());
    CString undoName = m_presetNaming;
    if (group >= 0)
        undoName.append(" activate (").append(groupName(group)).append(")");
    else
        undoName.append(" activate");
    std::unique_ptr<CAudioParamUndoData> entry = makeUndo(undoName);
    CErrorPtr error;
    {
        CLockGuard bank(m_bankLock);
        adoptPendingName();
        CAudioParamUpdateContext context;
        context.undo = entry.get();
        error = applyPreset(preset, false, includePersistent, context, group, -1, true);
        setPresetName(preset.name(), false, true, true, source ? source : this, entry.get(), group);
        submitUndo(std::move(entry));
    }
    if (error)
        return QEL_TRAIL(error, getFullName());
    return nullptr;
}

CErrorPtr CAudioParamRegistry::acquirePreset(bool isFactory, int32_t index, int32_t group, COutputStream& out)
{
    if (!m_isMaster) {
        CAudioPreset preset;
        capturePreset(preset, group);
        QEL_RETURN_IF_ERROR(preset.write(out), getFullName());
        return nullptr;
    }
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    if (isFactory) {
        const CAudioPreset* preset = factoryPreset(index);
        if (!preset)
            return QEL_ERROR(getFullName(), "@qelstr_CAudioParamRegistry_acquirePreset_PresetIndexError Invalid preset index %1 specified.",
                             CString::number(index));
        QEL_RETURN_IF_ERROR(preset->write(out), getFullName());
        return nullptr;
    }
    if (index == -1)
        index = m_currentPreset.load();
    if (index < 0 || index >= m_sessionBank.presetCount())
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamRegistry_acquirePreset_PresetIndexError Invalid preset index %1 specified.",
                         CString::number(index));
    if (index == m_currentPreset.load())
        captureCurrent();
    QEL_RETURN_IF_ERROR(m_sessionBank.preset(index).write(out), getFullName());
    return nullptr;
}

CErrorPtr CAudioParamRegistry::acquireBank(bool isFactory, COutputStream& out)
{
    if (!m_isMaster)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioParamRegistry_acquireBank_NonMasterRegistry Acquiring bank in a non-master registry is an error.");
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    if (isFactory) {
        QEL_RETURN_IF_ERROR(m_factoryBank.write(out), getFullName());
        return nullptr;
    }
    captureCurrent();
    {
        // A persistent parameter is the same in every program.
        CLockGuard guard(m_paramsLock);
        flushPending();
        const int32_t current = m_currentPreset.load();
        for (const auto& [key, param] : m_paramsByKey) {
            const CAudioParamInfo* info = param->info();
            if (!info || !info->isPersistent)
                continue;
            CPresetEntry entry;
            if (CErrorPtr error = param->save(entry, -1)) {
                error = QEL_TRAIL(error, getFullName());
                logError(error.get());
                continue;
            }
            for (int32_t i = 0; i < m_sessionBank.presetCount(); ++i)
                if (i != current)
                    m_sessionBank.preset(i).entry(key) = entry;
        }
    }
    QEL_RETURN_IF_ERROR(m_sessionBank.write(out), getFullName());
    return nullptr;
}

void CAudioParamRegistry::captureCurrent()
{
    CAudioPreset captured;
    capturePreset(captured, -1);
    m_sessionBank.preset(m_currentPreset.load()) = std::move(captured);
}

const CAudioPreset* CAudioParamRegistry::factoryPreset(int32_t index) const
{
    if (index >= 0 && index < m_factoryBank.presetCount())
        return &m_factoryBank.preset(index);
    // Without a factory bank the session's first preset stands in for it: it is the one
    // default preset there is, as getFactoryPresetCount promises.
    if (index == 0 && m_factoryBank.presetCount() == 0 && m_sessionBank.presetCount() > 0)
        return &m_sessionBank.preset(0);
    return nullptr;
}

void CAudioParamRegistry::activateFactoryPreset(int32_t index)
{
    if (!m_isMaster)
        return;
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    const CAudioPreset* found = factoryPreset(index);
    if (!found) {
        CErrorPtr error = QEL_ERROR(getFullName(), "@qelstr_CAudioParamRegistry_acquirePreset_PresetIndexError Invalid preset index %1 specified.",
                                    CString::number(index));
        logError(error.get());
        return;
    }
    const CAudioPreset preset = *found;
    std::unique_ptr<CAudioParamUndoData> entry = makeUndo(CString("ROM preset activate"));
    CAudioParamUpdateContext context;
    context.undo = entry.get();
    if (CErrorPtr error = applyPreset(preset, false, false, context, -1, -1, true)) {
        error = QEL_TRAIL(error, getFullName());
        logError(error.get());
    }
    setPresetName(preset.name(), false, true, true, this, entry.get(), 0);
    submitUndo(std::move(entry));
}

void CAudioParamRegistry::setCurrentProgram(int32_t index, const void* source)
{
    if (!m_isMaster)
        return;
    {
        CLockGuard bank(m_bankLock);
        adoptPendingName();
        const int32_t current = m_currentPreset.load();
        if (index < 0 || index >= m_sessionBank.presetCount() || index == current)
            return;
        captureCurrent();
        // Undo never crosses programs: each has its history.
        if (m_histories.size() < size_t(m_sessionBank.presetCount()))
            m_histories.resize(size_t(m_sessionBank.presetCount()));
        if (m_undo)
            m_undo->swapHistories(m_histories[size_t(current)], m_histories[size_t(index)]);
        m_currentPreset.store(index);
        const CAudioPreset coming = m_sessionBank.preset(index);
        CAudioParamUpdateContext context;
        if (CErrorPtr error = applyPreset(coming, false, false, context, -1, -1, true)) {
            error = QEL_TRAIL(error, getFullName());
            logError(error.get());
        }
        if (m_presetNameParam)
            m_presetNameParam->setString(0, 0, nameBehindColon(coming.name()), this, context);
    }
    notifyUpdate(source);
}

void CAudioParamRegistry::renamePreset(int32_t index, const CString& name, const void* source)
{
    const CString fullName = m_id + CString(":") + name;
    {
        CLockGuard bank(m_bankLock);
        adoptPendingName();
        if (!m_isMaster || index == m_currentPreset.load()) {
            setPresetName(fullName, true, true, true, source, nullptr, 0);
            return;
        }
        if (index < 0 || index >= m_sessionBank.presetCount())
            return;
        m_sessionBank.preset(index).setName(fullName);
    }
    notifyUpdate(source);
}

void CAudioParamRegistry::setPresetName(const CString& fullName, bool isOwnUndo, bool toBank, bool toParam,
                                        const void* source, CAudioParamUndoData* undo, int32_t group)
{
    if (m_isMaster && toBank) {
        {
            CLockGuard bank(m_bankLock);
            m_sessionBank.preset(m_currentPreset.load()).setName(fullName);
        }
        notifyUpdate(source);
    }
    if (!toParam || !m_presetNameParam)
        return;
    std::unique_ptr<CAudioParamUndoData> own;
    if (isOwnUndo && !undo) {
        own = makeUndo(CString("Program name change"));
        undo = own.get();
    }
    CAudioParamUpdateContext context;
    context.undo = undo;
    m_presetNameParam->setString(std::max(group, 0), 0, nameBehindColon(fullName), this, context);
    if (own)
        submitUndo(std::move(own));
}

void CAudioParamRegistry::getPresetNames(bool isFactory, std::vector<CString>& names, int32_t& current)
{
    names.clear();
    current = -1;
    if (!m_isMaster) {
        if (const std::shared_ptr<const CAudioPresetBank> bank = enumBankSnapshot())
            for (int32_t i = 0; i < bank->presetCount(); ++i)
                names.push_back(bank->preset(i).name());
        return;
    }
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    if (isFactory) {
        for (int32_t i = 0; factoryPreset(i); ++i)
            names.push_back(factoryPreset(i)->name());
        return;
    }
    for (int32_t i = 0; i < m_sessionBank.presetCount(); ++i)
        names.push_back(m_sessionBank.preset(i).name());
    current = m_currentPreset.load();
}

int32_t CAudioParamRegistry::getFactoryPresetCount()
{
    if (!m_isMaster)
        return 0;
    CLockGuard bank(m_bankLock);
    return std::max(m_factoryBank.presetCount(), 1);
}

int32_t CAudioParamRegistry::getSessionPresetCount()
{
    CLockGuard bank(m_bankLock);
    return m_sessionBank.presetCount();
}

int32_t CAudioParamRegistry::getCurrentPreset()
{
    return m_currentPreset.load();
}

CString CAudioParamRegistry::getPresetName(int32_t index)
{
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    return index >= 0 && index < m_sessionBank.presetCount() ? m_sessionBank.preset(index).name() : CString();
}

CErrorPtr CAudioParamRegistry::setDefaultPreset(CInputStream& in)
{
    if (!m_isMaster)
        return nullptr;
    CAudioPreset preset;
    QEL_RETURN_IF_ERROR(readChecked(in, false, preset), CString());
    CLockGuard bank(m_bankLock);
    CAudioParamUpdateContext context;
    QEL_RETURN_IF_ERROR(applyPreset(preset, true, false, context, -1, -1, true), getFullName());
    return nullptr;
}

void CAudioParamRegistry::activateDefaultPreset()
{
    if (!m_isMaster)
        return;
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    std::unique_ptr<CAudioParamUndoData> entry = makeUndo(CString("Master reset"));
    CAudioParamQueuedChange* batch = nullptr;
    CAudioParamUpdateContext context;
    context.undo = entry.get();
    context.batchTail = &batch;
    {
        CBatchScope scope(*m_collector);
        {
            CLockGuard guard(m_paramsLock);
            flushPending();
            for (const auto& [key, param] : m_paramsByKey) {
                CAudioParamLock lock(*param);
                const CAudioParamInfo* info = param->info();
                if (info && info->isStorable && param != m_presetNameParam)
                    param->reset(-1, -1, true, context, this);
            }
        }
        if (m_presetNameParam)
            m_presetNameParam->reset(-1, -1, true, context, this);
        if (CAudioRoutingInfoProvider* provider = m_routingProvider.load(std::memory_order_acquire))
            provider->updateRouting(context);
        postLocal(batch);
    }
    submitUndo(std::move(entry));
    if (m_presetNameParam)
        setPresetName(m_id + CString(":") + m_presetNameParam->getString(0, 0), false, true, false, this, nullptr, 0);
}

// ---- A/B

void CAudioParamRegistry::updateShadowPreset()
{
    CLockGuard bank(m_bankLock);
    if (!m_shadowPreset)
        m_shadowPreset = std::make_unique<CAudioPreset>();
    capturePreset(*m_shadowPreset, -1);
    if (m_undo)
        m_undo->copyHistory(m_shadowHistory);
}

void CAudioParamRegistry::exchangeShadowPreset()
{
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    if (!m_shadowPreset) {
        m_shadowPreset = std::make_unique<CAudioPreset>();
        capturePreset(*m_shadowPreset, -1);
        if (m_undo)
            m_undo->copyHistory(m_shadowHistory);
    }
    auto leaving = std::make_unique<CAudioPreset>();
    capturePreset(*leaving, -1);
    // Not undoable itself: the histories go along instead.
    CAudioParamUpdateContext context;
    if (CErrorPtr error = applyPreset(*m_shadowPreset, false, false, context, -1, -1, true)) {
        error = QEL_TRAIL(error, getFullName());
        logError(error.get());
    }
    setPresetName(m_shadowPreset->name(), false, true, true, this, nullptr, 0);
    if (m_undo) {
        std::unique_ptr<CAudioParamUndoHistory> parked;
        m_undo->swapHistories(parked, m_shadowHistory);
        m_shadowHistory = std::move(parked);
    }
    m_shadowPreset = std::move(leaving);
}

// ---- names, undo, notifications

void CAudioParamRegistry::onParamEdited(CAudioParam& param, int32_t group, CAudioParamUpdateContext& context)
{
    std::vector<CAudioParamRegistry*> registries;
    param.getNameRegistries(registries);
    const CString user(kUserPresetName);
    for (CAudioParamRegistry* registry : registries) {
        CAudioParam* nameParam = registry->m_presetNameParam;
        if (!nameParam || !registry->isStoredParam(param, false))
            continue;
        if (nameParam->getString(group, 0) == user)
            continue;
        nameParam->setString(group, 0, user, registry, context);
    }
}

void CAudioParamRegistry::adoptNameFromParam(const CString& fullName)
{
    if (!m_isMaster)
        return;
    // Called under the name parameter's lock, where bankLock may only be had if nobody
    // else holds it; otherwise the name waits for the next bank operation.
    std::unique_lock<CCriticalSection> bank(m_bankLock, std::try_to_lock);
    if (!bank.owns_lock()) {
        CLockGuard guard(m_smallLock);
        m_pendingName = fullName;
        m_pendingNameIndex = m_currentPreset.load();
        m_hasPendingName = true;
        return;
    }
    m_sessionBank.preset(m_currentPreset.load()).setName(fullName);
    bank.unlock();
    notifyUpdate(this);
}

void CAudioParamRegistry::adoptPendingName()
{
    CString name;
    int32_t index = -1;
    {
        CLockGuard guard(m_smallLock);
        if (!m_hasPendingName)
            return;
        m_hasPendingName = false;
        name = m_pendingName;
        index = m_pendingNameIndex;
    }
    if (index >= 0 && index < m_sessionBank.presetCount())
        m_sessionBank.preset(index).setName(name);
}

CString CAudioParamRegistry::groupName(int32_t group)
{
    return m_groupNamesParam ? m_groupNamesParam->getString(0, group) : CString::number(group);
}

std::unique_ptr<CAudioParamUndoData> CAudioParamRegistry::makeUndo(const CString& name) const
{
    return m_undo ? std::make_unique<CAudioParamUndoData>(name) : nullptr;
}

void CAudioParamRegistry::submitUndo(std::unique_ptr<CAudioParamUndoData> entry)
{
    if (m_undo && entry)
        m_undo->submit(std::move(entry));
}

void CAudioParamRegistry::notifyUpdate(const void* source)
{
    CAudioParamRegistryUpdateMessage message;
    message.source = reinterpret_cast<uint64_t>(source);
    message.key = kUpdateKey;
    message.registry = this;
    message.requestSource = source;
    notify(&message);
}

// ---- queries

void CAudioParamRegistry::setRoutingProvider(CAudioRoutingInfoProvider* provider)
{
    m_routingProvider.store(provider, std::memory_order_release);
}

bool CAudioParamRegistry::isRoutingPresetUsable(const CAudioPreset& preset, bool hasMidSide, bool hasSideChain)
{
    // Each of these is one float per element; a list that doesn't parse needs nothing.
    auto parsed = [&](const char* key, CAudioParamStorage& values) {
        const CPresetEntry* entry = preset.findEntry(CString(key));
        if (!entry)
            return false;
        values.setFormat(1, CAudioParamStorage::Float, false, false);
        CString definitionName;
        CErrorPtr error = entry->parse(definitionName, values);
        return !error;
    };
    auto anyElement = [](const CAudioParamStorage& values, auto&& test) {
        for (int32_t g = 0; g < values.groupCount(); ++g)
            for (int32_t e = 0; e < values.elementCount(g); ++e)
                if (test(e, values.groupValues(g)[e]))
                    return true;
        return false;
    };
    CAudioParamStorage values;
    const bool needsMidSide = parsed("ms-pairs", values) && anyElement(values, [](int32_t, double v) { return v != 0.0; });
    bool needsSideChain = parsed("sidechain", values)
                          && anyElement(values, [](int32_t e, double v) { return v != double(e); });
    const bool mutesSideChain = parsed("sidechain-mute", values)
                                && anyElement(values, [](int32_t, double v) { return v != 0.0; });
    if (needsMidSide && !hasMidSide)
        return false;
    if (mutesSideChain)
        return hasSideChain;
    return !(needsSideChain && !hasSideChain);
}

void CAudioParamRegistry::splitPresetName(const CString& fullName, CString& outId, CString& outName)
{
    CAudioPreset::splitPresetName(fullName, outId, outName);
}

CAudioPresetBank CAudioParamRegistry::copyFactoryBank()
{
    CLockGuard bank(m_bankLock);
    return m_factoryBank;
}

CAudioPresetBank CAudioParamRegistry::copySessionBank()
{
    CLockGuard bank(m_bankLock);
    adoptPendingName();
    return m_sessionBank;
}

CAudioPresetBank CAudioParamRegistry::copyEnumBank()
{
    const std::shared_ptr<const CAudioPresetBank> bank = enumBankSnapshot();
    return bank ? *bank : CAudioPresetBank();
}

void CAudioParamRegistry::setEnumBank(const CAudioPresetBank& bank)
{
    auto made = std::make_shared<const CAudioPresetBank>(bank);
    CLockGuard guard(m_smallLock);
    m_enumBank = std::move(made);
}

std::shared_ptr<const CAudioPresetBank> CAudioParamRegistry::enumBankSnapshot()
{
    CLockGuard guard(m_smallLock);
    return m_enumBank;
}

} // namespace qel
