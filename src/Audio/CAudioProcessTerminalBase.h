#pragma once

#include "Audio/CAudioModule.h"
#include "Audio/CAudioProcessBase.h"
#include "Audio/CXFadeKernel.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

// A leaf process: runs CAudioModule objects, one per channel of its port 0 (or one for all
// of them with `is-terminal-whole`), and hands their outputs on with the module's latency
// added to its own.
//
// A smooth update (the definition's `is-smooth-update`, or a param-alloc row's) never
// changes a module that is playing: a second module takes the new parameters and the slot
// crossfades to it, over the raised cosine of CXFadeKernel, after waiting out the new
// module's own latency. A timer of that length then retires the old module to the free
// list. A change that arrives while a slot fades waits for that fade to end and then starts
// the next one with the newest values: restarting halfway would jump, and keeping three
// modules in play would have no bound under steady automation.
//
// A smooth leaf that its bypass state takes out of the path, or brings into it, fades
// between its input and its modules' outputs over the same raised cosine, so that the
// bypass costs no click either: port 0's channels fade, the side ports of a module (a
// level) have no input to fade to and stay as they are.
//
// Modules come from a free list filled at set-up for kPreparedChannels channels (twice for
// a smooth leaf), so channels coming and going, bypass toggles and fades cost no
// allocation; only a layout wider than that makes more on the audio thread, once.
class CAudioProcessTerminalBase : public CAudioProcessBase
{
public:
    // The channels a host hands the product at most.
    static constexpr int32_t kPreparedChannels = 8;

    CAudioProcessTerminalBase();
    ~CAudioProcessTerminalBase() override;

    CErrorPtr init() override;
    void reset() override;
    void update() override;
    void process() override;
    void release() override;
    double fadeOutToInput() override;
    void fadeInFromInput() override;

    // A module's slot has no param-alloc row. Any thread; told once per slot.
    void noteMissingParam(int32_t index);

    // ---- for tests and diagnostics
    int32_t slotCount() const { return m_slotCount; }
    CAudioModule* currentModule(int32_t slot) const { return m_slots[slot].current; }
    bool isFading(int32_t slot) const { return m_slots[slot].isFading; }
    int32_t moduleCount() const { return int32_t(m_modules.size()); }
    int32_t freeModuleCount() const { return int32_t(m_free.size()); }

protected:
    // The eighth virtual operation of the template: a new module of the leaf's type.
    virtual CAudioModule* createModule() = 0;
    virtual void runModule(CAudioModule& module, int32_t n) = 0;

private:
    struct CSlot
    {
        CAudioModule* current = nullptr;
        CAudioModule* old = nullptr; // the module faded out, until the timer retires it
        CXFadeKernel fade;
        int32_t wait = 0;            // samples of the old output still to copy before the fade
        bool isFading = false;
        bool hasPendingChange = false;
        uint8_t timerFired = 0;
    };

    CAudioModule* makeModule();
    CAudioModule* takeModule();
    void giveBack(CAudioModule* module);
    void retireFades();
    void rebuildModules();
    void prepareModule(CAudioModule& module, const CAudioModule::CChannel* channels, int32_t count, bool isNew);
    void startFade(CSlot& slot);
    // Copies `wait` samples of the old output, then runs the fade; either buffer may be
    // the one handed on.
    double* mixFade(int32_t wait, CXFadeKernel kernel, double* oldOut, double* newOut, int32_t n);
    void buildOutputTable();
    bool isSmoothLeaf() const;
    bool fadesOnBypass() const;
    void startSideFade(int32_t mode);

    std::vector<std::unique_ptr<CAudioModule>> m_modules;
    std::vector<CAudioModule*> m_free;
    CSlot m_slots[CAudioPort::kMaxChannels];
    int32_t m_slotCount = 0;
    double m_xfadeSeconds = 0.015;
    // Between the input and the modules (the process coming in or going out of the path):
    // the fade, the samples it waits for a delaying module, and which way it runs.
    enum SideMode : int32_t { SideNone, SideFadingIn, SideFadingOut, SidePassing };
    CXFadeKernel m_side;
    int32_t m_sideWait = 0;
    int32_t m_sideMode = SideNone;
    bool m_isFadeInPending = false;
    std::atomic<uint64_t> m_missingParams{0};
};

} // namespace qel
