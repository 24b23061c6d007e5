#pragma once

#include "Core/CFileBase.h"
#include "Core/CPosInputStream.h"

namespace qel {

// Reads a file; the name "*" is the process's standard input ("stdin").
class CFileReader : public CPosInputStream, public CFileBase
{
public:
    // With readWrite the file is opened for both and made when absent.
    CErrorPtr open(const CString& name, bool readWrite);

    CErrorPtr skip(int64_t count) override;
    CErrorPtr read(void* buffer, size_t count) override;
    CErrorPtr readStreamed(void* buffer, size_t& inOutCount) override;

private:
    // Reads until count or the end; gives back the count read or -1 with errno set.
    ssize_t readUpTo(void* buffer, size_t count);
};

} // namespace qel
