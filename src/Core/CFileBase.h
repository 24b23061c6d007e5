#pragma once

#include "Core/CPosStream.h"
#include "Core/CString.h"

namespace qel {

// An open file: its descriptor, its name for messages and whether we hold its lock.
// Paths are UTF-8 with '/'.
class CFileBase : public virtual CPosStream
{
public:
    CFileBase() = default;
    ~CFileBase() override;
    CFileBase(const CFileBase&) = delete;
    CFileBase& operator=(const CFileBase&) = delete;

    bool isOpen() const { return m_fd >= 0; }
    const CString& fileName() const { return m_name; }

    CErrorPtr getPosition(int64_t& outPosition) override;
    CErrorPtr setPosition(int64_t position) override;
    CErrorPtr getSize(int64_t& outSize) override;

    // An advisory lock on the whole file, held until close.
    CErrorPtr lock(bool exclusive);
    // Unlocks a locked file first; closing a closed file does nothing.
    CErrorPtr close();

protected:
    // Takes a descriptor; standard streams are never closed by us.
    void attach(int fd, const CString& name, bool owned);

    int m_fd = -1;
    bool m_owned = false;
    bool m_locked = false;
    CString m_name;
};

} // namespace qel
