// Compiled definitions come from the module, but a damaged module or a file given by name
// must fail cleanly. The input is loaded as an image into a fresh instance tree; what
// loads must also be usable: every template it brings is instantiated, and a load that
// fails leaves no half-built tree behind once the caller deletes it.

#include "FuzzCommon.h"

#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"
#include "Core/CResourceRegistry.h"

#include <cstddef>
#include <cstdint>

namespace {

using namespace qel;

// Unknown tags are logged; the fuzzer makes many of them.
struct QuietLog : ILogSink
{
    void logText(const char*, bool) override {}
};

bool startOnce()
{
    static QuietLog quiet;
    CLog::setSink(&quiet);
    CLog::setFileName(CString());
    CErrorPtr error = CApplication::startup({kCoreCreatorRows}, nullptr, CString());
    return !error;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool started = startOnce();
    FUZZ_CHECK(started);
    const CString name("fuzz-image");
    CResourceRegistry::add(name, data, size);
    {
        CObjectPtr root;
        FUZZ_MUST_SUCCEED(CApplication::initRootObject(root, CString()));
        CObject* target = nullptr;
        FUZZ_MUST_SUCCEED(root->addChild(target, CString("core:object"), CString("target"), false));
        CErrorPtr error = target->loadXMLData(name, true);
        if (error) {
            fuzz::checkError(error);
        } else {
            FUZZ_CHECK(target->state() == CObject::Complete);
            for (int i = 0; i < target->childCount() && i < 16; ++i) {
                CObject* child = target->child(i);
                CObject* made = nullptr;
                if (child->templateBody()) {
                    if (CErrorPtr failed = target->createChild(made, child->name(), CString("made"), true))
                        fuzz::checkError(failed);
                    else
                        FUZZ_CHECK(made->state() == CObject::Complete);
                }
            }
        }
    }
    CResourceRegistry::remove(name);
    FUZZ_CHECK(CApplication::liveTreeContexts() == 0);
    return 0;
}
