// The price of one notification to a crowd of listeners (a parameter many controls show),
// next to the plain virtual calls it comes down to.

#include "Core/CUpdateNotifier.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

using namespace qel;

namespace {

constexpr int kListeners = 100;
constexpr uint64_t kKey = 7;

struct Listener : CUpdateListener
{
    ~Listener() override { setNotifier(nullptr, 0); }
    void onUpdate(const CUpdateMessage* message) override { heard += message->source; }
    uint64_t heard = 0;
};

std::vector<std::unique_ptr<Listener>> makeListeners()
{
    std::vector<std::unique_ptr<Listener>> listeners;
    for (int i = 0; i < kListeners; ++i)
        listeners.push_back(std::make_unique<Listener>());
    return listeners;
}

void BM_NotifyHundredListeners(benchmark::State& state)
{
    CUpdateNotifier notifier;
    auto listeners = makeListeners();
    for (auto& listener : listeners)
        listener->setNotifier(&notifier, kKey);
    const CUpdateMessage message{1, kKey};
    for (auto _ : state) {
        notifier.notify(&message);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kListeners);
}
BENCHMARK(BM_NotifyHundredListeners);

// The reference: the same hundred onUpdate calls through base pointers, nothing else.
void BM_HundredVirtualCalls(benchmark::State& state)
{
    auto listeners = makeListeners();
    std::vector<CUpdateListener*> targets;
    for (auto& listener : listeners)
        targets.push_back(listener.get());
    const CUpdateMessage message{1, kKey};
    for (auto _ : state) {
        CUpdateListener* const* data = targets.data();
        benchmark::DoNotOptimize(data);
        for (int i = 0; i < kListeners; ++i)
            data[i]->onUpdate(&message);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kListeners);
}
BENCHMARK(BM_HundredVirtualCalls);

} // namespace
