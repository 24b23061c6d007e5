#include "Audio/CAudioProcess.h"

#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioProcessDef.h"
#include "Audio/CAudioProcessLinkDef.h"
#include "Audio/CSampleBufferPool.h"
#include "Audio/Processes/CModNode.h"
#include "Core/CLog.h"

#include <algorithm>

namespace qel {
namespace {

template <class T>
void pushUnique(std::vector<T>& list, const T& value)
{
    if (std::find(list.begin(), list.end(), value) == list.end())
        list.push_back(value);
}

const CString& junctionTag()
{
    static const CString tag("audio:modNode");
    return tag;
}

} // namespace

CAudioProcess::CAudioProcess() { m_isLeaf = false; }

// Children go before the streams they are wired to; the streams' lines give their chunks
// back to the pool, which outlives the graph.
CAudioProcess::~CAudioProcess()
{
    for (auto& b : m_stateParams)
        unbindParam(*b);
    for (auto& node : m_nodes)
        node->owned.reset();
    m_sink.reset();
}

CErrorPtr CAudioProcess::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessBase::init(), m_fullName);
    const auto* def = dynamic_cast<const CAudioProcessDef*>(m_def);
    if (!def)
        return QEL_ERROR(m_fullName, "@qelstr_CAudioProcess_init_ProcessDefClassInvalid Audio process def of invalid class supplied.");

    m_sink = std::make_unique<CModNode>();
    m_sink->setup(nullptr, this, m_fullName, m_env, m_group, m_element, m_pool);
    QEL_RETURN_IF_ERROR(m_sink->init(), m_fullName);
    m_output.name = CString("*");
    m_output.process = m_sink.get();

    for (const CAudioProcessDefBase* child : def->processes())
        if (!child->isPrototype())
            QEL_RETURN_IF_ERROR(addNode(child), m_fullName);
    resolveLinks(*def);
    bindStates(*def);
    enumerateLinks();
    reserveWiring();
    plan();
    return nullptr;
}

CErrorPtr CAudioProcess::addNode(const CAudioProcessDefBase* childDef)
{
    const CString name = childDef->name();
    for (const auto& node : m_nodes)
        if (node->name == name)
            return QEL_ERROR(m_fullName, "@qelstr_CAudioProcess_addProcess_DupeName Duplicate audio process name '%1'.", name);
    auto node = std::make_unique<CNode>();
    node->def = childDef;
    node->name = name;
    node->isJunction = childDef->tag() == junctionTag();
    if (!node->isJunction) {
        CAudioProcessBase* made = nullptr;
        QEL_RETURN_IF_ERROR(childDef->createProcess(made, this, CString(m_fullName).append(".").append(name), m_env,
                                                    m_group, m_element, m_pool, false, false),
                            m_fullName);
        node->owned.reset(made);
        node->process = made;
    }
    m_nodes.push_back(std::move(node));
    return nullptr;
}

void CAudioProcess::resolveLinks(const CAudioProcessDef& def)
{
    const auto find = [&](const CString& name) -> CNode* {
        for (const auto& node : m_nodes)
            if (node->name == name)
                return node.get();
        return nullptr;
    };
    const CString any("*");
    // Link states are not selected by anything yet: every list counts as always active.
    for (const auto& [stateId, links] : def.linksByState()) {
        for (const CAudioProcessLinkDef* link : links) {
            CLink resolved;
            resolved.def = link;
            resolved.src = link->srcProcess() == any ? nullptr : find(link->srcProcess());
            resolved.dst = link->dstProcess() == any ? &m_output : find(link->dstProcess());
            // A link to a process that does not exist is left out, as planning would.
            if ((resolved.src || link->srcProcess() == any) && resolved.dst)
                m_links.push_back(resolved);
        }
    }
}

void CAudioProcess::bindStates(const CAudioProcessDef& def)
{
    CAudioParamCollector* params = collector();
    for (const CAudioProcessBypassStateDef* stateDef : def.bypassStates()) {
        auto it = std::find_if(m_states.begin(), m_states.end(), [&](const CState& s) { return s.id == stateDef->id(); });
        if (it == m_states.end()) {
            m_states.push_back(CState{stateDef->id(), {}, false});
            it = m_states.end() - 1;
        }
        if (!params)
            continue;
        // Bound here, off the audio thread: the collector's lookup locks and may allocate.
        const CAudioProcessBypassStateDef::CBinding binding = stateDef->bind(*params, m_fullName);
        it->bindings.push_back(binding);
        for (CAudioParam* param : {binding.param(), binding.andParam()}) {
            if (!param)
                continue;
            auto b = std::make_unique<CParamBinding>();
            bindParam(*b, param, m_group, m_element);
            m_stateParams.push_back(std::move(b));
        }
    }
}

// ---- set-up: every link any combination of states can ask for

void CAudioProcess::enumerateLinks()
{
    m_isEnumerating = true;
    const size_t count = m_states.size();
    const auto planWith = [&](auto&& holdsAt) {
        for (size_t i = 0; i < count; ++i)
            m_states[i].holds = holdsAt(i);
        computeLinks();
    };
    if (count <= size_t(kMaxEnumeratedStates)) {
        for (uint32_t combo = 0; combo < (uint32_t(1) << count); ++combo)
            planWith([&](size_t i) { return ((combo >> i) & 1u) != 0; });
    } else {
        planWith([](size_t) { return false; });
        planWith([](size_t) { return true; });
        for (size_t one = 0; one < count; ++one) {
            planWith([&](size_t i) { return i == one; });
            planWith([&](size_t i) { return i != one; });
        }
    }
    const auto clearCounts = [](CNode& node) {
        for (auto& e : node.inputs)
            e->count = e->countBefore = 0;
    };
    for (auto& node : m_nodes)
        clearCounts(*node);
    clearCounts(m_output);
    m_isEnumerating = false;
}

void CAudioProcess::reserveWiring()
{
    const auto countInto = [](const CNode& node, int32_t port, bool fromInput) {
        int32_t n = 0;
        for (const auto& e : node.inputs)
            n += fromInput ? (!e->src && e->srcPort == port) : e->dstPort == port;
        return n;
    };
    std::vector<CNode*> all;
    for (auto& node : m_nodes)
        all.push_back(node.get());
    all.push_back(&m_output);
    for (CNode* node : all) {
        if (!node->process)
            continue;
        for (int32_t p = 0; p < kPortCount; ++p)
            node->process->reserveInputs(p, countInto(*node, p, false), 0);
        int32_t outputs = 0;
        for (const CNode* other : all)
            for (const auto& e : other->inputs)
                outputs += e->src == node;
        if (node != &m_output)
            node->process->reserveOutputs(outputs);
    }
    for (int32_t p = 0; p < kPortCount; ++p) {
        int32_t feeds = 0;
        for (const CNode* node : all)
            feeds += countInto(*node, p, true);
        reserveInputs(p, 0, feeds);
    }
    // A junction's sources are distinct (node, port) pairs, so this bounds every list.
    const size_t sources = (m_nodes.size() + 1) * size_t(kPortCount);
    for (CNode* node : all) {
        node->sources.reserve(sources);
        node->junctionInputs.reserve(m_nodes.size());
    }
    m_expanded.reserve(sources);
    m_chain.reserve(sources);
    m_chainNext.reserve(sources);
    m_unfed.reserve(all.size());
    m_runOrder.reserve(all.size());
    m_candidates.reserve(all.size());
}

// ---- planning

bool CAudioProcess::holds(int32_t stateId) const
{
    for (const CState& s : m_states)
        if (s.id == stateId)
            return s.holds;
    return false;
}

void CAudioProcess::evaluateStates()
{
    for (CState& s : m_states) {
        s.holds = false;
        for (const auto& binding : s.bindings)
            s.holds = s.holds || binding.isBypassed(m_group, m_element);
    }
}

void CAudioProcess::addLink(CNode* src, int32_t srcPort, CNode* dst, int32_t dstPort)
{
    // Keys carry two ports; a link to or from any other has no channels to carry.
    if (srcPort < 0 || srcPort >= kPortCount || dstPort < 0 || dstPort >= kPortCount)
        return;
    for (auto& e : dst->inputs) {
        if (e->src == src && e->srcPort == srcPort && e->dstPort == dstPort) {
            ++e->count;
            return;
        }
    }
    // Set-up found every link a combination of states can ask for; should one still be
    // missing, the link is made, at the cost of an allocation on the audio thread.
    auto entry = std::make_unique<CLinkEntry>();
    entry->src = src;
    entry->srcPort = srcPort;
    entry->dstPort = dstPort;
    entry->count = 1;
    entry->stream = std::make_unique<CAudioStream>();
    dst->inputs.push_back(std::move(entry));
    ++m_entryCount;
    if (!m_isEnumerating)
        ++m_lateEntryCount;
}

void CAudioProcess::addJunctionSource(CNode* junction, const CSource& source) { pushUnique(junction->sources, source); }

void CAudioProcess::expand(CNode* junction)
{
    m_expanded.clear();
    collect(junction, ++m_visit);
}

void CAudioProcess::collect(CNode* junction, uint32_t visit)
{
    if (junction->visit == visit)
        return;
    junction->visit = visit;
    for (const CSource& s : junction->sources)
        pushUnique(m_expanded, s);
    for (CNode* feeding : junction->junctionInputs)
        collect(feeding, visit);
}

void CAudioProcess::computeLinks()
{
    for (auto& node : m_nodes) {
        node->isBypassed = holds(node->def->bypassStateId()) && !node->isLeaving;
        node->sources.clear();
        node->junctionInputs.clear();
        for (auto& e : node->inputs)
            e->count = 0;
    }
    for (auto& e : m_output.inputs)
        e->count = 0;

    const auto* def = static_cast<const CAudioProcessDef*>(m_def);
    if (def->isAutoLinks()) {
        // The chain in definition order; a junction in it hands on its sources.
        m_chain.clear();
        m_chain.push_back({nullptr, 0});
        for (auto& node : m_nodes) {
            if (node->def->isOutOfOrder() || node->isBypassed)
                continue;
            if (node->isJunction) {
                for (const CSource& s : m_chain)
                    addJunctionSource(node.get(), s);
                expand(node.get());
                m_chain.assign(m_expanded.begin(), m_expanded.end());
                continue;
            }
            for (const CSource& s : m_chain)
                addLink(s.node, s.port, node.get(), 0);
            m_chain.clear();
            m_chain.push_back({node.get(), 0});
        }
        // With every child out of the chain the input passes straight through.
        for (const CSource& s : m_chain)
            addLink(s.node, s.port, &m_output, 0);
    }

    // Links into junctions first, so that the second pass finds their sources.
    for (int pass = 0; pass < 2; ++pass) {
        for (const CLink& link : m_links) {
            if (link.dst->isJunction != (pass == 0))
                continue;
            const auto& ids = link.def->bypassStateIds();
            if (std::any_of(ids.begin(), ids.end(), [&](int32_t id) { return holds(id); }))
                continue;
            if ((link.src && link.src->isBypassed) || link.dst->isBypassed)
                continue;
            if (!link.src && link.dst == &m_output)
                continue;
            if (link.src && link.src->isJunction) {
                if (link.dst->isJunction) {
                    pushUnique(link.dst->junctionInputs, link.src);
                    continue;
                }
                expand(link.src);
                m_chainNext.assign(m_expanded.begin(), m_expanded.end());
                for (const CSource& s : m_chainNext)
                    if (s.node || link.dst != &m_output)
                        addLink(s.node, s.port, link.dst, link.def->dstPort());
            } else if (link.dst->isJunction) {
                addJunctionSource(link.dst, {link.src, link.def->srcPort()});
            } else {
                addLink(link.src, link.def->srcPort(), link.dst, link.def->dstPort());
            }
        }
    }
}

bool CAudioProcess::isFed(CNode* node)
{
    // Follows the first active link into port 0 back towards the input.
    const uint32_t visit = ++m_visit;
    for (CNode* at = node;;) {
        if (at->visit == visit)
            return false;
        at->visit = visit;
        const CLinkEntry* first = nullptr;
        for (const auto& e : at->inputs) {
            if (e->count > 0 && e->dstPort == 0) {
                first = e.get();
                break;
            }
        }
        if (!first)
            return false;
        if (!first->src)
            return true;
        at = first->src;
    }
}

void CAudioProcess::dropUnfed()
{
    m_unfed.clear();
    for (auto& node : m_nodes) {
        if (node->isJunction)
            continue;
        const bool hasLinks = std::any_of(node->inputs.begin(), node->inputs.end(), [](const auto& e) { return e->count > 0; });
        if (hasLinks && !isFed(node.get()))
            m_unfed.push_back(node.get());
    }
    // A process that only feeds others, with nothing coming in, is unfed too.
    for (auto& node : m_nodes) {
        if (node->isJunction || std::find(m_unfed.begin(), m_unfed.end(), node.get()) != m_unfed.end())
            continue;
        const bool hasInputs = std::any_of(node->inputs.begin(), node->inputs.end(), [](const auto& e) { return e->count > 0; });
        if (hasInputs)
            continue;
        bool feedsOthers = false;
        for (auto& other : m_nodes)
            for (auto& e : other->inputs)
                feedsOthers = feedsOthers || (e->count > 0 && e->src == node.get());
        for (auto& e : m_output.inputs)
            feedsOthers = feedsOthers || (e->count > 0 && e->src == node.get());
        if (feedsOthers)
            m_unfed.push_back(node.get());
    }
    if (m_unfed.empty())
        return;
    const auto isUnfed = [&](const CNode* n) { return std::find(m_unfed.begin(), m_unfed.end(), n) != m_unfed.end(); };
    const auto zero = [&](CNode& node) {
        for (auto& e : node.inputs)
            if (isUnfed(&node) || (e->src && isUnfed(e->src)))
                e->count = 0;
    };
    for (auto& node : m_nodes)
        zero(*node);
    zero(m_output);
}

void CAudioProcess::connect(CLinkEntry& entry, CNode& dst)
{
    CAudioStream* s = entry.stream.get();
    s->srcPort = entry.srcPort;
    dst.process->attachInput(s, entry.dstPort);
    if (!entry.src)
        attachFeed(entry.srcPort, dst.process, entry.dstPort, s);
    else
        entry.src->process->attachOutput(s);
}

void CAudioProcess::disconnect(CLinkEntry& entry, CNode& dst)
{
    CAudioStream* s = entry.stream.get();
    dst.process->detachInput(s, entry.dstPort);
    if (!entry.src)
        detachFeed(entry.srcPort, s);
    else
        entry.src->process->detachOutput(s);
    s->clear();
}

void CAudioProcess::applyPlan()
{
    const auto forEach = [&](auto&& visit) {
        for (auto& node : m_nodes)
            visit(*node);
        visit(m_output);
    };
    forEach([&](CNode& node) {
        for (auto& e : node.inputs)
            if (e->count == 0 && e->countBefore > 0)
                disconnect(*e, node);
    });
    forEach([](CNode& node) { node.linkCount = 0; });
    forEach([](CNode& node) {
        for (auto& e : node.inputs) {
            if (e->count > 0) {
                ++node.linkCount;
                if (e->src)
                    ++e->src->linkCount;
            }
        }
    });
    // A child that leaves lets go of everything; one that comes back starts afresh.
    for (auto& node : m_nodes) {
        if (node->isJunction)
            continue;
        const bool isActive = node->linkCount > 0;
        if (node->isActive && !isActive)
            node->process->deactivate();
        else if (!node->isActive && isActive)
            node->process->activate();
        node->isActive = isActive;
    }
    forEach([&](CNode& node) {
        for (auto& e : node.inputs)
            if (e->count > 0 && e->countBefore == 0)
                connect(*e, node);
    });
}

void CAudioProcess::orderRun()
{
    m_candidates.clear();
    for (auto& node : m_nodes) {
        node->isPlaced = false;
        if (node->isActive)
            m_candidates.push_back(node.get());
    }
    m_output.isPlaced = false;
    m_candidates.push_back(&m_output);

    // Sweep until a sweep places nothing; ties fall as the sweep finds them.
    m_runOrder.clear();
    for (bool isProgress = true; isProgress;) {
        isProgress = false;
        for (CNode* node : m_candidates) {
            if (node->isPlaced)
                continue;
            const bool isReady = std::all_of(node->inputs.begin(), node->inputs.end(), [](const auto& e) {
                return e->count == 0 || !e->src || e->src->isPlaced;
            });
            if (!isReady)
                continue;
            node->isPlaced = true;
            m_runOrder.push_back(node->process);
            isProgress = true;
        }
    }
    const bool hasCycle = m_runOrder.size() != m_candidates.size();
    // Told once when the cycle appears; the audio thread only notes it.
    if (hasCycle && !m_hasSequenceError)
        noteDiagnostic([](const CString& name, int32_t, double) { CLog::printfObject(name, "process seq err"); });
    m_hasSequenceError = hasCycle;
}

void CAudioProcess::noteStateChanges()
{
    for (auto& node : m_nodes) {
        if (!node->process)
            continue;
        const bool isHeld = holds(node->def->bypassStateId());
        node->isEntering = false;
        if (isHeld && !node->wasHeld && node->isActive) {
            const double seconds = node->process->fadeOutToInput();
            if (seconds > 0.0) {
                node->isLeaving = true;
                node->hasLeft = 0;
                addTimer(seconds, &node->hasLeft);
            }
        } else if (!isHeld && node->isLeaving) {
            node->isLeaving = false;
            node->process->fadeInFromInput();
        } else if (!isHeld && node->wasHeld) {
            node->isEntering = true;
        }
        node->wasHeld = isHeld;
    }
}

void CAudioProcess::plan()
{
    const auto keep = [](CNode& node) {
        for (auto& e : node.inputs)
            e->countBefore = e->count;
    };
    for (auto& node : m_nodes)
        keep(*node);
    keep(m_output);
    evaluateStates();
    noteStateChanges();
    computeLinks();
    dropUnfed();
    applyPlan();
    orderRun();
    // What came in because its state ended starts from its input.
    for (auto& node : m_nodes)
        if (node->isEntering && node->isActive)
            node->process->fadeInFromInput();
}

// ---- run time

void CAudioProcess::update()
{
    bool isReplan = m_allChanged != 0;
    for (auto& node : m_nodes) {
        if (!node->hasLeft)
            continue;
        node->hasLeft = 0;
        // The timer counts whole blocks: what is left of the fade is waited for.
        const double seconds = node->isLeaving ? node->process->fadeOutToInput() : 0.0;
        if (seconds > 0.0) {
            addTimer(seconds, &node->hasLeft);
            continue;
        }
        node->isLeaving = false;
        isReplan = true;
    }
    for (auto& b : m_stateParams)
        for (int32_t i = 0; i < b->listenerCount; ++i)
            isReplan = std::atomic_ref<uint32_t>(b->masks[i]).exchange(0, std::memory_order_acq_rel) != 0 || isReplan;
    if (isReplan)
        plan();
}

void CAudioProcess::process()
{
    pull();
    releasePortBuffers();
    for (CAudioProcessBase* child : m_runOrder)
        child->process();
}

void CAudioProcess::reset()
{
    CAudioProcessBase::reset();
    // The timers went with the reset: what was leaving goes at the next plan.
    for (auto& node : m_nodes) {
        if (node->isLeaving)
            m_allChanged = 1;
        node->isLeaving = false;
        node->hasLeft = 0;
    }
    for (auto& node : m_nodes) {
        if (node->process)
            node->process->reset();
        for (auto& e : node->inputs)
            e->stream->releaseBuffers();
    }
    for (auto& e : m_output.inputs)
        e->stream->releaseBuffers();
    m_sink->reset();
}

void CAudioProcess::release()
{
    // Unplanned completely: coming back plans afresh and resets every child it takes.
    const auto unlink = [&](CNode& node) {
        for (auto& e : node.inputs) {
            if (e->count > 0)
                disconnect(*e, node);
            e->count = e->countBefore = 0;
        }
    };
    for (auto& node : m_nodes)
        unlink(*node);
    unlink(m_output);
    for (auto& node : m_nodes) {
        if (node->isActive)
            node->process->deactivate();
        node->isActive = false;
        node->isLeaving = false;
        node->hasLeft = 0;
    }
    m_runOrder.clear();
    m_sink->release();
    CAudioProcessBase::release();
}

void CAudioProcess::attachOutput(CAudioStream* stream) { m_sink->attachOutput(stream); }

void CAudioProcess::detachOutput(CAudioStream* stream) { m_sink->detachOutput(stream); }

void CAudioProcess::reserveOutputs(int32_t count) { m_sink->reserveOutputs(count); }

CAudioProcessBase* CAudioProcess::findChild(const CString& name) const
{
    for (const auto& node : m_nodes)
        if (node->name == name)
            return node->process;
    return nullptr;
}

const CAudioProcessBase& CAudioProcess::outputSide() const { return *m_sink; }

} // namespace qel
