// The oversampling chain's half-band filters through the product's own stages, against the
// response written from the generators' all-pass coefficients: the round trip, the
// upsampler's images and what folds back in the downsampler. Every tone and every
// component made of it has whole cycles in its window, so each projection reads it alone.

#include "OversamplingTestSupport.h"

#include <functional>

using namespace qel;
using namespace qel::test;

namespace {

constexpr double kRate = 44100.0;
// Whole cycles every 10 Hz; at the oversampled rates the window is as long in time.
constexpr size_t kWindow = 4410;
// The slowest pole (sqrt(0.934) per sample) has decayed by 1e-30 after 2000 samples.
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

    // The filter of octave k (0 next to the host's rate) at w, per sample of its own rate.
    cplx filter(int32_t octave, double w) const
    {
        return octave == 0 ? halfBand(m_steepA, m_steepB, w) : halfBand(m_softA, m_softB, w);
    }

    // Up and down from octave k on, as a filter at octave k's input rate: a rate changer pair
    // around an LTI system is LTI, its response at w the sum over the two frequencies of the
    // doubled rate that fold onto w of the filters' responses times that of what is inside.
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

    // The upsampler's components at the top rate from a unit cosine at w: each octave puts a
    // component at v at v / 2 and pi - v / 2, at the level it had (the interpolator's gain
    // of 2 against the zeros' halving), and there its filter weighs it.
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

// A cosine through 2X, 4X and 8X and back comes out as the chain's response says, in level
// and phase, with the ripple the filters promise.
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
            // A wrong coefficient or a lost sample is off by percents.
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

// Every component at the top rate, the tone and each octave's images, at the filters'
// level, deep in the stopband too.
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
                // Relative to the component, and no finer than rounding leaves (about -250 dB).
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

// One octave down: a tone above the host's band folds back at the steep filter's level.
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
