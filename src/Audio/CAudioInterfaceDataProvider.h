#pragma once

#include "Core/CCheckedObject.h"

#include <cstdint>

namespace qel {

class CAudioParam;

// What the audio interface asks of the instance it serves: facts about channels and rate,
// and the host's edit gestures around a change made from the UI. The wrapper implements it.
class CAudioInterfaceDataProvider : public CCheckedObject
{
public:
    ~CAudioInterfaceDataProvider() override = default;

    virtual int32_t getInternalChannelCount() = 0;
    virtual int32_t getGroupCount() = 0;
    virtual int32_t getInputCount() = 0;
    virtual int32_t getOutputCount() = 0;
    virtual int32_t getSidechainCount() = 0;
    virtual double getSampleRate() = 0;
    // Open and close the host's edit of one element of a parameter, when the host sees it.
    virtual void beginParamEdit(CAudioParam* param, int32_t group, int32_t element) = 0;
    virtual void endParamEdit(CAudioParam* param, int32_t group, int32_t element) = 0;
    // Takes the host's channel labels into the routing.
    virtual void importChannelLabels() = 0;
};

} // namespace qel
