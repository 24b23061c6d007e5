#pragma once

#include "Audio/CAudioParamChange.h"
#include "Audio/CAudioParamStorage.h"
#include "Audio/CAudioParamUpdateContext.h"
#include "Core/CCriticalSection.h"
#include "Core/CError.h"
#include "Core/CString.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioParam;
class CAudioParamCollector;
class CAudioParamFilterDef;

// Derives destination parameters from source parameters whenever a source changes: the
// auto-gain compensation, the bypass of oversampling, the bypass of group solo. The base
// class maps element to element through computeElement; a kind may replace process.
//
// Locks. A change arrives with the lock of the parameter that changed held by its caller,
// and a second caller may at the same moment hold the lock of another source (the UI
// moving one knob while the host automates another). Taking the other sources' locks here
// could then deadlock, with the audio thread as one of the two. So the filter keeps its
// own copy of each source's values, fed by the changes it hears, under a lock of its own;
// the order is always: the changed source, then the filter, then one destination at a
// time. Destinations must not feed the filter's own sources.
//
// Real time. A host's automation reaches the filter on the audio thread. There it
// allocates nothing: the copies keep room for every group and element, and the values of
// a destination's change live on the stack.
class CAudioParamFilter
{
public:
    static constexpr int kMaxParams = 9;
    using CSources = const CAudioParamStorage* const*;

    CAudioParamFilter();
    virtual ~CAudioParamFilter();
    CAudioParamFilter(const CAudioParamFilter&) = delete;
    CAudioParamFilter& operator=(const CAudioParamFilter&) = delete;

    // Set-up thread: finds the parameters by their full names (aliases followed) and
    // checks that there are enough of them, and not too many.
    virtual CErrorPtr init(const CAudioParamFilterDef* definition, CAudioParamCollector* collector,
                           const std::vector<CString>& sourceNames, const std::vector<CString>& destinationNames);
    virtual int getMinSourceCount() const { return 1; }
    virtual int getMinDestinationCount() const { return 1; }

    // Set-up thread: joins every source, then runs once for the defaults and once for each
    // group that a source holds.
    void attach();
    // Leaves every source; once it returns the filter never runs again. The owner calls it
    // before deleting, so that no change runs into a half-destroyed filter.
    void detach();

    // From CAudioParam::change, with the lock of `caller` held by the caller; any thread.
    void onSourceChanged(CAudioParam& caller, const CAudioParamChange& change, CAudioParamUpdateContext& context);

    const CAudioParamFilterDef* definition() const { return m_definition; }
    CAudioParamCollector* collector() const { return m_collector; }
    bool isAttached() const { return m_isAttached; }
    int sourceCount() const { return m_sourceCount; }
    int destinationCount() const { return m_destinationCount; }
    CAudioParam* source(int index) const { return m_sources[index]; }
    CAudioParam* destination(int index) const { return m_destinations[index]; }

protected:
    // Under the filter's lock. `sources` are the filter's copies of the sources' values.
    // The base: for each element the change covers (with isListEnd, up to the longest
    // list a source has in the group), computeElement gives the values of the first
    // destinations; the others keep theirs. Each destination gets one change of the same
    // group, first element and list end.
    virtual void process(CSources sources, CAudioParam* const* destinations, const CAudioParamChange& change,
                         CAudioParamUpdateContext& context);
    // Writes the values of the first destinations at one element into `outValues` (one
    // per destination) and answers how many it wrote. The base writes none.
    virtual int computeElement(CSources sources, int32_t group, int32_t element, double* outValues);

    // One change of destination `index`: `count` elements of `group` from `firstElement`,
    // each taking its value from `values` where `isComputed` says so (null: everywhere)
    // and keeping the one it holds elsewhere. Group 9999 writes the defaults.
    void writeDestination(int index, int32_t group, int32_t firstElement, int32_t count, bool isListEnd,
                          const double* values, const bool* isComputed, const void* source,
                          CAudioParamUpdateContext& context);
    // A one-element list: element 0 of `group` is `value`, and the list ends there.
    void writeValue(int index, int32_t group, double value, const void* source, CAudioParamUpdateContext& context)
    {
        writeDestination(index, group, 0, 1, true, &value, nullptr, source, context);
    }

    // The group whose values a change of `group` reads: the defaults live in group 0.
    static int32_t readGroup(int32_t group) { return group == kParamDefaultsGroup ? 0 : group; }

private:
    void copyValues(const CAudioParamStorage& from, CAudioParamStorage& to) const;
    // Every source copy has a format and every destination a float definition.
    bool isReady() const;
    // The defaults, then each group a source holds; a change of the defaults empties
    // every group of a destination, so all of them are computed again behind it.
    void runDefaultsAndGroups(const void* source, CAudioParamUpdateContext& context);
    void runGroups(const void* source, CAudioParamUpdateContext& context);

    const CAudioParamFilterDef* m_definition = nullptr;
    CAudioParamCollector* m_collector = nullptr;
    bool m_isAttached = false;
    CCriticalSection m_lock{50};
    CAudioParam* m_sources[kMaxParams] = {};
    CAudioParam* m_destinations[kMaxParams] = {};
    int m_sourceCount = 0;
    int m_destinationCount = 0;
    CAudioParamStorage m_sourceValues[kMaxParams]; // guarded by m_lock
    const CAudioParamStorage* m_sourceView[kMaxParams] = {};
};

} // namespace qel
