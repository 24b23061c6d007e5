#pragma once

#include <cstdint>
#include <cstdio>

namespace qel {

// A one-line progress bar, drawn only when its stream is a terminal, so logs and pipes
// get no control characters.
class CProgressBar
{
public:
    CProgressBar(std::FILE* stream, const char* label, int64_t total);
    ~CProgressBar() { finish(); }

    void update(int64_t done);
    void finish();

private:
    std::FILE* m_stream;
    const char* m_label;
    int64_t m_total;
    int m_shown = -1; // percent last drawn
    bool m_enabled;
    bool m_finished = false;
};

} // namespace qel
