#include "Core/CObject.h"

#include "Core/CApplication.h"
#include "Core/CCreatorRegistry.h"
#include "Core/CLog.h"
#include "Core/CTemplateBody.h"
#include "Core/CTreeContext.h"

#include <algorithm>
#include <vector>

namespace qel {

CObject::CObject() : m_classInfo(&defaultClassInfo()) {}

CObject::~CObject()
{
    // deleteObject has done this already; a plain delete still must not leave the tree
    // or other objects pointing at us.
    CObject::releaseLinks();
    releaseChildren();
    if (m_parent)
        m_parent->CObject::removeChild(this);
    m_parent = nullptr;
    if (m_root == this && m_context)
        CApplication::releaseTreeContext(m_context);
}

void CObject::initClassInfo(CClassInfo& info)
{
    info.addEvent<CObject, &CObject::onReleaseChildBridged>(CString("release-child-bridged"));
}

const CClassInfo& CObject::defaultClassInfo()
{
    static const CClassInfo s_info = [] {
        CClassInfo info;
        CObject::initClassInfo(info);
        return info;
    }();
    return s_info;
}

void CObject::makeRoot(CTreeContext* context)
{
    m_root = this;
    m_parent = nullptr;
    m_context = context;
    m_objectId = context ? context->nextObjectId() : -1;
}

CString CObject::name() const
{
    const CString full = getFullName();
    return full.substring(full.findLast('.') + 1);
}

// ---- life cycle

CErrorPtr CObject::init()
{
    if (m_templateObject) {
        QEL_RETURN_IF_ERROR(readTemplateBody(false, true), getFullName());
        if (m_instanceAttrs) {
            for (const auto& [name, value] : *m_instanceAttrs)
                QEL_RETURN_IF_ERROR(setAttr(name, value, false), getFullName());
        }
    }
    m_state = Inited;
    return nullptr;
}

CErrorPtr CObject::applyAttrs()
{
    QEL_RETURN_IF_ERROR(flushPendingAttrs(), getFullName());
    m_state = AttrsApplied;
    if (m_templateObject)
        QEL_RETURN_IF_ERROR(readTemplateBody(true, false), getFullName());
    return nullptr;
}

CErrorPtr CObject::initChilds()
{
    m_state = ChildsInited;
    m_readOnly = CApplication::sharedRoot() == nullptr;
    return nullptr;
}

void CObject::onChildAdded(CObject*) {}

CErrorPtr CObject::onAttrChanged(CObject*, const CString& name, const CAttrValue& value)
{
    return setAttr(name, value, true);
}

CErrorPtr CObject::onReleaseChildBridged(CAttrMap& params)
{
    auto it = params.find(CString("sender"));
    if (it == params.end())
        return nullptr;
    if (CObject* object = findObject(it->second.toString()))
        deleteObject(object);
    return nullptr;
}

// ---- children

CErrorPtr CObject::addChild(CObject*& outChild, const CString& tag, const CString& name, bool useTemplates)
{
    outChild = nullptr;
    if (m_readOnly)
        return QEL_ERROR(getFullName(), "@qelstr_CObject_addChild_ReadOnly Error adding child to read-only object.");

    CObject* templateObject = useTemplates ? findTemplate(tag) : nullptr;
    const CString classTag = templateObject ? templateObject->templateBody()->classTag() : tag;

    CObjectCreator create = nullptr;
    const CClassInfo* info = nullptr;
    CObject* child;
    if (CCreatorRegistry::find(classTag, create, info)) {
        child = create();
        child->m_classInfo = info;
    } else {
        child = new CObject;
        if (classTag != CString("template") && classTag != CString("content"))
            CLog::printfObject(getFullName(), "Creating CObject '%s' (tag '%s')", name.toUtf8().c_str(),
                               classTag.toUtf8().c_str());
    }

    child->m_parent = this;
    child->m_context = m_context;
    child->m_root = m_root;
    child->m_objectId = m_context ? m_context->nextObjectId() : -1;
    child->m_tag = tag;
    child->m_shortcut = m_tag == CString("core:shortcut");
    child->m_templateObject = templateObject;

    // "item#3" asks for index 3; a taken index becomes the largest plus one.
    CString baseName = name;
    int32_t index = 0;
    const int hash = name.find('#');
    if (hash >= 0) {
        baseName = name.substring(0, hash);
        if (!name.substring(hash + 1).toInt(index))
            index = 0;
    }
    CMap<int32_t, CObject*>& siblings = m_childNames[baseName];
    if (siblings.count(index))
        index = siblings.rbegin()->first + 1;
    siblings[index] = child;

    CString childName = baseName;
    if (index != 0) {
        childName.append('#');
        childName.append(CString::number(index));
    }
    CString fullName = getFullName();
    if (!fullName.isEmpty())
        fullName.append('.');
    fullName.append(childName);
    child->m_attrs[CString("full-name")].setString(fullName);

    m_children.append(child);
    onChildAdded(child);
    outChild = child;
    return nullptr;
}

CErrorPtr CObject::createChild(CObject*& outChild, const CString& tag, const CString& name, bool requireTemplate,
                               const CAttrMap* instanceAttrs, const CAttrMap* attrs)
{
    outChild = nullptr;
    if (requireTemplate && !findTemplate(tag))
        return QEL_ERROR(getFullName(), "@qelstr_CObject_createChild_NoTemplate Run-time template '%1' does not exist.", tag);
    CObject* child = nullptr;
    QEL_RETURN_IF_ERROR(addChild(child, tag, name, true), getFullName());
    child->m_instanceAttrs = instanceAttrs;
    CErrorPtr error;
    if (attrs)
        error = child->setAttrs(*attrs, false);
    if (!error)
        error = child->init();
    if (!error)
        error = child->applyAttrs();
    if (!error)
        error = child->initChilds();
    child->m_instanceAttrs = nullptr; // the caller's map lives only for this call
    if (error) {
        const CString childName = child->getFullName();
        deleteObject(child);
        return QEL_TRAIL(error, childName);
    }
    child->m_state = Complete;
    outChild = child;
    return nullptr;
}

CObject* CObject::findTemplate(const CString& name) const
{
    for (const CObject* o = this; o; o = o->m_parent) {
        auto it = o->m_templates.find(name);
        if (it != o->m_templates.end())
            return it->second;
    }
    if (const CObject* shared = CApplication::sharedRoot()) {
        auto it = shared->m_templates.find(name);
        if (it != shared->m_templates.end())
            return it->second;
    }
    return nullptr;
}

void CObject::removeChild(CObject* child)
{
    const int at = m_children.indexOf(child);
    if (at < 0)
        return;
    m_children.take(at);
    for (auto names = m_childNames.begin(); names != m_childNames.end(); ++names) {
        auto& byIndex = names->second;
        auto it = std::find_if(byIndex.begin(), byIndex.end(), [child](const auto& entry) { return entry.second == child; });
        if (it != byIndex.end()) {
            byIndex.erase(it);
            if (byIndex.empty())
                m_childNames.erase(names);
            break;
        }
    }
    for (auto it = m_templates.begin(); it != m_templates.end(); ++it) {
        if (it->second == child) {
            m_templates.erase(it);
            break;
        }
    }
}

void CObject::detachFromParent()
{
    if (m_parent)
        m_parent->removeChild(this);
    m_parent = nullptr;
}

void CObject::releaseChildren()
{
    // A copy, so that each child's removal from our list doesn't disturb the walk.
    std::vector<CObject*> children(m_children.begin(), m_children.end());
    for (auto it = children.rbegin(); it != children.rend(); ++it)
        deleteObject(*it);
}

CString CObject::contentText() const
{
    const CObject* content = findChild(CString("content"));
    return content ? content->getAttrString(CString("value")) : CString();
}

void deleteObject(CObject* object)
{
    if (!object)
        return;
    object->releaseLinks();
    object->releaseChildren();
    object->detachFromParent();
    delete object;
}

} // namespace qel
