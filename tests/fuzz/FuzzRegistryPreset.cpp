// A preset stream, damaged or not, activated on one of the product's registries. The
// first byte picks the registry (master, routing, colours, harmonic modes, saturator
// modes), the second the group (-1 to 7; the master takes all groups), the rest is the
// stream. Activation is either refused, with a proper error and every stored value of the
// instance as it was, or accepted; then what the registry captures must activate again and
// capture the same.

#include "FuzzProductInstance.h"

#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamRegistry.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using namespace qel;
using namespace qel::fuzz;

const char* const kRegistryIds[] = {"k27w", "QMIO", "QMUS", "QMGC", "QMEB"};

// The product with the registries a run picks from.
struct Instance : FuzzProductInstance
{
    Instance()
    {
        std::vector<CAudioParamRegistry*> all;
        wrapper.paramCollector()->getRegistries(all);
        for (const char* id : kRegistryIds) {
            CAudioParamRegistry* found = nullptr;
            for (CAudioParamRegistry* r : all)
                if (r->id() == CString(id))
                    found = r;
            if (!found)
                std::abort();
            registries.push_back(found);
        }
    }

    std::vector<CAudioParamRegistry*> registries;
};

std::vector<uint8_t> captured(CAudioParamRegistry& registry, int32_t group)
{
    CWriteSeqBuffer sink;
    FUZZ_MUST_SUCCEED(registry.acquirePreset(false, registry.isMaster() ? -1 : 0, group, sink));
    return bytesOf(sink);
}

// Every stored value of the instance, and what the chosen registry holds in its group.
std::vector<uint8_t> everything(Instance& instance, CAudioParamRegistry& registry, int32_t group)
{
    std::vector<uint8_t> all = captured(*instance.registries[0], -1);
    for (CAudioParamRegistry* r : instance.registries)
        if (!r->isMaster()) {
            const std::vector<uint8_t> part = captured(*r, r == &registry ? group : -1);
            all.insert(all.end(), part.begin(), part.end());
        }
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Instance instance;
    if (size < 2)
        return 0;
    CAudioParamRegistry& registry = *instance.registries[data[0] % std::size(kRegistryIds)];
    // The master's state is all groups at once.
    const int32_t group = registry.isMaster() ? -1 : int32_t(data[1] % 9) - 1;
    const bool includePersistent = registry.isMaster();
    const std::vector<uint8_t> before = everything(instance, registry, group);
    CMemoryReader in(data + 2, size - 2);
    if (CErrorPtr error = registry.activatePreset(in, includePersistent, group)) {
        checkError(error);
        FUZZ_CHECK(everything(instance, registry, group) == before);
        return 0;
    }
    // A group that held nothing is captured without entries, and applying that writes its
    // defaults there: the second round is where a capture must come back unchanged.
    std::vector<uint8_t> after = captured(registry, group);
    for (int round = 0; round < 2; ++round) {
        CMemoryReader again(after.data(), after.size());
        FUZZ_MUST_SUCCEED(registry.activatePreset(again, includePersistent, group));
        const std::vector<uint8_t> next = captured(registry, group);
        if (round == 1)
            FUZZ_CHECK(next == after);
        after = next;
    }
    return 0;
}
