#include "Core/CLog.h"
#include "Core/CUserFolder.h"

#include "TestFiles.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct CaptureSink : qel::ILogSink
{
    void logText(const char* text, bool lineEnd) override
    {
        captured += text;
        captured += lineEnd ? "|" : "";
    }
    std::string captured;
};

} // namespace

TEST(CLog, FileStartsAfreshThenAppendsWithCrLf)
{
    const qel::CString previousFile = qel::CLog::fileName();
    const std::string path = qel::CUserFolder::path().toUtf8() + "log-test.log";
    {
        std::ofstream stale(path);
        stale << "left over from an earlier process\n";
    }
    qel::CLog::setFileName(qel::CString::fromUtf8(path));
    qel::CLog::write("first", true);
    qel::CLog::write("sec", false);
    qel::CLog::printf("ond %d", 2);
    EXPECT_EQ(qel::test::readTextFile(path), "first\r\nsecond 2\r\n");
    qel::CLog::setFileName(previousFile);
}

TEST(CLog, ObjectLinesAndBufferLimits)
{
    CaptureSink sink;
    qel::ILogSink* previous = qel::CLog::setSink(&sink);
    qel::CLog::printfObject(qel::CString("plugin.modMain"), "Creating CObject '%s' (tag '%s')", "x", "audio:foo");
    qel::CLog::printfObject(qel::CString(), "no object %d", 1);
    EXPECT_EQ(sink.captured, "Creating CObject 'x' (tag 'audio:foo') // plugin.modMain|no object 1|");

    sink.captured.clear();
    const std::string longText(3000, 'z');
    qel::CLog::printf("%s", longText.c_str());
    EXPECT_EQ(sink.captured, std::string(qel::CLog::kLineBuffer - 1, 'z') + "|");

    sink.captured.clear();
    qel::CLog::printfObject(qel::CString(std::string(2000, 'n')), "%s", longText.c_str());
    EXPECT_EQ(sink.captured.size(), qel::CLog::kObjectLineBuffer - 1 + 1);
    qel::CLog::setSink(previous);
}
