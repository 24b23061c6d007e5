#include "Core/CAttrValue.h"

#include <cmath>
#include <cstdio>

namespace qel {

CAttrValue::CAttrValue(const CAttrValue& other)
    : m_pointer(other.m_pointer), m_real(other.m_real), m_string(other.m_string), m_int(other.m_int),
      m_bool(other.m_bool), m_flags(other.m_flags & ~(Queued | SetterKnown)), m_kind(other.m_kind)
{
    // A copy is a value only: it is in no pending list and belongs to no class yet.
}

CAttrValue& CAttrValue::operator=(const CAttrValue& other)
{
    if (this != &other)
        assignValue(other);
    return *this;
}

void CAttrValue::assignValue(const CAttrValue& other)
{
    m_pointer = other.m_pointer;
    m_real = other.m_real;
    m_string = other.m_string;
    m_int = other.m_int;
    m_bool = other.m_bool;
    m_kind = other.m_kind;
    m_flags = (m_flags & (Queued | SetterKnown)) | (other.m_flags & ~(Queued | SetterKnown));
}

void CAttrValue::setBool(bool value)
{
    m_bool = value;
    setKind(Bool, HasBool);
}

void CAttrValue::setReal(double value)
{
    m_real = value;
    setKind(Real, HasReal);
}

void CAttrValue::setInt(int32_t value)
{
    m_int = value;
    setKind(Int, HasInt);
}

void CAttrValue::setString(const CString& value)
{
    m_string = value;
    setKind(String, HasString);
}

void CAttrValue::setPointer(void* value)
{
    m_pointer = value;
    setKind(Pointer, HasPointer);
}

bool CAttrValue::tryBool(bool& out) const
{
    if (!(m_flags & HasBool)) {
        switch (m_kind) {
        case Int: m_bool = m_int != 0; break;
        case String:
            if (m_string == CString("0") || m_string == CString("false"))
                m_bool = false;
            else if (m_string == CString("1") || m_string == CString("true"))
                m_bool = true;
            else
                return false;
            break;
        case Unset: m_bool = false; break;
        default: return false;
        }
        m_flags |= HasBool;
    }
    out = m_bool;
    return true;
}

bool CAttrValue::tryReal(double& out) const
{
    if (!(m_flags & HasReal)) {
        switch (m_kind) {
        case Int: m_real = m_int; break;
        case String:
            if (!m_string.toReal(m_real))
                return false;
            break;
        case Unset: m_real = 0.0; break;
        default: return false;
        }
        m_flags |= HasReal;
    }
    out = m_real;
    return true;
}

bool CAttrValue::tryInt(int32_t& out) const
{
    if (!(m_flags & HasInt)) {
        switch (m_kind) {
        case Bool: m_int = m_bool ? 1 : 0; break;
        case Real: {
            const double rounded = std::round(m_real); // half away from zero
            if (!(rounded >= INT32_MIN && rounded <= INT32_MAX))
                return false;
            m_int = static_cast<int32_t>(rounded);
            break;
        }
        case String:
            if (!m_string.toInt(m_int))
                return false;
            break;
        case Unset: m_int = 0; break;
        default: return false;
        }
        m_flags |= HasInt;
    }
    out = m_int;
    return true;
}

bool CAttrValue::tryString(CString& out) const
{
    if (!(m_flags & HasString)) {
        switch (m_kind) {
        case Bool: m_string = m_bool ? "true" : "false"; break;
        case Real: m_string = realToText(m_real); break;
        case Int: m_string = CString::number(m_int); break;
        case Unset: m_string = CString(); break;
        default: return false;
        }
        m_flags |= HasString;
    }
    out = m_string;
    return true;
}

bool CAttrValue::toBool() const
{
    bool value = false;
    return tryBool(value) && value;
}

double CAttrValue::toReal() const
{
    double value = 0.0;
    return tryReal(value) ? value : 0.0;
}

int32_t CAttrValue::toInt() const
{
    int32_t value = 0;
    return tryInt(value) ? value : 0;
}

CString CAttrValue::toString() const
{
    CString value;
    return tryString(value) ? value : CString();
}

CString CAttrValue::realToText(double value)
{
    const double scaled = std::round(value * 10000.0);
    char buffer[64];
    if (!std::isfinite(scaled) || std::fabs(scaled) >= 9.0e18) {
        std::snprintf(buffer, sizeof buffer, "%.4f", value);
        return CString(buffer);
    }
    long long units = static_cast<long long>(scaled);
    const bool negative = units < 0;
    if (negative)
        units = -units;
    std::snprintf(buffer, sizeof buffer, "%s%lld.%04lld", negative ? "-" : "", units / 10000, units % 10000);
    return CString(buffer);
}

} // namespace qel
