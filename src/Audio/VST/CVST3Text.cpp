#include "Audio/VST/CVST3Text.h"

namespace qel {

void CVST3Text::toField(const CString& text, char16_t* out, int size)
{
    if (size <= 0)
        return;
    int n = 0;
    for (; n < text.length() && n < size - 1; ++n)
        out[n] = text.at(n);
    out[n] = 0;
}

CString CVST3Text::fromHost(const char16_t* text, int maxUnits)
{
    if (!text)
        return CString();
    int n = 0;
    while (n < maxUnits && text[n])
        ++n;
    return CString(text, n);
}

} // namespace qel
