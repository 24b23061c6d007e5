#include "CVst3HostText.h"

#include <cstring>

namespace qel {

CString CVst3HostText::fromUnits(const Steinberg::Vst::TChar* text, int capacity)
{
    int length = 0;
    while (length < capacity && text[length] != 0)
        ++length;
    return CString(reinterpret_cast<const char16_t*>(text), length);
}

std::string CVst3HostText::utf8FromUnits(const Steinberg::Vst::TChar* text, int capacity)
{
    return fromUnits(text, capacity).toUtf8();
}

std::string CVst3HostText::fromBytes(const char* text, int capacity)
{
    const void* end = std::memchr(text, 0, static_cast<size_t>(capacity));
    return std::string(text, end ? static_cast<const char*>(end) - text : capacity);
}

void CVst3HostText::toUnits(const CString& text, Steinberg::Vst::TChar* out, int capacity)
{
    const int length = text.length() < capacity - 1 ? text.length() : capacity - 1;
    for (int i = 0; i < length; ++i)
        out[i] = static_cast<Steinberg::Vst::TChar>(text.at(i));
    out[length] = 0;
}

void CVst3HostText::utf8ToUnits(const std::string& text, Steinberg::Vst::TChar* out, int capacity)
{
    toUnits(CString::fromUtf8(text), out, capacity);
}

} // namespace qel
