#pragma once

#include "Core/CPtrArray.h"
#include "Core/CString.h"

#include <cstdint>

namespace qel {

// A comma-separated list of numbers as definitions write them ("0.0172, 0.1434"): blanks
// around an item are ignored, an empty text is an empty list. False when an item is not a
// number or there are more than `capacity`; `count` then says nothing.
inline bool parseNumberList(const CString& text, double* out, int32_t capacity, int32_t& count)
{
    count = 0;
    CPtrArray<CString, true> items;
    text.split(',', items, false, true);
    if (items.count() == 1) {
        const CString& only = *items[0];
        bool isBlank = true;
        for (int i = 0; i < only.length() && isBlank; ++i)
            isBlank = only.at(i) == ' ' || only.at(i) == '\t' || only.at(i) == '\r' || only.at(i) == '\n';
        if (isBlank)
            return true;
    }
    for (int i = 0; i < items.count(); ++i) {
        const CString& item = *items[i];
        int start = 0;
        int end = item.length();
        const auto blank = [&](int at) { return item.at(at) == ' ' || item.at(at) == '\t' || item.at(at) == '\r' || item.at(at) == '\n'; };
        while (start < end && blank(start))
            ++start;
        while (end > start && blank(end - 1))
            --end;
        double value = 0.0;
        if (count >= capacity || start == end || !item.substring(start, end - start).toReal(value))
            return false;
        out[count++] = value;
    }
    return true;
}

} // namespace qel
