#pragma once

#include "Core/CCheckedObject.h"
#include "Core/CError.h"
#include "Core/CInputStream.h"
#include "Core/COutputStream.h"
#include "Core/CString.h"

#include <cstdint>

namespace qel {

// Data the product keeps in its own stream format (image sets, fonts): read from an
// embedded resource or a file of the same name, and written back to any stream.
class CDataSet : public CCheckedObject
{
public:
    // The tag that marks this kind of data in a stream.
    virtual uint32_t getDataTag() const = 0;
    virtual CErrorPtr read(CInputStream& stream) = 0;
    virtual CErrorPtr write(COutputStream& stream) = 0;

    // Reads the resource of that name, or else the file at that path.
    CErrorPtr load(const CString& name);
};

} // namespace qel
