#pragma once

#include "Core/CPtrArray.h"
#include "Core/CString.h"

#include <cstddef>

namespace qel {

// What went wrong and where it travelled: the message line first (where the failure
// began), then one trail line per level that handed it on, outermost last.
class CError
{
public:
    CError() = default;
    CError(const CError&) = delete;
    CError& operator=(const CError&) = delete;
    ~CError() = default; // lines go from the last to the first

    int lineCount() const { return m_lines.count(); }
    const CString& line(int index) const { return *m_lines[index]; }
    void addLine(const CString& text) { m_lines.append(new CString(text)); }
    // All lines, each followed by CR LF.
    CString text() const;

private:
    CPtrArray<CString, true> m_lines;
};

// The owner of an error, or nothing for success. It must be handed on (moved) or let go,
// which deletes the error; ignoring a returned one does not compile quietly.
class [[nodiscard]] CErrorPtr
{
public:
    CErrorPtr() = default;
    CErrorPtr(std::nullptr_t) {}
    explicit CErrorPtr(CError* error) : m_error(error) {}
    CErrorPtr(CErrorPtr&& other) noexcept : m_error(other.release()) {}
    CErrorPtr& operator=(CErrorPtr&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    CErrorPtr(const CErrorPtr&) = delete;
    CErrorPtr& operator=(const CErrorPtr&) = delete;
    ~CErrorPtr() { delete m_error; }

    explicit operator bool() const { return m_error != nullptr; }
    CError* get() const { return m_error; }
    CError* operator->() const { return m_error; }
    CError* release()
    {
        CError* e = m_error;
        m_error = nullptr;
        return e;
    }
    void reset(CError* error = nullptr)
    {
        if (m_error != error)
            delete m_error;
        m_error = error;
    }

private:
    CError* m_error = nullptr;
};

// Makes or extends an error. With no previous error a new one is made; a non-empty
// message adds its line (the "@qelstr_..." identifier dropped, %1..%5 filled from the
// arguments); an error that has no lines yet gets an empty one, so the first line is
// always the message's place; then the trail line "file( line )" or "file( line ) // name".
CErrorPtr appendError(CErrorPtr previous, const char* file, int line, const CString& objectName,
                      const CString& message, const CString& arg1 = CString(),
                      const CString& arg2 = CString(), const CString& arg3 = CString(),
                      const CString& arg4 = CString(), const CString& arg5 = CString());

// The text of a catalogue message with its placeholders filled: "%1".."%9" take the
// arguments, "%%" is '%', and any other '%' sequence, or a number beyond the arguments,
// gives nothing.
CString formatMessage(const CString& message, const CString* args, int argCount);

// The trail text of a source position: "Core/CObject( 1016 )", with " // name" behind it.
CString formatTrail(const char* file, int line, const CString& objectName);

// Writes each line to the log, in order.
void logError(const CError* error);

// Presents an error that has nowhere else to go (failed start-up, a failed thread body):
// logs it, shows it with the fixed text to the user, and deletes it.
void showError(CErrorPtr error);

extern const char* const kErrorWindowTitle;
extern const char* const kErrorWindowMessage;

} // namespace qel

#define QEL_ERROR(objectName, ...) ::qel::appendError(nullptr, __FILE__, __LINE__, (objectName), __VA_ARGS__)
#define QEL_TRAIL(error, objectName) \
    ::qel::appendError(static_cast<::qel::CErrorPtr&&>(error), __FILE__, __LINE__, (objectName), ::qel::CString())
// Returns from the calling function with a trail line when `expr` fails.
#define QEL_RETURN_IF_ERROR(expr, objectName)                     \
    do {                                                          \
        if (::qel::CErrorPtr qelError_ = (expr))                  \
            return QEL_TRAIL(qelError_, objectName);              \
    } while (0)
