#include "Audio/Processes/CModLatencyUniformerModule.h"

#include "Audio/Processes/CLatencyDef.h"
#include "Audio/Processes/CModLatencyUniformer.h"

namespace qel {

CErrorPtr CModLatencyUniformerModule::init()
{
    QEL_RETURN_IF_ERROR(CAudioModule::init(), CString());
    if (CSampleBufferPool* pool = owner() ? owner()->pool() : nullptr)
        m_line = std::make_unique<CDSPModDelay>(*pool);
    return nullptr;
}

// Re-arms the line at the delay it has: the history goes, the length stays.
void CModLatencyUniformerModule::reset()
{
    if (m_line)
        m_line->reset();
}

void CModLatencyUniformerModule::update()
{
    auto* process = static_cast<CModLatencyUniformer*>(owner());
    const CLatencyDef* table = process ? process->table() : nullptr;
    const int32_t input = process ? process->latency() : 0;
    const CLatencyDef::CRow* row = table ? table->latencyRowFor(sampleRate()) : nullptr;
    m_delay = 0;
    if (!row || row->latency == -1) {
        // Nothing to pad to: the channel leaves as late as it came.
        m_latency = 0;
        if (process)
            process->noteUnsupportedRate(sampleRate());
    } else if (input > row->latency) {
        m_latency = row->latency - input;
        process->noteTooHighLatency(input, sampleRate());
    } else {
        m_delay = row->latency - input;
        m_latency = m_delay;
        if (process)
            process->noteFits();
    }
    if (m_line) {
        m_line->setSampleRate(sampleRate());
        m_line->reset();
        m_line->setDelay(m_delay);
    }
}

void CModLatencyUniformerModule::process(int32_t n)
{
    double* out = m_delay > 0 && m_line ? takeBuffer() : nullptr;
    if (!out) {
        passInput(0);
        return;
    }
    m_line->run(input(0), out, n);
    setOutput(0, out);
}

} // namespace qel
