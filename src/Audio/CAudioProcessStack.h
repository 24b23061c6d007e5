#pragma once

#include "Audio/CAudioProcessBase.h"
#include "Audio/CXFadeKernel.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CAudioParam;

// How many of one definition run: a copy per channel group that has channels, and within
// a group a chain of as many copies as the stack parameter says (one without it), copy `e`
// made with element `e` so that it reads element `e` of every parameter that has elements.
// With `is-channel-stack` each channel of a group has a chain of its own (a column), so
// that no two channels share state.
//
// Copies are made at set-up, never on the audio thread: for every group that can come
// (only its own group when the stack sits inside the copy of another stack, which never
// hands it other channels), as many levels as the stack parameter asks for in that group
// at that moment (at least one), with the streams that chain them. A count above that
// plays the levels that were made: making every level the parameter's range allows, for
// every group, would cost the product (band counts up to 32 in 8 groups) some 90 MB and
// a sixth of a second per instance for levels it never uses. On the audio thread a new
// layout only links, unlinks, resets and reorders within what was made: a group that
// comes back, or a level that is added, starts from cleared state as if made afresh.
//
// A change of layout that leaves the sound of a channel to other copies (another band
// count, a channel moved to another group) crossfades: for `xfade-length` the old and the
// new copies run side by side on the channels concerned, and the stack's output goes from
// the old one to the new one over the raised cosine of CXFadeKernel. Only then are the
// surplus copies let go. A change that comes during a fade waits for it to end; only a
// channel new to the stack joins at once (there is no sound of it to fade from), and one
// that is gone from the input goes at once.
//
// The stack reads its own input ports (aligned and mixed like any process's), hands each
// copy of the first level the channels of its group, and gathers what the copies of the
// last level hand on into its own output table, where each channel keeps the latency its
// copies gave it.
class CAudioProcessStack : public CAudioProcessBase
{
public:
    static constexpr int32_t kMaxLevels = 64;

    CAudioProcessStack();
    ~CAudioProcessStack() override;

    // Set-up thread: binds the stack parameter and makes every copy.
    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void process() override;
    void release() override;

    // ---- for tests and diagnostics
    // Groups that have channels, in order of their coming.
    int32_t groupRecordCount() const { return int32_t(m_order.size()); }
    int32_t groupRecordAt(int32_t index) const;
    // Levels that run for a group's channels, columns of a group; -1 for a group without
    // a record.
    int32_t levelCount(int32_t group) const;
    int32_t columnCount(int32_t group) const;
    // The copy of that level and column of a group; null when none runs there.
    CAudioProcessBase* copyAt(int32_t group, int32_t level, int32_t column = 0) const;
    int32_t runListCount() const { return int32_t(m_runList.size()); }
    CAudioProcessBase* runListAt(int32_t index) const { return m_runList[size_t(index)]; }
    int32_t preparedGroupCount() const { return int32_t(m_groups.size()); }
    // Levels made for a group at set-up.
    int32_t preparedLevelCount(int32_t group) const;
    int32_t preparedCopyCount() const;
    bool isFading() const { return m_fade.isRunning(); }
    const CAudioParam* stackParam() const { return m_stackBinding ? m_stackBinding->param : nullptr; }

private:
    // One chain of copies and the streams around it. `keys` are the input channel keys
    // the column serves in the layout in force; while a fade runs, `oldKeys` those it
    // served before, which it still receives.
    struct CColumn
    {
        std::vector<std::unique_ptr<CAudioProcessBase>> copies;
        // From level e to e + 1: links[e * kPortCount + p].
        std::vector<std::unique_ptr<CAudioStream>> links;
        std::unique_ptr<CAudioStream> in[kPortCount];      // the stack into level 0
        std::unique_ptr<CAudioStream> out[kPortCount];     // the last level back to the stack
        std::unique_ptr<CAudioStream> fadeOut[kPortCount]; // the last level of the old layout
        uint32_t keys = 0;
        uint32_t oldKeys = 0;
        uint32_t wantKeys = 0;
        int32_t count = 0;   // levels of the layout in force
        int32_t wired = 0;   // levels linked and active
        int32_t outEnd = -1; // level that feeds `out`
        int32_t fadeEnd = -1;
        int32_t oldEnd = -1; // level whose output is the old sound while fading
    };

    struct CGroup
    {
        int32_t group = 0;
        std::vector<std::unique_ptr<CColumn>> columns;
        int32_t levels = 0; // made at set-up, in every column
        int32_t wantCount = 0;
    };

    // Where the sound of one output channel comes from: the new copies, and the old ones
    // while a fade runs (null when the channel does not fade).
    struct CSource
    {
        CAudioStream* now = nullptr;
        CAudioStream* old = nullptr;
    };

    bool isInsideStackCopy() const;
    int32_t levelsToPrepare(int32_t group) const;
    void prepareGroup(int32_t group, int32_t columns);
    void prepareColumn(CColumn& column, int32_t group, int32_t levels);
    double wantedCount(int32_t group) const;

    CGroup* groupRecord(int32_t group) const;
    void planLayout();
    bool isLayoutChanged() const;
    bool needsFade() const;
    void applyLayout(bool isFade);
    void admitDuringFade();
    void finishFade();
    void updateOrder();
    void rewire(CColumn& column, int32_t wire, int32_t outEnd, int32_t fadeEnd);
    void detachEnd(CColumn& column, int32_t end, std::unique_ptr<CAudioStream>* streams);
    void attachEnd(CColumn& column, int32_t end, std::unique_ptr<CAudioStream>* streams);
    void formatInputs();
    void rebuildRunList();
    void feedCopies();
    void buildOutputTable();
    void handOn();
    void releaseColumnOutputs();

    CParamBinding* m_stackBinding = nullptr;
    int32_t m_countElement = 0;
    // Prepared groups by index; m_order lists the indices of those in use.
    std::vector<std::unique_ptr<CGroup>> m_groups;
    std::vector<int32_t> m_order;
    std::vector<CAudioProcessBase*> m_runList;
    // Bumped by the copies of the last levels when what they hand on changes.
    int32_t m_outDirty = 0;
    bool m_isTableStale = true;
    bool m_isLayoutStale = true;
    bool m_hasRun = false;
    CSource m_sources[CAudioStream::kMaxChannels];
    CXFadeKernel m_fade;
    // The last group a channel of which found no copy made for it, as told to the log.
    int32_t m_toldDroppedGroup = -1;
};

} // namespace qel
