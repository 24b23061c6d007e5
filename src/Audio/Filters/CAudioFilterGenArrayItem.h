#pragma once

#include "Core/CObject.h"

#include <cstdint>

namespace qel {

class CAudioFilterGen;

// One entry of a generator array (tag audio:fltgen-array-item): `index` and the generator
// at the path `fltgen`.
class CAudioFilterGenArrayItem : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;
    CErrorPtr initChilds() override;

    int32_t index() const { return m_index; }
    const CAudioFilterGen* generator() const { return m_generator; }

private:
    int32_t m_index = 0;
    const CAudioFilterGen* m_generator = nullptr;
};

} // namespace qel
