// A tiny plug-in module for the host library's tests: a gain with one parameter, offered
// as two classes, one whose component and controller are one object and one whose
// controller is a class of its own. It writes every lifecycle call to a log the test
// reads through an extra export, so the host's order of calls can be checked.

#include "vst3host/CVst3Object.h"

#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/base/ipluginbase.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstmessage.h"
#include "pluginterfaces/vst/ivstparameterchanges.h"
#include "pluginterfaces/vst/vstspeaker.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

// The ids the test knows too.
const TUID kSingleClass = INLINE_UID(0x51E1A001, 0x00000000, 0x00000000, 0x00000001);
const TUID kSplitClass = INLINE_UID(0x51E1A001, 0x00000000, 0x00000000, 0x00000002);
const TUID kSplitControllerClass = INLINE_UID(0x51E1A001, 0x00000000, 0x00000000, 0x00000003);
constexpr ParamID kGainId = 7;

std::vector<std::string>& callLog()
{
    static std::vector<std::string> log;
    return log;
}

void logCall(const std::string& call)
{
    // Runs of process calls count as one entry.
    if (call == "process" && !callLog().empty() && callLog().back() == "process")
        return;
    callLog().push_back(call);
}

std::string toText(double value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.3f", value);
    return text;
}

enum class Role
{
    Single,
    Component,
    Controller
};

class CFakeGain : public qel::CVst3Object<IComponent, IAudioProcessor, IEditController, IConnectionPoint>
{
public:
    explicit CFakeGain(Role role) : m_role(role) {}

    tresult PLUGIN_API queryInterface(const TUID queried, void** obj) override
    {
        const bool hasComponent = m_role != Role::Controller;
        const bool hasController = m_role != Role::Component;
        const bool isConnection = m_role != Role::Single;
        if ((!hasComponent && (FUnknownPrivate::iidEqual(queried, IComponent::iid.toTUID())
                               || FUnknownPrivate::iidEqual(queried, IAudioProcessor::iid.toTUID())))
            || (!hasController && FUnknownPrivate::iidEqual(queried, IEditController::iid.toTUID()))
            || (!isConnection && FUnknownPrivate::iidEqual(queried, IConnectionPoint::iid.toTUID()))) {
            *obj = nullptr;
            return kNoInterface;
        }
        if (FUnknownPrivate::iidEqual(queried, IPluginBase::iid.toTUID())) {
            addRef();
            *obj = static_cast<IComponent*>(this);
            return kResultOk;
        }
        return CVst3Object::queryInterface(queried, obj);
    }

    tresult PLUGIN_API initialize(FUnknown* context) override
    {
        logCall(m_role == Role::Controller ? "controller.initialize" : "initialize");
        if (!context)
            return kInvalidArgument;
        context->addRef();
        m_context = context;
        return kResultOk;
    }

    tresult PLUGIN_API terminate() override
    {
        logCall(m_role == Role::Controller ? "controller.terminate" : "terminate");
        if (m_context)
            m_context->release();
        m_context = nullptr;
        return kResultOk;
    }

    // IComponent
    tresult PLUGIN_API getControllerClassId(TUID classId) override
    {
        if (m_role != Role::Component)
            return kResultFalse;
        std::memcpy(classId, kSplitControllerClass, sizeof(TUID));
        return kResultOk;
    }
    tresult PLUGIN_API setIoMode(IoMode) override { return kNotImplemented; }
    int32 PLUGIN_API getBusCount(MediaType type, BusDirection) override { return type == kAudio ? 1 : 0; }
    tresult PLUGIN_API getBusInfo(MediaType type, BusDirection dir, int32 index, BusInfo& bus) override
    {
        if (type != kAudio || index != 0)
            return kInvalidArgument;
        bus = BusInfo();
        bus.mediaType = kAudio;
        bus.direction = dir;
        bus.channelCount = m_channels;
        const char16_t* name = dir == kInput ? u"In" : u"Out";
        std::memcpy(bus.name, name, (std::char_traits<char16_t>::length(name) + 1) * sizeof(char16_t));
        bus.busType = kMain;
        bus.flags = BusInfo::kDefaultActive;
        return kResultOk;
    }
    tresult PLUGIN_API getRoutingInfo(RoutingInfo&, RoutingInfo&) override { return kNotImplemented; }
    tresult PLUGIN_API activateBus(MediaType, BusDirection, int32, TBool) override { return kResultOk; }
    tresult PLUGIN_API setActive(TBool state) override
    {
        logCall(state ? "setActive(1)" : "setActive(0)");
        return kResultOk;
    }
    tresult PLUGIN_API setState(IBStream* state) override
    {
        double gain = 0.0;
        int32 got = 0;
        if (!state || state->read(&gain, sizeof(gain), &got) != kResultOk || got != sizeof(gain) || !(gain >= 0.0)
            || gain > 1.0)
            return kResultFalse;
        char extra = 0;
        if (state->read(&extra, 1, &got) == kResultOk && got != 0)
            return kResultFalse;
        m_gain = gain;
        return kResultOk;
    }
    tresult PLUGIN_API getState(IBStream* state) override
    {
        return state && state->write(&m_gain, sizeof(m_gain), nullptr) == kResultOk ? kResultOk : kResultFalse;
    }

    // IAudioProcessor
    tresult PLUGIN_API setBusArrangements(SpeakerArrangement* inputs, int32 numIns, SpeakerArrangement* outputs,
                                          int32 numOuts) override
    {
        if (numIns != 1 || numOuts != 1)
            return kResultFalse;
        const int32 in = SpeakerArr::getChannelCount(inputs[0]);
        if (in != SpeakerArr::getChannelCount(outputs[0]) || in < 1 || in > 2)
            return kResultFalse;
        m_channels = in;
        return kResultTrue;
    }
    tresult PLUGIN_API getBusArrangement(BusDirection, int32 index, SpeakerArrangement& arr) override
    {
        if (index != 0)
            return kInvalidArgument;
        arr = m_channels == 1 ? SpeakerArr::kMono : SpeakerArr::kStereo;
        return kResultOk;
    }
    tresult PLUGIN_API canProcessSampleSize(int32 size) override
    {
        return size == kSample32 || size == kSample64 ? kResultTrue : kResultFalse;
    }
    uint32 PLUGIN_API getLatencySamples() override { return 3; }
    tresult PLUGIN_API setupProcessing(ProcessSetup& setup) override
    {
        logCall("setupProcessing");
        m_setup = setup;
        return kResultOk;
    }
    tresult PLUGIN_API setProcessing(TBool state) override
    {
        logCall(state ? "setProcessing(1)" : "setProcessing(0)");
        return kResultOk;
    }
    tresult PLUGIN_API process(ProcessData& data) override
    {
        logCall("process");
        if (data.numSamples > m_setup.maxSamplesPerBlock || data.symbolicSampleSize != m_setup.symbolicSampleSize)
            return kResultFalse;
        if (IParameterChanges* changes = data.inputParameterChanges) {
            for (int32 i = 0; i < changes->getParameterCount(); ++i) {
                IParamValueQueue* queue = changes->getParameterData(i);
                int32 offset = 0;
                ParamValue value = 0.0;
                if (queue && queue->getParameterId() == kGainId
                    && queue->getPoint(queue->getPointCount() - 1, offset, value) == kResultOk)
                    m_gain = value;
            }
        }
        if (data.numInputs < 1 || data.numOutputs < 1)
            return kResultOk;
        const double factor = 2.0 * m_gain;
        for (int32 c = 0; c < data.outputs[0].numChannels && c < data.inputs[0].numChannels; ++c) {
            for (int32 i = 0; i < data.numSamples; ++i) {
                if (data.symbolicSampleSize == kSample64)
                    data.outputs[0].channelBuffers64[c][i] = data.inputs[0].channelBuffers64[c][i] * factor;
                else
                    data.outputs[0].channelBuffers32[c][i] =
                        static_cast<float>(data.inputs[0].channelBuffers32[c][i] * factor);
            }
        }
        return kResultOk;
    }
    uint32 PLUGIN_API getTailSamples() override { return 0; }

    // IEditController
    tresult PLUGIN_API setComponentState(IBStream* state) override
    {
        logCall("setComponentState");
        return setState(state);
    }
    int32 PLUGIN_API getParameterCount() override { return 1; }
    tresult PLUGIN_API getParameterInfo(int32 index, ParameterInfo& info) override
    {
        if (index != 0)
            return kInvalidArgument;
        info = ParameterInfo();
        info.id = kGainId;
        std::memcpy(info.title, u"Gain", sizeof(u"Gain"));
        std::memcpy(info.units, u"x", sizeof(u"x"));
        info.defaultNormalizedValue = 0.5;
        info.flags = ParameterInfo::kCanAutomate;
        return kResultOk;
    }
    tresult PLUGIN_API getParamStringByValue(ParamID id, ParamValue value, String128 string) override
    {
        if (id != kGainId)
            return kInvalidArgument;
        const std::string text = toText(2.0 * value);
        for (size_t i = 0; i <= text.size(); ++i)
            string[i] = static_cast<char16>(text.c_str()[i]);
        return kResultOk;
    }
    tresult PLUGIN_API getParamValueByString(ParamID id, TChar* string, ParamValue& value) override
    {
        std::string text;
        for (int i = 0; string[i] && i < 128; ++i)
            text += static_cast<char>(string[i]);
        char* end = nullptr;
        const double plain = std::strtod(text.c_str(), &end);
        if (id != kGainId || text.empty() || *end || plain < 0.0 || plain > 2.0)
            return kResultFalse;
        value = plain / 2.0;
        return kResultOk;
    }
    ParamValue PLUGIN_API normalizedParamToPlain(ParamID, ParamValue value) override { return 2.0 * value; }
    ParamValue PLUGIN_API plainParamToNormalized(ParamID, ParamValue plain) override { return plain / 2.0; }
    ParamValue PLUGIN_API getParamNormalized(ParamID id) override { return id == kGainId ? m_gain : 0.0; }
    tresult PLUGIN_API setParamNormalized(ParamID id, ParamValue value) override
    {
        if (id != kGainId)
            return kInvalidArgument;
        m_gain = value;
        return kResultOk;
    }
    tresult PLUGIN_API setComponentHandler(IComponentHandler* handler) override
    {
        logCall(handler ? "setComponentHandler" : "setComponentHandler(null)");
        if (handler)
            handler->restartComponent(kLatencyChanged);
        return kResultOk;
    }
    IPlugView* PLUGIN_API createView(FIDString) override { return nullptr; }

    // IConnectionPoint
    tresult PLUGIN_API connect(IConnectionPoint* other) override
    {
        logCall(m_role == Role::Controller ? "controller.connect" : "connect");
        return other ? kResultOk : kInvalidArgument;
    }
    tresult PLUGIN_API disconnect(IConnectionPoint*) override
    {
        logCall(m_role == Role::Controller ? "controller.disconnect" : "disconnect");
        return kResultOk;
    }
    tresult PLUGIN_API notify(IMessage*) override { return kResultOk; }

private:
    ~CFakeGain() override { logCall(m_role == Role::Controller ? "controller.destroyed" : "destroyed"); }

    Role m_role;
    FUnknown* m_context = nullptr;
    ProcessSetup m_setup = {};
    int32 m_channels = 2;
    double m_gain = 0.5;
};

class CFakeFactory : public qel::CVst3Object<IPluginFactory2>
{
public:
    tresult PLUGIN_API getFactoryInfo(PFactoryInfo* info) override
    {
        *info = PFactoryInfo("Fake Vendor", "https://fake.invalid", "fake@fake.invalid", PFactoryInfo::kUnicode);
        return kResultOk;
    }
    int32 PLUGIN_API countClasses() override { return 3; }
    tresult PLUGIN_API getClassInfo(int32 index, PClassInfo* info) override
    {
        PClassInfo2 info2;
        if (getClassInfo2(index, &info2) != kResultOk)
            return kInvalidArgument;
        *info = PClassInfo(info2.cid, info2.cardinality, info2.category, info2.name);
        return kResultOk;
    }
    tresult PLUGIN_API getClassInfo2(int32 index, PClassInfo2* info) override
    {
        switch (index) {
        case 0:
            *info = PClassInfo2(kSingleClass, PClassInfo::kManyInstances, kVstAudioEffectClass, "Fake Gain", 0, "Fx",
                                "", "1.2.3", kVstVersionString);
            return kResultOk;
        case 1:
            *info = PClassInfo2(kSplitClass, PClassInfo::kManyInstances, kVstAudioEffectClass, "Fake Split Gain", 0,
                                "Fx", "", "1.2.3", kVstVersionString);
            return kResultOk;
        case 2:
            *info = PClassInfo2(kSplitControllerClass, PClassInfo::kManyInstances, kVstComponentControllerClass,
                                "Fake Split Gain Controller", 0, "", "", "1.2.3", kVstVersionString);
            return kResultOk;
        default:
            return kInvalidArgument;
        }
    }
    tresult PLUGIN_API createInstance(FIDString cid, FIDString interfaceId, void** obj) override
    {
        Role role;
        if (FUnknownPrivate::iidEqual(cid, kSingleClass))
            role = Role::Single;
        else if (FUnknownPrivate::iidEqual(cid, kSplitClass))
            role = Role::Component;
        else if (FUnknownPrivate::iidEqual(cid, kSplitControllerClass))
            role = Role::Controller;
        else
            return kInvalidArgument;
        logCall(role == Role::Controller ? "createController" : "createInstance");
        CFakeGain* object = new CFakeGain(role);
        const tresult result = object->queryInterface(interfaceId, obj);
        object->release();
        return result;
    }

private:
    ~CFakeFactory() override { logCall("factory.destroyed"); }
};

} // namespace

#define QEL_FAKE_EXPORT extern "C" __attribute__((visibility("default")))

QEL_FAKE_EXPORT bool ModuleEntry(void* handle)
{
    logCall(handle ? "ModuleEntry" : "ModuleEntry(null)");
    return true;
}

QEL_FAKE_EXPORT bool ModuleExit()
{
    logCall("ModuleExit");
    return true;
}

QEL_FAKE_EXPORT IPluginFactory* GetPluginFactory()
{
    logCall("GetPluginFactory");
    return new CFakeFactory();
}

// The calls so far, separated by blanks; the test reads them through its own handle.
QEL_FAKE_EXPORT const char* qelFakePluginLog()
{
    static std::string joined;
    joined.clear();
    for (const std::string& call : callLog()) {
        if (!joined.empty())
            joined += ' ';
        joined += call;
    }
    return joined.c_str();
}

QEL_FAKE_EXPORT void qelFakePluginClearLog()
{
    callLog().clear();
}
