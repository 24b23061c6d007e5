#pragma once

#include "Audio/CAudioProcessTerminalBase.h"

#include <new>

namespace qel {

// A leaf process over one module type. The module's process(n) is called directly, so
// the per-block cost of the indirection is one virtual call per module.
template <class Module>
class CAudioProcessTerminal : public CAudioProcessTerminalBase
{
protected:
    CAudioModule* createModule() override { return new (std::nothrow) Module(); }
    void runModule(CAudioModule& module, int32_t n) override { static_cast<Module&>(module).process(n); }
};

} // namespace qel
