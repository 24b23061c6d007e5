#pragma once

#include "CVst3ClassInfo.h"
#include "Core/CError.h"

#include "pluginterfaces/base/ipluginbase.h"

#include <string>
#include <vector>

namespace qel {

// A plug-in module loaded as a host loads one: the shared object inside a bundle is
// opened, told of its handle through ModuleEntry, and asked for its factory; unloading
// releases the factory, calls ModuleExit and closes the object. The module must outlive
// every instance made from it.
//
// main thread
class CVst3Module
{
public:
    CVst3Module() = default;
    CVst3Module(const CVst3Module&) = delete;
    CVst3Module& operator=(const CVst3Module&) = delete;
    ~CVst3Module() { unload(); }

    // `path` names a bundle folder ("X.vst3", whose Contents/<arch>-linux/X.so is opened)
    // or a shared object. `hostContext`, when given, goes to a factory that takes one.
    CErrorPtr load(const std::string& path, Steinberg::FUnknown* hostContext = nullptr);
    void unload();

    bool isLoaded() const { return m_handle != nullptr; }
    const std::string& libraryPath() const { return m_libraryPath; }
    Steinberg::IPluginFactory* factory() const { return m_factory; }
    const CVst3FactoryInfo& factoryInfo() const { return m_factoryInfo; }
    const std::vector<CVst3ClassInfo>& classes() const { return m_classes; }
    // The first class of a category, such as kVstAudioEffectClass; null when none.
    const CVst3ClassInfo* findClass(const char* category) const;

    // The shared object a path stands for: inside a bundle folder, the object named after
    // the folder in the architecture's folder; any other path as it is.
    static CErrorPtr resolveLibraryPath(const std::string& path, std::string& libraryPath);
    // The bundle's architecture folder on this machine, e.g. "x86_64-linux".
    static const char* architectureFolder();

private:
    void readClasses();

    void* m_handle = nullptr;
    bool m_entered = false; // ModuleEntry succeeded, so ModuleExit is owed
    Steinberg::IPluginFactory* m_factory = nullptr;
    std::string m_libraryPath;
    CVst3FactoryInfo m_factoryInfo;
    std::vector<CVst3ClassInfo> m_classes;
};

} // namespace qel
