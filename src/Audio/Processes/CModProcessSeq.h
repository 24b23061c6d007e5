#pragma once

#include "Audio/CAudioProcessBase.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CModNode;

// A composite that runs a sequence of child processes one after the other: the first is
// fed by this process's input, each hands its output to the next, and the last feeds
// whatever this process feeds, through an output side of its own. An empty sequence hands
// its input on unchanged.
//
// The sequence holds its children, it does not own them: a derived class makes them at
// set-up and puts them in and takes them out while audio runs. A child that comes in starts
// from cleared state, one that goes out lets go of its buffers and state at once, as if it
// were made and destroyed then; the children that stay keep theirs, since their streams
// carry the same format as before. Every stream a sequence of up to the reserved length can
// need is made at set-up, so a change only rewires.
//
// Audio thread, but for init and reserveChildren.
class CModProcessSeq : public CAudioProcessBase
{
public:
    CModProcessSeq();
    ~CModProcessSeq() override;

    CErrorPtr init() override;
    void reset() override;
    void process() override;
    void release() override;
    void attachOutput(CAudioStream* stream) override;
    void detachOutput(CAudioStream* stream) override;
    void reserveOutputs(int32_t count) override;

    // ---- for tests and diagnostics
    int32_t childCount() const { return int32_t(m_children.size()); }
    CAudioProcessBase* childAt(int32_t index) const { return m_children[size_t(index)].process; }
    const CString& childNameAt(int32_t index) const { return *m_children[size_t(index)].name; }
    const CAudioProcessBase& outputSide() const;

protected:
    // Set-up: room for a sequence of `count` children. Before init's streams are used.
    void reserveChildren(int32_t count);
    // Audio thread: `child` comes in before position `at` (childCount() appends), from
    // cleared state. `name` must outlive its place in the sequence. Past the reserved
    // length nothing happens.
    void insertChild(int32_t at, const CString* name, CAudioProcessBase* child);
    // Audio thread: the child at `at` leaves the sequence and is released; the caller
    // keeps it. Null for a position out of range.
    CAudioProcessBase* removeChild(int32_t at);
    // Before the children it holds are destroyed: lets go of them without touching them
    // further.
    void dropChildren();

private:
    struct CEntry
    {
        const CString* name = nullptr;
        CAudioProcessBase* process = nullptr;
    };

    void wire();
    void unwire();

    std::unique_ptr<CModNode> m_sink;
    std::vector<CEntry> m_children;
    int32_t m_capacity = 0;
    std::unique_ptr<CAudioStream> m_feeds[kPortCount];
    // From element i to element i + 1 (the output side following the last child), one per
    // port: m_links[i * kPortCount + p].
    std::vector<std::unique_ptr<CAudioStream>> m_links;
    bool m_isWired = false;
};

} // namespace qel
