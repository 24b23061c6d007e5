#pragma once

#include "Core/CApplication.h"

#include <atomic>
#include <initializer_list>
#include <mutex>

namespace qel {

// Start-up and finalising of a loaded module. One static object of this class per module:
// its constructor runs the start-up while the module's static data is initialised, so it
// is done before the host's first request. The host's ModuleEntry and ModuleExit calls
// are counted; finalising runs at the last ModuleExit when no instance tree is left, else
// at static destruction, whichever comes first.
class CModuleLifetime
{
public:
    CModuleLifetime(std::initializer_list<const CCreatorRow*> creatorTables, const CResourceRow* resources,
                    const char* sharedDefinition);
    ~CModuleLifetime();
    CModuleLifetime(const CModuleLifetime&) = delete;
    CModuleLifetime& operator=(const CModuleLifetime&) = delete;

    // ModuleEntry: false when the start-up failed, which makes the load fail.
    bool enter();
    // ModuleExit.
    bool exit();
    bool isUp() const { return m_up; }

private:
    void finalizeOnce();

    std::mutex m_lock;
    int m_entries = 0;
    std::atomic<bool> m_up{false};
};

} // namespace qel
