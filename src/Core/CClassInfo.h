#pragma once

#include "Core/CAttrMap.h"
#include "Core/CAttrValue.h"
#include "Core/CMap.h"

namespace qel {

class CObject;

using CEventHandler = CErrorPtr (*)(CObject* object);
using CEventHandlerWithParams = CErrorPtr (*)(CObject* object, CAttrMap& params);

// One event a class can run: with or without a map of parameters.
struct CEventRecord
{
    CEventHandler handler = nullptr;
    CEventHandlerWithParams handlerWithParams = nullptr;
    bool takesParams = false;

    CErrorPtr run(CObject* object, CAttrMap& params) const
    {
        return takesParams ? handlerWithParams(object, params) : handler(object);
    }
};

// What a class adds to the attribute language: a setter per attribute name and a handler
// per event name. A class fills it in its initialiser after calling its base's, so the
// record is complete without chaining at run time.
class CClassInfo
{
public:
    void addAttr(const CString& name, CAttrSetter setter) { m_attrs[name] = setter; }
    void addEvent(const CString& name, CEventHandler handler);
    void addEvent(const CString& name, CEventHandlerWithParams handler);

    // Forwards an attribute to a method `CErrorPtr T::attrName(CAttrValue&)`.
    template <class T, CErrorPtr (T::*Method)(CAttrValue&)>
    void addAttr(const CString& name)
    {
        addAttr(name, [](CObject* object, CAttrValue& value) { return (static_cast<T*>(object)->*Method)(value); });
    }
    template <class T, CErrorPtr (T::*Method)()>
    void addEvent(const CString& name)
    {
        addEvent(name, static_cast<CEventHandler>([](CObject* object) { return (static_cast<T*>(object)->*Method)(); }));
    }
    template <class T, CErrorPtr (T::*Method)(CAttrMap&)>
    void addEvent(const CString& name)
    {
        addEvent(name, static_cast<CEventHandlerWithParams>(
                           [](CObject* object, CAttrMap& params) { return (static_cast<T*>(object)->*Method)(params); }));
    }

    CAttrSetter findSetter(const CString& name) const;
    const CEventRecord* findEvent(const CString& name) const;

private:
    CMap<CString, CAttrSetter> m_attrs;
    CMap<CString, CEventRecord> m_events;
};

} // namespace qel
