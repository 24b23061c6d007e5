#pragma once

#include "Audio/CAudioParamChange.h"
#include "Audio/CAudioParamUpdateContext.h"
#include "Audio/CAudioPreset.h"
#include "Audio/CAudioPresetBank.h"
#include "Core/CCriticalSection.h"
#include "Core/CError.h"
#include "Core/CMap.h"
#include "Core/CObject.h"
#include "Core/CString.h"
#include "Core/CUpdateNotifier.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CAudioParam;
class CAudioParamCollector;
class CAudioParamInfo;
class CAudioParamQueuedChange;
class CAudioParamRegistryNameListener;
class CAudioParamUndo;
class CAudioParamUndoData;
class CAudioParamUndoHistory;
class CAudioRoutingInfoProvider;
class CInputStream;
class COutputStream;

class CAudioParamRegistry;

// What the registry's listeners hear after the preset list or the current program
// changed. `source` (of the base message) is the address the requester gave, so that a
// requester can tell its own requests from the others'.
struct CAudioParamRegistryUpdateMessage : CUpdateMessage
{
    CAudioParamRegistry* registry = nullptr;
    const void* requestSource = nullptr;
};

// A preset system over the parameters whose full names begin with `hierarchy` (tag
// audio:param-registry). The master registry covers the whole instance: it owns the
// factory bank (from the module's resources) and the session bank, whose presets are the
// host's programs, each with an undo history of its own, and the A/B shadow state. An
// enumerated registry binds a bank of presets (read from an application data store) to
// the stepped parameter that names it in `param-registry`: choosing a step loads that
// preset into the step's group. Other registries just read and write presets of their
// family.
//
// Preset names are `id:name`. Entries are keyed by the parameter's name less
// `hierarchy`; their blobs are opaque here and handed to the parameter.
//
// Threads: the UI thread (protocol) and the host's threads (wrapper); never the audio
// thread. Lock order: bankLock, then paramsLock, then the parameters' own locks.
// Listeners of the update notifier attach with context kUpdateKey.
class CAudioParamRegistry : public CObject, public CUpdateNotifier
{
public:
    static constexpr uintptr_t kUpdateKey = 0;

    CAudioParamRegistry();
    ~CAudioParamRegistry() override;

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;
    // Registers the name listener and joins the collector, once the whole tree is made.
    CErrorPtr initChilds() override;
    void releaseLinks() override;

    // ---- presets and programs
    // Reads one preset in its stream form (no block around it), checks the whole of it,
    // and applies it with an undo entry. A preset of another family, or one with a stored
    // entry that doesn't parse against its parameter, changes nothing, not even the name.
    // `group` -1: all groups. `source` is who asked (passed to the update notifier).
    CErrorPtr activatePreset(CInputStream& in, bool includePersistent, int32_t group, const void* source = nullptr);
    // Writes one preset stream. Master: factory preset `index`, or session preset `index`
    // (-1: the current one, brought up to date first). Others: the live state of `group`.
    CErrorPtr acquirePreset(bool isFactory, int32_t index, int32_t group, COutputStream& out);
    // Writes a bank stream; master only.
    CErrorPtr acquireBank(bool isFactory, COutputStream& out);
    // The factory preset's values into the current program; logged, not returned, on failure.
    void activateFactoryPreset(int32_t index);
    // Master only; out of range or the current index: nothing happens.
    void setCurrentProgram(int32_t index, const void* source);
    // `name` without id.
    void renamePreset(int32_t index, const CString& name, const void* source);
    // Full names (`id:name`); `current` is -1 for the factory bank and on a non-master.
    void getPresetNames(bool isFactory, std::vector<CString>& names, int32_t& current);
    // At least 1 on a master (an empty factory bank still offers its default), 0 elsewhere.
    int32_t getFactoryPresetCount();
    int32_t getSessionPresetCount();
    int32_t getCurrentPreset();
    // Full name of session preset `index`; empty out of range. splitPresetName gives the
    // part a user sees.
    CString getPresetName(int32_t index);
    // Master only: the preset's values become the parameters' defaults.
    CErrorPtr setDefaultPreset(CInputStream& in);
    // Master only: every stored parameter back to its defaults, with undo.
    void activateDefaultPreset();

    // ---- A/B
    void updateShadowPreset();
    void exchangeShadowPreset();

    // ---- the core
    // Applies `preset`. The collector's batch depth is raised meanwhile, and unless the
    // context brings a batch of its own the changes reach the audio thread as one list.
    // Without `asDefaults`, covered stored parameters the preset lacks go to their
    // defaults for `group` and `element`. A broken entry stops it with that entry's error;
    // what was applied stays applied.
    CErrorPtr applyPreset(const CAudioPreset& preset, bool asDefaults, bool includePersistent,
                          CAudioParamUpdateContext& context, int32_t group, int32_t element, bool isListEnd);
    // The live state of the stored parameters; `group` -1: all groups.
    void capturePreset(CAudioPreset& preset, int32_t group);
    // Covered stored parameters back to their defaults.
    void resetParams(CAudioParamUpdateContext& context, int32_t group, int32_t element, bool isListEnd);
    void setPresetName(const CString& fullName, bool isOwnUndo, bool toBank, bool toParam, const void* source,
                       CAudioParamUndoData* undo, int32_t group);

    // ---- the collector's side
    // Whether `name` lies under `hierarchy`; the parameter joins at the next walk.
    bool addParam(CAudioParam* param, const CString& name);
    // Once, from the collector's start: the master applies session preset 0 (and makes it
    // the defaults); an enumerated registry applies what its selector shows.
    void start();
    // From CAudioParam::change of the selector that names this registry, under its lock.
    // A list the change empties shows the selector's defaults, and selects by them.
    void onSelectorChanged(const CAudioParamChange& change, CAudioParamUpdateContext& context,
                           CAudioParam* selector = nullptr);
    // A stored parameter was edited by hand: registries whose preset name it
    // invalidates show "User" for that group, within the same undo entry.
    static void onParamEdited(CAudioParam& param, int32_t group, CAudioParamUpdateContext& context);

    // ---- queries
    void setRoutingProvider(CAudioRoutingInfoProvider* provider);
    bool isStoredParam(const CAudioParam& param, bool includePersistent) const;
    // Whether a routing preset fits the host's layout.
    bool isRoutingPresetUsable(const CAudioPreset& preset, bool hasMidSide, bool hasSideChain);
    // "QMIO:Stereo" gives "QMIO" and "Stereo"; without ':' the id is empty.
    static void splitPresetName(const CString& fullName, CString& outId, CString& outName);

    const CString& id() const { return m_id; }
    const CString& hierarchy() const { return m_hierarchy; }
    bool isMaster() const { return m_isMaster; }
    bool isEnumerated() const { return m_isEnumerated; }
    bool isElementEnum() const { return m_isElementEnum; }
    bool hasStoredDefault() const { return m_hasStoredDefault; }
    CAudioParamCollector* collector() const { return m_collector; }
    CAudioParam* presetNameParam() const { return m_presetNameParam; }
    CAudioParamUndo* undo() const { return m_undo; }
    // Copies, under bankLock.
    CAudioPresetBank copyFactoryBank();
    CAudioPresetBank copySessionBank();
    CAudioPresetBank copyEnumBank();
    // The enumerated bank, replacing what init read (tests and the preset manager).
    void setEnumBank(const CAudioPresetBank& bank);
    CCriticalSection& bankLock() { return m_bankLock; }

private:
    friend class CAudioParamRegistryNameListener;

    struct CNameRemap
    {
        CString oldPrefix;
        CString newPrefix;
    };
    struct CPending
    {
        CAudioParam* param;
        CString key;
    };

    CErrorPtr parseRemaps(const CString& text);
    void initMasterBanks();
    void initEnumBank();
    void detach();
    // Under m_paramsLock.
    void flushPending();
    CAudioParam* findByKey(const CString& key);
    bool resolveDefinition(CAudioParam& param, CAudioParamUpdateContext& context);
    // The definition a name finds through the remaps, or null.
    const CAudioParamInfo* lookUpDefinition(const CString& paramName) const;
    bool isStoredInfo(const CAudioParamInfo& info, bool includePersistent) const;
    // Reads a preset stream of this family and checks every entry it would apply.
    CErrorPtr readChecked(CInputStream& in, bool includePersistent, CAudioPreset& out);
    CErrorPtr checkPreset(const CAudioPreset& preset, bool includePersistent);
    void resetLocked(CAudioParamUpdateContext& context, int32_t group, int32_t element, bool isListEnd);
    void postLocal(CAudioParamQueuedChange* batch);
    void notifyUpdate(const void* source);
    // Under m_bankLock: the live state into the current session preset.
    void captureCurrent();
    // Factory preset `index`, or null; an empty factory bank still has its default.
    const CAudioPreset* factoryPreset(int32_t index) const;
    CString groupName(int32_t group);
    std::unique_ptr<CAudioParamUndoData> makeUndo(const CString& name) const;
    void submitUndo(std::unique_ptr<CAudioParamUndoData> entry);
    std::shared_ptr<const CAudioPresetBank> enumBankSnapshot();
    // The selector's present lists, as if each group had just been chosen.
    void applySelection(CAudioParam& selector, CAudioParamUpdateContext& context);
    // The name parameter changed from elsewhere: the current program takes the name.
    void adoptNameFromParam(const CString& fullName);
    void adoptPendingName();

    // attributes
    CString m_hierarchy;
    CString m_id;
    bool m_isMaster = false;
    bool m_isEnumerated = false;
    bool m_isElementEnum = false;
    bool m_isGlobalParamStorable = false;
    CString m_file;
    CString m_storeName;
    CString m_presetNaming;
    std::vector<CNameRemap> m_nameRemaps;

    CAudioParamCollector* m_collector = nullptr;
    CAudioParamUndo* m_undo = nullptr;
    CAudioParam* m_presetNameParam = nullptr;
    CAudioParam* m_groupNamesParam = nullptr;
    std::atomic<CAudioRoutingInfoProvider*> m_routingProvider{nullptr};
    std::unique_ptr<CAudioParamRegistryNameListener> m_nameListener;
    bool m_joinedCollector = false;
    std::atomic<bool> m_isStarted{false};

    // guarded by m_bankLock
    CCriticalSection m_bankLock{4000};
    CAudioPresetBank m_factoryBank;
    CAudioPresetBank m_sessionBank;
    std::atomic<int32_t> m_currentPreset{0}; // written under m_bankLock
    bool m_hasStoredDefault = false;
    std::unique_ptr<CAudioPreset> m_shadowPreset;
    std::unique_ptr<CAudioParamUndoHistory> m_shadowHistory;
    std::vector<std::unique_ptr<CAudioParamUndoHistory>> m_histories;

    // guarded by m_paramsLock
    CCriticalSection m_paramsLock{4000};
    CMap<CString, CAudioParam*> m_paramsByKey;

    // guarded by m_smallLock: what may be touched under a parameter's or the collector's
    // lock, where bankLock and paramsLock may not be taken.
    CCriticalSection m_smallLock{50};
    std::vector<CPending> m_pendingParams;
    std::vector<CAudioParam*> m_nameParams; // parameters whose nameRegistries hold this
    std::shared_ptr<const CAudioPresetBank> m_enumBank;
    bool m_hasPendingName = false;
    int32_t m_pendingNameIndex = -1;
    CString m_pendingName;
};

} // namespace qel
