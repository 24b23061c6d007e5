#pragma once

// What the graph tests share: a leaf of fixed latency made for them (tag test:delay), and
// a fixture that plays the wrapper: the graphs of TestProcessGraphs.xml built under
// "plugin.", fed one input stream and read at a modOutput behind them.

#include "AudioParamTestSupport.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Audio/CAudioProcess.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/CAudioProcessTerminal.h"
#include "Audio/CSampleBufferPool.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace qel::test {

// Delays its channel by `latency` samples (the attribute, or slot 0 when the definition
// binds one) and reports that latency: a stand-in for a linear-phase filter. Its memory
// starts at zero and is cleared by reset, so a fresh module is visible in its output.
class CTestDelayModule : public CAudioModule
{
public:
    static constexpr int32_t kCapacity = 8192;

    CTestDelayModule(int32_t slots = 0, int32_t fixedLatency = 0) : CAudioModule(slots), m_fixed(fixedLatency) {}

    CErrorPtr init() override
    {
        m_ring.assign(kCapacity, 0.0);
        return nullptr;
    }
    void reset() override
    {
        std::fill(m_ring.begin(), m_ring.end(), 0.0);
        m_pos = 0;
    }
    void update() override
    {
        m_latency = std::clamp(int32_t(std::lround(paramValue(0, m_fixed))), 0, kCapacity - 1);
    }
    void process(int32_t n)
    {
        double* out = takeBuffer();
        const double* in = input(0);
        for (int32_t i = 0; i < n; ++i) {
            m_ring[size_t(m_pos)] = in[i];
            out[i] = m_ring[size_t((m_pos - m_latency + kCapacity) % kCapacity)];
            m_pos = (m_pos + 1) % kCapacity;
        }
        setOutput(0, out);
    }

private:
    int32_t m_fixed;
    std::vector<double> m_ring;
    int32_t m_pos = 0;
};

class CTestDelay : public CAudioProcessTerminal<CTestDelayModule>
{
protected:
    CAudioModule* createModule() override
    {
        return new CTestDelayModule(m_def->paramAllocs().count(0) ? 1 : 0, m_def->getAttrInt(CString("latency")));
    }
};

class CTestDelayDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new CTestDelay(); }
};

inline const CCreatorRow kGraphTestCreatorRows[] = {
    creatorRow<CTestDelayDef>("test:delay"),
    {nullptr, nullptr, nullptr},
};

using Signal = std::vector<std::vector<double>>; // per channel

// Lines the log receives while it is installed.
class LogCapture : public ILogSink
{
public:
    LogCapture() { m_previous = CLog::setSink(this); }
    ~LogCapture() override { CLog::setSink(m_previous); }
    void logText(const char* text, bool) override { lines.emplace_back(text); }
    bool has(const std::string& line) const { return std::find(lines.begin(), lines.end(), line) != lines.end(); }

    std::vector<std::string> lines;

private:
    ILogSink* m_previous = nullptr;
};

// A graph and what the wrapper would hold around it. The pool outlives the processes.
struct Graph
{
    CSampleBufferPool pool;
    CAudioStream input;
    CAudioStream link;
    std::unique_ptr<CAudioProcessBase> root;
    std::unique_ptr<CAudioProcessBase> output;
    CAudioParamCollector* collector = nullptr;
    std::vector<int32_t> groups;
    // The buffers the last block went in with.
    std::vector<const double*> lastInput;

    ~Graph()
    {
        output.reset();
        root.reset();
    }

    CAudioProcess& composite() { return static_cast<CAudioProcess&>(*root); }
    template <class T>
    T& child(const char* name)
    {
        auto* found = dynamic_cast<T*>(composite().findChild(CString(name)));
        EXPECT_NE(found, nullptr) << name;
        return *found;
    }

    void setFormat(double rate, const std::vector<int32_t>& channelGroups)
    {
        groups = channelGroups;
        std::vector<CAudioStream::CChannel> records;
        for (size_t c = 0; c < groups.size(); ++c)
            records.push_back({int32_t(c), groups[c], 0, 0, nullptr});
        input.setFormat(rate, records.data(), int32_t(records.size()));
    }

    // Pending changes reach the audio side, as at the start of the wrapper's block.
    void applyChanges()
    {
        CAudioParamQueuedChange* list = collector->takePendingChanges();
        CAudioParamCollector::applyPendingChanges(list);
        CAudioParamQueuedChange::freeList(list);
    }

    // Samples [offset, offset + n) of `in` go in, each channel in a fresh pool buffer, as the
    // wrapper hands in the host's block. Allocates nothing once the pool holds enough.
    void feed(const Signal& in, size_t offset, int32_t n)
    {
        for (int32_t c = 0; c < input.channelCount; ++c) {
            double* buffer = pool.take(n);
            std::copy(in[size_t(c)].begin() + std::ptrdiff_t(offset), in[size_t(c)].begin() + std::ptrdiff_t(offset) + n, buffer);
            CSampleBufferPool::release(input.channels[c].buffer);
            input.channels[c].buffer = buffer;
        }
        input.blockLength = n;
    }

    // Whether every sample of the output's last block, n long, is below `limit` in size.
    bool isOutputBelow(double limit, int32_t n) const
    {
        const CAudioPort& port = output->port(0);
        for (int32_t c = 0; c < port.channelCount; ++c)
            for (int32_t i = 0; i < n && port.channels[c].buffer; ++i)
                if (!(std::fabs(port.channels[c].buffer[i]) < limit))
                    return false;
        return true;
    }

    // The wrapper's block: pending changes reach the audio side, the input is handed in,
    // the graph runs. Returns the output buffers by channel (still held by modOutput).
    std::vector<const double*> block(const Signal& in, size_t offset, int32_t n)
    {
        applyChanges();
        feed(in, offset, n);
        lastInput.clear();
        for (int32_t c = 0; c < input.channelCount; ++c)
            lastInput.push_back(input.channels[c].buffer);
        root->process();
        output->process();
        std::vector<const double*> out(groups.size(), nullptr);
        const CAudioPort& port = output->port(0);
        for (int32_t i = 0; i < port.channelCount; ++i)
            if (size_t(keyChannel(port.channels[i].key)) < out.size())
                out[size_t(keyChannel(port.channels[i].key))] = port.channels[i].buffer;
        return out;
    }

    // Runs `in` through in blocks of `blockLength` and returns everything that came out;
    // a channel that delivered no buffer reads as NaN.
    Signal run(const Signal& in, int32_t blockLength, size_t from = 0, size_t to = SIZE_MAX)
    {
        to = std::min(to, in[0].size());
        Signal out(in.size());
        for (size_t at = from; at < to;) {
            const auto n = int32_t(std::min<size_t>(size_t(blockLength), to - at));
            const std::vector<const double*> buffers = block(in, at, n);
            for (size_t c = 0; c < in.size(); ++c) {
                for (int32_t i = 0; i < n; ++i)
                    out[c].push_back(buffers[c] ? buffers[c][i] : std::numeric_limits<double>::quiet_NaN());
            }
            at += size_t(n);
        }
        return out;
    }
};

class GraphFixture : public ::testing::Test
{
protected:
    explicit GraphFixture(const CResourceRow* definitions, const char* resourceName = "TestProcessGraphs.xml")
        : m_definitions(definitions), m_resourceName(resourceName)
    {
    }

    void SetUp() override
    {
        ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows, kGraphTestCreatorRows}, m_definitions,
                                           CString(m_resourceName)));
        ASSERT_FALSE(CApplication::initRootObject(m_root, CString()));
        CObject* made = nullptr;
        ASSERT_FALSE(m_root->createChild(made, CString("audio:audio-env"), CString("env"), false));
        m_env = dynamic_cast<CAudioEnv*>(made);
        CAttrMap attrs;
        attrs[CString("env")].setString(CString("env"));
        ASSERT_FALSE(m_root->createChild(made, CString("audio:param-collector"), CString("params"), false, nullptr, &attrs));
        m_collector = dynamic_cast<CAudioParamCollector*>(made);
        ASSERT_TRUE(m_env && m_collector);
        m_env->setParamCollector(m_collector);
    }

    void TearDown() override
    {
        m_graph.reset();
        m_root.reset();
        CApplication::finalize();
    }

    CErrorPtr makeProcess(std::unique_ptr<CAudioProcessBase>& out, const char* defPath, const char* fullName,
                          CSampleBufferPool& pool)
    {
        CAudioProcessDefBase* def = nullptr;
        QEL_RETURN_IF_ERROR(CApplication::sharedRoot()->findObjectChecked(def, CString(defPath)), CString());
        CAudioProcessBase* made = nullptr;
        QEL_RETURN_IF_ERROR(def->createProcess(made, nullptr, CString(fullName), m_env, 0, 0, &pool, false, false), CString());
        out.reset(made);
        return nullptr;
    }

    // The graph `name` of the definition as plugin.<name> (or as `fullName`), wired to
    // plugin.modOutput.
    Graph& build(const char* name, std::vector<int32_t> groups = {0}, double rate = 44100.0,
                 const char* rootName = nullptr)
    {
        m_graph = std::make_unique<Graph>();
        Graph& g = *m_graph;
        g.collector = m_collector;
        const std::string defPath = std::string("audio.") + name;
        const std::string fullName = rootName ? std::string(rootName) : std::string("plugin.") + name;
        CErrorPtr error = makeProcess(g.root, defPath.c_str(), fullName.c_str(), g.pool);
        EXPECT_FALSE(error) << (error ? error->text().toUtf8() : std::string());
        error = makeProcess(g.output, "audio.modOutput", "plugin.modOutput", g.pool);
        EXPECT_FALSE(error) << (error ? error->text().toUtf8() : std::string());
        if (!g.root || !g.output)
            return g;
        g.root->attachInput(&g.input, 0);
        g.link.srcPort = 0;
        g.root->attachOutput(&g.link);
        g.output->attachInput(&g.link, 0);
        g.setFormat(rate, groups);
        return g;
    }

    // Writes a parameter as a UI or the host would; `param` is relative to "plugin.".
    void set(const char* param, double value, int32_t group = 0)
    {
        m_collector->getParam(CString("plugin.").append(param))->setValue(value, group, nullptr);
    }

    const CResourceRow* m_definitions;
    const char* m_resourceName;
    CObjectPtr m_root;
    CAudioEnv* m_env = nullptr;
    CAudioParamCollector* m_collector = nullptr;
    std::unique_ptr<Graph> m_graph;
};

// A channel per group, each a tone of its own frequency.
inline Signal tones(size_t channels, size_t length, double rate = 44100.0)
{
    Signal s(channels, std::vector<double>(length));
    for (size_t c = 0; c < channels; ++c)
        for (size_t i = 0; i < length; ++i)
            s[c][i] = std::sin(2.0 * 3.141592653589793 * (220.0 * double(c + 1)) * double(i) / rate);
    return s;
}

inline Signal constant(size_t channels, size_t length, double value)
{
    return Signal(channels, std::vector<double>(length, value));
}

} // namespace qel::test
