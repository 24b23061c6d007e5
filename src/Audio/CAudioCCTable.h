#pragma once

#include "Core/CByteArray.h"
#include "Core/CCriticalSection.h"
#include "Core/CObject.h"

#include <array>

namespace qel {

class CAudioExtParam;

// Which host-visible parameter each MIDI controller number drives (tag audio:cctable).
// Read from the local store's "ccmap" (count, then per entry a controller number and the
// path of an audio:ext-param); an empty or missing map leaves the table clear.
class CAudioCCTable : public CObject
{
public:
    static constexpr int kControllers = 128;

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr initChilds() override;

    // Null for numbers outside 0..127 and for free slots. Any thread.
    CAudioExtParam* find(int controller);
    // Fills the table from a map's bytes; damaged data leaves it clear.
    void load(const CByteArray& bytes);

private:
    CCriticalSection m_lock{4000};
    std::array<CAudioExtParam*, kControllers> m_table{};
};

} // namespace qel
