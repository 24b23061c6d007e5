#pragma once

#include "Core/CClassInfo.h"
#include "Core/CError.h"
#include "Core/CString.h"

namespace qel {

class CObject;

using CObjectCreator = CObject* (*)();
using CClassInfoInit = void (*)(CClassInfo& info);

// One row of a creator table: the tag a definition writes, how to make the object, and
// how to fill its class information. A table ends with a row whose tag is null.
struct CCreatorRow
{
    const char* tag;
    CObjectCreator create;
    CClassInfoInit initClassInfo;
};

template <class T>
CObject* createObjectOf()
{
    return new T;
}

template <class T>
constexpr CCreatorRow creatorRow(const char* tag)
{
    return CCreatorRow{tag, &createObjectOf<T>, &T::initClassInfo};
}

// The classes behind the tags, for the whole process. Filled at start-up, read by every
// tree afterwards; the lock only guards start-up against a concurrent reader in tests.
class CCreatorRegistry
{
public:
    // Registers each row in table order. A tag that is already present fails and stops.
    static CErrorPtr registerTable(const CCreatorRow* rows);
    static bool find(const CString& tag, CObjectCreator& outCreate, const CClassInfo*& outInfo);
    static void clear();
};

} // namespace qel
