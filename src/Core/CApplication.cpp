#include "Core/CApplication.h"

#include "Core/CCriticalSection.h"
#include "Core/CLog.h"
#include "Core/CMap.h"
#include "Core/CResourceRegistry.h"
#include "Core/CTreeContext.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>

#include <vector>

namespace qel {
namespace {

struct AppState
{
    CCriticalSection lock{4000};
    bool exists = false;
    CObject* sharedRoot = nullptr;
    CMap<uint32_t, CTreeContext*> contexts;
    uint32_t lastContextId = 0;
    std::vector<CString> resourceNames;
};

AppState& app()
{
    static AppState s_app;
    return s_app;
}

} // namespace

CErrorPtr CApplication::startup(std::initializer_list<const CCreatorRow*> creatorTables,
                                const CResourceRow* resources, const CString& sharedDefinition)
{
    AppState& a = app();
    CLog::write("Initializing application...", true);
    for (const CCreatorRow* table : creatorTables) {
        if (CErrorPtr error = CCreatorRegistry::registerTable(table)) {
            finalize();
            return QEL_TRAIL(error, CString());
        }
    }
    for (const CResourceRow* row = resources; row && row->block; ++row) {
        const CString name(row->name);
        CResourceRegistry::addSizedBlock(name, row->block);
        CLockGuard guard(a.lock);
        a.resourceNames.push_back(name);
    }
    {
        CLockGuard guard(a.lock);
        a.exists = true;
    }
    // The shared tree stands as far as it could be read; lookups in it fail later with
    // their own messages.
    if (CErrorPtr error = initSharedObject(sharedDefinition))
        logError(error.get());
    return nullptr;
}

void CApplication::finalize()
{
    AppState& a = app();
    CLog::write("Finalizing application...", true);
    CObject* shared;
    std::vector<CString> resourceNames;
    {
        CLockGuard guard(a.lock);
        a.exists = false;
        shared = a.sharedRoot;
        resourceNames.swap(a.resourceNames);
    }
    // Templates of the shared tree are still looked up while it is deleted.
    deleteObject(shared);
    {
        CLockGuard guard(a.lock);
        a.sharedRoot = nullptr;
    }
    for (const CString& name : resourceNames)
        CResourceRegistry::remove(name);
    CCreatorRegistry::clear();
}

bool CApplication::exists()
{
    AppState& a = app();
    CLockGuard guard(a.lock);
    return a.exists;
}

CObject* CApplication::sharedRoot()
{
    AppState& a = app();
    CLockGuard guard(a.lock);
    return a.sharedRoot;
}

CErrorPtr CApplication::initSharedObject(const CString& definitionName)
{
    AppState& a = app();
    CObject* root;
    {
        CLockGuard guard(a.lock);
        if (a.sharedRoot)
            return QEL_ERROR(CString(), "@qelstr_CApplication_initSharedObject Shared object already exists.");
        root = new CObject;
        root->makeRoot(nullptr);
        a.sharedRoot = root;
    }
    if (!definitionName.isEmpty()) {
        QEL_RETURN_IF_ERROR(root->loadXMLData(definitionName, true), CString());
        return nullptr;
    }
    QEL_RETURN_IF_ERROR(root->init(), CString());
    QEL_RETURN_IF_ERROR(root->applyAttrs(), CString());
    QEL_RETURN_IF_ERROR(root->initChilds(), CString());
    return nullptr;
}

CErrorPtr CApplication::initRootObject(CObjectPtr& outRoot, const CString& definitionName)
{
    AppState& a = app();
    CTreeContext* context;
    {
        CLockGuard guard(a.lock);
        if (!a.sharedRoot)
            return QEL_ERROR(CString(), "@qelstr_CApplication_initRootObject No shared object created.");
        context = new CTreeContext(++a.lastContextId);
        a.contexts[context->id()] = context;
    }
    CObjectPtr root(new CObject);
    root->makeRoot(context);
    if (!definitionName.isEmpty()) {
        QEL_RETURN_IF_ERROR(root->loadXMLData(definitionName, true), CString());
    } else {
        QEL_RETURN_IF_ERROR(root->init(), CString());
        QEL_RETURN_IF_ERROR(root->applyAttrs(), CString());
        QEL_RETURN_IF_ERROR(root->initChilds(), CString());
    }
    outRoot = std::move(root);
    return nullptr;
}

void CApplication::releaseTreeContext(CTreeContext* context)
{
    AppState& a = app();
    {
        CLockGuard guard(a.lock);
        a.contexts.erase(context->id());
    }
    delete context;
}

int CApplication::liveTreeContexts()
{
    AppState& a = app();
    CLockGuard guard(a.lock);
    return static_cast<int>(a.contexts.size());
}

CString CApplication::moduleFileName()
{
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&CApplication::moduleFileName), &info) || !info.dli_fname)
        return CString();
    char resolved[PATH_MAX];
    return CString::fromUtf8(realpath(info.dli_fname, resolved) ? resolved : info.dli_fname);
}

CString CApplication::moduleFolder()
{
    const CString file = moduleFileName();
    return file.substring(0, file.findLast('/') + 1);
}

} // namespace qel
