#pragma once

#include "CHostSignal.h"

namespace qel {

// The demonstration input: a bar-like pattern of drum hits (a pitched kick, noise snares,
// short ticks of high noise), each with a decaying envelope, over a logarithmic sine sweep
// from 40 Hz to 12 kHz. Stereo, peaks near -6 dBFS, the same every time.
class CDemoSignal
{
public:
    static CHostSignal make(double sampleRate = 48000.0, double seconds = 4.0);
};

} // namespace qel
