#pragma once

#include "Core/COutputStream.h"
#include "Core/CPosStream.h"

namespace qel {

// A byte sink with a position.
class CPosOutputStream : public COutputStream, public virtual CPosStream
{
};

} // namespace qel
