#include "Audio/VST/CVST3SpeakerLayout.h"

#include <bit>
#include <iterator>

namespace qel {
namespace {

const char* const kSpeakerLabels[] = {
    "L",  "R",   "C",   "Lfe", "Ls",  "Rs",  "Lc",  "Rc",   "S",   "Sl",  "Sr",  "Tm",  "Tfl", "Tfc",
    "Tfr", "Trl", "Trc", "Trr", "Lfe2", "M",  "B-W", "B-X", "B-Y", "B-Z", "Tsl", "Tsr", "Lcs", "Rcs",
};

struct DefaultArrangement
{
    int32_t channels;
    uint64_t arrangement;
};

// Scanned from the top: the first row whose count is not above the wanted one.
const DefaultArrangement kDefaults[] = {
    {8, 0x63F}, {7, 0x63B}, {6, 0x3F}, {5, 0x3B}, {4, 0x10B}, {3, 0x103}, {2, 0x3}, {1, 0x80000},
};

} // namespace

uint64_t CVST3SpeakerLayout::defaultArrangement(int32_t channelCount)
{
    for (const DefaultArrangement& row : kDefaults)
        if (row.channels <= channelCount)
            return row.arrangement;
    return kDefaults[std::size(kDefaults) - 1].arrangement;
}

int32_t CVST3SpeakerLayout::channelCount(uint64_t arrangement)
{
    return std::popcount(arrangement);
}

CString CVST3SpeakerLayout::label(int32_t bit)
{
    if (bit >= 0 && bit < int32_t(std::size(kSpeakerLabels)))
        return CString(kSpeakerLabels[bit]);
    return CString::number(bit);
}

void CVST3SpeakerLayout::channelLabels(uint64_t arrangement, std::vector<CString>& out)
{
    out.clear();
    for (int32_t bit = 0; bit < 64; ++bit)
        if (arrangement & (uint64_t(1) << bit))
            out.push_back(label(bit));
}

} // namespace qel
