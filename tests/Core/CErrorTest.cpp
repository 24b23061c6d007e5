#include "Core/CError.h"
#include "Core/CLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using qel::CErrorPtr;
using qel::CString;

namespace {

std::vector<std::string> lines(const CErrorPtr& error)
{
    std::vector<std::string> out;
    for (int i = 0; i < error->lineCount(); ++i)
        out.push_back(error->line(i).toUtf8());
    return out;
}

struct CaptureSink : qel::ILogSink
{
    void logText(const char* text, bool lineEnd) override
    {
        captured += text;
        if (lineEnd)
            captured += "\n";
    }
    std::string captured;
};

CErrorPtr innermost()
{
    return QEL_ERROR(CString("plugin.x"), "@qelstr_CObject_findObjectChecked_FindError Unable to find object '%1' ('%2')",
                     CString("x"), CString("plugin.x"));
}

CErrorPtr middle()
{
    QEL_RETURN_IF_ERROR(innermost(), CString("plugin"));
    return nullptr;
}

} // namespace

TEST(CError, LinesOfAChain)
{
    CErrorPtr e = qel::appendError(nullptr, "f", 10, CString(), CString());
    EXPECT_EQ(lines(e), (std::vector<std::string>{"", "f( 10 )"}));

    e = qel::appendError(std::move(e), "Core/CObject.cpp", 1016, CString("plugin.modMain"), CString());
    EXPECT_EQ(lines(e).back(), "Core/CObject( 1016 ) // plugin.modMain");
    e = qel::appendError(std::move(e), "g.cpp", -5, CString(), CString("@qelstr_X_y second message"));
    EXPECT_EQ(lines(e), (std::vector<std::string>{"", "f( 10 )", "Core/CObject( 1016 ) // plugin.modMain",
                                                  "second message", "g( -5 )"}));
    EXPECT_EQ(e->text().toUtf8(), "\r\nf( 10 )\r\nCore/CObject( 1016 ) // plugin.modMain\r\nsecond message\r\ng( -5 )\r\n");

    // The macros record this file relative to the source root, without its extension.
    CErrorPtr chain = middle();
    const auto l = lines(chain);
    ASSERT_EQ(l.size(), 3u);
    EXPECT_EQ(l[0], "Unable to find object 'x' ('plugin.x')");
    EXPECT_EQ(l[1].rfind("tests/Core/CErrorTest( ", 0), 0u) << l[1];
    EXPECT_NE(l[1].find(" ) // plugin.x"), std::string::npos);
    EXPECT_NE(l[2].find(" ) // plugin"), std::string::npos);
}

TEST(CError, MessageTextsAndPlaceholders)
{
    struct Case { const char* message; const char* expected; };
    const Case cases[] = {
        {"@qelstr_CObject_registerCreator Creator for '%1' has already been registered.",
         "Creator for 'A' has already been registered."},
        {"@abc", "@abc"},                       // no blank: used whole
        {"plain %1 text", "plain A text"},      // no '@': used whole
        {"100%%", "100%"},
        {"@id %1-%2-%3", "A--C"},               // an empty argument
        {"@id [%6][%9]", "[][]"},               // numbers beyond the arguments
        {"@id %x%0 %", " "},                    // other characters and a lone '%'
        {"@id %5%4", "ED"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        CErrorPtr e = qel::appendError(nullptr, "f", 1, CString(), CString(c.message), CString("A"), CString(),
                                       CString("C"), CString("D"), CString("E"));
        EXPECT_EQ(e->line(0).toUtf8(), c.expected);
    }
    const CString wideArg(u"\u20ac");
    CErrorPtr e = QEL_ERROR(CString(), "@id cost %1", wideArg);
    EXPECT_EQ(e->line(0).toUtf8(), "cost \xe2\x82\xac");
}

TEST(CError, LogAndShow)
{
    CaptureSink sink;
    qel::ILogSink* previous = qel::CLog::setSink(&sink);
    CErrorPtr e = qel::appendError(nullptr, "a.cpp", 3, CString("obj"), CString("@id boom"));
    qel::logError(e.get());
    EXPECT_EQ(sink.captured, "boom\na( 3 ) // obj\n");

    sink.captured.clear();
    testing::internal::CaptureStderr();
    qel::showError(std::move(e));
    std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_EQ(sink.captured, "boom\na( 3 ) // obj\n");
    EXPECT_NE(shown.find(qel::kErrorWindowTitle), std::string::npos);
    EXPECT_NE(shown.find("boom\r\na( 3 ) // obj\r\n"), std::string::npos);

    sink.captured.clear();
    testing::internal::CaptureStderr();
    qel::showError(nullptr);
    shown = testing::internal::GetCapturedStderr();
    EXPECT_EQ(sink.captured, "");
    EXPECT_NE(shown.find("<no details>"), std::string::npos);
    qel::CLog::setSink(previous);
}
