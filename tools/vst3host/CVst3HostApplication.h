#pragma once

#include "CVst3Object.h"

#include "pluginterfaces/vst/ivsthostapplication.h"

#include <string>
#include <utility>

namespace qel {

// The context a plug-in gets in initialize: the host's name. It makes no objects for the
// plug-in; a plug-in whose component and controller are one object needs no messages.
class CVst3HostApplication : public CVst3Object<Steinberg::Vst::IHostApplication>
{
public:
    explicit CVst3HostApplication(std::string name) : m_name(std::move(name)) {}

    const std::string& name() const { return m_name; }

    Steinberg::tresult PLUGIN_API getName(Steinberg::Vst::String128 name) override;
    Steinberg::tresult PLUGIN_API createInstance(Steinberg::TUID cid, Steinberg::TUID iid, void** obj) override;

private:
    ~CVst3HostApplication() override = default;

    std::string m_name;
};

} // namespace qel
