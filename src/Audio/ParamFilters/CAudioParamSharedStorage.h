#pragma once

#include "Core/CObject.h"

namespace qel {

class CAppData;

// Binds a parameter to an entry of an application data store (tag
// audio:param-shared-storage), so that its value outlives the instance and is common to
// every instance: `param` (relative to the process definition), `data-name` (the key) and
// `storage-type` ("local", "group" or "global"). The process makes the binding in its
// collector when it is built.
class CAudioParamSharedStorage : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    const CString& paramName() const { return m_paramName; }
    const CString& dataName() const { return m_dataName; }
    // The store that `storage-type` names; never null after a successful init.
    CAppData* store() const { return m_store; }

private:
    CString m_paramName;
    CString m_dataName;
    CAppData* m_store = nullptr;
};

} // namespace qel
