#include "Audio/CAudioModule.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CSampleBufferPool.h"

#include <algorithm>

namespace qel {

CAudioModule::CAudioModule(int32_t slotCount) : m_slotCount(std::clamp(slotCount, 0, kMaxSlots)) {}

CAudioModule::~CAudioModule()
{
    for (auto& port : m_out) {
        for (double*& out : port) {
            CSampleBufferPool::release(out);
            out = nullptr;
        }
    }
}

CErrorPtr CAudioModule::init() { return nullptr; }

void CAudioModule::reset() {}

void CAudioModule::update() {}

void CAudioModule::regParams(CAudioProcessTerminalBase& owner)
{
    for (int32_t slot = 0; slot < m_slotCount; ++slot) {
        m_slots[slot] = owner.binding(slot);
        if (!m_slots[slot])
            owner.noteMissingParam(slot);
    }
}

void CAudioModule::setChannels(const CChannel* channels, int32_t count)
{
    m_channelCount = std::clamp(count, 0, kMaxChannels);
    for (int32_t c = 0; c < m_channelCount; ++c)
        m_channels[c] = channels[c];
}

bool CAudioModule::hasSameChannels(const CChannel* channels, int32_t count) const
{
    if (count != m_channelCount)
        return false;
    for (int32_t c = 0; c < count; ++c)
        if (channels[c].key != m_channels[c].key || channels[c].group != m_channels[c].group)
            return false;
    return true;
}

uint32_t CAudioModule::groupBits() const
{
    uint32_t bits = 0;
    for (int32_t c = 0; c < m_channelCount; ++c)
        bits |= uint32_t(1) << (uint32_t(m_channels[c].group) % 32);
    return bits;
}

double CAudioModule::paramValue(int32_t slot, int32_t group, double fallback) const
{
    if (!isSlotBound(slot))
        return fallback;
    return m_slots[slot]->param->audioValues().getElementValue(group, m_owner->element(), 0, fallback);
}

double CAudioModule::paramValue(int32_t slot, double fallback) const
{
    return paramValue(slot, m_channelCount > 0 ? m_channels[0].group : 0, fallback);
}

int32_t CAudioModule::paramGroupCount(int32_t slot) const
{
    if (!isSlotBound(slot))
        return 1;
    return std::max(m_slots[slot]->param->audioValues().groupCount(), 1);
}

void CAudioModule::passInput(int32_t c)
{
    CSampleBufferPool::addRef(m_in[c]);
    m_out[0][c] = m_in[c];
}

double* CAudioModule::takeBuffer() const
{
    CSampleBufferPool* pool = m_owner ? m_owner->pool() : nullptr;
    return pool && m_blockLength > 0 ? pool->take(m_blockLength) : nullptr;
}

} // namespace qel
