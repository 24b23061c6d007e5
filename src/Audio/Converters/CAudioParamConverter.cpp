#include "Audio/Converters/CAudioParamConverter.h"

#include "Audio/CAudioParamInfo.h"

#include <charconv>
#include <cmath>

namespace qel {
namespace {

// Exact powers of ten; enough for every decimals value a converter allows.
constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7,
                                   1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
constexpr int kMaxDecimals = 15;
// Beyond this the rounded number no longer fits int64 with room to spare.
constexpr double kLargestScaled = 9.0e18;
// Exponent digits past this only lead to infinity or zero anyway; stops int overflow.
constexpr int kExponentCap = 100000;

bool isDigit(char16_t c)
{
    return c >= '0' && c <= '9';
}

} // namespace

void CAudioParamConverter::initClassInfo(CClassInfo& info)
{
    CObject::initClassInfo(info);
}

CErrorPtr CAudioParamConverter::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    m_label = getAttrString(CString("label"));
    m_isDiscrete = getAttrBool(CString("is-discrete"));
    return nullptr;
}

// ---- text

double CAudioParamConverter::parseValue(const CAudioParamInfo& info, int pos, const CString& text, bool* ok) const
{
    bool read = false;
    const double value = readNumber(text, &read);
    setOk(ok, read);
    return read ? clamp(info, pos, value) : minOf(info, pos);
}

double CAudioParamConverter::parseRawValue(const CAudioParamInfo&, int, const CString& text, bool* ok) const
{
    bool read = false;
    const double value = readNumber(text, &read);
    setOk(ok, read);
    return read ? value : 0.0;
}

void CAudioParamConverter::valueToText(CString& out, const CAudioParamInfo&, int, double value,
                                       const CAudioParamData*, TextMode mode) const
{
    out = formatReal(value, mode == TextModeTiny ? 1 : 2);
}

// ---- positions: linear unless a subclass says otherwise

double CAudioParamConverter::normToValue(const CAudioParamInfo& info, int pos, double norm) const
{
    const double low = minOf(info, pos);
    return low + (maxOf(info, pos) - low) * norm;
}

double CAudioParamConverter::valueToNorm(const CAudioParamInfo& info, int pos, double value) const
{
    const double low = minOf(info, pos);
    const double span = maxOf(info, pos) - low;
    // A range of one point has every value at the start.
    return span == 0.0 ? 0.0 : (value - low) / span;
}

double CAudioParamConverter::normToDisplay(const CAudioParamInfo& info, int pos, double norm) const
{
    return normToValue(info, pos, norm);
}

double CAudioParamConverter::displayToNorm(const CAudioParamInfo& info, int pos, double display) const
{
    return valueToNorm(info, pos, clamp(info, pos, display));
}

// ---- numbers

double CAudioParamConverter::roundHalfAway(double x)
{
    return x >= 0.0 ? std::floor(x + 0.5) : -std::floor(0.5 - x);
}

CString CAudioParamConverter::formatReal(double value, int decimals)
{
    if (decimals < 0)
        decimals = 0;
    if (decimals > kMaxDecimals)
        decimals = kMaxDecimals;
    const double scaled = roundHalfAway(value * kPowersOfTen[decimals]);
    if (!(std::fabs(scaled) < kLargestScaled)) {
        // Infinities, NaN and giant numbers: to_chars is independent of the C locale too.
        char buffer[400];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
        return result.ec == std::errc() ? CString(buffer, int(result.ptr - buffer)) : CString();
    }
    const int64_t rounded = static_cast<int64_t>(scaled);
    uint64_t magnitude = rounded < 0 ? uint64_t(0) - uint64_t(rounded) : uint64_t(rounded);
    // Least significant digit first, padded so that one digit stands before the point.
    char digits[32];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    while (count < decimals + 1)
        digits[count++] = '0';

    char text[40];
    int length = 0;
    if (rounded < 0)
        text[length++] = '-';
    for (int i = count - 1; i >= 0; --i) {
        text[length++] = digits[i];
        if (i == decimals && i > 0)
            text[length++] = '.';
    }
    return CString(text, length);
}

double CAudioParamConverter::readNumber(const CString& text, bool* ok)
{
    const int n = text.length();
    int i = 0;
    bool negative = false;
    if (i < n && (text.at(i) == '+' || text.at(i) == '-')) {
        negative = text.at(i) == '-';
        ++i;
    }
    // Every digit of the mantissa goes into one number; the point only moves the exponent,
    // so "1.05" is 105 / 100, a single correctly rounded division.
    double mantissa = 0.0;
    int64_t fractionDigits = 0;
    bool mantissaDigit = false;
    bool partDigit = false;
    for (; i < n && isDigit(text.at(i)); ++i) {
        mantissa = mantissa * 10.0 + double(text.at(i) - '0');
        mantissaDigit = partDigit = true;
    }
    if (i < n && (text.at(i) == '.' || text.at(i) == ',')) {
        ++i;
        partDigit = false;
        for (; i < n && isDigit(text.at(i)); ++i) {
            mantissa = mantissa * 10.0 + double(text.at(i) - '0');
            ++fractionDigits;
            mantissaDigit = partDigit = true;
        }
    }
    int64_t exponent = 0;
    if (i < n && (text.at(i) == 'e' || text.at(i) == 'E')) {
        ++i;
        partDigit = false;
        bool exponentNegative = false;
        if (i < n && (text.at(i) == '+' || text.at(i) == '-')) {
            exponentNegative = text.at(i) == '-';
            ++i;
        }
        for (; i < n && isDigit(text.at(i)); ++i) {
            if (exponent < kExponentCap)
                exponent = exponent * 10 + (text.at(i) - '0');
            partDigit = true;
        }
        if (exponentNegative)
            exponent = -exponent;
    }
    if (i != n || !mantissaDigit || !partDigit) {
        setOk(ok, false);
        return 0.0;
    }
    double value = 0.0;
    if (mantissa != 0.0) {
        const int64_t power = exponent - fractionDigits;
        value = power >= 0 ? mantissa * std::pow(10.0, double(power)) : mantissa / std::pow(10.0, double(-power));
    }
    if (std::isnan(value)) { // only a mantissa of hundreds of digits gets here
        setOk(ok, false);
        return 0.0;
    }
    setOk(ok, true);
    return negative ? -value : value;
}

// ---- range

double CAudioParamConverter::minOf(const CAudioParamInfo& info, int pos)
{
    // A position without a range is a definition mistake; 0..1 keeps the arithmetic finite.
    return pos >= 0 && size_t(pos) < info.minValues.size() ? info.minValues[size_t(pos)] : 0.0;
}

double CAudioParamConverter::maxOf(const CAudioParamInfo& info, int pos)
{
    return pos >= 0 && size_t(pos) < info.maxValues.size() ? info.maxValues[size_t(pos)] : 1.0;
}

double CAudioParamConverter::clamp(const CAudioParamInfo& info, int pos, double value)
{
    // The info reads its own range through the converters, so a position may have no
    // range yet: then there is nothing to limit to.
    if (pos < 0 || size_t(pos) >= info.minValues.size() || size_t(pos) >= info.maxValues.size())
        return value;
    const double a = info.minValues[size_t(pos)];
    const double b = info.maxValues[size_t(pos)];
    const double low = a < b ? a : b;
    const double high = a < b ? b : a;
    if (std::isnan(value) || value < low)
        return low;
    return value > high ? high : value;
}

} // namespace qel
