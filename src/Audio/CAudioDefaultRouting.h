#pragma once

#include "Core/CString.h"

#include <cstdint>
#include <vector>

namespace qel {

class CAudioParam;
struct CAudioParamUpdateContext;

// The routing an instance takes from the host's channel layout: its labels become the
// channel names, every host channel is routed in and out one to one and joins the first
// group, whose name says mono, stereo or multi. It stands in only while the user has not
// routed by hand: the current values must be this layout as written before, or the
// defaults, or one of the plain one-to-one layouts.
class CAudioDefaultRouting
{
public:
    // The routing parameters; any may be null (the project leaves it out), except that
    // without names, routing and grouping there is nothing to do.
    struct CParams
    {
        CAudioParam* inChannelNames = nullptr;
        CAudioParam* groupNames = nullptr;
        CAudioParam* inRouting = nullptr;
        CAudioParam* grouping = nullptr;
        CAudioParam* outRouting = nullptr;
        CAudioParam* msPairs = nullptr;
        CAudioParam* sidechain = nullptr;
        CAudioParam* sidechainMute = nullptr;
    };

    CAudioDefaultRouting(const CParams& params, int32_t channelCount, int32_t groupCount);

    bool isAvailable() const;
    // Whether the routing is still the host's or the defaults', nothing of the user's.
    bool isUntouched() const;
    // Writes the layout of these labels into `context` (one undo step and one batch for the
    // caller); returns whether anything changed. Values already in place are not written.
    bool apply(const std::vector<CString>& mainLabels, const std::vector<CString>& sidechainLabels,
               const void* source, CAudioParamUpdateContext& context);

private:
    std::vector<double> values(CAudioParam* param, int32_t count) const;
    bool write(CAudioParam* param, const std::vector<double>& wanted, const void* source,
               CAudioParamUpdateContext& context);
    bool writeText(CAudioParam* param, int32_t element, const CString& text, const void* source,
                   CAudioParamUpdateContext& context);

    CParams m_params;
    int32_t m_channelCount = 0;
    int32_t m_groupCount = 0;
    // What was written last where the plain layouts do not describe it.
    CString m_writtenFirstGroupName;
    std::vector<double> m_writtenSidechain;
    std::vector<double> m_writtenSidechainMute;
};

} // namespace qel
