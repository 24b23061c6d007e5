#include "Audio/CAudioDefaultRouting.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamUpdateContext.h"

#include <algorithm>

namespace qel {

namespace {

bool isUsable(const CAudioParam* param) { return param && param->info(); }

// 1, 2, ... k, then 0: channel c in and out as host channel c + 1, for some k.
bool isOneToOne(const std::vector<double>& v)
{
    size_t k = 0;
    while (k < v.size() && v[k] == double(k + 1))
        ++k;
    return std::all_of(v.begin() + std::ptrdiff_t(k), v.end(), [](double x) { return x == 0.0; });
}

// 0 for the first k channels, then channel c in group c / 2, for some k.
bool isPairGrouping(const std::vector<double>& v)
{
    size_t k = 0;
    while (k < v.size() && v[k] == 0.0)
        ++k;
    for (size_t c = k; c < v.size(); ++c)
        if (v[c] != double(c / 2))
            return false;
    return true;
}

bool isIdentity(const std::vector<double>& v)
{
    for (size_t c = 0; c < v.size(); ++c)
        if (v[c] != double(c))
            return false;
    return true;
}

// The plain names of group n (counted from 1).
bool isPlainGroupName(const CString& name, int32_t n)
{
    const CString number = CString::number(n);
    return name == number || name == CString("G").append(number) || name == CString("G-").append(number);
}

} // namespace

CAudioDefaultRouting::CAudioDefaultRouting(const CParams& params, int32_t channelCount, int32_t groupCount)
    : m_params(params), m_channelCount(std::max(channelCount, 0)), m_groupCount(std::max(groupCount, 0))
{
}

bool CAudioDefaultRouting::isAvailable() const
{
    const CParams& p = m_params;
    return isUsable(p.inChannelNames) && isUsable(p.groupNames) && isUsable(p.inRouting) && isUsable(p.grouping)
           && isUsable(p.outRouting);
}

std::vector<double> CAudioDefaultRouting::values(CAudioParam* param, int32_t count) const
{
    std::vector<double> out(size_t(count), 0.0);
    CAudioParamLock lock(*param);
    for (int32_t c = 0; c < count; ++c)
        out[size_t(c)] = param->values().getElementValue(0, c, 0, 0.0);
    return out;
}

bool CAudioDefaultRouting::isUntouched() const
{
    if (!isAvailable())
        return false;
    const CParams& p = m_params;
    if (isUsable(p.msPairs)) {
        const std::vector<double> pairs = values(p.msPairs, m_channelCount);
        if (std::any_of(pairs.begin(), pairs.end(), [](double x) { return x != 0.0; }))
            return false;
    }
    const CString first = p.groupNames->getString(0, 0);
    if (!(first.isEmpty() || first == CString("G1") || first == CString("G-1") || first == CString("1")
          || (!m_writtenFirstGroupName.isEmpty() && first == m_writtenFirstGroupName)))
        return false;
    for (int32_t g = 1; g < m_groupCount; ++g)
        if (!isPlainGroupName(p.groupNames->getString(0, g), g + 1))
            return false;
    if (isUsable(p.sidechain)) {
        const std::vector<double> v = values(p.sidechain, m_channelCount);
        if (!isIdentity(v) && v != m_writtenSidechain)
            return false;
    }
    if (isUsable(p.sidechainMute)) {
        const std::vector<double> v = values(p.sidechainMute, m_channelCount);
        const bool isNone = std::all_of(v.begin(), v.end(), [](double x) { return x == 0.0; });
        if (!isNone && v != m_writtenSidechainMute)
            return false;
    }
    return isOneToOne(values(p.inRouting, m_channelCount)) && isOneToOne(values(p.outRouting, m_channelCount))
           && isPairGrouping(values(p.grouping, m_channelCount));
}

bool CAudioDefaultRouting::write(CAudioParam* param, const std::vector<double>& wanted, const void* source,
                                 CAudioParamUpdateContext& context)
{
    if (!isUsable(param) || values(param, int32_t(wanted.size())) == wanted)
        return false;
    CAudioParamLock lock(*param);
    CAudioParamChange change = param->values().makeChange(0, 0, int32_t(wanted.size()), true);
    change.values = wanted.data();
    change.source = source;
    param->change(change, context);
    return true;
}

bool CAudioDefaultRouting::writeText(CAudioParam* param, int32_t element, const CString& text, const void* source,
                                     CAudioParamUpdateContext& context)
{
    if (param->getString(0, element) == text)
        return false;
    param->setString(0, element, text, source, context);
    return true;
}

bool CAudioDefaultRouting::apply(const std::vector<CString>& mainLabels, const std::vector<CString>& sidechainLabels,
                                 const void* source, CAudioParamUpdateContext& context)
{
    if (!isAvailable())
        return false;
    const CParams& p = m_params;
    const auto nMain = int32_t(mainLabels.size());
    const auto nSide = int32_t(sidechainLabels.size());
    const int32_t n = nMain + nSide;
    bool isChanged = false;

    std::vector<CString> labels = mainLabels;
    labels.insert(labels.end(), sidechainLabels.begin(), sidechainLabels.end());
    for (int32_t c = 0; c < int32_t(labels.size()) && c < m_channelCount; ++c)
        isChanged = writeText(p.inChannelNames, c, labels[size_t(c)], source, context) || isChanged;

    m_writtenFirstGroupName = CString(nMain == 1 ? "MONO" : nMain == 2 ? "STEREO" : "MULTI");
    if (m_groupCount > 0)
        isChanged = writeText(p.groupNames, 0, m_writtenFirstGroupName, source, context) || isChanged;
    for (int32_t g = 1; g < m_groupCount; ++g)
        isChanged = writeText(p.groupNames, g, CString("G-").append(CString::number(g + 1)), source, context) || isChanged;

    // Sidechain channels are those behind the main ones, as far as the instance has room.
    const int32_t sideEnd = std::min(n, m_channelCount);
    const bool hasSidechain = nSide > 0 && nMain < m_channelCount;
    const auto isSidechainChannel = [&](int32_t c) { return hasSidechain && c >= nMain && c < sideEnd; };
    const auto count = size_t(m_channelCount);
    std::vector<double> inRouting(count), outRouting(count), grouping(count), sidechain(count), mute(count);
    for (int32_t c = 0; c < m_channelCount; ++c) {
        const auto i = size_t(c);
        inRouting[i] = c < n ? double(c + 1) : 0.0;
        outRouting[i] = c < n && !isSidechainChannel(c) ? double(c + 1) : 0.0;
        grouping[i] = c < n ? 0.0 : double(c / 2);
        // A single sidechain channel keys every main channel; otherwise each keys itself.
        sidechain[i] = hasSidechain && nSide == 1 && c < nMain ? double(nMain) : double(c);
        mute[i] = isSidechainChannel(c) ? 1.0 : 0.0;
    }
    isChanged = write(p.inRouting, inRouting, source, context) || isChanged;
    isChanged = write(p.outRouting, outRouting, source, context) || isChanged;
    isChanged = write(p.grouping, grouping, source, context) || isChanged;
    if (isUsable(p.sidechain)) {
        m_writtenSidechain = sidechain;
        isChanged = write(p.sidechain, sidechain, source, context) || isChanged;
    }
    if (isUsable(p.sidechainMute)) {
        m_writtenSidechainMute = mute;
        isChanged = write(p.sidechainMute, mute, source, context) || isChanged;
    }
    return isChanged;
}

} // namespace qel
