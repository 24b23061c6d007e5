#include "SharedRootFixture.h"

#include "Core/CAttrDoubler.h"
#include "Core/CLog.h"
#include "Core/CObject.h"

#include <string>
#include <vector>

using namespace qel;
using qel::test::SharedRootFixture;

namespace {

// Records the order in which its setters run; "fail" refuses its value.
class CRecorder : public CObject
{
public:
    static void initClassInfo(CClassInfo& info)
    {
        CObject::initClassInfo(info);
        info.addAttr(CString("a"), [](CObject* o, CAttrValue& v) { return static_cast<CRecorder*>(o)->note("a", v); });
        info.addAttr(CString("b"), [](CObject* o, CAttrValue& v) { return static_cast<CRecorder*>(o)->note("b", v); });
        info.addAttr(CString("c"), [](CObject* o, CAttrValue& v) { return static_cast<CRecorder*>(o)->note("c", v); });
        info.addAttr(CString("fail"), [](CObject* o, CAttrValue&) {
            return QEL_ERROR(o->getFullName(), "@qelstr_Test_fail Refused.");
        });
    }
    CErrorPtr note(const char* name, CAttrValue& value)
    {
        log.push_back(std::string(name) + "=" + value.toString().toUtf8());
        return nullptr;
    }
    std::vector<std::string> log;
};

const CCreatorRow kRows[] = {creatorRow<CRecorder>("test:recorder"), {nullptr, nullptr, nullptr}};

std::string str(const CString& s) { return s.toUtf8(); }

class CObjectTree : public SharedRootFixture
{
protected:
    const CCreatorRow* testCreators() const override { return kRows; }

    std::string expand(CObject* o, const char* name, const char* text)
    {
        EXPECT_FALSE(o->setAttrText(CString(name), CString(text), true));
        return str(o->getAttrString(CString(name)));
    }
};

} // namespace

TEST_F(CObjectTree, ChildNamesIndicesAndFullNames)
{
    CObject* plugin = add(m_root.get(), "core:object", "plugin");
    CObject* items[3];
    for (auto& item : items)
        item = add(plugin, "core:object", "item");
    EXPECT_EQ(str(items[0]->getFullName()), "plugin.item");
    EXPECT_EQ(str(items[1]->getFullName()), "plugin.item#1");
    EXPECT_EQ(str(items[2]->getFullName()), "plugin.item#2");
    EXPECT_EQ(str(items[2]->name()), "item#2");

    EXPECT_EQ(plugin->findChild(CString("item")), items[0]);
    EXPECT_EQ(plugin->findChild(CString("item#2")), items[2]);
    EXPECT_EQ(plugin->findChild(CString("item#-0")), items[2]);
    EXPECT_EQ(plugin->findChild(CString("item#-1")), items[1]);
    EXPECT_EQ(plugin->findChild(CString("item#+1")), items[1]);
    EXPECT_EQ(plugin->findChild(CString("item#+5")), nullptr);
    EXPECT_EQ(plugin->findChild(CString("item#7")), nullptr);
    EXPECT_EQ(plugin->findChild(CString("item#x")), nullptr);
    EXPECT_EQ(plugin->findChild(CString("other")), nullptr);

    CObject* eight = add(plugin, "core:object", "item#8");
    CObject* taken = add(plugin, "core:object", "item#1"); // taken: largest + 1
    EXPECT_EQ(str(eight->name()), "item#8");
    EXPECT_EQ(str(taken->name()), "item#9");

    // Ids are unique in the tree; the root took 0.
    EXPECT_EQ(m_root->objectId(), 0);
    EXPECT_EQ(plugin->objectId(), 1);
    EXPECT_EQ(items[2]->objectId(), 4);
    EXPECT_EQ(CApplication::sharedRoot()->objectId(), -1);

    deleteObject(items[1]);
    EXPECT_EQ(plugin->findChild(CString("item#1")), nullptr);
    EXPECT_EQ(plugin->findChild(CString("item#+1")), items[2]);
    EXPECT_EQ(plugin->childCount(), 4);
}

TEST_F(CObjectTree, EveryPathForm)
{
    CObject* plugin = add(m_root.get(), "core:object", "plugin");
    CObject* env = add(plugin, "core:object", "audio-env");
    CObject* main = add(plugin, "core:object", "modMain");
    CObject* flt = add(main, "core:object", "flt1");
    CObject* item = add(flt, "core:object", "item");
    CObject* hp = add(main, "core:object", "hp1");
    CObject* sharedAudio = add(CApplication::sharedRoot(), "core:object", "audio");
    CObject* firlp = add(add(sharedAudio, "core:object", "flt"), "core:object", "firlp");

    EXPECT_EQ(main->findObject(CString("^audio-env")), env);
    EXPECT_EQ(item->findObject(CString("^^hp1")), hp);
    EXPECT_EQ(main->findObject(CString(".flt1")), flt);
    EXPECT_EQ(main->findObject(CString("^")), plugin);
    EXPECT_EQ(item->findObject(CString("plugin.modMain.hp1")), hp);
    EXPECT_EQ(item->findObject(CString("shared::audio.flt.firlp")), firlp);
    EXPECT_EQ(item->findObject(CString("..^.^")), main); // empty segments are skipped
    EXPECT_EQ(m_root->findObject(CString("^")), nullptr);
    EXPECT_EQ(main->findObject(CString("")), nullptr);
    EXPECT_EQ(main->findObject(CString("plugin.nothing.hp1")), nullptr);
    EXPECT_EQ(firlp->findObject(CString("audio.flt")), sharedAudio->findChild(CString("flt")));

    EXPECT_EQ(str(main->makeAbsolutePath(CString(".flt1.x.y"))), "plugin.modMain.flt1.x.y");
    EXPECT_EQ(str(main->makeAbsolutePath(CString("^hp1"))), "plugin.hp1"); // a sibling that is not there
    EXPECT_EQ(str(flt->makeAbsolutePath(CString("^hp1"))), "plugin.modMain.hp1");

    CObject* found = nullptr;
    CErrorPtr error = main->findObjectChecked(found, CString("plugin.x"));
    ASSERT_TRUE(error);
    EXPECT_EQ(str(error->line(0)), "Unable to find object 'plugin.x' ('plugin.x')");
    CAttrDoubler* wrongType = nullptr;
    error = main->findObjectChecked(wrongType, CString("^audio-env"));
    ASSERT_TRUE(error);
    EXPECT_EQ(str(error->line(0)), "Incompatible type of object '^audio-env' ('plugin.audio-env')");

    ASSERT_FALSE(main->setAttrString(CString("env"), CString("^audio-env"), false));
    EXPECT_FALSE(main->findObjectByAttr(found, CString("env")));
    EXPECT_EQ(found, env);
    error = main->findObjectByAttr(found, CString("missing"));
    EXPECT_EQ(str(error->line(0)), "Object name attribute 'missing' cannot be empty.");
}

TEST_F(CObjectTree, ShortcutsRedirectAndChainsEnd)
{
    CObject* real = add(add(m_root.get(), "core:object", "a"), "core:object", "real");
    CObject* leaf = add(real, "core:object", "leaf");
    CObject* shortcuts = add(m_root.get(), "core:shortcut", "links");
    CObject* link = add(shortcuts, "core:object", "to-real");
    ASSERT_FALSE(link->setAttrString(CString("target"), CString("^^a.real"), false));
    EXPECT_TRUE(link->isShortcut());
    EXPECT_EQ(m_root->findObject(CString("links.to-real.leaf")), leaf);
    EXPECT_EQ(m_root->findObject(CString("links.to-real")), real);

    // A loop of shortcuts ends after ten redirections instead of hanging.
    CObject* loop = add(shortcuts, "core:object", "loop");
    ASSERT_FALSE(loop->setAttrString(CString("target"), CString("^loop"), false));
    EXPECT_EQ(m_root->findObject(CString("links.loop.leaf")), nullptr);
}

TEST_F(CObjectTree, AttributeMacros)
{
    CObject* parent = add(m_root.get(), "core:object", "parent");
    CObject* o = add(parent, "core:object", "o");
    ASSERT_FALSE(parent->setAttrString(CString("title"), CString("Main"), false));
    ASSERT_FALSE(parent->setAttrString(CString("flag"), CString("true"), false));
    ASSERT_FALSE(o->setAttrString(CString("x1"), CString("deep"), false));
    ASSERT_FALSE(o->setAttrString(CString("raw"), CString("{x1}"), false)); // stored unexpanded
    ASSERT_FALSE(add(CApplication::sharedRoot(), "core:object", "project")->setAttrString(CString("app"), CString("DLC"), false));

    EXPECT_EQ(expand(o, "t1", "{"), "{");
    EXPECT_EQ(expand(o, "t2", "{x"), "{x");
    EXPECT_EQ(expand(o, "t3", "{?}"), "");
    EXPECT_EQ(expand(o, "t4", "a{title}c{nothing?d}"), "aMainc" "d");
    EXPECT_EQ(expand(o, "t5", "{x{one?1}}"), "deep");            // inner macro first
    EXPECT_EQ(expand(o, "t6", "<{raw}>"), "<deep>");             // an expansion with a macro is expanded again
    EXPECT_EQ(expand(o, "flag", "{?false}"), "true");            // same name, from the parent up
    EXPECT_EQ(expand(o, "other", "{?-1}"), "-1");
    EXPECT_EQ(expand(o, "t7", "{@title?own only}"), "own only");
    EXPECT_EQ(expand(o, "t8", "{/^ title?Untitled}"), "Main");
    EXPECT_EQ(expand(o, "t9", "{/^.nobody title?Untitled}"), "Untitled");
    EXPECT_EQ(expand(o, "t10", "{/shared::project app}"), "DLC");
    EXPECT_EQ(expand(o, "t11", "{full-name}.main"), "parent.o.main");
    EXPECT_EQ(expand(o, "t12", "{/^?none}"), "none"); // the parent has no t12
    // A value that names itself ends instead of expanding forever.
    ASSERT_FALSE(o->setAttrString(CString("self"), CString("{self}"), false));
    EXPECT_EQ(expand(o, "t13", "{self}"), "{self}");
}

TEST_F(CObjectTree, BindingsFollowTheirSource)
{
    CObject* style = add(m_root.get(), "core:object", "style");
    CObject* panel = add(m_root.get(), "core:object", "panel");
    CObject* view = add(panel, "core:object", "view");
    ASSERT_FALSE(style->setAttrString(CString("is-shadow-hidden"), CString("true"), false));
    EXPECT_EQ(expand(view, "shadow", "{*/style is-shadow-hidden}"), "true");
    EXPECT_EQ(expand(view, "tone", "{*style tone}"), ""); // found by name among ancestors' children; absent now
    ASSERT_FALSE(style->setAttrString(CString("is-shadow-hidden"), CString("false"), true));
    EXPECT_EQ(str(view->getAttrString(CString("shadow"))), "false");
    ASSERT_FALSE(style->setAttrInt(CString("tone"), 7, true));
    EXPECT_EQ(view->getAttrInt(CString("tone")), 7);

    EXPECT_EQ(expand(view, "one-word", "{*style}"), "");
    EXPECT_EQ(expand(view, "self", "{*/panel.view x}"), "");
    ASSERT_FALSE(style->setAttrString(CString("scheme"), CString("dark"), false));
    EXPECT_EQ(expand(view, "scheme", "{*/style scheme}"), ""); // bound, but never read at binding time
    ASSERT_FALSE(style->setAttrString(CString("scheme"), CString("light"), true));
    EXPECT_EQ(str(view->getAttrString(CString("scheme"))), "light");

    // A deleted listener is unbound: its source may change afterwards.
    deleteObject(panel);
    EXPECT_FALSE(style->setAttrString(CString("is-shadow-hidden"), CString("true"), true));
}

TEST_F(CObjectTree, SettersRunLastQueuedFirstAndStopAtAFailure)
{
    CObject* made = nullptr;
    ASSERT_FALSE(m_root->addChild(made, CString("test:recorder"), CString("r"), false));
    auto* r = dynamic_cast<CRecorder*>(made);
    ASSERT_NE(r, nullptr);
    ASSERT_FALSE(r->setAttrText(CString("a"), CString("1"), false));
    ASSERT_FALSE(r->setAttrText(CString("b"), CString("2"), false));
    ASSERT_FALSE(r->setAttrText(CString("c"), CString("3"), false));
    ASSERT_FALSE(r->setAttrText(CString("a"), CString("4"), false)); // queued once, new value
    ASSERT_FALSE(r->setAttrText(CString("unknown"), CString("5"), false));
    EXPECT_TRUE(r->log.empty());
    ASSERT_FALSE(r->flushPendingAttrs());
    EXPECT_EQ(r->log, (std::vector<std::string>{"c=3", "b=2", "a=4"}));

    r->log.clear();
    ASSERT_FALSE(r->setAttrText(CString("a"), CString("x"), false));
    ASSERT_FALSE(r->setAttrText(CString("fail"), CString("1"), false));
    ASSERT_FALSE(r->setAttrText(CString("c"), CString("y"), false));
    CErrorPtr error = r->flushPendingAttrs();
    ASSERT_TRUE(error);
    EXPECT_EQ(str(error->line(0)), "Refused.");
    EXPECT_EQ(r->log, (std::vector<std::string>{"c=y"})); // "a" stays unapplied
    ASSERT_FALSE(r->setAttrText(CString("a"), CString("z"), true));
    EXPECT_EQ(r->log.back(), "a=z");
}

TEST_F(CObjectTree, AttrDoublerCopiesValueToTargetsInOrder)
{
    CObject* parent = add(m_root.get(), "core:object", "parent");
    CObject* holder = add(parent, "core:object", "holder");
    CObject* doubler = nullptr;
    CAttrMap attrs;
    attrs[CString("target")].setString(CString("^^  ^"));
    attrs[CString("attr")].setString(CString("scroller-height"));
    ASSERT_FALSE(holder->createChild(doubler, CString("core:attr-doubler"), CString("doubler"), false, nullptr, &attrs));
    ASSERT_FALSE(doubler->setAttrInt(CString("value"), 42, true));
    EXPECT_EQ(parent->getAttrInt(CString("scroller-height")), 42);
    EXPECT_EQ(holder->getAttrInt(CString("scroller-height")), 42);

    attrs[CString("target")].setString(CString("^ ^nowhere"));
    CErrorPtr error = holder->createChild(doubler, CString("core:attr-doubler"), CString("broken"), false, nullptr, &attrs);
    ASSERT_TRUE(error);
    EXPECT_EQ(str(error->line(0)), "Target object '^nowhere' not found.");
    EXPECT_EQ(holder->findChild(CString("broken")), nullptr); // the failed child is gone
    attrs[CString("target")].setString(CString(" "));
    error = holder->createChild(doubler, CString("core:attr-doubler"), CString("empty"), false, nullptr, &attrs);
    EXPECT_EQ(str(error->line(0)), "No target objects specified.");
}

TEST(CObjectWithoutSharedTree, BecomesReadOnlyAfterInitChilds)
{
    CObject root;
    root.makeRoot(nullptr);
    ASSERT_FALSE(root.init());
    ASSERT_FALSE(root.applyAttrs());
    ASSERT_FALSE(root.initChilds());
    EXPECT_TRUE(root.isReadOnly());
    EXPECT_FALSE(root.setAttrInt(CString("x"), 1, true));
    EXPECT_FALSE(root.hasAttr(CString("x")));
    CObject* child = nullptr;
    CErrorPtr error = root.addChild(child, CString("core:object"), CString("c"), false);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->line(0).toUtf8(), "Error adding child to read-only object.");
}
