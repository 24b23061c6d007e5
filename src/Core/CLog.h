#pragma once

#include "Core/CString.h"

namespace qel {

// Receives every log line; installed by whoever wants to see them (a host console, a test).
class ILogSink
{
public:
    virtual ~ILogSink() = default;
    virtual void logText(const char* text, bool lineEnd) = 0;
};

// The product's log. Lines go to the installed sink and to one log file under the user
// folder's "Quelmar/" (the first write of the process empties it); debug builds also echo
// to standard error. Never call it from the audio thread: it formats, locks and writes.
class CLog
{
public:
    static constexpr size_t kLineBuffer = 1024;
    static constexpr size_t kObjectLineBuffer = 1280;

    // Any thread.
    static void write(const char* text, bool lineEnd);
    static void printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
    // A line that concerns an object: the text, then " // " and its full name when it has one.
    static void printfObject(const CString& fullName, const char* format, ...)
        __attribute__((format(printf, 2, 3)));

    // Returns the sink that was installed before.
    static ILogSink* setSink(ILogSink* sink);
    // The log file's path; empty turns the file off. By default it is
    // "<user folder>Quelmar/DLC-730.log". The next write starts the file afresh.
    static void setFileName(const CString& path);
    static CString fileName();
};

} // namespace qel
