#pragma once

#include "Core/CFileBase.h"
#include "Core/CPosOutputStream.h"

namespace qel {

// Writes a file; "*" is standard output ("stdout") and "*e" standard error ("stderr").
class CFileWriter : public CPosOutputStream, public CFileBase
{
public:
    // With append the content is kept and writing goes on at its end; else it is emptied.
    CErrorPtr open(const CString& name, bool append);
    CErrorPtr write(const void* buffer, size_t count) override;
    // Pushes written data to the disk, for callers that rename the file afterwards.
    CErrorPtr sync();
};

} // namespace qel
