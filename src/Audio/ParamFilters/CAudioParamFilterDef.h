#pragma once

#include "Core/CObject.h"

#include <vector>

namespace qel {

class CAudioParamFilter;

// What a parameter filter derives from what (tags audio:param-filter-*): `src` and `dst`,
// comma-separated parameter names relative to the process definition that holds the
// filter. A subclass per kind makes the filter proper; the process makes one in its
// collector when it is built.
class CAudioParamFilterDef : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    // As written, blanks around each name trimmed and empty names left out.
    const std::vector<CString>& sourceNames() const { return m_sourceNames; }
    const std::vector<CString>& destinationNames() const { return m_destinationNames; }

    // The filter of this definition's kind, not yet initialised; the caller owns it. Null
    // for a definition of no kind of its own.
    virtual CAudioParamFilter* createFilter() const;

    static void splitNames(const CString& text, std::vector<CString>& out);

private:
    std::vector<CString> m_sourceNames;
    std::vector<CString> m_destinationNames;
};

} // namespace qel
