// The half-band filters of the oversampling chain, measured through the product's own
// stages against the response written here from the generators' all-pass coefficients:
// tones through the round trip (passband, phase and ripple), through the upsampler alone
// (the images it leaves) and through the downsampler alone (what folds back).
//
// Every tone has a whole number of cycles in the window it is measured over, and every
// component the chain makes of it lands on such a frequency too, so each projection reads
// its own component alone.

#include "OversamplingTestSupport.h"

#include <functional>

using namespace qel;
using namespace qel::test;

namespace {

constexpr double kRate = 44100.0;
// The window: 44100 / 4410 = 10 Hz between the frequencies that fit a whole number of
// cycles; at the oversampled rates the window is as long in time.
constexpr size_t kWindow = 4410;
// Long enough for the recursive filters to forget their start: their slowest pole
// (sqrt(0.934) per sample at the rate it runs) has decayed by 1e-30 after 2000 samples.
constexpr size_t kSettle = 4410;

class HalfBandChain : public OversamplingFixture
{
protected:
    void SetUp() override
    {
        OversamplingFixture::SetUp();
        halfBandCoefficients("hbf159t12", m_steepA, m_steepB);
        halfBandCoefficients("hbf151t8", m_softA, m_softB);
    }

    // The filter of octave k (0 next to the host's rate) at w, radians per sample of the
    // rate it runs at.
    cplx filter(int32_t octave, double w) const
    {
        return octave == 0 ? halfBand(m_steepA, m_steepB, w) : halfBand(m_softA, m_softB, w);
    }

    // Up and down through `octaves` octaves from octave k on, with nothing between, as a
    // filter at the rate of octave k's input: a rate changer pair around an LTI system is
    // LTI, and its response at w is the sum over the two frequencies of the doubled rate
    // that fold onto w, of the filters' responses times that of what lies inside.
    cplx roundTrip(int32_t octave, int32_t octaves, double w) const
    {
        if (octave == octaves)
            return 1.0;
        cplx sum = 0.0;
        for (double v : {w / 2.0, w / 2.0 + kPi}) {
            const cplx h = filter(octave, v);
            sum += h * h * roundTrip(octave + 1, octaves, v);
        }
        return sum;
    }

    // What the upsampler makes of a unit cosine at w (host rate): the components at the
    // top rate, by frequency in radians per sample of that rate, with their amplitudes.
    // Each octave's zeros leave the band below twice: a component at v appears at v / 2
    // and pi - v / 2, each at the level it had (the interpolator's gain of 2 against the
    // zeros' halving), and there the filter weighs it.
    void upsampled(int32_t octave, int32_t octaves, double w, cplx amplitude,
                   std::vector<std::pair<double, cplx>>& out) const
    {
        if (octave == octaves) {
            out.emplace_back(w, amplitude);
            return;
        }
        for (double v : {w / 2.0, kPi - w / 2.0}) {
            // A cosine at pi - w/2 is the conjugate side of one at w/2 + pi: its phase flips.
            const cplx a = v == w / 2.0 ? amplitude : std::conj(amplitude);
            upsampled(octave + 1, octaves, v, a * filter(octave, v), out);
        }
    }

    std::vector<double> m_steepA, m_steepB, m_softA, m_softB;
};

// A cosine through 2X, 4X and 8X and back comes out as the chain's response says, in
// level and phase; the passband's ripple is what the filters promise.
TEST_F(HalfBandChain, RoundTripsReturnATonePerTheChainsResponse)
{
    const std::vector<double> freqs = {100.0, 1000.0, 5000.0, 10000.0, 15000.0, 18000.0, 19000.0, 19500.0, 20000.0};
    for (int32_t octaves = 1; octaves <= 3; ++octaves) {
        double lo = 1e9, hi = 0.0, measuredLo = 1e9, measuredHi = 0.0;
        for (double f : freqs) {
            SCOPED_TRACE(std::to_string(octaves) + " octaves, " + std::to_string(f) + " Hz");
            Graph& g = buildMain("roundTrip");
            setMain("oversampling", double(octaves + 1));
            const Signal in{cosine(kSettle + kWindow, f, kRate)};
            const Signal out = runThrough(g, in, 512);
            const Tone t = measureTone(out[0], kSettle, kWindow, f, kRate);
            const cplx expected = roundTrip(0, octaves, 2.0 * kPi * f / kRate);
            // The double-precision recursion and the projection agree to far better than
            // a millionth; a wrong coefficient or a lost sample is off by percents.
            EXPECT_NEAR(std::abs(t.value() - expected), 0.0, 1e-9) << t.amplitude << " " << std::abs(expected);
            lo = std::min(lo, std::abs(expected));
            hi = std::max(hi, std::abs(expected));
            measuredLo = std::min(measuredLo, t.amplitude);
            measuredHi = std::max(measuredHi, t.amplitude);
        }
        // Up to 20 kHz the chain is flat to a thousandth of a decibel.
        const double ripple = db(hi / lo);
        EXPECT_LT(ripple, 1e-3);
        EXPECT_NEAR(db(measuredHi / measuredLo), ripple, 1e-6);
        std::printf("[ ripple   ] %d octaves: passband to 20 kHz %.3g dB (analytic %.3g dB)\n", octaves,
                    db(measuredHi / measuredLo), ripple);
    }
}

// The upsampler's images: every component at the top rate, the tone and the images each
// octave leaves, at the level the filters give it, deep in the stopband included.
TEST_F(HalfBandChain, TheUpsamplerLeavesImagesAtTheStopbandsLevel)
{
    for (int32_t octaves = 1; octaves <= 3; ++octaves) {
        for (double f : {1000.0, 15000.0, 20000.0}) {
            SCOPED_TRACE(std::to_string(octaves) + " octaves, " + std::to_string(f) + " Hz");
            Graph& g = buildMain("upOnly");
            setMain("oversampling", double(octaves + 1));
            const Signal in{cosine(kSettle + kWindow, f, kRate)};
            const Signal out = runThrough(g, in, 512);
            const double top = kRate * double(1 << octaves);
            const size_t scale = size_t(1) << octaves;
            std::vector<std::pair<double, cplx>> components;
            upsampled(0, octaves, 2.0 * kPi * f / kRate, 1.0, components);
            ASSERT_EQ(components.size(), scale);
            double worstImage = 0.0;
            for (const auto& [w, amplitude] : components) {
                const double freq = w * top / (2.0 * kPi);
                const Tone t = measureTone(out[0], kSettle * scale, kWindow * scale, freq, top);
                // Relative to the component, and never below what rounding leaves: about -250 dB
                // of the tone, which the projection over the window sees of the whole signal.
                EXPECT_NEAR(t.amplitude, std::abs(amplitude), 1e-5 * std::abs(amplitude) + 1e-12) << freq << " Hz";
                if (std::abs(freq - f) > 1.0)
                    worstImage = std::max(worstImage, t.amplitude);
            }
            // Images of a tone in the passband lie in the stopband of some octave's filter.
            if (f <= 15000.0) {
                EXPECT_LT(db(worstImage), -100.0);
            }
            std::printf("[ images   ] %d octaves, %5.0f Hz: strongest image %.1f dB\n", octaves, f, db(worstImage));
        }
    }
}

// The downsampler of one octave: a tone above the host's band is weighed by the steep
// filter and folds back onto the host's rate at that level.
TEST_F(HalfBandChain, TheDownsamplerFoldsBackWhatItsFilterLeaves)
{
    const double twice = 2.0 * kRate;
    for (double f : {1000.0, 20000.0, 24000.0, 26000.0, 30000.0, 40000.0}) {
        SCOPED_TRACE(std::to_string(f) + " Hz");
        Graph& g = buildMain("downOnly", {0}, twice);
        setMain("oversampling", 2.0);
        const Signal in{cosine(2 * (kSettle + kWindow), f, twice)};
        const Signal out = runThrough(g, in, 1024);
        const double folded = f < kRate / 2.0 ? f : kRate - f;
        const Tone t = measureTone(out[0], kSettle, kWindow, folded, kRate);
        const double expected = std::abs(filter(0, 2.0 * kPi * f / twice));
        EXPECT_NEAR(t.amplitude, expected, 1e-6 * expected + 1e-13);
        std::printf("[ fold     ] %5.0f Hz at 2X comes back at %5.0f Hz, %.1f dB\n", f, folded, db(t.amplitude));
        if (f >= 26000.0) {
            EXPECT_LT(db(t.amplitude), -100.0);
        }
    }
}

} // namespace
