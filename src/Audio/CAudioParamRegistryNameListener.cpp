#include "Audio/CAudioParamRegistryNameListener.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamRegistry.h"

namespace qel {

void CAudioParamRegistryNameListener::onUpdate(const CUpdateMessage* message)
{
    // The collector tells every listener of the name parameter's key with its own kind of
    // message.
    const auto* update = static_cast<const CAudioParamUpdateMessage*>(message);
    CAudioParamRegistry* registry = m_owner;
    if (!registry || !update || !update->param || update->param != registry->m_presetNameParam || !update->change)
        return;
    // The registry's own writes already match its bank.
    if (update->source == reinterpret_cast<uint64_t>(registry) || update->change->group != 0)
        return;
    registry->adoptNameFromParam(registry->m_id + CString(":") + update->param->getString(0, 0));
}

} // namespace qel
