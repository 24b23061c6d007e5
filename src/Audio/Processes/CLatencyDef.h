#pragma once

#include "Core/CString.h"

#include <cstdint>
#include <vector>

namespace qel {

// A table of target latencies by sample rate, as a definition writes it: items
// "rate=latency" separated by ';', each field an integer in the framework's grammar
// (decimal, or hexadecimal behind "0x", "0X", '#' or '$', with an optional '-'). Rows stay
// in the order of the text, which lists them by rising rate. A field that is not a number
// reads as -1, and -1 as a latency marks a rate that is not supported; empty items and
// items without a '=' are skipped, and fields past the second are not read.
class CLatencyDef
{
public:
    struct CRow
    {
        int32_t rate = 0;    // highest rate in Hz at which the row holds
        int32_t latency = 0; // samples at that process's own rate
    };

    void parseLatencies(const CString& text);
    const std::vector<CRow>& latencyRows() const { return m_rows; }
    // The first row whose rate is at or above `sampleRate` rounded to an integer; null
    // when there is none. Any thread.
    const CRow* latencyRowFor(double sampleRate) const;

private:
    std::vector<CRow> m_rows;
};

} // namespace qel
