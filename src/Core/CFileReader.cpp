#include "Core/CFileReader.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace qel {

CErrorPtr CFileReader::open(const CString& name, bool readWrite)
{
    QEL_RETURN_IF_ERROR(close(), CString());
    if (name == CString("*")) {
        attach(STDIN_FILENO, CString("stdin"), false);
        return nullptr;
    }
    const int flags = O_CLOEXEC | (readWrite ? O_RDWR | O_CREAT : O_RDONLY);
    const int fd = ::open(name.toUtf8().c_str(), flags, 0644);
    if (fd < 0)
        return QEL_ERROR(CString(), "@qelstr_CFileReader_open_OpenError Unable to open file '%1' for reading (error %2).",
                         name, CString::number(errno));
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    attach(fd, name, true);
    return nullptr;
}

ssize_t CFileReader::readUpTo(void* buffer, size_t count)
{
    auto* out = static_cast<uint8_t*>(buffer);
    size_t got = 0;
    while (got < count) {
        const ssize_t n = ::read(m_fd, out + got, count - got);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        if (n == 0)
            break;
        got += size_t(n);
    }
    return ssize_t(got);
}

CErrorPtr CFileReader::read(void* buffer, size_t count)
{
    const ssize_t got = readUpTo(buffer, count);
    if (got < 0)
        return QEL_ERROR(CString(), "@qelstr_CFileReader_read_ReadError Unable to read from file '%1' (error %2).",
                         m_name, CString::number(errno));
    if (size_t(got) != count) {
        // All or nothing: put the position back where the read began, where we can.
        ::lseek(m_fd, -got, SEEK_CUR);
        return QEL_ERROR(CString(), "@qelstr_CFileReader_read_ReadBeyondEnd Unable to read from file '%1' (required %2 bytes, read %3 bytes).",
                         m_name, CString::number(int64_t(count)), CString::number(int64_t(got)));
    }
    return nullptr;
}

CErrorPtr CFileReader::readStreamed(void* buffer, size_t& inOutCount)
{
    const ssize_t got = readUpTo(buffer, inOutCount);
    if (got < 0)
        return QEL_ERROR(CString(), "@qelstr_CFileReader_readStreamed_ReadError Unable to read from file '%1' (error %2).",
                         m_name, CString::number(errno));
    inOutCount = size_t(got);
    return nullptr;
}

CErrorPtr CFileReader::skip(int64_t count)
{
    if (count <= 0)
        return nullptr;
    if (::lseek(m_fd, count, SEEK_CUR) >= 0)
        return nullptr;
    if (errno == ESPIPE)
        return CInputStream::skip(count); // a pipe: read and drop
    return QEL_ERROR(CString(), "@qelstr_CFileReader_skip_PosError Unable to increment file's '%1' position by %2 (error %3).",
                     m_name, CString::number(count), CString::number(errno));
}

} // namespace qel
