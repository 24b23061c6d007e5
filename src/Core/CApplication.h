#pragma once

#include "Core/CCreatorRegistry.h"
#include "Core/CError.h"
#include "Core/CObject.h"

#include <cstdint>
#include <initializer_list>

namespace qel {

class CTreeContext;

// One row of the module's resource table: a block that opens with its u32 byte size,
// and the name readers ask for it by. The table ends with a null row.
struct CResourceRow
{
    const uint8_t* block;
    const char* name;
};

// The process lifetime of the framework: the creator and resource registries, the shared
// tree reached by "shared::", and the tree contexts of the instance trees. Start-up and
// finalising run on the module's load and unload; instances come and go in between, on
// whichever threads the host uses.
class CApplication
{
public:
    // Registers every creator table in order (a duplicate tag fails), the resources, and
    // loads the shared tree from `sharedDefinition` (its failure is logged, not returned).
    static CErrorPtr startup(std::initializer_list<const CCreatorRow*> creatorTables, const CResourceRow* resources,
                             const CString& sharedDefinition);
    // Logs "Finalizing application...", deletes the shared tree and empties the registries.
    static void finalize();
    static bool exists();

    static CObject* sharedRoot();
    static CErrorPtr initSharedObject(const CString& definitionName);
    // A new instance root with its own tree context, filled from `definitionName` (or,
    // with an empty name, only taken through its life cycle).
    static CErrorPtr initRootObject(CObjectPtr& outRoot, const CString& definitionName);
    static int liveTreeContexts();

    // Path of the module that holds this code, with '/' separators, and its folder with
    // the trailing '/'.
    static CString moduleFileName();
    static CString moduleFolder();

private:
    friend class CObject;
    static void releaseTreeContext(CTreeContext* context);
};

} // namespace qel
