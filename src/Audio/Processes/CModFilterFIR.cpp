#include "Audio/Processes/CModFilterFIR.h"

#include "Audio/CAudioParamDef.h"
#include "Audio/Filters/CAudioFilterGenArray.h"
#include "Audio/Processes/CModFilterFIRDef.h"
#include "Core/CLog.h"

#include <new>

namespace qel {
// The layout comes first: the base makes the prepared modules, and each reads it.
CErrorPtr CModFilterFIR::init()
{
    using CLayout = CModFilterFIRModule::CLayout;
    m_layout = CLayout();
    if (const auto* def = dynamic_cast<const CModFilterFIRDef*>(m_def)) {
        m_layout.isWhole = def->isTerminalWhole();
        m_layout.isZeroLatency = def->isZeroLatency();
        m_layout.genArray = CAudioFilterGenArray::resolve(*def, def->genArrayPath(), m_fullName);
        bool hasPoints = false;
        // The rows in the order of their index, which is the order of the generator's names.
        for (const auto& [index, name] : def->slotRows(CAudioModule::kMaxSlots)) {
            m_layout.slotCount = index + 1;
            if (name == CString("count")) {
                m_layout.countSlot = index;
            } else if (name == CString("index")) {
                m_layout.indexSlot = index;
            } else if (name == CString("latency")) {
                m_layout.latencySlot = index;
            } else if (name == CString("fixsr")) {
                m_layout.fixsrSlot = index;
            } else if (name == CString("points") || name == CString("points2") || name == CString("points3")) {
                const int32_t k = name == CString("points") ? 0 : name == CString("points2") ? 1 : 2;
                m_layout.pointSlots[k] = index;
                hasPoints = true;
            } else if (m_layout.names.count() < CAudioFilterParamNames::kMaxNames - CLayout::kPointLists - 1) {
                m_layout.valueSlots[m_layout.names.count()] = index;
                m_layout.names.add(name);
            }
        }
        m_layout.valueCount = m_layout.names.count();
        if (hasPoints) {
            for (const char* extra : {"element-size", "element-count", "element-count2", "element-count3"})
                m_layout.names.add(extra);
        }
    }
    return CAudioProcessTerminalBase::init();
}

void CModFilterFIR::noteCombining() const
{
    noteDiagnostic([](const CString& name, int32_t, double) {
        CLog::printfObject(name, "FIR filter combining was not implemented yet!");
    });
}

CAudioModule* CModFilterFIR::createModule() { return new (std::nothrow) CModFilterFIRModule(m_layout); }

} // namespace qel
