#pragma once

// Small host-side objects for driving the VST 3 binding in-process. They live on the test's
// stack, so their reference counts only count.

#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/vst/ivstattributes.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstparameterchanges.h"
#include "pluginterfaces/vst/ivstunits.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace qel::test {

using namespace Steinberg;
using namespace Steinberg::Vst;

// A real-time block over the given buses, as a host hands it in.
inline ProcessData realtimeBlock(AudioBusBuffers* inputs, int32 inputCount, AudioBusBuffers* outputs,
                                 int32 outputCount, int32 samples, int32 sampleSize)
{
    ProcessData data;
    data.processMode = kRealtime;
    data.symbolicSampleSize = sampleSize;
    data.numSamples = samples;
    data.numInputs = inputCount;
    data.numOutputs = outputCount;
    data.inputs = inputs;
    data.outputs = outputs;
    return data;
}

#define QEL_TEST_REFCOUNT                                 \
    uint32 PLUGIN_API addRef() override { return ++refs; }  \
    uint32 PLUGIN_API release() override { return --refs; } \
    uint32 refs = 1;
#define QEL_TEST_NO_INTERFACES                                           \
    tresult PLUGIN_API queryInterface(const TUID, void** obj) override \
    {                                                                    \
        *obj = nullptr;                                                  \
        return kNoInterface;                                             \
    }                                                                    \
    QEL_TEST_REFCOUNT

// A memory stream that moves at most `piece` bytes per call, as a host's may, and can be
// told to fail.
class CTestByteStream final : public IBStream
{
public:
    explicit CTestByteStream(std::vector<uint8_t> bytes = {}, int32_t piece = 1 << 30)
        : data(std::move(bytes)), maxPiece(piece)
    {
    }

    tresult PLUGIN_API read(void* buffer, int32 numBytes, int32* numBytesRead) override
    {
        if (failReads)
            return kInternalError;
        const auto n = std::max<int64_t>(std::min<int64_t>({numBytes, maxPiece, int64_t(data.size()) - cursor}), 0);
        if (n > 0)
            std::memcpy(buffer, data.data() + cursor, size_t(n));
        cursor += n;
        if (numBytesRead)
            *numBytesRead = int32(n);
        return kResultOk;
    }
    tresult PLUGIN_API write(void* buffer, int32 numBytes, int32* numBytesWritten) override
    {
        if (failWrites)
            return kInternalError;
        const auto n = std::min<int64_t>(numBytes, maxPiece);
        data.resize(std::max(data.size(), size_t(cursor + n)));
        std::memcpy(data.data() + cursor, buffer, size_t(n));
        cursor += n;
        if (numBytesWritten)
            *numBytesWritten = int32(n);
        return kResultOk;
    }
    // The binding reads and writes in order only.
    tresult PLUGIN_API seek(int64, int32, int64*) override { return kNotImplemented; }
    tresult PLUGIN_API tell(int64*) override { return kNotImplemented; }
    QEL_TEST_NO_INTERFACES

    std::vector<uint8_t> data;
    int64_t cursor = 0;
    int32_t maxPiece;
    bool failReads = false;
    bool failWrites = false;
};

// Records every call a plug-in makes on its host's handler.
class CTestComponentHandler final : public IComponentHandler, public IUnitHandler
{
public:
    struct Call
    {
        std::string what;
        int32 id;
        double value;
    };

    tresult record(std::string what, int32 id, double value = 0.0)
    {
        calls.push_back({std::move(what), id, value});
        return kResultOk;
    }
    tresult PLUGIN_API beginEdit(ParamID id) override { return record("begin", int32(id)); }
    tresult PLUGIN_API performEdit(ParamID id, ParamValue value) override { return record("perform", int32(id), value); }
    tresult PLUGIN_API endEdit(ParamID id) override { return record("end", int32(id)); }
    tresult PLUGIN_API restartComponent(int32 flags) override { return record("restart", flags); }
    tresult PLUGIN_API notifyUnitSelection(UnitID) override { return kResultOk; }
    tresult PLUGIN_API notifyProgramListChange(ProgramListID listId, int32 programIndex) override
    {
        return record("program-list", listId, double(programIndex));
    }
    tresult PLUGIN_API queryInterface(const TUID wanted, void** obj) override
    {
        QUERY_INTERFACE(wanted, obj, FUnknown::iid, IComponentHandler)
        QUERY_INTERFACE(wanted, obj, IComponentHandler::iid, IComponentHandler)
        QUERY_INTERFACE(wanted, obj, IUnitHandler::iid, IUnitHandler)
        *obj = nullptr;
        return kNoInterface;
    }
    QEL_TEST_REFCOUNT

    int count(const std::string& what) const
    {
        return int(std::count_if(calls.begin(), calls.end(), [&](const Call& c) { return c.what == what; }));
    }

    std::vector<Call> calls;
};

// The host context handed to initialize; offering its run loop, it keeps the one timer
// registered with it, and the test plays the host's loop.
class CTestHostContext final : public Linux::IRunLoop
{
public:
    explicit CTestHostContext(bool withRunLoop = false) : offersRunLoop(withRunLoop) {}

    tresult PLUGIN_API registerEventHandler(Linux::IEventHandler*, Linux::FileDescriptor) override
    {
        return kNotImplemented;
    }
    tresult PLUGIN_API unregisterEventHandler(Linux::IEventHandler*) override { return kNotImplemented; }
    tresult PLUGIN_API registerTimer(Linux::ITimerHandler* handler, Linux::TimerInterval ms) override
    {
        handler->addRef();
        timer = handler;
        intervalMs = ms;
        ++registrations;
        return kResultOk;
    }
    tresult PLUGIN_API unregisterTimer(Linux::ITimerHandler* handler) override
    {
        if (handler != timer)
            return kInvalidArgument;
        timer->release();
        timer = nullptr;
        return kResultOk;
    }
    tresult PLUGIN_API queryInterface(const TUID wanted, void** obj) override
    {
        QUERY_INTERFACE(wanted, obj, FUnknown::iid, Linux::IRunLoop)
        if (offersRunLoop)
            QUERY_INTERFACE(wanted, obj, Linux::IRunLoop::iid, Linux::IRunLoop)
        *obj = nullptr;
        return kNoInterface;
    }
    QEL_TEST_REFCOUNT

    void tick()
    {
        if (timer)
            timer->onTimer();
    }

    bool offersRunLoop;
    Linux::ITimerHandler* timer = nullptr;
    Linux::TimerInterval intervalMs = 0;
    int registrations = 0;
};

class CTestParamQueue final : public IParamValueQueue
{
public:
    explicit CTestParamQueue(ParamID paramId) : id(paramId) {}

    ParamID PLUGIN_API getParameterId() override { return id; }
    int32 PLUGIN_API getPointCount() override { return int32(points.size()); }
    tresult PLUGIN_API getPoint(int32 index, int32& sampleOffset, ParamValue& value) override
    {
        if (index < 0 || index >= getPointCount())
            return kResultFalse;
        std::tie(sampleOffset, value) = points[size_t(index)];
        return kResultOk;
    }
    tresult PLUGIN_API addPoint(int32 sampleOffset, ParamValue value, int32& index) override
    {
        index = getPointCount();
        points.emplace_back(sampleOffset, value);
        return kResultOk;
    }
    QEL_TEST_NO_INTERFACES

    ParamID id;
    std::vector<std::pair<int32, double>> points;
};

class CTestParameterChanges final : public IParameterChanges
{
public:
    int32 PLUGIN_API getParameterCount() override { return int32(queues.size()); }
    IParamValueQueue* PLUGIN_API getParameterData(int32 index) override
    {
        return index >= 0 && index < getParameterCount() ? queues[size_t(index)] : nullptr;
    }
    IParamValueQueue* PLUGIN_API addParameterData(const ParamID&, int32&) override { return nullptr; }
    QEL_TEST_NO_INTERFACES

    std::vector<CTestParamQueue*> queues;
};

// Holds one string attribute, as a host's channel context list does.
class CTestAttributeList final : public IAttributeList
{
public:
    tresult PLUGIN_API setInt(AttrID, int64) override { return kResultFalse; }
    tresult PLUGIN_API getInt(AttrID, int64&) override { return kResultFalse; }
    tresult PLUGIN_API setFloat(AttrID, double) override { return kResultFalse; }
    tresult PLUGIN_API getFloat(AttrID, double&) override { return kResultFalse; }
    tresult PLUGIN_API setBinary(AttrID, const void*, uint32) override { return kResultFalse; }
    tresult PLUGIN_API getBinary(AttrID, const void*&, uint32&) override { return kResultFalse; }
    tresult PLUGIN_API setString(AttrID id, const TChar* string) override
    {
        key = id;
        text = string;
        return kResultOk;
    }
    tresult PLUGIN_API getString(AttrID id, TChar* string, uint32 sizeInBytes) override
    {
        if (key != id)
            return kResultFalse;
        const size_t n = std::min(text.size(), sizeInBytes / sizeof(TChar) - 1);
        std::copy_n(text.data(), n, string);
        string[n] = 0;
        return kResultOk;
    }
    QEL_TEST_NO_INTERFACES

    std::string key;
    std::u16string text;
};

#undef QEL_TEST_NO_INTERFACES
#undef QEL_TEST_REFCOUNT

} // namespace qel::test

#pragma GCC diagnostic pop
