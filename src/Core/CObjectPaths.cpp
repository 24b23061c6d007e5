// CObject: finding children and objects by path.
//
//   item        the child with the lowest index under base name "item"
//   item#3      index 3 exactly;  item#+2  two after the first;  item#-1  one before the last
//   a.b.c       from the tree's root;  .a  and  ^a  from this object (^ is the parent)
//   shared::a   from the shared tree's root
// A child of a core:shortcut object stands for the object its `target` names.

#include "Core/CObject.h"

#include "Core/CApplication.h"

#include <iterator>

namespace qel {
namespace {

constexpr int kMaxRedirections = 10;
const char kSharedPrefix[] = "shared::";
constexpr int kSharedPrefixLength = 8;

bool startsWithShared(const CString& path)
{
    if (path.length() < kSharedPrefixLength)
        return false;
    for (int i = 0; i < kSharedPrefixLength; ++i)
        if (path.at(i) != static_cast<unsigned char>(kSharedPrefix[i]))
            return false;
    return true;
}

bool parseCount(const CString& text, int32_t& out)
{
    if (text.isEmpty())
        return false;
    for (int i = 0; i < text.length(); ++i)
        if (text.at(i) < '0' || text.at(i) > '9')
            return false;
    return text.toInt(out);
}

// Where a walk along a path stopped.
struct Walk
{
    const CObject* reached = nullptr; // the last object reached
    CString rest;                     // what could not be resolved from there; empty on success
    bool ok = false;
};

} // namespace

CObject* CObject::findChild(const CString& name) const
{
    const int hash = name.find('#');
    const CString base = hash < 0 ? name : name.substring(0, hash);
    auto names = m_childNames.find(base);
    if (names == m_childNames.end() || names->second.empty())
        return nullptr;
    const auto& byIndex = names->second;
    if (hash < 0)
        return byIndex.begin()->second;

    const CString suffix = name.substring(hash + 1);
    if (!suffix.isEmpty() && (suffix.at(0) == '+' || suffix.at(0) == '-')) {
        int32_t steps = 0;
        if (!parseCount(suffix.substring(1), steps) || steps >= int32_t(byIndex.size()))
            return nullptr;
        if (suffix.at(0) == '+')
            return std::next(byIndex.begin(), steps)->second;
        return std::next(byIndex.rbegin(), steps)->second;
    }
    int32_t index = 0;
    if (!suffix.toInt(index))
        return nullptr;
    auto it = byIndex.find(index);
    return it == byIndex.end() ? nullptr : it->second;
}

static Walk walkPath(const CObject* self, const CString& path)
{
    Walk walk;
    if (path.isEmpty())
        return walk;
    const CObject* current;
    CString text = path;
    int pos = 0;
    if (path.at(0) == '.' || path.at(0) == '^') {
        current = self;
    } else if (startsWithShared(path)) {
        current = CApplication::sharedRoot();
        pos = kSharedPrefixLength;
        if (!current) {
            walk.rest = path;
            return walk;
        }
    } else {
        current = self->root();
    }

    int redirections = 0;
    int segmentStart = pos;
    for (;;) {
        const bool atEnd = pos >= text.length();
        const char16_t c = atEnd ? 0 : text.at(pos);
        if (atEnd || c == '.' || c == '^') {
            if (pos > segmentStart) {
                const CObject* next = current->findChild(text.substring(segmentStart, pos - segmentStart));
                if (!next) {
                    walk.reached = current;
                    walk.rest = text.substring(segmentStart);
                    return walk;
                }
                current = next;
                if (current->isShortcut()) {
                    if (++redirections > kMaxRedirections) {
                        walk.reached = current;
                        walk.rest = text.substring(pos);
                        return walk;
                    }
                    CString redirected = current->getAttrString(CString("target"));
                    redirected.append(text.substring(pos));
                    text = redirected;
                    pos = 0;
                    segmentStart = 0;
                    continue;
                }
            }
            if (atEnd)
                break;
            if (c == '^') {
                current = current->parent();
                if (!current) {
                    walk.rest = text.substring(pos);
                    return walk;
                }
            }
            segmentStart = pos + 1;
        }
        ++pos;
    }
    walk.reached = current;
    walk.ok = true;
    return walk;
}

CObject* CObject::findObject(const CString& path) const
{
    const Walk walk = walkPath(this, path);
    return walk.ok ? const_cast<CObject*>(walk.reached) : nullptr;
}

CString CObject::makeAbsolutePath(const CString& path) const
{
    const Walk walk = walkPath(this, path);
    if (!walk.reached)
        return path;
    CString absolute = walk.reached->getFullName();
    if (!walk.rest.isEmpty()) {
        if (!absolute.isEmpty() && walk.rest.at(0) != '.' && walk.rest.at(0) != '^')
            absolute.append('.');
        absolute.append(walk.rest);
    }
    return absolute;
}

} // namespace qel
