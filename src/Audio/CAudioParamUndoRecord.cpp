#include "Audio/CAudioParamUndoRecord.h"

#include "Audio/CAudioParamChange.h"
#include "Audio/CAudioParamStorage.h"

#include <cmath>

namespace qel {
namespace {

uint32_t idOf(double value)
{
    return uint32_t(std::lround(value));
}

} // namespace

void CAudioParamUndoRecord::captureOld(int32_t recordGroup, const CAudioParamStorage& storage, bool isEmpty)
{
    group = recordGroup;
    elementSize = storage.elementSize();
    dataType = storage.dataType();
    isSingleGroup = storage.isSingleGroup();
    isSingleElement = storage.isSingleElement();
    data.clear();
    takeList(storage, isEmpty, oldCount, oldValues);
    // Until the record is closed, redoing it restores what it found.
    newValues.clear();
    takeList(storage, isEmpty, newCount, newValues);
}

bool CAudioParamUndoRecord::captureNew(const CAudioParamStorage& storage, bool isEmpty)
{
    if (!hasFormatOf(storage))
        return false;
    releaseItems(newValues);
    takeList(storage, isEmpty, newCount, newValues);
    return true;
}

void CAudioParamUndoRecord::takeNewState(const CAudioParamUndoRecord& other)
{
    releaseItems(newValues);
    newCount = other.newCount;
    newValues = other.newValues;
    if (dataType != CAudioParamStorage::Float)
        for (double& id : newValues)
            id = double(data.copyItem(idOf(id), other.data));
}

bool CAudioParamUndoRecord::hasFormatOf(const CAudioParamStorage& storage) const
{
    return storage.isFormatSet() && storage.elementSize() == elementSize && storage.dataType() == dataType
           && storage.isSingleGroup() == isSingleGroup && storage.isSingleElement() == isSingleElement;
}

bool CAudioParamUndoRecord::hasSameFormat(const CAudioParamUndoRecord& other) const
{
    return group == other.group && elementSize == other.elementSize && dataType == other.dataType
           && isSingleGroup == other.isSingleGroup && isSingleElement == other.isSingleElement;
}

CAudioParamChange CAudioParamUndoRecord::makeChange(bool isOld, const void* source) const
{
    CAudioParamChange c;
    c.group = group;
    c.firstElement = 0;
    c.elementCount = isOld ? oldCount : newCount;
    c.isListEnd = true;
    c.source = source;
    c.elementSize = elementSize;
    c.dataType = dataType;
    c.isSingleGroup = isSingleGroup;
    c.isSingleElement = isSingleElement;
    const std::vector<double>& values = isOld ? oldValues : newValues;
    c.values = c.elementCount > 0 ? values.data() : nullptr;
    c.data = &data;
    return c;
}

void CAudioParamUndoRecord::takeList(const CAudioParamStorage& storage, bool isEmpty, int32_t& count,
                                     std::vector<double>& values)
{
    count = isEmpty ? 0 : storage.elementCount(group);
    const double* source = count > 0 ? storage.groupValues(group) : nullptr;
    values.assign(source, source + (source ? size_t(count) * size_t(elementSize) : 0));
    if (dataType != CAudioParamStorage::Float)
        for (double& id : values)
            id = double(data.copyItem(idOf(id), storage.data()));
}

void CAudioParamUndoRecord::releaseItems(const std::vector<double>& values)
{
    if (dataType == CAudioParamStorage::Float)
        return;
    for (double id : values)
        data.removeItem(idOf(id));
}

} // namespace qel
