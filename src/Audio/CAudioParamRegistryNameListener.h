#pragma once

#include "Core/CUpdateNotifier.h"

namespace qel {

class CAudioParamRegistry;

// Keeps the registry's bank in line with the parameter that shows the preset's name: when
// a user (or anyone but the registry) writes a new name in group 0, the current preset
// takes it.
class CAudioParamRegistryNameListener : public COwnedUpdateListener<CAudioParamRegistry>
{
public:
    using COwnedUpdateListener<CAudioParamRegistry>::COwnedUpdateListener;
    void onUpdate(const CUpdateMessage* message) override;
};

} // namespace qel
