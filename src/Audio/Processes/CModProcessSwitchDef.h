#pragma once

#include "Audio/CAudioProcessDefBase.h"
#include "Core/CMap.h"

#include <cstdint>

namespace qel {

// A switch that holds one of several sub-processes, or a chain of one of them (tag
// audio:modProcessSwitch). `process-list` maps an index to a definition: items
// "index:path" or "index:path=child-name" separated by ';', the index decimal or
// hexadecimal ("0x", "0X", '#', '$'), a path starting with '.' relative to this
// definition. An index the table lacks takes `def-index`'s entry; an item without a child
// name takes `def-child-name`. Without either, the instance takes the switch's own name,
// so that its parameters are the switch's: a band switch's filter reads the band's `freq`
// as "<switch>.freq", whichever of its choices is in place.
class CModProcessSwitchDef : public CAudioProcessDefBase
{
public:
    struct CEntry
    {
        const CAudioProcessDefBase* def = nullptr;
        CString childName;
    };

    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBase::initClassInfo(info); }
    CErrorPtr init() override;
    CErrorPtr initChilds() override;

    const CMap<int32_t, CEntry>& table() const { return m_table; }
    int32_t defIndex() const { return m_defIndex; }
    const CString& defChildName() const { return m_defChildName; }
    bool isAllpassBank() const { return m_isAllpassBank; }
    // The entry of `index`, else the one of `def-index`, else null. Any thread.
    const CEntry* lookUp(int32_t index) const;

protected:
    CAudioProcessBase* newProcess() const override;

private:
    CMap<int32_t, CEntry> m_table;
    int32_t m_defIndex = 0;
    CString m_defChildName;
    bool m_isAllpassBank = false;
};

} // namespace qel
