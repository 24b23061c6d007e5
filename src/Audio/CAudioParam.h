#pragma once

#include "Audio/CAudioParamChange.h"
#include "Audio/CAudioParamStorage.h"
#include "Audio/CAudioParamUpdateContext.h"
#include "Core/CCriticalSection.h"
#include "Core/CString.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace qel {

class CAudioParamCollector;
class CAudioParamInfo;
class CAudioParamFilter;
class CAudioParamQueuedChange;
class CAudioParamRegistry;
class CPresetEntry;

// One claim of a process on a parameter: where to flag a matching change.
struct CAudioParamListener
{
    class CAudioParam* param = nullptr;
    uint8_t* changedFlag = nullptr;
    uint32_t* changedGroups = nullptr;
    int32_t group = -1;   // -1: every group
    int32_t element = -1; // -1: every element
    CAudioParamListener* prev = nullptr;
    CAudioParamListener* next = nullptr;
};

// A live parameter, found by its full name in the collector. `values` is what the UI and
// the host see; `audioValues` what the audio thread sees, fed by a queue and touched only
// by the audio thread once audio runs. A parameter may exist before its definition: it
// then has no values and ignores writes.
//
// Writes: any thread but the audio thread; they take the parameter's lock.
class CAudioParam
{
public:
    CAudioParam(CAudioParamCollector* collector, const CString& name);
    ~CAudioParam();
    CAudioParam(const CAudioParam&) = delete;
    CAudioParam& operator=(const CAudioParam&) = delete;

    const CString& name() const { return m_name; }
    // Any thread: set once under the lock when the definition arrives.
    const CAudioParamInfo* info() const { return m_info.load(std::memory_order_acquire); }
    CCriticalSection& lock() { return m_lock; }
    // Guarded by lock().
    const CAudioParamStorage& values() const { return m_values; }
    const CAudioParamStorage& defaults() const { return m_defaults; }
    // Audio thread only, once audio runs.
    const CAudioParamStorage& audioValues() const { return m_audioValues; }
    CAudioParamCollector* collector() const { return m_collector; }

    // The one path of every write.
    void change(const CAudioParamChange& change, CAudioParamUpdateContext& context);
    // One float value: replaces the group's whole list by this one element.
    void setValue(double value, int32_t group, const void* source);
    // One element of a group, the list kept as it is (grown with defaults if needed).
    void setElementValue(double value, int32_t group, int32_t element, const void* source);
    void setString(int32_t group, int32_t element, const CString& text, const void* source,
                   CAudioParamUpdateContext& context);
    void setRaw(int32_t group, int32_t element, const CByteArray& bytes, const void* source,
                CAudioParamUpdateContext& context);
    // Empty when the parameter holds no strings.
    CString getString(int32_t group, int32_t element);
    // Restores defaults; -1 means all groups or all elements. `useFirst`: every element
    // takes default element 0.
    void reset(int32_t group, int32_t element, CAudioParamUpdateContext& context, bool useFirst);
    void attachDefinition(const CAudioParamInfo* info, CAudioParamUpdateContext& context);

    // ---- presets
    // The entry of a preset: the definition's name and the values of `group` (-1: all
    // groups; trailing groups that hold nothing are left out, so equal states give equal
    // bytes). Fails without a definition.
    CErrorPtr save(CPresetEntry& out, int32_t group);
    // Reads an entry's values into `out` in the format of `definition`, checked (at most
    // `maxGroups` groups, lists that fit the audio side's room, finite numbers) and
    // clamped; nothing is applied. The stored definition name plays no part.
    static CErrorPtr parseEntry(const CAudioParamInfo& definition, int32_t maxGroups, const CPresetEntry& entry,
                                CAudioParamStorage& out);
    // Applies an entry. `asDefaults`: the values become the defaults that reset restores.
    // `group` -1: the stored groups replace all groups (the others are emptied); a group:
    // the entry's first group goes there, whole (`element` -1) or as one element. A damaged
    // entry changes nothing and returns the error.
    CErrorPtr load(const CPresetEntry& entry, bool asDefaults, CAudioParamUpdateContext& context, int32_t group,
                   int32_t element, bool isListEnd, const void* source = nullptr);
    // Defaults back, as registries need it: `group` -1: every group (groups beyond the
    // defaults' are emptied); 9999: the defaults group; `element` -1: the whole list.
    void reset(int32_t group, int32_t element, bool isListEnd, CAudioParamUpdateContext& context,
               const void* source = nullptr);

    // ---- registries
    // The registry this parameter selects presets of (`param-registry` of its definition).
    CAudioParamRegistry* registry() const { return m_registry.load(std::memory_order_acquire); }
    void setRegistry(CAudioParamRegistry* registry);
    // Registries whose preset name an edit of this parameter invalidates.
    void addNameRegistry(CAudioParamRegistry* registry);
    void removeNameRegistry(CAudioParamRegistry* registry);
    void getNameRegistries(std::vector<CAudioParamRegistry*>& out);

    // A filter (ParamFilters/CAudioParamFilter) hears every change of the parameter,
    // under its lock, after the change was applied and announced.
    void addFilter(CAudioParamFilter* filter);
    void removeFilter(CAudioParamFilter* filter);

    // A process claims the parameter. The mask starts as if a change had happened.
    CAudioParamListener* addListener(uint8_t* changedFlag, uint32_t* changedGroups, int32_t group, int32_t element);
    void removeListener(CAudioParamListener* node);

    // Audio thread (or audio stopped): the queued change reaches the audio side.
    void applyToAudio(const CAudioParamChange& change);

private:
    friend class CAudioParamCollector;

    void sendToAudio(const CAudioParamChange& change, CAudioParamUpdateContext& context);
    void notifyListeners(const CAudioParamChange& change);
    bool matches(const CAudioParamListener& node, const CAudioParamChange& change) const;

    CCriticalSection m_lock{4000};
    CAudioParamCollector* m_collector;
    std::atomic<const CAudioParamInfo*> m_info{nullptr};
    CString m_name;
    CAudioParamStorage m_values;
    CAudioParamStorage m_defaults;
    std::vector<CAudioParamFilter*> m_filters;
    CAudioParamListener* m_listeners = nullptr; // guarded by the collector's listener lock
    CAudioParamStorage m_audioValues;
    std::atomic<CAudioParamRegistry*> m_registry{nullptr};
    CCriticalSection m_registriesLock{4000};
    std::vector<CAudioParamRegistry*> m_nameRegistries; // guarded by m_registriesLock
};

} // namespace qel
