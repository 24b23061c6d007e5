#include "Core/CFileBase.h"

#include <cerrno>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qel {

CFileBase::~CFileBase()
{
    CErrorPtr ignored = close();
}

void CFileBase::attach(int fd, const CString& name, bool owned)
{
    m_fd = fd;
    m_name = name;
    m_owned = owned;
    m_locked = false;
}

CErrorPtr CFileBase::getPosition(int64_t& outPosition)
{
    const off_t position = ::lseek(m_fd, 0, SEEK_CUR);
    if (position < 0)
        return QEL_ERROR(CString(), "@qelstr_CFileBase_getPosition_PosError Unable to get file's '%1' position (error %2).",
                         m_name, CString::number(errno));
    outPosition = position;
    return nullptr;
}

CErrorPtr CFileBase::setPosition(int64_t position)
{
    if (position < 0 || ::lseek(m_fd, position, SEEK_SET) < 0)
        return QEL_ERROR(CString(), "@qelstr_CFileBase_setPosition_PosError Unable to set file's '%1' position to %2 (error %3).",
                         m_name, CString::number(position), CString::number(position < 0 ? EINVAL : errno));
    return nullptr;
}

CErrorPtr CFileBase::getSize(int64_t& outSize)
{
    struct stat info;
    if (::fstat(m_fd, &info) != 0)
        return QEL_ERROR(CString(), "@qelstr_CFileBase_getSize_FileSizeError Unable to get file's '%1' size (error %2).",
                         m_name, CString::number(errno));
    outSize = info.st_size;
    return nullptr;
}

CErrorPtr CFileBase::lock(bool exclusive)
{
    if (::flock(m_fd, exclusive ? LOCK_EX : LOCK_SH) != 0)
        return QEL_ERROR(CString(), "@qelstr_CFileBase_lock_LockError Unable to lock file '%1' (error %2).",
                         m_name, CString::number(errno));
    m_locked = true;
    return nullptr;
}

CErrorPtr CFileBase::close()
{
    if (m_fd < 0)
        return nullptr;
    const int fd = m_fd;
    m_fd = -1;
    CErrorPtr error;
    if (m_locked) {
        m_locked = false;
        if (::flock(fd, LOCK_UN) != 0)
            error = QEL_ERROR(CString(), "@qelstr_CFileBase_close_UnlockError Unable to unlock file '%1' (error %2).",
                              m_name, CString::number(errno));
    }
    if (m_owned && ::close(fd) != 0 && !error)
        error = QEL_ERROR(CString(), "@qelstr_CFileBase_close_CloseError Unable to close file '%1' (error %2).",
                          m_name, CString::number(errno));
    return error;
}

} // namespace qel
