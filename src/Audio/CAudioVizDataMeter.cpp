#include "Audio/CAudioVizDataMeter.h"

#include "Core/CInputStream.h"
#include "Core/COutputStream.h"

namespace qel {

CErrorPtr CAudioVizDataMeter::save(COutputStream& out) const
{
    QEL_RETURN_IF_ERROR(saveBase(out), CString());
    QEL_RETURN_IF_ERROR(out.writeDouble(rms), CString());
    QEL_RETURN_IF_ERROR(out.writeDouble(peak), CString());
    return nullptr;
}

CErrorPtr CAudioVizDataMeter::load(CInputStream& in)
{
    CAudioVizDataMeter read;
    QEL_RETURN_IF_ERROR(loadBase(in, read), CString());
    QEL_RETURN_IF_ERROR(in.readDouble(read.rms), CString());
    QEL_RETURN_IF_ERROR(in.readDouble(read.peak), CString());
    *this = read;
    return nullptr;
}

} // namespace qel
