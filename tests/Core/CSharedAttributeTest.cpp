#include "AppDataTestSupport.h"
#include "SharedRootFixture.h"

#include "Core/CSharedAttribute.h"
#include "Core/CStdEventBridge.h"

#include <initializer_list>
#include <thread>
#include <utility>

using namespace qel;
using namespace qel::test;

namespace {

using Attrs = std::initializer_list<std::pair<const char*, const char*>>;

// As a definition writes it: core:shared-attribute name="ui-textures" data-name=""
// storage-type="global" ui-textures="" attribute="ui-textures" def-value="true"
const Attrs kTextures = {{"data-name", ""}, {"storage-type", "global"}, {"ui-textures", ""},
                         {"attribute", "ui-textures"}, {"def-value", "true"}};

class SharedAttribute : public SharedRootFixture
{
protected:
    CErrorPtr make(CSharedAttribute*& out, CObject* parent, const char* name, Attrs attrs)
    {
        CAttrMap map;
        for (const auto& [key, value] : attrs)
            map[CString(key)].setString(CString(value));
        return parent->createChild(out, CString("core:shared-attribute"), CString(name), false, nullptr, &map);
    }

    std::string messageOf(CObject* parent, Attrs attrs)
    {
        CSharedAttribute* made = nullptr;
        CErrorPtr error = make(made, parent, "bad", attrs);
        EXPECT_EQ(made, nullptr);
        return error ? error->line(0).toUtf8() : "<no error>";
    }

    ScratchStoreFolder folder;
};

} // namespace

TEST_F(SharedAttribute, InitTakesTheStoredValueOrTheDefaultWithoutWriting)
{
    CObject* b = add(add(m_root.get(), "core:object", "a"), "core:object", "b");
    CSharedAttribute* c = nullptr;
    ASSERT_FALSE(make(c, b, "c", {{"storage-type", "local"}, {"attribute", "value"}, {"def-value", "dflt"}}));
    EXPECT_EQ(c->dataName().toUtf8(), "c");
    EXPECT_EQ(c->getAttrString(CString("value")).toUtf8(), "dflt");
    EXPECT_FALSE(std::filesystem::exists(folder.root + "Quelmar"));

    // This tree has no bridge: the store changes, the attribute waits for an update.
    c->setSharedValue(CString("on"));
    uint32_t tag = 0;
    Bytes payload;
    ASSERT_TRUE(decodeBlock(readBinaryFile(folder.local() + "c"), tag, payload));
    EXPECT_EQ(tag, makeTag("dstr"));
    EXPECT_EQ(payload, stringPayload("on"));
    EXPECT_EQ(c->getAttrString(CString("value")).toUtf8(), "dflt");
    ASSERT_FALSE(c->runEvent(CString("update")));
    EXPECT_EQ(c->getAttrString(CString("value")).toUtf8(), "on");

    // A stored value wins over the default; deleting the object stops its listening.
    CAppData::global().setString(CString("ui-textures"), CString("false"), nullptr);
    CSharedAttribute* textures = nullptr;
    ASSERT_FALSE(make(textures, m_root.get(), "ui-textures", kTextures));
    EXPECT_EQ(textures->getAttrString(CString("ui-textures")).toUtf8(), "false");
    const uint64_t key = CAppData::global().getKeyId(CString("ui-textures"));
    EXPECT_EQ(CAppData::global().listenerCount(key), 1u);
    deleteObject(textures);
    EXPECT_EQ(CAppData::global().listenerCount(key), 0u);

    EXPECT_EQ(messageOf(b, {{"storage-type", "nowhere"}, {"attribute", "value"}}),
              "Invalid storage type \"nowhere\" specified.");
    EXPECT_EQ(messageOf(b, {{"storage-type", "group"}}), "No attached attribute name specified.");
}

TEST_F(SharedAttribute, AWriteInOneInstanceReachesTheOthersOnTheirOwnThreads)
{
    CObjectPtr other;
    ASSERT_FALSE(CApplication::initRootObject(other, CString()));
    CStdEventBridge* bridges[2] = {};
    CSharedAttribute* shared[2] = {};
    CObject* roots[2] = {m_root.get(), other.get()};
    for (int i = 0; i < 2; ++i) {
        bridges[i] = dynamic_cast<CStdEventBridge*>(add(roots[i], "ui:ui-event-bridge", "ui"));
        ASSERT_NE(bridges[i], nullptr);
        ASSERT_FALSE(make(shared[i], bridges[i], "ui-textures", kTextures));
        EXPECT_EQ(shared[i]->getAttrString(CString("ui-textures")).toUtf8(), "true");
    }
    EXPECT_EQ(leftoverTempFiles(folder.root), 0);
    EXPECT_FALSE(std::filesystem::exists(folder.root + "Quelmar/ui-textures"));

    std::thread([&] { shared[0]->setSharedValue(CString("false")); }).join();
    // Nothing of either tree ran on the writing thread; each bridge holds one update.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(shared[i]->getAttrString(CString("ui-textures")).toUtf8(), "true");
        EXPECT_EQ(bridges[i]->queue().pendingCount(), 1u);
    }
    EXPECT_EQ(bridges[1]->queue().drain(), 1);
    EXPECT_EQ(shared[1]->getAttrString(CString("ui-textures")).toUtf8(), "false");
    EXPECT_EQ(shared[0]->getAttrString(CString("ui-textures")).toUtf8(), "true");
    EXPECT_EQ(bridges[0]->queue().drain(), 1);
    EXPECT_EQ(shared[0]->getAttrString(CString("ui-textures")).toUtf8(), "false");
    EXPECT_EQ(CAppData::global().getString(CString("ui-textures"), CString()).toUtf8(), "false");
}
