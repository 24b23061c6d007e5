#include "Audio/Processes/CModProcessSwitch.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamInfo.h"

#include <algorithm>
#include <cmath>

namespace qel {

CModProcessSwitch::CModProcessSwitch() { m_isLeaf = false; }

CModProcessSwitch::~CModProcessSwitch() { m_chains.clear(); }

CErrorPtr CModProcessSwitch::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessBase::init(), m_fullName);
    const auto* def = dynamic_cast<const CModProcessSwitchDef*>(m_def);
    if (!def)
        return QEL_ERROR(m_fullName, "@qelstr_CModProcessSwitch_init_ProcessDefClassInvalid Audio process def of invalid class supplied.");
    const int32_t length = def->isAllpassBank() ? bankLength() : 1;
    for (const auto& [index, entry] : def->table())
        if (!chainFor(&entry))
            QEL_RETURN_IF_ERROR(addChain(&entry, length), m_fullName);
    for (int32_t p = 0; p < kPortCount; ++p)
        reserveInputs(p, 0, 1);
    m_switchOutputs.reserve(4);
    return nullptr;
}

int32_t CModProcessSwitch::bankLength() const
{
    // The longest chain the parameters' ranges allow: count at its top, index at its bottom.
    const CParamBinding* index = binding(SlotIndex);
    const CParamBinding* count = binding(SlotCount);
    const CAudioParamInfo* indexInfo = index && index->param ? index->param->info() : nullptr;
    const CAudioParamInfo* countInfo = count && count->param ? count->param->info() : nullptr;
    if (!indexInfo || !countInfo || indexInfo->minValues.empty() || countInfo->maxValues.empty())
        return kFallbackBank;
    const double longest = std::round(countInfo->maxValues[0]) - std::round(indexInfo->minValues[0]) - 1.0;
    return int32_t(std::clamp(longest, 1.0, double(kMaxBank)));
}

CErrorPtr CModProcessSwitch::addChain(const CModProcessSwitchDef::CEntry* entry, int32_t length)
{
    auto chain = std::make_unique<CChain>();
    chain->entry = entry;
    const CString name = entry->childName.isEmpty() ? m_fullName : CString(m_fullName).append(".").append(entry->childName);
    for (int32_t i = 0; i < length; ++i) {
        CAudioProcessBase* made = nullptr;
        QEL_RETURN_IF_ERROR(entry->def->createProcess(made, this, name, m_env, m_group, m_element, m_pool, false, false),
                            m_fullName);
        chain->instances.emplace_back(made);
        // Any instance may end the chain, and then feeds what the switch feeds.
        made->reserveOutputs(int32_t(m_switchOutputs.capacity()) + 2);
    }
    for (auto& feed : chain->feeds)
        feed = std::make_unique<CAudioStream>();
    for (int32_t i = 0; i + 1 < length; ++i)
        for (int32_t p = 0; p < kPortCount; ++p)
            chain->links.push_back(std::make_unique<CAudioStream>());
    m_chains.push_back(std::move(chain));
    return nullptr;
}

CModProcessSwitch::CChain* CModProcessSwitch::chainFor(const CModProcessSwitchDef::CEntry* entry) const
{
    // Indices that name the same definition under the same name share their instances.
    for (const auto& chain : m_chains)
        if (chain->entry->def == entry->def && chain->entry->childName == entry->childName)
            return chain.get();
    return nullptr;
}

CAudioProcessBase* CModProcessSwitch::instance(int32_t i) const
{
    return m_active && i < m_activeCount ? m_active->instances[size_t(i)].get() : nullptr;
}

int32_t CModProcessSwitch::preparedInstanceCount() const
{
    int32_t n = 0;
    for (const auto& chain : m_chains)
        n += int32_t(chain->instances.size());
    return n;
}

double CModProcessSwitch::slotValue(int32_t slot) const
{
    const CParamBinding* b = binding(slot);
    if (!b || !b->param)
        return 0.0;
    return b->param->audioValues().getElementValue(m_group, m_element, 0, 0.0);
}

void CModProcessSwitch::update()
{
    const CParamBinding* index = binding(SlotIndex);
    const CParamBinding* count = binding(SlotCount);
    const bool isChanged = (index && index->changed) || (count && count->changed);
    if (m_isSelected && !isChanged)
        return;
    // Half away from zero, as everywhere.
    const auto newIndex = int32_t(std::lround(slotValue(SlotIndex)));
    const auto newCount = int32_t(std::lround(slotValue(SlotCount)));
    if (m_isSelected && newIndex == m_index && newCount == m_count)
        return;
    deselect();
    select(newIndex, newCount);
}

void CModProcessSwitch::select(int32_t index, int32_t count)
{
    m_isSelected = true;
    m_index = index;
    m_count = count;
    const auto* def = static_cast<const CModProcessSwitchDef*>(m_def);
    const CModProcessSwitchDef::CEntry* entry = def->lookUp(index);
    CChain* chain = entry ? chainFor(entry) : nullptr;
    const int32_t wanted = def->isAllpassBank() ? count - index - 1 : 1;
    if (!chain || wanted <= 0) {
        // Empty: whatever the switch fed hears no channels from now on.
        for (CAudioStream* s : m_switchOutputs)
            s->setFormat(m_inputRate, nullptr, 0);
        return;
    }
    m_active = chain;
    m_activeCount = std::min(wanted, int32_t(chain->instances.size()));
    CAudioProcessBase* first = chain->instances.front().get();
    for (int32_t i = 0; i < m_activeCount; ++i)
        chain->instances[size_t(i)]->activate();
    for (int32_t p = 0; p < kPortCount; ++p) {
        CAudioStream* s = chain->feeds[p].get();
        s->srcPort = p;
        first->attachInput(s, p);
        attachFeed(p, first, p, s);
    }
    for (int32_t i = 0; i + 1 < m_activeCount; ++i) {
        for (int32_t p = 0; p < kPortCount; ++p) {
            CAudioStream* s = chain->links[size_t(i * kPortCount + p)].get();
            s->srcPort = p;
            chain->instances[size_t(i)]->attachOutput(s);
            chain->instances[size_t(i) + 1]->attachInput(s, p);
        }
    }
    CAudioProcessBase* last = chain->instances[size_t(m_activeCount) - 1].get();
    for (CAudioStream* s : m_switchOutputs)
        last->attachOutput(s);
}

void CModProcessSwitch::deselect()
{
    m_isSelected = false;
    CChain* chain = m_active;
    if (!chain)
        return;
    CAudioProcessBase* first = chain->instances.front().get();
    for (int32_t p = 0; p < kPortCount; ++p) {
        CAudioStream* s = chain->feeds[p].get();
        first->detachInput(s, p);
        detachFeed(p, s);
        s->clear();
    }
    for (int32_t i = 0; i + 1 < m_activeCount; ++i) {
        for (int32_t p = 0; p < kPortCount; ++p) {
            CAudioStream* s = chain->links[size_t(i * kPortCount + p)].get();
            chain->instances[size_t(i)]->detachOutput(s);
            chain->instances[size_t(i) + 1]->detachInput(s, p);
            s->clear();
        }
    }
    CAudioProcessBase* last = chain->instances[size_t(m_activeCount) - 1].get();
    for (CAudioStream* s : m_switchOutputs)
        last->detachOutput(s);
    // What the switch held is gone as if destroyed: its state is lost.
    for (int32_t i = 0; i < m_activeCount; ++i)
        chain->instances[size_t(i)]->deactivate();
    m_active = nullptr;
    m_activeCount = 0;
}

void CModProcessSwitch::process()
{
    pull();
    releasePortBuffers();
    for (int32_t i = 0; i < m_activeCount; ++i)
        m_active->instances[size_t(i)]->process();
}

void CModProcessSwitch::reset()
{
    CAudioProcessBase::reset();
    for (int32_t i = 0; i < m_activeCount; ++i)
        m_active->instances[size_t(i)]->reset();
}

void CModProcessSwitch::release()
{
    // Coming back selects afresh.
    deselect();
    CAudioProcessBase::release();
}

void CModProcessSwitch::attachOutput(CAudioStream* stream)
{
    m_switchOutputs.push_back(stream);
    if (m_active)
        m_active->instances[size_t(m_activeCount) - 1]->attachOutput(stream);
}

void CModProcessSwitch::detachOutput(CAudioStream* stream)
{
    auto it = std::find(m_switchOutputs.begin(), m_switchOutputs.end(), stream);
    if (it != m_switchOutputs.end())
        m_switchOutputs.erase(it);
    if (m_active)
        m_active->instances[size_t(m_activeCount) - 1]->detachOutput(stream);
}

void CModProcessSwitch::reserveOutputs(int32_t count)
{
    m_switchOutputs.reserve(m_switchOutputs.capacity() + size_t(count));
    for (const auto& chain : m_chains)
        for (const auto& instance : chain->instances)
            instance->reserveOutputs(count);
}

} // namespace qel
