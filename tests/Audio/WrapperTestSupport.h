#pragma once

// What the wrapper tests share: a wrapper that records what it tells its binding, a
// process that records the slices it runs (tag test:recorder), an application started on
// the product's definition or on one of the small test instances, and a host that feeds
// blocks of 32- or 64-bit samples and collects the output.

#include "AudioParamTestSupport.h"
#include "GraphTestSupport.h"

#include "Audio/CAudioEnv.h"
#include "Audio/CAudioExtParam.h"
#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioProcess.h"
#include "Audio/CAudioWrapper.h"
#include "Audio/Processes/CModNode.h"
#include "Core/CApplication.h"
#include "Core/CByteArray.h"
#include "Core/CMemoryReader.h"
#include "Core/CWriteSeqBuffer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace qel {
extern const CResourceRow kProductResourceRows[];
}

namespace qel::test {

// Hands its input on unchanged and notes the length of every block it runs.
class CTestRecorder : public CModNode
{
public:
    CTestRecorder() { lengths.reserve(1 << 16); }
    void process() override
    {
        CModNode::process();
        if (lengths.size() < lengths.capacity())
            lengths.push_back(m_blockLength);
    }
    std::vector<int32_t> lengths;
};

class CTestRecorderDef : public CAudioProcessDefBase
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }

protected:
    CAudioProcessBase* newProcess() const override { return new CTestRecorder(); }
};

inline const CCreatorRow kWrapperTestCreatorRows[] = {
    creatorRow<CTestRecorderDef>("test:recorder"),
    {nullptr, nullptr, nullptr},
};

// What a binding would pass on to its host, kept for the tests to look at.
class TestWrapper : public CAudioWrapper
{
public:
    struct ExtChange
    {
        int index;
        double value;
    };

    void onExtParamChanged(int index, double normValue) override { extChanges.push_back({index, normValue}); }
    void onProgramChanged() override { ++programChanges; }
    void beginEdit(int32_t index) override { begins.push_back(index); }
    void endEdit(int32_t index) override { ends.push_back(index); }
    void onLatencyChanged() override
    {
        ++latencyChanges;
        CAudioWrapper::onLatencyChanged();
    }
    void onHostMidiEvent(const CAudioHostEvent& event) override { midi.push_back(event); }

    // ---- reading the instance
    CAudioParam* param(const char* name) const { return paramCollector()->getParam(CString(name)); }
    double value(const char* name, int32_t group = 0, int32_t element = 0) const
    {
        CAudioParam* p = param(name);
        CLockGuard guard(p->lock());
        return p->values().getElementValue(group, element, 0, std::numeric_limits<double>::quiet_NaN());
    }
    void set(const char* name, double v, int32_t group = 0) { param(name)->setValue(v, group, nullptr); }
    CAudioExtParam* ext(int index) const { return extParamList()->at(index); }
    template <class T>
    T* child(const char* name) const
    {
        auto* composite = dynamic_cast<CAudioProcess*>(mainProcess());
        return composite ? dynamic_cast<T*>(composite->findChild(CString(name))) : nullptr;
    }
    std::vector<int32_t>& sliceLengths() { return child<CTestRecorder>("recorder")->lengths; }

    std::vector<ExtChange> extChanges;
    std::vector<int32_t> begins;
    std::vector<int32_t> ends;
    std::vector<CAudioHostEvent> midi;
    int programChanges = 0;
    int latencyChanges = 0;
};

inline std::string errorLine(const CErrorPtr& error)
{
    return error && error->lineCount() > 0 ? error->line(0).toUtf8() : std::string();
}

// The state as the host would keep it.
inline Bytes savedState(CAudioWrapper& w)
{
    CWriteSeqBuffer sink;
    CErrorPtr error = w.saveState(sink);
    EXPECT_FALSE(error) << errorLine(error);
    CByteArray bytes;
    EXPECT_FALSE(sink.toArray(bytes));
    return Bytes(bytes.data(), bytes.data() + bytes.size());
}

inline CErrorPtr loadState(CAudioWrapper& w, const Bytes& bytes)
{
    CMemoryReader in(bytes.data(), bytes.size());
    return w.loadState(in);
}

// Starts the application on one definition of a resource table; stops it at the end.
class ScopedApplication
{
public:
    ScopedApplication(const CResourceRow* resources, const char* definition)
    {
        CErrorPtr error = CApplication::startup({kCoreCreatorRows, kAudioCreatorRows, kGraphTestCreatorRows,
                                                 kWrapperTestCreatorRows},
                                                resources, CString(definition));
        EXPECT_FALSE(error) << errorLine(error);
    }
    ~ScopedApplication() { CApplication::finalize(); }
    ScopedApplication(const ScopedApplication&) = delete;
    ScopedApplication& operator=(const ScopedApplication&) = delete;
};

// Made and taken through init and finishInit; null (with a test failure) when either fails.
inline std::unique_ptr<TestWrapper> startedWrapper()
{
    auto w = std::make_unique<TestWrapper>();
    CErrorPtr error = w->init();
    EXPECT_FALSE(error) << error->text().toUtf8();
    if (error)
        return nullptr;
    error = w->finishInit();
    EXPECT_FALSE(error) << error->text().toUtf8();
    return error ? nullptr : std::move(w);
}

// A host's view of one bus layout: sample size, channels in and out.
struct HostSetup
{
    bool isDouble = false;
    int32_t inputs = 2;
    int32_t outputs = 2;
    double rate = 44100.0;
};

inline void prepare(CAudioWrapper& w, const HostSetup& setup)
{
    w.stopProcessing();
    w.setSampleRate(setup.rate);
    w.setChannelCounts(setup.inputs, setup.isDouble, false, 0, setup.isDouble, false);
    w.setOutputCount(setup.outputs, setup.isDouble);
    w.startProcessing();
}

// One block through the wrapper in the host's sample size; `in` may hold null channels
// (empty vectors). Output buffers start filled with `fill`, so what the wrapper leaves
// untouched shows.
inline Signal processOne(CAudioWrapper& w, const HostSetup& setup, const Signal& in, size_t from, int32_t n,
                         double fill = 7.0)
{
    std::vector<std::vector<float>> in32(in.size()), out32(size_t(setup.outputs));
    std::vector<std::vector<double>> in64(in.size()), out64(size_t(setup.outputs));
    std::vector<void*> ins(in.size(), nullptr), outs(size_t(setup.outputs), nullptr);
    for (size_t c = 0; c < in.size(); ++c) {
        if (in[c].empty())
            continue;
        for (int32_t i = 0; i < n; ++i) {
            in32[c].push_back(float(in[c][from + size_t(i)]));
            in64[c].push_back(in[c][from + size_t(i)]);
        }
        ins[c] = setup.isDouble ? static_cast<void*>(in64[c].data()) : static_cast<void*>(in32[c].data());
    }
    for (size_t c = 0; c < outs.size(); ++c) {
        out32[c].assign(size_t(n), float(fill));
        out64[c].assign(size_t(n), fill);
        outs[c] = setup.isDouble ? static_cast<void*>(out64[c].data()) : static_cast<void*>(out32[c].data());
    }
    w.processBlock(ins.data(), outs.data(), n);
    Signal out(outs.size());
    for (size_t c = 0; c < outs.size(); ++c)
        for (int32_t i = 0; i < n; ++i)
            out[c].push_back(setup.isDouble ? out64[c][size_t(i)] : double(out32[c][size_t(i)]));
    return out;
}

// The whole signal in blocks whose lengths cycle through `lengths`.
inline Signal processAll(CAudioWrapper& w, const HostSetup& setup, const Signal& in, const std::vector<int32_t>& lengths)
{
    Signal out(size_t(setup.outputs));
    size_t length = 0;
    for (const auto& channel : in)
        length = std::max(length, channel.size());
    size_t k = 0;
    for (size_t at = 0; at < length;) {
        const auto n = int32_t(std::min<size_t>(size_t(lengths[k++ % lengths.size()]), length - at));
        const Signal block = processOne(w, setup, in, at, n);
        for (size_t c = 0; c < out.size(); ++c)
            out[c].insert(out[c].end(), block[c].begin(), block[c].end());
        at += size_t(n);
    }
    return out;
}

// A float's worth of the value, as a 32-bit host sees it.
inline double asFloat(double x) { return double(float(x)); }

} // namespace qel::test
