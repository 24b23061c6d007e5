#pragma once

#include "Core/CString.h"

#include "pluginterfaces/base/ftypes.h"
#include "pluginterfaces/vst/vsttypes.h"

#include <string>

namespace qel {

// Text as the interfaces carry it: fixed arrays of 16-bit units or bytes, terminated
// within the array or filling it.
class CVst3HostText
{
public:
    // Up to the terminator or `capacity` units, whichever comes first.
    static CString fromUnits(const Steinberg::Vst::TChar* text, int capacity = 128);
    static std::string utf8FromUnits(const Steinberg::Vst::TChar* text, int capacity = 128);
    static std::string fromBytes(const char* text, int capacity);
    // Cut to capacity - 1 units so the terminator always fits.
    static void toUnits(const CString& text, Steinberg::Vst::TChar* out, int capacity = 128);
    static void utf8ToUnits(const std::string& text, Steinberg::Vst::TChar* out, int capacity = 128);
};

} // namespace qel
