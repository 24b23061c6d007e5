#include "Audio/CAudioParamStorage.h"

#include "Audio/CAudioParamInfo.h"
#include "Audio/Converters/CAudioParamConverter.h"

#include <algorithm>
#include <cmath>

namespace qel {
namespace {

constexpr uint32_t kStorageVersion = 1;

int32_t idOf(double value)
{
    return static_cast<int32_t>(CAudioParamConverter::roundHalfAway(value));
}

} // namespace

void CAudioParamStorage::setFormat(int32_t elementSize, uint32_t dataType, bool isSingleGroup, bool isSingleElement)
{
    m_groupValues.clear();
    m_defaultValues.clear();
    m_data.clear();
    m_elementSize = elementSize < 1 ? 1 : elementSize;
    m_dataType = dataType;
    m_isSingleGroup = isSingleGroup;
    m_isSingleElement = isSingleElement;
    m_isFormatSet = true;
    m_keepsRoom = false;
}

void CAudioParamStorage::setFormat(const CAudioParamInfo& info)
{
    setFormat(info.elementSize, info.dataType, info.isSingleGroup, info.isSingleElement);
}

bool CAudioParamStorage::hasFormatOf(const CAudioParamChange& change) const
{
    return m_isFormatSet && change.elementSize == m_elementSize && change.dataType == m_dataType
           && change.isSingleGroup == m_isSingleGroup && change.isSingleElement == m_isSingleElement;
}

int32_t CAudioParamStorage::elementCount(int32_t group) const
{
    if (m_isSingleGroup)
        group = 0;
    if (group < 0 || group >= groupCount())
        return 0;
    return int32_t(m_groupValues[group].size()) / m_elementSize;
}

double CAudioParamStorage::defaultValue(int32_t index) const
{
    if (m_defaultValues.empty())
        return 0.0;
    if (index >= 0 && size_t(index) < m_defaultValues.size())
        return m_defaultValues[index];
    // Past the defaults: the same position of default element 0.
    return m_defaultValues[size_t(index % m_elementSize) % m_defaultValues.size()];
}

double CAudioParamStorage::getValue(int32_t group, int32_t index, double fallback) const
{
    if (!m_isFormatSet)
        return fallback;
    if (m_isSingleGroup)
        group = 0;
    if (m_isSingleElement)
        index %= m_elementSize;
    if (group >= 0 && group < groupCount() && index >= 0 && size_t(index) < m_groupValues[group].size())
        return m_groupValues[group][index];
    return defaultValue(index);
}

const double* CAudioParamStorage::groupValues(int32_t group) const
{
    if (m_isSingleGroup)
        group = 0;
    return group >= 0 && group < groupCount() ? m_groupValues[group].data() : nullptr;
}

void CAudioParamStorage::setGroupCount(int32_t count)
{
    if (count < 0)
        count = 0;
    if (m_dataType != Float)
        for (int32_t g = count; g < groupCount(); ++g)
            releaseItems(g, 0, elementCount(g));
    m_groupValues.resize(size_t(count));
}

void CAudioParamStorage::reserve(int32_t groups, int32_t elements)
{
    if (int32_t(m_groupValues.capacity()) < groups)
        m_groupValues.reserve(size_t(groups));
    // Groups that don't exist yet are made now, empty (they read as defaults, as absent
    // ones do), so that a first write into them needs no allocation.
    while (groupCount() < groups)
        m_groupValues.emplace_back();
    for (auto& values : m_groupValues)
        values.reserve(size_t(elements) * size_t(m_elementSize));
    m_defaultValues.reserve(size_t(elements) * size_t(m_elementSize));
    m_keepsRoom = true;
}

void CAudioParamStorage::releaseItems(int32_t group, int32_t fromElement, int32_t toElement)
{
    auto& values = m_groupValues[group];
    for (int32_t i = fromElement * m_elementSize; i < toElement * m_elementSize && size_t(i) < values.size(); ++i)
        m_data.removeItem(uint32_t(idOf(values[i])));
}

void CAudioParamStorage::growGroup(int32_t group, int32_t elements)
{
    auto& values = m_groupValues[group];
    const size_t want = size_t(elements) * size_t(m_elementSize);
    while (values.size() < want) {
        const double fill = defaultValue(int32_t(values.size()));
        if (m_dataType == Float)
            values.push_back(fill);
        else
            values.push_back(double(m_data.copyItem(uint32_t(idOf(fill)), m_data)));
    }
}

void CAudioParamStorage::applyChange(const CAudioParamChange& input)
{
    CAudioParamChange change = input;
    if (change.group == kParamDefaultsGroup) {
        if (m_keepsRoom && hasFormatOf(change)) {
            // Emptied in place: a storage with reserved room never allocates for this.
            for (int32_t g = 0; g < groupCount(); ++g) {
                if (m_dataType != Float)
                    releaseItems(g, 0, elementCount(g));
                m_groupValues[g].clear();
            }
            if (m_dataType != Float)
                m_data.clear();
        } else {
            setFormat(change.elementSize, change.dataType, change.isSingleGroup, change.isSingleElement);
        }
        const size_t count = size_t(change.elementCount) * size_t(m_elementSize);
        m_defaultValues.assign(change.values, change.values + count);
        if (m_dataType != Float)
            for (double& id : m_defaultValues)
                id = change.data ? double(m_data.copyItem(uint32_t(idOf(id)), *change.data)) : 0.0;
        change.group = 0;
    } else if (!hasFormatOf(change)) {
        return;
    }
    if (m_isSingleGroup)
        change.group = 0;
    if (change.group < 0 || change.firstElement < 0 || change.elementCount < 0)
        return;
    if (m_isSingleElement && (change.firstElement > 0 || change.elementCount > 1)) {
        // One element only: whatever element was named means element 0.
        change.firstElement = 0;
        change.elementCount = change.elementCount > 0 ? 1 : 0;
    }

    if (change.group >= groupCount())
        setGroupCount(change.group + 1);
    const int32_t group = change.group;
    if (change.firstElement > elementCount(group))
        growGroup(group, change.firstElement);
    const int32_t end = change.firstElement + change.elementCount;
    if (m_dataType != Float)
        releaseItems(group, change.firstElement, change.isListEnd ? elementCount(group) : std::min(end, elementCount(group)));
    auto& values = m_groupValues[group];
    if (change.isListEnd)
        values.resize(size_t(end) * size_t(m_elementSize));
    else if (elementCount(group) < end)
        values.resize(size_t(end) * size_t(m_elementSize));

    const size_t first = size_t(change.firstElement) * size_t(m_elementSize);
    for (size_t i = 0; i < size_t(change.elementCount) * size_t(m_elementSize); ++i) {
        const double v = change.values[i];
        values[first + i] = m_dataType == Float ? v
                            : change.data   ? double(m_data.copyItem(uint32_t(idOf(v)), *change.data))
                                            : 0.0;
    }
}

void CAudioParamStorage::clampValues(const CAudioParamInfo& info)
{
    if (m_dataType != Float)
        return;
    for (auto& values : m_groupValues) {
        for (size_t i = 0; i < values.size(); ++i) {
            const size_t pos = i % size_t(m_elementSize);
            if (pos >= info.minValues.size() || pos >= info.maxValues.size())
                continue;
            const double lo = std::min(info.minValues[pos], info.maxValues[pos]);
            const double hi = std::max(info.minValues[pos], info.maxValues[pos]);
            values[i] = std::clamp(values[i], lo, hi);
        }
    }
}

CAudioParamChange CAudioParamStorage::makeChange(int32_t group, int32_t firstElement, int32_t count, bool isListEnd) const
{
    CAudioParamChange change;
    change.group = group;
    change.firstElement = firstElement;
    change.elementCount = count;
    change.isListEnd = isListEnd;
    change.elementSize = m_elementSize;
    change.dataType = m_dataType;
    change.isSingleGroup = m_isSingleGroup;
    change.isSingleElement = m_isSingleElement;
    const double* values = groupValues(group);
    change.values = values ? values + size_t(firstElement) * size_t(m_elementSize) : nullptr;
    change.data = &m_data;
    return change;
}

CErrorPtr CAudioParamStorage::parseDefValues(const CString& text, const CAudioParamInfo& info)
{
    setFormat(info);
    std::vector<double> values;
    int32_t group = 0;
    int32_t position = 0; // value position inside the current element
    CString token;
    auto parseError = [] {
        return QEL_ERROR(CString(), "@qelstr_CAudioParamStorage_parseDefValues_Error Default values parsing error.");
    };
    auto takeToken = [&]() -> CErrorPtr {
        if (position >= m_elementSize)
            return parseError();
        if (m_dataType == String) {
            values.push_back(double(m_data.addString(token)));
        } else if (m_dataType == Raw) {
            values.push_back(double(m_data.addRaw()));
        } else {
            if (size_t(position) >= info.converters.size() || !info.converters[position])
                return parseError();
            bool ok = false;
            const double v = info.converters[position]->parseValue(info, position, token, &ok);
            if (!ok)
                return parseError();
            values.push_back(v);
        }
        ++position;
        token = CString();
        return nullptr;
    };
    auto endElement = [&](int at) -> CErrorPtr {
        QEL_RETURN_IF_ERROR(takeToken(), CString());
        if (position != m_elementSize)
            return QEL_ERROR(CString(), "@qelstr_CAudioParamStorage_parseDefValues_NoElements Not enough default elements at pos %1.",
                             CString::number(at));
        position = 0;
        return nullptr;
    };
    auto endGroup = [&](int at) -> CErrorPtr {
        QEL_RETURN_IF_ERROR(endElement(at), CString());
        setGroupCount(group + 1);
        m_groupValues[group] = values; // item ids in it are already ours
        values.clear();
        ++group;
        return nullptr;
    };

    const int n = text.length();
    for (int i = 0; i < n; ++i) {
        const char16_t c = text.at(i);
        if (c == ',') {
            QEL_RETURN_IF_ERROR(endElement(i), CString());
        } else if (c == ';') {
            QEL_RETURN_IF_ERROR(endGroup(i), CString());
        } else if (c == ' ' && m_elementSize >= 2) {
            QEL_RETURN_IF_ERROR(takeToken(), CString());
        } else {
            token.append(c);
        }
    }
    if (!(n > 0 && text.at(n - 1) == ';'))
        QEL_RETURN_IF_ERROR(endGroup(n), CString());
    if (groupCount() == 0)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamDef_init_NoDefValues No default values specified.");
    adoptGroupZeroAsDefaults();
    return nullptr;
}

void CAudioParamStorage::adoptGroupZeroAsDefaults()
{
    m_defaultValues.clear();
    if (groupCount() == 0)
        return;
    for (double v : m_groupValues[0])
        m_defaultValues.push_back(m_dataType == Float ? v : double(m_data.copyItem(uint32_t(idOf(v)), m_data)));
}

CErrorPtr CAudioParamStorage::save(COutputStream& out, int32_t group) const
{
    const int32_t first = group < 0 ? 0 : group;
    const int32_t last = group < 0 ? groupCount() : group + 1;
    QEL_RETURN_IF_ERROR(out.writeU32(kStorageVersion), CString());
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(m_elementSize)), CString());
    QEL_RETURN_IF_ERROR(out.writeU32(m_dataType), CString());
    QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(last > first ? last - first : 0)), CString());
    // groupValues and elementCount map a single-group storage's groups onto group 0.
    if (m_dataType == Float) {
        for (int32_t g = first; g < last; ++g) {
            const int32_t count = elementCount(g);
            const double* values = groupValues(g);
            QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(count)), CString());
            for (int32_t i = 0; i < count * m_elementSize; ++i)
                QEL_RETURN_IF_ERROR(out.writeDouble(values[i]), CString());
        }
        return nullptr;
    }
    // Only the items in use, renumbered from 1 in the order of the values.
    CAudioParamData table;
    std::vector<uint32_t> ids;
    for (int32_t g = first; g < last; ++g) {
        const double* values = groupValues(g);
        for (int32_t i = 0; i < elementCount(g) * m_elementSize; ++i)
            ids.push_back(table.copyItem(uint32_t(idOf(values[i])), m_data));
    }
    QEL_RETURN_IF_ERROR(table.save(out), CString());
    size_t next = 0;
    for (int32_t g = first; g < last; ++g) {
        const int32_t count = elementCount(g);
        QEL_RETURN_IF_ERROR(out.writeU32(uint32_t(count)), CString());
        for (int32_t i = 0; i < count * m_elementSize; ++i)
            QEL_RETURN_IF_ERROR(out.writeU32(ids[next++]), CString());
    }
    return nullptr;
}

CErrorPtr CAudioParamStorage::load(CInputStream& in)
{
    uint32_t version = 0, elementSize = 0, dataType = 0, groups = 0;
    QEL_RETURN_IF_ERROR(in.readU32(version), CString());
    if (version != kStorageVersion)
        return QEL_ERROR(CString(), "qelstr_CAudioParamStorage_load_VersionError Unsupported data set version %1.",
                         CString::number(version));
    QEL_RETURN_IF_ERROR(in.readU32(elementSize), CString());
    QEL_RETURN_IF_ERROR(in.readU32(dataType), CString());
    if (int32_t(elementSize) != m_elementSize || dataType != m_dataType)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamStorage_load_FormatError Unsupported storage format (esize=%1, dtype=%2; should be: esize=%3, dtype=%4).",
                         CString::number(elementSize), CString::number(dataType), CString::number(m_elementSize),
                         CString::number(m_dataType));
    QEL_RETURN_IF_ERROR(in.readU32(groups), CString());
    // A group count is bounded by the groups a graph can have; more is damage.
    if (groups > 4096)
        return QEL_ERROR(CString(), "@qelstr_CAudioParamStorage_load_GroupCount Unsupported group count %1.",
                         CString::number(groups));
    // Everything is read aside first: damaged data must leave the values as they were.
    CAudioParamData table;
    if (m_dataType != Float)
        QEL_RETURN_IF_ERROR(table.load(in), CString());
    std::vector<std::vector<double>> loaded(groups);
    for (auto& values : loaded) {
        uint32_t count = 0;
        QEL_RETURN_IF_ERROR(in.readU32(count), CString());
        // Grows with what arrives, so a damaged count can't ask for gigabytes up front.
        for (uint64_t i = 0; i < uint64_t(count) * uint64_t(m_elementSize); ++i) {
            if (m_dataType == Float) {
                double v = 0;
                QEL_RETURN_IF_ERROR(in.readDouble(v), CString());
                values.push_back(v);
            } else {
                uint32_t id = 0;
                QEL_RETURN_IF_ERROR(in.readU32(id), CString());
                values.push_back(double(id));
            }
        }
    }

    if (m_dataType != Float)
        for (int32_t g = 0; g < groupCount(); ++g)
            releaseItems(g, 0, elementCount(g));
    for (auto& values : m_groupValues)
        values.clear();
    setGroupCount(int32_t(groups));
    for (uint32_t g = 0; g < groups; ++g) {
        auto& values = m_groupValues[g];
        if (m_dataType == Float) {
            values = loaded[g];
            continue;
        }
        for (double id : loaded[g])
            values.push_back(double(m_data.copyItem(uint32_t(id), table)));
    }
    return nullptr;
}

} // namespace qel
