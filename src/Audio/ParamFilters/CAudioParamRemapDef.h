#pragma once

#include "Core/CObject.h"

#include <vector>

namespace qel {

// Makes a process's parameter name an alias of another parameter (tag audio:param-remap),
// so that one parameter drives many processes: `orig` "mode" with `new` "^oversampling",
// or, between the tags, a list "a = b; c = d" (split at ';' when the text holds one, else
// at blanks). Both forms may stand side by side. Names are relative to the process that
// holds the remap, by the path rules of the process definitions; the process turns each
// pair into an alias in its collector when it is built.
class CAudioParamRemapDef : public CObject
{
public:
    struct CPair
    {
        CString orig;
        CString target;
    };

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    // The text between the tags only exists once the children are made: read here.
    CErrorPtr initChilds() override;

    // In the order written: the attribute pair first, then the lists.
    const std::vector<CPair>& pairs() const { return m_pairs; }

    // One list on its own; its pairs are appended to `out`, which a refused list leaves as
    // it was. `objectName` names the object in the error.
    static CErrorPtr parseList(const CString& text, std::vector<CPair>& out, const CString& objectName);

private:
    std::vector<CPair> m_pairs;
};

} // namespace qel
