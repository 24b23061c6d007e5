// The generators' designs against their filters' textbook definitions, computed here.

#include "FilterTestSupport.h"
#include "MatchedPeakReference.h"

#include "Audio/Filters/CAudioFilterFIRLPGen.h"
#include "Audio/Filters/CAudioFilterGenArray.h"
#include "Audio/Filters/CAudioFilterHBFGen.h"

#include <functional>

using namespace qel;
using namespace qel::test;

namespace {

using Analog = std::function<cplx(cplx s, double A, double Q)>;

// The cookbook's analog prototypes, s normalised to the centre frequency.
const std::vector<std::pair<const char*, Analog>> kPrototypes = {
    {"rbj0", [](cplx s, double, double Q) { return 1.0 / (s * s + s / Q + 1.0); }},
    {"rbj1", [](cplx s, double, double Q) { return s * s / (s * s + s / Q + 1.0); }},
    {"rbj2", [](cplx s, double, double Q) { return (s / Q) / (s * s + s / Q + 1.0); }},
    {"rbj3", [](cplx s, double, double Q) { return s / (s * s + s / Q + 1.0); }},
    {"rbj4", [](cplx s, double, double Q) { return (s * s + 1.0) / (s * s + s / Q + 1.0); }},
    {"rbj5", [](cplx s, double, double Q) { return (s * s - s / Q + 1.0) / (s * s + s / Q + 1.0); }},
    {"rbj6", [](cplx s, double A, double Q) { return (s * s + s * (A / Q) + 1.0) / (s * s + s / (A * Q) + 1.0); }},
    {"rbj7", [](cplx s, double A, double Q) {
         return A * (s * s + std::sqrt(A) / Q * s + A) / (A * s * s + std::sqrt(A) / Q * s + 1.0);
     }},
    {"rbj8", [](cplx s, double A, double Q) {
         return A * (A * s * s + std::sqrt(A) / Q * s + 1.0) / (s * s + std::sqrt(A) / Q * s + A);
     }},
};

// Octaves to Q as the cookbook defines it: the band edges of the digital filter (warped) or
// of the analog prototype (unwarped).
double qFromOctaves(double bw, double w0, bool isWarped)
{
    return 1.0 / (2.0 * std::sinh(std::log(2.0) / 2.0 * bw * (isWarped ? w0 / std::sin(w0) : 1.0)));
}

// The bilinear transform with the centre frequency prewarped: a biquad from it equals the
// prototype at s = j tan(w / 2) / tan(w0 / 2), in magnitude and phase.
cplx warped(double w, double w0) { return cplx(0.0, std::tan(w / 2.0) / std::tan(w0 / 2.0)); }

struct Case
{
    double rate;
    double freq;
};

// Every rate with a few centres, and 20 Hz at the oversampled rates.
std::vector<Case> cases()
{
    std::vector<Case> out;
    for (double rate : kRates)
        for (double freq : {20.0, 126.0, 1000.0, 4900.0, 15000.0})
            if (rate < 700000.0 || freq == 20.0 || freq == 1000.0)
                out.push_back({rate, freq});
    return out;
}

// Round-off of the coefficients, which stand for poles at |1 - p| ~ w0, lets the response
// near w0 move by about 2^-53 / w0^2 relative (2e-9 at 20 Hz and 768 kHz, 1e-8 at 1.5 MHz);
// 1e-9 leaves the usual rates a margin of a hundred over what they show.
double tolerance(const Case& c)
{
    const double w0 = 2.0 * kPi * c.freq / c.rate;
    return std::max(1e-10, 100.0 * 1.1e-16 / (w0 * w0));
}

TEST_F(FilterFixture, RbjMatchesTheBilinearPrototypeInMagnitudeAndPhase)
{
    for (const auto& [name, prototype] : kPrototypes) {
        for (const Case& c : cases()) {
            for (const double gainDb : {-12.0, 6.0}) {
                for (const double bw : {0.3, 1.15, 2.75}) {
                    SCOPED_TRACE(testing::Message() << name << " rate " << c.rate << " freq " << c.freq << " gain " << gainDb << " bw " << bw);
                    const double gain = std::pow(10.0, gainDb / 20.0);
                    const CAudioFilterStageList list = design(name, c.rate, c.freq, gain, bw);
                    ASSERT_EQ(list.count(), 1);
                    const double w0 = 2.0 * kPi * c.freq / c.rate;
                    const double A = std::sqrt(gain);
                    const double Q = qFromOctaves(bw, w0, true);
                    const double tol = tolerance(c);
                    for (double f : logSpaced(c.freq / 100.0, std::min(c.rate * 0.45, c.freq * 100.0))) {
                        const double w = 2.0 * kPi * f / c.rate;
                        const cplx expected = prototype(warped(w, w0), A, Q);
                        const cplx got = biquadResponse(list[0], w);
                        // Coefficient errors are absolute on the scale of the passband, so a deep
                        // stopband is held to the passband's scale, not its own.
                        ASSERT_LE(std::abs(got - expected), tol * std::max(std::abs(expected), 0.1)) << f;
                    }
                }
            }
        }
    }
}

TEST_F(FilterFixture, RbjWidthsAndKernels)
{
    // is-type2 reads bw as the prototype's octaves (no warping): Q of 1 / (2 sinh(0.3985...)).
    for (const char* name : {"ls_rbj2", "hs_rbj2"}) {
        for (const Case& c : cases()) {
            SCOPED_TRACE(testing::Message() << name << " " << c.rate << " " << c.freq);
            const double gain = std::pow(10.0, 9.0 / 20.0);
            const CAudioFilterStageList list = design(name, c.rate, c.freq, gain, 1.15);
            ASSERT_EQ(list.count(), 1);
            const double w0 = 2.0 * kPi * c.freq / c.rate;
            const Analog& prototype = kPrototypes[name[0] == 'l' ? 7 : 8].second;
            for (double f : logSpaced(c.freq / 100.0, std::min(c.rate * 0.45, c.freq * 100.0))) {
                const double w = 2.0 * kPi * f / c.rate;
                const cplx expected = prototype(warped(w, w0), std::sqrt(gain), qFromOctaves(1.15, w0, false));
                ASSERT_LE(std::abs(biquadResponse(list[0], w) - expected), tolerance(c) * std::abs(expected)) << f;
            }
            // The shelf's plateaus: 0 dB at one end, the gain at the other.
            const double lowEnd = std::abs(biquadResponse(list[0], 2.0 * kPi * 1e-3 / c.rate));
            EXPECT_NEAR(lowEnd, name[0] == 'l' ? gain : 1.0, 1e-6);
        }
    }
    // Q given directly.
    const CAudioFilterStageList q = design("rbj6q", 48000.0, 1000.0, 2.0, 0.7);
    const double w0 = 2.0 * kPi * 1000.0 / 48000.0;
    for (double f : logSpaced(10.0, 20000.0)) {
        const double w = 2.0 * kPi * f / 48000.0;
        const cplx expected = kPrototypes[6].second(warped(w, w0), std::sqrt(2.0), 0.7);
        ASSERT_LE(std::abs(biquadResponse(q[0], w) - expected), 1e-10 * std::abs(expected)) << f;
    }
    // Inverted low-pass: the same filter, negated.
    const CAudioFilterStageList plain = design("rbj0", 48000.0, 1000.0, 1.0, 1.0);
    const CAudioFilterStageList inverted = design("rbj0inv", 48000.0, 1000.0, 1.0, 1.0);
    EXPECT_EQ(inverted[0].b[1], -plain[0].b[1]);
    EXPECT_EQ(inverted[0].a[0], plain[0].a[0]);

    const std::vector<std::pair<const char*, const char*>> kernels = {
        {"rbj0", "DCDAW_fltbiqlp"}, {"rbj1", "DCDAW_fltbiqhp"}, {"rbj2", "DCDAW_fltbiqbp"}, {"rbj3", "DCDAW_fltbiqbp"},
        {"rbj4", "DCDAW_fltbiqnotch"}, {"rbj5", "DCDAW_fltbiqcommon"}, {"rbj6", "DCDAW_fltbiqcommon"},
        {"ls_rbj2", "DCDAW_fltbiqcommon"}, {"peak_magnusB", "DCDAW_fltbiqcommon"}};
    for (const auto& [name, kernel] : kernels) {
        const CAudioFilterStageList list = design(name, 48000.0, 1000.0, 2.0, 1.0);
        ASSERT_EQ(list.count(), 1) << name;
        EXPECT_STREQ(list[0].kernels->name, kernel) << name;
        EXPECT_STREQ(list[0].kernels->initName, "DCDAW_fltbiqi");
        EXPECT_STREQ(list[0].kernels->updateName, "DCDAW_fltbiqu");
    }
}

TEST_F(FilterFixture, GeneratorsDeclineWhatTheyCannotMake)
{
    // Above half the rate RBJ and the one-poles make nothing; the matched peak clamps.
    EXPECT_EQ(design("rbj6", 44100.0, 22051.0, 2.0, 1.0).count(), 0);
    EXPECT_EQ(design("rbj6", 44100.0, 22050.0, 2.0, 1.0).count(), 1);
    EXPECT_EQ(design(gen("hp1"), 44100.0, {{"freq", 30000.0}}).count(), 0);
    // Far enough above that the centre and the edge are both held (0.99 and 0.98).
    const CAudioFilterStageList clamped = design("peak_magnusB", 44100.0, 40000.0, 2.0, 1.0);
    ASSERT_EQ(clamped.count(), 1);
    EXPECT_EQ(clamped[0].b[0], design("peak_magnusB", 44100.0, 60000.0, 2.0, 1.0)[0].b[0]);
    EXPECT_NEAR(std::abs(biquadResponse(clamped[0], kPi * 0.99)), 2.0, 1e-9);
    // A name that is missing, or a value that is not yet there.
    EXPECT_EQ(design(gen("rbj6"), 44100.0, {{"freq", 1000.0}, {"gain", 2.0}}).count(), 0);
    EXPECT_EQ(design(gen("rbj6"), 44100.0, {{"freq", 1000.0}, {"gain", 2.0}, {"bw", std::nan("")}}).count(), 0);
    EXPECT_EQ(design(gen("hp1"), 44100.0, {{"gain", 1000.0}}).count(), 0);
    EXPECT_EQ(design(gen("firlp"), 44100.0, {{"freq", 11025.0}, {"length", 0.015}}).count(), 0);
    EXPECT_EQ(design("bypass", 44100.0, 1000.0, 2.0, 1.0).count(), 0);
    // Values no design can meet give no stage rather than numbers that are not numbers.
    EXPECT_EQ(design("peak_magnusB", 44100.0, 1000.0, -1.0, 1.0).count(), 0);
    EXPECT_EQ(design("rbj7", 44100.0, 1000.0, -1.0, 1.0).count(), 0);
}

// The matched peak against the filter that its five conditions define, magnitude and phase.
TEST_F(FilterFixture, MatchedPeakMeetsItsFiveConditions)
{
    for (const Case& c : cases()) {
        for (const double gainDb : {-3.0, 0.0, 4.5, 9.0}) {
            for (const double bw : {0.3, 1.0, 2.75}) {
                if (c.freq > 0.45 * c.rate / 2.0)
                    continue;
                SCOPED_TRACE(testing::Message() << c.rate << " " << c.freq << " " << gainDb << " " << bw);
                const double gain = std::pow(10.0, gainDb / 20.0);
                const CAudioFilterStageList list = design("peak_magnusB", c.rate, c.freq, gain, bw);
                ASSERT_EQ(list.count(), 1);
                // 0 dB is designed as 0.999.
                const MatchedPeakReference reference(c.rate, c.freq, gainDb == 0.0 ? 0.999 : gain, bw);
                const double tol = std::max(1e-9, tolerance(c));
                for (double f : logSpaced(c.freq / 100.0, c.rate / 2.0 * 0.999)) {
                    const double w = 2.0 * kPi * f / c.rate;
                    const cplx got = biquadResponse(list[0], w);
                    ASSERT_NEAR(std::abs(got) / reference.magnitude(w), 1.0, tol) << f;
                    // The minimum-phase response of that magnitude, phase included.
                    ASSERT_LE(std::abs(got / reference.response(w) - 1.0), tol) << f;
                }
                // Minimum phase: poles and zeros inside the unit circle.
                const CAudioFilterStage& s = list[0];
                EXPECT_LT(s.a[1], 1.0);
                EXPECT_LT(std::fabs(s.a[0]), 1.0 + s.a[1]);
                EXPECT_LT(s.b[2] / s.b[0], 1.0);
                EXPECT_LT(std::fabs(s.b[1] / s.b[0]), 1.0 + s.b[2] / s.b[0]);
            }
        }
    }
}

TEST_F(FilterFixture, MagnusTypesAtTheirTabledPoints)
{
    // 48 kHz, 1 kHz, gain 2, one octave.
    const double rate = 48000.0;
    const auto at = [&](const CAudioFilterStageList& list, double f) { return std::abs(biquadResponse(list[0], 2.0 * kPi * f / rate)); };
    const double edge = 1000.0 * std::sqrt(0.5);
    for (const char* name : {"magnus0", "peak_magnusB", "magnus2"}) {
        SCOPED_TRACE(name);
        const CAudioFilterStageList list = design(name, rate, 1000.0, 2.0, 1.0);
        ASSERT_EQ(list.count(), 1);
        EXPECT_NEAR(at(list, 1000.0), 2.0, 1e-9);
        EXPECT_NEAR(at(list, 0.0), 1.0, 1e-9);
        EXPECT_NEAR(at(list, 23999.0), 1.0007, 5e-5);
        EXPECT_NEAR(at(list, edge), std::string(name) == "peak_magnusB" ? 1.4608 : 1.4142, 5e-4);
    }
    EXPECT_NEAR(at(design("peak_magnusB_fixed", rate, 1000.0, 2.0, 1.0), edge), 1.4220, 5e-4);
    // Band-passes: the gain at the centre (type 3) or 1; edges at 0.7071 of it (3, 5) or wider (4).
    const CAudioFilterStageList m3 = design("magnus3", rate, 1000.0, 2.0, 1.0);
    EXPECT_NEAR(at(m3, 1000.0), 2.0, 1e-9);
    EXPECT_NEAR(at(m3, edge), 2.0 * 0.7071, 2e-3);
    EXPECT_NEAR(at(m3, 0.0), 0.0, 1e-12);
    const CAudioFilterStageList m4 = design("magnus4", rate, 1000.0, 2.0, 1.0);
    EXPECT_NEAR(at(m4, 1000.0), 1.0, 1e-9);
    EXPECT_GT(at(m4, edge), 0.72);
    const CAudioFilterStageList m5 = design("magnus5", rate, 1000.0, 2.0, 1.0);
    EXPECT_NEAR(at(m5, 1000.0), 1.0, 1e-9);
    EXPECT_NEAR(at(m5, edge), 0.7071, 1e-3);
}

TEST_F(FilterFixture, OnePolesAreMinus3dBAtTheirFrequency)
{
    for (const Case& c : cases()) {
        SCOPED_TRACE(testing::Message() << c.rate << " " << c.freq);
        const double w0 = 2.0 * kPi * c.freq / c.rate;
        // The pole whose low-pass has half the power at w0, found by bisection on
        // |k / (1 - r e^-jw0)|^2 = 1/2 with k = 1 - r, written with 1 - cos w0 = 2 sin^2(w0/2).
        const double h = 2.0 * std::sin(w0 / 2.0) * std::sin(w0 / 2.0);
        double lo = 0.0, hi = 1.0; // in k = 1 - r
        for (int i = 0; i < 200; ++i) {
            const double k = 0.5 * (lo + hi);
            const double power = k * k / (k * k + 2.0 * (1.0 - k) * h);
            (power > 0.5 ? hi : lo) = k;
        }
        const double k = 0.5 * (lo + hi);
        const auto lowPass = [&](double w) { return k / (1.0 - (1.0 - k) * std::polar(1.0, -w)); };
        const CAudioFilterStageList lp = design(gen("lp1"), c.rate, {{"freq", c.freq}});
        const CAudioFilterStageList hp = design(gen("hp1"), c.rate, {{"freq", c.freq}});
        const CAudioFilterStageList hpg = design(gen("hp1g"), c.rate, {{"freq", c.freq}});
        ASSERT_EQ(lp.count(), 1);
        EXPECT_STREQ(lp[0].kernels->name, "DCDAW_fltlp1");
        EXPECT_STREQ(hp[0].kernels->name, "DCDAW_flthp1");
        EXPECT_STREQ(hpg[0].kernels->name, "DCDAW_flthp1g");
        EXPECT_STREQ(lp[0].kernels->initName, "DCDAW_fltlphp1i");
        EXPECT_STREQ(lp[0].kernels->updateName, "DCDAW_fltlphp1u");
        for (double f : logSpaced(c.freq / 100.0, c.rate * 0.45)) {
            const double w = 2.0 * kPi * f / c.rate;
            ASSERT_LE(std::abs(onePoleResponse(lp[0], w) - lowPass(w)), 1e-12 * std::abs(lowPass(w))) << f;
            const cplx highPass = 1.0 - lowPass(w);
            ASSERT_LE(std::abs(onePoleResponse(hp[0], w) - highPass), 1e-9 * std::abs(highPass) + 1e-15) << f;
        }
        EXPECT_NEAR(std::norm(onePoleResponse(lp[0], w0)), 0.5, 1e-12);
        EXPECT_NEAR(db(std::abs(onePoleResponse(hpg[0], w0))), -3.0, 1e-9);
        // hp1b: two one-poles at 0.6435815012 f, together -3 dB at f.
        const CAudioFilterStageList pair = design(gen("hp1b"), c.rate, {{"freq", c.freq}});
        ASSERT_EQ(pair.count(), 2);
        EXPECT_EQ(pair[0].b[0], pair[1].b[0]);
        EXPECT_EQ(pair[0].b[0], design(gen("hp1"), c.rate, {{"freq", c.freq * 0.6435815012}})[0].b[0]);
        // Exact for the analog one-poles; the digital high-pass (input less the low-pass)
        // has a little less than half the power at its frequency, short by about w0.
        if (w0 < 0.02) {
            EXPECT_NEAR(std::norm(listResponse(pair, w0)), 0.5, 2.0 * w0);
        }
    }
}

TEST_F(FilterFixture, SerialItemsAdjustByPositionAndPower)
{
    // "2, 1" and powers "1, 0.5": freq doubled, gain square-rooted, bw untouched.
    const CAudioFilterStageList adjusted = design("powered", 48000.0, 1000.0, 4.0, 1.0);
    const CAudioFilterStageList direct = design("rbj6", 48000.0, 2000.0, 2.0, 1.0);
    ASSERT_EQ(adjusted.count(), 1);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(adjusted[0].b[i], direct[0].b[i]);
    // The product's fixed peak narrows bw only.
    const CAudioFilterStageList fixedPeak = design("peak_magnusB_fixed", 48000.0, 1000.0, 2.0, 1.0);
    const CAudioFilterStageList narrower = design("peak_magnusB", 48000.0, 1000.0, 2.0, 0.924825);
    EXPECT_EQ(fixedPeak[0].b[0], narrower[0].b[0]);
    EXPECT_EQ(fixedPeak[0].a[1], narrower[0].a[1]);
}

TEST_F(FilterFixture, HalfBandPairsReachTheirStopbands)
{
    struct Set
    {
        const char* name;
        int32_t sections;
        const char* kernel;
        double stopFrom;   // fraction of the rate
        double stopbandDb; // at most
    };
    for (const Set& set : {Set{"hbf159t12", 5, "DCDAW_flthbf10", 0.3, -159.0}, Set{"hbf151t8", 4, "DCDAW_flthbf8", 0.3125, -151.0}}) {
        SCOPED_TRACE(set.name);
        for (double rate : {44100.0, 96000.0}) {
            const CAudioFilterStageList list = design(set.name, rate, 1000.0, 1.0, 1.0);
            ASSERT_EQ(list.count(), 1);
            EXPECT_STREQ(list[0].kernels->name, set.kernel);
            EXPECT_STREQ(list[0].kernels->initName, (std::string(set.kernel) + "i").c_str());
            EXPECT_EQ(list[0].kernels->update, nullptr);
            EXPECT_EQ(list[0].bCount, set.sections);
            double worst = -1000.0;
            for (int i = 0; i <= 4000; ++i) {
                const double f = set.stopFrom + (0.5 - set.stopFrom) * i / 4000.0;
                worst = std::max(worst, db(std::abs(halfBandResponse(list[0], 2.0 * kPi * f))));
            }
            EXPECT_LE(worst, set.stopbandDb);
            EXPECT_GT(worst, set.stopbandDb - 1.0); // and not by luck of where it was sampled
            // The passband mirrors the stopband: its ripple is below 1e-9 dB.
            double ripple = 0.0;
            for (int i = 0; i <= 4000; ++i) {
                const double f = (0.5 - set.stopFrom) * i / 4000.0;
                ripple = std::max(ripple, std::fabs(db(std::abs(halfBandResponse(list[0], 2.0 * kPi * f)))));
            }
            EXPECT_LT(ripple, 1e-9);
            // Half the power at a quarter of the rate.
            EXPECT_NEAR(std::norm(halfBandResponse(list[0], kPi / 2.0)), 0.5, 1e-12);
        }
    }
}

// The Kaiser window with I0 by its power series, which converges for any argument.
double besselSeries(double x)
{
    double sum = 1.0, term = 1.0;
    for (int k = 1; k < 500 && term > 1e-17 * sum; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
    }
    return sum;
}

TEST_F(FilterFixture, FirLowPassTapsFollowTheWindowedSinc)
{
    struct Product
    {
        const char* name;
        double length, freq, beta;
        int32_t taps;
    };
    // The three filters of the oversampling chain, designed at 44100 Hz whatever the rate.
    for (const Product& p : {Product{"up", 0.015, 11025.0, 18.0, 661}, Product{"down", 0.024, 10980.0, 18.0, 1063},
                             Product{"soft", 0.0016, 12000.0, 18.4, 65}}) {
        SCOPED_TRACE(p.name);
        const double rate = 44100.0;
        const CAudioFilterStageList list = design(gen("firlp"), rate, {{"length", p.length}, {"freq", p.freq}, {"beta", p.beta}});
        ASSERT_EQ(list.count(), 1);
        ASSERT_EQ(list[0].tapCount, p.taps);
        EXPECT_EQ(list[0].kernels->process, nullptr);
        const int32_t M = (p.taps - 1) / 2;
        EXPECT_EQ(list.latency(), M);
        const double* h = list.taps(list[0]);
        const double H = rate * rate * p.length / (8.0 * p.freq);
        const double w = 2.0 * kPi * p.freq / rate;
        double sum = 0.0;
        for (int32_t k = -M; k <= M; ++k) {
            ASSERT_EQ(h[M + k], h[M - k]) << k;
            const double r = double(k) / H;
            const double window = besselSeries(p.beta * std::sqrt(1.0 - r * r)) / besselSeries(p.beta);
            const double sinc = k == 0 ? w / kPi : std::sin(k * w) / (kPi * k);
            // The polynomial I0 is good to 2e-7 relative, so the window to 4e-7.
            ASSERT_NEAR(h[M + k], sinc * window, 5e-7 * std::fabs(sinc) + 1e-15) << k;
            sum += h[M + k];
        }
        // Linear phase and the pass- and stopband of the design.
        EXPECT_NEAR(sum, 1.0, 1e-6);
        const auto response = [&](double f) {
            cplx acc = 0.0;
            for (int32_t k = -M; k <= M; ++k)
                acc += h[M + k] * std::polar(1.0, -2.0 * kPi * f / rate * k);
            return acc;
        };
        EXPECT_NEAR(std::abs(response(p.freq)), 0.5, 0.01); // a windowed sinc halves at its cut-off
        EXPECT_LT(std::fabs(response(3000.0).imag()), 1e-12);  // zero phase about the centre tap
    }
    EXPECT_NEAR(CAudioFilterFIRLPGen::besselI0(2.0), besselSeries(2.0), 2e-7 * besselSeries(2.0));
    EXPECT_NEAR(CAudioFilterFIRLPGen::besselI0(18.0), besselSeries(18.0), 2e-7 * besselSeries(18.0));
}

TEST_F(FilterFixture, ArraysLookUpByIndex)
{
    const auto* array = dynamic_cast<const CAudioFilterGenArray*>(CApplication::sharedRoot()->findObject(CString("audio.dlcfilters")));
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array->itemCount(), 4);
    EXPECT_EQ(array->find(0), &gen("bypass"));
    EXPECT_EQ(array->find(1), &gen("peak_magnusB_fixed"));
    EXPECT_EQ(array->find(3), &gen("hs_rbj2"));
    EXPECT_EQ(array->find(4), nullptr);
    EXPECT_EQ(array->find(-1), nullptr);
}

TEST_F(FilterFixture, BadDefinitionsAreRefusedWithTheirMessages)
{
    const std::vector<std::pair<const char*, std::string>> cases = {
        {"rbjType11", "Invalid filter type '11' specified."},
        {"rbjTypeWord", "Invalid filter type 'peak' specified."},
        {"magnusType6", "Invalid filter type '6' specified."},
        {"lphp1TypeMinus", "Invalid filter type '-1' specified."},
        {"hbfNoA", "Not enough 'a' coefficients defined."},
        {"hbfGarbageA", "Not enough 'a' coefficients defined."},
        {"hbfNineA", "Not enough 'a' coefficients defined."},
        {"hbfShortB", "Not enough 'b' coefficients defined."},
        {"strayArrayItem", "CAudioFilterGenArray class parent expected."},
        {"strayArrayItemInSerial", "CAudioFilterGenArray class parent expected."},
        {"arrayBadIndex", "Invalid index 'one' specified."},
        {"arrayDupe", "Duplicate index '1' used."},
        {"arrayMissingGen", "Name attribute 'fltgen' refers to a non-existent object 'shared::audio.flt.nothing' ('audio.flt.nothing')"},
        {"arrayNotAGen", "Name attribute 'fltgen' refers to object 'shared::audio.fltarray' ('audio.fltarray') of incompatible type."},
        {"serialBadAdjust", "Invalid number list '1.0;2.0' in attribute 'adjust'."},
        {"serialNoPath", "Object name attribute 'fltgen' cannot be empty."},
    };
    int n = 0;
    for (const auto& [templateName, message] : cases) {
        SCOPED_TRACE(templateName);
        CObject* made = nullptr;
        EXPECT_EQ(firstLine(m_root->createChild(made, CString(templateName), CString(("bad" + std::to_string(++n)).c_str()), true)), message);
        EXPECT_EQ(made, nullptr);
    }
}

TEST_F(FilterFixture, ARingOfSerialGeneratorsDesignsNothing)
{
    CObject* made = nullptr;
    ASSERT_FALSE(m_root->createChild(made, CString("serialLoop"), CString("loop"), true));
    const auto* loop = dynamic_cast<const CAudioFilterGen*>(made);
    ASSERT_NE(loop, nullptr);
    EXPECT_EQ(design(*loop, 48000.0, {{"freq", 1000.0}}).count(), 0);
}

} // namespace
