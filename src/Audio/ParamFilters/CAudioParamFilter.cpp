#include "Audio/ParamFilters/CAudioParamFilter.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/ParamFilters/CAudioParamFilterDef.h"

#include <algorithm>
#include <memory>

namespace qel {
namespace {

// Room the copies of the sources keep per group, as the audio side's copies do.
constexpr int32_t kReservedElements = 16;

// Values of a change built on the stack, or, for a list longer than any of the product's,
// on the heap.
template <size_t Inline>
class CValueBuffer
{
public:
    explicit CValueBuffer(size_t count)
    {
        if (count > Inline) {
            m_heap = std::make_unique<double[]>(count);
            m_data = m_heap.get();
        }
    }
    double* data() { return m_data; }
    double& operator[](size_t i) { return m_data[i]; }

private:
    double m_inline[Inline] = {};
    std::unique_ptr<double[]> m_heap;
    double* m_data = m_inline;
};

} // namespace

CAudioParamFilter::CAudioParamFilter()
{
    for (int i = 0; i < kMaxParams; ++i)
        m_sourceView[i] = &m_sourceValues[i];
}

CAudioParamFilter::~CAudioParamFilter() { detach(); }

CErrorPtr CAudioParamFilter::init(const CAudioParamFilterDef* definition, CAudioParamCollector* collector,
                                  const std::vector<CString>& sourceNames, const std::vector<CString>& destinationNames)
{
    m_definition = definition;
    m_collector = collector;
    const CString objectName = definition ? definition->getFullName() : CString();
    const auto count = [](size_t n) { return CString::number(int64_t(n)); };
    if (int(sourceNames.size()) < getMinSourceCount())
        return QEL_ERROR(objectName, "@qelstr_CAudioParamFilter_init_NotEnoughSrcParams Not enough source parameters %1 defined in the param filter (required %2).",
                         count(sourceNames.size()), count(size_t(getMinSourceCount())));
    if (sourceNames.size() > size_t(kMaxParams))
        return QEL_ERROR(objectName, "@qelstr_CAudioParamFilter_init_TooManySrcParams Too many source parameters %1 defined in the param filter.",
                         count(sourceNames.size()));
    if (int(destinationNames.size()) < getMinDestinationCount())
        return QEL_ERROR(objectName, "@qelstr_CAudioParamFilter_init_NotEnoughDstParams Not enough destination parameters %1 defined in the param filter (required %2).",
                         count(destinationNames.size()), count(size_t(getMinDestinationCount())));
    if (destinationNames.size() > size_t(kMaxParams))
        return QEL_ERROR(objectName, "@qelstr_CAudioParamFilter_init_TooManyDstParams Too many destination parameters %1 defined in the param filter.",
                         count(destinationNames.size()));
    m_sourceCount = int(sourceNames.size());
    m_destinationCount = int(destinationNames.size());
    for (int i = 0; i < m_sourceCount; ++i)
        m_sources[i] = collector->getParam(sourceNames[size_t(i)]);
    for (int i = 0; i < m_destinationCount; ++i)
        m_destinations[i] = collector->getParam(destinationNames[size_t(i)]);
    return nullptr;
}

void CAudioParamFilter::copyValues(const CAudioParamStorage& from, CAudioParamStorage& to) const
{
    if (!from.isFormatSet())
        return;
    to.setFormat(from.elementSize(), from.dataType(), from.isSingleGroup(), from.isSingleElement());
    int32_t elements = kReservedElements;
    for (int32_t g = 0; g < from.groupCount(); ++g)
        elements = std::max(elements, from.elementCount(g));
    const int32_t groups = from.isSingleGroup() ? 1 : std::max(from.groupCount(), m_collector->reservedGroups());
    to.reserve(groups, elements);

    CAudioParamChange defaults = from.makeChange(0, 0, int32_t(from.defaultValues().size()) / from.elementSize(), true);
    defaults.group = kParamDefaultsGroup;
    defaults.values = from.defaultValues().data();
    to.applyChange(defaults);
    for (int32_t g = 0; g < from.groupCount(); ++g)
        to.applyChange(from.makeChange(g, 0, from.elementCount(g), true));
}

void CAudioParamFilter::attach()
{
    if (m_isAttached)
        return;
    for (int i = 0; i < m_sourceCount; ++i) {
        CAudioParam& param = *m_sources[i];
        if (std::find(m_sources, m_sources + i, &param) != m_sources + i)
            continue;
        // Copied and joined under the source's lock, so that no change of it falls between.
        CAudioParamLock lock(param);
        CLockGuard guard(m_lock);
        for (int j = i; j < m_sourceCount; ++j)
            if (m_sources[j] == &param)
                copyValues(param.values(), m_sourceValues[j]);
        param.addFilter(this);
    }
    m_isAttached = true;
    CLockGuard guard(m_lock);
    CAudioParamUpdateContext context;
    runDefaultsAndGroups(nullptr, context);
}

void CAudioParamFilter::detach()
{
    if (!m_isAttached)
        return;
    for (int i = 0; i < m_sourceCount; ++i) {
        CAudioParam& param = *m_sources[i];
        if (std::find(m_sources, m_sources + i, &param) != m_sources + i)
            continue;
        // Under the source's lock: a change of it that is running ends first.
        CAudioParamLock lock(param);
        param.removeFilter(this);
    }
    m_isAttached = false;
}

bool CAudioParamFilter::isReady() const
{
    for (int i = 0; i < m_sourceCount; ++i)
        if (!m_sourceValues[i].isFormatSet())
            return false;
    for (int i = 0; i < m_destinationCount; ++i) {
        const CAudioParamInfo* info = m_destinations[i]->info();
        if (!info || info->dataType != CAudioParamStorage::Float)
            return false;
    }
    return true;
}

void CAudioParamFilter::onSourceChanged(CAudioParam& caller, const CAudioParamChange& change,
                                        CAudioParamUpdateContext& context)
{
    CLockGuard guard(m_lock);
    for (int i = 0; i < m_sourceCount; ++i) {
        if (m_sources[i] != &caller)
            continue;
        CAudioParamStorage& copy = m_sourceValues[i];
        copy.applyChange(change);
        // New defaults may bring a new format (a definition that arrived late, at set-up),
        // which leaves the copy without room: it takes it again. Where the room is there
        // already, as whenever audio runs, this allocates nothing.
        if (change.group == kParamDefaultsGroup && copy.isFormatSet())
            copy.reserve(copy.isSingleGroup() ? 1 : std::max(copy.groupCount(), m_collector->reservedGroups()),
                         std::max(kReservedElements, copy.elementCount(0)));
    }
    if (!isReady())
        return;
    process(m_sourceView, m_destinations, change, context);
    if (change.group == kParamDefaultsGroup)
        runGroups(change.source, context);
}

void CAudioParamFilter::runDefaultsAndGroups(const void* source, CAudioParamUpdateContext& context)
{
    if (!isReady())
        return;
    CAudioParamChange defaults;
    defaults.group = kParamDefaultsGroup;
    defaults.isListEnd = true;
    defaults.source = source;
    process(m_sourceView, m_destinations, defaults, context);
    runGroups(source, context);
}

void CAudioParamFilter::runGroups(const void* source, CAudioParamUpdateContext& context)
{
    int32_t groups = 0;
    for (int i = 0; i < m_sourceCount; ++i)
        groups = std::max(groups, m_sourceValues[i].groupCount());
    for (int32_t g = 0; g < groups; ++g) {
        bool isHeld = false;
        for (int i = 0; i < m_sourceCount && !isHeld; ++i)
            isHeld = !m_sourceValues[i].isSingleGroup() && m_sourceValues[i].elementCount(g) > 0;
        // Group 0 holds what the defaults run wrote; a single-group source has no other.
        if (!isHeld && g > 0)
            continue;
        CAudioParamChange whole;
        whole.group = g;
        whole.isListEnd = true;
        whole.source = source;
        process(m_sourceView, m_destinations, whole, context);
    }
}

void CAudioParamFilter::process(CSources sources, CAudioParam* const*, const CAudioParamChange& change,
                                CAudioParamUpdateContext& context)
{
    const int32_t group = readGroup(change.group);
    int32_t count = std::max(change.elementCount, 0);
    if (change.isListEnd)
        for (int i = 0; i < m_sourceCount; ++i)
            count = std::max(count, sources[i]->elementCount(group) - change.firstElement);
    if (count == 0 && !change.isListEnd)
        return;

    // Element by element, then destination by destination.
    CValueBuffer<32 * kMaxParams> computed(size_t(count) * kMaxParams);
    std::unique_ptr<bool[]> heapFlags;
    bool inlineFlags[32 * kMaxParams] = {};
    bool* isComputed = inlineFlags;
    if (size_t(count) * kMaxParams > sizeof(inlineFlags)) {
        heapFlags = std::make_unique<bool[]>(size_t(count) * kMaxParams);
        isComputed = heapFlags.get();
    }
    double out[kMaxParams];
    for (int32_t e = 0; e < count; ++e) {
        const int filled = std::clamp(computeElement(sources, group, change.firstElement + e, out), 0, m_destinationCount);
        for (int d = 0; d < m_destinationCount; ++d) {
            // Laid out per destination, so that each one's run is contiguous.
            computed[size_t(d) * size_t(count) + size_t(e)] = d < filled ? out[d] : 0.0;
            isComputed[size_t(d) * size_t(count) + size_t(e)] = d < filled;
        }
    }
    for (int d = 0; d < m_destinationCount; ++d)
        writeDestination(d, change.group, change.firstElement, count, change.isListEnd,
                         computed.data() + size_t(d) * size_t(count), isComputed + size_t(d) * size_t(count),
                         change.source, context);
}

int CAudioParamFilter::computeElement(CSources, int32_t, int32_t, double*) { return 0; }

void CAudioParamFilter::writeDestination(int index, int32_t group, int32_t firstElement, int32_t count, bool isListEnd,
                                         const double* values, const bool* isComputed, const void* source,
                                         CAudioParamUpdateContext& context)
{
    CAudioParam& param = *m_destinations[index];
    CAudioParamLock lock(param);
    const CAudioParamStorage& now = param.values();
    if (!param.info() || !now.isFormatSet() || now.dataType() != CAudioParamStorage::Float)
        return;
    const int32_t esize = now.elementSize();
    CValueBuffer<64> buffer(size_t(count) * size_t(esize));
    for (int32_t e = 0; e < count; ++e) {
        for (int32_t pos = 0; pos < esize; ++pos) {
            const bool isNew = pos == 0 && (!isComputed || isComputed[e]);
            buffer[size_t(e) * size_t(esize) + size_t(pos)] =
                isNew ? values[e] : now.getElementValue(readGroup(group), firstElement + e, pos, 0.0);
        }
    }
    CAudioParamChange c = now.makeChange(group, firstElement, count, isListEnd);
    c.values = buffer.data();
    c.data = nullptr;
    c.source = source;
    param.change(c, context);
}

} // namespace qel
