#pragma once

#include "CHostSignal.h"

#include <vector>

namespace qel {

// Peak and RMS of each channel, in dBFS (full scale 1.0); silence reads as -inf.
struct CSignalLevels
{
    std::vector<double> peakDb;
    std::vector<double> rmsDb;

    static CSignalLevels measure(const CHostSignal& signal);
};

} // namespace qel
