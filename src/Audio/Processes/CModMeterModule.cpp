#include "Audio/Processes/CModMeterModule.h"

#include "Audio/CAudioProcessTerminalBase.h"
#include "Audio/CSampleBufferPool.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qel {

using Pool = CSampleBufferPool;

namespace {

// The slots whose change restarts the measurement; `gain` and `peak-gain` only scale it.
constexpr int32_t kRestartSlots[] = {
    CModMeterModule::SlotPeakTime, CModMeterModule::SlotRmsTime,  CModMeterModule::SlotBiasTime,
    CModMeterModule::SlotUseBias,  CModMeterModule::SlotRelease,  CModMeterModule::SlotRmsTime2,
    CModMeterModule::SlotRelease2, CModMeterModule::SlotUseTime2, CModMeterModule::SlotUseEbu128,
};

// Chunks of 25 ms make the steps of the peak hold.
constexpr double kChunksPerSecond = 40.0;
// Release times below this follow the level down at once.
constexpr double kShortestRelease = 0.0001;

int32_t clampedCount(double value, int32_t largest)
{
    if (!(value >= 1.0))
        return 1;
    return value < double(largest) ? int32_t(value) : largest;
}

double reciprocal(double level) { return 1.0 / std::max(level, CModMeterModule::kDiffFloor); }

} // namespace

CModMeterModule::CModMeterModule(const CSettings& settings) : CModStatsModule(SlotCount, settings) {}

CModMeterModule::~CModMeterModule()
{
    Pool::release(m_ring);
    Pool::release(m_window);
    m_ring = m_window = nullptr;
}

double CModMeterModule::smoothingCoefficient(double timeSec, double sampleRate)
{
    if (!(sampleRate > 0.0))
        return 1.0;
    constexpr double pi = std::numbers::pi;
    double angle = timeSec > 0.0 ? 2.0 * pi / (sampleRate * 1.362 * timeSec) : pi;
    if (!(angle < pi))
        angle = pi;
    // With x = 2 - cos(angle), the coefficient is 1 - x + sqrt(x^2 - 1). Written with
    // c = x - 1 = 2 sin^2(angle / 2), so that long times, whose angles are tiny, keep
    // their digits rather than losing them in 1 - x.
    const double h = std::sin(0.5 * angle);
    const double c = 2.0 * h * h;
    return std::sqrt(c * (2.0 + c)) - c;
}

CErrorPtr CModMeterModule::init()
{
    // The chunks of the longest usual hold, so that changing the time while playing finds
    // the ring large enough.
    const int32_t reserved = int32_t(std::ceil(kReservedPeakSec * kChunksPerSecond * 1.01)) + 2;
    takeRing(m_ring, reserved);
    return nullptr;
}

int32_t CModMeterModule::takeRing(double*& ring, int32_t length)
{
    const int32_t capacity = ring ? Pool::capacityBytes(ring) / int32_t(sizeof(double)) : 0;
    if (capacity >= length)
        return length;
    CSampleBufferPool* pool = owner() ? owner()->pool() : nullptr;
    double* larger = pool ? pool->take(length) : nullptr;
    // Without memory the ring serves at the length it has.
    if (!larger)
        return capacity;
    Pool::release(ring);
    ring = larger;
    return length;
}

void CModMeterModule::update()
{
    m_gain = paramValue(SlotGain, 1.0);
    m_peakGain = paramValue(SlotPeakGain, 1.0);
    bool isRestart = false;
    for (int32_t slot : kRestartSlots)
        isRestart = isRestart || isSlotChanged(slot);
    if (isRestart)
        restartFraming();
}

void CModMeterModule::statsRecalc()
{
    const double rate = sampleRate();
    const CSettings& s = settings();
    m_chunkLength = clampedCount(std::round(rate / kChunksPerSecond), kMaxRing);
    const double peakTime = paramValue(SlotPeakTime, 1.0);
    const int32_t ringLength = clampedCount(std::round(rate * peakTime / double(m_chunkLength)), kMaxRing);

    const bool useTime2 = paramValue(SlotUseTime2, 0.0) > 0.5;
    const double rmsTime = useTime2 ? paramValue(SlotRmsTime2, 0.15) : paramValue(SlotRmsTime, 0.15);
    const double release = useTime2 ? paramValue(SlotRelease2, 0.0) : paramValue(SlotRelease, 0.0);
    const double biasTime = paramValue(SlotBiasTime, 1.0);
    const bool useBias = paramValue(SlotUseBias, 0.0) > 0.5;
    const bool useEbu128 = paramValue(SlotUseEbu128, 0.0) > 0.5;

    m_k = smoothingCoefficient(rmsTime, rate);
    m_kBias = smoothingCoefficient(biasTime, rate);
    m_keep = release < kShortestRelease ? 0.0 : 1.0 - smoothingCoefficient(release, rate);

    if (s.isDiff)
        m_kernel = useBias ? KernelDiffBias : KernelDiff;
    else if (s.isCompression)
        m_kernel = useBias ? KernelCompressionBias : KernelCompression;
    else
        m_kernel = useEbu128 ? KernelEbu128 : KernelPlain;

    if (m_kernel != KernelDiff) {
        m_ringLength = takeRing(m_ring, ringLength);
        if (m_ringLength < 1)
            m_kernel = KernelIdle;
    }
    if (m_kernel == KernelEbu128) {
        m_windowLength = takeRing(m_window, clampedCount(std::round(rate * rmsTime), kMaxRing));
        if (m_windowLength < 1)
            m_kernel = KernelIdle;
        m_weighting = CKWeightingFilter::design(rate);
    }
    m_start = s.isDiff || s.isCompression ? 1.0 : 0.0;
    clearState();
}

void CModMeterModule::reset() { clearState(); }

void CModMeterModule::clearState()
{
    m_s = CState();
    m_s.rmsA = m_s.rmsB = m_s.envelope = m_s.chunkValue = m_s.hold = m_s.bias = m_start;
    m_s.toChunkEnd = m_chunkLength;
    m_s.fill = m_s.restart = m_windowLength;
    if (m_ring)
        std::fill(m_ring, m_ring + m_ringLength, m_start);
    if (m_window && m_kernel == KernelEbu128)
        std::fill(m_window, m_window + m_windowLength, 0.0);
}

template <bool IsLowest>
void CModMeterModule::endChunk(double value)
{
    double* ring = m_ring;
    const int32_t length = m_ringLength;
    const int32_t newest = m_s.ringPos;
    ring[newest] = value;
    m_s.ringPos = newest == 0 ? length - 1 : newest - 1;
    if (IsLowest ? value <= m_s.hold : value >= m_s.hold) {
        m_s.hold = value;
        m_s.holdAge = length - 1;
    } else if (m_s.holdAge > 0) {
        --m_s.holdAge;
    } else {
        // The held value has left the window: the extreme of what remains, the newest of
        // equals, from the newest entry towards the oldest.
        double best = value;
        int32_t bestAge = length - 1;
        int32_t at = newest;
        for (int32_t age = length - 2; age >= 0; --age) {
            at = at + 1 == length ? 0 : at + 1;
            const double v = ring[at];
            if (IsLowest ? v < best : v > best) {
                best = v;
                bestAge = age;
            }
        }
        m_s.hold = best;
        m_s.holdAge = bestAge;
    }
}

void CModMeterModule::statsProcess(const double* in, const double* side, int32_t n)
{
    switch (m_kernel) {
    case KernelPlain:
        runPlain(in, n);
        break;
    case KernelEbu128:
        runEbu128(in, n);
        break;
    case KernelCompression:
        runCompression<false>(in, n);
        break;
    case KernelCompressionBias:
        runCompression<true>(in, n);
        break;
    case KernelDiff:
        runDiff(in, side, n);
        break;
    case KernelDiffBias:
        runDiffBias(in, side, n);
        break;
    case KernelIdle:
        break;
    }
}

// The envelope is written as a + (e - a) keep, not e + (a - e) release, so that a release
// of 0 (keep 0) gives the level itself, to the bit; and max/min pick the instant rise (or
// fall) without a branch.
void CModMeterModule::runPlain(const double* __restrict in, int32_t n)
{
    double a = m_s.rmsA, e = m_s.envelope, p = m_s.chunkValue;
    const double k = m_k, keep = m_keep;
    for (int32_t i = 0; i < n;) {
        const int32_t span = std::min(n - i, m_s.toChunkEnd);
        for (const int32_t end = i + span; i < end; ++i) {
            const double q = in[i] * in[i] + kSquareFloor;
            a += (q - a) * k;
            e = std::max(a, a + (e - a) * keep);
            p = std::max(p, std::max(q, e));
        }
        m_s.toChunkEnd -= span;
        if (m_s.toChunkEnd == 0) {
            endChunk<false>(p);
            p = e;
            m_s.toChunkEnd = m_chunkLength;
        }
    }
    m_s.rmsA = a;
    m_s.envelope = e;
    m_s.chunkValue = p;
}

template <bool UseBias>
void CModMeterModule::runCompression(const double* __restrict in, int32_t n)
{
    double a = m_s.rmsA, e = m_s.envelope, p = m_s.chunkValue, b = m_s.bias;
    const double k = m_k, keep = m_keep, kb = m_kBias;
    for (int32_t i = 0; i < n;) {
        const int32_t span = std::min(n - i, m_s.toChunkEnd);
        for (const int32_t end = i + span; i < end; ++i) {
            const double q = in[i] * in[i] + kSquareFloor;
            double v = q;
            if constexpr (UseBias) {
                v = q / b;
                b += (q - b) * kb;
            }
            a += (v - a) * k;
            e = std::min(a, a + (e - a) * keep);
            p = std::min(p, std::min(v, e));
        }
        m_s.toChunkEnd -= span;
        if (m_s.toChunkEnd == 0) {
            endChunk<true>(p);
            p = e;
            m_s.toChunkEnd = m_chunkLength;
        }
    }
    m_s.rmsA = a;
    m_s.envelope = e;
    m_s.chunkValue = p;
    m_s.bias = b;
}

void CModMeterModule::runDiff(const double* __restrict in, const double* __restrict side, int32_t n)
{
    double a = m_s.rmsA, b = m_s.rmsB;
    const double k = m_k;
    for (int32_t i = 0; i < n; ++i) {
        a += (in[i] * in[i] + kSquareFloor - a) * k;
        b += (side[i] * side[i] + kSquareFloor - b) * k;
    }
    m_s.rmsA = a;
    m_s.rmsB = b;
}

void CModMeterModule::runDiffBias(const double* __restrict in, const double* __restrict side, int32_t n)
{
    double a = m_s.rmsA, b = m_s.rmsB, z = m_s.bias, e = m_s.envelope, p = m_s.chunkValue;
    const double k = m_k, kb = m_kBias;
    for (int32_t i = 0; i < n;) {
        const int32_t span = std::min(n - i, m_s.toChunkEnd);
        for (const int32_t end = i + span; i < end; ++i) {
            a += (in[i] * in[i] + kSquareFloor - a) * k;
            b += (side[i] * side[i] + kSquareFloor - b) * k;
            const double r = (kDiffFloor + a) / (kDiffFloor + b);
            z += (r - z) * kb;
            e = r / z;
            p = std::min(e, p);
        }
        m_s.toChunkEnd -= span;
        if (m_s.toChunkEnd == 0) {
            endChunk<true>(p);
            p = e;
            m_s.toChunkEnd = m_chunkLength;
        }
    }
    m_s.rmsA = a;
    m_s.rmsB = b;
    m_s.bias = z;
    m_s.envelope = e;
    m_s.chunkValue = p;
}

void CModMeterModule::runEbu128(const double* __restrict in, int32_t n)
{
    const CKWeightingFilter::CStage hp = m_weighting.highPass;
    const CKWeightingFilter::CStage sh = m_weighting.shelf;
    double hw1 = m_s.hpW1, hw2 = m_s.hpW2, sw1 = m_s.shelfW1, sw2 = m_s.shelfW2;
    double sum = m_s.sum, sum2 = m_s.sum2, p = m_s.chunkValue;
    int32_t pos = m_s.windowPos, fill = m_s.fill, restart = m_s.restart;
    double* __restrict window = m_window;
    const int32_t length = m_windowLength;
    for (int32_t i = 0; i < n;) {
        const int32_t span = std::min(n - i, m_s.toChunkEnd);
        for (const int32_t end = i + span; i < end; ++i) {
            const double x = in[i];
            p = std::max(p, std::fabs(x));
            const double hw = x + kFilterOffset + hp.c1 * hw1 + hp.c2 * hw2;
            const double h = hp.b0 * hw + hp.b1 * hw1 + hp.b2 * hw2;
            hw2 = hw1;
            hw1 = hw;
            const double sw = h + kFilterOffset + sh.c1 * sw1 + sh.c2 * sw2;
            const double y = sh.b0 * sw + sh.b1 * sw1 + sh.b2 * sw2;
            sw2 = sw1;
            sw1 = sw;
            const double q = y * y;
            sum += q;
            if (fill > 0)
                --fill;
            else
                sum -= window[pos];
            window[pos] = q;
            pos = pos == 0 ? length - 1 : pos - 1;
            // A second sum over each whole window replaces the running one, so that the
            // rounding of its additions and subtractions never accumulates.
            sum2 += q;
            if (restart == 1) {
                sum = sum2;
                sum2 = 0.0;
                restart = length;
            } else {
                --restart;
            }
        }
        m_s.toChunkEnd -= span;
        if (m_s.toChunkEnd == 0) {
            endChunk<false>(p);
            p = 0.0;
            m_s.toChunkEnd = m_chunkLength;
        }
    }
    m_s.hpW1 = hw1;
    m_s.hpW2 = hw2;
    m_s.shelfW1 = sw1;
    m_s.shelfW2 = sw2;
    m_s.sum = sum;
    m_s.sum2 = sum2;
    m_s.envelope = sum;
    m_s.chunkValue = p;
    m_s.windowPos = pos;
    m_s.fill = fill;
    m_s.restart = restart;
}

CAudioVizData& CModMeterModule::statsMakeData()
{
    const double g = m_gain;
    const double h = m_peakGain;
    double rms = 0.0;
    double peak = 0.0;
    switch (m_kernel) {
    case KernelDiff:
        rms = std::sqrt((m_s.rmsA + kDiffFloor) / (kDiffFloor + m_s.rmsB)) * g;
        peak = rms * h;
        break;
    case KernelDiffBias:
    case KernelCompression:
    case KernelCompressionBias:
        rms = std::sqrt(std::fabs(m_s.envelope)) * g;
        peak = std::sqrt(std::min(m_s.chunkValue, m_s.hold)) * g * h;
        break;
    case KernelEbu128:
        rms = std::sqrt(std::fabs(m_s.envelope / double(m_windowLength))) * kEbuScale * g;
        peak = std::max(m_s.chunkValue, m_s.hold) * g * h;
        break;
    case KernelPlain:
        rms = std::sqrt(std::fabs(m_s.envelope)) * g;
        peak = std::sqrt(std::max(m_s.chunkValue, m_s.hold)) * g * h;
        break;
    case KernelIdle:
        break;
    }
    if (settings().isInverted) {
        rms = reciprocal(rms);
        peak = reciprocal(peak);
    }
    m_record.rms = rms;
    m_record.peak = peak;
    return m_record;
}

} // namespace qel
