#include "Core/CResourceRegistry.h"

#include "Core/CByteOrder.h"
#include "Core/CCriticalSection.h"
#include "Core/CMap.h"

namespace qel {
namespace {

struct Entry
{
    const uint8_t* data;
    size_t size;
};

struct Registry
{
    CCriticalSection lock{4000};
    CMap<CString, Entry> entries;
};

Registry& registry()
{
    static Registry s_registry;
    return s_registry;
}

} // namespace

void CResourceRegistry::addSizedBlock(const CString& name, const uint8_t* block)
{
    add(name, block + 4, loadU32LE(block));
}

void CResourceRegistry::add(const CString& name, const uint8_t* data, size_t size)
{
    Registry& r = registry();
    CLockGuard guard(r.lock);
    r.entries.insert_or_assign(name, Entry{data, size});
}

void CResourceRegistry::remove(const CString& name)
{
    Registry& r = registry();
    CLockGuard guard(r.lock);
    r.entries.erase(name);
}

bool CResourceRegistry::find(const CString& name, const uint8_t*& outData, size_t& outSize)
{
    Registry& r = registry();
    CLockGuard guard(r.lock);
    auto it = r.entries.find(name);
    if (it == r.entries.end())
        return false;
    outData = it->second.data;
    outSize = it->second.size;
    return true;
}

} // namespace qel
