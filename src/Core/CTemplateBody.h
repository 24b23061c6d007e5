#pragma once

#include "Core/CByteArray.h"
#include "Core/CString.h"

#include <cstdint>
#include <memory>

namespace qel {

class CStringPool;

// The deferred definition of a run-time template: a complete node record, read again for
// every instance. Bodies in the module's data are used in place; others are copied.
class CTemplateBody
{
public:
    CTemplateBody(const CString& classTag, const uint8_t* body, size_t length, bool staticData,
                  std::shared_ptr<CStringPool> pool);

    const CString& classTag() const { return m_classTag; }
    const uint8_t* body() const { return m_body; }
    size_t length() const { return m_length; }
    bool isStatic() const { return m_static; }
    const std::shared_ptr<CStringPool>& pool() const { return m_pool; }

private:
    CByteArray m_copy;
    bool m_static;
    const uint8_t* m_body;
    size_t m_length;
    CString m_classTag;
    std::shared_ptr<CStringPool> m_pool;
};

} // namespace qel
