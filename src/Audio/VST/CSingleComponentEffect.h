#pragma once

#include "public.sdk/source/vst/vstbus.h"
#include "public.sdk/source/vst/vsteditcontroller.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"

#include <atomic>
#include <cstdint>

namespace qel {

// Processor and edit controller in one object, so that the host's two views of a plug-in
// share one instance: parameters, state and audio need no messages between them. It keeps
// the bus lists and answers the IComponent and IAudioProcessor calls a plain effect needs;
// the edit controller part is the SDK's.
//
// Every call that takes an index from the host checks it here: the SDK's containers would
// otherwise go past their end. Host calls come on the host's main thread unless marked.
//
// SDK interfaces are released, never deleted through their own pointers: they have no
// virtual destructor by design.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class CSingleComponentEffect : public Steinberg::Vst::EditController,
                               public Steinberg::Vst::IComponent,
                               public Steinberg::Vst::IAudioProcessor,
                               public Steinberg::Vst::IProcessContextRequirements
{
public:
    using tresult = Steinberg::tresult;
    using int32 = Steinberg::int32;
    using uint32 = Steinberg::uint32;
    using TBool = Steinberg::TBool;
    using MediaType = Steinberg::Vst::MediaType;
    using BusDirection = Steinberg::Vst::BusDirection;
    using SpeakerArrangement = Steinberg::Vst::SpeakerArrangement;

    CSingleComponentEffect();
    ~CSingleComponentEffect() override;

    // ---- IPluginBase
    tresult PLUGIN_API initialize(Steinberg::FUnknown* context) override;
    // Buses and parameters go; a later initialize builds them again.
    tresult PLUGIN_API terminate() override;

    // ---- IComponent
    // Component and controller are one object: there is no controller class.
    tresult PLUGIN_API getControllerClassId(Steinberg::TUID classId) override;
    tresult PLUGIN_API setIoMode(Steinberg::Vst::IoMode mode) override;
    int32 PLUGIN_API getBusCount(MediaType type, BusDirection dir) override;
    tresult PLUGIN_API getBusInfo(MediaType type, BusDirection dir, int32 index,
                                  Steinberg::Vst::BusInfo& info) override;
    tresult PLUGIN_API getRoutingInfo(Steinberg::Vst::RoutingInfo& inInfo, Steinberg::Vst::RoutingInfo& outInfo) override;
    tresult PLUGIN_API activateBus(MediaType type, BusDirection dir, int32 index, TBool state) override;
    tresult PLUGIN_API setActive(TBool state) override;
    // One pair serves both the component's and the controller's state calls.
    tresult PLUGIN_API setState(Steinberg::IBStream* state) override;
    tresult PLUGIN_API getState(Steinberg::IBStream* state) override;

    // ---- IAudioProcessor
    // Accepts exactly the current arrangements; a derived effect decides otherwise.
    tresult PLUGIN_API setBusArrangements(SpeakerArrangement* inputs, int32 numIns, SpeakerArrangement* outputs,
                                          int32 numOuts) override;
    tresult PLUGIN_API getBusArrangement(BusDirection dir, int32 index, SpeakerArrangement& arr) override;
    tresult PLUGIN_API canProcessSampleSize(int32 symbolicSampleSize) override;
    uint32 PLUGIN_API getLatencySamples() override;
    tresult PLUGIN_API setupProcessing(Steinberg::Vst::ProcessSetup& setup) override;
    tresult PLUGIN_API setProcessing(TBool state) override;
    // Audio thread.
    tresult PLUGIN_API process(Steinberg::Vst::ProcessData& data) override;
    uint32 PLUGIN_API getTailSamples() override;

    // ---- IProcessContextRequirements: what process() wants to find in the context.
    uint32 PLUGIN_API getProcessContextRequirements() override;

    // ---- IEditController
    // The SDK's version reads past its list for an index beyond the end.
    tresult PLUGIN_API getParameterInfo(int32 paramIndex, Steinberg::Vst::ParameterInfo& info) override;

    // ---- IConnectionPoint: both halves are this object, so no message is expected; a
    // message without attributes must not crash the SDK's text handling.
    tresult PLUGIN_API notify(Steinberg::Vst::IMessage* message) override;

    // ---- FUnknown
    tresult PLUGIN_API queryInterface(const Steinberg::TUID wanted, void** obj) override;
    uint32 PLUGIN_API addRef() override;
    uint32 PLUGIN_API release() override;

    OBJ_METHODS(CSingleComponentEffect, EditController)

    const Steinberg::Vst::ProcessSetup& processSetup() const { return m_processSetup; }

protected:
    Steinberg::Vst::AudioBus* addAudioInput(const char16_t* name, SpeakerArrangement arr,
                                            Steinberg::Vst::BusType busType = Steinberg::Vst::kMain,
                                            int32 flags = Steinberg::Vst::BusInfo::kDefaultActive);
    Steinberg::Vst::AudioBus* addAudioOutput(const char16_t* name, SpeakerArrangement arr,
                                             Steinberg::Vst::BusType busType = Steinberg::Vst::kMain,
                                             int32 flags = Steinberg::Vst::BusInfo::kDefaultActive);
    Steinberg::Vst::EventBus* addEventInput(const char16_t* name, int32 channels,
                                            Steinberg::Vst::BusType busType = Steinberg::Vst::kMain,
                                            int32 flags = Steinberg::Vst::BusInfo::kDefaultActive);
    void removeAudioBuses();
    void removeAllBuses();
    // Null for an unknown media type or direction.
    Steinberg::Vst::BusList* busList(MediaType type, BusDirection dir);
    Steinberg::Vst::BusList& audioInputs() { return m_audioInputs; }
    Steinberg::Vst::BusList& audioOutputs() { return m_audioOutputs; }

    Steinberg::Vst::ProcessSetup m_processSetup{};

private:
    std::atomic<uint32> m_refCount{1};
    Steinberg::Vst::BusList m_audioInputs{Steinberg::Vst::kAudio, Steinberg::Vst::kInput};
    Steinberg::Vst::BusList m_audioOutputs{Steinberg::Vst::kAudio, Steinberg::Vst::kOutput};
    Steinberg::Vst::BusList m_eventInputs{Steinberg::Vst::kEvent, Steinberg::Vst::kInput};
    Steinberg::Vst::BusList m_eventOutputs{Steinberg::Vst::kEvent, Steinberg::Vst::kOutput};
};
#pragma GCC diagnostic pop

} // namespace qel
