#include "CDemoSignal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace qel {

namespace {

constexpr double kPi = 3.14159265358979323846;

// xorshift: the same noise on every machine, unlike the standard engines' distributions.
class CNoise
{
public:
    double next()
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 7;
        m_state ^= m_state << 17;
        return static_cast<double>(m_state >> 11) * (2.0 / 9007199254740992.0) - 1.0;
    }

private:
    uint64_t m_state = 0x9E3779B97F4A7C15ull;
};

// Adds one hit starting at `start` with level `gainL`/`gainR`; `voice` shapes each sample
// from the time since the hit.
template <class Voice>
void addHit(CHostSignal& signal, double startSec, double lengthSec, double gainL, double gainR, Voice voice)
{
    const int64_t first = static_cast<int64_t>(startSec * signal.sampleRate);
    const int64_t count = static_cast<int64_t>(lengthSec * signal.sampleRate);
    const int64_t end = std::min(first + count, signal.frameCount());
    for (int64_t i = first; i < end; ++i) {
        const double value = voice(static_cast<double>(i - first) / signal.sampleRate);
        signal.channels[0][static_cast<size_t>(i)] += gainL * value;
        signal.channels[1][static_cast<size_t>(i)] += gainR * value;
    }
}

} // namespace

CHostSignal CDemoSignal::make(double sampleRate, double seconds)
{
    CHostSignal signal;
    signal.sampleRate = sampleRate;
    signal.resize(2, static_cast<int64_t>(seconds * sampleRate));
    CNoise noise;

    const double beat = 0.5; // 120 beats a minute
    for (double t = 0.0; t < seconds; t += beat) {
        // Kick: a sine falling from 120 Hz to 45 Hz, with a click at the start.
        double phase = 0.0;
        addHit(signal, t, 0.45, 0.9, 0.9, [&, sampleRate](double age) {
            const double freq = 45.0 + 75.0 * std::exp(-age / 0.04);
            phase += 2.0 * kPi * freq / sampleRate;
            return std::sin(phase) * std::exp(-age / 0.12) + 0.3 * std::exp(-age / 0.002) * noise.next();
        });
        // Snare on every second beat: noise and a 190 Hz body, a little to the right.
        if (static_cast<int>(t / beat + 0.5) % 2 == 1) {
            addHit(signal, t, 0.3, 0.45, 0.6, [&](double age) {
                return (0.7 * noise.next() + 0.5 * std::sin(2.0 * kPi * 190.0 * age)) * std::exp(-age / 0.07);
            });
        }
    }
    // Ticks of high noise on every eighth, alternating sides.
    int tick = 0;
    for (double t = 0.0; t < seconds; t += beat / 2.0, ++tick) {
        double previous = 0.0;
        const double left = tick % 2 ? 0.15 : 0.3;
        addHit(signal, t, 0.08, left, 0.45 - left, [&](double age) {
            const double white = noise.next();
            const double high = white - previous; // first difference: tilted to the top
            previous = white;
            return high * std::exp(-age / 0.015);
        });
    }
    // A logarithmic sweep under it all, so every band of an equaliser has something to do.
    const double f0 = 40.0;
    const double f1 = 12000.0;
    const double rate = std::log(f1 / f0) / seconds;
    for (int64_t i = 0; i < signal.frameCount(); ++i) {
        const double t = static_cast<double>(i) / sampleRate;
        const double phase = 2.0 * kPi * f0 * (std::exp(rate * t) - 1.0) / rate;
        const double value = 0.12 * std::sin(phase);
        signal.channels[0][static_cast<size_t>(i)] += value;
        signal.channels[1][static_cast<size_t>(i)] += value;
    }

    // Peaks at half of full scale.
    double peak = 0.0;
    for (const std::vector<double>& channel : signal.channels)
        for (double sample : channel)
            peak = std::max(peak, std::fabs(sample));
    if (peak > 0.0)
        for (std::vector<double>& channel : signal.channels)
            for (double& sample : channel)
                sample *= 0.5 / peak;
    return signal;
}

} // namespace qel
