#pragma once

// A process-wide start-up for tests that need the shared tree: each test gets a fresh
// application with the core classes and the test's own, and tears it down again.

#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"

#include <gtest/gtest.h>

namespace qel::test {

class SharedRootFixture : public ::testing::Test
{
protected:
    // Rows of classes the test defines; null-terminated.
    virtual const CCreatorRow* testCreators() const { return nullptr; }
    virtual const CResourceRow* testResources() const { return nullptr; }
    virtual CString sharedDefinition() const { return CString(); }

    void SetUp() override
    {
        ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, testCreators()}, testResources(), sharedDefinition()));
        ASSERT_NE(CApplication::sharedRoot(), nullptr);
        ASSERT_FALSE(CApplication::initRootObject(m_root, CString()));
    }

    void TearDown() override
    {
        m_root.reset();
        CApplication::finalize();
        EXPECT_EQ(CApplication::liveTreeContexts(), 0);
    }

    CObject* add(CObject* parent, const char* tag, const char* name)
    {
        CObject* child = nullptr;
        EXPECT_FALSE(parent->addChild(child, CString(tag), CString(name), false));
        return child;
    }

    CObjectPtr m_root;
};

} // namespace qel::test
