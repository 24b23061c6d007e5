// The state a host hands back to an instance of the product, damaged or not. Loading it is
// either refused, with a proper error and the instance's state as it was, or accepted;
// then what the instance saves must load again and save to the same bytes.

#include "FuzzCommon.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioWrapper.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"
#include "Core/CUserFolder.h"
#include "Definitions/ProductResources.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace qel;
using namespace qel::fuzz;

class FuzzWrapper : public CAudioWrapper
{
public:
    void onExtParamChanged(int, double) override {}
    void onProgramChanged() override {}
    void beginEdit(int32_t) override {}
    void endEdit(int32_t) override {}
};

// One instance for the whole run, on the product's definition, with stored settings read
// from an empty folder of its own rather than the user's.
struct Instance
{
    Instance()
    {
        CLog::setFileName(CString());
        std::string pattern = (std::filesystem::temp_directory_path() / "qel-fuzz-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            std::abort();
        folder = pattern;
        CUserFolder::setRoot(CString::fromUtf8(folder + "/"));
        FUZZ_MUST_SUCCEED(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, kProductResourceRows,
                                                CString("SharedData.xml")));
        FUZZ_MUST_SUCCEED(wrapper.init());
        FUZZ_MUST_SUCCEED(wrapper.finishInit());
    }
    ~Instance()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::string folder;
    FuzzWrapper wrapper;
};

std::vector<uint8_t> saved(CAudioWrapper& w)
{
    CWriteSeqBuffer sink;
    FUZZ_MUST_SUCCEED(w.saveState(sink));
    CByteArray bytes;
    FUZZ_MUST_SUCCEED(sink.toArray(bytes));
    return std::vector<uint8_t>(bytes.data(), bytes.data() + bytes.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Instance instance;
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
