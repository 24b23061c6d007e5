#include "Core/CError.h"

#include "Core/CLog.h"

#include <cstdio>
#include <cstring>

namespace qel {

const char* const kErrorWindowTitle = "Application Message";
const char* const kErrorWindowMessage =
    "An issue has happened when executing the vendor's application.\n\n"
    "If this issue persists, please contact application's support staff as soon as possible. "
    "Please, copy the following information to the clipboard by selecting its text and "
    "pressing Ctrl+Insert, and send it to the vendor.  Use Shift+Insert to insert "
    "information from the clipboard into your message.";

CString CError::text() const
{
    CString joined;
    for (const CString* line : m_lines) {
        joined.append(*line);
        joined.append("\r\n", 2);
    }
    return joined;
}

CString formatMessage(const CString& message, const CString* args, int argCount)
{
    int start = 0;
    if (message.length() > 0 && message.at(0) == '@') {
        const int blank = message.find(' ');
        if (blank >= 0)
            start = blank + 1;
    }
    CString result;
    const int n = message.length();
    int runStart = start;
    auto flushRun = [&](int end) {
        if (end > runStart)
            result.append(message.substring(runStart, end - runStart));
    };
    for (int i = start; i < n; ++i) {
        if (message.at(i) != '%')
            continue;
        flushRun(i);
        if (i + 1 < n) {
            const char16_t next = message.at(i + 1);
            if (next == '%')
                result.append('%');
            else if (next >= '1' && next <= '9' && next - '1' < argCount)
                result.append(args[next - '1']);
            ++i;
        }
        runStart = i + 1;
    }
    flushRun(n);
    return result;
}

CString formatTrail(const char* file, int line, const CString& objectName)
{
    // The file goes without its extension: "Core/CObject( 1016 )".
    const char* slash = std::strrchr(file, '/');
    const char* dot = std::strrchr(slash ? slash : file, '.');
    CString trail(file, dot ? static_cast<int>(dot - file) : static_cast<int>(std::strlen(file)));
    trail.append("( ");
    trail.append(CString::number(line));
    if (objectName.isEmpty()) {
        trail.append(" )");
    } else {
        trail.append(" ) // ");
        trail.append(objectName);
    }
    return trail;
}

CErrorPtr appendError(CErrorPtr previous, const char* file, int line, const CString& objectName,
                      const CString& message, const CString& arg1, const CString& arg2,
                      const CString& arg3, const CString& arg4, const CString& arg5)
{
    CErrorPtr error = static_cast<CErrorPtr&&>(previous);
    if (!error)
        error.reset(new CError);
    if (!message.isEmpty()) {
        const CString args[] = {arg1, arg2, arg3, arg4, arg5};
        error->addLine(formatMessage(message, args, 5));
    } else if (error->lineCount() == 0) {
        error->addLine(CString());
    }
    error->addLine(formatTrail(file, line, objectName));
    return error;
}

void logError(const CError* error)
{
    if (!error)
        return;
    for (int i = 0; i < error->lineCount(); ++i)
        CLog::write(error->line(i).toUtf8().c_str(), true);
}

void showError(CErrorPtr error)
{
    logError(error.get());
    const CString details = error ? error->text() : CString("<no details>");
    error.reset();
    // Until the product has its own window for this, the user sees it on standard error.
    std::fprintf(stderr, "%s\n\n%s\n\n%s\n", kErrorWindowTitle, kErrorWindowMessage,
                 details.toUtf8().c_str());
    std::fflush(stderr);
}

} // namespace qel
