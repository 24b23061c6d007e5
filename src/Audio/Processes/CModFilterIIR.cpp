#include "Audio/Processes/CModFilterIIR.h"

#include "Audio/CAudioParamDef.h"
#include "Audio/Filters/CAudioFilterGenArray.h"
#include "Audio/Processes/CModFilterIIRDef.h"

#include <new>

namespace qel {
// The layout comes first: the base makes the prepared modules, and each reads it.
CErrorPtr CModFilterIIR::init()
{
    m_layout = CModFilterIIRModule::CLayout();
    if (const auto* def = dynamic_cast<const CModFilterIIRDef*>(m_def)) {
        m_layout.isWhole = def->isTerminalWhole();
        m_layout.genArray = CAudioFilterGenArray::resolve(*def, def->genArrayPath(), m_fullName);
        for (const auto& [index, name] : def->slotRows(CAudioModule::kMaxSlots)) {
            m_layout.slotCount = index + 1;
            if (name == CString("index")) {
                m_layout.indexSlot = index;
            } else if (name != CString("count") && name != CString("points")) {
                const int32_t at = m_layout.names.count();
                if (m_layout.names.add(name))
                    m_layout.valueSlots[at] = index;
            }
        }
    }
    return CAudioProcessTerminalBase::init();
}

CAudioModule* CModFilterIIR::createModule() { return new (std::nothrow) CModFilterIIRModule(m_layout); }

} // namespace qel
