#pragma once

#include "Core/CObject.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace qel {

class CAudioFilterGen;

// The generators a filter process chooses from by its `index` (tag audio:fltgen-array).
// An index without an item has no generator, and the process passes the signal.
class CAudioFilterGenArray : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr initChilds() override;

    // The array a filter process's `gen-array` names, seen from its definition ("/x" and
    // "shared::x" are absolute); null, with a line in the log for `owner`, when there is
    // none. Set-up only.
    static const CAudioFilterGenArray* resolve(const CObject& from, const CString& path, const CString& owner);

    // Any thread; allocates nothing.
    const CAudioFilterGen* find(int32_t index) const;
    int32_t itemCount() const { return int32_t(m_table.size()); }

private:
    std::vector<std::pair<int32_t, const CAudioFilterGen*>> m_table; // by index
};

} // namespace qel
