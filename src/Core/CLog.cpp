#include "Core/CLog.h"

#include "Core/CCriticalSection.h"
#include "Core/CUserFolder.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#ifndef QEL_LOG_FILE_NAME
#define QEL_LOG_FILE_NAME "DLC-730.log"
#endif

namespace qel {
namespace {

struct LogState
{
    CCriticalSection lock{4000};
    ILogSink* sink = nullptr;
    bool fileNameSet = false;
    CString fileName;
    bool fileStarted = false;
};

LogState& state()
{
    static LogState s_state;
    return s_state;
}

void writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written <= 0)
            return;
        data += written;
        size -= size_t(written);
    }
}

void appendToFile(LogState& s, const char* text, bool lineEnd)
{
    if (!s.fileNameSet) {
        s.fileNameSet = true;
        const CString folder = CUserFolder::path();
        if (!folder.isEmpty()) {
            s.fileName = folder;
            s.fileName.append("Quelmar/");
            if (!CUserFolder::ensureFolder(s.fileName))
                s.fileName = CString();
            else
                s.fileName.append(QEL_LOG_FILE_NAME);
        }
    }
    if (s.fileName.isEmpty())
        return;
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (s.fileStarted ? O_APPEND : O_TRUNC);
    const int fd = ::open(s.fileName.toUtf8().c_str(), flags, 0644);
    if (fd < 0)
        return;
    s.fileStarted = true;
    writeAll(fd, text, std::strlen(text));
    if (lineEnd)
        writeAll(fd, "\r\n", 2);
    ::close(fd);
}

} // namespace

void CLog::write(const char* text, bool lineEnd)
{
    LogState& s = state();
    CLockGuard guard(s.lock);
    if (s.sink)
        s.sink->logText(text, lineEnd);
    appendToFile(s, text, lineEnd);
#if defined(QEL_DEBUG)
    std::fputs(text, stderr);
    if (lineEnd)
        std::fputc('\n', stderr);
#endif
}

void CLog::printf(const char* format, ...)
{
    char buffer[kLineBuffer];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    write(buffer, true);
}

void CLog::printfObject(const CString& fullName, const char* format, ...)
{
    char text[kLineBuffer];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (fullName.isEmpty()) {
        write(text, true);
        return;
    }
    char line[kObjectLineBuffer];
    std::snprintf(line, sizeof line, "%s // %s", text, fullName.toUtf8().c_str());
    write(line, true);
}

ILogSink* CLog::setSink(ILogSink* sink)
{
    LogState& s = state();
    CLockGuard guard(s.lock);
    ILogSink* previous = s.sink;
    s.sink = sink;
    return previous;
}

void CLog::setFileName(const CString& path)
{
    LogState& s = state();
    CLockGuard guard(s.lock);
    s.fileNameSet = true;
    s.fileName = path;
    s.fileStarted = false;
}

CString CLog::fileName()
{
    LogState& s = state();
    CLockGuard guard(s.lock);
    return s.fileName;
}

} // namespace qel
