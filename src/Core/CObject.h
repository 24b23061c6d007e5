#pragma once

#include "Core/CAttrMap.h"
#include "Core/CCheckedObject.h"
#include "Core/CClassInfo.h"
#include "Core/CError.h"
#include "Core/CMap.h"
#include "Core/CPtrArray.h"
#include "Core/CString.h"

#include <cstdint>
#include <memory>

namespace qel {

class CObjectEventBridge;
class CStringPool;
class CTemplateBody;
class CTreeContext;
class CNodeCursor;

// Base of everything a definition can name: a tagged, named node with ordered children,
// typed attributes, events it can run and subscriptions to events of others.
//
// Life cycle: init (attributes are in the map, setters not yet run), applyAttrs (queued
// setters run), the children are made, initChilds (cross-object work). A class overrides
// these calling its base first; failures return an error naming the object.
//
// A tree belongs to one thread at a time, apart from what carries its own lock: object
// ids, subscriptions and bridges. Objects never call each other across threads.
class CObject : public CCheckedObject
{
public:
    enum State : int32_t { Created = 0, Inited = 1, AttrsApplied = 2, ChildsInited = 3, Complete = 4 };

    CObject();
    ~CObject() override;
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

    static void initClassInfo(CClassInfo& info);
    // The class information of objects whose tag has no creator.
    static const CClassInfo& defaultClassInfo();

    // ---- life cycle
    virtual CErrorPtr init();
    virtual CErrorPtr applyAttrs();
    virtual CErrorPtr initChilds();
    virtual void onChildAdded(CObject* child);
    virtual void removeChild(CObject* child);
    virtual void releaseLinks();
    virtual void detachFromParent();
    // Default: the listener takes the value as its own attribute `name`.
    virtual CErrorPtr onAttrChanged(CObject* source, const CString& name, const CAttrValue& value);
    virtual CErrorPtr onReleaseChildBridged(CAttrMap& params);

    // Makes `this` the root of a tree; `context` is null in the shared tree.
    void makeRoot(CTreeContext* context);
    void setClassInfo(const CClassInfo* info) { m_classInfo = info; }

    // ---- identity
    const CString& tag() const { return m_tag; }
    CString getFullName() const { return getAttrString(CString("full-name")); }
    // The last segment of the full name.
    CString name() const;
    CObject* parent() const { return m_parent; }
    CObject* root() const { return m_root; }
    CTreeContext* treeContext() const { return m_context; }
    int32_t objectId() const { return m_objectId; }
    State state() const { return m_state; }
    bool isReadOnly() const { return m_readOnly; }
    // A child of a core:shortcut: paths through it continue at its `target`.
    bool isShortcut() const { return m_shortcut; }
    const CClassInfo* classInfo() const { return m_classInfo; }

    // ---- children and templates
    int childCount() const { return m_children.count(); }
    CObject* child(int index) const { return m_children[index]; }
    // Makes and attaches a child; no life-cycle step runs. With useTemplates a run-time
    // template of that tag decides the class.
    CErrorPtr addChild(CObject*& outChild, const CString& tag, const CString& name, bool useTemplates);
    // addChild, then the attributes and the whole life cycle. `instanceAttrs` (not owned,
    // must outlive the call) override the template body's attributes.
    CErrorPtr createChild(CObject*& outChild, const CString& tag, const CString& name, bool requireTemplate,
                          const CAttrMap* instanceAttrs = nullptr, const CAttrMap* attrs = nullptr);
    template <class T>
    CErrorPtr createChild(T*& outChild, const CString& tag, const CString& name, bool requireTemplate,
                          const CAttrMap* instanceAttrs = nullptr, const CAttrMap* attrs = nullptr);
    // A run-time template by name, here, in the ancestors, then in the shared root.
    CObject* findTemplate(const CString& name) const;
    const CTemplateBody* templateBody() const { return m_templateBody.get(); }
    CObject* templateObject() const { return m_templateObject; }

    // ---- paths
    CObject* findChild(const CString& name) const;
    CObject* findObject(const CString& path) const;
    // The path resolved as far as it goes: the reached object's full name and the rest.
    CString makeAbsolutePath(const CString& path) const;
    template <class T>
    CErrorPtr findObjectChecked(T*& out, const CString& path) const;
    template <class T>
    CErrorPtr findObjectByAttr(T*& out, const CString& attrName) const;

    // ---- attributes
    const CAttrMap& attrs() const { return m_attrs; }
    const CAttrValue* findAttr(const CString& name) const;
    bool hasAttr(const CString& name) const { return findAttr(name) != nullptr; }
    CString getAttrString(const CString& name) const;
    int32_t getAttrInt(const CString& name) const;
    double getAttrReal(const CString& name) const;
    bool getAttrBool(const CString& name) const;
    void* getAttrPointer(const CString& name) const;

    CErrorPtr setAttr(const CString& name, const CAttrValue& value, bool callNow);
    CErrorPtr setAttrInt(const CString& name, int32_t value, bool callNow);
    CErrorPtr setAttrReal(const CString& name, double value, bool callNow);
    CErrorPtr setAttrBool(const CString& name, bool value, bool callNow);
    CErrorPtr setAttrPointer(const CString& name, void* value, bool callNow);
    CErrorPtr setAttrString(const CString& name, const CString& value, bool callNow);
    // Expands the macros of the attribute language, then stores the text.
    CErrorPtr setAttrText(const CString& name, const CString& text, bool callNow);
    CErrorPtr setAttrs(const CAttrMap& map, bool callNow);
    // Runs the queued setters, in the reverse of the order their attributes were queued.
    CErrorPtr flushPendingAttrs();
    CString expandText(const CString& attrName, const CString& text);

    // ---- events
    CErrorPtr runEvent(const CString& name);
    CErrorPtr runEvent(const CString& name, CAttrMap& params);
    CErrorPtr fireEvent(const CString& name, bool forceBridged = false);
    CErrorPtr fireEvent(const CString& name, CAttrMap& params, bool forceBridged = false);
    void listenObject(const CString& senderFullName, const CString& eventName, const CString& handlerName);
    void unlistenObject(const CString& senderFullName, const CString& eventName);
    CErrorPtr bridgeEvent(const CString& senderName, const CString& procName, CAttrMap& params);
    // For posting from another thread, which must not read this tree's attributes: the
    // parameters bridgeEvent would send, worked out beforehand on the tree's own thread.
    CAttrMap prepareBridgeEvent(const CString& senderName, const CString& procName) const;
    // Any thread: posts prepared parameters through the nearest bridge; none, nothing.
    CErrorPtr postBridgeEvent(const CAttrMap& prepared) const;

    // A bridge owner is where events from other threads arrive for its subtree.
    void setEventBridge(CObjectEventBridge* bridge, uint32_t ownerThreadId);
    CObjectEventBridge* eventBridge() const { return m_bridge; }
    uint32_t ownerThreadId() const { return m_ownerThreadId; }

    // ---- compiled definitions
    // Fills this object from the compiled definition `name` (a resource, else a file).
    CErrorPtr loadXMLData(const CString& name, bool runLifeCycle);
    CErrorPtr readNode(CNodeCursor& cursor, const std::shared_ptr<CStringPool>& pool, bool staticData,
                       bool runLifeCycle, bool skipHeaderPair, bool skipAttributes, bool skipChildren);

protected:
    // Deletes the children, last made first.
    void releaseChildren();
    // Text of a child `content` element: what a definition wrote between the tags.
    CString contentText() const;

private:
    friend void deleteObject(CObject* object);


    CAttrValue& attrSlot(const CString& name);
    // The common path of every attribute write: `store` puts the value into its slot.
    template <class Store>
    CErrorPtr storeAttr(const CString& name, bool callNow, Store&& store);
    CErrorPtr afterStore(const CString& name, CAttrValue& value, bool callNow);
    CErrorPtr notifyListeners(const CString& name, const CAttrValue& value);
    CString lookUp(const CString& spec, const CString& attrName, const CString& fallback, bool ownOnly);
    CString bind(const CString& spec, const CString& attrName);
    CObject* findNamedInAncestors(const CString& name) const;
    CObject* findBridgeOwner() const;
    void dropDeliveriesOf(const CString& senderFullName, const CString& eventName);
    CErrorPtr readTemplateBody(bool skipAttributes, bool skipChildren);

    const CClassInfo* m_classInfo = nullptr;
    CAttrMap m_attrs;
    CAttrValue* m_pending = nullptr;
    CPtrArray<CObject> m_children;
    CObjectEventBridge* m_bridge = nullptr;
    State m_state = Created;
    bool m_readOnly = false;
    bool m_shortcut = false;
    std::unique_ptr<CTemplateBody> m_templateBody;
    const CAttrMap* m_instanceAttrs = nullptr;
    CObject* m_templateObject = nullptr;
    CMap<CString, CMap<int32_t, CObject*>> m_childNames;
    CMap<CString, CMap<CString, CString>> m_subscriptions; // sender -> event -> handler
    CTreeContext* m_context = nullptr;
    CObject* m_parent = nullptr;
    CObject* m_root = this;
    int32_t m_objectId = -1;
    CString m_tag;
    CMap<CString, CObject*> m_templates;
    uint32_t m_ownerThreadId = 0;
    bool m_bridgeInherited = true;
    CMap<CObject*, CMap<CString, CString>> m_attrListeners; // listener -> source attr -> its attr
    CMap<CObject*, bool> m_attrSources;
};

// Deletes an object the framework's way: links released, children deleted last first,
// detached from its parent, then destroyed.
void deleteObject(CObject* object);

struct CObjectDeleter
{
    void operator()(CObject* object) const { deleteObject(object); }
};
using CObjectPtr = std::unique_ptr<CObject, CObjectDeleter>;

template <class T>
CErrorPtr CObject::createChild(T*& outChild, const CString& tag, const CString& name, bool requireTemplate,
                               const CAttrMap* instanceAttrs, const CAttrMap* attrs)
{
    outChild = nullptr;
    CObject* made = nullptr;
    QEL_RETURN_IF_ERROR(createChild(made, tag, name, requireTemplate, instanceAttrs, attrs), getFullName());
    T* typed = dynamic_cast<T*>(made);
    if (!typed) {
        deleteObject(made);
        return QEL_ERROR(getFullName(), "@qelstr_CObject_createChild_InvalidObjectClass Object of invalid class created (child tag '%1', child name '%2').",
                         tag, name);
    }
    outChild = typed;
    return nullptr;
}

template <class T>
CErrorPtr CObject::findObjectChecked(T*& out, const CString& path) const
{
    out = nullptr;
    CObject* found = findObject(path);
    if (!found)
        return QEL_ERROR(getFullName(), "@qelstr_CObject_findObjectChecked_FindError Unable to find object '%1' ('%2')",
                         path, makeAbsolutePath(path));
    out = dynamic_cast<T*>(found);
    if (!out)
        return QEL_ERROR(getFullName(), "@qelstr_CObject_findObjectChecked_CastError Incompatible type of object '%1' ('%2')",
                         path, makeAbsolutePath(path));
    return nullptr;
}

template <class T>
CErrorPtr CObject::findObjectByAttr(T*& out, const CString& attrName) const
{
    out = nullptr;
    const CString path = getAttrString(attrName);
    if (path.isEmpty())
        return QEL_ERROR(getFullName(), "@qelstr_CObject_findObjectByAttr_AttrEmpty Object name attribute '%1' cannot be empty.",
                         attrName);
    CObject* found = findObject(path);
    if (!found)
        return QEL_ERROR(getFullName(), "@qelstr_CObject_findObjectByAttr_FindError Name attribute '%1' refers to a non-existent object '%2' ('%3')",
                         attrName, path, makeAbsolutePath(path));
    out = dynamic_cast<T*>(found);
    if (!out)
        return QEL_ERROR(getFullName(), "@qelstr_CObject_findObjectByAttr_CastError Name attribute '%1' refers to object '%2' ('%3') of incompatible type.",
                         attrName, path, makeAbsolutePath(path));
    return nullptr;
}

} // namespace qel
