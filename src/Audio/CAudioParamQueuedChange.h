#pragma once

#include "Audio/CAudioParamChange.h"
#include "Audio/CAudioParamData.h"

#include <cstddef>

namespace qel {

class CAudioParam;

// An owned copy of a change, on its way to the audio thread. Its memory comes from the
// block allocator, so that the audio thread can free it without taking a lock.
class CAudioParamQueuedChange
{
public:
    CAudioParamQueuedChange(CAudioParam* param, const CAudioParamChange& change);
    ~CAudioParamQueuedChange();
    CAudioParamQueuedChange(const CAudioParamQueuedChange&) = delete;
    CAudioParamQueuedChange& operator=(const CAudioParamQueuedChange&) = delete;

    static void* operator new(size_t size);
    static void operator delete(void* p);

    CAudioParam* param() const { return m_param; }
    // The change, pointing at this copy's own values and items.
    const CAudioParamChange& change() const { return m_change; }
    // Folds a later change of the same parameter and group into this one, as applying
    // both in turn would; false (and nothing changed) when they can't be folded.
    bool merge(const CAudioParamChange& later);

    CAudioParamQueuedChange* next = nullptr;

    // Frees a whole list; the audio thread calls it at the end of its block.
    static void freeList(CAudioParamQueuedChange* head);

private:
    void takeValues(const CAudioParamChange& change, int32_t first, int32_t count);

    CAudioParam* m_param;
    CAudioParamChange m_change;
    double* m_values = nullptr;
    CAudioParamData m_data;
};

} // namespace qel
