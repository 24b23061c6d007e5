#pragma once

#include "Core/CObject.h"

#include <vector>

namespace qel {

// Copies its `value` into the attribute `attr` of each object in `target` (paths
// separated by blanks), whenever the value changes. Tag core:attr-doubler.
class CAttrDoubler : public CObject
{
public:
    static void initClassInfo(CClassInfo& info);

    CErrorPtr init() override;
    CErrorPtr attrValue(CAttrValue& value);

private:
    std::vector<CObject*> m_targets;
    CString m_attr;
};

} // namespace qel
