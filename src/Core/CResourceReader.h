#pragma once

#include "Core/CPosInputStream.h"

#include <memory>

namespace qel {

// Opens a name as an embedded resource when the module has one of that name, else as a
// file path, and reads whichever it found.
class CResourceReader : public CPosInputStream
{
public:
    CErrorPtr open(const CString& name);
    void close();
    bool isOpen() const { return m_inner != nullptr; }

    const uint8_t* getDirectPointer() const override;
    CErrorPtr skip(int64_t count) override;
    CErrorPtr read(void* buffer, size_t count) override;
    CErrorPtr readStreamed(void* buffer, size_t& inOutCount) override;
    CErrorPtr getPosition(int64_t& outPosition) override;
    CErrorPtr setPosition(int64_t position) override;
    CErrorPtr getSize(int64_t& outSize) override;

private:
    CErrorPtr notOpen() const;

    std::unique_ptr<CPosInputStream> m_inner;
};

} // namespace qel
