#include "Core/CString.h"

#include "Core/CBlockAllocator.h"
#include "Core/CPtrArray.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace qel {
namespace {

// Walks UTF-8 the way the definition loader does and hands each code point to `emit`.
template <class Emit>
void decodeUtf8(const unsigned char* p, size_t count, Emit&& emit)
{
    size_t i = 0;
    while (i < count) {
        const unsigned lead = p[i];
        size_t length;
        if (lead < 0x80)
            length = 1;
        else if ((lead & 0xE0) == 0xC0)
            length = 2;
        else if ((lead & 0xF0) == 0xE0)
            length = 3;
        else if ((lead & 0xF8) == 0xF0)
            length = 4;
        else {
            ++i; // a stray continuation byte or an invalid lead byte
            continue;
        }
        if (count - i < length)
            break; // a sequence cut off by the end of the data
        uint32_t cp;
        switch (length) {
        case 1: cp = lead; break;
        case 2: cp = ((lead & 0x1F) << 6) | (p[i + 1] & 0x3F); break;
        case 3: cp = ((lead & 0x0F) << 12) | ((p[i + 1] & 0x3F) << 6) | (p[i + 2] & 0x3F); break;
        default:
            cp = ((lead & 0x07) << 18) | ((p[i + 1] & 0x3F) << 12) | ((p[i + 2] & 0x3F) << 6)
                 | (p[i + 3] & 0x3F);
            cp &= 0xFFFF;
            break;
        }
        // Surrogate units are no text of their own, and writing leaves them out; dropping
        // them here too keeps a string the same after it was written and read again.
        if (cp < 0xD800 || cp > 0xDFFF)
            emit(static_cast<char16_t>(cp));
        i += length;
    }
}

int utf8Bytes(char16_t unit, bool wide)
{
    if (unit < 0x80)
        return 1;
    if (!wide || unit < 0x800)
        return 2;
    if (unit >= 0xD800 && unit <= 0xDFFF)
        return 0;
    return 3;
}

bool isHexDigit(char16_t c, int& value)
{
    if (c >= '0' && c <= '9')
        value = c - '0';
    else if (c >= 'a' && c <= 'f')
        value = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
        value = c - 'A' + 10;
    else
        return false;
    return true;
}

// Parses an integer; `hex` tells the caller which notation it was.
bool parseInteger(const CString& s, int64_t& out, bool& hex)
{
    int i = 0;
    const int n = s.length();
    bool negative = false;
    if (i < n && s.at(i) == '-') {
        negative = true;
        ++i;
    }
    hex = false;
    if (i + 1 < n && s.at(i) == '0' && (s.at(i + 1) == 'x' || s.at(i + 1) == 'X')) {
        hex = true;
        i += 2;
    } else if (i < n && (s.at(i) == '#' || s.at(i) == '$')) {
        hex = true;
        ++i;
    }
    if (i == n)
        return false;
    uint64_t value = 0;
    const uint64_t base = hex ? 16 : 10;
    for (; i < n; ++i) {
        int digit;
        const char16_t c = s.at(i);
        if (hex) {
            if (!isHexDigit(c, digit))
                return false;
        } else {
            if (c < '0' || c > '9')
                return false;
            digit = c - '0';
        }
        if (value > (UINT64_MAX - digit) / base)
            return false;
        value = value * base + digit;
    }
    if (value > (negative ? uint64_t(INT64_MAX) + 1 : uint64_t(INT64_MAX)))
        return false;
    out = negative ? static_cast<int64_t>(0 - value) : static_cast<int64_t>(value);
    return true;
}

bool matchFrom(const CString& text, int t, const CString& pattern, int p)
{
    const int tn = text.length();
    const int pn = pattern.length();
    while (p < pn) {
        const char16_t pc = pattern.at(p);
        if (pc == '*') {
            while (p < pn && pattern.at(p) == '*')
                ++p;
            if (p == pn)
                return true;
            const char16_t first = pattern.at(p);
            for (int i = t; i < tn; ++i) {
                if ((first == '?' || text.at(i) == first) && matchFrom(text, i, pattern, p))
                    return true;
            }
            return false;
        }
        if (t == tn || (pc != '?' && text.at(t) != pc))
            return false;
        ++t;
        ++p;
    }
    return t == tn;
}

} // namespace

CString::CString(const char* text) : CString(text, text ? static_cast<int>(std::strlen(text)) : 0) {}

CString::CString(const char* text, int length) { initFrom(text, length, false); }

CString::CString(const char16_t* text)
{
    int length = 0;
    if (text)
        while (text[length])
            ++length;
    initFrom(text, length, true);
}

CString::CString(const char16_t* text, int length) { initFrom(text, length, true); }

CString::CString(const CString& other) { initFrom(other.m_data, other.m_length, other.isWide()); }

CString::CString(CString&& other) noexcept
{
    if (other.isInline())
        initFrom(other.m_data, other.m_length, other.isWide());
    else
        takeHeapOf(other);
}

void CString::takeHeapOf(CString& other)
{
    m_data = other.m_data;
    m_capacity = other.m_capacity;
    m_length = other.m_length;
    m_wide = other.m_wide;
    other.m_data = other.m_inline;
    other.m_capacity = 0;
    other.m_length = 0;
    other.m_wide = 0;
    other.m_inline[0] = other.m_inline[1] = 0;
}

CString::~CString() { releaseHeap(); }

CString& CString::operator=(const CString& other) { return assign(other); }

CString& CString::operator=(CString&& other) noexcept
{
    if (this == &other)
        return *this;
    if (other.isInline()) {
        assign(other);
        return *this;
    }
    releaseHeap();
    takeHeapOf(other);
    return *this;
}

void CString::initFrom(const void* text, int length, bool wide)
{
    if (length < 0)
        length = 0;
    m_wide = wide ? 1 : 0;
    const size_t unit = wide ? 2 : 1;
    const size_t need = (size_t(length) + 1) * unit;
    if (need > size_t(kInlineBytes)) {
        const size_t bytes = wide ? 2 * size_t(length) + 26 : size_t(length) + 13;
        m_data = static_cast<char*>(CBlockAllocator::alloc(bytes));
        m_capacity = static_cast<int32_t>(bytes);
    }
    if (length > 0)
        std::memcpy(m_data, text, length * unit);
    m_length = length;
    std::memset(m_data + length * unit, 0, unit);
}

void CString::releaseHeap()
{
    if (!isInline())
        CBlockAllocator::free(m_data);
    m_data = m_inline;
    m_capacity = 0;
}

void CString::ensureBytes(size_t need, bool keepContent)
{
    const size_t keepBytes = keepContent ? size_t(m_length + 1) * (m_wide ? 2 : 1) : 0;
    ensureBytesKeeping(need, keepBytes);
}

void CString::ensureBytesKeeping(size_t need, size_t keepBytes)
{
    if (isInline()) {
        if (need <= size_t(kInlineBytes))
            return;
        auto* block = static_cast<char*>(CBlockAllocator::alloc(need));
        if (keepBytes)
            std::memcpy(block, m_inline, std::min(keepBytes, size_t(kInlineBytes)));
        m_data = block;
        m_capacity = static_cast<int32_t>(need);
        return;
    }
    if (need <= size_t(m_capacity))
        return;
    const size_t bytes = need + (m_wide ? 24 : 12);
    if (keepBytes) {
        m_data = static_cast<char*>(CBlockAllocator::realloc(m_data, bytes));
    } else {
        CBlockAllocator::free(m_data);
        m_data = static_cast<char*>(CBlockAllocator::alloc(bytes));
    }
    m_capacity = static_cast<int32_t>(bytes);
}

void CString::setLength(int n, bool keepContent)
{
    if (n < 0)
        n = 0;
    const size_t unit = m_wide ? 2 : 1;
    ensureBytes((size_t(n) + 1) * unit, keepContent);
    m_length = n;
    std::memset(m_data + n * unit, 0, unit);
}

void CString::widen()
{
    if (m_wide)
        return;
    const int n = m_length;
    m_wide = 1;
    ensureBytesKeeping(2 * size_t(n) + 2, size_t(n) + 1);
    // Back to front, so each narrow unit is read before its place is overwritten.
    auto* narrow = reinterpret_cast<unsigned char*>(m_data);
    char16_t* wideUnits = data16();
    for (int i = n; i >= 0; --i)
        wideUnits[i] = narrow[i];
}

CString& CString::assign(const char* text, int length)
{
    if (text >= m_data && text < m_data + capacity()) {
        CString copy(text, length);
        return assign(copy);
    }
    m_wide = 0;
    setLength(length, false);
    if (m_length > 0)
        std::memcpy(m_data, text, m_length);
    return *this;
}

CString& CString::assign(const char* text)
{
    return assign(text, text ? static_cast<int>(std::strlen(text)) : 0);
}

CString& CString::assign(const char16_t* text, int length)
{
    if (reinterpret_cast<const char*>(text) >= m_data
        && reinterpret_cast<const char*>(text) < m_data + capacity()) {
        CString copy(text, length);
        return assign(copy);
    }
    m_wide = 1;
    setLength(length, false);
    if (m_length > 0)
        std::memcpy(m_data, text, size_t(m_length) * 2);
    return *this;
}

CString& CString::assign(const CString& other)
{
    if (this == &other)
        return *this;
    return other.isWide() ? assign(other.data16(), other.m_length)
                          : assign(other.m_data, other.m_length);
}

CString& CString::append(const CString& other)
{
    if (this == &other) {
        CString copy(other);
        return append(copy);
    }
    if (other.isWide())
        widen();
    const int n = m_length;
    const int m = other.m_length;
    setLength(n + m, true);
    if (!m_wide) {
        std::memcpy(m_data + n, other.m_data, m);
    } else if (other.isWide()) {
        std::memcpy(data16() + n, other.data16(), size_t(m) * 2);
    } else {
        char16_t* out = data16() + n;
        for (int i = 0; i < m; ++i)
            out[i] = static_cast<unsigned char>(other.m_data[i]);
    }
    return *this;
}

CString& CString::append(const char* text, int length)
{
    if (length <= 0)
        return *this;
    if (text >= m_data && text < m_data + capacity()) {
        CString copy(text, length);
        return append(copy);
    }
    const int n = m_length;
    setLength(n + length, true);
    if (!m_wide) {
        std::memcpy(m_data + n, text, length);
    } else {
        char16_t* out = data16() + n;
        for (int i = 0; i < length; ++i)
            out[i] = static_cast<unsigned char>(text[i]);
    }
    return *this;
}

CString& CString::append(const char* text)
{
    return append(text, text ? static_cast<int>(std::strlen(text)) : 0);
}

CString& CString::append(char16_t c)
{
    if (c > 0xFF)
        widen();
    const int n = m_length;
    setLength(n + 1, true);
    if (m_wide)
        data16()[n] = c;
    else
        m_data[n] = static_cast<char>(c);
    return *this;
}

CString CString::substring(int start, int count) const
{
    if (start < 0)
        start = 0;
    if (start >= m_length)
        return isWide() ? CString(u"") : CString();
    const int rest = m_length - start;
    if (count < 0 || count > rest)
        count = rest;
    return isWide() ? CString(data16() + start, count) : CString(m_data + start, count);
}

int CString::find(char16_t c, int start) const
{
    for (int i = start < 0 ? 0 : start; i < m_length; ++i)
        if (at(i) == c)
            return i;
    return -1;
}

int CString::findLast(char16_t c) const
{
    for (int i = m_length - 1; i >= 0; --i)
        if (at(i) == c)
            return i;
    return -1;
}

CString CString::number(int64_t value)
{
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return CString(buffer, static_cast<int>(result.ptr - buffer));
}

bool CString::toInt64(int64_t& out) const
{
    bool hex;
    return parseInteger(*this, out, hex);
}

bool CString::toInt(int32_t& out) const
{
    int64_t value;
    bool hex;
    if (!parseInteger(*this, value, hex))
        return false;
    if (hex && value >= 0 && value <= int64_t(UINT32_MAX)) {
        out = static_cast<int32_t>(static_cast<uint32_t>(value));
        return true;
    }
    if (value < INT32_MIN || value > INT32_MAX)
        return false;
    out = static_cast<int32_t>(value);
    return true;
}

bool CString::toReal(double& out) const
{
    // Check the grammar first: from_chars would also take "inf", "nan" and hex floats.
    char buffer[128];
    int n = m_length;
    if (n == 0 || n >= int(sizeof buffer))
        return false;
    int digits = 0;
    int w = 0;
    int i = 0;
    if (at(0) == '+' || at(0) == '-') {
        if (at(0) == '-')
            buffer[w++] = '-';
        i = 1;
    }
    bool point = false;
    for (; i < n; ++i) {
        const char16_t c = at(i);
        if (c >= '0' && c <= '9') {
            ++digits;
            buffer[w++] = static_cast<char>(c);
        } else if ((c == '.' || c == ',') && !point) {
            point = true;
            buffer[w++] = '.';
        } else {
            break;
        }
    }
    if (digits == 0)
        return false;
    if (i < n && (at(i) == 'e' || at(i) == 'E')) {
        buffer[w++] = 'e';
        ++i;
        if (i < n && (at(i) == '+' || at(i) == '-'))
            buffer[w++] = static_cast<char>(at(i++));
        int expDigits = 0;
        for (; i < n && at(i) >= '0' && at(i) <= '9'; ++i, ++expDigits)
            buffer[w++] = static_cast<char>(at(i));
        if (expDigits == 0)
            return false;
    }
    if (i != n)
        return false;
    double value;
    auto result = std::from_chars(buffer, buffer + w, value);
    if (result.ec != std::errc() || result.ptr != buffer + w)
        return false;
    out = value;
    return true;
}

void CString::split(char16_t delimiter, CPtrArray<CString, true>& out, bool skipEmpty,
                    bool clearTarget) const
{
    if (clearTarget)
        out.clear();
    int start = 0;
    for (;;) {
        int end = find(delimiter, start);
        const int stop = end < 0 ? m_length : end;
        if (stop > start || !skipEmpty)
            out.append(new CString(substring(start, stop - start)));
        if (end < 0)
            break;
        start = end + 1;
    }
}

size_t CString::utf8Length() const
{
    size_t bytes = 0;
    for (int i = 0; i < m_length; ++i)
        bytes += utf8Bytes(at(i), isWide());
    return bytes;
}

int CString::encodeUtf8(int start, char* out, size_t room, size_t& used) const
{
    used = 0;
    int i = start;
    for (; i < m_length; ++i) {
        const char16_t c = at(i);
        const int bytes = utf8Bytes(c, isWide());
        if (used + bytes > room)
            break;
        auto* o = reinterpret_cast<unsigned char*>(out + used);
        switch (bytes) {
        case 1: o[0] = static_cast<unsigned char>(c); break;
        case 2:
            o[0] = static_cast<unsigned char>(0xC0 | (c >> 6));
            o[1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
            break;
        case 3:
            o[0] = static_cast<unsigned char>(0xE0 | (c >> 12));
            o[1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
            o[2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
            break;
        default: break;
        }
        used += bytes;
    }
    return i;
}

std::string CString::toUtf8() const
{
    std::string result(utf8Length(), '\0');
    size_t used;
    encodeUtf8(0, result.data(), result.size(), used);
    return result;
}

CString CString::fromUtf8(const char* bytes, size_t count)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes);
    int units = 0;
    bool wide = false;
    decodeUtf8(p, count, [&](char16_t c) {
        ++units;
        wide = wide || c > 0xFF;
    });
    CString result;
    if (wide)
        result.m_wide = 1;
    result.setLength(units, false);
    int i = 0;
    if (wide)
        decodeUtf8(p, count, [&](char16_t c) { result.data16()[i++] = c; });
    else
        decodeUtf8(p, count, [&](char16_t c) { result.m_data[i++] = static_cast<char>(c); });
    return result;
}

bool CString::operator==(const CString& other) const
{
    return m_length == other.m_length && compareStrings(*this, other) == 0;
}

int compareStrings(const CString& a, const CString& b)
{
    const int n = a.length() < b.length() ? a.length() : b.length();
    if (!a.isWide() && !b.isWide()) {
        const int c = std::memcmp(a.data8(), b.data8(), n);
        if (c != 0)
            return c;
    } else {
        for (int i = 0; i < n; ++i) {
            const int d = int(a.at(i)) - int(b.at(i));
            if (d != 0)
                return d;
        }
    }
    return a.length() - b.length();
}

bool matchWildcard(const CString& text, const CString& pattern)
{
    return matchFrom(text, 0, pattern, 0);
}

} // namespace qel
