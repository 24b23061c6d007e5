#pragma once

#include "CVst3Object.h"

#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstunits.h"

#include <mutex>
#include <vector>

namespace qel {

// One call the plug-in made to its host.
struct CVst3HandlerCall
{
    enum Kind
    {
        kBeginEdit,
        kPerformEdit,
        kEndEdit,
        kRestartComponent,
        kSetDirty,
        kRequestOpenEditor,
        kStartGroupEdit,
        kFinishGroupEdit,
        kNotifyUnitSelection,
        kNotifyProgramListChange,
    };
    Kind kind;
    Steinberg::int32 id;           // parameter, unit or program list id; 0 where none
    Steinberg::Vst::ParamValue value; // normalised value of an edit; program index; dirty state
    Steinberg::int32 flags;        // restart flags
};

// The handler a host gives the controller: it records every call, in order, for a host to
// act on or a test to check. The plug-in may call it from any thread, so recording takes a
// lock; a real-time host would queue instead.
class CVst3ComponentHandler
    : public CVst3Object<Steinberg::Vst::IComponentHandler, Steinberg::Vst::IComponentHandler2,
                         Steinberg::Vst::IUnitHandler>
{
public:
    CVst3ComponentHandler() = default;

    // any thread
    std::vector<CVst3HandlerCall> calls() const;
    int countOf(CVst3HandlerCall::Kind kind) const;
    void clear();

    Steinberg::tresult PLUGIN_API beginEdit(Steinberg::Vst::ParamID id) override;
    Steinberg::tresult PLUGIN_API performEdit(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue valueNormalized) override;
    Steinberg::tresult PLUGIN_API endEdit(Steinberg::Vst::ParamID id) override;
    Steinberg::tresult PLUGIN_API restartComponent(Steinberg::int32 flags) override;

    Steinberg::tresult PLUGIN_API setDirty(Steinberg::TBool state) override;
    Steinberg::tresult PLUGIN_API requestOpenEditor(Steinberg::FIDString name) override;
    Steinberg::tresult PLUGIN_API startGroupEdit() override;
    Steinberg::tresult PLUGIN_API finishGroupEdit() override;

    Steinberg::tresult PLUGIN_API notifyUnitSelection(Steinberg::Vst::UnitID unitId) override;
    Steinberg::tresult PLUGIN_API notifyProgramListChange(Steinberg::Vst::ProgramListID listId,
                                                          Steinberg::int32 programIndex) override;

private:
    ~CVst3ComponentHandler() override = default;
    void record(CVst3HandlerCall::Kind kind, Steinberg::int32 id, double value, Steinberg::int32 flags);

    mutable std::mutex m_lock;
    std::vector<CVst3HandlerCall> m_calls;
};

} // namespace qel
