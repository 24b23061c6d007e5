#pragma once

#include "Audio/CAudioParamChange.h"
#include "Audio/CAudioParamData.h"
#include "Core/CError.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioParamInfo;

// The values of one parameter: per group a list of elements of `elementSize` values each.
// Sparse: a group that was never written has no elements, and a read there gets the
// default. A single-group parameter lives in group 0 and a single-element one in element
// 0, whatever group or element a caller names.
// No lock of its own: its owner guards it.
class CAudioParamStorage
{
public:
    enum DataType : uint32_t { Float = 0, String = 1, Raw = 2 };

    void setFormat(int32_t elementSize, uint32_t dataType, bool isSingleGroup, bool isSingleElement);
    void setFormat(const CAudioParamInfo& info);
    bool isFormatSet() const { return m_isFormatSet; }
    bool hasFormatOf(const CAudioParamChange& change) const;
    int32_t elementSize() const { return m_elementSize; }
    uint32_t dataType() const { return m_dataType; }
    bool isSingleGroup() const { return m_isSingleGroup; }
    bool isSingleElement() const { return m_isSingleElement; }

    // `index` counts values: element * elementSize + position. `fallback` without format.
    double getValue(int32_t group, int32_t index, double fallback) const;
    double getElementValue(int32_t group, int32_t element, int32_t position, double fallback) const
    {
        return getValue(group, element * m_elementSize + position, fallback);
    }
    int32_t groupCount() const { return int32_t(m_groupValues.size()); }
    int32_t elementCount(int32_t group) const;
    const std::vector<double>& defaultValues() const { return m_defaultValues; }
    const CAudioParamData& data() const { return m_data; }
    CAudioParamData& data() { return m_data; }

    void setGroupCount(int32_t count);
    // Room for `groups` groups of `elements` elements, so that later changes within it
    // allocate nothing: the audio thread's copy is sized like this before audio runs.
    void reserve(int32_t groups, int32_t elements);
    // Changes of another format are dropped; group 9999 replaces format and defaults.
    void applyChange(const CAudioParamChange& change);
    // Every value into the range of its position (taken the other way round when min is
    // above max).
    void clampValues(const CAudioParamInfo& info);

    // "," ends an element, ";" a group, a blank a value (only with elementSize 2 or more).
    CErrorPtr parseDefValues(const CString& text, const CAudioParamInfo& info);

    // `group` -1 saves all groups.
    CErrorPtr save(COutputStream& out, int32_t group) const;
    CErrorPtr load(CInputStream& in);

    // After a load: the values of group 0 become the defaults, as parsing makes them.
    void adoptGroupZeroAsDefaults();
    // Builds a change that writes `count` elements of group from this storage's values.
    CAudioParamChange makeChange(int32_t group, int32_t firstElement, int32_t count, bool isListEnd) const;
    const double* groupValues(int32_t group) const;

private:
    void growGroup(int32_t group, int32_t elements);
    void releaseItems(int32_t group, int32_t fromElement, int32_t toElement);
    double defaultValue(int32_t index) const;

    int32_t m_elementSize = 1;
    uint32_t m_dataType = Float;
    bool m_isSingleGroup = false;
    bool m_isSingleElement = false;
    CAudioParamData m_data;
    std::vector<std::vector<double>> m_groupValues;
    bool m_isFormatSet = false;
    bool m_keepsRoom = false; // reserved: emptying keeps the arrays and their room
    std::vector<double> m_defaultValues;
};

} // namespace qel
