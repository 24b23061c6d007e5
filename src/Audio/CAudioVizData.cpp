#include "Audio/CAudioVizData.h"

#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

namespace qel {

CErrorPtr CAudioVizData::saveBase(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(out.writeU32(channel), CString());
    QEL_RETURN_IF_ERROR(out.writeU32(group), CString());
    QEL_RETURN_IF_ERROR(out.writeU32(element), CString());
    QEL_RETURN_IF_ERROR(out.writeDouble(time), CString());
    QEL_RETURN_IF_ERROR(out.writeI32(slot), CString());
    return nullptr;
}

CErrorPtr CAudioVizData::loadBase(CInputStream& in, CAudioVizData& into)
{
    QEL_RETURN_IF_ERROR(in.readU32(into.channel), CString());
    QEL_RETURN_IF_ERROR(in.readU32(into.group), CString());
    QEL_RETURN_IF_ERROR(in.readU32(into.element), CString());
    QEL_RETURN_IF_ERROR(in.readDouble(into.time), CString());
    QEL_RETURN_IF_ERROR(in.readI32(into.slot), CString());
    return nullptr;
}

CErrorPtr CAudioVizData::save(COutputStream& out) const { return saveBase(out); }

CErrorPtr CAudioVizData::load(CInputStream& in)
{
    CAudioVizData read(m_type);
    QEL_RETURN_IF_ERROR(loadBase(in, read), CString());
    *this = read;
    return nullptr;
}

} // namespace qel
