#include "CVst3HostApplication.h"

#include "CVst3HostText.h"

namespace qel {

using namespace Steinberg;

tresult PLUGIN_API CVst3HostApplication::getName(Vst::String128 name)
{
    if (!name)
        return kInvalidArgument;
    CVst3HostText::utf8ToUnits(m_name, name);
    return kResultOk;
}

tresult PLUGIN_API CVst3HostApplication::createInstance(TUID, TUID, void** obj)
{
    if (obj)
        *obj = nullptr;
    return kResultFalse;
}

} // namespace qel
