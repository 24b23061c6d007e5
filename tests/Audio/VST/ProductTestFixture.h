#pragma once

// The framework started as the plug-in module starts it: the core and audio classes and the
// product's own definition, so the binding meets the product's project settings,
// parameters and graph. Each test gets a fresh start and tears it down again.

#include "Audio/CAudioCreators.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Definitions/ProductResources.h"

#include <gtest/gtest.h>

namespace qel::test {

class ProductTestFixture : public ::testing::Test
{
protected:
    // Another definition in place of the product's, for settings the product lacks.
    virtual const CResourceRow* resources() const { return kProductResourceRows; }
    virtual CString sharedDefinition() const { return CString("SharedData.xml"); }

    void SetUp() override
    {
        ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, resources(), sharedDefinition()));
        ASSERT_NE(CApplication::sharedRoot(), nullptr);
    }

    void TearDown() override
    {
        CApplication::finalize();
        EXPECT_EQ(CApplication::liveTreeContexts(), 0);
    }
};

} // namespace qel::test
