#include "Audio/CAudioProcessBase.h"

#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CSampleBufferPool.h"

#include <algorithm>
#include <climits>

namespace qel {
namespace {

using Pool = CSampleBufferPool;

template <class T>
void eraseFirst(std::vector<T>& list, const T& value)
{
    // Erasing keeps the capacity: nothing here may free on the audio thread.
    auto it = std::find(list.begin(), list.end(), value);
    if (it != list.end())
        list.erase(it);
}

// The combining kernels of the mix list. `acc` may be one of the sources, hence no
// __restrict on it; each runs once per block and channel with several sources.
void combineFrom(double* acc, double* const* src, int32_t count, bool isMax, int32_t n)
{
    const double* a = src[0];
    if (count == 1) {
        for (int32_t i = 0; i < n; ++i)
            acc[i] = a[i];
    } else if (count == 2) {
        const double* b = src[1];
        for (int32_t i = 0; i < n; ++i)
            acc[i] = isMax ? std::max(a[i], b[i]) : a[i] + b[i];
    } else {
        const double* b = src[1];
        const double* c = src[2];
        for (int32_t i = 0; i < n; ++i)
            acc[i] = isMax ? std::max(std::max(a[i], b[i]), c[i]) : a[i] + b[i] + c[i];
    }
}

void combineInto(double* acc, double* const* src, int32_t count, bool isMax, int32_t n)
{
    if (count == 1) {
        const double* a = src[0];
        for (int32_t i = 0; i < n; ++i)
            acc[i] = isMax ? std::max(acc[i], a[i]) : acc[i] + a[i];
    } else if (count == 2) {
        const double* a = src[0];
        const double* b = src[1];
        for (int32_t i = 0; i < n; ++i)
            acc[i] = isMax ? std::max(std::max(acc[i], a[i]), b[i]) : acc[i] + a[i] + b[i];
    }
}

} // namespace

CAudioProcessBase::CAudioProcessBase()
{
    for (int32_t p = 0; p < kPortCount; ++p)
        m_ports[p].id = p;
    // The common case needs no set-up call: one consumer, one source per port.
    m_outputs.reserve(4);
    for (CAudioPort& p : m_ports)
        p.reserve(2, 2);
}

CAudioProcessBase::~CAudioProcessBase()
{
    for (auto& b : m_bindings)
        unbindParam(*b);
    releasePortBuffers();
}

void CAudioProcessBase::setup(const CAudioProcessDefBase* def, CAudioProcessBase* parent, const CString& fullName,
                              CAudioEnv* env, int32_t group, int32_t element, CSampleBufferPool* pool)
{
    m_def = def;
    m_parent = parent;
    m_fullName = fullName;
    m_env = env;
    m_group = group;
    m_element = element;
    m_pool = pool;
}

CAudioParamCollector* CAudioProcessBase::collector() const { return m_env ? m_env->paramCollector() : nullptr; }

CErrorPtr CAudioProcessBase::init()
{
    m_allChanged = 1;
    if (!m_def)
        return nullptr;
    CAudioParamCollector* params = collector();
    for (const auto& [index, row] : m_def->paramAllocs()) {
        auto binding = std::make_unique<CParamBinding>();
        binding->index = index;
        binding->row = row;
        binding->isSmooth = row->isSmoothUpdate();
        binding->useAllGroups = row->useAllGroups();
        if (params) {
            CAudioParam* param = params->getParam(CAudioProcessDefBase::resolveParamPath(m_fullName, row->paramName()));
            bindParam(*binding, param, -1, row->useAllElements() ? -1 : m_element);
        }
        m_bindings.push_back(std::move(binding));
    }
    // Listeners set the pending flag as they attach; whatever they left, the first block
    // reads everything.
    m_allChanged = 1;
    return nullptr;
}

void CAudioProcessBase::bindParam(CParamBinding& binding, CAudioParam* param, int32_t group, int32_t element)
{
    binding.param = param;
    if (!param || !param->collector())
        return;
    if (group >= 0) {
        binding.listeners[0] = param->addListener(&m_pending, &binding.masks[0], group, element);
        binding.listenerCount = 1;
        return;
    }
    const int32_t groups = std::clamp(param->collector()->reservedGroups(), 1, kMaxGroups);
    for (int32_t g = 0; g < groups; ++g)
        binding.listeners[g] = param->addListener(&m_pending, &binding.masks[g], g, element);
    binding.listenerCount = groups;
}

void CAudioProcessBase::unbindParam(CParamBinding& binding)
{
    for (int32_t i = 0; i < binding.listenerCount; ++i)
        binding.param->removeListener(binding.listeners[i]);
    binding.listenerCount = 0;
}

const CAudioProcessBase::CParamBinding* CAudioProcessBase::binding(int32_t index) const
{
    for (const auto& b : m_bindings)
        if (b->index == index)
            return b.get();
    return nullptr;
}

void CAudioProcessBase::reset()
{
    releasePortBuffers();
    for (CAudioPort& p : m_ports)
        for (CAudioStream* s : p.sources)
            s->resetDelays();
    clearTimers();
    m_silence.reset();
    m_lastBlockLength = 0;
}

void CAudioProcessBase::update() {}

void CAudioProcessBase::process()
{
    pull();
    releasePortBuffers();
}

void CAudioProcessBase::release()
{
    releasePortBuffers();
    for (CAudioPort& p : m_ports) {
        p.channelCount = 0;
        ++p.changeCounter;
    }
    m_mixList = nullptr;
    m_latency = m_minLatency = 0;
    m_outCount = 0;
    clearTimers();
}

void CAudioProcessBase::deactivate()
{
    release();
    reset();
}

void CAudioProcessBase::activate()
{
    reset();
    ++m_dirty;
    m_allChanged = 1;
    m_outputsChanged = true;
}

void CAudioProcessBase::noteDiagnostic(CAudioDiagnostics::Teller teller, int32_t integer, double real) const
{
    if (m_env)
        m_env->diagnostics().note(m_fullName, teller, integer, real);
}

// ---- wiring

void CAudioProcessBase::attachInput(CAudioStream* stream, int32_t port)
{
    stream->destPort = port;
    stream->ownerDirty = &m_dirty;
    m_ports[port].sources.push_back(stream);
    ++m_dirty;
}

void CAudioProcessBase::detachInput(CAudioStream* stream, int32_t port)
{
    eraseFirst(m_ports[port].sources, stream);
    stream->ownerDirty = nullptr;
    ++m_dirty;
}

void CAudioProcessBase::attachOutput(CAudioStream* stream)
{
    m_outputs.push_back(stream);
    m_outputsChanged = true;
}

void CAudioProcessBase::detachOutput(CAudioStream* stream) { eraseFirst(m_outputs, stream); }

void CAudioProcessBase::attachFeed(int32_t port, CAudioProcessBase* process, int32_t processPort, CAudioStream* stream)
{
    CAudioPort& p = m_ports[port];
    p.feeds.push_back({process, processPort, stream});
    // The port's table is already known here: the child sees it at its next pull.
    publishFeed(p, p.feeds.back());
}

void CAudioProcessBase::detachFeed(int32_t port, CAudioStream* stream)
{
    auto& feeds = m_ports[port].feeds;
    auto it = std::find_if(feeds.begin(), feeds.end(), [&](const CAudioPort::CFeed& f) { return f.stream == stream; });
    if (it != feeds.end())
        feeds.erase(it);
}

void CAudioProcessBase::reserveInputs(int32_t port, int32_t sources, int32_t feeds)
{
    CAudioPort& p = m_ports[port];
    p.reserve(int32_t(p.sources.capacity()) + sources, int32_t(p.feeds.capacity()) + feeds);
}

void CAudioProcessBase::reserveOutputs(int32_t count) { m_outputs.reserve(m_outputs.capacity() + size_t(count)); }

// ---- the pull stage

void CAudioProcessBase::pull()
{
    // CModOutput keeps its last block for the wrapper until now.
    releasePortBuffers();
    m_blockLength = 0;
    for (const CAudioPort& p : m_ports) {
        if (!p.sources.empty()) {
            m_blockLength = p.sources.front()->blockLength;
            break;
        }
    }

    if (m_dirty > 0) {
        m_dirty = 0;
        if (refreshPorts()) {
            m_reconfigured = 1;
            m_allChanged = 1;
        }
    }
    if (m_outputsChanged) {
        m_outputsChanged = false;
        publishOutputs();
    }
    const bool isPending = std::atomic_ref<uint8_t>(m_pending).exchange(0, std::memory_order_acq_rel) != 0;
    if (isPending || m_allChanged) {
        gatherChanges();
        runTimers();
        update();
        m_allChanged = m_reconfigured = m_rateChanged = 0;
        for (auto& b : m_bindings)
            b->changed = 0;
        // A running timer needs the next block's update to count down.
        if (m_timerCount > 0)
            std::atomic_ref<uint8_t>(m_pending).store(1, std::memory_order_release);
    }

    for (CAudioPort& p : m_ports)
        for (CAudioStream* s : p.sources)
            s->runDelays();
    for (CAudioPort& p : m_ports)
        gatherPort(p);
    forwardFeeds();
    m_lastBlockLength = m_blockLength;
}

void CAudioProcessBase::gatherChanges()
{
    for (auto& b : m_bindings) {
        uint32_t changed = 0;
        for (int32_t i = 0; i < b->listenerCount; ++i)
            changed |= std::atomic_ref<uint32_t>(b->masks[i]).exchange(0, std::memory_order_acq_rel);
        // A single-group parameter is one value for every group.
        if (m_allChanged || (changed && b->param && b->param->audioValues().isSingleGroup()))
            changed = ~0u;
        b->changed = changed;
    }
}

bool CAudioProcessBase::refreshPorts()
{
    const int32_t oldLatency = m_latency;
    const double oldRate = m_inputRate;
    double rate = m_inputRate;
    bool hasRate = false;
    int32_t latency = 0;
    int32_t minLatency = INT32_MAX;
    for (const CAudioPort& p : m_ports) {
        for (const CAudioStream* s : p.sources) {
            if (s->channelCount == 0)
                continue;
            if (!hasRate) {
                rate = s->sampleRate;
                hasRate = true;
            }
            for (int32_t r = 0; r < s->channelCount; ++r) {
                const CAudioStream::CChannel& rec = s->channels[r];
                if (rec.port != s->destPort)
                    continue;
                latency = std::max(latency, rec.latency);
                minLatency = std::min(minLatency, rec.latency);
            }
        }
    }

    bool isTableChanged = false;
    m_mixList = nullptr;
    CAudioPort::CChannel** mixTail = &m_mixList;
    for (CAudioPort& p : m_ports) {
        int32_t sourceCounts[CAudioPort::kMaxChannels] = {};
        int32_t groups[CAudioPort::kMaxChannels] = {};
        for (const CAudioStream* s : p.sources) {
            for (int32_t r = 0; r < s->channelCount; ++r) {
                const CAudioStream::CChannel& rec = s->channels[r];
                if (rec.port != s->destPort)
                    continue;
                if (sourceCounts[rec.channel]++ == 0)
                    groups[rec.channel] = rec.group;
            }
        }
        CAudioPort::CChannel next[CAudioPort::kMaxChannels];
        int32_t count = 0;
        for (int32_t c = 0; c < CAudioPort::kMaxChannels; ++c) {
            if (sourceCounts[c] == 0)
                continue;
            CAudioPort::CChannel& entry = next[count++];
            entry.key = channelKey(c, p.id);
            entry.group = groups[c];
            entry.latency = latency;
            entry.sourceCount = sourceCounts[c];
        }
        bool isSame = count == p.channelCount;
        for (int32_t i = 0; isSame && i < count; ++i) {
            const CAudioPort::CChannel& a = p.channels[i];
            isSame = a.key == next[i].key && a.group == next[i].group && a.sourceCount == next[i].sourceCount;
        }
        if (!isSame) {
            ++p.changeCounter;
            isTableChanged = true;
        }
        // Ports refresh between blocks, when they hold no buffers.
        p.channelCount = count;
        for (int32_t i = 0; i < count; ++i) {
            p.channels[i] = next[i];
            if (next[i].sourceCount > 1) {
                *mixTail = &p.channels[i];
                mixTail = &p.channels[i].nextMix;
            }
        }
    }

    // Every source is delayed up to the latest one. A new rate starts every line afresh:
    // their history is in samples of the old rate.
    const bool isRateChanged = rate != oldRate;
    const bool isCompInput = m_def && m_def->isCompInput();
    for (CAudioPort& p : m_ports) {
        for (CAudioStream* s : p.sources) {
            if (isRateChanged) {
                for (auto& line : s->delays) {
                    if (line) {
                        line->setSampleRate(rate);
                        line->reset();
                    }
                }
            }
            for (int32_t r = 0; r < s->channelCount && m_pool; ++r) {
                const CAudioStream::CChannel& rec = s->channels[r];
                if (rec.port != s->destPort)
                    continue;
                const int32_t need = latency - rec.latency;
                const int32_t key = rec.key();
                if (need <= 0 && !s->delays[key])
                    continue;
                CDSPModDelay* line = s->delayFor(key, *m_pool);
                line->setSampleRate(rate);
                line->setCompInput(isCompInput);
                line->setDelay(std::max(0, need));
            }
        }
    }

    m_latency = latency;
    m_minLatency = minLatency == INT32_MAX ? 0 : minLatency;
    m_inputRate = rate;
    m_outputRate = rate;
    m_rateChanged = isRateChanged ? 1 : 0;
    const bool isChanged = isTableChanged || latency != oldLatency || isRateChanged;
    if (isChanged)
        for (const CAudioPort& p : m_ports)
            for (const CAudioPort::CFeed& f : p.feeds)
                publishFeed(p, f);
    return isChanged;
}

void CAudioProcessBase::gatherPort(CAudioPort& port)
{
    if (port.channelCount == 0) {
        for (CAudioStream* s : port.sources)
            s->releaseBuffers();
        return;
    }
    int8_t slotOf[CAudioPort::kMaxChannels];
    std::fill(std::begin(slotOf), std::end(slotOf), int8_t(-1));
    for (int32_t i = 0; i < port.channelCount; ++i)
        slotOf[keyChannel(port.channels[i].key)] = int8_t(i);

    // Sources of a mixed channel wait in threes and are folded into one buffer, so any
    // count of sources works without a list that could grow.
    double* waiting[CAudioPort::kMaxChannels][3];
    int32_t waitingCount[CAudioPort::kMaxChannels] = {};
    for (CAudioStream* s : port.sources) {
        for (int32_t r = 0; r < s->channelCount; ++r) {
            CAudioStream::CChannel& rec = s->channels[r];
            double* buffer = rec.buffer;
            rec.buffer = nullptr;
            const int32_t slot = rec.port == s->destPort ? slotOf[rec.channel] : -1;
            if (slot < 0) {
                Pool::release(buffer);
                continue;
            }
            CAudioPort::CChannel& channel = port.channels[slot];
            if (channel.sourceCount <= 1) {
                Pool::release(channel.buffer);
                channel.buffer = buffer;
                continue;
            }
            // A source that did not run this block adds nothing.
            if (!buffer)
                continue;
            waiting[slot][waitingCount[slot]++] = buffer;
            if (waitingCount[slot] == 3) {
                fold(channel, waiting[slot], 3, channel.buffer == nullptr);
                waitingCount[slot] = 0;
            }
        }
    }

    const auto mode = m_def ? m_def->inputComboMode() : CAudioProcessDefBase::ComboSum;
    for (int32_t i = 0; i < port.channelCount; ++i) {
        CAudioPort::CChannel& channel = port.channels[i];
        if (channel.sourceCount > 1) {
            if (waitingCount[i] > 0)
                fold(channel, waiting[i], waitingCount[i], channel.buffer == nullptr);
            if (channel.buffer && mode == CAudioProcessDefBase::ComboAvg) {
                // The accumulator is always this channel's own buffer, so it can be scaled.
                const double scale = 1.0 / double(channel.sourceCount);
                double* acc = channel.buffer;
                for (int32_t k = 0; k < m_blockLength; ++k)
                    acc[k] *= scale;
            }
        }
        // Whatever did not arrive reads as silence, never as stale or missing samples.
        if (!channel.buffer && m_blockLength > 0)
            channel.buffer = takeSilence();
    }
}

void CAudioProcessBase::fold(CAudioPort::CChannel& channel, double** sources, int32_t count, bool isFirst)
{
    const bool isMax = m_def && m_def->inputComboMode() == CAudioProcessDefBase::ComboMax;
    const int32_t n = m_blockLength;
    if (!isFirst) {
        combineInto(channel.buffer, sources, count, isMax, n);
        for (int32_t i = 0; i < count; ++i)
            Pool::release(sources[i]);
        return;
    }
    // The first source becomes the accumulator when nobody else reads it.
    if (Pool::refCount(sources[0]) == 1) {
        channel.buffer = sources[0];
        combineInto(channel.buffer, sources + 1, count - 1, isMax, n);
        for (int32_t i = 1; i < count; ++i)
            Pool::release(sources[i]);
        return;
    }
    double* acc = m_pool ? m_pool->take(n) : nullptr;
    if (acc)
        combineFrom(acc, sources, count, isMax, n);
    for (int32_t i = 0; i < count; ++i)
        Pool::release(sources[i]);
    channel.buffer = acc;
}

void CAudioProcessBase::forwardFeeds()
{
    for (CAudioPort& p : m_ports) {
        for (const CAudioPort::CFeed& f : p.feeds) {
            CAudioStream* s = f.stream;
            s->blockLength = m_blockLength;
            for (int32_t i = 0; i < p.channelCount; ++i) {
                CAudioStream::CChannel* rec = s->find(channelKey(keyChannel(p.channels[i].key), s->destPort));
                if (!rec)
                    continue;
                Pool::release(rec->buffer);
                rec->buffer = p.channels[i].buffer;
                Pool::addRef(rec->buffer);
            }
        }
    }
}

void CAudioProcessBase::publishFeed(const CAudioPort& port, const CAudioPort::CFeed& feed)
{
    CAudioStream::CChannel records[CAudioPort::kMaxChannels];
    for (int32_t i = 0; i < port.channelCount; ++i) {
        const CAudioPort::CChannel& c = port.channels[i];
        records[i] = {keyChannel(c.key), c.group, c.latency, feed.stream->destPort, nullptr};
    }
    feed.stream->setFormat(m_inputRate, records, port.channelCount);
}

void CAudioProcessBase::releasePortBuffers()
{
    for (CAudioPort& p : m_ports)
        p.releaseBuffers();
}

// ---- outputs

void CAudioProcessBase::passInputFormat(double rate, int32_t latency)
{
    CAudioStream::CChannel records[CAudioStream::kMaxChannels];
    int32_t count = 0;
    for (const CAudioPort& p : m_ports)
        for (int32_t i = 0; i < p.channelCount && count < CAudioStream::kMaxChannels; ++i)
            records[count++] = {keyChannel(p.channels[i].key), p.channels[i].group, latency, p.id, nullptr};
    setOutputFormat(rate, records, count);
}

void CAudioProcessBase::setOutputFormat(double rate, const CAudioStream::CChannel* records, int32_t count)
{
    m_outCount = std::min(count, CAudioStream::kMaxChannels);
    for (int32_t i = 0; i < m_outCount; ++i) {
        m_outTable[i] = records[i];
        m_outTable[i].buffer = nullptr;
    }
    m_outRate = rate;
    m_outputRate = rate;
    publishOutputs();
}

void CAudioProcessBase::publishOutputs()
{
    for (CAudioStream* s : m_outputs) {
        CAudioStream::CChannel records[CAudioStream::kMaxChannels];
        int32_t count = 0;
        for (int32_t i = 0; i < m_outCount; ++i) {
            if (m_outTable[i].port != s->srcPort)
                continue;
            records[count] = m_outTable[i];
            records[count++].port = s->destPort;
        }
        s->setFormat(m_outRate, records, count);
    }
}

void CAudioProcessBase::handOutputs(double* const* buffers)
{
    for (CAudioStream* s : m_outputs)
        s->blockLength = m_blockLength;
    for (int32_t i = 0; i < m_outCount; ++i) {
        double* buffer = buffers[i];
        const CAudioStream::CChannel& out = m_outTable[i];
        int32_t taken = 0;
        for (CAudioStream* s : m_outputs) {
            if (s->srcPort != out.port)
                continue;
            CAudioStream::CChannel* rec = s->find(channelKey(out.channel, s->destPort));
            if (!rec)
                continue;
            // A consumer that did not run last block left its buffer here.
            Pool::release(rec->buffer);
            rec->buffer = buffer;
            if (taken++ > 0)
                Pool::addRef(buffer);
        }
        if (taken == 0)
            Pool::release(buffer);
    }
}

double* CAudioProcessBase::takeSilence()
{
    double* buffer = m_pool && m_blockLength > 0 ? m_pool->take(m_blockLength) : nullptr;
    if (buffer)
        m_silence.run(buffer, m_blockLength);
    return buffer;
}

// ---- timers

bool CAudioProcessBase::addTimer(double seconds, uint8_t* flag)
{
    if (m_timerCount >= kMaxTimers)
        return false;
    m_timers[m_timerCount++] = {seconds, flag};
    return true;
}

void CAudioProcessBase::clearTimers() { m_timerCount = 0; }

void CAudioProcessBase::runTimers()
{
    // What ran since the last update: the timers were set before that block.
    const double elapsed = m_inputRate > 0.0 ? double(m_lastBlockLength) / m_inputRate : 0.0;
    for (int32_t i = 0; i < m_timerCount;) {
        CTimer& t = m_timers[i];
        t.secondsLeft -= elapsed;
        if (t.secondsLeft <= 0.0) {
            *t.flag = 1;
            t = m_timers[--m_timerCount];
        } else {
            ++i;
        }
    }
}

} // namespace qel
