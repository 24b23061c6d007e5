#include "CVst3Module.h"

#include "CVst3HostText.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <system_error>

namespace qel {

using namespace Steinberg;

namespace {

using ModuleEntryFunc = bool (*)(void*);
using ModuleExitFunc = bool (*)();
using GetFactoryFunc = IPluginFactory* (*)();

CString utf8(const std::string& text) { return CString::fromUtf8(text); }

} // namespace

const char* CVst3Module::architectureFolder()
{
#if defined(__x86_64__)
    return "x86_64-linux";
#elif defined(__aarch64__)
    return "aarch64-linux";
#elif defined(__i386__)
    return "i386-linux";
#elif defined(__arm__)
    return "armv7l-linux";
#else
#error "unknown architecture folder for VST 3 bundles"
#endif
}

CErrorPtr CVst3Module::resolveLibraryPath(const std::string& path, std::string& libraryPath)
{
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path given = fs::absolute(fs::path(path), error);
    if (error || path.empty())
        return QEL_ERROR(CString(), "@qelstr_CVst3Module_resolveLibraryPath_BadPath Plug-in path '%1' is not valid.",
                         utf8(path));
    given = given.lexically_normal();
    if (!given.has_filename())
        given = given.parent_path();
    const fs::file_status status = fs::status(given, error);
    if (error || !fs::exists(status))
        return QEL_ERROR(CString(), "@qelstr_CVst3Module_resolveLibraryPath_NotFound Plug-in '%1' not found.",
                         utf8(path));
    if (fs::is_directory(status)) {
        const fs::path library = given / "Contents" / architectureFolder() / (given.stem().string() + ".so");
        if (!fs::is_regular_file(library, error))
            return QEL_ERROR(CString(), "@qelstr_CVst3Module_resolveLibraryPath_NoLibrary Bundle '%1' holds no '%2'.",
                             utf8(path), utf8(library.string()));
        libraryPath = library.string();
        return nullptr;
    }
    libraryPath = given.string();
    return nullptr;
}

CErrorPtr CVst3Module::load(const std::string& path, FUnknown* hostContext)
{
    unload();
    std::string library;
    QEL_RETURN_IF_ERROR(resolveLibraryPath(path, library), CString());

    dlerror();
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        return QEL_ERROR(CString(), "@qelstr_CVst3Module_load_OpenFailed Unable to load '%1': %2",
                         utf8(library), utf8(reason ? reason : "unknown reason"));
    }
    m_handle = handle;
    m_libraryPath = library;

    // A module may do without an entry routine; one that has it must agree to start.
    if (auto entry = reinterpret_cast<ModuleEntryFunc>(dlsym(handle, "ModuleEntry"))) {
        if (!entry(handle)) {
            unload();
            return QEL_ERROR(CString(), "@qelstr_CVst3Module_load_EntryFailed ModuleEntry of '%1' failed.",
                             utf8(library));
        }
        m_entered = true;
    }

    auto getFactory = reinterpret_cast<GetFactoryFunc>(dlsym(handle, "GetPluginFactory"));
    if (!getFactory) {
        unload();
        return QEL_ERROR(CString(), "@qelstr_CVst3Module_load_NoFactory '%1' is not a VST 3 module: it has no GetPluginFactory.",
                         utf8(library));
    }
    m_factory = getFactory();
    if (!m_factory) {
        unload();
        return QEL_ERROR(CString(), "@qelstr_CVst3Module_load_FactoryFailed The plug-in factory of '%1' could not be made.",
                         utf8(library));
    }
    if (hostContext) {
        IPluginFactory3* factory3 = nullptr;
        if (m_factory->queryInterface(IPluginFactory3::iid, reinterpret_cast<void**>(&factory3)) == kResultOk
            && factory3) {
            factory3->setHostContext(hostContext);
            factory3->release();
        }
    }
    readClasses();
    return nullptr;
}

void CVst3Module::readClasses()
{
    PFactoryInfo info;
    if (m_factory->getFactoryInfo(&info) == kResultOk) {
        m_factoryInfo.vendor = CVst3HostText::fromBytes(info.vendor, PFactoryInfo::kNameSize);
        m_factoryInfo.url = CVst3HostText::fromBytes(info.url, PFactoryInfo::kURLSize);
        m_factoryInfo.email = CVst3HostText::fromBytes(info.email, PFactoryInfo::kEmailSize);
        m_factoryInfo.flags = info.flags;
    }
    IPluginFactory2* factory2 = nullptr;
    if (m_factory->queryInterface(IPluginFactory2::iid, reinterpret_cast<void**>(&factory2)) != kResultOk)
        factory2 = nullptr;
    const int32 count = m_factory->countClasses();
    for (int32 i = 0; i < count; ++i) {
        CVst3ClassInfo entry;
        PClassInfo2 info2;
        PClassInfo info1;
        if (factory2 && factory2->getClassInfo2(i, &info2) == kResultOk) {
            std::memcpy(entry.cid, info2.cid, sizeof(TUID));
            entry.category = CVst3HostText::fromBytes(info2.category, PClassInfo::kCategorySize);
            entry.name = CVst3HostText::fromBytes(info2.name, PClassInfo::kNameSize);
            entry.cardinality = info2.cardinality;
            entry.subCategories = CVst3HostText::fromBytes(info2.subCategories, PClassInfo2::kSubCategoriesSize);
            entry.vendor = CVst3HostText::fromBytes(info2.vendor, PClassInfo2::kVendorSize);
            entry.version = CVst3HostText::fromBytes(info2.version, PClassInfo2::kVersionSize);
            entry.sdkVersion = CVst3HostText::fromBytes(info2.sdkVersion, PClassInfo2::kVersionSize);
            entry.classFlags = info2.classFlags;
        } else if (m_factory->getClassInfo(i, &info1) == kResultOk) {
            std::memcpy(entry.cid, info1.cid, sizeof(TUID));
            entry.category = CVst3HostText::fromBytes(info1.category, PClassInfo::kCategorySize);
            entry.name = CVst3HostText::fromBytes(info1.name, PClassInfo::kNameSize);
            entry.cardinality = info1.cardinality;
        } else {
            continue;
        }
        m_classes.push_back(entry);
    }
    if (factory2)
        factory2->release();
}

const CVst3ClassInfo* CVst3Module::findClass(const char* category) const
{
    for (const CVst3ClassInfo& entry : m_classes)
        if (entry.category == category)
            return &entry;
    return nullptr;
}

void CVst3Module::unload()
{
    if (m_factory) {
        m_factory->release();
        m_factory = nullptr;
    }
    if (m_entered) {
        if (auto exitFunc = reinterpret_cast<ModuleExitFunc>(dlsym(m_handle, "ModuleExit")))
            exitFunc();
        m_entered = false;
    }
    if (m_handle) {
        dlclose(m_handle);
        m_handle = nullptr;
    }
    m_libraryPath.clear();
    m_factoryInfo = CVst3FactoryInfo();
    m_classes.clear();
}

} // namespace qel
