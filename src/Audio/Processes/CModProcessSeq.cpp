#include "Audio/Processes/CModProcessSeq.h"

#include "Audio/Processes/CModNode.h"

namespace qel {

CModProcessSeq::CModProcessSeq() { m_isLeaf = false; }

// The children are gone by now (their owner lets go of them with dropChildren first); the
// streams only still feed the output side.
CModProcessSeq::~CModProcessSeq()
{
    unwire();
    m_sink.reset();
}

void CModProcessSeq::reserveChildren(int32_t count)
{
    if (count <= m_capacity)
        return;
    m_capacity = count;
    m_children.reserve(size_t(count));
    const size_t links = size_t(count) * size_t(kPortCount);
    while (m_links.size() < links)
        m_links.push_back(std::make_unique<CAudioStream>());
}

CErrorPtr CModProcessSeq::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessBase::init(), m_fullName);
    m_sink = std::make_unique<CModNode>();
    m_sink->setup(nullptr, this, m_fullName, m_env, m_group, m_element, m_pool);
    QEL_RETURN_IF_ERROR(m_sink->init(), m_fullName);
    for (auto& feed : m_feeds)
        feed = std::make_unique<CAudioStream>();
    for (int32_t p = 0; p < kPortCount; ++p)
        reserveInputs(p, 0, 1);
    wire();
    return nullptr;
}

const CAudioProcessBase& CModProcessSeq::outputSide() const { return *m_sink; }

// ---- wiring

void CModProcessSeq::wire()
{
    if (m_isWired || !m_sink)
        return;
    m_isWired = true;
    const auto count = int32_t(m_children.size());
    CAudioProcessBase* first = count > 0 ? m_children.front().process : m_sink.get();
    for (int32_t p = 0; p < kPortCount; ++p) {
        CAudioStream* s = m_feeds[p].get();
        s->srcPort = p;
        first->attachInput(s, p);
        attachFeed(p, first, p, s);
    }
    for (int32_t i = 0; i < count; ++i) {
        CAudioProcessBase* next = i + 1 < count ? m_children[size_t(i) + 1].process : m_sink.get();
        for (int32_t p = 0; p < kPortCount; ++p) {
            CAudioStream* s = m_links[size_t(i * kPortCount + p)].get();
            s->srcPort = p;
            m_children[size_t(i)].process->attachOutput(s);
            next->attachInput(s, p);
        }
    }
}

void CModProcessSeq::unwire()
{
    if (!m_isWired)
        return;
    m_isWired = false;
    const auto count = int32_t(m_children.size());
    CAudioProcessBase* first = count > 0 ? m_children.front().process : m_sink.get();
    for (int32_t p = 0; p < kPortCount; ++p) {
        CAudioStream* s = m_feeds[p].get();
        first->detachInput(s, p);
        detachFeed(p, s);
        s->clear();
    }
    for (int32_t i = 0; i < count; ++i) {
        CAudioProcessBase* next = i + 1 < count ? m_children[size_t(i) + 1].process : m_sink.get();
        for (int32_t p = 0; p < kPortCount; ++p) {
            CAudioStream* s = m_links[size_t(i * kPortCount + p)].get();
            m_children[size_t(i)].process->detachOutput(s);
            next->detachInput(s, p);
            s->clear();
        }
    }
}

// Rewiring the whole sequence is as cheap as rewiring the neighbours, and a child that
// stays sees its input stream come back with the format it had, so it keeps its state.
void CModProcessSeq::insertChild(int32_t at, const CString* name, CAudioProcessBase* child)
{
    const auto count = int32_t(m_children.size());
    if (!child || count >= m_capacity || at < 0 || at > count)
        return;
    unwire();
    m_children.insert(m_children.begin() + at, CEntry{name, child});
    child->activate();
    wire();
}

CAudioProcessBase* CModProcessSeq::removeChild(int32_t at)
{
    if (at < 0 || at >= int32_t(m_children.size()))
        return nullptr;
    unwire();
    CAudioProcessBase* child = m_children[size_t(at)].process;
    m_children.erase(m_children.begin() + at);
    child->deactivate();
    wire();
    return child;
}

void CModProcessSeq::dropChildren()
{
    unwire();
    m_children.clear();
    wire();
}

// ---- running

void CModProcessSeq::process()
{
    pull();
    releasePortBuffers();
    for (const CEntry& e : m_children)
        e.process->process();
    m_sink->process();
}

void CModProcessSeq::reset()
{
    CAudioProcessBase::reset();
    for (const CEntry& e : m_children)
        e.process->reset();
    for (auto& s : m_links)
        s->releaseBuffers();
    for (auto& s : m_feeds)
        if (s)
            s->releaseBuffers();
    if (m_sink)
        m_sink->reset();
}

void CModProcessSeq::release()
{
    // What comes back starts afresh: the derived class builds the sequence again.
    while (!m_children.empty())
        removeChild(int32_t(m_children.size()) - 1);
    if (m_sink)
        m_sink->release();
    CAudioProcessBase::release();
}

void CModProcessSeq::attachOutput(CAudioStream* stream) { m_sink->attachOutput(stream); }

void CModProcessSeq::detachOutput(CAudioStream* stream) { m_sink->detachOutput(stream); }

void CModProcessSeq::reserveOutputs(int32_t count) { m_sink->reserveOutputs(count); }

} // namespace qel
