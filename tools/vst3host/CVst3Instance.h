#pragma once

#include "CVst3ClassInfo.h"
#include "CVst3ProcessBuffers.h"
#include "Core/CError.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstmessage.h"
#include "pluginterfaces/vst/ivstprocesscontext.h"
#include "pluginterfaces/vst/ivstunits.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qel {

class CVst3ComponentHandler;
class CVst3EventList;
class CVst3HostApplication;
class CVst3Module;
class CVst3ParameterChanges;

// One host parameter as the controller describes it.
struct CVst3ParamInfo
{
    Steinberg::Vst::ParamID id = 0;
    std::string title;
    std::string shortTitle;
    std::string units;
    Steinberg::int32 stepCount = 0;
    double defaultNormalized = 0.0;
    Steinberg::Vst::UnitID unitId = 0;
    Steinberg::int32 flags = 0;
};

// One bus as the component describes it.
struct CVst3BusInfo
{
    Steinberg::Vst::MediaType mediaType = Steinberg::Vst::kAudio;
    Steinberg::Vst::BusDirection direction = Steinberg::Vst::kInput;
    Steinberg::int32 channelCount = 0;
    std::string name;
    Steinberg::Vst::BusType busType = Steinberg::Vst::kMain;
    Steinberg::uint32 flags = 0;
    Steinberg::Vst::SpeakerArrangement arrangement = 0; // audio buses only
};

struct CVst3ProcessSetup
{
    double sampleRate = 48000.0;
    Steinberg::int32 maxBlockSize = 1024;
    bool isDouble = false;
    bool isOffline = false;
};

// One plug-in instance driven as a host drives it: made from a module's factory,
// initialised with a host context, its controller found (the component itself when the
// two are one object, else made from the controller class and connected), set up,
// activated, processed, and torn down in the reverse order.
//
// Calls marked "main thread" are set-up calls. Processing runs on whichever thread calls
// process; parameter edits through setParameter must not overlap it (a host with its own
// audio thread queues them with queueParameterChange on that thread instead).
class CVst3Instance
{
public:
    CVst3Instance();
    CVst3Instance(const CVst3Instance&) = delete;
    CVst3Instance& operator=(const CVst3Instance&) = delete;
    ~CVst3Instance();

    // main thread. `host` is shared with other instances when given, else one is made.
    CErrorPtr create(CVst3Module& module, const CVst3ClassInfo& classInfo, CVst3HostApplication* host = nullptr);
    // setProcessing(false), setActive(false), terminate, release; safe to call twice.
    void destroy();
    bool isCreated() const { return m_component != nullptr; }

    Steinberg::Vst::IComponent* component() const { return m_component; }
    Steinberg::Vst::IAudioProcessor* processor() const { return m_processor; }
    Steinberg::Vst::IEditController* controller() const { return m_controller; }
    Steinberg::Vst::IUnitInfo* unitInfo() const { return m_unitInfo; }
    bool isSingleObject() const { return m_isSingleObject; }
    CVst3ComponentHandler& handler() const { return *m_handler; }
    CVst3HostApplication& hostApplication() const { return *m_host; }

    // main thread: buses
    std::vector<CVst3BusInfo> buses(Steinberg::Vst::MediaType type, Steinberg::Vst::BusDirection direction) const;
    // Channels of the first audio bus of a direction; 0 when there is none.
    Steinberg::int32 mainChannelCount(Steinberg::Vst::BusDirection direction) const;
    // Offers `channels` on the first input and output bus (other input buses keep their
    // arrangement); true when the plug-in took the offer as it stands. Either way the
    // buses as the plug-in now reports them are what processing uses.
    bool requestMainChannels(Steinberg::int32 channels);
    // The speakers a host offers for a count: the usual layouts for 1 to 8 channels, the
    // lowest bits beyond.
    static Steinberg::Vst::SpeakerArrangement defaultArrangement(Steinberg::int32 channels);

    // main thread: parameters
    const std::vector<CVst3ParamInfo>& parameters() const { return m_parameters; }
    // By title, then by title or short title ignoring ASCII case.
    const CVst3ParamInfo* findParameter(const std::string& title) const;
    const CVst3ParamInfo* findParameter(Steinberg::Vst::ParamID id) const;
    bool textToValue(Steinberg::Vst::ParamID id, const std::string& text, double& normalized) const;
    std::string valueToText(Steinberg::Vst::ParamID id, double normalized) const;
    double parameter(Steinberg::Vst::ParamID id) const;
    // An edit as a host makes it: the controller takes the value, and the processor gets
    // it at the start of its next block.
    bool setParameter(Steinberg::Vst::ParamID id, double normalized);
    // audio thread: a change for the next block only; false when the block's queues are full.
    bool queueParameterChange(Steinberg::Vst::ParamID id, double normalized, Steinberg::int32 sampleOffset = 0);

    // main thread: state
    CErrorPtr saveState(std::vector<uint8_t>& bytes) const;
    // A refused state is an error; the plug-in is expected to be as it was.
    CErrorPtr loadState(const std::vector<uint8_t>& bytes);

    // main thread: setupProcessing, buffers, setActive(true), setProcessing(true)
    CErrorPtr startProcessing(const CVst3ProcessSetup& setup);
    // setProcessing(false), setActive(false)
    void stopProcessing();
    bool isProcessing() const { return m_isProcessing; }
    const CVst3ProcessSetup& setup() const { return m_setup; }
    Steinberg::uint32 latencySamples() const;
    Steinberg::uint32 tailSamples() const;

    // audio thread
    CVst3ProcessBuffers& buffers() { return m_buffers; }
    // The process data of the next block as it stands; a test may copy and alter it.
    Steinberg::Vst::ProcessData& processData() { return m_data; }
    // Processes what stands in buffers(); `numSamples` at most the set-up's block size.
    Steinberg::tresult process(Steinberg::int32 numSamples);
    // A whole signal, one array per channel of the main buses, cut into blocks of
    // `blockSize` (at most the set-up's). The sample type must match the set-up.
    Steinberg::tresult processPlanar(const float* const* inputs, float* const* outputs, int64_t numSamples,
                                     Steinberg::int32 blockSize);
    Steinberg::tresult processPlanar(const double* const* inputs, double* const* outputs, int64_t numSamples,
                                     Steinberg::int32 blockSize);

private:
    CErrorPtr createController(CVst3Module& module);
    void readParameters();
    std::vector<CVst3ProcessBuffers::CBusShape> busShapes(Steinberg::Vst::BusDirection direction) const;
    template <class T>
    Steinberg::tresult processPlanarT(const T* const* inputs, T* const* outputs, int64_t numSamples,
                                      Steinberg::int32 blockSize);

    CVst3HostApplication* m_host = nullptr;
    CVst3ComponentHandler* m_handler = nullptr;
    Steinberg::Vst::IComponent* m_component = nullptr;
    Steinberg::Vst::IAudioProcessor* m_processor = nullptr;
    Steinberg::Vst::IEditController* m_controller = nullptr;
    Steinberg::Vst::IUnitInfo* m_unitInfo = nullptr;
    Steinberg::Vst::IConnectionPoint* m_componentPoint = nullptr; // separate controllers only
    Steinberg::Vst::IConnectionPoint* m_controllerPoint = nullptr;
    bool m_isSingleObject = false;
    bool m_isActive = false;
    bool m_isProcessing = false;

    std::vector<CVst3ParamInfo> m_parameters;
    CVst3ProcessSetup m_setup;
    CVst3ProcessBuffers m_buffers;
    CVst3ParameterChanges* m_inputChanges = nullptr;
    CVst3ParameterChanges* m_outputChanges = nullptr;
    CVst3EventList* m_inputEvents = nullptr;
    CVst3EventList* m_outputEvents = nullptr;
    Steinberg::Vst::ProcessContext m_context = {};
    Steinberg::Vst::ProcessData m_data;
};

} // namespace qel
