// The state a host hands back to an instance of the product, damaged or not. Loading it is
// either refused, with a proper error and the instance's state as it was, or accepted;
// then what the instance saves must load again and save to the same bytes.

#include "FuzzProductInstance.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using namespace qel;
using namespace qel::fuzz;

std::vector<uint8_t> saved(CAudioWrapper& w)
{
    CWriteSeqBuffer sink;
    FUZZ_MUST_SUCCEED(w.saveState(sink));
    return bytesOf(sink);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static FuzzProductInstance instance;
    CAudioWrapper& w = instance.wrapper;
    const std::vector<uint8_t> before = saved(w);
    CMemoryReader in(data, size);
    if (CErrorPtr error = w.loadState(in)) {
        checkError(error);
        FUZZ_CHECK(saved(w) == before);
        return 0;
    }
    const std::vector<uint8_t> after = saved(w);
    CMemoryReader again(after.data(), after.size());
    FUZZ_MUST_SUCCEED(w.loadState(again));
    FUZZ_CHECK(saved(w) == after);
    return 0;
}
