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

// Each module (one per channel) meets the same rate and latency: told once, and again
// only when what there is to tell has changed.
void CModLatencyUniformer::noteUnsupportedRate(double sampleRate)
{
    if (m_told == Told::Unsupported && m_toldRate == sampleRate)
        return;
    m_told = Told::Unsupported;
    m_toldRate = sampleRate;
    noteDiagnostic([](const CString& name, int32_t, double rate) {
        CLog::printfObject(name, "Unsupported sample rate %f in LatencyUniformer", rate);
    }, 0, sampleRate);
}

void CModLatencyUniformer::noteTooHighLatency(int32_t latency, double sampleRate)
{
    if (m_told == Told::TooHigh && m_toldRate == sampleRate && m_toldLatency == latency)
        return;
    m_told = Told::TooHigh;
    m_toldRate = sampleRate;
    m_toldLatency = latency;
    noteDiagnostic([](const CString& name, int32_t input, double rate) {
        CLog::printfObject(name, "Too high latency %i at sample rate %f in LatencyUniformer", int(input), rate);
    }, latency, sampleRate);
}

void CModLatencyUniformer::noteFits() { m_told = Told::Nothing; }

} // namespace qel
