#pragma once

#include "Core/CString.h"

namespace qel {

// Texts between the host's UTF-16 fields and our strings.
class CVST3Text
{
public:
    // Into a 128-unit field, cut to 127 units and terminated.
    static void toString128(const CString& text, char16_t* out) { toField(text, out, 128); }
    static void toField(const CString& text, char16_t* out, int size);
    // Up to the terminator or `maxUnits` units, whichever comes first.
    static CString fromHost(const char16_t* text, int maxUnits);
};

} // namespace qel
