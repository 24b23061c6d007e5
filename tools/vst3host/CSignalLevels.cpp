#include "CSignalLevels.h"

#include <cmath>
#include <limits>

namespace qel {

namespace {

double toDb(double linear)
{
    return linear > 0.0 ? 20.0 * std::log10(linear) : -std::numeric_limits<double>::infinity();
}

} // namespace

CSignalLevels CSignalLevels::measure(const CHostSignal& signal)
{
    CSignalLevels levels;
    for (const std::vector<double>& channel : signal.channels) {
        double peak = 0.0;
        double sumSquares = 0.0;
        for (double sample : channel) {
            const double magnitude = std::fabs(sample);
            if (magnitude > peak || std::isnan(magnitude))
                peak = magnitude;
            sumSquares += sample * sample;
        }
        const double rms = channel.empty() ? 0.0 : std::sqrt(sumSquares / static_cast<double>(channel.size()));
        levels.peakDb.push_back(toDb(peak));
        levels.rmsDb.push_back(toDb(rms));
    }
    return levels;
}

} // namespace qel
