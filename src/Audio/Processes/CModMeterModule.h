#pragma once

#include "Audio/CAudioVizDataMeter.h"
#include "Audio/Processes/CKWeightingFilter.h"
#include "Audio/Processes/CModStatsModule.h"

#include <cstdint>

namespace qel {

// The measuring half of a level meter, on one channel. Per sample it smooths the square
// of the signal (one pole whose corner is 1 / (1.362 t) Hz for a time t), lets an envelope
// follow it up at once and down at the release time, and keeps the extreme of each 25 ms
// chunk; a ring of chunk values holds the peak for `peak-time`, searched only when the
// held value leaves the window. Kernels, chosen in statsRecalc: a comparison of two
// signals (`is-diff`), the lowest level (`is-compression`), a K-weighted window of
// `rms-time` (`use-ebu128`), or the plain one.
//
// The squares carry a bias of 1e-30 (the window measure a tiny offset in its filters), so
// that nothing the meter keeps decays into subnormal numbers after its signal stops: the
// smallest level it reports is about 1e-15, 300 dB down, where a display shows nothing.
class CModMeterModule : public CModStatsModule
{
public:
    enum Slot : int32_t {
        SlotPeakTime = 0,
        SlotRmsTime = 1,
        SlotGain = 2,
        SlotBiasTime = 3,
        SlotUseBias = 4,
        SlotRelease = 5,
        SlotPeakGain = 6,
        SlotRmsTime2 = 7,
        SlotRelease2 = 8,
        SlotUseTime2 = 9,
        SlotUseEbu128 = 10,
        SlotCount = 11
    };
    enum Kernel : int32_t {
        KernelIdle,        // no ring could be had: measures nothing
        KernelPlain,
        KernelEbu128,
        KernelCompression,
        KernelCompressionBias,
        KernelDiff,        // no chunks, no ring
        KernelDiffBias,
    };
    // Bias of every square against subnormal numbers.
    static constexpr double kSquareFloor = 1e-30;
    // What the window measure adds in front of each of its filters, for the same reason.
    static constexpr double kFilterOffset = 1e-20;
    // The two terms that make a comparison of silences read 1.
    static constexpr double kDiffFloor = 1e-15;
    // Sum of squares over the window to the level of a 1 kHz tone.
    static constexpr double kEbuScale = 0.927414538975768;
    // Peak times up to this need no new ring while audio runs.
    static constexpr double kReservedPeakSec = 10.0;
    static constexpr int32_t kMaxRing = int32_t(1) << 27;

    // The measuring state, for tests and diagnostics.
    struct CState
    {
        double rmsA = 0.0;
        double rmsB = 0.0;
        double envelope = 0.0;
        double chunkValue = 0.0;
        double hold = 0.0;
        int32_t holdAge = 0;
        int32_t ringPos = 0;
        int32_t toChunkEnd = 1;
        double bias = 0.0;
        double hpW1 = 0.0, hpW2 = 0.0, shelfW1 = 0.0, shelfW2 = 0.0;
        double sum = 0.0;
        double sum2 = 0.0;
        int32_t windowPos = 0;
        int32_t fill = 0;
        int32_t restart = 1;
    };

    explicit CModMeterModule(const CSettings& settings);
    ~CModMeterModule() override;

    CErrorPtr init() override;
    void reset() override;
    void update() override;

    // A one-pole smoothing coefficient whose corner is 1 / (1.362 t) Hz; the corner stays
    // at or below half the rate.
    static double smoothingCoefficient(double timeSec, double sampleRate);

    // ---- for tests and diagnostics
    Kernel kernel() const { return m_kernel; }
    const CState& state() const { return m_s; }
    int32_t chunkLength() const { return m_chunkLength; }
    int32_t ringLength() const { return m_ringLength; }
    int32_t windowLength() const { return m_windowLength; }
    double rmsCoefficient() const { return m_k; }
    double releaseCoefficient() const { return 1.0 - m_keep; }
    double biasCoefficient() const { return m_kBias; }
    const CKWeightingFilter& weighting() const { return m_weighting; }
    const CAudioVizDataMeter& lastRecord() const { return m_record; }

protected:
    void statsRecalc() override;
    void statsProcess(const double* in, const double* side, int32_t n) override;
    CAudioVizData& statsMakeData() override;

private:
    // Gives `ring` room for `length` doubles, keeping what it has when that is enough;
    // the room it has when no larger one can be had.
    int32_t takeRing(double*& ring, int32_t length);
    void clearState();
    // A chunk's value into the ring and the hold: the highest, or the lowest.
    template <bool IsLowest>
    void endChunk(double value);

    void runPlain(const double* in, int32_t n);
    template <bool UseBias>
    void runCompression(const double* in, int32_t n);
    void runDiff(const double* in, const double* side, int32_t n);
    void runDiffBias(const double* in, const double* side, int32_t n);
    void runEbu128(const double* in, int32_t n);

    Kernel m_kernel = KernelPlain;
    CState m_s;
    double m_start = 0.0;
    double m_k = 1.0;
    double m_keep = 0.0;  // 1 - the release coefficient
    double m_kBias = 1.0;
    double m_gain = 1.0;
    double m_peakGain = 1.0;
    int32_t m_chunkLength = 1;
    int32_t m_ringLength = 1;
    int32_t m_windowLength = 1;
    double* m_ring = nullptr;
    double* m_window = nullptr;
    CKWeightingFilter m_weighting;
    CAudioVizDataMeter m_record;
};

} // namespace qel
