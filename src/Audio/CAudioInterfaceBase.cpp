#include "Audio/CAudioInterfaceBase.h"

namespace qel {

CAudioInterfaceBase::~CAudioInterfaceBase() = default;

} // namespace qel
