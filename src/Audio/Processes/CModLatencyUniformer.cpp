#include "Audio/Processes/CModLatencyUniformer.h"

#include "Audio/Processes/CModLatencyUniformerDef.h"
#include "Core/CLog.h"

namespace qel {

// The table comes first: the base makes the prepared modules, which read it.
CErrorPtr CModLatencyUniformer::init()
{
    m_table = dynamic_cast<const CModLatencyUniformerDef*>(m_def);
    return CAudioProcessTerminal<CModLatencyUniformerModule>::init();
}

void CModLatencyUniformer::noteUnsupportedRate(double sampleRate)
{
    m_notedRate.store(sampleRate, std::memory_order_relaxed);
    m_isUnsupportedNoted.store(true, std::memory_order_release);
}

void CModLatencyUniformer::noteTooHighLatency(int32_t latency, double sampleRate)
{
    m_notedLatency.store(latency, std::memory_order_relaxed);
    m_notedTooHighRate.store(sampleRate, std::memory_order_relaxed);
    m_isTooHighNoted.store(true, std::memory_order_release);
}

void CModLatencyUniformer::flushDiagnostics()
{
    CAudioProcessTerminal<CModLatencyUniformerModule>::flushDiagnostics();
    if (m_isUnsupportedNoted.exchange(false, std::memory_order_acq_rel))
        CLog::printfObject(m_fullName, "Unsupported sample rate %f in LatencyUniformer",
                           m_notedRate.load(std::memory_order_relaxed));
    if (m_isTooHighNoted.exchange(false, std::memory_order_acq_rel))
        CLog::printfObject(m_fullName, "Too high latency %i at sample rate %f in LatencyUniformer",
                           int(m_notedLatency.load(std::memory_order_relaxed)),
                           m_notedTooHighRate.load(std::memory_order_relaxed));
}

} // namespace qel
