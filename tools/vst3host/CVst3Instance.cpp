#include "CVst3Instance.h"

#include "CVst3ComponentHandler.h"
#include "CVst3EventList.h"
#include "CVst3HostApplication.h"
#include "CVst3MemoryStream.h"
#include "CVst3Module.h"
#include "CVst3ParameterChanges.h"
#include "CVst3HostText.h"

#include "pluginterfaces/base/smartpointer.h"
#include "pluginterfaces/vst/vstspeaker.h"

#include <algorithm>
#include <cstring>

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

// Queues per block beyond the parameter count, and points per queue: enough for a host
// that writes dense automation, small enough to sit in a few kilobytes.
constexpr int kSpareQueues = 8;
constexpr int kPointsPerQueue = 64;
constexpr int kEventCapacity = 512;

template <class I>
I* queryFrom(FUnknown* object)
{
    if (!object)
        return nullptr;
    void* found = nullptr;
    if (object->queryInterface(I::iid, &found) != kResultOk)
        return nullptr;
    return static_cast<I*>(found);
}

template <class I>
void releaseAndClear(I*& object)
{
    if (object) {
        object->release();
        object = nullptr;
    }
}

bool equalsIgnoringCase(const std::string& a, const std::string& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const char x = (a[i] >= 'A' && a[i] <= 'Z') ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
        const char y = (b[i] >= 'A' && b[i] <= 'Z') ? static_cast<char>(b[i] - 'A' + 'a') : b[i];
        if (x != y)
            return false;
    }
    return true;
}

} // namespace

CVst3Instance::CVst3Instance() = default;

CVst3Instance::~CVst3Instance()
{
    destroy();
}

CErrorPtr CVst3Instance::create(CVst3Module& module, const CVst3ClassInfo& classInfo, CVst3HostApplication* host)
{
    destroy();
    if (!module.factory())
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_create_NoModule No plug-in module is loaded.");
    if (host) {
        host->addRef();
        m_host = host;
    } else {
        m_host = new CVst3HostApplication("qel vst3host");
    }
    m_handler = new CVst3ComponentHandler();

    void* object = nullptr;
    TUID cid;
    std::memcpy(cid, classInfo.cid, sizeof(TUID));
    if (module.factory()->createInstance(cid, IComponent::iid, &object) != kResultOk || !object) {
        destroy();
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_create_CreateFailed The factory could not make '%1'.",
                         CString::fromUtf8(classInfo.name));
    }
    m_component = static_cast<IComponent*>(object);
    if (m_component->initialize(static_cast<IHostApplication*>(m_host)) != kResultOk) {
        // terminate is the plug-in's one clean-up path, also after a half-done initialize.
        destroy();
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_create_InitFailed '%1' failed to initialize.",
                         CString::fromUtf8(classInfo.name));
    }
    m_processor = queryFrom<IAudioProcessor>(m_component);
    if (!m_processor) {
        destroy();
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_create_NoProcessor '%1' is no audio processor.",
                         CString::fromUtf8(classInfo.name));
    }
    QEL_RETURN_IF_ERROR(createController(module), CString());

    readParameters();
    const int queues = static_cast<int>(m_parameters.size()) + kSpareQueues;
    m_inputChanges = new CVst3ParameterChanges(queues, kPointsPerQueue);
    m_outputChanges = new CVst3ParameterChanges(queues, kPointsPerQueue);
    m_inputEvents = new CVst3EventList(kEventCapacity);
    m_outputEvents = new CVst3EventList(kEventCapacity);
    return nullptr;
}

CErrorPtr CVst3Instance::createController(CVst3Module& module)
{
    m_controller = queryFrom<IEditController>(m_component);
    if (m_controller) {
        m_isSingleObject = true;
    } else {
        TUID controllerId;
        void* object = nullptr;
        if (m_component->getControllerClassId(controllerId) == kResultOk
            && module.factory()->createInstance(controllerId, IEditController::iid, &object) == kResultOk && object) {
            m_controller = static_cast<IEditController*>(object);
            if (m_controller->initialize(static_cast<IHostApplication*>(m_host)) != kResultOk) {
                releaseAndClear(m_controller);
                destroy();
                return QEL_ERROR(CString(), "@qelstr_CVst3Instance_createController_InitFailed The plug-in's controller failed to initialize.");
            }
            m_componentPoint = queryFrom<IConnectionPoint>(m_component);
            m_controllerPoint = queryFrom<IConnectionPoint>(m_controller);
            if (m_componentPoint && m_controllerPoint) {
                m_componentPoint->connect(m_controllerPoint);
                m_controllerPoint->connect(m_componentPoint);
            }
            // The controller starts from the component's state, as after a project load.
            IPtr<CVst3MemoryStream> stream = owned(new CVst3MemoryStream());
            if (m_component->getState(stream) == kResultOk) {
                stream->seek(0, IBStream::kIBSeekSet, nullptr);
                m_controller->setComponentState(stream);
            }
        }
    }
    // A plug-in without a controller still processes; it just has no parameters.
    if (m_controller) {
        m_controller->setComponentHandler(m_handler);
        m_unitInfo = queryFrom<IUnitInfo>(m_controller);
    }
    return nullptr;
}

void CVst3Instance::destroy()
{
    if (m_isProcessing || m_isActive)
        stopProcessing();
    releaseAndClear(m_unitInfo);
    if (m_componentPoint && m_controllerPoint) {
        m_componentPoint->disconnect(m_controllerPoint);
        m_controllerPoint->disconnect(m_componentPoint);
    }
    releaseAndClear(m_componentPoint);
    releaseAndClear(m_controllerPoint);
    if (m_controller) {
        m_controller->setComponentHandler(nullptr);
        if (!m_isSingleObject)
            m_controller->terminate();
        releaseAndClear(m_controller);
    }
    releaseAndClear(m_processor);
    if (m_component) {
        m_component->terminate();
        releaseAndClear(m_component);
    }
    m_isSingleObject = false;
    releaseAndClear(m_inputChanges);
    releaseAndClear(m_outputChanges);
    releaseAndClear(m_inputEvents);
    releaseAndClear(m_outputEvents);
    releaseAndClear(m_handler);
    releaseAndClear(m_host);
    m_parameters.clear();
}

std::vector<CVst3BusInfo> CVst3Instance::buses(MediaType type, BusDirection direction) const
{
    std::vector<CVst3BusInfo> result;
    if (!m_component)
        return result;
    const int32 count = m_component->getBusCount(type, direction);
    for (int32 i = 0; i < count; ++i) {
        BusInfo info = {};
        if (m_component->getBusInfo(type, direction, i, info) != kResultOk)
            continue;
        CVst3BusInfo bus;
        bus.mediaType = info.mediaType;
        bus.direction = info.direction;
        bus.channelCount = info.channelCount;
        bus.name = CVst3HostText::utf8FromUnits(info.name);
        bus.busType = info.busType;
        bus.flags = info.flags;
        if (type == kAudio && m_processor) {
            SpeakerArrangement arrangement = 0;
            if (m_processor->getBusArrangement(direction, i, arrangement) == kResultOk)
                bus.arrangement = arrangement;
        }
        result.push_back(bus);
    }
    return result;
}

int32 CVst3Instance::mainChannelCount(BusDirection direction) const
{
    const std::vector<CVst3BusInfo> list = buses(kAudio, direction);
    return list.empty() ? 0 : list.front().channelCount;
}

SpeakerArrangement CVst3Instance::defaultArrangement(int32 channels)
{
    switch (channels) {
    case 1: return SpeakerArr::kMono;
    case 2: return SpeakerArr::kStereo;
    case 3: return SpeakerArr::k30Cine;
    case 4: return SpeakerArr::k40Music;
    case 5: return SpeakerArr::k50;
    case 6: return SpeakerArr::k51;
    case 7: return SpeakerArr::k61Cine;
    case 8: return SpeakerArr::k71Cine;
    default:
        if (channels <= 0)
            return SpeakerArr::kEmpty;
        return channels >= 64 ? ~SpeakerArrangement(0) : (SpeakerArrangement(1) << channels) - 1;
    }
}

bool CVst3Instance::requestMainChannels(int32 channels)
{
    if (!m_processor)
        return false;
    const std::vector<CVst3BusInfo> inputs = buses(kAudio, kInput);
    const std::vector<CVst3BusInfo> outputs = buses(kAudio, kOutput);
    if (inputs.empty() || outputs.empty())
        return false;
    std::vector<SpeakerArrangement> in;
    std::vector<SpeakerArrangement> out;
    for (const CVst3BusInfo& bus : inputs)
        in.push_back(bus.arrangement);
    for (const CVst3BusInfo& bus : outputs)
        out.push_back(bus.arrangement);
    in[0] = defaultArrangement(channels);
    out[0] = defaultArrangement(channels);
    return m_processor->setBusArrangements(in.data(), static_cast<int32>(in.size()), out.data(),
                                           static_cast<int32>(out.size())) == kResultTrue;
}

void CVst3Instance::readParameters()
{
    m_parameters.clear();
    if (!m_controller)
        return;
    const int32 count = m_controller->getParameterCount();
    for (int32 i = 0; i < count; ++i) {
        ParameterInfo info = {};
        if (m_controller->getParameterInfo(i, info) != kResultOk)
            continue;
        CVst3ParamInfo param;
        param.id = info.id;
        param.title = CVst3HostText::utf8FromUnits(info.title);
        param.shortTitle = CVst3HostText::utf8FromUnits(info.shortTitle);
        param.units = CVst3HostText::utf8FromUnits(info.units);
        param.stepCount = info.stepCount;
        param.defaultNormalized = info.defaultNormalizedValue;
        param.unitId = info.unitId;
        param.flags = info.flags;
        m_parameters.push_back(param);
    }
}

const CVst3ParamInfo* CVst3Instance::findParameter(const std::string& title) const
{
    for (const CVst3ParamInfo& param : m_parameters)
        if (param.title == title)
            return &param;
    for (const CVst3ParamInfo& param : m_parameters)
        if (equalsIgnoringCase(param.title, title) || equalsIgnoringCase(param.shortTitle, title))
            return &param;
    return nullptr;
}

const CVst3ParamInfo* CVst3Instance::findParameter(ParamID id) const
{
    for (const CVst3ParamInfo& param : m_parameters)
        if (param.id == id)
            return &param;
    return nullptr;
}

bool CVst3Instance::textToValue(ParamID id, const std::string& text, double& normalized) const
{
    if (!m_controller)
        return false;
    String128 units = {};
    CVst3HostText::utf8ToUnits(text, units);
    ParamValue value = 0.0;
    if (m_controller->getParamValueByString(id, units, value) != kResultOk)
        return false;
    normalized = value;
    return true;
}

std::string CVst3Instance::valueToText(ParamID id, double normalized) const
{
    if (!m_controller)
        return std::string();
    String128 units = {};
    if (m_controller->getParamStringByValue(id, normalized, units) != kResultOk)
        return std::string();
    return CVst3HostText::utf8FromUnits(units);
}

double CVst3Instance::parameter(ParamID id) const
{
    return m_controller ? m_controller->getParamNormalized(id) : 0.0;
}

bool CVst3Instance::setParameter(ParamID id, double normalized)
{
    if (!m_controller || m_controller->setParamNormalized(id, normalized) != kResultOk)
        return false;
    return queueParameterChange(id, normalized, 0);
}

bool CVst3Instance::queueParameterChange(ParamID id, double normalized, int32 sampleOffset)
{
    return m_inputChanges && m_inputChanges->addChange(id, sampleOffset, normalized);
}

CErrorPtr CVst3Instance::saveState(std::vector<uint8_t>& bytes) const
{
    if (!m_component)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_saveState_NoInstance No plug-in instance exists.");
    IPtr<CVst3MemoryStream> stream = owned(new CVst3MemoryStream());
    if (m_component->getState(stream) != kResultOk)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_saveState_Refused The plug-in could not write its state.");
    bytes = stream->bytes();
    return nullptr;
}

CErrorPtr CVst3Instance::loadState(const std::vector<uint8_t>& bytes)
{
    if (!m_component)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_loadState_NoInstance No plug-in instance exists.");
    IPtr<CVst3MemoryStream> stream = owned(new CVst3MemoryStream(bytes));
    if (m_component->setState(stream) != kResultOk)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_loadState_Refused The plug-in refused the state (%1 bytes).",
                         CString::number(static_cast<int64_t>(bytes.size())));
    if (m_controller && !m_isSingleObject) {
        stream->seek(0, IBStream::kIBSeekSet, nullptr);
        m_controller->setComponentState(stream);
    }
    return nullptr;
}

std::vector<CVst3ProcessBuffers::CBusShape> CVst3Instance::busShapes(BusDirection direction) const
{
    std::vector<CVst3ProcessBuffers::CBusShape> shapes;
    for (const CVst3BusInfo& bus : buses(kAudio, direction)) {
        CVst3ProcessBuffers::CBusShape shape;
        shape.channelCount = bus.channelCount;
        shape.isActive = (bus.flags & BusInfo::kDefaultActive) != 0;
        shapes.push_back(shape);
    }
    return shapes;
}

CErrorPtr CVst3Instance::startProcessing(const CVst3ProcessSetup& setup)
{
    if (!m_processor)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_startProcessing_NoInstance No plug-in instance exists.");
    if (m_isProcessing || m_isActive)
        stopProcessing();
    if (setup.maxBlockSize <= 0 || !(setup.sampleRate > 0.0))
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_startProcessing_BadSetup Block size %1 or sample rate %2 is not valid.",
                         CString::number(setup.maxBlockSize), CString::number(static_cast<int64_t>(setup.sampleRate)));
    const int32 sampleSize = setup.isDouble ? kSample64 : kSample32;
    if (m_processor->canProcessSampleSize(sampleSize) != kResultTrue)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_startProcessing_SampleSize The plug-in can't process %1-bit samples.",
                         CString::number(setup.isDouble ? 64 : 32));
    ProcessSetup processSetup = {};
    processSetup.processMode = setup.isOffline ? kOffline : kRealtime;
    processSetup.symbolicSampleSize = sampleSize;
    processSetup.maxSamplesPerBlock = setup.maxBlockSize;
    processSetup.sampleRate = setup.sampleRate;
    if (m_processor->setupProcessing(processSetup) != kResultOk)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_startProcessing_SetupRefused The plug-in refused the processing set-up.");
    m_setup = setup;

    m_buffers.configure(busShapes(kInput), busShapes(kOutput), setup.maxBlockSize, setup.isDouble);
    m_data = ProcessData();
    m_data.processMode = processSetup.processMode;
    m_data.symbolicSampleSize = sampleSize;
    m_data.numInputs = m_buffers.busCount(kInput);
    m_data.numOutputs = m_buffers.busCount(kOutput);
    m_data.inputs = m_buffers.busBuffers(kInput);
    m_data.outputs = m_buffers.busBuffers(kOutput);
    m_data.inputParameterChanges = m_inputChanges;
    m_data.outputParameterChanges = m_outputChanges;
    m_data.inputEvents = m_inputEvents;
    m_data.outputEvents = m_outputEvents;
    m_data.processContext = &m_context;

    m_context = ProcessContext();
    m_context.state = ProcessContext::kPlaying | ProcessContext::kTempoValid | ProcessContext::kTimeSigValid
                      | ProcessContext::kContTimeValid | ProcessContext::kProjectTimeMusicValid;
    m_context.sampleRate = setup.sampleRate;
    m_context.tempo = 120.0;
    m_context.timeSigNumerator = 4;
    m_context.timeSigDenominator = 4;

    if (m_component->setActive(true) != kResultOk)
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_startProcessing_ActivateFailed The plug-in could not be activated.");
    m_isActive = true;
    // Processors that start by themselves answer "not implemented", which is fine.
    const tresult started = m_processor->setProcessing(true);
    if (started != kResultOk && started != kNotImplemented) {
        stopProcessing();
        return QEL_ERROR(CString(), "@qelstr_CVst3Instance_startProcessing_StartFailed The plug-in could not start processing.");
    }
    m_isProcessing = true;
    return nullptr;
}

void CVst3Instance::stopProcessing()
{
    if (m_isProcessing && m_processor)
        m_processor->setProcessing(false);
    m_isProcessing = false;
    if (m_isActive && m_component)
        m_component->setActive(false);
    m_isActive = false;
}

uint32 CVst3Instance::latencySamples() const
{
    return m_processor ? m_processor->getLatencySamples() : 0;
}

uint32 CVst3Instance::tailSamples() const
{
    return m_processor ? m_processor->getTailSamples() : 0;
}

tresult CVst3Instance::process(int32 numSamples)
{
    if (!m_isProcessing || numSamples < 0 || numSamples > m_setup.maxBlockSize)
        return kInvalidArgument;
    m_data.numSamples = numSamples;
    m_outputChanges->clear();
    m_outputEvents->clear();
    const tresult result = m_processor->process(m_data);
    // Hosts reuse their buffer arrays, so whatever the plug-in changed goes back.
    m_buffers.restore();
    m_inputChanges->clear();
    m_inputEvents->clear();
    m_context.projectTimeSamples += numSamples;
    m_context.continousTimeSamples += numSamples;
    m_context.projectTimeMusic += numSamples / m_setup.sampleRate * (m_context.tempo / 60.0);
    return result;
}

template <class T>
tresult CVst3Instance::processPlanarT(const T* const* inputs, T* const* outputs, int64_t numSamples, int32 blockSize)
{
    constexpr bool isDouble = sizeof(T) == sizeof(double);
    if (!m_isProcessing || m_setup.isDouble != isDouble || blockSize <= 0 || blockSize > m_setup.maxBlockSize)
        return kInvalidArgument;
    const int32 inChannels = m_buffers.channelCount(kInput, 0);
    const int32 outChannels = m_buffers.channelCount(kOutput, 0);
    tresult result = kResultOk;
    for (int64_t start = 0; start < numSamples; start += blockSize) {
        const int32 count = static_cast<int32>(std::min<int64_t>(blockSize, numSamples - start));
        for (int32 c = 0; c < inChannels; ++c) {
            T* channel;
            if constexpr (isDouble)
                channel = m_buffers.channel64(kInput, 0, c);
            else
                channel = m_buffers.channel32(kInput, 0, c);
            if (channel)
                std::copy(inputs[c] + start, inputs[c] + start + count, channel);
        }
        const tresult step = process(count);
        if (step != kResultOk && result == kResultOk)
            result = step;
        for (int32 c = 0; c < outChannels; ++c) {
            const T* channel;
            if constexpr (isDouble)
                channel = m_buffers.channel64(kOutput, 0, c);
            else
                channel = m_buffers.channel32(kOutput, 0, c);
            if (channel)
                std::copy(channel, channel + count, outputs[c] + start);
            else
                std::fill(outputs[c] + start, outputs[c] + start + count, T(0));
        }
    }
    return result;
}

tresult CVst3Instance::processPlanar(const float* const* inputs, float* const* outputs, int64_t numSamples,
                                     int32 blockSize)
{
    return processPlanarT(inputs, outputs, numSamples, blockSize);
}

tresult CVst3Instance::processPlanar(const double* const* inputs, double* const* outputs, int64_t numSamples,
                                     int32 blockSize)
{
    return processPlanarT(inputs, outputs, numSamples, blockSize);
}

} // namespace qel
