#include "Audio/VST/CSingleComponentEffect.h"

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

CSingleComponentEffect::CSingleComponentEffect()
{
    m_processSetup.processMode = kRealtime;
    m_processSetup.symbolicSampleSize = kSample32;
    m_processSetup.maxSamplesPerBlock = 1024;
    m_processSetup.sampleRate = 44100.0;
}

CSingleComponentEffect::~CSingleComponentEffect() = default;

tresult PLUGIN_API CSingleComponentEffect::initialize(FUnknown* context)
{
    return EditController::initialize(context);
}

tresult PLUGIN_API CSingleComponentEffect::terminate()
{
    removeAllBuses();
    return EditController::terminate();
}

tresult PLUGIN_API CSingleComponentEffect::getControllerClassId(TUID)
{
    return kNotImplemented;
}

tresult PLUGIN_API CSingleComponentEffect::setIoMode(IoMode)
{
    return kNotImplemented;
}

BusList* CSingleComponentEffect::busList(MediaType type, BusDirection dir)
{
    if (type == kAudio)
        return dir == kInput ? &m_audioInputs : dir == kOutput ? &m_audioOutputs : nullptr;
    if (type == kEvent)
        return dir == kInput ? &m_eventInputs : dir == kOutput ? &m_eventOutputs : nullptr;
    return nullptr;
}

int32 PLUGIN_API CSingleComponentEffect::getBusCount(MediaType type, BusDirection dir)
{
    BusList* list = busList(type, dir);
    return list ? static_cast<int32>(list->size()) : 0;
}

tresult PLUGIN_API CSingleComponentEffect::getBusInfo(MediaType type, BusDirection dir, int32 index, BusInfo& info)
{
    BusList* list = busList(type, dir);
    if (!list || index < 0 || index >= static_cast<int32>(list->size()))
        return kInvalidArgument;
    info.mediaType = type;
    info.direction = dir;
    return (*list)[size_t(index)]->getInfo(info) ? kResultTrue : kResultFalse;
}

tresult PLUGIN_API CSingleComponentEffect::getRoutingInfo(RoutingInfo&, RoutingInfo&)
{
    return kNotImplemented;
}

tresult PLUGIN_API CSingleComponentEffect::activateBus(MediaType type, BusDirection dir, int32 index, TBool state)
{
    BusList* list = busList(type, dir);
    if (!list || index < 0 || index >= static_cast<int32>(list->size()))
        return kInvalidArgument;
    (*list)[size_t(index)]->setActive(state);
    return kResultTrue;
}

tresult PLUGIN_API CSingleComponentEffect::setActive(TBool)
{
    return kResultOk;
}

tresult PLUGIN_API CSingleComponentEffect::setState(IBStream*)
{
    return kNotImplemented;
}

tresult PLUGIN_API CSingleComponentEffect::getState(IBStream*)
{
    return kNotImplemented;
}

tresult PLUGIN_API CSingleComponentEffect::setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                                              SpeakerArrangement* outputs, int32 numOuts)
{
    if (numIns < 0 || numOuts < 0 || (numIns > 0 && !inputs) || (numOuts > 0 && !outputs))
        return kInvalidArgument;
    if (numIns != static_cast<int32>(m_audioInputs.size()) || numOuts != static_cast<int32>(m_audioOutputs.size()))
        return kResultFalse;
    for (int32 i = 0; i < numIns; ++i)
        if (static_cast<AudioBus*>(m_audioInputs[size_t(i)].get())->getArrangement() != inputs[i])
            return kResultFalse;
    for (int32 i = 0; i < numOuts; ++i)
        if (static_cast<AudioBus*>(m_audioOutputs[size_t(i)].get())->getArrangement() != outputs[i])
            return kResultFalse;
    return kResultTrue;
}

tresult PLUGIN_API CSingleComponentEffect::getBusArrangement(BusDirection dir, int32 index, SpeakerArrangement& arr)
{
    BusList* list = busList(kAudio, dir);
    if (!list || index < 0 || index >= static_cast<int32>(list->size()))
        return kResultFalse;
    arr = static_cast<AudioBus*>((*list)[size_t(index)].get())->getArrangement();
    return kResultTrue;
}

tresult PLUGIN_API CSingleComponentEffect::canProcessSampleSize(int32 symbolicSampleSize)
{
    return symbolicSampleSize == kSample32 ? kResultTrue : kResultFalse;
}

uint32 PLUGIN_API CSingleComponentEffect::getLatencySamples()
{
    return 0;
}

tresult PLUGIN_API CSingleComponentEffect::setupProcessing(ProcessSetup& setup)
{
    if (canProcessSampleSize(setup.symbolicSampleSize) != kResultTrue)
        return kResultFalse;
    m_processSetup = setup;
    return kResultOk;
}

tresult PLUGIN_API CSingleComponentEffect::setProcessing(TBool)
{
    return kResultOk;
}

tresult PLUGIN_API CSingleComponentEffect::process(ProcessData&)
{
    return kNotImplemented;
}

uint32 PLUGIN_API CSingleComponentEffect::getTailSamples()
{
    return kNoTail;
}

uint32 PLUGIN_API CSingleComponentEffect::getProcessContextRequirements()
{
    return 0;
}

tresult PLUGIN_API CSingleComponentEffect::getParameterInfo(int32 paramIndex, ParameterInfo& info)
{
    if (paramIndex < 0 || paramIndex >= parameters.getParameterCount())
        return kResultFalse;
    return EditController::getParameterInfo(paramIndex, info);
}

tresult PLUGIN_API CSingleComponentEffect::notify(IMessage* message)
{
    return message ? kResultFalse : kInvalidArgument;
}

tresult PLUGIN_API CSingleComponentEffect::queryInterface(const TUID wanted, void** obj)
{
    if (!obj)
        return kInvalidArgument;
    QUERY_INTERFACE(wanted, obj, IComponent::iid, IComponent)
    QUERY_INTERFACE(wanted, obj, IAudioProcessor::iid, IAudioProcessor)
    QUERY_INTERFACE(wanted, obj, IProcessContextRequirements::iid, IProcessContextRequirements)
    return EditController::queryInterface(wanted, obj);
}

uint32 PLUGIN_API CSingleComponentEffect::addRef()
{
    return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint32 PLUGIN_API CSingleComponentEffect::release()
{
    const uint32 left = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0)
        delete this;
    return left;
}

AudioBus* CSingleComponentEffect::addAudioInput(const char16_t* name, SpeakerArrangement arr, BusType busType,
                                                int32 flags)
{
    auto* bus = new AudioBus(name, busType, flags, arr);
    bus->setActive((flags & BusInfo::kDefaultActive) != 0);
    m_audioInputs.push_back(IPtr<Bus>(bus, false));
    return bus;
}

AudioBus* CSingleComponentEffect::addAudioOutput(const char16_t* name, SpeakerArrangement arr, BusType busType,
                                                 int32 flags)
{
    auto* bus = new AudioBus(name, busType, flags, arr);
    bus->setActive((flags & BusInfo::kDefaultActive) != 0);
    m_audioOutputs.push_back(IPtr<Bus>(bus, false));
    return bus;
}

EventBus* CSingleComponentEffect::addEventInput(const char16_t* name, int32 channels, BusType busType, int32 flags)
{
    auto* bus = new EventBus(name, busType, flags, channels);
    bus->setActive((flags & BusInfo::kDefaultActive) != 0);
    m_eventInputs.push_back(IPtr<Bus>(bus, false));
    return bus;
}

void CSingleComponentEffect::removeAudioBuses()
{
    m_audioInputs.clear();
    m_audioOutputs.clear();
}

void CSingleComponentEffect::removeAllBuses()
{
    removeAudioBuses();
    m_eventInputs.clear();
    m_eventOutputs.clear();
}

} // namespace qel
