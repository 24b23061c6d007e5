#include "Audio/CAudioCCTable.h"

#include "Audio/CAudioExtParam.h"
#include "Core/CAppData.h"
#include "Core/CMemoryReader.h"

namespace qel {

CErrorPtr CAudioCCTable::initChilds()
{
    QEL_RETURN_IF_ERROR(CObject::initChilds(), getFullName());
    CByteArray bytes;
    CAppData::local().readData(CString("ccmap"), bytes, CAppData::kTagData, false);
    load(bytes);
    return nullptr;
}

void CAudioCCTable::load(const CByteArray& bytes)
{
    std::array<CAudioExtParam*, kControllers> table{};
    CMemoryReader in(bytes.data(), bytes.size());
    uint32_t count = 0;
    bool ok = !bytes.isEmpty() && !in.readU32(count);
    for (uint32_t i = 0; ok && i < count; ++i) {
        uint32_t controller = 0;
        CString path;
        ok = !in.readU32(controller) && !in.readString(path);
        if (ok && controller < uint32_t(kControllers))
            table[controller] = dynamic_cast<CAudioExtParam*>(findObject(path));
    }
    CLockGuard guard(m_lock);
    m_table = ok ? table : std::array<CAudioExtParam*, kControllers>{};
}

CAudioExtParam* CAudioCCTable::find(int controller)
{
    if (controller < 0 || controller >= kControllers)
        return nullptr;
    CLockGuard guard(m_lock);
    return m_table[size_t(controller)];
}

} // namespace qel
