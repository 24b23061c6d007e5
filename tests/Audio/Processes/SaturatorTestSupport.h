#pragma once

// Scalar references of the saturator and harmonic stages, written from their per-sample
// formulas without the product's classes; the product's mode banks; a fixture over
// SaturatorGraphs.xml.

#include "../GraphTestSupport.h"

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace qel {
extern const CResourceRow kSaturatorGraphDefinitions[];
}

namespace qel::test {

// ---- the saturator

struct SatMode
{
    const char* name;
    double biasGain, biasGain2, makeupGain, makeupCorr, curveGain, curvature, shift, constBias, rmsTime;
};

// The product's bank of saturator modes, in internal units.
inline const SatMode kSatModes[] = {
    {"Classic", 0.2053525026, 0.0102329299, 0.6309573445, -0.035, 1.5443651756, 112201.0, 749.41, 0.97498, 0.0186},
    {"Crisp", 0.2859235978, 0.0166916781, 0.9332543008, -0.058, 3.5583609535, 112201.0, 1116.86, 0.03548, 0.1016},
    {"Hard", 0.3527767866, 0.0172782598, 0.7852356346, -0.105, 0.4745150595, 112201.0, 1451.3, 0.53456, 0.15996},
    {"Magic Dust", 0.4453997819, 0.0103216707, 0.8128305162, -0.115, 0.309920283, 49203.9, 1193.43, 0.54325, 0.1774},
    {"Soft", 0.3180533688, 0.0176299061, 0.9885530947, -0.0015, 4.7451505948, 102920.0, 1259.85, -0.5888, 0.199},
    {"Solid", 0.0039810717, 0.016548171, 1.0, -0.004, 0.2041737945, 14962.3, 1590.74, -0.6918, 0.1324},
    {"Tube 1", 0.0039810717, 0.015179239, 0.9885530947, -0.002, 4.7315125896, 112201.0, 1005.54, -0.7244, 0.079},
    {"Tube 2", 0.0039810717, 0.016548171, 0.9885530947, -0.002, 5.3394927357, 112201.0, 1182.93, -0.4255, 0.0298},
    {"Warm", 0.5417201624, 0.0122320712, 0.9220365519, -0.056, 2.3713737057, 112201.84375, 1184.2407227, -1e-05, 0.0346},
};

inline double dbToGain(double db) { return std::pow(10.0, db / 20.0); }

// Both stages of the saturator, sample by sample, as the formulas read.
class RefSatEB
{
public:
    RefSatEB(const SatMode& m, double driveGain, double rate) : p(m), drive(driveGain)
    {
        cb = drive * p.constBias;
        invShift = 1.0 / p.shift;
        negInvShift2 = -1.0 / (p.shift * p.shift);
        const double driveDb = 20.0 * std::log10(drive);
        outGain = -p.makeupGain * std::pow(10.0, ((p.makeupCorr - 1.0) * driveDb) / 20.0);
        invOutGain = -1.0 / outGain;
        N = int(std::round(p.rmsTime * rate));
        invN = 1.0 / N;
        ring.assign(size_t(N), 0.0);
        double e = 0.0031622776601683794;
        double y = 0.0;
        for (int pass = 0; pass < 15; ++pass) {
            const double t = cb + (p.biasGain2 * e) * (p.biasGain2 * e) + p.biasGain * e;
            y = curve(t, e);
            e = std::sqrt(y * y + 1e-5);
        }
        y0 = y;
        y0out = curve(cb - y0 + p.biasGain * e, e);
    }

    double curve(double t, double e) const
    {
        if (t <= 0)
            return t;
        const double g = p.curvature / (p.curveGain * e + 1);
        const double c = negInvShift2 * g;
        const double d = t - p.shift;
        const double r = g + (1 + c) * t + c * d * d;
        if (d > 0)
            return r;
        const double w = (d * invShift) * (d * invShift);
        return t * w + r * (1 - w);
    }

    // The input stage: its output, and the level it hands on in `e`.
    double input(double x, double& e)
    {
        e = std::sqrt(sum * invN + 1e-5);
        const double t = cb + (p.biasGain2 * e) * (p.biasGain2 * e) + drive * x + p.biasGain * e;
        const double y = curve(t, e);
        if (full)
            sum -= ring[pos];
        ring[pos] = y * y;
        sum += y * y;
        if (++pos == size_t(N)) {
            pos = 0;
            full = true;
        }
        return (y - y0) * outGain;
    }

    double output(double z, double e) const
    {
        const double t = cb - y0 + p.biasGain * e + z * invOutGain;
        return (curve(t, e) - y0out) * outGain;
    }

    SatMode p;
    double drive;
    double cb, invShift, negInvShift2, outGain, invOutGain, y0, y0out, invN;
    int N;
    std::vector<double> ring;
    double sum = 0.0;
    size_t pos = 0;
    bool full = false;
};

// ---- the harmonic stage

struct GlowMode
{
    const char* name;
    double ratioA, ratioB, kneeA, kneeB, biasI, biasV, gainI, gainV, feedFreq, makeupGain;
    double autoGainPoint = 1.009;
    double feedFreqInv = 0.0;
    double type = 1.0;
};

// The product's bank of harmonic modes, in internal units.
inline const GlowMode kGlowModes[] = {
    {"Very Hard", 0.672568652, 0.1212041945, 14.4336207394, 10.4854827845, -2.7258068862, 0.0539082738, 0.8206886199,
     0.6048699936, 1059.4938297216, 1.3631274186},
    {"Hard", 0.7988448291, 0.1828275694, 14.4336207394, 9.5233241594, -2.9663465425, 0.0539082738, 0.8206886199,
     0.6048699936, 507.3676613139, 1.3023474063},
    {"Soft", 0.8351005507, 0.3107168369, 5.2493793183, 9.0859793299, -4.2346465482, 0.0, 0.8206886199, 0.8629034431,
     295.2525307354, 1.2334178483},
    {"Very Soft", 0.9523809524, 0.6632104827, 12.4472757366, 30.4284070132, -3.5567620624, 0.9089174157, 1.1399503455,
     0.0, 25.0037234877, 1.0},
    {"Clean", 0.969153448, 0.999, 12.4472757366, 30.4284070132, -3.5567620624, 0.9089174157, 1.1399503455, 0.0,
     5.9877508546, 0.8796597132},
};

// A soft-knee curve as the formulas build it.
struct RefKnee
{
    double slope, t, c, e, c2;

    RefKnee(double ratio, double knee)
    {
        double m = ratio - 1;
        if (ratio > 0.9999)
            m = -9.999999999998899e-5;
        if (ratio <= 0.002)
            m = -1;
        slope = 1 + m;
        t = -0.5 * knee;
        const double theta = std::numbers::pi - std::atan(-m);
        c = std::tan(theta / 2) * t;
        e = t - c * std::sin(theta);
        c2 = c * c;
    }

    double operator()(double v) const
    {
        if (v <= t)
            return v;
        if (v >= e)
            return slope * v;
        return c + v + std::sqrt(c2 - (v - t) * (v - t));
    }
};

class RefGlowCore
{
public:
    RefGlowCore(const GlowMode& m, double rate) : p(m), a(m.ratioA, m.kneeA), b(m.ratioB, m.kneeB)
    {
        const double a0 = a(p.biasI), b0 = b(p.biasI);
        offset = a0 + (b0 - a0) * p.biasV;
        const double point = p.gainI * p.autoGainPoint + p.biasI;
        const double a1 = a(point), b1 = b(point);
        norm = 1 / (a1 + (b1 - a1) * (p.biasV - p.gainV * p.autoGainPoint) - offset);
        const double w = 2 * std::numbers::pi * p.feedFreq / rate;
        const double x = 2 - std::cos(w);
        k = 1 - x + std::sqrt(x * x - 1);
    }

    // `in` on port 0, `u` on port 1.
    double step(double in, double u)
    {
        const double v = in * p.gainI + p.biasI;
        const double A = a(v), B = b(v);
        if (p.type == 1.0) {
            z += (u - z) * k;
            const double h = (u - z) * p.gainV;
            return ((A - offset) + (p.biasV - h) * (B - A)) * p.makeupGain;
        }
        const double r = z + (u - z) * k;
        const double y = (A - offset) + (p.biasV - r * p.gainV) * (B - A);
        z = y;
        return y * norm;
    }

    GlowMode p;
    RefKnee a, b;
    double offset, norm, k;
    double z = 0.0;
};

// The stand-in band filter's gain (the definition's default).
constexpr double kBandGain = 0.7;

// The saturator pair on `in`, with `band` (if any) between the stages as a band feeds it.
inline std::vector<double> refChain(const SatMode& m, double drive, double rate, const std::vector<double>& in,
                                    RefGlowCore* band = nullptr)
{
    RefSatEB first(m, drive, rate);
    const RefSatEB last(m, drive, rate);
    std::vector<double> out;
    for (const double x : in) {
        double e = 0.0;
        const double s = first.input(x, e);
        out.push_back(last.output(band ? band->step(kBandGain * s, s) : s, e));
    }
    return out;
}

// ---- signals and comparison

// A tone that climbs through four levels, the last two past full scale, with its third
// harmonic and bursts of white noise every 70 ms: a track pushed into the saturator.
inline std::vector<double> program(double rate, double seconds, uint32_t seed = 1)
{
    const auto n = size_t(std::lround(rate * seconds));
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> noise(-1.0, 1.0);
    const double levels[] = {0.05, 0.3, 1.0, 1.6};
    std::vector<double> x(n);
    for (size_t i = 0; i < n; ++i) {
        const double t = double(i) / rate;
        const double level = levels[std::min<size_t>(3, i * 4 / n)];
        x[i] = level * (0.8 * std::sin(2 * std::numbers::pi * 220.0 * t) + 0.25 * std::sin(2 * std::numbers::pi * 660.0 * t));
        if (std::fmod(t, 0.07) < 0.02)
            x[i] += 0.5 * noise(rng);
    }
    return x;
}

// What a stage writes where it must be silent (the generator's definition).
inline std::vector<double> silenceNoise(size_t n)
{
    std::vector<double> out(n);
    uint32_t state = 0;
    for (size_t i = 0; i < n; ++i) {
        state = state * 30013u + 30011u;
        out[i] = (state & 0x800000u) ? 1e-11 : -1e-11;
    }
    return out;
}

// The largest deviation, relative to each sample or to 1e-3 where it is smaller (near a
// zero crossing there is no relative precision); a NaN or a missing sample is infinite.
inline double worstDeviation(const std::vector<double>& actual, const std::vector<double>& expected)
{
    if (actual.size() != expected.size())
        return INFINITY;
    double worst = 0.0;
    for (size_t i = 0; i < actual.size(); ++i) {
        const double d = std::fabs(actual[i] - expected[i]) / std::max(std::fabs(expected[i]), 1e-3);
        if (!(d <= worst))
            worst = std::isnan(d) ? INFINITY : d;
    }
    return worst;
}

inline size_t countSubnormals(const std::vector<double>& x)
{
    return size_t(std::count_if(x.begin(), x.end(), [](double v) { return std::fpclassify(v) == FP_SUBNORMAL; }));
}

// Host block lengths, odd ones and single samples among them: no state may survive only
// by a block boundary's luck.
inline const int32_t kBlockLengths[] = {512, 1, 7, 333, 64, 1000, 2, 128};

class SaturatorGraphs : public GraphFixture
{
protected:
    SaturatorGraphs() : GraphFixture(kSaturatorGraphDefinitions, "SaturatorGraphs.xml") {}

    // A saturator mode and drive on a stage, e.g. "pair.modSatEB".
    void setSat(const std::string& stage, const SatMode& m, double drive, int32_t group = 0)
    {
        const std::pair<const char*, double> values[] = {
            {"drive", drive},           {"bias-gain", m.biasGain}, {"bias-gain2", m.biasGain2}, {"makeup-gain", m.makeupGain},
            {"makeup-corr", m.makeupCorr}, {"curve-gain", m.curveGain}, {"curvature", m.curvature}, {"shift", m.shift},
            {"const-bias", m.constBias}, {"rms-time", m.rmsTime}};
        for (const auto& [name, value] : values)
            set((stage + "." + name).c_str(), value, group);
    }

    void setGlow(const std::string& stage, const GlowMode& m, int32_t group = 0)
    {
        const std::pair<const char*, double> values[] = {
            {"ratio-a", m.ratioA}, {"ratio-b", m.ratioB}, {"knee-a", m.kneeA}, {"knee-b", m.kneeB},
            {"bias-I", m.biasI}, {"bias-V", m.biasV}, {"gain-I", m.gainI}, {"gain-V", m.gainV},
            {"auto-gain-point", m.autoGainPoint}, {"feed-freq", m.feedFreq}, {"feed-freq-inv", m.feedFreqInv},
            {"type", m.type}, {"makeup-gain", m.makeupGain}};
        for (const auto& [name, value] : values)
            set((stage + "." + name).c_str(), value, group);
    }

    // Runs the whole signal through in blocks of kBlockLengths, over and over.
    static Signal play(Graph& g, const Signal& in, size_t from = 0, size_t to = SIZE_MAX)
    {
        to = std::min(to, in[0].size());
        Signal out(in.size());
        size_t turn = 0;
        for (size_t at = from; at < to; ++turn) {
            const auto n = int32_t(std::min<size_t>(size_t(kBlockLengths[turn % std::size(kBlockLengths)]), to - at));
            const std::vector<const double*> buffers = g.block(in, at, n);
            for (size_t c = 0; c < in.size(); ++c)
                for (int32_t i = 0; i < n; ++i)
                    out[c].push_back(buffers[c] ? buffers[c][i] : std::numeric_limits<double>::quiet_NaN());
            at += size_t(n);
        }
        return out;
    }

    template <class Module>
    Module& module(const char* child, int32_t slot = 0)
    {
        return *static_cast<Module*>(m_graph->child<CAudioProcessTerminalBase>(child).currentModule(slot));
    }
};

} // namespace qel::test
