#include "Core/CDataSet.h"

#include "Core/CResourceReader.h"

namespace qel {

CErrorPtr CDataSet::load(const CString& name)
{
    CResourceReader reader;
    QEL_RETURN_IF_ERROR(reader.open(name), name);
    QEL_RETURN_IF_ERROR(read(reader), name);
    reader.close();
    return nullptr;
}

} // namespace qel
