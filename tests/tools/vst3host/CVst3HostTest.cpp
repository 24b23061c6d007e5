// The host library on its own: its stream and parameter lists against the interfaces'
// rules, and its module loading and instance lifecycle against a small fake plug-in
// module whose log shows every call the host made, in order.

#include "vst3host/CVst3ComponentHandler.h"
#include "vst3host/CVst3HostApplication.h"
#include "vst3host/CVst3Instance.h"
#include "vst3host/CVst3MemoryStream.h"
#include "vst3host/CVst3Module.h"
#include "vst3host/CVst3ParameterChanges.h"

#include "pluginterfaces/base/smartpointer.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace qel;
using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

std::string fakeBundle() { return QEL_FAKE_PLUGIN_BUNDLE; }
std::string fakeLibrary() { return QEL_FAKE_PLUGIN_LIBRARY; }
constexpr ParamID kGainId = 7;

std::string firstLine(const CErrorPtr& error)
{
    return error && error->lineCount() > 0 ? error->line(0).toUtf8() : std::string();
}

// ---- the memory stream

TEST(Vst3MemoryStream, ReadsBackWhatWasWrittenAndStopsAtTheEnd)
{
    IPtr<CVst3MemoryStream> stream = owned(new CVst3MemoryStream());
    char text[] = "0123456789";
    int32 done = -1;
    ASSERT_EQ(stream->write(text, 10, &done), kResultOk);
    EXPECT_EQ(done, 10);
    int64 position = -1;
    EXPECT_EQ(stream->seek(2, IBStream::kIBSeekSet, &position), kResultOk);
    EXPECT_EQ(position, 2);
    char back[16] = {};
    ASSERT_EQ(stream->read(back, 16, &done), kResultOk);
    EXPECT_EQ(done, 8);
    EXPECT_EQ(std::string(back, 8), "23456789");
    // At the end a read succeeds with nothing, as a file's does.
    EXPECT_EQ(stream->read(back, 4, &done), kResultOk);
    EXPECT_EQ(done, 0);
    EXPECT_EQ(stream->seek(-3, IBStream::kIBSeekEnd, &position), kResultOk);
    EXPECT_EQ(position, 7);
    EXPECT_EQ(stream->seek(-1, IBStream::kIBSeekCur, &position), kResultOk);
    EXPECT_EQ(position, 6);
    ASSERT_EQ(stream->read(back, 2, &done), kResultOk);
    EXPECT_EQ(std::string(back, 2), "67");
}

TEST(Vst3MemoryStream, RefusesBadArgumentsAndKeepsItsPlace)
{
    IPtr<CVst3MemoryStream> stream = owned(new CVst3MemoryStream(std::vector<uint8_t>{1, 2, 3}));
    int64 position = -1;
    ASSERT_EQ(stream->seek(1, IBStream::kIBSeekSet, &position), kResultOk);
    EXPECT_EQ(stream->seek(-5, IBStream::kIBSeekCur, &position), kInvalidArgument);
    EXPECT_EQ(stream->seek(0, 17, &position), kInvalidArgument);
    ASSERT_EQ(stream->tell(&position), kResultOk);
    EXPECT_EQ(position, 1);
    char byte = 0;
    int32 done = -1;
    EXPECT_EQ(stream->read(&byte, -1, &done), kInvalidArgument);
    EXPECT_EQ(stream->write(&byte, -1, &done), kInvalidArgument);
    EXPECT_EQ(stream->read(nullptr, 1, &done), kInvalidArgument);
    EXPECT_EQ(stream->tell(nullptr), kInvalidArgument);
    EXPECT_EQ(stream->setStreamSize(-1), kInvalidArgument);
    EXPECT_EQ(stream->bytes(), (std::vector<uint8_t>{1, 2, 3}));
}

TEST(Vst3MemoryStream, WritingPastTheEndFillsTheGapWithZeros)
{
    IPtr<CVst3MemoryStream> stream = owned(new CVst3MemoryStream(std::vector<uint8_t>{9}));
    ASSERT_EQ(stream->seek(3, IBStream::kIBSeekSet, nullptr), kResultOk);
    uint8_t byte = 7;
    ASSERT_EQ(stream->write(&byte, 1, nullptr), kResultOk);
    EXPECT_EQ(stream->bytes(), (std::vector<uint8_t>{9, 0, 0, 7}));
    int64 size = 0;
    ASSERT_EQ(stream->getStreamSize(size), kResultOk);
    EXPECT_EQ(size, 4);
    ASSERT_EQ(stream->setStreamSize(2), kResultOk);
    EXPECT_EQ(stream->bytes(), (std::vector<uint8_t>{9, 0}));
}

// ---- parameter changes

TEST(Vst3ParameterChanges, QueueKeepsOffsetOrderAndItsCapacity)
{
    IPtr<CVst3ParamValueQueue> queue = owned(new CVst3ParamValueQueue(3));
    queue->reset(42);
    int32 index = -1;
    ASSERT_EQ(queue->addPoint(100, 0.1, index), kResultOk);
    EXPECT_EQ(index, 0);
    ASSERT_EQ(queue->addPoint(10, 0.2, index), kResultOk);
    EXPECT_EQ(index, 0);
    ASSERT_EQ(queue->addPoint(50, 0.3, index), kResultOk);
    EXPECT_EQ(index, 1);
    // A point at an offset already there replaces it, even when the queue is full.
    ASSERT_EQ(queue->addPoint(50, 0.35, index), kResultOk);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(queue->addPoint(70, 0.4, index), kResultFalse);
    EXPECT_EQ(queue->addPoint(-1, 0.4, index), kInvalidArgument);
    ASSERT_EQ(queue->getPointCount(), 3);
    const int32 offsets[] = {10, 50, 100};
    const double values[] = {0.2, 0.35, 0.1};
    for (int32 i = 0; i < 3; ++i) {
        int32 offset = -1;
        ParamValue value = -1.0;
        ASSERT_EQ(queue->getPoint(i, offset, value), kResultOk);
        EXPECT_EQ(offset, offsets[i]);
        EXPECT_EQ(value, values[i]);
    }
    int32 offset = 0;
    ParamValue value = 0.0;
    EXPECT_EQ(queue->getPoint(3, offset, value), kInvalidArgument);
    EXPECT_EQ(queue->getParameterId(), 42u);
}

TEST(Vst3ParameterChanges, OneQueuePerParameterFromAFixedPool)
{
    IPtr<CVst3ParameterChanges> changes = owned(new CVst3ParameterChanges(2, 4));
    int32 index = -1;
    IParamValueQueue* first = changes->addParameterData(5, index);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(index, 0);
    IParamValueQueue* second = changes->addParameterData(9, index);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(changes->addParameterData(5, index), first);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(changes->addParameterData(11, index), nullptr);
    EXPECT_EQ(changes->getParameterCount(), 2);
    EXPECT_EQ(changes->getParameterData(1), second);
    EXPECT_EQ(changes->getParameterData(2), nullptr);
    EXPECT_TRUE(changes->addChange(9, 0, 0.5));
    EXPECT_EQ(second->getPointCount(), 1);
    changes->clear();
    EXPECT_EQ(changes->getParameterCount(), 0);
    // A queue handed out again starts empty.
    ASSERT_NE(changes->addParameterData(11, index), nullptr);
    EXPECT_EQ(changes->getParameterData(0)->getPointCount(), 0);
    EXPECT_EQ(changes->getParameterData(0)->getParameterId(), 11u);
}

// ---- module loading

TEST(Vst3Module, ExplainsWhyAPathIsNoModule)
{
    CVst3Module module;
    CErrorPtr error = module.load("/nonexistent/Nothing.vst3");
    EXPECT_NE(firstLine(error).find("not found"), std::string::npos) << firstLine(error);
    EXPECT_FALSE(module.isLoaded());

    const std::filesystem::path scratch = std::filesystem::temp_directory_path() / "qel-vst3host-test";
    std::filesystem::create_directories(scratch / "Empty.vst3");
    error = module.load((scratch / "Empty.vst3").string());
    EXPECT_NE(firstLine(error).find("holds no"), std::string::npos) << firstLine(error);

    const std::filesystem::path text = scratch / "text.so";
    std::ofstream(text) << "not a shared object";
    error = module.load(text.string());
    EXPECT_NE(firstLine(error).find("Unable to load"), std::string::npos) << firstLine(error);
    EXPECT_FALSE(module.isLoaded());
    std::filesystem::remove_all(scratch);
}

// The fake's log, read through a handle of the test's own so it outlives the host's.
class FakePlugin : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_handle = dlopen(fakeLibrary().c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_handle, nullptr) << dlerror();
        m_log = reinterpret_cast<const char* (*)()>(dlsym(m_handle, "qelFakePluginLog"));
        m_clear = reinterpret_cast<void (*)()>(dlsym(m_handle, "qelFakePluginClearLog"));
        ASSERT_TRUE(m_log && m_clear);
        m_clear();
        m_host = owned(new CVst3HostApplication("fake host"));
    }

    void TearDown() override
    {
        if (m_handle)
            dlclose(m_handle);
    }

    std::string log() const { return m_log(); }

    void load()
    {
        CErrorPtr error = m_module.load(fakeBundle(), static_cast<IHostApplication*>(m_host.get()));
        ASSERT_FALSE(error) << error->text().toUtf8();
    }

    const CVst3ClassInfo& classNamed(const std::string& name)
    {
        for (const CVst3ClassInfo& entry : m_module.classes())
            if (entry.name == name)
                return entry;
        ADD_FAILURE() << "no class " << name;
        return m_module.classes().front();
    }

    void* m_handle = nullptr;
    const char* (*m_log)() = nullptr;
    void (*m_clear)() = nullptr;
    IPtr<CVst3HostApplication> m_host;
    CVst3Module m_module;
};

TEST_F(FakePlugin, ModuleListsItsFactoryAndClasses)
{
    load();
    EXPECT_EQ(m_module.libraryPath(), std::filesystem::path(fakeLibrary()).lexically_normal().string());
    EXPECT_EQ(m_module.factoryInfo().vendor, "Fake Vendor");
    EXPECT_EQ(m_module.factoryInfo().email, "fake@fake.invalid");
    ASSERT_EQ(m_module.classes().size(), 3u);
    const CVst3ClassInfo* effect = m_module.findClass(kVstAudioEffectClass);
    ASSERT_NE(effect, nullptr);
    EXPECT_EQ(effect->name, "Fake Gain");
    EXPECT_EQ(effect->version, "1.2.3");
    EXPECT_EQ(effect->subCategories, "Fx");
    EXPECT_EQ(effect->cidText(), "51E1A001000000000000000000000001");
    EXPECT_EQ(m_module.classes()[2].category, kVstComponentControllerClass);
    EXPECT_EQ(m_module.findClass("No Such Category"), nullptr);
    m_module.unload();
    EXPECT_EQ(log(), "ModuleEntry GetPluginFactory factory.destroyed ModuleExit");
}

TEST_F(FakePlugin, LifecycleCallsComeInAHostsOrder)
{
    load();
    {
        CVst3Instance instance;
        CErrorPtr error = instance.create(m_module, classNamed("Fake Gain"), m_host.get());
        ASSERT_FALSE(error) << error->text().toUtf8();
        EXPECT_TRUE(instance.isSingleObject());
        EXPECT_EQ(instance.unitInfo(), nullptr);
        CVst3ProcessSetup setup;
        setup.maxBlockSize = 64;
        ASSERT_FALSE(instance.startProcessing(setup));
        EXPECT_TRUE(instance.isProcessing());
        EXPECT_EQ(instance.process(64), kResultOk);
        EXPECT_EQ(instance.process(0), kResultOk);
        EXPECT_EQ(instance.latencySamples(), 3u);
        instance.destroy();
        EXPECT_FALSE(instance.isCreated());
        instance.destroy();
    }
    m_module.unload();
    EXPECT_EQ(log(), "ModuleEntry GetPluginFactory createInstance initialize setComponentHandler "
                     "setupProcessing setActive(1) setProcessing(1) process setProcessing(0) setActive(0) "
                     "setComponentHandler(null) terminate destroyed factory.destroyed ModuleExit");
    EXPECT_EQ(m_host->referenceCount(), 1u);
}

TEST_F(FakePlugin, SeparateControllerIsMadeConnectedAndKeptInStep)
{
    load();
    CVst3Instance instance;
    CErrorPtr error = instance.create(m_module, classNamed("Fake Split Gain"), m_host.get());
    ASSERT_FALSE(error) << error->text().toUtf8();
    EXPECT_FALSE(instance.isSingleObject());
    ASSERT_NE(instance.controller(), nullptr);
    EXPECT_EQ(log(), "ModuleEntry GetPluginFactory createInstance initialize createController "
                     "controller.initialize connect controller.connect setComponentState setComponentHandler");

    // A state loaded into the component reaches the controller as the component's state.
    const double gain = 0.125;
    std::vector<uint8_t> state(sizeof(gain));
    std::memcpy(state.data(), &gain, sizeof(gain));
    ASSERT_FALSE(instance.loadState(state));
    EXPECT_EQ(instance.parameter(kGainId), gain);

    m_clear();
    instance.destroy();
    EXPECT_EQ(log(), "disconnect controller.disconnect setComponentHandler(null) controller.terminate "
                     "controller.destroyed terminate destroyed");
    m_module.unload();
    EXPECT_EQ(m_host->referenceCount(), 1u);
}

TEST_F(FakePlugin, ProcessesSignalsInBlocksWithTheHostsEdits)
{
    load();
    for (bool isDouble : {false, true}) {
        SCOPED_TRACE(isDouble);
        CVst3Instance instance;
        ASSERT_FALSE(instance.create(m_module, classNamed("Fake Gain"), m_host.get()));
        // Gain 2 x 0.2: the edit reaches the processor in its first block.
        ASSERT_TRUE(instance.setParameter(kGainId, 0.2));
        CVst3ProcessSetup setup;
        setup.maxBlockSize = 16;
        setup.isDouble = isDouble;
        ASSERT_FALSE(instance.startProcessing(setup));
        constexpr int kFrames = 100;
        std::vector<double> in[2];
        std::vector<double> out[2];
        for (int c = 0; c < 2; ++c) {
            for (int i = 0; i < kFrames; ++i)
                in[c].push_back((c + 1) * 0.01 * (i + 1));
            out[c].assign(kFrames, -1.0);
        }
        if (isDouble) {
            const double* inputs[2] = {in[0].data(), in[1].data()};
            double* outputs[2] = {out[0].data(), out[1].data()};
            ASSERT_EQ(instance.processPlanar(inputs, outputs, kFrames, 7), kResultOk);
        } else {
            std::vector<float> in32[2];
            std::vector<float> out32[2];
            for (int c = 0; c < 2; ++c) {
                in32[c].assign(in[c].begin(), in[c].end());
                out32[c].assign(kFrames, -1.0f);
            }
            const float* inputs[2] = {in32[0].data(), in32[1].data()};
            float* outputs[2] = {out32[0].data(), out32[1].data()};
            ASSERT_EQ(instance.processPlanar(inputs, outputs, kFrames, 7), kResultOk);
            for (int c = 0; c < 2; ++c)
                out[c].assign(out32[c].begin(), out32[c].end());
        }
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < kFrames; ++i)
                ASSERT_NEAR(out[c][static_cast<size_t>(i)], 0.4 * in[c][static_cast<size_t>(i)], 1e-6) << c << " " << i;
        // Beyond the set-up's block size the host refuses before the plug-in sees it, and a
        // signal of the other sample size is refused too.
        EXPECT_EQ(instance.process(17), kInvalidArgument);
        const float* wrong[2] = {nullptr, nullptr};
        float* wrongOut[2] = {nullptr, nullptr};
        if (isDouble) {
            EXPECT_EQ(instance.processPlanar(wrong, wrongOut, 4, 4), kInvalidArgument);
        }
    }
}

TEST_F(FakePlugin, FindsParametersAndTheirTexts)
{
    load();
    CVst3Instance instance;
    ASSERT_FALSE(instance.create(m_module, classNamed("Fake Gain"), m_host.get()));
    ASSERT_EQ(instance.parameters().size(), 1u);
    const CVst3ParamInfo* gain = instance.findParameter("Gain");
    ASSERT_NE(gain, nullptr);
    EXPECT_EQ(gain->id, kGainId);
    EXPECT_EQ(gain->units, "x");
    EXPECT_EQ(instance.findParameter("gAIN"), gain);
    EXPECT_EQ(instance.findParameter(kGainId), gain);
    EXPECT_EQ(instance.findParameter("Volume"), nullptr);
    double value = -1.0;
    ASSERT_TRUE(instance.textToValue(kGainId, "1.5", value));
    EXPECT_EQ(value, 0.75);
    EXPECT_FALSE(instance.textToValue(kGainId, "loud", value));
    EXPECT_EQ(instance.valueToText(kGainId, 0.25), "0.500");
}

TEST_F(FakePlugin, StateTravelsAndARefusedOneIsAnError)
{
    load();
    CVst3Instance source;
    CVst3Instance target;
    ASSERT_FALSE(source.create(m_module, classNamed("Fake Gain"), m_host.get()));
    ASSERT_FALSE(target.create(m_module, classNamed("Fake Gain"), m_host.get()));
    ASSERT_TRUE(source.setParameter(kGainId, 0.3));
    std::vector<uint8_t> state;
    ASSERT_FALSE(source.saveState(state));
    ASSERT_EQ(state.size(), sizeof(double));
    ASSERT_FALSE(target.loadState(state));
    EXPECT_EQ(target.parameter(kGainId), 0.3);
    state.pop_back();
    CErrorPtr error = target.loadState(state);
    EXPECT_NE(firstLine(error).find("refused"), std::string::npos) << firstLine(error);
    EXPECT_EQ(target.parameter(kGainId), 0.3);
}

TEST_F(FakePlugin, RecordsTheControllersCallsAndBusChanges)
{
    load();
    CVst3Instance instance;
    ASSERT_FALSE(instance.create(m_module, classNamed("Fake Gain"), m_host.get()));
    // The fake asks for a restart as soon as it has a handler.
    const std::vector<CVst3HandlerCall> calls = instance.handler().calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].kind, CVst3HandlerCall::kRestartComponent);
    EXPECT_EQ(calls[0].flags, kLatencyChanged);

    EXPECT_TRUE(instance.requestMainChannels(1));
    EXPECT_EQ(instance.mainChannelCount(kInput), 1);
    const std::vector<CVst3BusInfo> outputs = instance.buses(kAudio, kOutput);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(outputs[0].name, "Out");
    EXPECT_EQ(outputs[0].arrangement, SpeakerArr::kMono);
    EXPECT_FALSE(instance.requestMainChannels(3));
    EXPECT_EQ(instance.mainChannelCount(kOutput), 1);
}

} // namespace
