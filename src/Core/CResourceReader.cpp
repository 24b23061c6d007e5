#include "Core/CResourceReader.h"

#include "Core/CFileReader.h"
#include "Core/CMemoryReaderStatic.h"
#include "Core/CResourceRegistry.h"

namespace qel {

CErrorPtr CResourceReader::open(const CString& name)
{
    close();
    const uint8_t* data;
    size_t size;
    if (CResourceRegistry::find(name, data, size)) {
        m_inner = std::make_unique<CMemoryReaderStatic>(data, size);
        return nullptr;
    }
    auto file = std::make_unique<CFileReader>();
    QEL_RETURN_IF_ERROR(file->open(name, false), CString());
    m_inner = std::move(file);
    return nullptr;
}

void CResourceReader::close() { m_inner.reset(); }

CErrorPtr CResourceReader::notOpen() const
{
    return QEL_ERROR(CString(), "@qelstr_CResourceReader_read_NotOpen No resource is open.");
}

const uint8_t* CResourceReader::getDirectPointer() const
{
    return m_inner ? m_inner->getDirectPointer() : nullptr;
}

CErrorPtr CResourceReader::skip(int64_t count)
{
    return m_inner ? m_inner->skip(count) : notOpen();
}

CErrorPtr CResourceReader::read(void* buffer, size_t count)
{
    return m_inner ? m_inner->read(buffer, count) : notOpen();
}

CErrorPtr CResourceReader::readStreamed(void* buffer, size_t& inOutCount)
{
    return m_inner ? m_inner->readStreamed(buffer, inOutCount) : notOpen();
}

CErrorPtr CResourceReader::getPosition(int64_t& outPosition)
{
    return m_inner ? m_inner->getPosition(outPosition) : notOpen();
}

CErrorPtr CResourceReader::setPosition(int64_t position)
{
    return m_inner ? m_inner->setPosition(position) : notOpen();
}

CErrorPtr CResourceReader::getSize(int64_t& outSize)
{
    return m_inner ? m_inner->getSize(outSize) : notOpen();
}

} // namespace qel
