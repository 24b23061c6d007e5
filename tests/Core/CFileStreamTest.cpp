#include "StreamTestSupport.h"

#include "Core/CDataTag.h"
#include "Core/CFileReader.h"
#include "Core/CFileWriter.h"
#include "Core/CResourceReader.h"
#include "Core/CResourceRegistry.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

using namespace qel;

namespace {

using namespace qel::test;

class CFileStream : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qel-files-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    std::string path(const char* name) const { return m_folder + "/" + name; }

    static Bytes contentOf(const std::string& file)
    {
        std::ifstream in(file, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    static void writeFile(const std::string& file, const std::string& text, bool append)
    {
        CFileWriter writer;
        ASSERT_FALSE(writer.open(CString::fromUtf8(file), append));
        ASSERT_FALSE(writer.write(text.data(), text.size()));
        ASSERT_FALSE(writer.close());
    }

    std::string m_folder;
};

} // namespace

TEST_F(CFileStream, WrittenFileReadsBack)
{
    const std::string file = path("data \xC3\xA9.bin");
    const CString name = CString::fromUtf8(file);
    CFileWriter writer;
    ASSERT_FALSE(writer.open(name, false));
    ASSERT_FALSE(writer.writeU32(0x01020304));
    ASSERT_FALSE(writer.writeString(CString::fromUtf8("h\xC3\xA9llo")));
    ASSERT_FALSE(writer.writeDouble(0.5));
    EXPECT_EQ(positionOf(writer), 22);
    ASSERT_FALSE(writer.close());
    EXPECT_FALSE(writer.isOpen());
    EXPECT_FALSE(writer.close()); // closing twice does nothing
    const Bytes expected = {4, 3, 2, 1, 6, 0, 0, 0, 'h', 0xC3, 0xA9, 'l', 'l', 'o', 0, 0, 0, 0, 0, 0, 0xE0, 0x3F};
    EXPECT_EQ(contentOf(file), expected);

    CFileReader reader;
    ASSERT_FALSE(reader.open(name, false));
    EXPECT_TRUE(reader.fileName() == name);
    EXPECT_EQ(reader.getDirectPointer(), nullptr);
    int64_t size = 0;
    ASSERT_FALSE(reader.getSize(size));
    EXPECT_EQ(size, 22);
    CString text;
    ASSERT_FALSE(reader.skip(4));
    ASSERT_FALSE(reader.readString(text));
    EXPECT_EQ(text.toUtf8(), "h\xC3\xA9llo");
    EXPECT_EQ(positionOf(reader), 14);
    ASSERT_FALSE(reader.skip(8));

    uint8_t buffer[32];
    EXPECT_EQ(message(reader.read(buffer, 1)), "Unable to read from file '" + file + "' (required 1 bytes, read 0 bytes).");
    ASSERT_FALSE(reader.setPosition(18));
    EXPECT_EQ(message(reader.read(buffer, 10)), "Unable to read from file '" + file + "' (required 10 bytes, read 4 bytes).");
    EXPECT_EQ(positionOf(reader), 18); // a short read takes nothing
    size_t count = sizeof buffer;
    ASSERT_FALSE(reader.readStreamed(buffer, count));
    EXPECT_EQ(count, 4u);
    count = sizeof buffer;
    ASSERT_FALSE(reader.readStreamed(buffer, count));
    EXPECT_EQ(count, 0u);

    ASSERT_FALSE(reader.setPosition(4));
    EXPECT_FALSE(reader.skip(0));
    EXPECT_FALSE(reader.skip(-8));
    ASSERT_FALSE(reader.read(buffer, 10));
    EXPECT_EQ(Bytes(buffer, buffer + 10), Bytes(expected.begin() + 4, expected.begin() + 14));
    EXPECT_TRUE(reader.setPosition(-1));
    ASSERT_FALSE(reader.close());
    EXPECT_FALSE(reader.close());
}

TEST_F(CFileStream, AppendKeepsRewriteEmptiesAndFailuresSayWhy)
{
    const std::string file = path("log.txt");
    writeFile(file, "abc", false);
    writeFile(file, "def", true);
    EXPECT_EQ(contentOf(file), Bytes({'a', 'b', 'c', 'd', 'e', 'f'}));
    CFileWriter writer;
    ASSERT_FALSE(writer.open(CString::fromUtf8(file), true));
    EXPECT_EQ(positionOf(writer), 6);
    ASSERT_FALSE(writer.open(CString::fromUtf8(file), false)); // reopening closes the first
    ASSERT_FALSE(writer.close());
    EXPECT_TRUE(contentOf(file).empty());
    writeFile(path("fresh.txt"), "x", true); // appending makes a missing file
    EXPECT_EQ(contentOf(path("fresh.txt")), Bytes({'x'}));

    const std::string missing = path("no such folder/file.bin");
    const std::string error = " (error " + std::to_string(ENOENT) + ").";
    CFileReader reader;
    EXPECT_EQ(message(reader.open(CString::fromUtf8(missing), false)), "Unable to open file '" + missing + "' for reading" + error);
    EXPECT_FALSE(reader.isOpen());
    EXPECT_EQ(message(writer.open(CString::fromUtf8(missing), true)), "Unable to open file '" + missing + "' for appending" + error);
    EXPECT_EQ(message(writer.open(CString::fromUtf8(missing), false)), "Unable to open file '" + missing + "' for rewriting" + error);
    EXPECT_FALSE(writer.isOpen());
}

TEST_F(CFileStream, StarNamesAreStandardStreamsAndStayOpen)
{
    bool wasOpen[3];
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        wasOpen[fd] = ::fcntl(fd, F_GETFD) != -1;
    CFileReader reader;
    ASSERT_FALSE(reader.open(CString("*"), false));
    EXPECT_TRUE(reader.fileName() == CString("stdin"));
    ASSERT_FALSE(reader.close());
    CFileWriter writer;
    ASSERT_FALSE(writer.open(CString("*"), false));
    EXPECT_TRUE(writer.fileName() == CString("stdout"));
    ASSERT_FALSE(writer.open(CString("*e"), false));
    EXPECT_TRUE(writer.fileName() == CString("stderr"));
    ASSERT_FALSE(writer.close());
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        EXPECT_EQ(::fcntl(fd, F_GETFD) != -1, wasOpen[fd]) << fd;
}

TEST_F(CFileStream, ResourceReaderPrefersRegistryThenFiles)
{
    static const uint8_t kEmbedded[] = {5, 0, 0, 0, 'h', 'e', 'l', 'l', 'o'};
    const std::string file = path("res.bin");
    writeFile(file, "from disk", false);
    const CString name = CString::fromUtf8(file);
    CResourceReader reader;
    uint8_t buffer[16] = {};
    EXPECT_TRUE(reader.read(buffer, 1)); // nothing open yet

    CResourceRegistry::addSizedBlock(name, kEmbedded);
    ASSERT_FALSE(reader.open(name));
    EXPECT_EQ(reader.getDirectPointer(), kEmbedded + 4);
    int64_t size = 0;
    ASSERT_FALSE(reader.getSize(size));
    EXPECT_EQ(size, 5);
    ASSERT_FALSE(reader.skip(1));
    ASSERT_FALSE(reader.read(buffer, 4));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 4), "ello");

    CResourceRegistry::remove(name);
    ASSERT_FALSE(reader.open(name));
    EXPECT_EQ(reader.getDirectPointer(), nullptr);
    ASSERT_FALSE(reader.setPosition(5));
    ASSERT_FALSE(reader.read(buffer, 4));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 4), "disk");

    const std::string missing = path("missing.bin");
    EXPECT_EQ(message(reader.open(CString::fromUtf8(missing))),
              "Unable to open file '" + missing + "' for reading (error " + std::to_string(ENOENT) + ").");
    EXPECT_FALSE(reader.isOpen());
}

TEST_F(CFileStream, CompressedBlocksBackToBackInAFile)
{
    // Larger than the inflater's input buffer, so it reads ahead into what follows.
    Bytes random(70000), text(50000);
    uint32_t seed = 1;
    for (auto& b : random)
        b = uint8_t((seed = seed * 1103515245 + 12345) >> 16);
    for (size_t i = 0; i < text.size(); ++i)
        text[i] = uint8_t("some text, "[i % 11]);
    const std::string file = path("blocks.bin");
    CFileWriter writer;
    ASSERT_FALSE(writer.open(CString::fromUtf8(file), false));
    ASSERT_FALSE(writer.writeCompressedData(random.data(), random.size(), makeTag("rand")));
    ASSERT_FALSE(writer.writeCompressedData(text.data(), text.size(), makeTag("text")));
    ASSERT_FALSE(writer.writeCompressedDataLZ4(text.data(), text.size(), makeTag("lz4 ")));
    ASSERT_FALSE(writer.writeU32(77));
    ASSERT_FALSE(writer.close());

    CResourceReader reader; // a file behind a resource name gives back read-ahead too
    ASSERT_FALSE(reader.open(CString::fromUtf8(file)));
    CByteArray a, b, c;
    uint32_t last = 0;
    ASSERT_FALSE(reader.readCompressedData(a, makeTag("rand")));
    ASSERT_FALSE(reader.readCompressedData(b, makeTag("text")));
    ASSERT_FALSE(reader.readCompressedDataLZ4(c, makeTag("lz4 ")));
    ASSERT_FALSE(reader.readU32(last));
    EXPECT_TRUE(Bytes(a.data(), a.data() + a.size()) == random);
    EXPECT_TRUE(Bytes(b.data(), b.data() + b.size()) == text);
    EXPECT_TRUE(Bytes(c.data(), c.data() + c.size()) == text);
    EXPECT_EQ(last, 77u);
    int64_t size = 0;
    ASSERT_FALSE(reader.getSize(size));
    EXPECT_EQ(positionOf(reader), size);
}
