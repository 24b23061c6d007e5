#include "SharedRootFixture.h"
#include "TestFiles.h"

#include "Core/CLog.h"
#include "Core/CResourceRegistry.h"
#include "Core/CTemplateBody.h"

#include <random>
#include <string>
#include <vector>

using namespace qel;
using qel::test::SharedRootFixture;

namespace qel {
extern const CResourceRow kTestDefinitions[];
}

namespace {

std::vector<std::string> g_setterLog;

class CRecorder : public CObject
{
public:
    static void initClassInfo(CClassInfo& info)
    {
        CObject::initClassInfo(info);
        for (const char* name : {"a", "b", "c"})
            info.addAttr(CString(name), [](CObject* o, CAttrValue& v) {
                g_setterLog.push_back(o->getFullName().toUtf8() + ":" + v.toString().toUtf8());
                return CErrorPtr();
            });
    }
};

const CCreatorRow kRows[] = {creatorRow<CRecorder>("test:recorder"), {nullptr, nullptr, nullptr}};

std::string str(const CString& s) { return s.toUtf8(); }

// The tree as text: tag, name, attributes and children, indented.
void dump(const CObject* o, std::string& out, int depth = 0)
{
    // Appended piece by piece: GCC 12 warns falsely about chains of string additions.
    out.append(size_t(depth) * 2, ' ');
    out.append(str(o->tag())).append(" ").append(str(o->name()));
    for (const auto& [name, value] : o->attrs())
        out.append(" ").append(str(name)).append("=").append(str(value.toString()));
    if (o->templateBody())
        out.append(" [template ").append(str(o->templateBody()->classTag())).append("]");
    out.append("\n");
    for (int i = 0; i < o->childCount(); ++i)
        dump(o->child(i), out, depth + 1);
}

std::string dump(const CObject* o)
{
    std::string out;
    dump(o, out);
    return out;
}

struct CaptureLog : ILogSink
{
    CaptureLog() : previous(CLog::setSink(this)) {}
    ~CaptureLog() override { CLog::setSink(previous); }
    void logText(const char* text, bool) override { lines.push_back(text); }
    ILogSink* previous;
    std::vector<std::string> lines;
};

class CObjectLoader : public SharedRootFixture
{
protected:
    const CCreatorRow* testCreators() const override { return kRows; }
    const CResourceRow* testResources() const override { return kTestDefinitions; }
    CString sharedDefinition() const override { return CString("TestShared.xml"); }

    void SetUp() override
    {
        g_setterLog.clear();
        SharedRootFixture::SetUp();
    }

    CObject* instantiate(CObject* parent, const char* tag, const char* name, const CAttrMap* instanceAttrs = nullptr,
                         const CAttrMap* attrs = nullptr)
    {
        CObject* child = nullptr;
        CErrorPtr error = parent->createChild(child, CString(tag), CString(name), true, instanceAttrs, attrs);
        EXPECT_FALSE(error) << (error ? str(error->text()) : "");
        return child;
    }
};

} // namespace

TEST_F(CObjectLoader, SharedTreeComesFromTheEmbeddedDefinition)
{
    CObject* shared = CApplication::sharedRoot();
    EXPECT_EQ(shared->state(), CObject::Complete);
    EXPECT_EQ(str(shared->getAttrString(CString("title"))), "Test shared tree");
    EXPECT_EQ(str(m_root->getAttrString(CString("title"))), "");
    CObject* project = m_root->findObject(CString("shared::project"));
    ASSERT_NE(project, nullptr);
    EXPECT_EQ(str(project->getAttrString(CString("app-full-name"))), "DLC-730 Test");

    // A pool string beyond Latin-1 is wide and still equal to the same text written narrow.
    const CString currency = m_root->findObject(CString("shared::audio"))->getAttrString(CString("currency"));
    EXPECT_TRUE(currency.isWide());
    EXPECT_TRUE(currency == CString(u"\u20ac"));

    // The templates stand as empty objects; nothing of an instance exists in the shared tree.
    CObject* plugin = shared->findChild(CString("plugin"));
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(str(plugin->tag()), "template");
    EXPECT_EQ(plugin->childCount(), 0);
    EXPECT_TRUE(plugin->templateBody()->isStatic());
    EXPECT_EQ(m_root->findTemplate(CString("plugin")), plugin);
    EXPECT_EQ(m_root->findObject(CString("shared::audio-env")), nullptr);
    EXPECT_TRUE(g_setterLog.empty());
}

TEST_F(CObjectLoader, EachInstanceGetsItsOwnPluginTree)
{
    CObject* plugin = instantiate(m_root.get(), "plugin", "plugin");
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(plugin->state(), CObject::Complete);
    EXPECT_EQ(str(plugin->getFullName()), "plugin");
    EXPECT_EQ(str(plugin->getAttrString(CString("kind"))), "instance");
    EXPECT_EQ(str(plugin->getAttrString(CString("mode"))), "plain");
    // Setters of one object run last queued first; "{/^ kind}" saw the parent's body.
    EXPECT_EQ(g_setterLog, (std::vector<std::string>{"plugin.rec:false", "plugin.rec:instance", "plugin.rec:1"}));

    CObject* env = m_root->findObject(CString("plugin.audio-env"));
    ASSERT_NE(env, nullptr);
    EXPECT_EQ(str(env->getAttrString(CString("rate"))), "44100");
    EXPECT_FALSE(env->hasAttr(CString("flag"))); // "false" on an absent attribute makes nothing
    EXPECT_EQ(str(m_root->findObject(CString("plugin.ext-param#2"))->getAttrString(CString("label"))), "Hi");
    EXPECT_EQ(str(m_root->findObject(CString("plugin.ext-param"))->getAttrString(CString("label"))), "Lo");
    CObject* content = m_root->findObject(CString("plugin.remap.content"));
    ASSERT_NE(content, nullptr);
    EXPECT_EQ(str(content->getAttrString(CString("value"))), "enable = ^bypass-enable;");

    // A second instance: its own context, the same ids, nothing shared.
    CObjectPtr second;
    ASSERT_FALSE(CApplication::initRootObject(second, CString()));
    CObject* plugin2 = instantiate(second.get(), "plugin", "plugin");
    EXPECT_NE(second->treeContext(), m_root->treeContext());
    EXPECT_EQ(plugin2->objectId(), plugin->objectId());
    EXPECT_EQ(second->findObject(CString("plugin.audio-env"))->objectId(), env->objectId());
    EXPECT_EQ(dump(second.get()), dump(m_root.get()));
    ASSERT_FALSE(env->setAttrInt(CString("rate"), 48000, true));
    EXPECT_EQ(second->findObject(CString("plugin.audio-env"))->getAttrInt(CString("rate")), 44100);
    EXPECT_EQ(CApplication::liveTreeContexts(), 2);

    // Twice in one tree: a second name and ids of its own.
    CObject* again = instantiate(m_root.get(), "plugin", "plugin");
    EXPECT_EQ(str(again->getFullName()), "plugin#1");
    EXPECT_GT(again->objectId(), m_root->findObject(CString("plugin.remap.content"))->objectId());
    EXPECT_NE(m_root->findObject(CString("plugin#1.audio-env")), env);
}

TEST_F(CObjectLoader, TemplateParametersAndInstanceAttributes)
{
    // Attributes given to createChild stand before the body is read...
    CAttrMap attrs;
    attrs[CString("mode")].setString(CString("fancy"));
    attrs[CString("cleared")].setString(CString("x"));
    // ...while instance attributes override the body afterwards.
    CAttrMap instance;
    instance[CString("kind")].setString(CString("override"));
    CObject* plugin = instantiate(m_root.get(), "plugin", "plugin", &instance, &attrs);
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(str(plugin->getAttrString(CString("mode"))), "fancy");
    EXPECT_EQ(str(plugin->getAttrString(CString("kind"))), "override");
    // "{?false}" finds the caller's value up the parents.
    EXPECT_EQ(str(m_root->findObject(CString("plugin.audio-env"))->getAttrString(CString("cleared"))), "x");

    // A template inside a template, and a template whose tag has no creator.
    CObject* knob = instantiate(plugin, "knob", "k");
    ASSERT_NE(dynamic_cast<CRecorder*>(knob), nullptr);
    EXPECT_EQ(g_setterLog.back(), "plugin.k:none");
    CaptureLog log;
    CObject* bare = instantiate(m_root.get(), "bare", "b");
    ASSERT_NE(bare, nullptr);
    EXPECT_EQ(str(bare->tag()), "bare");
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0], "Creating CObject 'b' (tag 'no:creator')");

    CObject* none = nullptr;
    CErrorPtr error = m_root->createChild(none, CString("missing"), CString("m"), true);
    ASSERT_TRUE(error);
    EXPECT_EQ(str(error->line(0)), "Run-time template 'missing' does not exist.");
    CRecorder* wrong = nullptr;
    error = m_root->createChild(wrong, CString("plugin"), CString("p2"), true);
    ASSERT_TRUE(error);
    EXPECT_EQ(str(error->line(0)), "Object of invalid class created (child tag 'plugin', child name 'p2').");
    EXPECT_EQ(m_root->findChild(CString("p2")), nullptr);
}

TEST_F(CObjectLoader, FileAndResourceGiveTheSameTree)
{
    CaptureLog log;
    CObjectPtr resourceRoot, fileRoot;
    ASSERT_FALSE(CApplication::initRootObject(resourceRoot, CString("TestShared.xml")));
    ASSERT_FALSE(CApplication::initRootObject(fileRoot, CString(QEL_TEST_SHARED_IMAGE)));
    ASSERT_FALSE(log.lines.empty());
    EXPECT_EQ(log.lines[0].rfind("loadXMLData \"TestShared.xml\" init time: ", 0), 0u) << log.lines[0];
    EXPECT_EQ(dump(resourceRoot.get()), dump(fileRoot.get()));
    CObject* fromFile = fileRoot.get();
    EXPECT_FALSE(fromFile->findChild(CString("plugin"))->templateBody()->isStatic()); // copied

    // A template from a file still reads its copied body once the load has returned, and
    // a second image keeps its own pool.
    CObject* second = nullptr;
    ASSERT_FALSE(m_root->addChild(second, CString("core:object"), CString("s"), false));
    ASSERT_FALSE(second->loadXMLData(CString("TestSecond.xml"), true));
    CObject* gadget = instantiate(second, "gadget", "g");
    EXPECT_EQ(str(gadget->findChild(CString("part"))->getAttrString(CString("owner"))), "3");
    CObject* fromFilePlugin = instantiate(fromFile, "plugin", "plugin");
    EXPECT_EQ(str(fromFilePlugin->getAttrString(CString("kind"))), "instance");

    CObject* empty = nullptr;
    ASSERT_FALSE(m_root->addChild(empty, CString("core:object"), CString("e"), false));
    ASSERT_FALSE(empty->loadXMLData(CString("TestEmpty.xml"), true));
    EXPECT_EQ(empty->state(), CObject::Complete);
    EXPECT_EQ(empty->childCount(), 0);
    EXPECT_EQ(empty->attrs().size(), 1u); // its full name only

    CErrorPtr error = empty->loadXMLData(CString("/nonexistent/image"), true);
    ASSERT_TRUE(error);
    EXPECT_EQ(str(error->line(0)), "Unable to open file '/nonexistent/image' for reading (error 2).");
}

TEST_F(CObjectLoader, DamagedImagesFailCleanly)
{
    const std::vector<uint8_t> image = qel::test::readBinaryFile(QEL_TEST_SHARED_IMAGE);
    ASSERT_GT(image.size(), 100u);
    auto load = [this](const std::vector<uint8_t>& bytes) {
        CResourceRegistry::add(CString("damaged"), bytes.data(), bytes.size());
        CObject* target = nullptr;
        EXPECT_FALSE(m_root->addChild(target, CString("core:object"), CString("target"), false));
        CErrorPtr error = target->loadXMLData(CString("damaged"), true);
        if (!error) {
            // Whatever loaded must be usable: instantiate each template it brought.
            for (int i = 0; i < target->childCount(); ++i) {
                CObject* t = target->child(i);
                CObject* made = nullptr;
                if (t->templateBody())
                    CErrorPtr ignored = target->createChild(made, t->name(), CString("made"), true);
            }
        }
        deleteObject(target);
        CResourceRegistry::remove(CString("damaged"));
        return error ? str(error->line(0)) : std::string();
    };

    for (size_t cut = 0; cut < image.size(); ++cut) {
        SCOPED_TRACE(cut);
        const std::vector<uint8_t> prefix(image.begin(), image.begin() + cut);
        EXPECT_NE(load(prefix), "");
    }
    EXPECT_EQ(load(image), "");

    std::vector<uint8_t> badOffset = image;
    badOffset[8] = 0xFF; // the first string's offset points far outside the pool
    badOffset[11] = 0x7F;
    EXPECT_EQ(load(badOffset), "Compiled definition 'damaged' is damaged: string 0 lies outside its pool.");

    std::vector<uint8_t> badIndex = image;
    const uint32_t poolSize = uint32_t(image[4]) | uint32_t(image[5]) << 8 | uint32_t(image[6]) << 16;
    const size_t root = 8 + poolSize;
    badIndex[root + 7] = 0xFF; // the root's first attribute name
    badIndex[root + 8] = 0xFF;
    EXPECT_EQ(load(badIndex).rfind("Compiled definition 'damaged' is damaged: unknown string 65535 at offset ", 0), 0u);

    std::vector<uint8_t> trailing = image;
    trailing.push_back(0);
    EXPECT_EQ(load(trailing), "Compiled definition 'damaged' is damaged: 1 bytes follow its root node.");

    std::mt19937 rng(7);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> bytes = image;
        for (int flips = 1 + int(rng() % 4); flips > 0; --flips)
            bytes[root + rng() % (bytes.size() - root)] ^= uint8_t(1 << (rng() % 8));
        load(bytes); // either loads or refuses; the sanitizers watch the rest
    }
}
