#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qel {

template <class T, bool Owning> class CPtrArray;

// The framework's string. It holds 8-bit units (Latin-1 code points) until a 16-bit unit
// is needed, and keeps short texts in an inline buffer: 26 narrow or 12 wide characters
// with their terminator need no allocation. Heap storage comes from the block allocator.
// Comparisons are by character value, so a narrow and a wide string with the same
// characters are equal whatever their widths.
//
// Not synchronised: a string belongs to one thread at a time.
class CString
{
public:
    static constexpr int kInlineBytes = 27;

    CString() = default;
    CString(const char* text);                  // 8-bit text, each byte a code point
    CString(const char* text, int length);
    CString(std::string_view text) : CString(text.data(), static_cast<int>(text.size())) {}
    CString(const char16_t* text);
    CString(const char16_t* text, int length);
    CString(const CString& other);
    CString(CString&& other) noexcept;
    ~CString();

    CString& operator=(const CString& other);
    CString& operator=(CString&& other) noexcept;
    CString& operator=(const char* text) { return assign(text); }

    // UTF-8 as the definition loader reads it: lead bytes of 2, 3 and 4 byte sequences are
    // taken at their word (continuation bytes are not checked), any other lead byte is
    // dropped, and 4-byte sequences are cut to 16 bits; surrogate units are dropped. The
    // string widens at the first code point above 255, so Latin-1 text stays narrow.
    static CString fromUtf8(const char* bytes, size_t count);
    static CString fromUtf8(std::string_view text) { return fromUtf8(text.data(), text.size()); }
    static CString number(int64_t value);

    int length() const { return m_length; }
    bool isEmpty() const { return m_length == 0; }
    bool isWide() const { return m_wide != 0; }
    bool isInline() const { return m_data == m_inline; }
    // Bytes of storage: the inline buffer's size while inline.
    int capacity() const { return isInline() ? kInlineBytes : m_capacity; }

    char16_t at(int index) const
    {
        return m_wide ? reinterpret_cast<const char16_t*>(m_data)[index]
                      : static_cast<unsigned char>(m_data[index]);
    }
    const char* data8() const { return m_data; }
    const char16_t* data16() const { return reinterpret_cast<const char16_t*>(m_data); }
    char* data8() { return m_data; }
    char16_t* data16() { return reinterpret_cast<char16_t*>(m_data); }

    // Resizes to n characters of the current width and writes the terminator. Storage
    // never shrinks and never returns from the heap to the inline buffer.
    void setLength(int n, bool keepContent);
    void widen();

    CString& assign(const char* text, int length);
    CString& assign(const char* text);
    CString& assign(const char16_t* text, int length);
    CString& assign(const CString& other);

    CString& append(const CString& other);
    CString& append(const char* text, int length);
    CString& append(const char* text);
    CString& append(char16_t c);
    CString& operator+=(const CString& other) { return append(other); }
    CString& operator+=(const char* text) { return append(text); }

    CString substring(int start, int count = -1) const;
    int find(char16_t c, int start = 0) const;
    int findLast(char16_t c) const;

    // Integers: an optional '-', then "0x", "0X", '#' or '$' for hexadecimal, else
    // decimal; any other character fails. Hexadecimal may use all 32 bits (colours).
    bool toInt(int32_t& out) const;
    bool toInt64(int64_t& out) const;
    // Reals: signs, digits, an exponent with 'e' or 'E', and '.' or ',' as decimal point;
    // independent of the C locale.
    bool toReal(double& out) const;

    void split(char16_t delimiter, CPtrArray<CString, true>& out, bool skipEmpty,
               bool clearTarget) const;

    // UTF-8 as streams write it: narrow units as Latin-1 code points; wide units below
    // 0x80 in one byte, below 0x800 in two, else three; surrogate units are left out.
    size_t utf8Length() const;
    // Writes exactly utf8Length() bytes from character `start` on, at most `room` bytes;
    // returns the index of the first character not written and the bytes used.
    int encodeUtf8(int start, char* out, size_t room, size_t& used) const;
    std::string toUtf8() const;

    bool operator==(const CString& other) const;
    bool operator!=(const CString& other) const { return !(*this == other); }

private:
    void ensureBytes(size_t need, bool keepContent);
    void ensureBytesKeeping(size_t need, size_t keepBytes);
    void releaseHeap();
    // Takes over the heap block of `other`, which is left empty.
    void takeHeapOf(CString& other);
    void initFrom(const void* text, int length, bool wide);

    char* m_data = m_inline;
    int32_t m_capacity = 0; // heap bytes; 0 while inline
    int32_t m_length = 0;
    alignas(2) char m_inline[kInlineBytes] = {};
    uint8_t m_wide = 0;
};

inline CString operator+(const CString& a, const CString& b)
{
    CString joined(a);
    joined.append(b);
    return joined;
}

// <0, 0, >0 by character value; a prefix sorts first. Widths don't matter.
int compareStrings(const CString& a, const CString& b);

// '?' is any one character, '*' any run; characters compare by value.
bool matchWildcard(const CString& text, const CString& pattern);

// Map ordering for string keys.
struct CStringLess
{
    bool operator()(const CString& a, const CString& b) const { return compareStrings(a, b) < 0; }
};

} // namespace qel
