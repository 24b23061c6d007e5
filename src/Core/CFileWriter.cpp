#include "Core/CFileWriter.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace qel {

CErrorPtr CFileWriter::open(const CString& name, bool append)
{
    QEL_RETURN_IF_ERROR(close(), CString());
    if (name == CString("*")) {
        attach(STDOUT_FILENO, CString("stdout"), false);
        return nullptr;
    }
    if (name == CString("*e")) {
        attach(STDERR_FILENO, CString("stderr"), false);
        return nullptr;
    }
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (append ? 0 : O_TRUNC);
    const int fd = ::open(name.toUtf8().c_str(), flags, 0644);
    if (fd < 0 || (append && ::lseek(fd, 0, SEEK_END) < 0)) {
        const int code = errno;
        if (fd >= 0)
            ::close(fd);
        return QEL_ERROR(CString(), "@qelstr_CFileWriter_open_OpenError Unable to open file '%1' for %2 (error %3).",
                         name, CString(append ? "appending" : "rewriting"), CString::number(code));
    }
    attach(fd, name, true);
    return nullptr;
}

CErrorPtr CFileWriter::write(const void* buffer, size_t count)
{
    const auto* in = static_cast<const uint8_t*>(buffer);
    size_t written = 0;
    while (written < count) {
        const ssize_t n = ::write(m_fd, in + written, count - written);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return QEL_ERROR(CString(), "@qelstr_CFileWriter_write_WriteError Unable to write to file '%1' (error %2).",
                             m_name, CString::number(errno));
        }
        if (n == 0)
            return QEL_ERROR(CString(), "@qelstr_CFileWriter_write_WriteErrorCount Unable to write to file '%1' (required %2 bytes, written %3 bytes).",
                             m_name, CString::number(int64_t(count)), CString::number(int64_t(written)));
        written += size_t(n);
    }
    return nullptr;
}

CErrorPtr CFileWriter::sync()
{
    if (::fsync(m_fd) != 0 && errno != EINVAL)
        return QEL_ERROR(CString(), "@qelstr_CFileWriter_write_WriteError Unable to write to file '%1' (error %2).",
                         m_name, CString::number(errno));
    return nullptr;
}

} // namespace qel
