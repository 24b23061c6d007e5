#pragma once

#include "Core/CError.h"
#include "Core/CString.h"

#include <cstdint>

namespace qel {

class CObject;
class CAttrValue;

// Converts and applies one attribute of an object's class.
using CAttrSetter = CErrorPtr (*)(CObject* object, CAttrValue& value);

// A run-time typed attribute value. It keeps the value in the slot of its kind and caches
// every conversion a reader asks for, so each write is converted at most once per type.
// Conversions that fail leave the reader with the type's neutral value.
// Not synchronised: it belongs to its object's tree.
class CAttrValue
{
public:
    enum Kind : uint8_t { Bool = 0, Real = 1, Int = 2, String = 3, Pointer = 4, Unset = 5 };
    enum Flag : uint8_t {
        HasBool = 1, HasReal = 2, HasInt = 4, HasString = 8, HasPointer = 16,
        Queued = 32,      // the setter waits in the object's pending list
        SetterKnown = 64, // the setter was looked up and found
    };

    CAttrValue() = default;
    CAttrValue(const CAttrValue& other);
    CAttrValue& operator=(const CAttrValue& other);

    Kind kind() const { return Kind(m_kind); }
    uint8_t flags() const { return m_flags; }
    bool isSet() const { return m_kind != Unset; }

    void setBool(bool value);
    void setReal(double value);
    void setInt(int32_t value);
    void setString(const CString& value);
    void setPointer(void* value);
    // Takes the other's value and kind; the queue and setter state stay.
    void assignValue(const CAttrValue& other);

    // The conversions of the attribute language; false when the value does not convert.
    bool tryBool(bool& out) const;
    bool tryReal(double& out) const;
    bool tryInt(int32_t& out) const;
    bool tryString(CString& out) const;

    bool toBool() const;
    double toReal() const;
    int32_t toInt() const;
    CString toString() const;
    void* toPointer() const { return m_kind == Pointer ? m_pointer : nullptr; }

    // Reals print with four decimals: the value times 10000, rounded half away from
    // zero, with the point placed ("0.3500", "-2.0000").
    static CString realToText(double value);

    // For the object that owns the value: its setter and its place in the pending list.
    CAttrSetter setter() const { return m_setter; }
    void setSetter(CAttrSetter found) { m_setter = found; m_flags |= SetterKnown; }
    void setQueued(bool queued) { m_flags = queued ? (m_flags | Queued) : (m_flags & ~Queued); }
    CAttrValue* nextPending() const { return m_nextPending; }
    void setNextPending(CAttrValue* next) { m_nextPending = next; }

private:
    void setKind(Kind kind, uint8_t bit) { m_kind = kind; m_flags = (m_flags & (Queued | SetterKnown)) | bit; }

    CAttrValue* m_nextPending = nullptr;
    CAttrSetter m_setter = nullptr;
    void* m_pointer = nullptr;
    mutable double m_real = 0.0;
    mutable CString m_string;
    mutable int32_t m_int = 0;
    mutable bool m_bool = false;
    mutable uint8_t m_flags = 0;
    uint8_t m_kind = Unset;
};

} // namespace qel
