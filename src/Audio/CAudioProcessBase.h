#pragma once

#include "Audio/CAudioDiagnostics.h"
#include "Audio/CAudioPort.h"
#include "Audio/CAudioStream.h"
#include "Audio/CSilenceNoise.h"
#include "Core/CCheckedObject.h"
#include "Core/CError.h"
#include "Core/CString.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CAudioEnv;
class CAudioParam;
class CAudioParamAllocDef;
class CAudioParamCollector;
struct CAudioParamListener;
class CAudioProcessDefBase;
class CSampleBufferPool;

// A node of the running audio graph: its input ports, the streams it feeds, the
// parameters it claims, and the pull stage that every process runs at the start of its
// block (ports refreshed when a stream's format changed, parameters read when one changed,
// latencies aligned by delay lines, several sources of a channel mixed).
//
// Threads. Everything that can allocate or take a lock happens at set-up, on the thread
// that builds the graph: construction, init, parameter binding, reserving room in the
// lists. The audio thread then runs reset, update, process and the wiring calls, which stay
// within the room reserved at set-up; the only allocations left there are the first ones
// of a new set-up (sample buffers and delay lines for a channel layout never seen before).
//
// Formats travel down the graph as the producers run: a producer publishes its channel
// table into its output streams, each change bumps the consumer's dirty counter, and the
// consumer refreshes its ports at its next pull. Buffers travel the same way, one
// reference per record, so a channel that nobody changes moves down the graph for free.
class CAudioProcessBase : public CCheckedObject
{
public:
    // Channel keys address two ports of 16 channels, so no process has more input ports.
    static constexpr int32_t kPortCount = 2;
    // One bit per group in a change mask.
    static constexpr int32_t kMaxGroups = 32;
    static constexpr int32_t kMaxTimers = 32;

    // A parameter a process claims, by the `index` of its param-alloc row. The collector
    // stores the last changed group into a mask word rather than adding to it, so each
    // group gets a listener and a word of its own: a preset load that touches every group
    // in one block still reaches every group's modules.
    struct CParamBinding
    {
        int32_t index = -1;
        CAudioParam* param = nullptr;
        const CAudioParamAllocDef* row = nullptr; // null for a bypass state's parameter
        bool isSmooth = false;
        bool useAllGroups = false;
        int32_t listenerCount = 0;
        uint32_t masks[kMaxGroups] = {};
        CAudioParamListener* listeners[kMaxGroups] = {};
        // The groups that changed, gathered from the words before update and cleared after.
        uint32_t changed = 0;

        bool hasChanged(int32_t group) const { return (changed & (1u << (uint32_t(group) % 32))) != 0; }
    };

    CAudioProcessBase();
    ~CAudioProcessBase() override;
    CAudioProcessBase(const CAudioProcessBase&) = delete;
    CAudioProcessBase& operator=(const CAudioProcessBase&) = delete;

    // Set-up, by the definition's factory, before init. `def` may be null for a process
    // the engine makes for itself (the output side of a composite).
    void setup(const CAudioProcessDefBase* def, CAudioProcessBase* parent, const CString& fullName, CAudioEnv* env,
               int32_t group, int32_t element, CSampleBufferPool* pool);

    // Set-up thread: binds the parameters of the definition's param-alloc rows; composites
    // make their children and their streams here.
    virtual CErrorPtr init();
    // Audio thread (or audio stopped): clears state, re-arms the delay lines.
    virtual void reset();
    // Audio thread, from the pull stage, when a parameter changed, a timer ran out or the
    // ports were reconfigured.
    virtual void update();
    // Audio thread: one block.
    virtual void process();
    // Audio thread: lets go of every buffer held and forgets the channel tables, so that a
    // process that comes back starts from nothing.
    virtual void release();

    // ---- wiring. At set-up, or on the audio thread within the room reserved at set-up.
    void attachInput(CAudioStream* stream, int32_t port);
    void detachInput(CAudioStream* stream, int32_t port);
    // The stream's srcPort says which of this process's output ports it takes.
    virtual void attachOutput(CAudioStream* stream);
    virtual void detachOutput(CAudioStream* stream);
    // A container's own input handed on to one of its children.
    void attachFeed(int32_t port, CAudioProcessBase* process, int32_t processPort, CAudioStream* stream);
    void detachFeed(int32_t port, CAudioStream* stream);
    // Set-up: room for that many more of each.
    void reserveInputs(int32_t port, int32_t sources, int32_t feeds);
    virtual void reserveOutputs(int32_t count);

    // A child leaves the running graph, or comes back with cleared state.
    void deactivate();
    void activate();
    // Audio thread, when the process's bypass state is about to take it out of the path:
    // the seconds it needs to fade to its own input first, which its parent waits before
    // taking it out; 0 lets it go at once, as a process that can't do so answers.
    virtual double fadeOutToInput() { return 0.0; }
    // Audio thread, when the process has come into the path because its bypass state ended
    // (or before it could leave): it starts from its input and fades to its own output, if
    // it can.
    virtual void fadeInFromInput() {}

    // Any thread, the audio thread included: hands a line for the log, about this process,
    // to the instance's diagnostics (which a thread that may log empties). Without an
    // environment there is nobody to tell.
    void noteDiagnostic(CAudioDiagnostics::Teller teller, int32_t integer = 0, double real = 0.0) const;

    // ---- state, for the owner and for tests
    const CString& fullName() const { return m_fullName; }
    const CAudioProcessDefBase* def() const { return m_def; }
    CAudioProcessBase* parent() const { return m_parent; }
    CAudioEnv* env() const { return m_env; }
    CSampleBufferPool* pool() const { return m_pool; }
    int32_t group() const { return m_group; }
    int32_t element() const { return m_element; }
    bool isLeaf() const { return m_isLeaf; }
    CAudioPort& port(int32_t id) { return m_ports[id]; }
    const CAudioPort& port(int32_t id) const { return m_ports[id]; }
    double inputRate() const { return m_inputRate; }
    double outputRate() const { return m_outputRate; }
    int32_t latency() const { return m_latency; }
    int32_t smallestLatency() const { return m_minLatency; }
    int32_t blockLength() const { return m_blockLength; }
    const std::vector<CAudioStream*>& outputs() const { return m_outputs; }
    int32_t outputChannelCount() const { return m_outCount; }
    const CAudioStream::CChannel& outputChannel(int32_t index) const { return m_outTable[index]; }
    // Null when the definition has no row of that index.
    const CParamBinding* binding(int32_t index) const;

protected:
    // Runs steps 1 to 6 of every block: block length, port refresh, update, delays, mixing,
    // and for a container the hand-over to its children.
    void pull();
    // True when channel tables, latency or rate changed.
    bool refreshPorts();
    void releasePortBuffers();

    // The channels this process hands on (buffers ignored), kept and published to every
    // output stream; each stream takes those of its srcPort, re-keyed to its destPort.
    void setOutputFormat(double rate, const CAudioStream::CChannel* records, int32_t count);
    // Every input channel handed on as it came, at `rate` with `latency`: the output format
    // of a process that changes neither the channels nor their order.
    void passInputFormat(double rate, int32_t latency);
    void publishOutputs();
    // One buffer per output channel, in table order, each holding one reference that is
    // handed on (or dropped when no stream takes the channel).
    void handOutputs(double* const* buffers);

    // Seconds left before `flag` is set and update runs; false when no slot is free.
    bool addTimer(double seconds, uint8_t* flag);
    void clearTimers();
    int32_t timerCount() const { return m_timerCount; }

    // A sample buffer of this block's length filled with silence, or null without memory.
    double* takeSilence();

    // Set-up: `binding` listens to `param` for one group, or with group -1 for each group
    // on a word of its own (the channels of a leaf come in any group). Changes raise the
    // pending flag.
    void bindParam(CParamBinding& binding, CAudioParam* param, int32_t group, int32_t element);
    static void unbindParam(CParamBinding& binding);
    CAudioParamCollector* collector() const;

    // Before update the change words of every binding become its `changed` mask.
    void gatherChanges();

    bool m_isLeaf = true;
    CString m_fullName;
    const CAudioProcessDefBase* m_def = nullptr;
    CAudioProcessBase* m_parent = nullptr;
    CAudioEnv* m_env = nullptr;
    CSampleBufferPool* m_pool = nullptr;
    int32_t m_group = 0;
    int32_t m_element = 0;
    CAudioPort m_ports[kPortCount];
    double m_inputRate = 1.0;
    double m_outputRate = 44100.0;
    int32_t m_latency = 0;
    int32_t m_minLatency = 0;
    uint8_t m_reconfigured = 0;
    // Set together with m_reconfigured when the input rate moved: modules reset then.
    uint8_t m_rateChanged = 0;
    int32_t m_blockLength = 0;
    int32_t m_dirty = 1;
    uint8_t m_allChanged = 1;
    // Written by the collector's listeners, read at the block boundary.
    uint8_t m_pending = 0;
    // An output stream arrived that has not been given the format yet.
    bool m_outputsChanged = false;
    std::vector<std::unique_ptr<CParamBinding>> m_bindings;
    std::vector<CAudioStream*> m_outputs;
    CAudioStream::CChannel m_outTable[CAudioStream::kMaxChannels];
    int32_t m_outCount = 0;
    double m_outRate = 0.0;
    CSilenceNoise m_silence;

private:
    struct CTimer
    {
        double secondsLeft = 0.0;
        uint8_t* flag = nullptr;
    };

    void runTimers();
    void gatherPort(CAudioPort& port);
    void publishFeed(const CAudioPort& port, const CAudioPort::CFeed& feed);
    void forwardFeeds();
    void fold(CAudioPort::CChannel& channel, double** sources, int32_t count, bool isFirst);

    int32_t m_lastBlockLength = 0;
    CTimer m_timers[kMaxTimers];
    int32_t m_timerCount = 0;
    CAudioPort::CChannel* m_mixList = nullptr;
};

} // namespace qel
