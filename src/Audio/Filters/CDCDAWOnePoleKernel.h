#pragma once

#include <cstdint>

namespace qel {

struct CAudioFilterStage;

// One-pole low- and high-pass: z += k (in - z); the low-pass gives z, the high-pass
// in - z, the high-pass with gain g (in - z). A new k and g morph over
// N = round(0.015 * rate) samples, each used as p k + q kNew with p = 0.5 + s, q = 0.5 - s
// and s the raised cosine: a one-pole has no ring to cover, so moving its coefficient is
// enough. Values that arrive during a morph wait in a queue of one, as for the biquad.
struct CDCDAWOnePoleState
{
    double k, g;         // current
    double kNew, gNew;   // target
    double kQ, gQ;       // queued
    double z;
    double s, sPrev, step;
    int32_t length;
    int32_t remaining;
    int32_t isQueued;
};

namespace dcdaw {

constexpr double kOnePoleMorphSec = 0.015;

// k in stage.b[0], g in stage.b[1] (1 when absent).
void onePoleInit(CDCDAWOnePoleState& st, const CAudioFilterStage& stage, double sampleRate);
void onePoleUpdate(CDCDAWOnePoleState& st, const CAudioFilterStage& stage);
void lowPass1Process(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n);
void highPass1Process(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n);
void highPass1GainProcess(CDCDAWOnePoleState& st, const double* in, double* out, int32_t n);

} // namespace dcdaw
} // namespace qel
