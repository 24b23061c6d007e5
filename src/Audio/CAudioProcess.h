#pragma once

#include "Audio/CAudioProcessBase.h"
#include "Audio/CAudioProcessBypassStateDef.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CAudioProcessDef;
class CAudioProcessLinkDef;
class CModNode;

// A composite process: its children, the links between them, and the planner that decides
// from the bypass states which children run, how they are linked and in which order.
//
// A child that its bypass state takes out while audio runs may first fade to its own
// input (a smooth leaf does): the plan keeps it until it has, and one that comes in
// fades from its input, so that switching a stage in or out costs no click.
//
// Every child that is not a prototype or a junction is made at set-up, and so is a stream
// for every link any combination of bypass states can ask for (found by planning each
// combination once). Planning on the audio thread then only counts links, connects and
// disconnects the streams in place, resets the children that come back and orders the run
// within lists reserved at set-up: a bypass toggle costs no allocation, and a child that
// comes back starts from cleared state as if it were made afresh. A child that leaves lets
// go of its buffers and delay lines at once.
//
// The output side is a CModNode of its own: links to "*" end there, and it publishes and
// hands on to whatever this process feeds.
class CAudioProcess : public CAudioProcessBase
{
public:
    // Bypass states up to this count are planned in every combination at set-up; beyond it
    // only all off, all on and each one alone either way.
    static constexpr int32_t kMaxEnumeratedStates = 10;

    CAudioProcess();
    ~CAudioProcess() override;

    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void process() override;
    void release() override;
    void attachOutput(CAudioStream* stream) override;
    void detachOutput(CAudioStream* stream) override;
    void reserveOutputs(int32_t count) override;

    // ---- for tests and diagnostics
    // The child of that name; null for a junction or an unknown name.
    CAudioProcessBase* findChild(const CString& name) const;
    int32_t runOrderCount() const { return int32_t(m_runOrder.size()); }
    // The last entry is the output side.
    CAudioProcessBase* runOrderAt(int32_t index) const { return m_runOrder[size_t(index)]; }
    const CAudioProcessBase& outputSide() const;
    bool hasSequenceError() const { return m_hasSequenceError; }
    // Link entries made at set-up, and those the audio thread had to make after it.
    int32_t linkEntryCount() const { return m_entryCount; }
    int32_t lateLinkEntryCount() const { return m_lateEntryCount; }

private:
    struct CNode;

    struct CLinkEntry
    {
        CNode* src = nullptr; // null: this process's own input
        int32_t srcPort = 0;
        int32_t dstPort = 0;
        int32_t count = 0;
        int32_t countBefore = 0;
        std::unique_ptr<CAudioStream> stream;
    };

    struct CSource
    {
        CNode* node = nullptr;
        int32_t port = 0;
        bool operator==(const CSource& other) const { return node == other.node && port == other.port; }
    };

    struct CNode
    {
        const CAudioProcessDefBase* def = nullptr;
        CString name;
        bool isJunction = false;
        bool isBypassed = false;
        CAudioProcessBase* process = nullptr; // null for a junction
        std::unique_ptr<CAudioProcessBase> owned;
        std::vector<std::unique_ptr<CLinkEntry>> inputs;
        // A junction's active sources in the plan being made.
        std::vector<CSource> sources;
        std::vector<CNode*> junctionInputs;
        bool isActive = false;
        bool isPlaced = false;
        // The node's bypass state held at the last plan; the node fades to its input
        // before the state takes it out, until its timer tells it has.
        bool wasHeld = false;
        bool isLeaving = false;
        bool isEntering = false;
        uint8_t hasLeft = 0;
        int32_t linkCount = 0;
        uint32_t visit = 0;
    };

    // A link of the definition with its ends found once.
    struct CLink
    {
        const CAudioProcessLinkDef* def = nullptr;
        CNode* src = nullptr; // null: the input "*"
        CNode* dst = nullptr; // m_output for "*"
    };

    struct CState
    {
        int32_t id = -1;
        std::vector<CAudioProcessBypassStateDef::CBinding> bindings;
        bool holds = false;
    };

    CErrorPtr addNode(const CAudioProcessDefBase* childDef);
    void bindStates(const CAudioProcessDef& def);
    void resolveLinks(const CAudioProcessDef& def);
    void enumerateLinks();
    void reserveWiring();

    bool holds(int32_t stateId) const;
    void evaluateStates();
    void computeLinks();
    void addLink(CNode* src, int32_t srcPort, CNode* dst, int32_t dstPort);
    void addJunctionSource(CNode* junction, const CSource& source);
    // A junction's sources through every junction that feeds it, into m_expanded.
    void expand(CNode* junction);
    void collect(CNode* junction, uint32_t visit);
    bool isFed(CNode* node);
    void dropUnfed();
    void applyPlan();
    void connect(CLinkEntry& entry, CNode& dst);
    void disconnect(CLinkEntry& entry, CNode& dst);
    void orderRun();
    void noteStateChanges();
    void plan();

    std::unique_ptr<CModNode> m_sink;
    std::vector<std::unique_ptr<CNode>> m_nodes;
    CNode m_output;
    std::vector<CLink> m_links;
    std::vector<CState> m_states;
    std::vector<std::unique_ptr<CParamBinding>> m_stateParams;
    std::vector<CAudioProcessBase*> m_runOrder;
    std::vector<CNode*> m_candidates;
    std::vector<CSource> m_expanded;
    std::vector<CSource> m_chain;
    std::vector<CSource> m_chainNext;
    std::vector<CNode*> m_unfed;
    uint32_t m_visit = 0;
    bool m_isEnumerating = false;
    bool m_hasSequenceError = false;
    int32_t m_entryCount = 0;
    int32_t m_lateEntryCount = 0;
};

} // namespace qel
