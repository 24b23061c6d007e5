#pragma once

#include "Audio/VST/CVST3PluginFactory.h"
#include "Core/CString.h"

namespace qel {

class CObject;

// The module's factory, described by the project settings of the shared tree: vendor and
// contact, the class id from `plugin-uuid`, name, sub-categories and version. There is one
// per process; GetPluginFactory hands it out.
class CAudioWrapperVST3Factory
{
public:
    static constexpr const char* kCategory = "Audio Module Class";
    static constexpr const char* kSdkVersion = "VST 3.6.5";

    // The process's factory with a reference added for the caller, made on the first call
    // from `shared::project`; null without a shared tree or with a bad `plugin-uuid`.
    static Steinberg::IPluginFactory* get();
    // A new factory with one reference whose only class creates through `create`; null
    // when the project's `plugin-uuid` is not a class id.
    static CVST3PluginFactory* make(const CObject& project, CVST3PluginFactory::CreateFunction create);

    // 36 characters as "a1b2c3d4-e5f6-4a7b-8c9d-0e1f2a3b4c5d": 32 hex digits of either case
    // at positions 0-7, 9-12, 14-17, 19-22 and 24-35. The characters between the groups
    // are not looked at, nor anything behind position 35. The first three groups are
    // stored low byte first, the rest as written. False for shorter text or a bad digit,
    // leaving `out` as it was.
    static bool parseClassId(const CString& text, Steinberg::TUID out);

    static void fillFactoryInfo(const CObject& project, Steinberg::PFactoryInfo& out);
    static void fillClassInfo(const CObject& project, const Steinberg::TUID cid, Steinberg::PClassInfo2& out);
    // Both descriptions; false for a bad `plugin-uuid`.
    static bool describe(const CObject& project, Steinberg::PFactoryInfo& factoryInfo,
                         Steinberg::PClassInfo2& classInfo);
};

} // namespace qel
