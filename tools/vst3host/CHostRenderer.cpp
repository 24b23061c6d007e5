#include "CHostRenderer.h"

#include "CProgressBar.h"
#include "CVst3ComponentHandler.h"
#include "CVst3Instance.h"

#include <chrono>

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

template <class T>
T* channelOf(CVst3ProcessBuffers& buffers, BusDirection direction, int channel)
{
    if constexpr (sizeof(T) == sizeof(double))
        return buffers.channel64(direction, 0, channel);
    else
        return buffers.channel32(direction, 0, channel);
}

template <class T>
void renderBlocks(CVst3Instance& instance, const CHostSignal& input, CHostSignal& output, int blockSize,
                  bool showProgress, CRenderReport& report)
{
    CVst3ProcessBuffers& buffers = instance.buffers();
    const int channels = input.channelCount();
    const int64_t frames = input.frameCount();
    const int64_t latency = report.latencySamples;
    const int64_t total = frames + latency;
    CProgressBar progress(stderr, "rendering", showProgress ? total : 0);
    using Clock = std::chrono::steady_clock;
    Clock::duration busy{};
    for (int64_t start = 0; start < total; start += blockSize) {
        const int count = static_cast<int>(total - start < blockSize ? total - start : blockSize);
        for (int c = 0; c < channels; ++c) {
            T* in = channelOf<T>(buffers, kInput, c);
            if (!in)
                continue;
            const std::vector<double>& source = input.channels[static_cast<size_t>(c)];
            for (int i = 0; i < count; ++i) {
                const int64_t at = start + i;
                in[i] = at < frames ? static_cast<T>(source[static_cast<size_t>(at)]) : T(0);
            }
        }
        const Clock::time_point before = Clock::now();
        if (instance.process(count) != kResultOk)
            ++report.failedBlocks;
        busy += Clock::now() - before;
        for (int c = 0; c < channels; ++c) {
            const T* out = channelOf<T>(buffers, kOutput, c);
            std::vector<double>& target = output.channels[static_cast<size_t>(c)];
            for (int i = 0; i < count; ++i) {
                const int64_t at = start + i - latency;
                if (at >= 0 && at < frames)
                    target[static_cast<size_t>(at)] = out ? static_cast<double>(out[i]) : 0.0;
            }
        }
        if (showProgress)
            progress.update(start + count);
    }
    report.processSeconds = std::chrono::duration<double>(busy).count();
}

} // namespace

CErrorPtr CHostRenderer::render(CVst3Instance& instance, const CHostSignal& input, CHostSignal& output,
                                const CRenderOptions& options, CRenderReport& report)
{
    report = CRenderReport();
    CVst3ProcessSetup setup;
    setup.sampleRate = input.sampleRate;
    setup.maxBlockSize = options.blockSize;
    setup.isDouble = options.isDouble;
    setup.isOffline = options.isOffline;
    QEL_RETURN_IF_ERROR(instance.startProcessing(setup), CString());
    report.latencySamples = instance.latencySamples();
    const size_t callsBefore = instance.handler().calls().size();

    output.sampleRate = input.sampleRate;
    output.resize(input.channelCount(), input.frameCount());
    if (options.isDouble)
        renderBlocks<double>(instance, input, output, options.blockSize, options.showProgress, report);
    else
        renderBlocks<float>(instance, input, output, options.blockSize, options.showProgress, report);

    const std::vector<CVst3HandlerCall> calls = instance.handler().calls();
    for (size_t i = callsBefore; i < calls.size(); ++i)
        if (calls[i].kind == CVst3HandlerCall::kRestartComponent && (calls[i].flags & kLatencyChanged))
            report.latencyChanged = true;
    instance.stopProcessing();
    return nullptr;
}

} // namespace qel
