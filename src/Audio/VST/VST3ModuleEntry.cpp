// The plug-in module's entry points. Loading the module starts the framework from a
// static initialiser, with the product's definitions embedded in the module; the host's
// ModuleEntry and ModuleExit are counted, and GetPluginFactory hands out the factory.
// Nothing else leaves the module (see exports.map).

#include "Audio/CAudioCreators.h"
#include "Audio/VST/CAudioWrapperVST3Factory.h"
#include "Core/CCoreCreators.h"
#include "Core/CModuleLifetime.h"
#include "Definitions/ProductResources.h"

namespace {

qel::CModuleLifetime s_lifetime({qel::kCoreCreatorRows, qel::kAudioCreatorRows}, qel::kProductResourceRows,
                                "SharedData.xml");

} // namespace

extern "C" {

SMTG_EXPORT_SYMBOL bool ModuleEntry(void*)
{
    return s_lifetime.enter();
}

SMTG_EXPORT_SYMBOL bool ModuleExit()
{
    return s_lifetime.exit();
}

SMTG_EXPORT_SYMBOL Steinberg::IPluginFactory* PLUGIN_API GetPluginFactory()
{
    // A module whose start-up failed has nothing to offer.
    if (!s_lifetime.isUp())
        return nullptr;
    return qel::CAudioWrapperVST3Factory::get();
}

} // extern "C"
