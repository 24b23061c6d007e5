#pragma once

// The product, instantiated once for a whole fuzz run: its definition, a wrapper that
// answers the host's calls with nothing, and stored settings read from an empty folder of
// its own rather than the user's.

#include "FuzzCommon.h"

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioWrapper.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"
#include "Core/CUserFolder.h"
#include "Definitions/ProductResources.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace qel::fuzz {

class FuzzWrapper : public CAudioWrapper
{
public:
    void onExtParamChanged(int, double) override {}
    void onProgramChanged() override {}
    void beginEdit(int32_t) override {}
    void endEdit(int32_t) override {}
};

struct FuzzProductInstance
{
    FuzzProductInstance()
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
    ~FuzzProductInstance()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::string folder;
    FuzzWrapper wrapper;
};

// What a sink was given, as bytes to compare.
inline std::vector<uint8_t> bytesOf(CWriteSeqBuffer& sink)
{
    CByteArray bytes;
    FUZZ_MUST_SUCCEED(sink.toArray(bytes));
    return std::vector<uint8_t>(bytes.data(), bytes.data() + bytes.size());
}

} // namespace qel::fuzz
