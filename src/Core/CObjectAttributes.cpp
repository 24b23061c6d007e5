// CObject: attribute storage, the macro language of attribute text, and bindings.

#include "Core/CObject.h"

#include "Core/CPtrArray.h"

#include <utility>
#include <vector>

namespace qel {
namespace {

// Expansion restarts after every macro; text that keeps producing macros (a value that
// names itself) must still end.
constexpr int kMaxExpansions = 1000;

} // namespace

const CAttrValue* CObject::findAttr(const CString& name) const
{
    auto it = m_attrs.find(name);
    return it == m_attrs.end() ? nullptr : &it->second;
}

CString CObject::getAttrString(const CString& name) const
{
    const CAttrValue* value = findAttr(name);
    return value ? value->toString() : CString();
}

int32_t CObject::getAttrInt(const CString& name) const
{
    const CAttrValue* value = findAttr(name);
    return value ? value->toInt() : 0;
}

double CObject::getAttrReal(const CString& name) const
{
    const CAttrValue* value = findAttr(name);
    return value ? value->toReal() : 0.0;
}

bool CObject::getAttrBool(const CString& name) const
{
    const CAttrValue* value = findAttr(name);
    return value ? value->toBool() : false;
}

void* CObject::getAttrPointer(const CString& name) const
{
    const CAttrValue* value = findAttr(name);
    return value ? value->toPointer() : nullptr;
}

CAttrValue& CObject::attrSlot(const CString& name)
{
    return m_attrs[name];
}

template <class Store>
CErrorPtr CObject::storeAttr(const CString& name, bool callNow, Store&& store)
{
    if (m_readOnly || name.isEmpty())
        return nullptr;
    CAttrValue& slot = attrSlot(name);
    store(slot);
    return afterStore(name, slot, callNow);
}

CErrorPtr CObject::setAttr(const CString& name, const CAttrValue& value, bool callNow)
{
    return storeAttr(name, callNow, [&value](CAttrValue& slot) {
        if (&slot != &value)
            slot.assignValue(value);
    });
}

CErrorPtr CObject::setAttrInt(const CString& name, int32_t value, bool callNow)
{
    return storeAttr(name, callNow, [value](CAttrValue& slot) { slot.setInt(value); });
}

CErrorPtr CObject::setAttrReal(const CString& name, double value, bool callNow)
{
    return storeAttr(name, callNow, [value](CAttrValue& slot) { slot.setReal(value); });
}

CErrorPtr CObject::setAttrBool(const CString& name, bool value, bool callNow)
{
    return storeAttr(name, callNow, [value](CAttrValue& slot) { slot.setBool(value); });
}

CErrorPtr CObject::setAttrPointer(const CString& name, void* value, bool callNow)
{
    return storeAttr(name, callNow, [value](CAttrValue& slot) { slot.setPointer(value); });
}

CErrorPtr CObject::setAttrString(const CString& name, const CString& value, bool callNow)
{
    return storeAttr(name, callNow, [&value](CAttrValue& slot) { slot.setString(value); });
}

CErrorPtr CObject::setAttrText(const CString& name, const CString& text, bool callNow)
{
    if (m_readOnly || name.isEmpty())
        return nullptr;
    const CString expanded = expandText(name, text);
    return setAttrString(name, expanded, callNow);
}

CErrorPtr CObject::setAttrs(const CAttrMap& map, bool callNow)
{
    for (const auto& [name, value] : map)
        QEL_RETURN_IF_ERROR(setAttr(name, value, false), getFullName());
    if (callNow)
        QEL_RETURN_IF_ERROR(flushPendingAttrs(), getFullName());
    return nullptr;
}

CErrorPtr CObject::afterStore(const CString& name, CAttrValue& value, bool callNow)
{
    if (!(value.flags() & CAttrValue::SetterKnown)) {
        if (CAttrSetter setter = m_classInfo->findSetter(name))
            value.setSetter(setter);
    }
    if (value.flags() & CAttrValue::SetterKnown) {
        if (callNow) {
            QEL_RETURN_IF_ERROR(value.setter()(this, value), getFullName());
        } else if (!(value.flags() & CAttrValue::Queued)) {
            value.setQueued(true);
            value.setNextPending(m_pending);
            m_pending = &value;
        }
    }
    return notifyListeners(name, value);
}

CErrorPtr CObject::flushPendingAttrs()
{
    CAttrValue* value = m_pending;
    m_pending = nullptr;
    while (value) {
        CAttrValue* next = value->nextPending();
        value->setNextPending(nullptr);
        value->setQueued(false);
        if (value->flags() & CAttrValue::SetterKnown) {
            if (CErrorPtr error = value->setter()(this, *value)) {
                // The rest stay unapplied; unmarked, so a later write queues them again.
                for (CAttrValue* rest = next; rest; rest = next) {
                    next = rest->nextPending();
                    rest->setNextPending(nullptr);
                    rest->setQueued(false);
                }
                return QEL_TRAIL(error, getFullName());
            }
        }
        value = next;
    }
    return nullptr;
}

CErrorPtr CObject::notifyListeners(const CString& name, const CAttrValue& value)
{
    if (m_attrListeners.empty())
        return nullptr;
    // Collected first: a listener's reaction may change the bindings.
    std::vector<std::pair<CObject*, CString>> targets;
    for (const auto& [listener, mapping] : m_attrListeners) {
        if (mapping.empty()) {
            targets.emplace_back(listener, name);
        } else {
            auto it = mapping.find(name);
            if (it != mapping.end())
                targets.emplace_back(listener, it->second);
        }
    }
    for (const auto& [listener, targetName] : targets)
        QEL_RETURN_IF_ERROR(listener->onAttrChanged(this, targetName, value), getFullName());
    return nullptr;
}

CString CObject::expandText(const CString& attrName, const CString& text)
{
    CString result = text;
    for (int round = 0; round < kMaxExpansions; ++round) {
        const int open = result.findLast('{');
        if (open < 0 || open == result.length() - 1)
            break;
        const int close = result.find('}', open + 1);
        if (close < 0)
            break;
        const CString inside = result.substring(open + 1, close - open - 1);
        const int question = inside.find('?');
        const CString left = question < 0 ? inside : inside.substring(0, question);
        const CString fallback = question < 0 ? CString() : inside.substring(question + 1);

        CString value;
        if (left.isEmpty())
            value = lookUp(attrName, attrName, fallback, false);
        else if (left.at(0) == '@')
            value = lookUp(left.substring(1), attrName, fallback, true);
        else if (left.at(0) == '*')
            value = bind(left.substring(1), attrName);
        else
            value = lookUp(left, attrName, fallback, false);

        CString expanded = result.substring(0, open);
        expanded.append(value);
        expanded.append(result.substring(close + 1));
        result = expanded;
    }
    return result;
}

CString CObject::lookUp(const CString& spec, const CString& attrName, const CString& fallback, bool ownOnly)
{
    const CObject* start = this;
    CString wanted = spec;
    if (!spec.isEmpty() && spec.at(0) == '/') {
        const CString rest = spec.substring(1);
        const int blank = rest.find(' ');
        const CString path = blank < 0 ? rest : rest.substring(0, blank);
        wanted = blank < 0 ? attrName : rest.substring(blank + 1);
        start = findObject(path);
        if (!start)
            return fallback;
    }
    for (const CObject* o = start; o; o = ownOnly ? nullptr : o->m_parent) {
        if (const CAttrValue* value = o->findAttr(wanted))
            return value->toString();
    }
    return fallback;
}

CObject* CObject::findNamedInAncestors(const CString& name) const
{
    for (const CObject* o = this; o; o = o->m_parent) {
        if (CObject* found = o->findChild(name))
            return found;
    }
    return nullptr;
}

CString CObject::bind(const CString& spec, const CString& attrName)
{
    CPtrArray<CString, true> words;
    spec.split(' ', words, true, true);
    if (words.count() < 2)
        return CString();
    const CString& sourceName = *words[0];
    const CString& sourceAttr = *words[1];
    CObject* source = sourceName.at(0) == '/' ? findObject(sourceName.substring(1)) : findNamedInAncestors(sourceName);
    if (!source || source->m_readOnly || source == this)
        return CString();
    source->m_attrListeners[this][sourceAttr] = attrName;
    m_attrSources[source] = true;
    const CAttrValue* value = source->findAttr(sourceAttr);
    if (!value || sourceAttr == CString("scheme"))
        return CString();
    return value->toString();
}

} // namespace qel
