#include "Audio/CAudioParamQueuedChange.h"

#include "Audio/CAudioParamStorage.h"
#include "Core/CBlockAllocator.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qel {
namespace {

double* allocValues(size_t count)
{
    return static_cast<double*>(CBlockAllocator::alloc(count * sizeof(double)));
}

} // namespace

void* CAudioParamQueuedChange::operator new(size_t size)
{
    return CBlockAllocator::alloc(size);
}

void CAudioParamQueuedChange::operator delete(void* p)
{
    if (p)
        CBlockAllocator::free(p);
}

CAudioParamQueuedChange::CAudioParamQueuedChange(CAudioParam* param, const CAudioParamChange& change)
    : m_param(param), m_change(change)
{
    const size_t count = size_t(change.elementCount) * size_t(change.elementSize);
    m_values = allocValues(count);
    if (count > 0)
        std::memcpy(m_values, change.values, count * sizeof(double));
    if (change.dataType != CAudioParamStorage::Float && change.data) {
        for (size_t i = 0; i < count; ++i)
            m_values[i] = double(m_data.copyItem(uint32_t(std::lround(m_values[i])), *change.data));
    }
    m_change.values = m_values;
    m_change.data = &m_data;
}

CAudioParamQueuedChange::~CAudioParamQueuedChange()
{
    CBlockAllocator::free(m_values);
}

void CAudioParamQueuedChange::freeList(CAudioParamQueuedChange* head)
{
    while (head) {
        CAudioParamQueuedChange* next = head->next;
        delete head;
        head = next;
    }
}

bool CAudioParamQueuedChange::merge(const CAudioParamChange& later)
{
    CAudioParamChange& old = m_change;
    if (later.group != old.group || later.elementSize != old.elementSize || later.dataType != old.dataType
        || later.isSingleGroup != old.isSingleGroup || later.isSingleElement != old.isSingleElement
        || later.dataType != CAudioParamStorage::Float)
        return false;
    const int32_t oldEnd = old.firstElement + old.elementCount;
    const int32_t newEnd = later.firstElement + later.elementCount;
    if (later.firstElement > oldEnd || old.firstElement > newEnd)
        return false; // neither overlapping nor touching

    // Applying old then later: the later values win where both write; a later list end
    // cuts everything behind it, an earlier one leaves the list at least as long.
    const int32_t first = std::min(old.firstElement, later.firstElement);
    const int32_t end = later.isListEnd ? newEnd : std::max(oldEnd, newEnd);
    const size_t esize = size_t(old.elementSize);
    double* values = allocValues(size_t(end - first) * esize);
    for (int32_t e = first; e < end; ++e) {
        const double* from = (e >= later.firstElement && e < newEnd)
                                 ? later.values + size_t(e - later.firstElement) * esize
                                 : old.values + size_t(e - old.firstElement) * esize;
        std::memcpy(values + size_t(e - first) * esize, from, esize * sizeof(double));
    }
    CBlockAllocator::free(m_values);
    m_values = values;
    old.firstElement = first;
    old.elementCount = end - first;
    old.isListEnd = old.isListEnd || later.isListEnd;
    old.source = later.source;
    old.values = m_values;
    return true;
}

} // namespace qel
