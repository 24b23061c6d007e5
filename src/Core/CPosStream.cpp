#include "Core/CPosStream.h"

#include <climits>

namespace qel {

CErrorPtr CPosStream::getPositionInt32(int32_t& outPosition)
{
    int64_t position = 0;
    QEL_RETURN_IF_ERROR(getPosition(position), CString());
    if (position > INT32_MAX)
        return QEL_ERROR(CString(), "@qelstr_CPosStream_getPositionInt32_Greater2GB The size of the stream is above allowed 2 GB.");
    outPosition = static_cast<int32_t>(position);
    return nullptr;
}

CErrorPtr CPosStream::getSizeInt(int32_t& outSize)
{
    int64_t size = 0;
    QEL_RETURN_IF_ERROR(getSize(size), CString());
    if (size > INT32_MAX)
        return QEL_ERROR(CString(), "@qelstr_CPosStream_getSizeInt_Greater2GB The size of the stream is above allowed 2 GB.");
    outSize = static_cast<int32_t>(size);
    return nullptr;
}

} // namespace qel
