#include "Core/CTemplateBody.h"

#include "Core/CStringPool.h"

namespace qel {

CTemplateBody::CTemplateBody(const CString& classTag, const uint8_t* body, size_t length, bool staticData,
                             std::shared_ptr<CStringPool> pool)
    : m_static(staticData), m_body(body), m_length(length), m_classTag(classTag), m_pool(std::move(pool))
{
    if (!staticData) {
        m_copy.append(body, length);
        m_body = m_copy.data();
    }
}

} // namespace qel
