#include "Audio/CAudioProcessStack.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CSampleBufferPool.h"
#include "Core/CLog.h"

#include <algorithm>
#include <cmath>

namespace qel {
namespace {

using Pool = CSampleBufferPool;

// Without a collector the groups are those a collector reserves by default.
constexpr int32_t kDefaultGroups = 8;
// What a copy may feed at once: the link to the next level, the stack's output and, while
// a fade runs, the old output, each on both ports.
constexpr int32_t kCopyOutputs = 3 * CAudioProcessBase::kPortCount;

constexpr uint32_t keyBit(int32_t key) { return uint32_t(1) << (uint32_t(key) % 32); }

// A column serves an output channel when it receives that channel on either port: a copy
// hands the side signal of channel c on under port 1.
bool serves(uint32_t keys, int32_t channel)
{
    return (keys & (keyBit(channel) | keyBit(channel + 16))) != 0;
}

// The old output faded into the new one; either may be missing, or be the same buffer.
double* mixFade(CXFadeKernel kernel, double* oldOut, double* newOut, int32_t n, CSampleBufferPool* pool)
{
    if (!oldOut || !newOut || oldOut == newOut) {
        if (oldOut == newOut) {
            Pool::release(oldOut);
            return newOut;
        }
        return newOut ? newOut : oldOut;
    }
    double* out = Pool::refCount(newOut) == 1 ? newOut : Pool::refCount(oldOut) == 1 ? oldOut : pool->take(n);
    if (!out) {
        Pool::release(oldOut);
        return newOut;
    }
    kernel.run(oldOut, newOut, out, n);
    if (out != oldOut)
        Pool::release(oldOut);
    if (out != newOut)
        Pool::release(newOut);
    return out;
}

} // namespace

CAudioProcessStack::CAudioProcessStack() { m_isLeaf = false; }

// The copies go before the streams they are wired to.
CAudioProcessStack::~CAudioProcessStack()
{
    for (auto& group : m_groups)
        for (auto& column : group->columns)
            column->copies.clear();
    m_groups.clear();
}

// ---- set-up

bool CAudioProcessStack::isInsideStackCopy() const
{
    for (const CAudioProcessBase* p = m_parent; p; p = p->parent())
        if (dynamic_cast<const CAudioProcessStack*>(p))
            return true;
    return false;
}

int32_t CAudioProcessStack::levelsToPrepare(int32_t group) const
{
    if (!m_stackBinding)
        return 1;
    CAudioParam* param = m_stackBinding->param;
    // Without a definition the parameter takes no value, and its count stays at one.
    const CAudioParamInfo* info = param ? param->info() : nullptr;
    if (!info)
        return 1;
    // What the parameter asks for now, and at least one level for it to come back to from
    // 0; never past the top of its range, whichever way round that is given.
    double wanted = 1.0;
    {
        CAudioParamLock lock(*param);
        wanted = std::max(wanted, param->values().getElementValue(group, m_countElement, 0, 1.0));
    }
    double top = double(kMaxLevels);
    if (!info->maxValues.empty())
        top = std::max(info->maxValues[0], info->minValues.empty() ? info->maxValues[0] : info->minValues[0]);
    wanted = std::min(std::round(wanted), std::round(top));
    return std::isfinite(wanted) && wanted >= 1.0 ? int32_t(std::min(wanted, double(kMaxLevels))) : 1;
}

CErrorPtr CAudioProcessStack::init()
{
    m_allChanged = 1;
    if (!m_def)
        return QEL_ERROR(m_fullName, "@qelstr_CAudioProcessStack_init_NoProcessDef No audio process def supplied.");
    m_countElement = std::max(0, m_element - m_def->stackIndexShift());
    const bool isNested = isInsideStackCopy();

    if (!m_def->stackParam().isEmpty()) {
        auto binding = std::make_unique<CParamBinding>();
        if (CAudioParamCollector* params = collector()) {
            CAudioParam* param = params->getParam(CAudioProcessDefBase::resolveParamPath(m_fullName, m_def->stackParam()));
            // Only the groups the stack serves; the collector's lookup locks, hence here.
            bindParam(*binding, param, isNested ? m_group : -1, m_countElement);
        }
        m_stackBinding = binding.get();
        m_bindings.push_back(std::move(binding));
    }

    int32_t groups = kDefaultGroups;
    if (CAudioParamCollector* params = collector())
        groups = std::clamp(params->reservedGroups(), 1, kMaxGroups);
    const int32_t columns = m_def->isChannelStack() ? CAudioProcessTerminalBase::kPreparedChannels : 1;
    // The copy of another stack hears the channels of its own group alone.
    if (isNested) {
        prepareGroup(m_group, columns);
    } else {
        for (int32_t g = 0; g < groups; ++g)
            prepareGroup(g, columns);
    }

    int32_t copies = 0;
    for (const auto& group : m_groups)
        for (const auto& column : group->columns)
            copies += int32_t(column->copies.size());
    m_runList.reserve(size_t(copies));
    m_order.reserve(m_groups.size());
    m_isLayoutStale = true;
    return nullptr;
}

void CAudioProcessStack::prepareGroup(int32_t group, int32_t columns)
{
    auto record = std::make_unique<CGroup>();
    record->group = group;
    const int32_t levels = levelsToPrepare(group);
    for (int32_t c = 0; c < columns; ++c) {
        auto column = std::make_unique<CColumn>();
        prepareColumn(*column, group, levels);
        record->columns.push_back(std::move(column));
    }
    record->levels = levels;
    for (const auto& column : record->columns)
        record->levels = std::min(record->levels, int32_t(column->copies.size()));
    m_groups.push_back(std::move(record));
}

void CAudioProcessStack::prepareColumn(CColumn& column, int32_t group, int32_t levels)
{
    for (int32_t e = 0; e < levels; ++e) {
        CAudioProcessBase* made = nullptr;
        CErrorPtr error = m_def->createProcess(made, this, m_fullName, m_env, group, e, m_pool, true, false);
        if (error) {
            // The column goes on with the levels it has.
            CLog::printfObject(m_fullName, "%s", error->line(0).toUtf8().c_str());
            break;
        }
        made->reserveOutputs(kCopyOutputs);
        column.copies.emplace_back(made);
    }
    for (size_t e = 1; e < column.copies.size(); ++e)
        for (int32_t p = 0; p < kPortCount; ++p)
            column.links.push_back(std::make_unique<CAudioStream>());
    for (int32_t p = 0; p < kPortCount; ++p) {
        column.in[p] = std::make_unique<CAudioStream>();
        column.in[p]->srcPort = p;
        for (auto* ends : {&column.out, &column.fadeOut}) {
            auto& s = (*ends)[p];
            s = std::make_unique<CAudioStream>();
            // The stack reads these itself, so it is their owner: a change of what the
            // copies hand on marks its table stale.
            s->srcPort = p;
            s->destPort = p;
            s->ownerDirty = &m_outDirty;
        }
    }
}

// ---- the layout

CAudioProcessStack::CGroup* CAudioProcessStack::groupRecord(int32_t group) const
{
    for (const auto& record : m_groups)
        if (record->group == group)
            return record.get();
    return nullptr;
}

double CAudioProcessStack::wantedCount(int32_t group) const
{
    if (!m_stackBinding)
        return 1.0;
    const CAudioParam* param = m_stackBinding->param;
    return param ? param->audioValues().getElementValue(group, m_countElement, 0, 1.0) : 1.0;
}

void CAudioProcessStack::planLayout()
{
    for (auto& record : m_groups) {
        for (auto& column : record->columns)
            column->wantKeys = 0;
        const double wanted = wantedCount(record->group);
        // A count past what was made plays what was made.
        record->wantCount = wanted > 0.0 ? int32_t(std::lround(std::min(wanted, double(record->levels)))) : 0;
    }
    const bool isChannelStack = m_def->isChannelStack();
    for (const CAudioPort& port : m_ports) {
        for (int32_t i = 0; i < port.channelCount; ++i) {
            const int32_t key = port.channels[i].key;
            CGroup* record = groupRecord(port.channels[i].group);
            CColumn* column = nullptr;
            if (record && !isChannelStack) {
                column = record->columns.front().get();
            } else if (record) {
                // A channel keeps its column; a new one takes a column nobody uses.
                for (auto& c : record->columns)
                    if (!column && (c->keys & keyBit(key)))
                        column = c.get();
                for (auto& c : record->columns)
                    if (!column && !c->keys && !c->oldKeys && !c->wantKeys)
                        column = c.get();
            }
            if (!column) {
                // Told once per group, not at every plan that leaves it out again.
                const int32_t group = port.channels[i].group;
                if (group != m_toldDroppedGroup) {
                    m_toldDroppedGroup = group;
                    noteDiagnostic([](const CString& name, int32_t g, double) {
                        CLog::printfObject(name, "stack has no copy for group %i", int(g));
                    }, group);
                }
                continue;
            }
            column->wantKeys |= keyBit(key);
        }
    }
}

bool CAudioProcessStack::isLayoutChanged() const
{
    for (const auto& record : m_groups) {
        for (const auto& column : record->columns) {
            const int32_t before = column->keys ? column->count : 0;
            const int32_t after = column->wantKeys ? record->wantCount : 0;
            if (column->keys != column->wantKeys || before != after)
                return true;
        }
    }
    return false;
}

bool CAudioProcessStack::needsFade() const
{
    // Only a sound that played and goes on elsewhere fades.
    if (!m_hasRun || m_rateChanged)
        return false;
    for (const auto& record : m_groups) {
        for (const auto& column : record->columns) {
            if (!column->keys || column->count == 0)
                continue;
            for (int32_t key = 0; key < CAudioStream::kKeyCount; ++key) {
                if (!(column->keys & keyBit(key)))
                    continue;
                for (const auto& other : m_groups) {
                    for (const auto& next : other->columns) {
                        if (!(next->wantKeys & keyBit(key)) || other->wantCount == 0)
                            continue;
                        if (next.get() != column.get() || other->wantCount != column->count)
                            return true;
                    }
                }
            }
        }
    }
    return false;
}

void CAudioProcessStack::applyLayout(bool isFade)
{
    for (auto& record : m_groups) {
        for (auto& column : record->columns) {
            CColumn& c = *column;
            const int32_t before = c.keys ? c.count : 0;
            const int32_t after = c.wantKeys ? record->wantCount : 0;
            const bool isSame = c.keys == c.wantKeys && before == after;
            c.count = record->wantCount;
            if (isSame)
                continue;
            int32_t wire = after;
            int32_t fadeEnd = -1;
            if (isFade && before > 0) {
                // The old copies play on until the fade is over.
                c.oldKeys = c.keys;
                c.oldEnd = before - 1;
                wire = std::max(before, after);
                if (before != after)
                    fadeEnd = before - 1;
            } else {
                c.oldKeys = 0;
                c.oldEnd = -1;
            }
            c.keys = c.wantKeys;
            rewire(c, wire, after - 1, fadeEnd);
        }
    }
    updateOrder();
    formatInputs();
    rebuildRunList();
    m_isTableStale = true;
    if (!isFade)
        return;
    m_fade.start(CXFadeKernel::lengthFor(m_inputRate, std::max(m_def->xfadeLengthSec(), CAudioProcessDefBase::kMinXfadeLengthSec)));
    // A rate too low for one sample of fade switches at once.
    if (!m_fade.isRunning())
        finishFade();
}

void CAudioProcessStack::admitDuringFade()
{
    planLayout();
    uint32_t present = 0;
    uint32_t served = 0;
    for (const CAudioPort& port : m_ports)
        for (int32_t i = 0; i < port.channelCount; ++i)
            present |= keyBit(port.channels[i].key);
    for (const auto& record : m_groups)
        for (const auto& column : record->columns)
            served |= column->keys | column->oldKeys;
    for (auto& record : m_groups) {
        for (auto& column : record->columns) {
            CColumn& c = *column;
            // A channel that is gone has nothing left to fade.
            c.keys &= present;
            c.oldKeys &= present;
            // One this stack never had joins at once: there is no sound of it to fade from.
            const uint32_t arrived = c.wantKeys & ~served;
            if (!arrived)
                continue;
            if (c.wired == 0 && !c.keys && !c.oldKeys) {
                c.keys = arrived;
                c.count = record->wantCount;
                rewire(c, c.count, c.count - 1, -1);
            } else {
                c.keys |= arrived;
                // A column that was only fading out gets back an end for its new sound.
                if (c.outEnd < 0)
                    rewire(c, std::max(c.wired, c.count), c.count - 1, c.fadeEnd);
            }
        }
    }
    updateOrder();
    formatInputs();
    rebuildRunList();
    m_isTableStale = true;
}

void CAudioProcessStack::finishFade()
{
    m_fade.stop();
    for (auto& record : m_groups) {
        for (auto& column : record->columns) {
            CColumn& c = *column;
            const int32_t levels = c.keys ? c.count : 0;
            c.oldKeys = 0;
            c.oldEnd = -1;
            rewire(c, levels, levels - 1, -1);
        }
    }
    updateOrder();
    formatInputs();
    rebuildRunList();
    m_isTableStale = true;
    // A change that waited for the fade is taken at the next block.
    std::atomic_ref<uint8_t>(m_pending).store(1, std::memory_order_release);
}

void CAudioProcessStack::updateOrder()
{
    // Groups that leave drop out; those that come join at the end, lowest first.
    for (size_t i = 0; i < m_order.size();) {
        const CGroup& record = *m_groups[size_t(m_order[i])];
        const bool isInUse = std::any_of(record.columns.begin(), record.columns.end(),
                                         [](const auto& c) { return (c->keys | c->oldKeys) != 0; });
        if (isInUse)
            ++i;
        else
            m_order.erase(m_order.begin() + std::ptrdiff_t(i));
    }
    for (size_t g = 0; g < m_groups.size(); ++g) {
        const CGroup& record = *m_groups[g];
        const bool isInUse = std::any_of(record.columns.begin(), record.columns.end(),
                                         [](const auto& c) { return (c->keys | c->oldKeys) != 0; });
        if (isInUse && std::find(m_order.begin(), m_order.end(), int32_t(g)) == m_order.end())
            m_order.push_back(int32_t(g));
    }
}

void CAudioProcessStack::detachEnd(CColumn& column, int32_t end, std::unique_ptr<CAudioStream>* streams)
{
    if (end < 0)
        return;
    for (int32_t p = 0; p < kPortCount; ++p) {
        column.copies[size_t(end)]->detachOutput(streams[p].get());
        streams[p]->clear();
    }
}

void CAudioProcessStack::attachEnd(CColumn& column, int32_t end, std::unique_ptr<CAudioStream>* streams)
{
    if (end < 0)
        return;
    for (int32_t p = 0; p < kPortCount; ++p)
        column.copies[size_t(end)]->attachOutput(streams[p].get());
}

void CAudioProcessStack::rewire(CColumn& column, int32_t wire, int32_t outEnd, int32_t fadeEnd)
{
    // A stack asked for more than was made plays what was made.
    wire = std::clamp(wire, 0, int32_t(column.copies.size()));
    outEnd = std::min(outEnd, wire - 1);
    fadeEnd = std::min(fadeEnd, wire - 1);
    if (fadeEnd == outEnd)
        fadeEnd = -1;
    if (column.outEnd != outEnd)
        detachEnd(column, column.outEnd, column.out);
    if (column.fadeEnd != fadeEnd)
        detachEnd(column, column.fadeEnd, column.fadeOut);

    // Levels that go lose everything at once; levels that come start from cleared state.
    for (int32_t e = column.wired - 1; e >= wire; --e) {
        CAudioProcessBase* copy = column.copies[size_t(e)].get();
        for (int32_t p = 0; p < kPortCount; ++p) {
            CAudioStream* s = e == 0 ? column.in[p].get() : column.links[size_t((e - 1) * kPortCount + p)].get();
            if (e > 0)
                column.copies[size_t(e - 1)]->detachOutput(s);
            copy->detachInput(s, p);
            s->clear();
        }
        copy->deactivate();
    }
    for (int32_t e = column.wired; e < wire; ++e) {
        CAudioProcessBase* copy = column.copies[size_t(e)].get();
        copy->activate();
        for (int32_t p = 0; p < kPortCount; ++p) {
            CAudioStream* s = e == 0 ? column.in[p].get() : column.links[size_t((e - 1) * kPortCount + p)].get();
            s->srcPort = p;
            if (e > 0)
                column.copies[size_t(e - 1)]->attachOutput(s);
            copy->attachInput(s, p);
        }
    }
    column.wired = wire;

    if (column.outEnd != outEnd)
        attachEnd(column, outEnd, column.out);
    if (column.fadeEnd != fadeEnd)
        attachEnd(column, fadeEnd, column.fadeOut);
    column.outEnd = outEnd;
    column.fadeEnd = fadeEnd;
}

void CAudioProcessStack::formatInputs()
{
    for (const auto& record : m_groups) {
        for (const auto& column : record->columns) {
            if (column->wired == 0)
                continue;
            const uint32_t keys = column->keys | column->oldKeys;
            for (int32_t p = 0; p < kPortCount; ++p) {
                // A channel that moved on keeps its old group here until its fade is over.
                CAudioStream::CChannel records[CAudioPort::kMaxChannels];
                int32_t count = 0;
                const CAudioPort& port = m_ports[p];
                for (int32_t i = 0; i < port.channelCount; ++i)
                    if (keys & keyBit(port.channels[i].key))
                        records[count++] = {keyChannel(port.channels[i].key), record->group, port.channels[i].latency, p, nullptr};
                column->in[p]->setFormat(m_inputRate, records, count);
            }
        }
    }
}

void CAudioProcessStack::rebuildRunList()
{
    m_runList.clear();
    for (int32_t index : m_order) {
        const CGroup& record = *m_groups[size_t(index)];
        int32_t levels = 0;
        for (const auto& column : record.columns)
            levels = std::max(levels, column->wired);
        for (int32_t e = 0; e < levels; ++e)
            for (const auto& column : record.columns)
                if (e < column->wired)
                    m_runList.push_back(column->copies[size_t(e)].get());
    }
}

// ---- run time

void CAudioProcessStack::update()
{
    if (m_reconfigured || m_allChanged || (m_stackBinding && m_stackBinding->changed))
        m_isLayoutStale = true;
    if (m_fade.isRunning()) {
        // The layout waits for the fade to end; channels that come or go can't.
        if (m_reconfigured)
            admitDuringFade();
        return;
    }
    if (!m_isLayoutStale)
        return;
    m_isLayoutStale = false;
    planLayout();
    if (isLayoutChanged())
        applyLayout(needsFade());
    else if (m_reconfigured)
        formatInputs();
}

void CAudioProcessStack::feedCopies()
{
    for (int32_t index : m_order) {
        for (const auto& column : m_groups[size_t(index)]->columns) {
            if (column->wired == 0)
                continue;
            for (int32_t p = 0; p < kPortCount; ++p) {
                CAudioStream& s = *column->in[p];
                s.blockLength = m_blockLength;
                for (int32_t r = 0; r < s.channelCount; ++r) {
                    CAudioStream::CChannel& rec = s.channels[r];
                    const CAudioPort::CChannel* source = m_ports[p].find(rec.key());
                    Pool::release(rec.buffer);
                    rec.buffer = source ? source->buffer : nullptr;
                    Pool::addRef(rec.buffer);
                }
            }
        }
    }
}

void CAudioProcessStack::buildOutputTable()
{
    m_outDirty = 0;
    m_isTableStale = false;
    CAudioStream::CChannel records[CAudioStream::kMaxChannels];
    int32_t count = 0;
    double rate = m_inputRate;
    for (int32_t index : m_order) {
        for (const auto& column : m_groups[size_t(index)]->columns) {
            if (column->outEnd < 0)
                continue;
            for (int32_t p = 0; p < kPortCount; ++p) {
                CAudioStream* s = column->out[p].get();
                if (s->channelCount > 0)
                    rate = s->sampleRate;
                for (int32_t r = 0; r < s->channelCount && count < CAudioStream::kMaxChannels; ++r) {
                    const CAudioStream::CChannel& rec = s->channels[r];
                    // A channel that moved on still passes here while it fades.
                    if (!serves(column->keys, rec.channel))
                        continue;
                    records[count] = rec;
                    records[count].buffer = nullptr;
                    m_sources[count] = {s, nullptr};
                    ++count;
                }
            }
        }
    }
    // While a fade runs, the old sound of a channel comes from where it came before.
    for (int32_t i = 0; i < count && m_fade.isRunning(); ++i) {
        const int32_t key = records[i].key();
        for (const auto& record : m_groups) {
            for (const auto& column : record->columns) {
                if (column->oldEnd < 0 || !serves(column->oldKeys, records[i].channel))
                    continue;
                CAudioStream* old = column->oldEnd == column->outEnd    ? column->out[keyPort(key)].get()
                                    : column->oldEnd == column->fadeEnd ? column->fadeOut[keyPort(key)].get()
                                                                        : nullptr;
                if (old && old != m_sources[i].now && old->find(key))
                    m_sources[i].old = old;
            }
        }
    }
    setOutputFormat(rate, records, count);
}

void CAudioProcessStack::handOn()
{
    const int32_t n = m_blockLength;
    double* outs[CAudioStream::kMaxChannels];
    const bool isFading = m_fade.isRunning();
    for (int32_t i = 0; i < m_outCount; ++i) {
        const int32_t key = m_outTable[i].key();
        CAudioStream::CChannel* rec = m_sources[i].now ? m_sources[i].now->find(key) : nullptr;
        double* buffer = rec ? rec->buffer : nullptr;
        if (rec)
            rec->buffer = nullptr;
        if (isFading && m_sources[i].old && n > 0) {
            CAudioStream::CChannel* oldRec = m_sources[i].old->find(key);
            double* oldBuffer = oldRec ? oldRec->buffer : nullptr;
            if (oldRec)
                oldRec->buffer = nullptr;
            // Every channel fades from the same point of the one kernel.
            buffer = mixFade(m_fade, oldBuffer, buffer, n, m_pool);
        }
        outs[i] = buffer;
    }
    if (isFading)
        m_fade.skip(n);
    handOutputs(outs);
    releaseColumnOutputs();
}

void CAudioProcessStack::releaseColumnOutputs()
{
    for (int32_t index : m_order) {
        for (const auto& column : m_groups[size_t(index)]->columns) {
            for (int32_t p = 0; p < kPortCount; ++p) {
                column->out[p]->releaseBuffers();
                column->fadeOut[p]->releaseBuffers();
            }
        }
    }
}

void CAudioProcessStack::process()
{
    pull();
    feedCopies();
    releasePortBuffers();
    for (CAudioProcessBase* copy : m_runList)
        copy->process();
    if (m_outDirty > 0 || m_isTableStale)
        buildOutputTable();
    const bool wasFading = m_fade.isRunning();
    handOn();
    if (m_blockLength > 0)
        m_hasRun = true;
    if (wasFading && !m_fade.isRunning())
        finishFade();
}

void CAudioProcessStack::reset()
{
    CAudioProcessBase::reset();
    if (m_fade.isRunning())
        finishFade();
    for (CAudioProcessBase* copy : m_runList)
        copy->reset();
    for (const auto& record : m_groups) {
        for (const auto& column : record->columns) {
            for (int32_t p = 0; p < kPortCount; ++p) {
                column->in[p]->releaseBuffers();
                column->out[p]->releaseBuffers();
                column->fadeOut[p]->releaseBuffers();
            }
        }
    }
    m_hasRun = false;
}

void CAudioProcessStack::release()
{
    m_fade.stop();
    for (auto& record : m_groups) {
        for (auto& column : record->columns) {
            column->keys = column->oldKeys = column->wantKeys = 0;
            column->count = 0;
            column->oldEnd = -1;
            rewire(*column, 0, -1, -1);
        }
    }
    m_order.clear();
    m_runList.clear();
    m_isTableStale = true;
    m_isLayoutStale = true;
    m_hasRun = false;
    CAudioProcessBase::release();
}

// ---- for tests

int32_t CAudioProcessStack::groupRecordAt(int32_t index) const { return m_groups[size_t(m_order[size_t(index)])]->group; }

int32_t CAudioProcessStack::levelCount(int32_t group) const
{
    for (int32_t index : m_order) {
        const CGroup& record = *m_groups[size_t(index)];
        if (record.group != group)
            continue;
        for (const auto& column : record.columns)
            if (column->keys)
                return std::min(column->count, int32_t(column->copies.size()));
        return 0;
    }
    return -1;
}

int32_t CAudioProcessStack::columnCount(int32_t group) const
{
    for (int32_t index : m_order) {
        const CGroup& record = *m_groups[size_t(index)];
        if (record.group != group)
            continue;
        int32_t count = 0;
        for (const auto& column : record.columns)
            count += (column->keys | column->oldKeys) != 0;
        return count;
    }
    return -1;
}

CAudioProcessBase* CAudioProcessStack::copyAt(int32_t group, int32_t level, int32_t column) const
{
    const CGroup* record = groupRecord(group);
    if (!record || column < 0 || column >= int32_t(record->columns.size()))
        return nullptr;
    const CColumn& c = *record->columns[size_t(column)];
    return level >= 0 && level < c.wired ? c.copies[size_t(level)].get() : nullptr;
}

int32_t CAudioProcessStack::preparedLevelCount(int32_t group) const
{
    const CGroup* record = groupRecord(group);
    return record ? record->levels : 0;
}

int32_t CAudioProcessStack::preparedCopyCount() const
{
    int32_t count = 0;
    for (const auto& record : m_groups)
        for (const auto& column : record->columns)
            count += int32_t(column->copies.size());
    return count;
}

} // namespace qel
