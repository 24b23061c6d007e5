#include "Core/CModuleLifetime.h"

#include "Core/CBlockAllocator.h"
#include "Core/CWorkerPool.h"

namespace qel {

CModuleLifetime::CModuleLifetime(std::initializer_list<const CCreatorRow*> creatorTables,
                                 const CResourceRow* resources, const char* sharedDefinition)
{
    if (CErrorPtr error = CApplication::startup(creatorTables, resources, CString(sharedDefinition))) {
        showError(std::move(error));
        return;
    }
    m_up = true;
}

CModuleLifetime::~CModuleLifetime()
{
    finalizeOnce();
    // The module is being unloaded: what the framework took from the system goes back as
    // the last static objects let go of it.
    CBlockAllocator::releaseChunksWhenUnused();
}

bool CModuleLifetime::enter()
{
    std::lock_guard<std::mutex> guard(m_lock);
    ++m_entries;
    return m_up;
}

bool CModuleLifetime::exit()
{
    {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_entries == 0)
            return false;
        if (--m_entries > 0 || CApplication::liveTreeContexts() > 0)
            return true;
    }
    finalizeOnce();
    return true;
}

void CModuleLifetime::finalizeOnce()
{
    if (m_up.exchange(false)) {
        CApplication::finalize();
        // Sleeping workers must not outlive the code they run.
        CWorkerPool::shutdown();
    }
}

} // namespace qel
