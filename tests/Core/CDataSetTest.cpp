#include "Core/CDataSet.h"

#include "Core/CDataTag.h"
#include "Core/CFileWriter.h"
#include "Core/CResourceRegistry.h"
#include "Core/CUserFolder.h"

#include "StreamTestSupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace qel;
using namespace qel::test;

namespace {

// The smallest data set: one text in a block of its own tag.
struct TextSet : CDataSet
{
    uint32_t getDataTag() const override { return makeTag("tset"); }
    CErrorPtr read(CInputStream& stream) override
    {
        CByteArray bytes;
        QEL_RETURN_IF_ERROR(stream.readCompressedData(bytes, getDataTag()), CString());
        text.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        return nullptr;
    }
    CErrorPtr write(COutputStream& stream) override
    {
        return stream.writeCompressedData(text.data(), text.size(), getDataTag());
    }
    std::string text;
};

} // namespace

TEST(CDataSet, LoadsFromResourcesAndFilesAndTrailsFailures)
{
    TextSet saved;
    saved.text = "set contents";
    VectorSink sink;
    ASSERT_FALSE(saved.write(sink));

    CResourceRegistry::add(CString("text.set"), sink.bytes.data(), sink.bytes.size());
    TextSet fromResource;
    EXPECT_FALSE(fromResource.load(CString("text.set")));
    CResourceRegistry::remove(CString("text.set"));
    EXPECT_EQ(fromResource.text, saved.text);

    const CString path = CUserFolder::path() + CString("text.set");
    {
        CFileWriter file;
        ASSERT_FALSE(file.open(path, false));
        ASSERT_FALSE(saved.write(file));
    }
    TextSet fromFile;
    EXPECT_FALSE(fromFile.load(path));
    EXPECT_EQ(fromFile.text, saved.text);

    // Both steps name the set in their trail.
    for (const Bytes& content : {Bytes(), Bytes{'t', 's', 'e', 't'}}) {
        const bool missing = content.empty();
        if (!missing)
            CResourceRegistry::add(CString("bad.set"), content.data(), content.size());
        TextSet failed;
        CErrorPtr error = failed.load(CString(missing ? "no/such.set" : "bad.set"));
        CResourceRegistry::remove(CString("bad.set"));
        ASSERT_TRUE(error);
        const std::string last = error->line(error->lineCount() - 1).toUtf8();
        EXPECT_NE(last.find("CDataSet"), std::string::npos) << last;
        EXPECT_NE(last.find(missing ? "// no/such.set" : "// bad.set"), std::string::npos) << last;
    }
}
