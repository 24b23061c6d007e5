#include "SharedRootFixture.h"

#include "Core/CLog.h"
#include "Core/CStdEventBridge.h"
#include "Core/CThreadId.h"

#include <string>
#include <thread>
#include <vector>

using namespace qel;
using qel::test::SharedRootFixture;

namespace {

struct Heard
{
    std::string listener;
    std::string event;
    uint32_t thread;
};

std::vector<Heard> g_heard;

// Hears events; "on-echo" fires "second" from inside its handler.
class CListener : public CObject
{
public:
    static void initClassInfo(CClassInfo& info)
    {
        CObject::initClassInfo(info);
        info.addEvent<CListener, &CListener::onData>(CString("on-data"));
        info.addEvent<CListener, &CListener::onPing>(CString("on-ping"));
        info.addEvent<CListener, &CListener::onEcho>(CString("on-echo"));
    }
    CErrorPtr onData(CAttrMap& params)
    {
        g_heard.push_back({getFullName().toUtf8(), params[CString("event-name")].toString().toUtf8(), currentThreadId()});
        return nullptr;
    }
    CErrorPtr onPing()
    {
        g_heard.push_back({getFullName().toUtf8(), "ping", currentThreadId()});
        return nullptr;
    }
    CErrorPtr onEcho(CAttrMap& params)
    {
        g_heard.push_back({getFullName().toUtf8(), params[CString("event-name")].toString().toUtf8(), currentThreadId()});
        CObject* sender = findObject(params[CString("sender")].toString());
        return sender->fireEvent(CString("second"));
    }
};

const CCreatorRow kRows[] = {creatorRow<CListener>("test:listener"), {nullptr, nullptr, nullptr}};

class CObjectEvents : public SharedRootFixture
{
protected:
    const CCreatorRow* testCreators() const override { return kRows; }

    void SetUp() override
    {
        SharedRootFixture::SetUp();
        g_heard.clear();
        CObject* made = nullptr;
        ASSERT_FALSE(m_root->addChild(made, CString("ui:ui-event-bridge"), CString("ui"), false));
        m_bridge = dynamic_cast<CStdEventBridge*>(made);
        ASSERT_NE(m_bridge, nullptr);
        m_sender = add(m_bridge, "core:object", "sender");
        m_a = add(m_bridge, "test:listener", "a");
        m_b = add(m_bridge, "test:listener", "b");
        m_outside = add(m_root.get(), "test:listener", "outside"); // no bridge above it
    }

    std::vector<std::string> names() const
    {
        std::vector<std::string> out;
        for (const Heard& h : g_heard)
            out.push_back(h.listener + ":" + h.event);
        return out;
    }

    CStdEventBridge* m_bridge = nullptr;
    CObject* m_sender = nullptr;
    CObject* m_a = nullptr;
    CObject* m_b = nullptr;
    CObject* m_outside = nullptr;
};

} // namespace

TEST_F(CObjectEvents, DirectDeliveryOnTheOwnerThreadInOrder)
{
    const CString sender = m_sender->getFullName();
    m_a->listenObject(sender, CString("changed"), CString("on-data"));
    m_b->listenObject(sender, CString("changed"), CString("on-ping"));
    m_b->listenObject(sender, CString("first"), CString("on-echo"));
    m_a->listenObject(sender, CString("second"), CString("on-data"));
    m_outside->listenObject(sender, CString("changed"), CString("on-data")); // skipped: no bridge

    ASSERT_FALSE(m_sender->fireEvent(CString("changed")));
    ASSERT_FALSE(m_sender->fireEvent(CString("unheard")));
    ASSERT_FALSE(m_sender->fireEvent(CString("first")));
    EXPECT_EQ(names(), (std::vector<std::string>{"ui.a:changed", "ui.b:ping", "ui.b:first", "ui.a:second"}));
    EXPECT_EQ(m_bridge->queue().pendingCount(), 0u);

    g_heard.clear();
    m_a->unlistenObject(sender, CString("changed"));
    ASSERT_FALSE(m_sender->fireEvent(CString("changed")));
    EXPECT_EQ(names(), (std::vector<std::string>{"ui.b:ping"}));

    // A listener that is deleted hears nothing more, and the sender may go on firing.
    g_heard.clear();
    deleteObject(m_b);
    ASSERT_FALSE(m_sender->fireEvent(CString("changed")));
    EXPECT_TRUE(g_heard.empty());
}

TEST_F(CObjectEvents, EventsFromAnotherThreadCrossTheBridge)
{
    const CString sender = m_sender->getFullName();
    m_a->listenObject(sender, CString("changed"), CString("on-data"));
    m_b->listenObject(sender, CString("changed"), CString("on-data"));
    const uint32_t owner = currentThreadId();

    std::thread([this] { EXPECT_FALSE(m_sender->fireEvent(CString("changed"))); }).join();
    EXPECT_TRUE(g_heard.empty()); // nothing runs on the firing thread
    EXPECT_EQ(m_bridge->queue().pendingCount(), 2u);
    EXPECT_EQ(m_bridge->queue().drain(), 2);
    ASSERT_EQ(g_heard.size(), 2u);
    EXPECT_EQ(g_heard[0].thread, owner);
    EXPECT_EQ(names(), (std::vector<std::string>{"ui.a:changed", "ui.b:changed"}));

    // Forced over the bridge even from the owner thread.
    g_heard.clear();
    ASSERT_FALSE(m_sender->fireEvent(CString("changed"), true));
    EXPECT_TRUE(g_heard.empty());
    EXPECT_EQ(m_bridge->queue().drain(), 2);
    EXPECT_EQ(g_heard.size(), 2u);

    // A listener that went, or whose name now means another object, gets nothing.
    g_heard.clear();
    ASSERT_FALSE(m_sender->fireEvent(CString("changed"), true));
    deleteObject(m_a);
    add(m_bridge, "test:listener", "a"); // same full name, a new id
    EXPECT_EQ(m_bridge->queue().drain(), 2);
    EXPECT_EQ(names(), (std::vector<std::string>{"ui.b:changed"}));
}

TEST_F(CObjectEvents, BridgeEventsRunEventsAndReleasingChildren)
{
    CAttrMap params;
    ASSERT_FALSE(m_a->bridgeEvent(CString("someone"), CString("on-ping"), params));
    EXPECT_TRUE(g_heard.empty());
    m_bridge->queue().drain();
    EXPECT_EQ(names(), (std::vector<std::string>{"ui.a:ping"}));

    CAttrMap none;
    EXPECT_FALSE(m_outside->bridgeEvent(CString("x"), CString("on-ping"), none)); // no bridge: nothing happens
    EXPECT_EQ(m_bridge->queue().pendingCount(), 0u);

    CErrorPtr error = m_a->runEvent(CString("no-such-event"));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->line(0).toUtf8(), "Unknown event 'no-such-event'.");

    // An object can't delete itself in its handler: it asks its parent over the bridge.
    CAttrMap release;
    ASSERT_FALSE(m_bridge->bridgeEvent(m_b->getFullName(), CString("release-child-bridged"), release));
    EXPECT_NE(m_bridge->findChild(CString("b")), nullptr);
    m_bridge->queue().drain();
    EXPECT_EQ(m_bridge->findChild(CString("b")), nullptr);

    struct Capture : ILogSink
    {
        void logText(const char* text, bool) override { lines.push_back(text); }
        std::vector<std::string> lines;
    } sink;
    ILogSink* previous = CLog::setSink(&sink);
    m_a->listenObject(m_sender->getFullName(), CString("x"), CString("on-nothing"));
    CLog::setSink(previous);
    ASSERT_EQ(sink.lines.size(), 1u);
    EXPECT_EQ(sink.lines[0], "Event handler 'on-nothing' not found in listenObject(). // ui.a");
}
