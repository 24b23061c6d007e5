#pragma once

#include "Audio/CAudioWrapper.h"
#include "Audio/VST/CSingleComponentEffect.h"
#include "Audio/VST/CVST3RunLoopTimer.h"
#include "pluginterfaces/vst/ivstchannelcontextinfo.h"
#include "pluginterfaces/vst/ivstunits.h"

#include <atomic>
#include <cstdint>

namespace qel {

class CAudioWrapperVST3ProgramParameter;

// The plug-in as the VST 3 host sees it: component and edit controller in one object over
// the format-independent wrapper. Host parameters are the rows of the ext-param list (ids
// 0..n-1) and the program list (id 999); the state is the wrapper's; process() hands the
// host's buffers and automation to the wrapper.
//
// Threads: process() on the host's audio thread, everything else on its main thread.
//
// A latency change is found on the audio thread, but the host hears of it through
// restartComponent, which belongs to its main thread. A flag carries it over: it goes out
// at the next tick of the host's run loop (a timer on the IRunLoop that the host context
// or the component handler offers), or, where the host offers none, at the next main-thread
// call that may answer with it (parameter reads and writes, state, channel context); never
// from inside setupProcessing or setProcessing, where the host is busy with our activation.
// getLatencySamples tells the host itself and drops the flag.
//
// SDK interfaces are released, never deleted through their own pointers: they have no
// virtual destructor by design.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class CAudioWrapperVST3 : public CSingleComponentEffect,
                          public Steinberg::Vst::IUnitInfo,
                          public Steinberg::Vst::ChannelContext::IInfoListener,
                          public CAudioWrapper,
                          private CVST3RunLoopTimer::CClient
{
public:
    static constexpr Steinberg::Vst::ParamID kProgramParamId = 999;
    static constexpr Steinberg::Vst::ProgramListID kProgramListId = 999;
    // Automation points taken per parameter and block, the last one always among them.
    static constexpr int32_t kMaxAutomationPoints = 32;
    // How often the host's run loop lets us pass on news that must reach the host on its
    // main thread.
    static constexpr uint64_t kHostNotifyIntervalMs = 100;

    // The factory's create function: only allocates; all work waits for initialize.
    static Steinberg::FUnknown* create();

    CAudioWrapperVST3();
    ~CAudioWrapperVST3() override;

    // Which points of a queue of `pointCount` process() reads: k * pointCount / m for k
    // below m - 1, then the last, m being min(pointCount, 32). Returns how many.
    static int32_t selectAutomationPoints(int32_t pointCount, int32_t outIndices[kMaxAutomationPoints]);

    // ---- IPluginBase
    tresult PLUGIN_API initialize(Steinberg::FUnknown* context) override;
    tresult PLUGIN_API terminate() override;

    // ---- IComponent
    tresult PLUGIN_API setActive(TBool state) override;
    tresult PLUGIN_API setState(Steinberg::IBStream* state) override;
    tresult PLUGIN_API getState(Steinberg::IBStream* state) override;

    // ---- IAudioProcessor
    tresult PLUGIN_API setBusArrangements(SpeakerArrangement* inputs, int32 numIns, SpeakerArrangement* outputs,
                                          int32 numOuts) override;
    tresult PLUGIN_API canProcessSampleSize(int32 symbolicSampleSize) override;
    uint32 PLUGIN_API getLatencySamples() override;
    uint32 PLUGIN_API getTailSamples() override;
    tresult PLUGIN_API setupProcessing(Steinberg::Vst::ProcessSetup& setup) override;
    tresult PLUGIN_API setProcessing(TBool state) override;
    tresult PLUGIN_API process(Steinberg::Vst::ProcessData& data) override;

    // ---- IProcessContextRequirements
    uint32 PLUGIN_API getProcessContextRequirements() override;

    // ---- IEditController
    Steinberg::IPlugView* PLUGIN_API createView(Steinberg::FIDString name) override;
    Steinberg::Vst::ParamValue PLUGIN_API getParamNormalized(Steinberg::Vst::ParamID tag) override;
    tresult PLUGIN_API setParamNormalized(Steinberg::Vst::ParamID tag, Steinberg::Vst::ParamValue value) override;
    tresult PLUGIN_API setComponentHandler(Steinberg::Vst::IComponentHandler* handler) override;

    // ---- IUnitInfo: one root unit with one program list.
    int32 PLUGIN_API getUnitCount() override;
    tresult PLUGIN_API getUnitInfo(int32 unitIndex, Steinberg::Vst::UnitInfo& info) override;
    int32 PLUGIN_API getProgramListCount() override;
    tresult PLUGIN_API getProgramListInfo(int32 listIndex, Steinberg::Vst::ProgramListInfo& info) override;
    tresult PLUGIN_API getProgramName(Steinberg::Vst::ProgramListID listId, int32 programIndex,
                                      Steinberg::Vst::String128 name) override;
    tresult PLUGIN_API getProgramInfo(Steinberg::Vst::ProgramListID listId, int32 programIndex,
                                      Steinberg::Vst::CString attributeId, Steinberg::Vst::String128 value) override;
    tresult PLUGIN_API hasProgramPitchNames(Steinberg::Vst::ProgramListID listId, int32 programIndex) override;
    tresult PLUGIN_API getProgramPitchName(Steinberg::Vst::ProgramListID listId, int32 programIndex,
                                           Steinberg::int16 midiPitch, Steinberg::Vst::String128 name) override;
    Steinberg::Vst::UnitID PLUGIN_API getSelectedUnit() override;
    tresult PLUGIN_API selectUnit(Steinberg::Vst::UnitID unitId) override;
    tresult PLUGIN_API getUnitByBus(MediaType type, BusDirection dir, int32 busIndex, int32 channel,
                                    Steinberg::Vst::UnitID& unitId) override;
    tresult PLUGIN_API setUnitProgramData(int32 listOrUnitId, int32 programIndex, Steinberg::IBStream* data) override;

    // ---- ChannelContext::IInfoListener: the host's name of our channel.
    tresult PLUGIN_API setChannelContextInfos(Steinberg::Vst::IAttributeList* list) override;

    // ---- FUnknown
    tresult PLUGIN_API queryInterface(const Steinberg::TUID wanted, void** obj) override;
    uint32 PLUGIN_API addRef() override { return CSingleComponentEffect::addRef(); }
    uint32 PLUGIN_API release() override { return CSingleComponentEffect::release(); }

    OBJ_METHODS(CAudioWrapperVST3, CSingleComponentEffect)

    // Both names stay reachable: the host's edit calls by parameter id and the wrapper's.
    using CSingleComponentEffect::beginEdit;
    using CSingleComponentEffect::endEdit;

protected:
    // ---- CAudioWrapper
    // Any thread but the audio thread: a value changed inside; the host hears of it.
    void onExtParamChanged(int index, double normValue) override;
    void onProgramChanged() override;
    void beginEdit(int32_t index) override;
    void endEdit(int32_t index) override;
    // Audio thread (or a start/stop on the main thread): the host is told from its main
    // thread, at the next tick of its run loop or, without one, at the next call that
    // reaches us there.
    void onLatencyChanged() override;
    // Audio thread.
    void onHostParamEvent(const CAudioHostEvent& event) override;

    // Main thread: what waits for the host's main thread goes out now.
    void flushHostNotifications();
    bool isLatencyRestartPending() const { return m_latencyRestartPending.load(std::memory_order_acquire); }

private:
    void onRunLoopTimer() override;
    void attachHostTimer();
    void detachHostTimer();
    void addParameters();
    // Reads the automation of one block; with `applyNow` the points take effect at once
    // (a block without audio), else they queue as the block's events.
    void readParameterChanges(Steinberg::Vst::IParameterChanges* changes, bool applyNow);
    void takeBusFormat(Steinberg::Vst::ProcessData& data);

    Steinberg::Vst::UnitInfo m_rootUnitInfo{};
    Steinberg::Vst::ProgramListInfo m_programListInfo{};
    CAudioWrapperVST3ProgramParameter* m_programParam = nullptr; // owned by the parameter list
    bool m_isWrapperInitialized = false;
    std::atomic<bool> m_isOffline{false};
    std::atomic<bool> m_latencyRestartPending{false};
    CVST3RunLoopTimer* m_hostTimer = nullptr;
};
#pragma GCC diagnostic pop

} // namespace qel
