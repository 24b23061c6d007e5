#pragma once

// Small host-side objects for driving the VST 3 binding in-process: a byte stream, a
// component handler that records what it is told, a run loop whose timer the test ticks,
// a host context, automation queues and an attribute list. They live on the test's stack,
// so their reference counts only count.

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
#include <utility>
#include <vector>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace qel::test {

// A real-time block over the given buses, as a host hands it in.
inline Steinberg::Vst::ProcessData realtimeBlock(Steinberg::Vst::AudioBusBuffers* inputs, Steinberg::int32 inputCount,
                                                 Steinberg::Vst::AudioBusBuffers* outputs, Steinberg::int32 outputCount,
                                                 Steinberg::int32 samples, Steinberg::int32 sampleSize)
{
    Steinberg::Vst::ProcessData data;
    data.processMode = Steinberg::Vst::kRealtime;
    data.symbolicSampleSize = sampleSize;
    data.numSamples = samples;
    data.numInputs = inputCount;
    data.numOutputs = outputCount;
    data.inputs = inputs;
    data.outputs = outputs;
    return data;
}

#define QEL_TEST_REFCOUNT                                              \
    Steinberg::uint32 PLUGIN_API addRef() override { return ++refs; }  \
    Steinberg::uint32 PLUGIN_API release() override { return --refs; } \
    Steinberg::uint32 refs = 1;

// A memory stream that moves at most `piece` bytes per call, as a host's may, and can be
// told to fail.
class CTestByteStream : public Steinberg::IBStream
{
public:
    explicit CTestByteStream(std::vector<uint8_t> bytes = {}, int32_t piece = 1 << 30)
        : data(std::move(bytes)), maxPiece(piece)
    {
    }

    Steinberg::tresult PLUGIN_API read(void* buffer, Steinberg::int32 numBytes, Steinberg::int32* numBytesRead) override
    {
        if (failReads)
            return Steinberg::kInternalError;
        const auto n = std::min<int64_t>({numBytes, maxPiece, int64_t(data.size()) - cursor});
        if (n > 0)
            std::memcpy(buffer, data.data() + cursor, size_t(n));
        cursor += std::max<int64_t>(n, 0);
        if (numBytesRead)
            *numBytesRead = Steinberg::int32(std::max<int64_t>(n, 0));
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API write(void* buffer, Steinberg::int32 numBytes,
                                        Steinberg::int32* numBytesWritten) override
    {
        if (failWrites)
            return Steinberg::kInternalError;
        const auto n = std::min<int64_t>(numBytes, maxPiece);
        if (size_t(cursor + n) > data.size())
            data.resize(size_t(cursor + n));
        std::memcpy(data.data() + cursor, buffer, size_t(n));
        cursor += n;
        if (numBytesWritten)
            *numBytesWritten = Steinberg::int32(n);
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API seek(Steinberg::int64 pos, Steinberg::int32 mode, Steinberg::int64* result) override
    {
        const int64_t base = mode == kIBSeekSet ? 0 : mode == kIBSeekCur ? cursor : int64_t(data.size());
        cursor = std::clamp<int64_t>(base + pos, 0, int64_t(data.size()));
        if (result)
            *result = cursor;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API tell(Steinberg::int64* pos) override
    {
        if (pos)
            *pos = cursor;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID, void** obj) override
    {
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }
    QEL_TEST_REFCOUNT

    std::vector<uint8_t> data;
    int64_t cursor = 0;
    int32_t maxPiece;
    bool failReads = false;
    bool failWrites = false;
};

// Records every call a plug-in makes on its host's handler.
class CTestComponentHandler : public Steinberg::Vst::IComponentHandler, public Steinberg::Vst::IUnitHandler
{
public:
    struct Call
    {
        std::string what;
        Steinberg::int32 id;
        double value;
    };

    Steinberg::tresult PLUGIN_API beginEdit(Steinberg::Vst::ParamID id) override
    {
        calls.push_back({"begin", Steinberg::int32(id), 0.0});
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API performEdit(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value) override
    {
        calls.push_back({"perform", Steinberg::int32(id), value});
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API endEdit(Steinberg::Vst::ParamID id) override
    {
        calls.push_back({"end", Steinberg::int32(id), 0.0});
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API restartComponent(Steinberg::int32 flags) override
    {
        calls.push_back({"restart", flags, 0.0});
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API notifyUnitSelection(Steinberg::Vst::UnitID) override { return Steinberg::kResultOk; }
    Steinberg::tresult PLUGIN_API notifyProgramListChange(Steinberg::Vst::ProgramListID listId,
                                                          Steinberg::int32 programIndex) override
    {
        calls.push_back({"program-list", listId, double(programIndex)});
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID wanted, void** obj) override
    {
        QUERY_INTERFACE(wanted, obj, Steinberg::FUnknown::iid, Steinberg::Vst::IComponentHandler)
        QUERY_INTERFACE(wanted, obj, Steinberg::Vst::IComponentHandler::iid, Steinberg::Vst::IComponentHandler)
        QUERY_INTERFACE(wanted, obj, Steinberg::Vst::IUnitHandler::iid, Steinberg::Vst::IUnitHandler)
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }
    QEL_TEST_REFCOUNT

    int count(const std::string& what) const
    {
        return int(std::count_if(calls.begin(), calls.end(), [&](const Call& c) { return c.what == what; }));
    }

    std::vector<Call> calls;
};

// A run loop that keeps the one timer registered with it; the test plays the host's loop.
class CTestRunLoop : public Steinberg::Linux::IRunLoop
{
public:
    Steinberg::tresult PLUGIN_API registerEventHandler(Steinberg::Linux::IEventHandler*,
                                                       Steinberg::Linux::FileDescriptor) override
    {
        return Steinberg::kNotImplemented;
    }
    Steinberg::tresult PLUGIN_API unregisterEventHandler(Steinberg::Linux::IEventHandler*) override
    {
        return Steinberg::kNotImplemented;
    }
    Steinberg::tresult PLUGIN_API registerTimer(Steinberg::Linux::ITimerHandler* handler,
                                                Steinberg::Linux::TimerInterval ms) override
    {
        handler->addRef();
        timer = handler;
        intervalMs = ms;
        ++registrations;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API unregisterTimer(Steinberg::Linux::ITimerHandler* handler) override
    {
        if (handler != timer)
            return Steinberg::kInvalidArgument;
        timer->release();
        timer = nullptr;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID wanted, void** obj) override
    {
        QUERY_INTERFACE(wanted, obj, Steinberg::FUnknown::iid, Steinberg::Linux::IRunLoop)
        QUERY_INTERFACE(wanted, obj, Steinberg::Linux::IRunLoop::iid, Steinberg::Linux::IRunLoop)
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }
    QEL_TEST_REFCOUNT

    void tick()
    {
        if (timer)
            timer->onTimer();
    }

    Steinberg::Linux::ITimerHandler* timer = nullptr;
    Steinberg::Linux::TimerInterval intervalMs = 0;
    int registrations = 0;
};

// The host context handed to initialize; it offers a run loop when given one.
class CTestHostContext : public Steinberg::FUnknown
{
public:
    explicit CTestHostContext(CTestRunLoop* loop = nullptr) : runLoop(loop) {}

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID wanted, void** obj) override
    {
        if (runLoop && Steinberg::FUnknownPrivate::iidEqual(wanted, Steinberg::Linux::IRunLoop::iid))
            return runLoop->queryInterface(wanted, obj);
        QUERY_INTERFACE(wanted, obj, Steinberg::FUnknown::iid, Steinberg::FUnknown)
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }
    QEL_TEST_REFCOUNT

    CTestRunLoop* runLoop;
};

class CTestParamQueue : public Steinberg::Vst::IParamValueQueue
{
public:
    explicit CTestParamQueue(Steinberg::Vst::ParamID paramId) : id(paramId) {}

    Steinberg::Vst::ParamID PLUGIN_API getParameterId() override { return id; }
    Steinberg::int32 PLUGIN_API getPointCount() override { return Steinberg::int32(points.size()); }
    Steinberg::tresult PLUGIN_API getPoint(Steinberg::int32 index, Steinberg::int32& sampleOffset,
                                           Steinberg::Vst::ParamValue& value) override
    {
        if (index < 0 || index >= getPointCount())
            return Steinberg::kResultFalse;
        sampleOffset = points[size_t(index)].first;
        value = points[size_t(index)].second;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API addPoint(Steinberg::int32 sampleOffset, Steinberg::Vst::ParamValue value,
                                           Steinberg::int32& index) override
    {
        index = getPointCount();
        points.emplace_back(sampleOffset, value);
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID, void** obj) override
    {
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }
    QEL_TEST_REFCOUNT

    Steinberg::Vst::ParamID id;
    std::vector<std::pair<Steinberg::int32, double>> points;
};

class CTestParameterChanges : public Steinberg::Vst::IParameterChanges
{
public:
    Steinberg::int32 PLUGIN_API getParameterCount() override { return Steinberg::int32(queues.size()); }
    Steinberg::Vst::IParamValueQueue* PLUGIN_API getParameterData(Steinberg::int32 index) override
    {
        return index >= 0 && index < getParameterCount() ? queues[size_t(index)] : nullptr;
    }
    Steinberg::Vst::IParamValueQueue* PLUGIN_API addParameterData(const Steinberg::Vst::ParamID&,
                                                                  Steinberg::int32&) override
    {
        return nullptr;
    }
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID, void** obj) override
    {
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }
    QEL_TEST_REFCOUNT

    std::vector<CTestParamQueue*> queues;
};

// Holds one string attribute, as a host's channel context list does.
class CTestAttributeList : public Steinberg::Vst::IAttributeList
{
public:
    Steinberg::tresult PLUGIN_API setInt(AttrID, Steinberg::int64) override { return Steinberg::kResultFalse; }
    Steinberg::tresult PLUGIN_API getInt(AttrID, Steinberg::int64&) override { return Steinberg::kResultFalse; }
    Steinberg::tresult PLUGIN_API setFloat(AttrID, double) override { return Steinberg::kResultFalse; }
    Steinberg::tresult PLUGIN_API getFloat(AttrID, double&) override { return Steinberg::kResultFalse; }
    Steinberg::tresult PLUGIN_API setString(AttrID id, const Steinberg::Vst::TChar* string) override
    {
        key = id;
        text = string;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API getString(AttrID id, Steinberg::Vst::TChar* string, Steinberg::uint32 sizeInBytes) override
    {
        if (key != id)
            return Steinberg::kResultFalse;
        const size_t units = sizeInBytes / sizeof(Steinberg::Vst::TChar);
        const size_t n = std::min(text.size(), units - 1);
        std::copy_n(text.data(), n, string);
        string[n] = 0;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API setBinary(AttrID, const void*, Steinberg::uint32) override
    {
        return Steinberg::kResultFalse;
    }
    Steinberg::tresult PLUGIN_API getBinary(AttrID, const void*&, Steinberg::uint32&) override
    {
        return Steinberg::kResultFalse;
    }
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID, void** obj) override
    {
        *obj = nullptr;
        return Steinberg::kNoInterface;
    }
    QEL_TEST_REFCOUNT

    std::string key;
    std::u16string text;
};

#undef QEL_TEST_REFCOUNT

} // namespace qel::test

#pragma GCC diagnostic pop
