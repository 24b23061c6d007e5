#include "Core/CCreatorRegistry.h"

#include "Core/CCriticalSection.h"
#include "Core/CMap.h"

#include <memory>
#include <vector>

namespace qel {
namespace {

struct Entry
{
    CObjectCreator create;
    const CClassInfo* info;
};

struct Registry
{
    CCriticalSection lock{4000};
    CMap<CString, Entry> entries;
    std::vector<std::unique_ptr<CClassInfo>> infos; // owns the records
};

Registry& registry()
{
    static Registry s_registry;
    return s_registry;
}

} // namespace

CErrorPtr CCreatorRegistry::registerTable(const CCreatorRow* rows)
{
    Registry& r = registry();
    CLockGuard guard(r.lock);
    for (const CCreatorRow* row = rows; row && row->tag; ++row) {
        const CString tag(row->tag);
        if (r.entries.count(tag))
            return QEL_ERROR(CString(), "@qelstr_CObject_registerCreator Creator for '%1' has already been registered.", tag);
        auto info = std::make_unique<CClassInfo>();
        row->initClassInfo(*info);
        r.entries.emplace(tag, Entry{row->create, info.get()});
        r.infos.push_back(std::move(info));
    }
    return nullptr;
}

bool CCreatorRegistry::find(const CString& tag, CObjectCreator& outCreate, const CClassInfo*& outInfo)
{
    Registry& r = registry();
    CLockGuard guard(r.lock);
    auto it = r.entries.find(tag);
    if (it == r.entries.end())
        return false;
    outCreate = it->second.create;
    outInfo = it->second.info;
    return true;
}

void CCreatorRegistry::clear()
{
    Registry& r = registry();
    CLockGuard guard(r.lock);
    r.entries.clear();
    r.infos.clear();
}

} // namespace qel
