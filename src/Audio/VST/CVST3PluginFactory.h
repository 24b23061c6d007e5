#pragma once

#include "pluginterfaces/base/ipluginbase.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace qel {

// The object a module's GetPluginFactory hands out: it describes the module's classes and
// creates their instances. The descriptions are filled before the host sees the factory
// and never change afterwards, so the host may ask from any thread.
//
// SDK interfaces are released, never deleted through their own pointers: they have no
// virtual destructor by design.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class CVST3PluginFactory : public Steinberg::IPluginFactory3
{
public:
    // Makes an instance with one reference, as an FUnknown; null on failure.
    using CreateFunction = Steinberg::FUnknown* (*)();

    explicit CVST3PluginFactory(const Steinberg::PFactoryInfo& info);
    virtual ~CVST3PluginFactory();
    CVST3PluginFactory(const CVST3PluginFactory&) = delete;
    CVST3PluginFactory& operator=(const CVST3PluginFactory&) = delete;

    void registerClass(const Steinberg::PClassInfo2& info, CreateFunction create);

    // ---- IPluginFactory
    Steinberg::tresult PLUGIN_API getFactoryInfo(Steinberg::PFactoryInfo* info) override;
    Steinberg::int32 PLUGIN_API countClasses() override;
    Steinberg::tresult PLUGIN_API getClassInfo(Steinberg::int32 index, Steinberg::PClassInfo* info) override;
    Steinberg::tresult PLUGIN_API createInstance(Steinberg::FIDString cid, Steinberg::FIDString wanted,
                                                 void** obj) override;
    // ---- IPluginFactory2
    Steinberg::tresult PLUGIN_API getClassInfo2(Steinberg::int32 index, Steinberg::PClassInfo2* info) override;
    // ---- IPluginFactory3
    Steinberg::tresult PLUGIN_API getClassInfoUnicode(Steinberg::int32 index, Steinberg::PClassInfoW* info) override;
    // The factory keeps nothing of the host.
    Steinberg::tresult PLUGIN_API setHostContext(Steinberg::FUnknown* context) override;

    // ---- FUnknown
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID wanted, void** obj) override;
    Steinberg::uint32 PLUGIN_API addRef() override;
    Steinberg::uint32 PLUGIN_API release() override;

private:
    struct ClassEntry
    {
        Steinberg::PClassInfo2 info;
        CreateFunction create;
    };

    const ClassEntry* entry(Steinberg::int32 index) const;

    std::atomic<Steinberg::uint32> m_refCount{1};
    Steinberg::PFactoryInfo m_info;
    std::vector<ClassEntry> m_classes;
};
#pragma GCC diagnostic pop

} // namespace qel
