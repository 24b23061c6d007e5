// CObject: filling objects from compiled definitions.

#include "Core/CObject.h"

#include "Core/CByteOrder.h"
#include "Core/CHighResCounter.h"
#include "Core/CLog.h"
#include "Core/CNodeCursor.h"
#include "Core/CResourceReader.h"
#include "Core/CStringPool.h"
#include "Core/CTemplateBody.h"

namespace qel {
namespace {

struct DepthGuard
{
    explicit DepthGuard(CNodeCursor& cursor) : m_cursor(cursor) {}
    ~DepthGuard() { m_cursor.leave(); }
    CNodeCursor& m_cursor;
};

// Reads an image that is not in memory: the pool, then everything behind it.
CErrorPtr readImageFromStream(CResourceReader& reader, const CString& name, CStringPool& pool, CByteArray& rest)
{
    int32_t size = 0;
    QEL_RETURN_IF_ERROR(reader.getSizeInt(size), CString());
    uint8_t head[8];
    QEL_RETURN_IF_ERROR(reader.read(head, sizeof head), CString());
    const uint32_t poolSize = loadU32LE(head + 4);
    if (poolSize > uint32_t(size) - 8)
        return QEL_ERROR(CString(), "@qelstr_CStringPool_decode_Truncated Compiled definition '%1' is damaged: it ends within its string pool.",
                         name);
    CByteArray poolBytes(head, sizeof head);
    poolBytes.resize(8 + size_t(poolSize));
    QEL_RETURN_IF_ERROR(reader.read(poolBytes.data() + 8, poolSize), CString());
    QEL_RETURN_IF_ERROR(pool.decode(poolBytes.data(), poolBytes.size(), name), CString());
    int32_t position = 0;
    QEL_RETURN_IF_ERROR(reader.getPositionInt32(position), CString());
    rest.resize(size_t(size - position));
    QEL_RETURN_IF_ERROR(reader.read(rest.data(), rest.size()), CString());
    return nullptr;
}

} // namespace

CErrorPtr CObject::loadXMLData(const CString& name, bool runLifeCycle)
{
    const int64_t started = CHighResCounter::now();
    CResourceReader reader;
    QEL_RETURN_IF_ERROR(reader.open(name), getFullName());

    auto pool = std::make_shared<CStringPool>();
    CByteArray rest;
    const uint8_t* nodes;
    size_t nodesSize;
    bool staticData;
    if (const uint8_t* image = reader.getDirectPointer()) {
        int64_t size = 0;
        QEL_RETURN_IF_ERROR(reader.getSize(size), getFullName());
        QEL_RETURN_IF_ERROR(pool->decode(image, size_t(size), name), getFullName());
        nodes = image + 8 + pool->poolSize();
        nodesSize = size_t(size) - 8 - pool->poolSize();
        staticData = true;
    } else {
        QEL_RETURN_IF_ERROR(readImageFromStream(reader, name, *pool, rest), getFullName());
        nodes = rest.data();
        nodesSize = rest.size();
        staticData = false;
    }

    CNodeCursor cursor(nodes, nodesSize, name);
    QEL_RETURN_IF_ERROR(readNode(cursor, pool, staticData, runLifeCycle, true, false, false), getFullName());
    if (cursor.remaining() != 0)
        return QEL_ERROR(getFullName(), "@qelstr_CObject_loadXMLData_TrailingData Compiled definition '%1' is damaged: %2 bytes follow its root node.",
                         name, CString::number(int64_t(cursor.remaining())));
    CLog::printfObject(getFullName(), "loadXMLData \"%s\" init time: %.4f s @ %.4f s", name.toUtf8().c_str(),
                       CHighResCounter::secondsSince(started), CHighResCounter::secondsSinceStart());
    return nullptr;
}

CErrorPtr CObject::readNode(CNodeCursor& cursor, const std::shared_ptr<CStringPool>& pool, bool staticData,
                            bool runLifeCycle, bool skipHeaderPair, bool skipAttributes, bool skipChildren)
{
    QEL_RETURN_IF_ERROR(cursor.enter(), getFullName());
    DepthGuard depth(cursor);
    if (skipHeaderPair)
        QEL_RETURN_IF_ERROR(cursor.skip(4), getFullName());
    uint8_t kind = 0;
    QEL_RETURN_IF_ERROR(cursor.readU8(kind), getFullName());

    // Only a child can be a template: a root or a body that is one would make every read
    // of it start another.
    if (kind > 1 || (kind == 1 && skipHeaderPair))
        return QEL_ERROR(getFullName(), "@qelstr_CObject_readNode_BadKind Compiled definition '%1' is damaged: a node of kind %2 at offset %3.",
                         cursor.imageName(), CString::number(kind), CString::number(int64_t(cursor.position() - 1)));
    if (kind == 1) {
        // A template: its body waits, in place or copied, for the instances.
        const CString* classTag = nullptr;
        uint32_t length = 0;
        QEL_RETURN_IF_ERROR(cursor.readString(*pool, classTag), getFullName());
        QEL_RETURN_IF_ERROR(cursor.readU32(length), getFullName());
        const uint8_t* body = cursor.here();
        QEL_RETURN_IF_ERROR(cursor.skip(length), getFullName());
        m_templateBody = std::make_unique<CTemplateBody>(*classTag, body, length, staticData, pool);
        QEL_RETURN_IF_ERROR(applyAttrs(), getFullName());
        QEL_RETURN_IF_ERROR(initChilds(), getFullName());
        m_state = Complete;
        return nullptr;
    }

    uint16_t attrCount = 0;
    QEL_RETURN_IF_ERROR(cursor.readU16(attrCount), getFullName());
    if (skipAttributes) {
        QEL_RETURN_IF_ERROR(cursor.skip(size_t(attrCount) * 4), getFullName());
    } else {
        for (uint16_t i = 0; i < attrCount; ++i) {
            const CString* attrName = nullptr;
            const CString* value = nullptr;
            QEL_RETURN_IF_ERROR(cursor.readString(*pool, attrName), getFullName());
            QEL_RETURN_IF_ERROR(cursor.readString(*pool, value), getFullName());
            // Absent and "false" read the same, so they cost nothing unless they overrule
            // a value that is already here (from a template parameter, say).
            if ((value->isEmpty() || *value == CString("false")) && !hasAttr(*attrName))
                continue;
            QEL_RETURN_IF_ERROR(setAttrText(*attrName, *value, false), getFullName());
        }
    }

    if (runLifeCycle) {
        QEL_RETURN_IF_ERROR(init(), getFullName());
        QEL_RETURN_IF_ERROR(applyAttrs(), getFullName());
    } else if (skipChildren) {
        return nullptr;
    }

    if (!skipChildren) {
        uint16_t childCount = 0;
        QEL_RETURN_IF_ERROR(cursor.readU16(childCount), getFullName());
        for (uint16_t i = 0; i < childCount; ++i) {
            const CString* tag = nullptr;
            const CString* childName = nullptr;
            QEL_RETURN_IF_ERROR(cursor.readString(*pool, tag), getFullName());
            QEL_RETURN_IF_ERROR(cursor.readString(*pool, childName), getFullName());
            CObject* child = nullptr;
            QEL_RETURN_IF_ERROR(addChild(child, *tag, *childName, false), getFullName());
            if (CErrorPtr error = child->readNode(cursor, pool, staticData, true, false, false, false)) {
                deleteObject(child);
                return QEL_TRAIL(error, getFullName());
            }
            if (child->m_templateBody)
                m_templates[child->name()] = child;
        }
    }

    if (runLifeCycle) {
        QEL_RETURN_IF_ERROR(initChilds(), getFullName());
        m_state = Complete;
    }
    return nullptr;
}

CErrorPtr CObject::readTemplateBody(bool skipAttributes, bool skipChildren)
{
    const CTemplateBody* body = m_templateObject->templateBody();
    CNodeCursor cursor(body->body(), body->length(), m_templateObject->getFullName());
    return readNode(cursor, body->pool(), body->isStatic(), false, true, skipAttributes, skipChildren);
}

} // namespace qel
