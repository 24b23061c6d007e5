// CAudioParam: its stored form in presets, and the registries it belongs to.

#include "Audio/CAudioParam.h"

#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/CPresetEntry.h"
#include "Core/CLog.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace qel {
namespace {

// A stored list may not outgrow the room the audio side keeps per group (see
// attachDefinition), or applying it would make the audio thread allocate.
constexpr int32_t kMaxStoredElements = 16;

} // namespace

CErrorPtr CAudioParam::save(CPresetEntry& out, int32_t group)
{
    CAudioParamLock lock(*this);
    const CAudioParamInfo* definition = info();
    if (!definition)
        return QEL_ERROR(m_name, "@qelstr_CAudioParam_save_NoDefinition Parameter '%1' has no definition.", m_name);
    int32_t groups = m_values.groupCount();
    while (group < 0 && groups > 0 && m_values.elementCount(groups - 1) == 0)
        --groups;
    if (groups == m_values.groupCount() || group >= 0) {
        QEL_RETURN_IF_ERROR(out.store(definition->fullName, m_values, group), m_name);
        return nullptr;
    }
    // Groups at the end that hold nothing read as defaults: left out, so equal states
    // always give equal bytes however many groups were touched before.
    CAudioParamStorage trimmed = m_values;
    trimmed.setGroupCount(groups);
    QEL_RETURN_IF_ERROR(out.store(definition->fullName, trimmed, -1), m_name);
    return nullptr;
}

CErrorPtr CAudioParam::parseEntry(const CAudioParamInfo& definition, int32_t maxGroups, const CPresetEntry& entry,
                                  CAudioParamStorage& out)
{
    CAudioParamStorage loaded;
    loaded.setFormat(definition);
    // The name the blob gives its definition plays no part: the key alone decides, so that
    // the banks of a sibling module load here.
    CString definitionName;
    QEL_RETURN_IF_ERROR(entry.parse(definitionName, loaded), CString());
    if (definition.isSingleGroup)
        maxGroups = 1;
    if (loaded.groupCount() > std::max(maxGroups, 1))
        return QEL_ERROR(CString(), "@qelstr_CAudioParam_parseEntry_GroupCount Too many groups (%1) stored for parameter '%2'.",
                         CString::number(loaded.groupCount()), definition.fullName);
    for (int32_t g = 0; g < loaded.groupCount(); ++g) {
        const int32_t count = loaded.elementCount(g);
        if (count > kMaxStoredElements)
            return QEL_ERROR(CString(), "@qelstr_CAudioParam_parseEntry_ElementCount Too many elements (%1) stored for parameter '%2'.",
                             CString::number(count), definition.fullName);
        if (loaded.dataType() != CAudioParamStorage::Float)
            continue;
        const double* v = loaded.groupValues(g);
        for (int32_t i = 0; i < count * loaded.elementSize(); ++i)
            if (!std::isfinite(v[i]))
                return QEL_ERROR(CString(), "@qelstr_CAudioParam_parseEntry_InvalidValue Invalid value stored for parameter '%1'.",
                                 definition.fullName);
    }
    loaded.clampValues(definition);
    out = std::move(loaded);
    return nullptr;
}

CErrorPtr CAudioParam::load(const CPresetEntry& entry, bool asDefaults, CAudioParamUpdateContext& context, int32_t group,
                            int32_t element, bool isListEnd, const void* source)
{
    CAudioParamLock lock(*this);
    const CAudioParamInfo* definition = info();
    if (!definition)
        return nullptr;
    CAudioParamStorage loaded;
    QEL_RETURN_IF_ERROR(parseEntry(*definition, m_collector ? m_collector->reservedGroups() : 1, entry, loaded), m_name);

    if (asDefaults) {
        // The lists change; what absent elements read stays the definition's.
        for (int32_t g = 0; g < loaded.groupCount(); ++g)
            m_defaults.applyChange(loaded.makeChange(g, 0, loaded.elementCount(g), true));
        m_defaults.setGroupCount(loaded.groupCount());
        return nullptr;
    }

    if (group < 0) {
        // The stored groups replace all groups; the groups it lacks are cut, so the audio
        // side drops them as well and reads the defaults there.
        const int32_t oldGroups = m_values.groupCount();
        for (int32_t g = 0; g < loaded.groupCount(); ++g) {
            CAudioParamChange c = loaded.makeChange(g, 0, loaded.elementCount(g), true);
            c.source = source;
            change(c, context);
            if (m_values.isSingleGroup())
                break;
        }
        for (int32_t g = loaded.groupCount(); g < oldGroups && !m_values.isSingleGroup(); ++g) {
            if (m_values.elementCount(g) == 0)
                continue;
            CAudioParamChange c = m_values.makeChange(g, 0, 0, true);
            c.values = nullptr;
            c.source = source;
            change(c, context);
        }
        return nullptr;
    }

    const int32_t stored = loaded.elementCount(0);
    if (stored == 0) {
        reset(group, element, isListEnd, context, source);
        return nullptr;
    }
    if (element < 0) {
        CAudioParamChange c = loaded.makeChange(0, 0, stored, true);
        c.group = group;
        c.source = source;
        change(c, context);
        if (group == kParamDefaultsGroup)
            m_defaults.applyChange(c);
        return nullptr;
    }
    if (group != kParamDefaultsGroup || element == 0) {
        CAudioParamChange c = loaded.makeChange(0, 0, 1, group == kParamDefaultsGroup ? true : isListEnd);
        c.group = group;
        c.firstElement = group == kParamDefaultsGroup ? 0 : element;
        c.source = source;
        change(c, context);
        if (group == kParamDefaultsGroup)
            m_defaults.applyChange(c);
        return nullptr;
    }
    // One more default element, at the end of the present ones.
    const int32_t size = m_values.elementSize();
    const int32_t present = int32_t(m_values.defaultValues().size()) / size;
    if (element != present) {
        CLog::printfObject(m_name, "Unexpected LoadElement %i (expected %i).", int(element), int(present));
        return nullptr;
    }
    std::vector<double> values;
    CAudioParamData items;
    const bool isFloat = m_values.dataType() == CAudioParamStorage::Float;
    for (double v : m_values.defaultValues())
        values.push_back(isFloat ? v : double(items.copyItem(uint32_t(std::lround(v)), m_values.data())));
    const double* added = loaded.groupValues(0);
    for (int32_t i = 0; i < size; ++i)
        values.push_back(isFloat ? added[i] : double(items.copyItem(uint32_t(std::lround(added[i])), loaded.data())));
    CAudioParamChange c = m_values.makeChange(kParamDefaultsGroup, 0, present + 1, true);
    c.values = values.data();
    c.data = &items;
    c.source = source;
    change(c, context);
    m_defaults.applyChange(c);
    return nullptr;
}

void CAudioParam::reset(int32_t group, int32_t element, bool isListEnd, CAudioParamUpdateContext& context,
                        const void* source)
{
    CAudioParamLock lock(*this);
    if (!info())
        return;
    const int32_t size = m_defaults.elementSize();
    const bool isFloat = m_defaults.dataType() == CAudioParamStorage::Float;
    // Item ids of string and raw defaults are copied into one table of the change's own.
    CAudioParamData items;
    auto take = [&](double v, const CAudioParamStorage& from) {
        return isFloat ? v : double(items.copyItem(uint32_t(std::lround(v)), from.data()));
    };
    // The default list of a group: its own when the defaults have that group, else the
    // definition's.
    auto defaultList = [&](int32_t g, std::vector<double>& out) {
        out.clear();
        if (g >= 0 && g < m_defaults.groupCount()) {
            const double* v = m_defaults.groupValues(g);
            for (int32_t i = 0; i < m_defaults.elementCount(g) * size; ++i)
                out.push_back(take(v[i], m_defaults));
            return;
        }
        for (double v : m_values.defaultValues())
            out.push_back(take(v, m_values));
    };
    auto send = [&](int32_t g, int32_t first, int32_t count, const double* values, bool listEnd) {
        CAudioParamChange c = m_defaults.makeChange(0, 0, 0, listEnd);
        c.group = g;
        c.firstElement = first;
        c.elementCount = count;
        c.values = count > 0 ? values : nullptr;
        c.data = &items;
        c.source = source;
        change(c, context);
    };
    std::vector<double> list;

    if (group < 0) {
        const int32_t groups = std::max(m_defaults.groupCount(), 1);
        for (int32_t g = 0; g < groups; ++g) {
            defaultList(g, list);
            const int32_t count = int32_t(list.size()) / size;
            if (element < 0)
                send(g, 0, count, list.data(), true);
            else if (element < count)
                send(g, element, 1, list.data() + size_t(element) * size_t(size), isListEnd);
            if (m_values.isSingleGroup())
                return;
        }
        // Groups the defaults don't have are cut: they read the defaults again.
        for (int32_t g = groups; g < m_values.groupCount() && element < 0; ++g)
            if (m_values.elementCount(g) > 0)
                send(g, 0, 0, nullptr, true);
        return;
    }

    if (group == kParamDefaultsGroup) {
        defaultList(0, list);
        const int32_t count = int32_t(list.size()) / size;
        if (element <= 0) {
            send(kParamDefaultsGroup, 0, element == 0 ? std::min(count, 1) : count, list.data(), true);
            return;
        }
        const int32_t present = int32_t(m_values.defaultValues().size()) / size;
        if (element != present) {
            CLog::printf("Unexpected Element %i (expected %i), param '%s'.", int(element), int(present),
                         m_name.toUtf8().c_str());
            return;
        }
        // The present default elements and the default of the new one behind them.
        std::vector<double> grown;
        for (double v : m_values.defaultValues())
            grown.push_back(take(v, m_values));
        for (int32_t pos = 0; pos < size; ++pos)
            grown.push_back(take(m_defaults.getElementValue(0, element, pos, 0.0), m_defaults));
        send(kParamDefaultsGroup, 0, present + 1, grown.data(), true);
        return;
    }

    defaultList(group, list);
    const int32_t count = int32_t(list.size()) / size;
    if (element < 0) {
        send(group, 0, count, list.data(), true);
        return;
    }
    // An element past the default list takes the default of its position.
    std::vector<double> one;
    for (int32_t pos = 0; pos < size; ++pos)
        one.push_back(element < count ? list[size_t(element) * size_t(size) + size_t(pos)]
                                      : take(m_defaults.getElementValue(group, element, pos, 0.0), m_defaults));
    send(group, element, 1, one.data(), isListEnd);
}

void CAudioParam::setRegistry(CAudioParamRegistry* registry)
{
    m_registry.store(registry, std::memory_order_release);
}

void CAudioParam::addNameRegistry(CAudioParamRegistry* registry)
{
    CLockGuard guard(m_registriesLock);
    if (std::find(m_nameRegistries.begin(), m_nameRegistries.end(), registry) == m_nameRegistries.end())
        m_nameRegistries.push_back(registry);
}

void CAudioParam::removeNameRegistry(CAudioParamRegistry* registry)
{
    CLockGuard guard(m_registriesLock);
    m_nameRegistries.erase(std::remove(m_nameRegistries.begin(), m_nameRegistries.end(), registry),
                           m_nameRegistries.end());
}

void CAudioParam::getNameRegistries(std::vector<CAudioParamRegistry*>& out)
{
    CLockGuard guard(m_registriesLock);
    out = m_nameRegistries;
}

} // namespace qel
