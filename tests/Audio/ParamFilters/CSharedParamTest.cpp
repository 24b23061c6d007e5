// Parameters bound to the application data stores: shared between instances, stored as
// display text (decoded from the store's files here), clamped to a narrower range, kept
// when the stored text does not read, and bound before their definition arrives.

#include "ParamFilterTestSupport.h"

#include "../../Core/AppDataTestSupport.h"
#include "Core/CAppData.h"

#include <cmath>
#include <string>

using namespace qel;
using namespace qel::test;

namespace {

class SharedParams : public ParamFilterFixture
{
protected:
    std::string text(const char* name, CAudioParamCollector* collector = nullptr)
    {
        return param(name, collector)->getString(0, 0).toUtf8();
    }
    Bytes raw(const char* name, CAudioParamCollector* collector = nullptr)
    {
        CAudioParam* p = param(name, collector);
        CAudioParamLock lock(*p);
        const double id = p->values().getElementValue(0, 0, 0, 0.0);
        return toBytes(p->values().data().getRaw(uint32_t(std::lround(id))));
    }
    // The payload of a store's file and its tag; empty without a file.
    static Bytes stored(const std::string& path, uint32_t expectedTag)
    {
        const Bytes file = readBinaryFile(path);
        if (file.empty())
            return {};
        uint32_t tag = 0;
        Bytes payload;
        EXPECT_TRUE(decodeBlock(file, tag, payload)) << path;
        EXPECT_EQ(tag, expectedTag) << path;
        return payload;
    }

    ScratchStoreFolder m_folder;
};

TEST_F(SharedParams, TwoInstancesShareTheirValuesThroughTheStores)
{
    const auto first = instantiate("prefs", m_env);
    const auto copy = instantiate("prefs", m_env);
    CAudioEnv* env = nullptr;
    CAudioParamCollector* other = addInstance(env);
    const auto second = instantiate("prefs", env);
    ASSERT_TRUE(first && copy && second);
    // One binding per parameter and key, whatever the copies.
    EXPECT_EQ(m_collector->sharedParamCount(), 4u);
    // A binding of a name nobody declares waits without harm, and writes nothing.
    EXPECT_EQ(param("prefs.undeclared")->info(), nullptr);
    EXPECT_TRUE(stored(m_folder.group() + "test-undeclared", CAppData::kTagString).empty());

    // Nothing was stored yet: both hold their defaults, and reading wrote nothing.
    EXPECT_EQ(value("prefs.release"), 0.75);
    EXPECT_EQ(text("prefs.label"), "Gray");
    EXPECT_TRUE(stored(m_folder.local() + "test-release-time", CAppData::kTagString).empty());

    // A float goes as its display text, and the other instance reads it back.
    param("prefs.release")->setValue(1.2, 0, nullptr);
    EXPECT_EQ(stored(m_folder.local() + "test-release-time", CAppData::kTagString), stringPayload("1200"));
    EXPECT_DOUBLE_EQ(value("prefs.release", 0, 0, other), 1.2);

    // A string as its text, in the store of the plug-ins, from the second to the first.
    CAudioParamUpdateContext context;
    param("prefs.label", other)->setString(0, 0, CString("Blue"), nullptr, context);
    EXPECT_EQ(stored(m_folder.group() + "test-label", CAppData::kTagString), stringPayload("Blue"));
    EXPECT_EQ(text("prefs.label"), "Blue");

    // Raw data as its bytes, in the store of every product.
    const Bytes blob = {1, 2, 0, 255, 7};
    param("prefs.blob")->setRaw(0, 0, toArray(blob), nullptr, context);
    CByteArray global;
    CAppData::global().readData(CString("test-blob"), global, CAppData::kTagData, true);
    EXPECT_EQ(toBytes(global), blob);
    EXPECT_EQ(raw("prefs.blob", other), blob);
    EXPECT_EQ(leftoverTempFiles(m_folder.root), 0);
}

TEST_F(SharedParams, AFreshInstanceReadsWhatWasStoredWithinTodaysRange)
{
    {
        const auto first = instantiate("prefs", m_env);
        param("prefs.release")->setValue(2.5, 0, nullptr);
    }
    // Another process: the stores forget what they read, and a new instance reads the file.
    CAppData::resetForTests();
    CAudioEnv* env = nullptr;
    CAudioParamCollector* later = addInstance(env);
    const auto again = instantiate("prefs", env);
    EXPECT_DOUBLE_EQ(value("prefs.release", 0, 0, later), 2.5);

    // The same key under a range that ends at 500 ms reads clamped, and leaves the stored
    // text as it was.
    CAudioParamCollector* narrow = addInstance(env);
    const auto narrowed = instantiate("prefsNarrow", env);
    EXPECT_DOUBLE_EQ(value("prefsNarrow.release", 0, 0, narrow), 0.5);
    EXPECT_EQ(stored(m_folder.local() + "test-release-time", CAppData::kTagString), stringPayload("2500"));
}

TEST_F(SharedParams, StoredTextThatDoesNotReadKeepsTheValue)
{
    const auto process = instantiate("prefs", m_env);
    param("prefs.release")->setValue(1.2, 0, nullptr);
    for (const char* garbage : {"", "abc", "12 ms", "--1"}) {
        SCOPED_TRACE(garbage);
        CAppData::local().setString(CString("test-release-time"), CString(garbage), nullptr);
        EXPECT_DOUBLE_EQ(value("prefs.release"), 1.2);
        EXPECT_EQ(CAppData::local().getString(CString("test-release-time"), CString("-")).toUtf8(), garbage);
    }
    // Text that reads is taken, clamped to the range.
    CAppData::local().setString(CString("test-release-time"), CString("300"), nullptr);
    EXPECT_DOUBLE_EQ(value("prefs.release"), 0.3);
    CAppData::local().setString(CString("test-release-time"), CString("-40"), nullptr);
    EXPECT_DOUBLE_EQ(value("prefs.release"), 0.0);
}

TEST_F(SharedParams, ADefinitionThatArrivesLaterReadsTheStoreThen)
{
    CAppData::group().setString(CString("test-late"), CString("0.25"), nullptr);
    m_collector->addSharedParam(CString("plugin.late.p"), &CAppData::group(), CString("test-late"));
    CAudioParam* late = param("late.p");
    EXPECT_EQ(late->info(), nullptr);

    CAttrMap attrs;
    for (const auto& [key, v] : {std::pair{"element-size", "1"}, {"converter", "real"}, {"min-values", "0"},
                                 {"max-values", "1"}, {"def-values", "0.75"}})
        attrs[CString(key)].setString(CString(v));
    CObject* made = nullptr;
    ASSERT_FALSE(m_root->createChild(made, CString("audio:param"), CString("lateDef"), false, nullptr, &attrs));
    CAudioParamUpdateContext context;
    late->attachDefinition(&dynamic_cast<CAudioParamDef*>(made)->info(), context);
    EXPECT_DOUBLE_EQ(value("late.p"), 0.25);
    EXPECT_DOUBLE_EQ(late->defaults().getElementValue(0, 0, 0, 0.0), 0.75);
    // And from now on it writes.
    late->setValue(0.5, 0, nullptr);
    EXPECT_EQ(CAppData::group().getString(CString("test-late"), CString()).toUtf8(), "0.50");
}

} // namespace
