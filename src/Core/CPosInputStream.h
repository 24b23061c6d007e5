#pragma once

#include "Core/CInputStream.h"
#include "Core/CPosStream.h"

namespace qel {

// A byte source with a position.
class CPosInputStream : public CInputStream, public virtual CPosStream
{
};

} // namespace qel
