#pragma once

#include "Audio/CAudioDefaultRouting.h"
#include "Audio/CAudioExtParamHostBridge.h"
#include "Audio/CAudioHostBuffers.h"
#include "Audio/CAudioHostEventList.h"
#include "Audio/CAudioInterfaceDataProvider.h"
#include "Audio/CAudioRoutingInfoProvider.h"
#include "Audio/CAudioStream.h"
#include "Audio/CSampleBufferPool.h"
#include "Core/CCriticalSection.h"
#include "Core/CError.h"
#include "Core/CObject.h"
#include "Core/CString.h"
#include "Core/CUpdateNotifier.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace qel {

class CAudioCCTable;
class CAudioEnv;
class CAudioExtParamList;
class CAudioParam;
class CAudioParamCollector;
class CAudioParamQueuedChange;
class CAudioParamRegistry;
class CAudioProcessBase;
class CInputStream;
class CModOutput;
class COutputStream;

// The shell a plug-in format binding derives from: it owns an instance's object tree,
// builds its audio graph, feeds it with the host's blocks in slices, answers latency and
// tail, saves and restores the state, and mirrors host facts into parameters so that the
// rest of the system sees them as ordinary values. It knows no host API: a binding calls
// these operations and implements the pure virtuals.
//
// Threads: set-up, state and queries on the host's main thread; processBlock and the
// calls the binding makes around it (events, formats, offline, tempo) on the host's audio
// thread; edits from the UI thread. The environment's lock guards channel counts, rate,
// running state and the exchange of parameter changes, and is held only to swap values.
// After the first block of a set-up the audio thread neither allocates nor waits for a
// lock held elsewhere for long.
class CAudioWrapper : public CAudioExtParamHostBridge,
                      public CAudioInterfaceDataProvider,
                      public CAudioRoutingInfoProvider
{
public:
    // Parameter changes reach the graph at most this many samples late, and buffers of the
    // graph stay in small size classes.
    static constexpr int32_t kSliceLength = 512;
    static constexpr int32_t kMaxHostEvents = CAudioHostEventList::kCapacity;
    // Per direction; what the graph can't take reads as silence.
    static constexpr int32_t kMaxHostChannels = 32;

    CAudioWrapper();
    ~CAudioWrapper() override;
    CAudioWrapper(const CAudioWrapper&) = delete;
    CAudioWrapper& operator=(const CAudioWrapper&) = delete;

    // ---- set-up, host main thread
    // Builds the instance tree, its plugin object and the graph.
    virtual CErrorPtr init();
    // Starts the collector and runs one start/stop cycle; the instance is then fully started.
    CErrorPtr finishInit();
    // Both idempotent.
    void startProcessing();
    void stopProcessing();
    void setSampleRate(double rate);
    // Host main or audio thread. `isInterleaved`: the bus is one buffer of frames.
    void setChannelCounts(int32_t mainCount, bool isDouble, bool isInterleaved, int32_t sidechainCount,
                          bool sidechainIsDouble, bool sidechainIsInterleaved);
    // Host main or audio thread; the output is never interleaved.
    void setOutputCount(int32_t count, bool isDouble);
    // Host main or audio thread.
    void setOffline(bool offline);
    // Host audio thread; only with `use-host-bpm`.
    void setHostBpm(double bpm);
    void setTrackName(const CString& name);
    // Under the wrapper's lock; the binding calls it when the host arranges buses, then
    // updateRouting(true, "", "").
    void setInputLabels(const std::vector<CString>& mainLabels, const std::vector<CString>& sidechainLabels);
    // The default routing from the host's channels; only with `use-routing` and its
    // parameters.
    void updateRouting(bool fromHost, const CString& undoLabel1, const CString& undoLabel2);
    // The master registry's current program as one `aprs` block.
    CErrorPtr saveState(COutputStream& out);
    // Reads an `aprs` block into the current program. A block that is damaged, of another
    // kind or of another preset family leaves the instance exactly as it was.
    CErrorPtr loadState(CInputStream& in);
    // The latency in samples; the first query after a change marks it as reported.
    int32_t queryLatency();
    // round(tail seconds * rate), half away from zero; 0 without a tail.
    int32_t queryTailSamples() const;
    // Not the audio thread: writes to the log what the audio thread noticed. The host's
    // run loop calls it a few times a second; stopping the audio calls it too.
    void flushDiagnostics();

    // ---- audio thread
    // Fixed room, no allocation; false when full.
    bool addHostEvent(const CAudioHostEvent& event);
    // One pointer per sidechain channel for the next block (with an interleaved sidechain
    // the first holds all); null for none.
    void setSidechainBuffers(void* const* buffers);
    // `inputs` one pointer per main channel (interleaved: the first holds all), `outputs`
    // one per output channel. A null pointer reads as silence or is skipped. A block of 0
    // samples does nothing; its events wait for the next block. Events are applied at their
    // offsets, which end a slice.
    void processBlock(void* const* inputs, void* const* outputs, int32_t sampleCount);
    // Applies the host events without audio, as a host's call with no samples asks.
    void flushHostEvents();
    // After a change of rate or channel counts: the graph's input takes the new format.
    // processBlock does this by itself when the binding hasn't.
    bool isReconfigurationNeeded() const { return m_isReconfigurationNeeded.load(std::memory_order_acquire); }
    void applyReconfiguration();

    // ---- facts the binding reads
    CObject* pluginObject() const { return m_plugin; }
    CObject* projectObject() const { return m_project; }
    CAudioExtParamList* extParamList() const { return m_extParamList; }
    CAudioParamCollector* paramCollector() const { return m_collector; }
    CAudioParamRegistry* paramRegistry() const { return m_registry; }
    CAudioEnv* audioEnv() const { return m_env; }
    CAudioProcessBase* mainProcess() const { return m_main.get(); }
    int32_t intChannelCount() const { return m_intChannelCount; }
    int32_t groupCount() const { return m_groupCount; }
    bool useSidechain() const { return m_useSidechain; }
    bool isSymmetricIO() const { return m_isSymmetricIO; }
    bool useHostBpm() const { return m_useHostBpm; }
    bool useHostRecording() const { return m_useHostRecording; }
    bool isVizAlwaysActive() const { return m_isVizAlwaysActive; }
    bool isForce2Channels() const { return m_isForce2Channels; }
    const CString& pluginName() const { return m_pluginName; }
    const CString& vendorName() const { return m_vendorName; }
    // First character in the top byte.
    uint32_t pluginCode() const { return m_pluginCode; }
    int32_t versionMajor() const { return m_version[0]; }
    int32_t versionMinor() const { return m_version[1]; }
    int32_t versionBuild() const { return m_version[2]; }
    bool hasTail() const { return m_hasTail; }
    double tailSeconds() const { return m_tailSeconds; }
    bool isOffline() const { return m_isOffline; }
    // The last value written to `host-oversampling-mode`.
    int32_t oversamplingMode() const { return m_oversamplingMode; }
    bool isFullyStarted() const { return m_isFullyStarted.load(std::memory_order_acquire); }
    CCriticalSection& wrapperLock() { return m_lock; }
    // The editor window: its scale and size in pixels, and the smallest size (0: none).
    double windowScale() const { return m_winScale; }
    int32_t windowWidth() const { return m_winWidth; }
    int32_t windowHeight() const { return m_winHeight; }
    int32_t minWindowWidth() const { return m_minWinWidth; }
    int32_t minWindowHeight() const { return m_minWinHeight; }
    bool useWindowResizing() const { return m_useWindowResizing; }

    // Program slots: the presets of the master registry's session bank (at least one).
    // A name is the preset's name without its family. Loading the current slot changes
    // nothing; `source` is told apart by the program listener: a change the wrapper asked
    // for itself doesn't come back to the binding as onProgramChanged.
    int32_t programSlotCount() const;
    int32_t currentProgram() const;
    void programName(int32_t slot, CString& out) const;
    CErrorPtr loadProgram(int32_t slot, const void* source);

    // ---- CAudioInterfaceDataProvider
    int32_t getInternalChannelCount() override;
    int32_t getGroupCount() override;
    int32_t getInputCount() override;
    int32_t getOutputCount() override;
    int32_t getSidechainCount() override;
    double getSampleRate() override;
    void beginParamEdit(CAudioParam* param, int32_t group, int32_t element) override;
    void endParamEdit(CAudioParam* param, int32_t group, int32_t element) override;
    void importChannelLabels() override;

    // ---- CAudioRoutingInfoProvider
    void updateRouting(CAudioParamUpdateContext& context) override;

protected:
    // ---- what a binding implements
    // onExtParamChanged(index, normValue) comes from CAudioExtParamHostBridge.
    virtual void onProgramChanged() = 0;
    virtual void beginEdit(int32_t index) = 0;
    virtual void endEdit(int32_t index) = 0;
    // Base: marks the latency as changed. Called where the change shows: on the audio
    // thread, or on the main thread around a start or stop. A binding that tells the host
    // must do so from the host's main thread.
    virtual void onLatencyChanged();
    virtual void onHostMidiEvent(const CAudioHostEvent&) {}
    // Base: writes the value to the host-visible parameter with that index.
    virtual void onHostParamEvent(const CAudioHostEvent& event);

private:
    // Tells the binding of a new current program or a changed program list, unless the
    // wrapper asked for the change itself.
    class CProgramChangeListener : public COwnedUpdateListener<CAudioWrapper>
    {
    public:
        using COwnedUpdateListener<CAudioWrapper>::COwnedUpdateListener;
        ~CProgramChangeListener() override { setNotifier(nullptr, 0); }
        void onUpdate(const CUpdateMessage* message) override;
    };

    // Re-reads the window size when `main-window-size` changes, with resizing on.
    class CWinSizeParamListener : public COwnedUpdateListener<CAudioWrapper>
    {
    public:
        using COwnedUpdateListener<CAudioWrapper>::COwnedUpdateListener;
        ~CWinSizeParamListener() override { setNotifier(nullptr, 0); }
        void onUpdate(const CUpdateMessage* message) override;
    };

    // The parameters the wrapper writes; each may lack a definition, and then ignores writes.
    struct CHostParams
    {
        CAudioParam* oversamplingMode = nullptr;
        CAudioParam* offline = nullptr;
        CAudioParam* latencyChange = nullptr;
        CAudioParam* trackName = nullptr;
        CAudioParam* bypass = nullptr;
        CAudioParam* bpm = nullptr;
        CAudioParam* recording = nullptr;
        CAudioParam* windowSize = nullptr;
        CAudioDefaultRouting::CParams routing;
    };

    // init's steps.
    CErrorPtr buildTree();
    CErrorPtr readProjectSettings();
    CErrorPtr findPluginObjects();
    void takeHostParams();
    CErrorPtr buildGraph();
    void registerExtParams();
    void readStoredSettings();
    void computeWindowMetrics();
    void readWindowSize();
    static CErrorPtr acquirePluginCode(const CString& text, uint32_t& out);
    static CErrorPtr parseVersion(const CString& text, int32_t (&out)[3]);

    // ---- the audio path
    void runPrimer();
    // Applies the events at `position`; an event further on shortens the slice to end there.
    bool applyHostEvents(int32_t position, int32_t& sliceLength);
    // Hands the changes made since the last exchange to the audio side.
    void exchange(bool isFirstSlice, int32_t sliceLength);
    void feedInputs(void* const* inputs, int32_t position, int32_t sliceLength);
    void runGraph();
    // Copies the output process's result behind what each host channel has got so far.
    void drainOutputs(void* const* outputs, int32_t blockLength);
    // Silence behind what the graph delivered, up to `sliceEnd`.
    void padOutputs(void* const* outputs, int32_t sliceEnd);
    void freeExchangedChanges();
    void advanceStream(int32_t sampleCount);

    void writeParam(CAudioParam* param, double value);
    void editGesture(CAudioParam* param, int32_t group, int32_t element, bool isBegin);

    // ---- tree and graph
    CObjectPtr m_root;
    CObject* m_plugin = nullptr;
    CObject* m_project = nullptr;
    CObject* m_sharedAudio = nullptr;
    CAudioExtParamList* m_extParamList = nullptr;
    CAudioEnv* m_env = nullptr;
    CAudioParamCollector* m_collector = nullptr;
    CAudioCCTable* m_ccTable = nullptr;
    CAudioParamRegistry* m_registry = nullptr;
    // Declared before the processes: every buffer they hold goes back before it goes.
    std::unique_ptr<CSampleBufferPool> m_pool;
    CAudioStream m_input;
    CAudioStream m_link;
    std::unique_ptr<CAudioProcessBase> m_main;
    std::unique_ptr<CAudioProcessBase> m_outputProcess;
    CModOutput* m_output = nullptr;
    CHostParams m_params;
    std::unique_ptr<CAudioDefaultRouting> m_defaultRouting;
    // By parameter, then by (group << 8) | element: the host's index.
    std::map<CAudioParam*, std::map<int32_t, int32_t>> m_editMap;
    std::unique_ptr<CWinSizeParamListener> m_winSizeListener;
    CProgramChangeListener m_programListener{this};

    // ---- project settings
    CString m_pluginName;
    CString m_vendorName;
    int32_t m_intChannelCount = 0;
    int32_t m_groupCount = 0;
    uint32_t m_pluginCode = 0;
    int32_t m_version[3] = {};
    bool m_hasTail = false;
    double m_tailSeconds = 0.0;
    int32_t m_autoOversamplingRtMode = 0;
    bool m_isVizAlwaysActive = false;
    bool m_isSymmetricIO = false;
    bool m_useHostBpm = false;
    bool m_useHostRecording = false;
    bool m_useSidechain = false;
    bool m_useRouting = false;
    bool m_useMidSide = false;
    bool m_useWindowResizing = false;

    // ---- stored settings and window
    int32_t m_offlineOversamplingLevel = 1;
    bool m_isForce2Channels = false;
    double m_winScale = 1.0;
    int32_t m_winWidth = 0;
    int32_t m_winHeight = 0;
    int32_t m_minWinWidth = 0;
    int32_t m_minWinHeight = 0;

    // ---- host facts
    // Input channels are main plus sidechain; guarded by the environment's lock.
    int32_t m_inputCount = 0;
    int32_t m_outputCount = 0;
    int32_t m_sidechainCount = 0;
    CAudioHostFormat m_mainFormat;
    CAudioHostFormat m_sidechainFormat;
    bool m_isOutputDouble = false;
    std::atomic<bool> m_isReconfigurationNeeded{false};
    void* const* m_sidechainBuffers = nullptr;
    std::vector<CString> m_mainLabels;
    std::vector<CString> m_sidechainLabels;
    bool m_hasHostLabels = false;
    double m_hostBpm = -1.0;
    CString m_trackName;
    bool m_isOffline = false;
    int32_t m_oversamplingMode = -1;
    std::atomic<bool> m_isLatencyReported{true};
    std::atomic<bool> m_isFullyStarted{false};

    // ---- the audio thread's own
    CAudioHostEventList m_events;
    // The rate and channels of the graph's input as the audio thread last set them.
    double m_rate = 44100.0;
    int32_t m_graphInputs = 0;
    int32_t m_graphOutputs = 0;
    // Per host output channel: samples written in the current block.
    int32_t m_written[kMaxHostChannels] = {};
    // Changes taken in this block, freed at its end.
    CAudioParamQueuedChange* m_exchanged = nullptr;
    int64_t m_sampleCounter = 0;

    CCriticalSection m_lock{4000};
};

} // namespace qel
