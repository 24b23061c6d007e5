#include "Audio/CAudioProcessTerminalBase.h"

#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CSampleBufferPool.h"
#include "Core/CLog.h"

#include <algorithm>
#include <new>

namespace qel {

using Pool = CSampleBufferPool;

CAudioProcessTerminalBase::CAudioProcessTerminalBase() = default;

// The modules go before the base lets go of the listeners they read through.
CAudioProcessTerminalBase::~CAudioProcessTerminalBase()
{
    m_free.clear();
    m_modules.clear();
}

bool CAudioProcessTerminalBase::isSmoothLeaf() const
{
    if (m_def && m_def->isSmoothUpdate())
        return true;
    for (const auto& b : m_bindings)
        if (b->isSmooth)
            return true;
    return false;
}

// A leaf that crossfades its own changes, or whose definition names a crossfade length,
// also fades when its bypass state takes it out of the path or brings it back (a latency
// pad that is not smooth still should not jump); one that names neither leaves at once.
bool CAudioProcessTerminalBase::fadesOnBypass() const
{
    return isSmoothLeaf() || (m_def && m_def->hasXfadeLength());
}

CErrorPtr CAudioProcessTerminalBase::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessBase::init(), m_fullName);
    if (m_def)
        m_xfadeSeconds = std::max(m_def->xfadeLengthSec(), CAudioProcessDefBase::kMinXfadeLengthSec);
    const bool isWhole = m_def && m_def->isTerminalWhole();
    const int32_t perSlot = isSmoothLeaf() ? 2 : 1;
    const int32_t prepared = (isWhole ? 1 : kPreparedChannels) * perSlot;
    // Room for the widest layout there is, so that the lists never grow while audio runs.
    m_modules.reserve(size_t(CAudioPort::kMaxChannels) * 3);
    m_free.reserve(size_t(CAudioPort::kMaxChannels) * 3);
    for (int32_t i = 0; i < prepared; ++i) {
        CAudioModule* module = makeModule();
        if (!module)
            return QEL_ERROR(m_fullName, "@qelstr_CAudioProcessTerminalBase_init_ModuleError Audio module creation failed.");
        m_free.push_back(module);
    }
    return nullptr;
}

CAudioModule* CAudioProcessTerminalBase::makeModule()
{
    std::unique_ptr<CAudioModule> module(createModule());
    if (!module)
        return nullptr;
    module->attach(this);
    if (CErrorPtr error = module->init())
        return nullptr;
    module->regParams(*this);
    m_modules.push_back(std::move(module));
    return m_modules.back().get();
}

CAudioModule* CAudioProcessTerminalBase::takeModule()
{
    if (m_free.empty())
        return makeModule();
    CAudioModule* module = m_free.back();
    m_free.pop_back();
    return module;
}

void CAudioProcessTerminalBase::giveBack(CAudioModule* module)
{
    if (!module)
        return;
    for (int32_t p = 0; p < module->outputPortCount(); ++p)
        for (int32_t c = 0; c < module->channelCount(); ++c)
            Pool::release(module->takeOutput(c, p));
    m_free.push_back(module);
}

void CAudioProcessTerminalBase::noteMissingParam(int32_t index)
{
    // Every module of the process meets the same gap: told for the first.
    const uint64_t bit = uint64_t(1) << (uint32_t(index) % 64);
    if (m_missingParams.fetch_or(bit, std::memory_order_relaxed) & bit)
        return;
    noteDiagnostic([](const CString& name, int32_t slot, double) {
        CLog::printfObject(name, "regModuleParam error %i", int(slot));
    }, index);
}

// ---- the life cycle

void CAudioProcessTerminalBase::retireFades()
{
    for (int32_t i = 0; i < m_slotCount; ++i) {
        CSlot& s = m_slots[i];
        giveBack(s.old);
        s.old = nullptr;
        s.fade.stop();
        s.wait = 0;
        s.isFading = s.hasPendingChange = false;
        s.timerFired = 0;
    }
    clearTimers();
}

void CAudioProcessTerminalBase::reset()
{
    CAudioProcessBase::reset();
    m_side.stop();
    m_sideWait = 0;
    m_sideMode = SideNone;
    retireFades();
    for (int32_t i = 0; i < m_slotCount; ++i)
        m_slots[i].current->reset();
}

void CAudioProcessTerminalBase::release()
{
    m_side.stop();
    m_sideWait = 0;
    m_sideMode = SideNone;
    m_isFadeInPending = false;
    retireFades();
    for (int32_t i = 0; i < m_slotCount; ++i) {
        giveBack(m_slots[i].current);
        m_slots[i].current = nullptr;
    }
    m_slotCount = 0;
    CAudioProcessBase::release();
}

void CAudioProcessTerminalBase::prepareModule(CAudioModule& module, const CAudioModule::CChannel* channels,
                                              int32_t count, bool isNew)
{
    // A module that takes on other channels, or a new rate, starts from silence.
    if (isNew || m_rateChanged || !module.hasSameChannels(channels, count))
        module.reset();
    module.setChannels(channels, count);
    module.setSampleRate(m_inputRate);
    module.markAllChanged();
    module.update();
    module.clearChanged();
}

void CAudioProcessTerminalBase::rebuildModules()
{
    retireFades();
    const CAudioPort& in = m_ports[0];
    CAudioModule::CChannel channels[CAudioPort::kMaxChannels];
    for (int32_t i = 0; i < in.channelCount; ++i)
        channels[i] = {in.channels[i].key, in.channels[i].group, i};

    // The modules of the last layout, to be matched with the channels of this one.
    CAudioModule* previous[CAudioPort::kMaxChannels];
    const int32_t previousCount = m_slotCount;
    for (int32_t i = 0; i < previousCount; ++i) {
        previous[i] = m_slots[i].current;
        m_slots[i].current = nullptr;
    }
    m_slotCount = 0;

    const bool isWhole = m_def && m_def->isTerminalWhole();
    const int32_t wanted = isWhole ? (in.channelCount > 0 ? 1 : 0) : in.channelCount;
    for (int32_t i = 0; i < wanted; ++i) {
        const CAudioModule::CChannel* mine = isWhole ? channels : &channels[i];
        const int32_t count = isWhole ? in.channelCount : 1;
        CAudioModule* module = nullptr;
        for (int32_t j = 0; j < previousCount && !module; ++j) {
            if (previous[j] && (isWhole || previous[j]->hasSameChannels(mine, count))) {
                module = previous[j];
                previous[j] = nullptr;
            }
        }
        const bool isNew = !module;
        if (isNew)
            module = takeModule();
        // Without memory the channel is left out; its consumers hear silence.
        if (!module)
            continue;
        prepareModule(*module, mine, count, isNew);
        m_slots[m_slotCount++].current = module;
    }
    for (int32_t j = 0; j < previousCount; ++j)
        giveBack(previous[j]);
    buildOutputTable();
}

void CAudioProcessTerminalBase::buildOutputTable()
{
    CAudioStream::CChannel records[CAudioStream::kMaxChannels];
    int32_t count = 0;
    // In the order process hands the buffers on: per slot, port 0 then the side port.
    for (int32_t i = 0; i < m_slotCount; ++i) {
        const CAudioModule& module = *m_slots[i].current;
        for (int32_t p = 0; p < module.outputPortCount(); ++p) {
            for (int32_t c = 0; c < module.channelCount() && count < CAudioStream::kMaxChannels; ++c) {
                const CAudioModule::CChannel& ch = module.channel(c);
                records[count++] = {keyChannel(ch.key), ch.group, m_latency + module.latency(), keyPort(ch.key) + p, nullptr};
            }
        }
    }
    setOutputFormat(m_inputRate, records, count);
}

void CAudioProcessTerminalBase::update()
{
    if (m_reconfigured) {
        rebuildModules();
        // Coming into the path reconfigures: the modules for the new channels stand now.
        if (m_isFadeInPending) {
            m_isFadeInPending = false;
            if (m_sideMode == SideNone)
                startSideFade(SideFadingIn);
        }
        return;
    }
    if (m_isFadeInPending) {
        m_isFadeInPending = false;
        if (m_sideMode == SideNone)
            startSideFade(SideFadingIn);
    }
    bool isUpdated = false;
    for (int32_t i = 0; i < m_slotCount; ++i) {
        CSlot& s = m_slots[i];
        if (s.timerFired) {
            s.timerFired = 0;
            // The timer counts whole blocks; should it run out with samples of the fade
            // still to come, it waits for them.
            if (s.isFading && m_inputRate > 0.0)
                addTimer(double(s.wait + s.fade.remaining()) / m_inputRate, &s.timerFired);
        }
        if (!s.isFading && s.old) {
            giveBack(s.old);
            s.old = nullptr;
        }

        CAudioModule& current = *s.current;
        const uint32_t groups = current.groupBits();
        bool isChanged = false;
        bool isSmooth = m_def && m_def->isSmoothUpdate();
        for (const auto& b : m_bindings) {
            if (!(b->useAllGroups ? b->changed : b->changed & groups))
                continue;
            current.markChanged(b->index);
            isChanged = true;
            isSmooth = isSmooth || b->isSmooth;
        }
        if (isChanged && !isSmooth) {
            current.update();
            current.clearChanged();
            isUpdated = true;
        } else if (isChanged) {
            current.clearChanged();
            s.hasPendingChange = true;
        }
        if (s.hasPendingChange && !s.isFading) {
            startFade(s);
            isUpdated = true;
        }
    }
    // A module's latency may follow its parameters.
    if (isUpdated)
        buildOutputTable();
}

void CAudioProcessTerminalBase::startFade(CSlot& s)
{
    s.hasPendingChange = false;
    CAudioModule* next = takeModule();
    if (!next) {
        // No second module: the change is heard at once rather than not at all.
        s.current->markAllChanged();
        s.current->update();
        s.current->clearChanged();
        return;
    }
    const CAudioModule& playing = *s.current;
    CAudioModule::CChannel channels[CAudioPort::kMaxChannels];
    for (int32_t c = 0; c < playing.channelCount(); ++c)
        channels[c] = playing.channel(c);
    prepareModule(*next, channels, playing.channelCount(), true);
    s.old = s.current;
    s.current = next;
    // While the new module fills its own latency its output is not yet the signal.
    s.wait = std::max(0, next->latency());
    const int32_t length = CXFadeKernel::lengthFor(m_inputRate, m_xfadeSeconds);
    s.fade.start(length);
    s.isFading = true;
    if (m_inputRate > 0.0)
        addTimer(double(s.wait + length) / m_inputRate, &s.timerFired);
}

// ---- coming into the path and going out of it

void CAudioProcessTerminalBase::startSideFade(int32_t mode)
{
    const int32_t length = CXFadeKernel::lengthFor(m_inputRate, m_xfadeSeconds);
    // Turned round halfway, the fade goes back from where it stands: the raised cosine
    // from the point whose weights are those of now with the sides swapped.
    const bool isTurning = m_side.isRunning() && mode != m_sideMode
                           && (m_sideMode == SideFadingIn || m_sideMode == SideFadingOut);
    const int32_t elapsed = isTurning ? std::clamp(length - m_side.remaining(), 0, length) : 0;
    m_side.start(length);
    if (isTurning)
        m_side.skip(length - elapsed);
    // A module that delays its output (a latency pad) has nothing of the signal to give
    // for that many samples after it comes in: the input goes on through until it has.
    m_sideWait = 0;
    if (mode == SideFadingIn && !isTurning)
        for (int32_t i = 0; i < m_slotCount; ++i)
            m_sideWait = std::max(m_sideWait, m_slots[i].current->latency());
    m_sideMode = mode;
}

double CAudioProcessTerminalBase::fadeOutToInput()
{
    m_isFadeInPending = false;
    if (!fadesOnBypass() || m_slotCount == 0 || !(m_inputRate > 0.0) || m_sideMode == SidePassing)
        return 0.0;
    // Asked again while the fade runs, it tells what is left of it.
    if (m_sideMode != SideFadingOut)
        startSideFade(SideFadingOut);
    return double(m_side.remaining()) / m_inputRate;
}

void CAudioProcessTerminalBase::fadeInFromInput()
{
    if (!fadesOnBypass() || m_sideMode == SideFadingIn)
        return;
    // Back before it left: from where it stands towards its own output again.
    if (m_sideMode == SideFadingOut || m_sideMode == SidePassing)
        startSideFade(SideFadingIn);
    else
        m_isFadeInPending = true;
}

// ---- one block

double* CAudioProcessTerminalBase::mixFade(int32_t waitSamples, CXFadeKernel kernel, double* oldOut, double* newOut, int32_t n)
{
    if (!oldOut || !newOut || oldOut == newOut) {
        // The same buffer (both passed their input on) needs no mixing; a missing one
        // leaves the other.
        if (oldOut == newOut) {
            Pool::release(oldOut);
            return newOut;
        }
        return newOut ? newOut : oldOut;
    }
    double* out = Pool::refCount(newOut) == 1 ? newOut : Pool::refCount(oldOut) == 1 ? oldOut : m_pool->take(n);
    if (!out) {
        Pool::release(oldOut);
        return newOut;
    }
    const int32_t wait = std::min(waitSamples, n);
    if (out != oldOut)
        for (int32_t i = 0; i < wait; ++i)
            out[i] = oldOut[i];
    kernel.run(oldOut + wait, newOut + wait, out + wait, n - wait);
    if (out != oldOut)
        Pool::release(oldOut);
    if (out != newOut)
        Pool::release(newOut);
    return out;
}

void CAudioProcessTerminalBase::process()
{
    pull();
    const int32_t n = m_blockLength;
    const CAudioPort& in = m_ports[0];
    double* outs[CAudioStream::kMaxChannels];
    int32_t count = 0;
    for (int32_t i = 0; i < m_slotCount && n > 0; ++i) {
        CSlot& s = m_slots[i];
        CAudioModule* modules[2] = {s.current, s.isFading ? s.old : nullptr};
        for (CAudioModule* module : modules) {
            if (!module)
                continue;
            module->setBlockLength(n);
            for (int32_t c = 0; c < module->channelCount(); ++c)
                module->setInput(c, in.channels[module->channel(c).index].buffer);
            runModule(*module, n);
        }
        for (int32_t p = 0; p < s.current->outputPortCount(); ++p) {
            for (int32_t c = 0; c < s.current->channelCount() && count < CAudioStream::kMaxChannels; ++c) {
                double* out = s.current->takeOutput(c, p);
                // Every channel fades from the same point of the one kernel of the slot.
                if (s.isFading)
                    out = mixFade(s.wait, s.fade, s.old->takeOutput(c, p), out, n);
                double* input = p == 0 && m_sideMode != SideNone ? in.channels[s.current->channel(c).index].buffer : nullptr;
                if (input) {
                    Pool::addRef(input);
                    if (m_sideMode == SidePassing) {
                        Pool::release(out);
                        out = input;
                    } else {
                        out = m_sideMode == SideFadingIn ? mixFade(m_sideWait, m_side, input, out, n) : mixFade(0, m_side, out, input, n);
                    }
                }
                outs[count++] = out;
            }
        }
        if (s.isFading) {
            const int32_t wait = std::min(s.wait, n);
            s.wait -= wait;
            s.fade.skip(n - wait);
            s.isFading = s.wait > 0 || s.fade.isRunning();
        }
    }
    if (n > 0 && (m_sideMode == SideFadingIn || m_sideMode == SideFadingOut)) {
        const int32_t wait = std::min(m_sideWait, n);
        m_sideWait -= wait;
        m_side.skip(n - wait);
        if (!m_side.isRunning())
            m_sideMode = m_sideMode == SideFadingIn ? SideNone : SidePassing;
    }
    // The table and the slots change together in update, so they match here. Without a
    // block the streams still learn its length, and nobody reads last block's buffers.
    for (int32_t i = count; i < m_outCount; ++i)
        outs[i] = nullptr;
    handOutputs(outs);
    releasePortBuffers();
}

} // namespace qel
