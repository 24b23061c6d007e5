#include "Audio/VST/CAudioWrapperVST3.h"

#include "Audio/CAudioExtParam.h"
#include "Audio/VST/CAudioWrapperVST3Parameter.h"
#include "Audio/VST/CAudioWrapperVST3ProgramParameter.h"
#include "Audio/VST/CInputStreamVST.h"
#include "Audio/VST/COutputStreamVST.h"
#include "Audio/VST/CVST3SpeakerLayout.h"
#include "Audio/VST/CVST3Text.h"
#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/vst/ivstattributes.h"
#include "pluginterfaces/vst/ivstparameterchanges.h"
#include "pluginterfaces/vst/ivstprocesscontext.h"

#include <algorithm>
#include <vector>

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

// A bus's channel pointers in the sample size the host uses, as the wrapper takes them.
void* const* channelBuffers(const AudioBusBuffers& bus, bool isDouble)
{
    return isDouble ? reinterpret_cast<void* const*>(bus.channelBuffers64)
                    : reinterpret_cast<void* const*>(bus.channelBuffers32);
}

// Whether the host marks every channel of the bus as silent.
bool isSilent(const AudioBusBuffers& bus)
{
    const uint64 all = bus.numChannels >= 64 ? ~uint64(0) : (uint64(1) << bus.numChannels) - 1;
    return (bus.silenceFlags & all) == all;
}

} // namespace

FUnknown* CAudioWrapperVST3::create()
{
    return static_cast<IAudioProcessor*>(new CAudioWrapperVST3);
}

CAudioWrapperVST3::CAudioWrapperVST3() = default;

CAudioWrapperVST3::~CAudioWrapperVST3()
{
    detachHostTimer();
    // The parameters point into the instance tree, which the wrapper's destructor deletes.
    parameters.removeAll();
    m_programParam = nullptr;
}

int32_t CAudioWrapperVST3::selectAutomationPoints(int32_t pointCount, int32_t outIndices[kMaxAutomationPoints])
{
    if (pointCount <= 0)
        return 0;
    const int32_t m = std::min(pointCount, kMaxAutomationPoints);
    for (int32_t k = 0; k < m - 1; ++k)
        outIndices[k] = int32_t(int64_t(k) * pointCount / m);
    outIndices[m - 1] = pointCount - 1;
    return m;
}

// ---- life cycle

tresult PLUGIN_API CAudioWrapperVST3::initialize(FUnknown* context)
{
    const tresult result = CSingleComponentEffect::initialize(context);
    if (result != kResultOk)
        return result;

    if (!m_isWrapperInitialized) {
        CErrorPtr error = init();
        if (!error)
            error = finishInit();
        if (error) {
            showError(QEL_TRAIL(error, CString()));
            // Back to where the host found it: no host context held.
            CSingleComponentEffect::terminate();
            return kResultFalse;
        }
        m_rootUnitInfo = {};
        m_rootUnitInfo.id = Vst::kRootUnitId;
        m_rootUnitInfo.parentUnitId = kNoParentUnitId;
        m_rootUnitInfo.programListId = kProgramListId;
        CVST3Text::toString128(CString("Root"), m_rootUnitInfo.name);
        m_programListInfo = {};
        m_programListInfo.id = kProgramListId;
        CVST3Text::toString128(CString("Programs"), m_programListInfo.name);
        m_programListInfo.programCount = std::max<int32>(programSlotCount(), 1);
        m_isWrapperInitialized = true;
    }

    addAudioInput(u"Audio In", SpeakerArr::kStereo);
    addAudioOutput(u"Audio Out", SpeakerArr::kStereo);
    if (useSidechain())
        addAudioInput(u"Sidechain", SpeakerArr::kStereo, kAux, 0);
    addEventInput(u"MIDI In", 1);
    addParameters();
    attachHostTimer();
    return kResultOk;
}

void CAudioWrapperVST3::addParameters()
{
    if (CAudioExtParamList* list = extParamList()) {
        for (int index = 0; index < list->count(); ++index)
            parameters.addParameter(new CAudioWrapperVST3Parameter(list->at(index), int32(index)));
    }
    m_programParam = new CAudioWrapperVST3ProgramParameter(this);
    parameters.addParameter(m_programParam);
}

tresult PLUGIN_API CAudioWrapperVST3::terminate()
{
    // The host's objects go first: the run loop, then what the SDK's clean-up lets go.
    detachHostTimer();
    if (m_isWrapperInitialized)
        stopProcessing();
    m_programParam = nullptr;
    return CSingleComponentEffect::terminate();
}

void CAudioWrapperVST3::attachHostTimer()
{
    if (m_hostTimer)
        return;
    m_hostTimer = CVST3RunLoopTimer::attach(this, {getHostContext(), componentHandler}, kHostNotifyIntervalMs);
}

void CAudioWrapperVST3::detachHostTimer()
{
    if (m_hostTimer) {
        m_hostTimer->detach();
        m_hostTimer = nullptr;
    }
}

void CAudioWrapperVST3::onRunLoopTimer()
{
    flushHostNotifications();
    flushDiagnostics();
}

void CAudioWrapperVST3::flushHostNotifications()
{
    if (componentHandler && m_latencyRestartPending.exchange(false, std::memory_order_acq_rel))
        componentHandler->restartComponent(kLatencyChanged);
}

// ---- IComponent

tresult PLUGIN_API CAudioWrapperVST3::setActive(TBool)
{
    // Processing is started and stopped by setupProcessing and setProcessing.
    return kResultOk;
}

tresult PLUGIN_API CAudioWrapperVST3::getState(IBStream* state)
{
    flushHostNotifications();
    if (!m_isWrapperInitialized || !state)
        return kResultFalse;
    COutputStreamVST out(state);
    if (CErrorPtr error = saveState(out)) {
        logError(error.get());
        return kResultFalse;
    }
    return kResultOk;
}

tresult PLUGIN_API CAudioWrapperVST3::setState(IBStream* state)
{
    flushHostNotifications();
    if (!m_isWrapperInitialized || !state)
        return kResultFalse;
    CInputStreamVST in(state);
    if (CErrorPtr error = loadState(in)) {
        logError(error.get());
        return kResultFalse;
    }
    return kResultOk;
}

// ---- IAudioProcessor

tresult PLUGIN_API CAudioWrapperVST3::setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                                         SpeakerArrangement* outputs, int32 numOuts)
{
    if (!m_isWrapperInitialized || numIns < 1 || numOuts < 1 || !inputs || !outputs)
        return kResultFalse;
    const int32 max = intChannelCount();
    SpeakerArrangement in = inputs[0];
    SpeakerArrangement out = outputs[0];
    SpeakerArrangement side = 0;
    int32 nIn = CVST3SpeakerLayout::channelCount(in);
    int32 nOut = CVST3SpeakerLayout::channelCount(out);
    int32 nSide = 0;
    if (useSidechain() && numIns >= 2) {
        side = inputs[1];
        nSide = CVST3SpeakerLayout::channelCount(side);
    }

    bool accepted = true;
    if (nIn < 1 || nIn > max) {
        in = CVST3SpeakerLayout::defaultArrangement(max);
        nIn = max;
        accepted = false;
    }
    // An output of no channels is refused like one of too many.
    if (nOut < 1 || nOut > max) {
        out = CVST3SpeakerLayout::defaultArrangement(max);
        nOut = max;
        accepted = false;
    }
    if (nSide > 2) {
        side = CVST3SpeakerLayout::defaultArrangement(2);
        nSide = 2;
        accepted = false;
    }
    if (nIn != nOut) {
        if (isSymmetricIO()) {
            const int32 n = std::max(nIn, nOut);
            in = out = CVST3SpeakerLayout::defaultArrangement(n);
            nIn = nOut = n;
            accepted = false;
        } else if (nIn != 1 && nOut != 2) {
            // Mono in, or stereo out, may differ from the other side; nothing else may.
            in = CVST3SpeakerLayout::defaultArrangement(1);
            out = CVST3SpeakerLayout::defaultArrangement(2);
            nIn = 1;
            nOut = 2;
            accepted = false;
        }
    }

    removeAudioBuses();
    addAudioInput(u"Audio In", in);
    addAudioOutput(u"Audio Out", out);
    if (nSide > 0)
        addAudioInput(u"Sidechain", side, kAux, 0);

    std::vector<CString> mainLabels;
    std::vector<CString> sideLabels;
    CVST3SpeakerLayout::channelLabels(in, mainLabels);
    if (nSide > 0)
        CVST3SpeakerLayout::channelLabels(side, sideLabels);
    {
        CLockGuard guard(wrapperLock());
        setInputLabels(mainLabels, sideLabels);
        updateRouting(true, CString(), CString());
    }
    return accepted ? kResultTrue : kResultFalse;
}

tresult PLUGIN_API CAudioWrapperVST3::canProcessSampleSize(int32 symbolicSampleSize)
{
    return symbolicSampleSize == kSample32 || symbolicSampleSize == kSample64 ? kResultTrue : kResultFalse;
}

uint32 PLUGIN_API CAudioWrapperVST3::getLatencySamples()
{
    if (!m_isWrapperInitialized)
        return 0;
    // The host is asking, so it learns the latency now; a restart still pending would only
    // tell it again. A change after this line sets the flag anew.
    m_latencyRestartPending.store(false, std::memory_order_release);
    return uint32(std::max(queryLatency(), 0));
}

uint32 PLUGIN_API CAudioWrapperVST3::getTailSamples()
{
    if (!m_isWrapperInitialized)
        return kNoTail;
    return uint32(std::max(queryTailSamples(), 0));
}

tresult PLUGIN_API CAudioWrapperVST3::setupProcessing(ProcessSetup& setup)
{
    if (!m_isWrapperInitialized || canProcessSampleSize(setup.symbolicSampleSize) != kResultTrue)
        return kResultFalse;
    stopProcessing();
    setSampleRate(setup.sampleRate);
    const bool offline = setup.processMode == kOffline;
    if (offline != m_isOffline.load(std::memory_order_relaxed)) {
        m_isOffline.store(offline, std::memory_order_relaxed);
        setOffline(offline);
    }
    m_processSetup = setup;
    startProcessing();
    return kResultOk;
}

tresult PLUGIN_API CAudioWrapperVST3::setProcessing(TBool state)
{
    if (!m_isWrapperInitialized)
        return kResultFalse;
    if (state)
        startProcessing();
    else
        stopProcessing();
    return kResultOk;
}

uint32 PLUGIN_API CAudioWrapperVST3::getProcessContextRequirements()
{
    return useHostBpm() ? uint32(IProcessContextRequirements::kNeedTempo) : 0;
}

void CAudioWrapperVST3::readParameterChanges(IParameterChanges* changes, bool applyNow)
{
    if (!changes)
        return;
    const CAudioExtParamList* list = extParamList();
    const int32 extCount = list ? int32(list->count()) : 0;
    const int32 queueCount = changes->getParameterCount();
    for (int32 q = 0; q < queueCount; ++q) {
        IParamValueQueue* queue = changes->getParameterData(q);
        if (!queue)
            continue;
        const ParamID id = queue->getParameterId();
        // Program changes reach us through setParamNormalized, never as automation.
        if (id == kProgramParamId || id >= ParamID(extCount))
            continue;
        int32_t indices[kMaxAutomationPoints];
        const int32_t count = selectAutomationPoints(queue->getPointCount(), indices);
        for (int32_t i = 0; i < count; ++i) {
            int32 offset = 0;
            ParamValue value = 0.0;
            if (queue->getPoint(indices[i], offset, value) != kResultOk)
                continue;
            const CAudioHostEvent event{offset, 1, int32_t(id), value};
            if (applyNow)
                onHostParamEvent(event);
            else
                addHostEvent(event);
        }
    }
}

void CAudioWrapperVST3::takeBusFormat(ProcessData& data)
{
    const bool isDouble = data.symbolicSampleSize == kSample64;
    const int32 mainCount = std::clamp<int32>(data.inputs[0].numChannels, 0, kMaxHostChannels);
    int32 sideCount = 0;
    void* const* sideBuffers = nullptr;
    if (useSidechain() && data.numInputs >= 2 && data.inputs[1].numChannels > 0) {
        const AudioBusBuffers& side = data.inputs[1];
        sideBuffers = channelBuffers(side, isDouble);
        if (sideBuffers && !isSilent(side))
            sideCount = std::min<int32>(side.numChannels, kMaxHostChannels);
    }
    setSidechainBuffers(sideBuffers);
    setChannelCounts(mainCount, isDouble, false, sideCount, isDouble, false);
    setOutputCount(std::clamp<int32>(data.outputs[0].numChannels, 0, kMaxHostChannels), isDouble);
}

tresult PLUGIN_API CAudioWrapperVST3::process(ProcessData& data)
{
    if (!m_isWrapperInitialized)
        return kNotInitialized;
    const bool offline = data.processMode == kOffline;
    if (offline != m_isOffline.load(std::memory_order_relaxed)) {
        m_isOffline.store(offline, std::memory_order_relaxed);
        setOffline(offline);
    }
    if (data.processContext && useHostBpm() && (data.processContext->state & ProcessContext::kTempoValid))
        setHostBpm(data.processContext->tempo);

    const bool hasBuses = data.numInputs > 0 && data.numOutputs > 0 && data.inputs && data.outputs;
    // A call without audio still moves the parameters, so a host can flush them while its
    // transport stands.
    readParameterChanges(data.inputParameterChanges, !hasBuses || data.numSamples <= 0);
    if (!hasBuses)
        return kResultOk;

    takeBusFormat(data);
    if (isReconfigurationNeeded())
        applyReconfiguration();
    if (data.numSamples > 0) {
        const bool isDouble = data.symbolicSampleSize == kSample64;
        data.outputs[0].silenceFlags = 0;
        processBlock(channelBuffers(data.inputs[0], isDouble), channelBuffers(data.outputs[0], isDouble),
                     data.numSamples);
    }
    return kResultOk;
}

// ---- IEditController

IPlugView* PLUGIN_API CAudioWrapperVST3::createView(FIDString name)
{
    // The editor view ("editor") is made here once the editor exists; until then, and for
    // any other name, there is no view.
    (void)name;
    return nullptr;
}

ParamValue PLUGIN_API CAudioWrapperVST3::getParamNormalized(ParamID tag)
{
    flushHostNotifications();
    Parameter* param = getParameterObject(tag);
    if (auto* own = dynamic_cast<CAudioWrapperVST3Parameter*>(param))
        return own->currentNormalized();
    return param ? param->getNormalized() : 0.0;
}

tresult PLUGIN_API CAudioWrapperVST3::setParamNormalized(ParamID tag, ParamValue value)
{
    flushHostNotifications();
    return CSingleComponentEffect::setParamNormalized(tag, value);
}

tresult PLUGIN_API CAudioWrapperVST3::setComponentHandler(IComponentHandler* handler)
{
    const tresult result = CSingleComponentEffect::setComponentHandler(handler);
    attachHostTimer();
    return result;
}

// ---- IUnitInfo

int32 PLUGIN_API CAudioWrapperVST3::getUnitCount()
{
    return 1;
}

tresult PLUGIN_API CAudioWrapperVST3::getUnitInfo(int32 unitIndex, UnitInfo& info)
{
    if (unitIndex != 0)
        return kResultFalse;
    info = m_rootUnitInfo;
    return kResultTrue;
}

int32 PLUGIN_API CAudioWrapperVST3::getProgramListCount()
{
    return 1;
}

tresult PLUGIN_API CAudioWrapperVST3::getProgramListInfo(int32 listIndex, ProgramListInfo& info)
{
    if (listIndex != 0)
        return kResultFalse;
    info = m_programListInfo;
    return kResultTrue;
}

tresult PLUGIN_API CAudioWrapperVST3::getProgramName(ProgramListID listId, int32 programIndex, String128 name)
{
    if (listId != kProgramListId || !m_programParam || programIndex < 0
        || programIndex >= m_programParam->slotCount())
        return kResultFalse;
    m_programParam->toString(m_programParam->normalizedOf(programIndex), name);
    return kResultTrue;
}

tresult PLUGIN_API CAudioWrapperVST3::getProgramInfo(ProgramListID, int32, Vst::CString, String128)
{
    return kResultFalse;
}

tresult PLUGIN_API CAudioWrapperVST3::hasProgramPitchNames(ProgramListID, int32)
{
    return kResultFalse;
}

tresult PLUGIN_API CAudioWrapperVST3::getProgramPitchName(ProgramListID, int32, int16, String128)
{
    return kResultFalse;
}

UnitID PLUGIN_API CAudioWrapperVST3::getSelectedUnit()
{
    return Vst::kRootUnitId;
}

tresult PLUGIN_API CAudioWrapperVST3::selectUnit(UnitID unitId)
{
    return unitId == Vst::kRootUnitId ? kResultTrue : kResultFalse;
}

tresult PLUGIN_API CAudioWrapperVST3::getUnitByBus(MediaType, BusDirection, int32, int32, UnitID&)
{
    return kResultFalse;
}

tresult PLUGIN_API CAudioWrapperVST3::setUnitProgramData(int32, int32, IBStream*)
{
    return kResultFalse;
}

// ---- ChannelContext::IInfoListener

tresult PLUGIN_API CAudioWrapperVST3::setChannelContextInfos(IAttributeList* list)
{
    if (!list)
        return kInvalidArgument;
    flushHostNotifications();
    TChar name[128] = {};
    if (list->getString(ChannelContext::kChannelNameKey, name, sizeof name) == kResultTrue && m_isWrapperInitialized)
        setTrackName(CVST3Text::fromHost(name, 128));
    return kResultTrue;
}

// ---- FUnknown

tresult PLUGIN_API CAudioWrapperVST3::queryInterface(const TUID wanted, void** obj)
{
    if (!obj)
        return kInvalidArgument;
    QUERY_INTERFACE(wanted, obj, IUnitInfo::iid, IUnitInfo)
    QUERY_INTERFACE(wanted, obj, ChannelContext::IInfoListener::iid, ChannelContext::IInfoListener)
    return CSingleComponentEffect::queryInterface(wanted, obj);
}

// ---- CAudioWrapper

void CAudioWrapperVST3::onExtParamChanged(int index, double normValue)
{
    auto* param = dynamic_cast<CAudioWrapperVST3Parameter*>(getParameterObject(ParamID(index)));
    if (!param)
        return;
    param->storeNormalized(normValue);
    if (isFullyStarted())
        performEdit(ParamID(index), normValue);
}

void CAudioWrapperVST3::onProgramChanged()
{
    if (!m_programParam)
        return;
    const ParamValue value = m_programParam->normalizedOf(currentProgram());
    m_programParam->storeNormalized(value);
    EditController::beginEdit(kProgramParamId);
    performEdit(kProgramParamId, value);
    EditController::endEdit(kProgramParamId);
    if (componentHandler) {
        FUnknownPtr<IUnitHandler> unitHandler(componentHandler);
        if (unitHandler)
            unitHandler->notifyProgramListChange(kProgramListId, kAllProgramInvalid);
    }
}

void CAudioWrapperVST3::beginEdit(int32_t index)
{
    EditController::beginEdit(ParamID(index));
}

void CAudioWrapperVST3::endEdit(int32_t index)
{
    EditController::endEdit(ParamID(index));
}

void CAudioWrapperVST3::onLatencyChanged()
{
    CAudioWrapper::onLatencyChanged();
    m_latencyRestartPending.store(true, std::memory_order_release);
}

void CAudioWrapperVST3::onHostParamEvent(const CAudioHostEvent& event)
{
    if (auto* param = dynamic_cast<CAudioWrapperVST3Parameter*>(getParameterObject(ParamID(event.index))))
        param->setNormalized(event.value);
}

} // namespace qel
