#include "Audio/CAudioWrapper.h"

#include "Audio/CAudioCCTable.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioExtParam.h"
#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/CAudioParamUndo.h"
#include "Audio/CAudioParamUndoData.h"
#include "Audio/CAudioPreset.h"
#include "Audio/CAudioProcessBase.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CScopedDenormalFlush.h"
#include "Audio/Processes/CModOutput.h"
#include "Core/CAppData.h"
#include "Core/CApplication.h"
#include "Core/CHighResCounter.h"
#include "Core/CLog.h"
#include "Core/CMemoryReader.h"
#include "Core/CPtrArray.h"
#include "Core/CWriteSeqBuffer.h"
#include "Core/CWorkerPool.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace qel {
namespace {

// A stored scale is meant for a monitor this high. Until an editor can ask for the primary
// monitor's area, the wrapper takes it to be that high, so the stored scale stands as it is.
constexpr double kReferenceMonitorHeight = 1080.0;
constexpr double kPrimaryMonitorHeight = kReferenceMonitorHeight;
constexpr double kScaleStep = 0.05;
constexpr double kMinScale = 0.8;
constexpr double kDefaultWindowWidth = 400.0;
constexpr double kDefaultWindowHeight = 300.0;
// Used when `plugin-tail` is set but doesn't read as a number.
constexpr double kFallbackTailSeconds = 0.4;

double roundHalfAway(double x) { return x >= 0.0 ? std::floor(x + 0.5) : -std::floor(0.5 - x); }

bool isStoredTrue(const CString& text) { return text == CString("1") || text == CString("true"); }

CString mainParamName(const char* name) { return CString("plugin.modMain.").append(name); }

} // namespace

CAudioWrapper::CAudioWrapper() = default;

CAudioWrapper::~CAudioWrapper()
{
    m_programListener.setNotifier(nullptr, 0);
    if (m_registry)
        m_registry->setRoutingProvider(nullptr);
    m_winSizeListener.reset();
    if (m_extParamList)
        for (int i = 0; i < m_extParamList->count(); ++i)
            m_extParamList->at(i)->setHostBridge(nullptr, -1);
    m_main.reset();
    m_outputProcess.reset();
    m_output = nullptr;
    freeExchangedChanges();
    m_input.releaseBuffers();
    m_link.releaseBuffers();
    m_root.reset();
    CWorkerPool::shutdown();
}

// ---- init

CErrorPtr CAudioWrapper::init()
{
    const int64_t started = CHighResCounter::now();
    if (!CApplication::exists())
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_init_NoApp No application object created.");
    QEL_RETURN_IF_ERROR(buildTree(), CString());
    QEL_RETURN_IF_ERROR(readProjectSettings(), CString());
    QEL_RETURN_IF_ERROR(findPluginObjects(), CString());

    m_pool = std::make_unique<CSampleBufferPool>();
    // Processes bind their parameters in the collector the environment names.
    m_env->setParamCollector(m_collector);
    takeHostParams();
    QEL_RETURN_IF_ERROR(buildGraph(), CString());

    computeWindowMetrics();
    if (m_useWindowResizing && m_params.windowSize) {
        m_winSizeListener = std::make_unique<CWinSizeParamListener>(this);
        m_winSizeListener->setNotifier(m_collector, reinterpret_cast<uintptr_t>(m_params.windowSize));
    }

    m_registry->setRoutingProvider(this);
    registerExtParams();
    {
        std::lock_guard<std::mutex> guard(m_env->queueLock());
        m_inputCount = 1;
        m_outputCount = 1;
        m_sidechainCount = 0;
    }
    m_mainFormat.channelCount = 1;
    m_isReconfigurationNeeded.store(true, std::memory_order_release);
    readStoredSettings();
    setOffline(false);
    CLog::printf("CAudioWrapper init time: %.4f s @ %.4f s", CHighResCounter::secondsSince(started),
                 CHighResCounter::secondsSinceStart());
    return nullptr;
}

CErrorPtr CAudioWrapper::buildTree()
{
    QEL_RETURN_IF_ERROR(CApplication::initRootObject(m_root, CString()), CString());
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_sharedAudio, CString("shared::audio")), CString());
    CObject* made = nullptr;
    QEL_RETURN_IF_ERROR(m_root->createChild(made, m_sharedAudio->getAttrString(CString("plugin-tag")), CString("plugin"), true),
                        CString());
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_plugin, CString("plugin")), CString());
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_project, CString("shared::project")), CString());
    return nullptr;
}

CErrorPtr CAudioWrapper::readProjectSettings()
{
    const CObject& p = *m_project;
    m_pluginName = p.getAttrString(CString("app-name"));
    if (m_pluginName.isEmpty())
        return QEL_ERROR(p.getFullName(), "@qelstr_CAudioWrapper_init_PluginNameEmpty Plug-in name is empty.");
    m_vendorName = p.getAttrString(CString("app-vendor"));
    if (m_vendorName.isEmpty())
        return QEL_ERROR(p.getFullName(), "@qelstr_CAudioWrapper_init_VendorNameEmpty Vendor name is empty.");

    m_intChannelCount = p.getAttrInt(CString("plugin-intchannel-count"));
    if (m_intChannelCount < 1 || m_intChannelCount > 16)
        return QEL_ERROR(p.getFullName(), "@qelstr_CAudioWrapper_init_InvalidIntChannelCount Invalid 'plugin-intchannel-count' attribute value.");
    m_groupCount = p.getAttrInt(CString("plugin-group-count"));
    if (m_groupCount < 1 || m_groupCount > 8)
        return QEL_ERROR(p.getFullName(), "@qelstr_CAudioWrapper_init_InvalidGroupCount Invalid 'plugin-group-count' attribute value.");

    QEL_RETURN_IF_ERROR(acquirePluginCode(p.getAttrString(CString("plugin-code")), m_pluginCode), p.getFullName());
    QEL_RETURN_IF_ERROR(parseVersion(p.getAttrString(CString("app-version")), m_version), p.getFullName());

    const CString tail = p.getAttrString(CString("plugin-tail"));
    m_hasTail = !tail.isEmpty();
    m_tailSeconds = 0.0;
    if (m_hasTail && !(tail.toReal(m_tailSeconds) && std::isfinite(m_tailSeconds) && m_tailSeconds >= 0.0))
        m_tailSeconds = kFallbackTailSeconds;

    m_autoOversamplingRtMode = p.getAttrInt(CString("auto-oversampling-rtmode"));
    m_isVizAlwaysActive = p.getAttrBool(CString("is-viz-always-active"));
    m_isSymmetricIO = p.getAttrBool(CString("is-symmetric-io"));
    m_useHostBpm = p.getAttrBool(CString("use-host-bpm"));
    m_useHostRecording = p.getAttrBool(CString("use-host-recording"));
    m_useWindowResizing = p.getAttrBool(CString("use-window-resizing"));
    m_useSidechain = p.getAttrBool(CString("use-sidechain"));
    m_useRouting = p.getAttrBool(CString("use-routing"));
    m_useMidSide = p.getAttrBool(CString("use-mid-side"));
    return nullptr;
}

CErrorPtr CAudioWrapper::acquirePluginCode(const CString& text, uint32_t& out)
{
    out = 0;
    if (text.length() != 4)
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_acquirePluginCode_PluginCodeError Invalid plug-in code in string '%1'.",
                         text);
    for (int i = 0; i < 4; ++i) {
        if (text.at(i) > 0xFF)
            return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_acquirePluginCode_PluginCodeError Invalid plug-in code in string '%1'.",
                             text);
        out = (out << 8) | uint32_t(text.at(i));
    }
    return nullptr;
}

CErrorPtr CAudioWrapper::parseVersion(const CString& text, int32_t (&out)[3])
{
    out[0] = out[1] = out[2] = 0;
    CPtrArray<CString, true> parts;
    text.split('.', parts, false, true);
    bool ok = parts.count() == 2 || parts.count() == 3;
    for (int i = 0; ok && i < parts.count(); ++i) {
        const CString& part = *parts[i];
        int64_t value = 0;
        ok = !part.isEmpty() && part.length() <= 9;
        for (int k = 0; ok && k < part.length(); ++k) {
            ok = part.at(k) >= '0' && part.at(k) <= '9';
            value = value * 10 + (part.at(k) - '0');
        }
        out[i] = int32_t(value);
    }
    if (!ok) {
        out[0] = out[1] = out[2] = 0;
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_parseVersion_InvalidVersion Invalid version specification in string '%1'.",
                         text);
    }
    return nullptr;
}

CErrorPtr CAudioWrapper::findPluginObjects()
{
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_env, CString("plugin.audio-env")), CString());
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_collector, CString("plugin.param-collector")), CString());
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_extParamList, CString("plugin.ext-param-list")), CString());
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_ccTable, CString("plugin.cctable")), CString());
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(m_registry, CString("plugin.param-registry")), CString());
    // plugin.viz-collector and plugin.interface-base join here, each optional, once their
    // classes exist; until then nothing is sent to them.
    return nullptr;
}

void CAudioWrapper::takeHostParams()
{
    CAudioParamCollector& c = *m_collector;
    m_params.oversamplingMode = c.getParam(mainParamName("host-oversampling-mode"));
    m_params.offline = c.getParam(mainParamName("host-offline"));
    m_params.latencyChange = c.getParam(mainParamName("host-latency-change"));
    m_params.trackName = c.getParam(mainParamName("host-track-name"));
    m_params.bypass = c.getParam(mainParamName("bypass-enable"));
    if (m_useHostBpm)
        m_params.bpm = c.getParam(mainParamName("host-bpm"));
    if (m_useHostRecording)
        m_params.recording = c.getParam(mainParamName("host-rec"));
    m_params.windowSize = c.getParam(mainParamName("main-window-size"));
    CAudioDefaultRouting::CParams& routing = m_params.routing;
    if (m_useSidechain) {
        routing.sidechain = c.getParam(mainParamName("io-params.sidechain"));
        routing.sidechainMute = c.getParam(mainParamName("io-params.sidechain-mute"));
    }
    if (m_useRouting) {
        routing.inChannelNames = c.getParam(mainParamName("io-params.in-channel-names"));
        routing.groupNames = c.getParam(mainParamName("io-params.group-names"));
        routing.inRouting = c.getParam(mainParamName("io-params.in-routing"));
        routing.grouping = c.getParam(mainParamName("io-params.grouping"));
        routing.outRouting = c.getParam(mainParamName("io-params.out-routing"));
        if (m_useMidSide)
            routing.msPairs = c.getParam(mainParamName("io-params.ms-pairs"));
        m_defaultRouting = std::make_unique<CAudioDefaultRouting>(routing, m_intChannelCount, m_groupCount);
    }
}

CErrorPtr CAudioWrapper::buildGraph()
{
    CAudioProcessDefBase* mainDef = nullptr;
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(mainDef, CString("shared::audio.modMain")), CString());
    CAudioProcessBase* made = nullptr;
    QEL_RETURN_IF_ERROR(mainDef->createProcess(made, nullptr, CString("plugin.modMain"), m_env, 0, 0, m_pool.get(),
                                               false, false),
                        CString());
    m_main.reset(made);

    CAudioProcessDefBase* outputDef = nullptr;
    QEL_RETURN_IF_ERROR(m_root->findObjectChecked(outputDef, CString("shared::audio.modOutput")), CString());
    made = nullptr;
    QEL_RETURN_IF_ERROR(outputDef->createProcess(made, nullptr, CString("plugin.modOutput"), m_env, 0, 0,
                                                 m_pool.get(), false, false),
                        CString());
    m_outputProcess.reset(made);
    m_output = dynamic_cast<CModOutput*>(made);
    if (!m_output)
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_init_InvalidOutProcessType Output process object 'shared::audio.modOutput' is not of required 'CModOutput' type.");

    m_main->attachInput(&m_input, 0);
    m_link.srcPort = 0;
    m_main->attachOutput(&m_link);
    m_output->attachInput(&m_link, 0);
    return nullptr;
}

void CAudioWrapper::registerExtParams()
{
    for (int i = 0; i < m_extParamList->count(); ++i) {
        CAudioExtParam* ext = m_extParamList->at(i);
        ext->setHostBridge(this, i);
        m_editMap[ext->param()][(ext->group() << 8) | ext->elementIndex()] = i;
    }
}

void CAudioWrapper::readStoredSettings()
{
    int32_t level = 1;
    if (!CAppData::group().getString(CString("oversampling-level"), CString("1")).toInt(level))
        level = 1;
    m_offlineOversamplingLevel = level;
    m_isForce2Channels = isStoredTrue(CAppData::group().getString(CString("force-2ch"), CString("0")));
}

void CAudioWrapper::computeWindowMetrics()
{
    const CString useSystemText = CAppData::local().getString(CString("ui-scale-usesr"), CString("true"));
    const bool useSystemScale = !(useSystemText == CString("0") || useSystemText == CString("false"));
    double scale = 1.0;
    const CString text = CAppData::local().getString(CString(useSystemScale ? "ui-scale2" : "ui-scale"), CString("1.0"));
    if (!text.toReal(scale) || !std::isfinite(scale) || scale <= 0.0)
        scale = 1.0;
    if (useSystemScale)
        scale *= kPrimaryMonitorHeight / kReferenceMonitorHeight;
    scale = std::max(roundHalfAway(scale / kScaleStep) * kScaleStep, kMinScale);
    m_winScale = scale;

    const double minWidth = m_project->getAttrReal(CString("min-window-width"));
    const double minHeight = m_project->getAttrReal(CString("min-window-height"));
    const bool hasMinimum = minWidth >= 1.0 && minHeight >= 1.0;
    m_minWinWidth = hasMinimum ? int32_t(roundHalfAway(minWidth * scale)) : 0;
    m_minWinHeight = hasMinimum ? int32_t(roundHalfAway(minHeight * scale)) : 0;
    readWindowSize();
}

void CAudioWrapper::readWindowSize()
{
    double width = kDefaultWindowWidth;
    double height = kDefaultWindowHeight;
    if (CAudioParam* size = m_params.windowSize) {
        CLockGuard guard(size->lock());
        width = size->values().getElementValue(0, 0, 0, width);
        height = size->values().getElementValue(0, 1, 0, height);
    }
    m_winWidth = std::max(int32_t(roundHalfAway(width * m_winScale)), m_minWinWidth);
    m_winHeight = std::max(int32_t(roundHalfAway(height * m_winScale)), m_minWinHeight);
}

void CAudioWrapper::CWinSizeParamListener::onUpdate(const CUpdateMessage*)
{
    if (m_owner)
        m_owner->readWindowSize();
}

CErrorPtr CAudioWrapper::finishInit()
{
    if (!m_main)
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_finishInit_NotInitialized Audio wrapper is not initialized.");
    // The interface base takes this wrapper as its data provider here once it exists. The
    // program listener joins before the collector starts the registries.
    m_programListener.setNotifier(m_registry, CAudioParamRegistry::kUpdateKey);
    m_collector->start();
    startProcessing();
    stopProcessing();
    m_isFullyStarted.store(true, std::memory_order_release);
    return nullptr;
}

// ---- host facts

void CAudioWrapper::setSampleRate(double rate)
{
    if (!m_env || !std::isfinite(rate) || rate <= 0.0)
        return;
    {
        std::lock_guard<std::mutex> guard(m_env->queueLock());
        if (m_env->sampleRate() == rate)
            return;
        m_env->setSampleRate(rate);
        m_isReconfigurationNeeded.store(true, std::memory_order_release);
    }
    // "update-sample-rate" goes to the interface base here once it exists.
}

void CAudioWrapper::setChannelCounts(int32_t mainCount, bool isDouble, bool isInterleaved, int32_t sidechainCount,
                                     bool sidechainIsDouble, bool sidechainIsInterleaved)
{
    mainCount = std::clamp(mainCount, 0, kMaxHostChannels);
    sidechainCount = m_useSidechain ? std::clamp(sidechainCount, 0, kMaxHostChannels - mainCount) : 0;
    m_mainFormat = CAudioHostFormat{isDouble, isInterleaved, mainCount};
    m_sidechainFormat = CAudioHostFormat{sidechainIsDouble, sidechainIsInterleaved, sidechainCount};
    if (!m_env)
        return;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    if (m_inputCount == mainCount + sidechainCount && m_sidechainCount == sidechainCount)
        return;
    m_inputCount = mainCount + sidechainCount;
    m_sidechainCount = sidechainCount;
    m_isReconfigurationNeeded.store(true, std::memory_order_release);
}

void CAudioWrapper::setOutputCount(int32_t count, bool isDouble)
{
    count = std::clamp(count, 0, kMaxHostChannels);
    m_isOutputDouble = isDouble;
    if (!m_env)
        return;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    if (m_outputCount == count)
        return;
    m_outputCount = count;
    m_isReconfigurationNeeded.store(true, std::memory_order_release);
}

void CAudioWrapper::setOffline(bool offline)
{
    if (offline != m_isOffline) {
        m_isOffline = offline;
        writeParam(m_params.offline, offline ? 1.0 : 0.0);
    }
    int32_t mode = m_autoOversamplingRtMode - 1;
    if (offline) {
        double rate = 44100.0;
        if (m_env) {
            std::lock_guard<std::mutex> guard(m_env->queueLock());
            rate = m_env->sampleRate();
        }
        mode = m_offlineOversamplingLevel;
        if (rate < 72000.0)
            ++mode;
        else if (rate >= 144000.0)
            --mode;
    }
    // The parameter holds octaves 0 to 3; a definition asking for less or more gets the end.
    mode = std::clamp(mode, 0, 3);
    if (mode != m_oversamplingMode) {
        m_oversamplingMode = mode;
        writeParam(m_params.oversamplingMode, double(mode));
    }
}

void CAudioWrapper::setHostBpm(double bpm)
{
    if (!m_useHostBpm || bpm == m_hostBpm)
        return;
    m_hostBpm = bpm;
    writeParam(m_params.bpm, bpm);
}

void CAudioWrapper::setTrackName(const CString& name)
{
    CAudioParam* param = m_params.trackName;
    if (!param || !param->info() || param->getString(0, 0) == name)
        return;
    CAudioParamUpdateContext context;
    param->setString(0, 0, name, this, context);
}

void CAudioWrapper::setInputLabels(const std::vector<CString>& mainLabels, const std::vector<CString>& sidechainLabels)
{
    CLockGuard guard(m_lock);
    m_mainLabels = mainLabels;
    m_sidechainLabels = sidechainLabels;
}

void CAudioWrapper::updateRouting(bool fromHost, const CString& undoLabel1, const CString& undoLabel2)
{
    CLockGuard guard(m_lock);
    if (fromHost)
        m_hasHostLabels = true;
    if (!m_defaultRouting || !m_hasHostLabels || !m_defaultRouting->isUntouched())
        return;
    // One undo step, and one batch for the audio side.
    CAudioParamUndo* undo = m_registry ? m_registry->undo() : nullptr;
    CString name = undoLabel1;
    if (!name.isEmpty() && !undoLabel2.isEmpty())
        name.append(" ");
    name.append(undoLabel2);
    std::unique_ptr<CAudioParamUndoData> entry = undo ? std::make_unique<CAudioParamUndoData>(name) : nullptr;
    CAudioParamQueuedChange* batch = nullptr;
    CAudioParamUpdateContext context;
    context.undo = entry.get();
    context.batchTail = &batch;
    m_collector->enterBatch();
    const bool isChanged = m_defaultRouting->apply(m_mainLabels, m_sidechainLabels, this, context);
    if (batch)
        m_collector->postChanges(batch);
    m_collector->releaseUpdate(true);
    if (isChanged && entry)
        undo->submit(std::move(entry));
}

// After a preset was applied: a preset that leaves the routing as the defaults have it gets
// the host's layout again, within the preset's own undo step and batch.
void CAudioWrapper::updateRouting(CAudioParamUpdateContext& context)
{
    CLockGuard guard(m_lock);
    if (m_defaultRouting && m_hasHostLabels && m_defaultRouting->isUntouched())
        m_defaultRouting->apply(m_mainLabels, m_sidechainLabels, this, context);
}

void CAudioWrapper::importChannelLabels()
{
    CLockGuard guard(m_lock);
    CAudioParam* names = m_params.routing.inChannelNames;
    if (!m_hasHostLabels || !names || !names->info())
        return;
    std::vector<CString> labels = m_mainLabels;
    labels.insert(labels.end(), m_sidechainLabels.begin(), m_sidechainLabels.end());
    CAudioParamUpdateContext context;
    for (size_t i = 0; i < labels.size() && i < size_t(m_intChannelCount); ++i)
        if (names->getString(0, int32_t(i)) != labels[i])
            names->setString(0, int32_t(i), labels[i], this, context);
}

// ---- state and queries

CErrorPtr CAudioWrapper::saveState(COutputStream& out)
{
    if (!m_registry)
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_saveState_NotInitialized Audio wrapper is not initialized.");
    CWriteSeqBuffer preset;
    QEL_RETURN_IF_ERROR(m_registry->acquirePreset(false, -1, -1, preset), CString());
    CByteArray bytes;
    QEL_RETURN_IF_ERROR(preset.toArray(bytes), CString());
    QEL_RETURN_IF_ERROR(out.writeCompressedData(bytes, CAudioPreset::kTag), CString());
    return nullptr;
}

CErrorPtr CAudioWrapper::loadState(CInputStream& in)
{
    if (!m_registry)
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_loadState_NotInitialized Audio wrapper is not initialized.");
    CByteArray bytes;
    QEL_RETURN_IF_ERROR(in.readCompressedData(bytes, CAudioPreset::kTag), CString());
    // The block must hold one preset and nothing behind it; the registry then checks
    // every entry before it applies any.
    CAudioPreset whole;
    QEL_RETURN_IF_ERROR(whole.fromBytes(bytes), CString());
    CMemoryReader preset(bytes.data(), bytes.size());
    QEL_RETURN_IF_ERROR(m_registry->activatePreset(preset, true, -1, this), CString());
    return nullptr;
}

int32_t CAudioWrapper::queryLatency()
{
    if (!m_isLatencyReported.exchange(true, std::memory_order_acq_rel))
        writeParam(m_params.latencyChange, 0.0);
    return m_env ? m_env->latency() : 0;
}

int32_t CAudioWrapper::queryTailSamples() const
{
    if (!m_hasTail || !m_env)
        return 0;
    double rate = 44100.0;
    {
        std::lock_guard<std::mutex> guard(m_env->queueLock());
        rate = m_env->sampleRate();
    }
    return int32_t(roundHalfAway(m_tailSeconds * rate));
}

void CAudioWrapper::onLatencyChanged()
{
    m_isLatencyReported.store(false, std::memory_order_release);
    writeParam(m_params.latencyChange, 1.0);
}

void CAudioWrapper::onHostParamEvent(const CAudioHostEvent& event)
{
    if (m_extParamList && event.index >= 0 && event.index < m_extParamList->count())
        m_extParamList->at(event.index)->setNormalized(event.value);
}

void CAudioWrapper::writeParam(CAudioParam* param, double value)
{
    if (param)
        param->setValue(value, 0, this);
}

// ---- programs

int32_t CAudioWrapper::programSlotCount() const
{
    return m_registry ? std::max(m_registry->getSessionPresetCount(), 1) : 1;
}

int32_t CAudioWrapper::currentProgram() const { return m_registry ? m_registry->getCurrentPreset() : 0; }

void CAudioWrapper::programName(int32_t slot, CString& out) const
{
    out = CString();
    if (!m_registry || slot < 0 || slot >= m_registry->getSessionPresetCount())
        return;
    CString family;
    CAudioParamRegistry::splitPresetName(m_registry->getPresetName(slot), family, out);
}

CErrorPtr CAudioWrapper::loadProgram(int32_t slot, const void* source)
{
    if (!m_registry || slot < 0 || slot >= m_registry->getSessionPresetCount())
        return QEL_ERROR(CString(), "@qelstr_CAudioWrapper_loadProgram_InvalidSlot Invalid program slot %1.",
                         CString::number(slot));
    m_registry->setCurrentProgram(slot, source);
    return nullptr;
}

void CAudioWrapper::CProgramChangeListener::onUpdate(const CUpdateMessage* message)
{
    // A change the wrapper asked for (a host's program change, a loaded state) is already
    // known to the host.
    const auto self = uint64_t(reinterpret_cast<uintptr_t>(static_cast<const void*>(m_owner)));
    if (m_owner && message && message->source != self)
        m_owner->onProgramChanged();
}

// ---- CAudioInterfaceDataProvider

int32_t CAudioWrapper::getInternalChannelCount() { return m_intChannelCount; }

int32_t CAudioWrapper::getGroupCount() { return m_groupCount; }

int32_t CAudioWrapper::getInputCount()
{
    if (!m_env)
        return 0;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    return m_inputCount;
}

int32_t CAudioWrapper::getOutputCount()
{
    if (!m_env)
        return 0;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    return m_outputCount;
}

int32_t CAudioWrapper::getSidechainCount()
{
    if (!m_env)
        return 0;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    return m_sidechainCount;
}

double CAudioWrapper::getSampleRate()
{
    if (!m_env)
        return 44100.0;
    std::lock_guard<std::mutex> guard(m_env->queueLock());
    return m_env->sampleRate();
}

void CAudioWrapper::beginParamEdit(CAudioParam* param, int32_t group, int32_t element)
{
    editGesture(param, group, element, true);
}

void CAudioWrapper::endParamEdit(CAudioParam* param, int32_t group, int32_t element)
{
    editGesture(param, group, element, false);
}

void CAudioWrapper::editGesture(CAudioParam* param, int32_t group, int32_t element, bool isBegin)
{
    if (!isFullyStarted())
        return;
    const auto byParam = m_editMap.find(param);
    if (byParam == m_editMap.end())
        return;
    const auto byElement = byParam->second.find((group << 8) | element);
    if (byElement == byParam->second.end())
        return;
    if (isBegin)
        beginEdit(byElement->second);
    else
        endEdit(byElement->second);
}

// ---- processing

void CAudioWrapper::startProcessing()
{
    if (!m_main)
        return;
    CScopedDenormalFlush flush;
    {
        std::lock_guard<std::mutex> guard(m_env->queueLock());
        if (m_env->isActive())
            return;
        m_env->setActive(true);
    }
    // "start-viz" and, unless viz is always active, "clear-client" go to the interface
    // base here once it exists.
    runPrimer();
}

void CAudioWrapper::stopProcessing()
{
    if (!m_main)
        return;
    CScopedDenormalFlush flush;
    {
        std::lock_guard<std::mutex> guard(m_env->queueLock());
        if (!m_env->isActive())
            return;
        m_env->setActive(false);
    }
    runPrimer();
    m_main->reset();
    m_output->reset();
    // The interface base hears "stop-viz" or "clear-client", and the viz collector is
    // reset, here once they exist.
    flushDiagnostics();
}

void CAudioWrapper::flushDiagnostics()
{
    if (m_env)
        m_env->diagnostics().flush();
}

void CAudioWrapper::applyReconfiguration()
{
    if (!m_main)
        return;
    // Cleared first: a change that comes in meanwhile raises it again for the next block.
    m_isReconfigurationNeeded.store(false, std::memory_order_release);
    int32_t inputs = 0, outputs = 0;
    double rate = 44100.0;
    {
        std::lock_guard<std::mutex> guard(m_env->queueLock());
        inputs = m_inputCount;
        outputs = m_outputCount;
        rate = m_env->sampleRate();
    }
    // "update-io-channel-counts" goes to the interface base here once it exists.
    m_rate = rate;
    m_graphOutputs = std::clamp(outputs, 0, kMaxHostChannels);
    // Host channel c enters the graph as channel c of group 0; what the graph has no room
    // for is left out.
    m_graphInputs = std::clamp(inputs, 0, std::min(m_intChannelCount, int32_t(CAudioPort::kMaxChannels)));
    CAudioStream::CChannel records[CAudioPort::kMaxChannels];
    for (int32_t c = 0; c < m_graphInputs; ++c)
        records[c] = CAudioStream::CChannel{c, 0, 0, 0, nullptr};
    m_input.setFormat(rate, records, m_graphInputs);
}

void CAudioWrapper::runPrimer()
{
    if (isReconfigurationNeeded())
        applyReconfiguration();
    const int32_t latency = m_env->latency();
    // Events left over from a block never run are stale: all apply now.
    m_events.prepare(1);
    int32_t length = 1;
    applyHostEvents(0, length);
    m_events.clear();
    exchange(true, 1);
    for (int32_t i = 0; i < m_input.channelCount; ++i) {
        double* buffer = m_pool->take(1);
        if (buffer)
            buffer[0] = 0.0;
        CSampleBufferPool::release(m_input.channels[i].buffer);
        m_input.channels[i].buffer = buffer;
    }
    m_input.blockLength = 1;
    runGraph();
    m_output->port(0).releaseBuffers();
    advanceStream(1);
    freeExchangedChanges();
    if (m_env->latency() != latency)
        onLatencyChanged();
}

bool CAudioWrapper::addHostEvent(const CAudioHostEvent& event) { return m_events.add(event); }

void CAudioWrapper::setSidechainBuffers(void* const* buffers) { m_sidechainBuffers = buffers; }

void CAudioWrapper::flushHostEvents()
{
    m_events.prepare(1);
    int32_t length = 1;
    applyHostEvents(0, length);
    m_events.clear();
}

void CAudioWrapper::processBlock(void* const* inputs, void* const* outputs, int32_t sampleCount)
{
    if (sampleCount <= 0 || !m_main)
        return;
    CScopedDenormalFlush flush;
    if (isReconfigurationNeeded())
        applyReconfiguration();
    const int32_t latency = m_env->latency();
    m_events.prepare(sampleCount);
    std::fill(std::begin(m_written), std::end(m_written), 0);

    int32_t position = 0;
    bool isFirst = true;
    while (position < sampleCount) {
        int32_t length = std::min(sampleCount - position, kSliceLength);
        const bool isApplied = applyHostEvents(position, length);
        if (isFirst || isApplied)
            exchange(isFirst, length);
        isFirst = false;
        feedInputs(inputs, position, length);
        runGraph();
        drainOutputs(outputs, sampleCount);
        m_output->port(0).releaseBuffers();
        padOutputs(outputs, position + length);
        position += length;
        advanceStream(length);
    }

    if (m_env->latency() != latency)
        onLatencyChanged();
    m_events.clear();
    freeExchangedChanges();
}

bool CAudioWrapper::applyHostEvents(int32_t position, int32_t& sliceLength)
{
    bool isApplied = false;
    while (const CAudioHostEvent* event = m_events.next()) {
        if (event->offset > position) {
            sliceLength = std::min(sliceLength, event->offset - position);
            break;
        }
        if (event->kind == CAudioHostEvent::KindMidi)
            onHostMidiEvent(*event);
        else if (event->kind == CAudioHostEvent::KindParam)
            onHostParamEvent(*event);
        m_events.advance();
        isApplied = true;
    }
    return isApplied;
}

void CAudioWrapper::exchange(bool isFirstSlice, int32_t sliceLength)
{
    if (isFirstSlice) {
        std::lock_guard<std::mutex> guard(m_env->queueLock());
        m_env->setSliceEnd(m_env->streamPosition() + double(sliceLength) / m_rate);
        m_env->setUpdateRate(m_env->requestedUpdateRate());
        // The viz collector's pending update is taken here once it exists.
    }
    CAudioParamQueuedChange* list = m_collector->takePendingChanges();
    if (!list)
        return;
    CAudioParamCollector::applyPendingChanges(list);
    CAudioParamQueuedChange* tail = list;
    while (tail->next)
        tail = tail->next;
    tail->next = m_exchanged;
    m_exchanged = list;
}

void CAudioWrapper::freeExchangedChanges()
{
    CAudioParamQueuedChange::freeList(m_exchanged);
    m_exchanged = nullptr;
}

void CAudioWrapper::feedInputs(void* const* inputs, int32_t position, int32_t sliceLength)
{
    for (int32_t i = 0; i < m_input.channelCount; ++i) {
        CAudioStream::CChannel& record = m_input.channels[i];
        double* buffer = m_pool->take(sliceLength);
        if (buffer) {
            const int32_t c = record.channel;
            if (c < m_mainFormat.channelCount)
                CAudioHostBuffers::read(buffer, inputs, m_mainFormat, c, position, sliceLength);
            else
                CAudioHostBuffers::read(buffer, m_sidechainBuffers, m_sidechainFormat, c - m_mainFormat.channelCount,
                                        position, sliceLength);
        }
        CSampleBufferPool::release(record.buffer);
        record.buffer = buffer;
    }
    m_input.blockLength = sliceLength;
}

void CAudioWrapper::runGraph()
{
    m_main->process();
    m_output->process();
}

void CAudioWrapper::drainOutputs(void* const* outputs, int32_t blockLength)
{
    const CAudioPort& port = m_output->port(0);
    const int32_t delivered = m_output->blockLength();
    for (int32_t i = 0; i < port.channelCount; ++i) {
        const int32_t c = keyChannel(port.channels[i].key);
        const double* buffer = port.channels[i].buffer;
        if (!buffer || c >= m_graphOutputs)
            continue;
        const int32_t count = std::min(delivered, blockLength - m_written[c]);
        if (count <= 0)
            continue;
        CAudioHostBuffers::write(outputs, m_isOutputDouble, c, m_written[c], buffer, count);
        m_written[c] += count;
    }
}

void CAudioWrapper::padOutputs(void* const* outputs, int32_t sliceEnd)
{
    for (int32_t c = 0; c < m_graphOutputs; ++c) {
        if (m_written[c] >= sliceEnd)
            continue;
        CAudioHostBuffers::clear(outputs, m_isOutputDouble, c, m_written[c], sliceEnd - m_written[c]);
        m_written[c] = sliceEnd;
    }
}

void CAudioWrapper::advanceStream(int32_t sampleCount)
{
    m_sampleCounter += sampleCount;
    m_env->setStreamPosition(m_env->streamPosition() + double(sampleCount) / m_rate);
}

} // namespace qel
