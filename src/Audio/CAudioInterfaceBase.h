#pragma once

#include "Audio/CAudioParamUndo.h"

namespace qel {

// The audio side's end of the parameter interface (tag audio:interface-base). For now it
// only carries the instance's undo history; the message protocol towards clients builds
// on it later.
class CAudioInterfaceBase : public CAudioParamUndo
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioParamUndo::initClassInfo(info); }
    ~CAudioInterfaceBase() override;
};

} // namespace qel
