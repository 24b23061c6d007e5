#include "Audio/CAudioParam.h"

#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/CAudioParamUndo.h"
#include "Audio/ParamFilters/CAudioParamFilter.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <vector>

namespace qel {
namespace {

// Room the audio side's copy keeps per group: no parameter of the product has more
// elements, so applying a change there never allocates.
constexpr int32_t kReservedElements = 16;

int32_t mappedGroup(const CAudioParamStorage& storage, int32_t group)
{
    return storage.isSingleGroup() && group != kParamDefaultsGroup ? 0 : group;
}

} // namespace

CAudioParam::CAudioParam(CAudioParamCollector* collector, const CString& name) : m_collector(collector), m_name(name) {}

CAudioParam::~CAudioParam()
{
    if (!m_collector)
        return;
    CLockGuard guard(m_collector->listenerLock());
    while (CAudioParamListener* node = m_listeners) {
        m_listeners = node->next;
        m_collector->freeListener(node);
    }
}

void CAudioParam::change(const CAudioParamChange& input, CAudioParamUpdateContext& context)
{
    CAudioParamLock lock(*this);
    if (!info())
        return;
    CAudioParamChange c = input;
    c.group = mappedGroup(m_values, c.group);
    if (m_values.isSingleElement() && (c.firstElement > 0 || c.elementCount > 1)) {
        c.firstElement = 0;
        c.elementCount = std::min(c.elementCount, 1);
    }

    // A write past the end of the group's list carries the defaults for the gap, so every
    // copy of the storage grows the same way.
    std::vector<double> joined;
    CAudioParamData joinedItems;
    const int32_t have = m_values.elementCount(c.group);
    if (c.group != kParamDefaultsGroup && c.firstElement > have && m_values.hasFormatOf(c)) {
        const size_t esize = size_t(c.elementSize);
        const bool isFloat = c.dataType == CAudioParamStorage::Float;
        for (int32_t e = have; e < c.firstElement; ++e) {
            for (size_t pos = 0; pos < esize; ++pos) {
                const double fill = m_values.getElementValue(c.group, e, int32_t(pos), 0.0);
                joined.push_back(isFloat ? fill
                                         : double(joinedItems.copyItem(uint32_t(std::lround(fill)), m_values.data())));
            }
        }
        for (size_t i = 0; i < size_t(c.elementCount) * esize; ++i)
            joined.push_back(isFloat || !c.data ? c.values[i]
                                                : double(joinedItems.copyItem(uint32_t(std::lround(c.values[i])), *c.data)));
        c.elementCount += c.firstElement - have;
        c.firstElement = have;
        c.values = joined.data();
        if (!isFloat)
            c.data = &joinedItems;
    }

    // The defaults group replaces the format and is no user action: it is never recorded.
    const CAudioParamInfo* definition = info();
    if (context.undo && c.group != kParamDefaultsGroup && (definition->isStorable || definition->isPersistent)) {
        CAudioParamUndo::openRecord(*context.undo, m_name, c.group, m_values, false);
        m_values.applyChange(c);
        CAudioParamUndo::closeRecord(*context.undo, m_name, c.group, m_values, false);
    } else {
        m_values.applyChange(c);
    }
    sendToAudio(c, context);
    // A selector's new value picks a preset of its registry for the group.
    if (CAudioParamRegistry* selected = registry())
        selected->onSelectorChanged(c, context, this);

    if (m_collector) {
        CAudioParamUpdateMessage message;
        message.source = reinterpret_cast<uint64_t>(c.source);
        message.key = reinterpret_cast<uint64_t>(this);
        message.param = this;
        message.change = &c;
        message.context = &context;
        m_collector->notify(&message);
    }
    // By index and without a copy: this may be the audio thread, applying a host's
    // automation. Filters join and leave only under this lock.
    for (size_t i = 0; i < m_filters.size(); ++i)
        m_filters[i]->onSourceChanged(*this, c, context);
}

void CAudioParam::sendToAudio(const CAudioParamChange& c, CAudioParamUpdateContext& context)
{
    // String and raw parameters never cross to the audio thread: no process reads them
    // there, and their items would have to be made and freed on it.
    const bool inPlace = context.isImmediate || c.dataType != CAudioParamStorage::Float || !m_collector
                         || !m_collector->env();
    if (inPlace) {
        applyToAudio(c);
        return;
    }
    auto* queued = new CAudioParamQueuedChange(this, c);
    if (context.batchTail) {
        // Gathered for the owner of the batch, which posts it whole.
        *context.batchTail = queued;
        context.batchTail = &queued->next;
        return;
    }
    m_collector->post(queued);
}

void CAudioParam::applyToAudio(const CAudioParamChange& c)
{
    m_audioValues.applyChange(c);
    notifyListeners(c);
}

bool CAudioParam::matches(const CAudioParamListener& node, const CAudioParamChange& c) const
{
    if (c.group == kParamDefaultsGroup)
        return true;
    const bool singleGroup = m_audioValues.isSingleGroup();
    if (!(node.group == -1 || node.group == c.group || (c.group == 0 && singleGroup)))
        return false;
    if (node.element == -1 || (m_audioValues.isSingleElement() && c.firstElement == 0))
        return true;
    if (node.element >= c.firstElement && node.element < c.firstElement + c.elementCount)
        return true;
    return c.isListEnd && node.element >= c.firstElement;
}

void CAudioParam::notifyListeners(const CAudioParamChange& c)
{
    if (!m_collector)
        return;
    CLockGuard guard(m_collector->listenerLock());
    const uint32_t mask = c.group == kParamDefaultsGroup ? ~0u : 1u << (uint32_t(c.group) % 32);
    for (CAudioParamListener* node = m_listeners; node; node = node->next) {
        if (!matches(*node, c))
            continue;
        // The owning process reads these at its next block, on the audio thread.
        std::atomic_ref<uint8_t>(*node->changedFlag).store(1, std::memory_order_release);
        std::atomic_ref<uint32_t>(*node->changedGroups).store(mask, std::memory_order_release);
    }
}

void CAudioParam::setValue(double value, int32_t group, const void* source)
{
    // The change is built from the values' format and lists, which another writer may be
    // growing: under the lock, as the write itself.
    CAudioParamLock lock(*this);
    if (!info())
        return;
    CAudioParamChange c = m_values.makeChange(group, 0, 1, true);
    c.values = &value;
    c.source = source;
    CAudioParamUpdateContext context;
    change(c, context);
}

void CAudioParam::setElementValue(double value, int32_t group, int32_t element, const void* source)
{
    CAudioParamLock lock(*this);
    if (!info())
        return;
    CAudioParamChange c = m_values.makeChange(group, element, 1, false);
    c.values = &value;
    c.source = source;
    CAudioParamUpdateContext context;
    change(c, context);
}

void CAudioParam::setString(int32_t group, int32_t element, const CString& text, const void* source,
                            CAudioParamUpdateContext& context)
{
    CAudioParamLock lock(*this);
    if (!info() || m_values.dataType() != CAudioParamStorage::String)
        return;
    CAudioParamData items;
    const double id = double(items.addString(text));
    CAudioParamChange c = m_values.makeChange(group, element, 1, false);
    c.values = &id;
    c.data = &items;
    c.source = source;
    change(c, context);
}

void CAudioParam::setRaw(int32_t group, int32_t element, const CByteArray& bytes, const void* source,
                         CAudioParamUpdateContext& context)
{
    CAudioParamLock lock(*this);
    if (!info() || m_values.dataType() != CAudioParamStorage::Raw)
        return;
    CAudioParamData items;
    const double id = double(items.addRaw(bytes));
    CAudioParamChange c = m_values.makeChange(group, element, 1, false);
    c.values = &id;
    c.data = &items;
    c.source = source;
    change(c, context);
}

CString CAudioParam::getString(int32_t group, int32_t element)
{
    CAudioParamLock lock(*this);
    if (m_values.dataType() != CAudioParamStorage::String)
        return CString();
    const double id = m_values.getElementValue(group, element, 0, 0.0);
    return m_values.data().getString(uint32_t(std::lround(id)));
}

void CAudioParam::reset(int32_t group, int32_t element, CAudioParamUpdateContext& context, bool useFirst)
{
    CAudioParamLock lock(*this);
    if (!info())
        return;
    const int32_t firstGroup = group < 0 ? 0 : group;
    const int32_t lastGroup = group < 0 ? std::max(m_values.groupCount(), m_defaults.groupCount()) : group + 1;
    for (int32_t g = firstGroup; g < lastGroup; ++g) {
        const int32_t count = element >= 0 ? 1 : std::max(m_defaults.elementCount(g), 1);
        const int32_t first = element >= 0 ? element : 0;
        std::vector<double> values;
        for (int32_t e = first; e < first + count; ++e)
            for (int32_t pos = 0; pos < m_defaults.elementSize(); ++pos)
                values.push_back(m_defaults.getElementValue(g, useFirst ? 0 : e, pos, 0.0));
        CAudioParamChange c = m_defaults.makeChange(g, first, count, element < 0);
        c.values = values.data();
        change(c, context);
    }
}

void CAudioParam::attachDefinition(const CAudioParamInfo* info, CAudioParamUpdateContext& context)
{
    if (!info)
        return;
    CAudioParamLock lock(*this);
    if (const CAudioParamInfo* old = this->info(); old && old->sameShape(*info))
        return;
    m_info.store(info, std::memory_order_release);
    // A stepped parameter that names a registry selects that registry's presets. A registry
    // that joins the collector later finds its selectors itself.
    if (!info->registryName.isEmpty() && info->elementSize == 1 && info->dataType == CAudioParamStorage::Float
        && m_collector)
        if (CAudioParamRegistry* selected = m_collector->findRegistry(info->registryName))
            setRegistry(selected);
    // Before audio runs the audio side takes the defaults at once and keeps room for every
    // group, so that nothing it applies later has to allocate.
    CAudioParamUpdateContext attach = context;
    const bool audioRunning = m_collector && m_collector->env() && m_collector->env()->isActive();
    attach.isImmediate = attach.isImmediate || !audioRunning;
    for (int32_t g = 0; g < std::max(info->defaults.groupCount(), 1); ++g) {
        CAudioParamChange c = info->defaults.makeChange(g, 0, info->defaults.elementCount(g), true);
        if (g == 0)
            c.group = kParamDefaultsGroup;
        change(c, attach);
        m_defaults.applyChange(c);
        if (g == 0 && !audioRunning) {
            const int32_t groups = m_collector ? std::max(m_collector->reservedGroups(), 1) : 1;
            m_audioValues.reserve(info->isSingleGroup ? 1 : groups,
                                  std::max(kReservedElements, info->defaults.elementCount(0)));
        }
    }
}

void CAudioParam::addFilter(CAudioParamFilter* filter)
{
    CAudioParamLock lock(*this);
    m_filters.push_back(filter);
}

void CAudioParam::removeFilter(CAudioParamFilter* filter)
{
    CAudioParamLock lock(*this);
    m_filters.erase(std::remove(m_filters.begin(), m_filters.end(), filter), m_filters.end());
}

CAudioParamListener* CAudioParam::addListener(uint8_t* changedFlag, uint32_t* changedGroups, int32_t group,
                                              int32_t element)
{
    CAudioParamListener* node = m_collector->allocListener();
    node->param = this;
    node->changedFlag = changedFlag;
    node->changedGroups = changedGroups;
    node->group = group;
    node->element = element;
    CLockGuard guard(m_collector->listenerLock());
    node->next = m_listeners;
    if (m_listeners)
        m_listeners->prev = node;
    m_listeners = node;
    // As if a change had just happened, so the process reads its first values.
    uint32_t mask = 0;
    if (m_audioValues.isFormatSet()) {
        if (group == -1)
            mask = ~0u;
        else if (mappedGroup(m_audioValues, group) < std::max(m_audioValues.groupCount(), 1))
            mask = 1u << (uint32_t(mappedGroup(m_audioValues, group)) % 32);
    }
    *changedFlag = mask ? 1 : 0;
    *changedGroups = mask;
    return node;
}

void CAudioParam::removeListener(CAudioParamListener* node)
{
    {
        CLockGuard guard(m_collector->listenerLock());
        if (node->prev)
            node->prev->next = node->next;
        else
            m_listeners = node->next;
        if (node->next)
            node->next->prev = node->prev;
    }
    m_collector->freeListener(node);
}

} // namespace qel
