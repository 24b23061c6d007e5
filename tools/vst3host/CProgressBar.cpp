#include "CProgressBar.h"

#include <unistd.h>

namespace qel {

namespace {

constexpr int kBarWidth = 40;

} // namespace

CProgressBar::CProgressBar(std::FILE* stream, const char* label, int64_t total)
    : m_stream(stream), m_label(label), m_total(total > 0 ? total : 1), m_enabled(isatty(fileno(stream)) != 0)
{
}

void CProgressBar::update(int64_t done)
{
    if (!m_enabled || m_finished)
        return;
    const int percent = static_cast<int>((done > m_total ? m_total : done) * 100 / m_total);
    if (percent == m_shown)
        return;
    m_shown = percent;
    char bar[kBarWidth + 1];
    const int filled = percent * kBarWidth / 100;
    for (int i = 0; i < kBarWidth; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[kBarWidth] = 0;
    std::fprintf(m_stream, "\r%s [%s] %3d%%", m_label, bar, percent);
    std::fflush(m_stream);
}

void CProgressBar::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    if (m_enabled && m_shown >= 0) {
        std::fputc('\n', m_stream);
        std::fflush(m_stream);
    }
}

} // namespace qel
