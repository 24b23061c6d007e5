#include "CVst3ComponentHandler.h"

namespace qel {

using namespace Steinberg;
using namespace Steinberg::Vst;

std::vector<CVst3HandlerCall> CVst3ComponentHandler::calls() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_calls;
}

int CVst3ComponentHandler::countOf(CVst3HandlerCall::Kind kind) const
{
    std::lock_guard<std::mutex> guard(m_lock);
    int count = 0;
    for (const CVst3HandlerCall& call : m_calls)
        if (call.kind == kind)
            ++count;
    return count;
}

void CVst3ComponentHandler::clear()
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_calls.clear();
}

void CVst3ComponentHandler::record(CVst3HandlerCall::Kind kind, int32 id, double value, int32 flags)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_calls.push_back(CVst3HandlerCall{kind, id, value, flags});
}

tresult PLUGIN_API CVst3ComponentHandler::beginEdit(ParamID id)
{
    record(CVst3HandlerCall::kBeginEdit, static_cast<int32>(id), 0.0, 0);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::performEdit(ParamID id, ParamValue valueNormalized)
{
    record(CVst3HandlerCall::kPerformEdit, static_cast<int32>(id), valueNormalized, 0);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::endEdit(ParamID id)
{
    record(CVst3HandlerCall::kEndEdit, static_cast<int32>(id), 0.0, 0);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::restartComponent(int32 flags)
{
    record(CVst3HandlerCall::kRestartComponent, 0, 0.0, flags);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::setDirty(TBool state)
{
    record(CVst3HandlerCall::kSetDirty, 0, state ? 1.0 : 0.0, 0);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::requestOpenEditor(FIDString)
{
    // A command-line host has no window to open.
    record(CVst3HandlerCall::kRequestOpenEditor, 0, 0.0, 0);
    return kResultFalse;
}

tresult PLUGIN_API CVst3ComponentHandler::startGroupEdit()
{
    record(CVst3HandlerCall::kStartGroupEdit, 0, 0.0, 0);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::finishGroupEdit()
{
    record(CVst3HandlerCall::kFinishGroupEdit, 0, 0.0, 0);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::notifyUnitSelection(UnitID unitId)
{
    record(CVst3HandlerCall::kNotifyUnitSelection, unitId, 0.0, 0);
    return kResultOk;
}

tresult PLUGIN_API CVst3ComponentHandler::notifyProgramListChange(ProgramListID listId, int32 programIndex)
{
    record(CVst3HandlerCall::kNotifyProgramListChange, listId, programIndex, 0);
    return kResultOk;
}

} // namespace qel
