#include "Core/CUserFolder.h"

#include "TestFiles.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <filesystem>
#include <string>

namespace {

// The module as a host sees it: loaded, entered, used, exited, unloaded.
class LoadedModule
{
public:
    LoadedModule() : m_handle(dlopen(QEL_TEST_MODULE, RTLD_NOW | RTLD_LOCAL)) {}
    ~LoadedModule() { unload(); }
    void unload()
    {
        if (m_handle)
            dlclose(m_handle);
        m_handle = nullptr;
    }
    bool loaded() const { return m_handle != nullptr; }
    template <class F>
    F* symbol(const char* name) const
    {
        return reinterpret_cast<F*>(dlsym(m_handle, name));
    }
    std::string call(const char* name) const
    {
        char buffer[8192];
        const int n = symbol<int(char*, int)>(name)(buffer, sizeof buffer);
        return n < 0 ? "error: " + std::string(buffer) : std::string(buffer);
    }

private:
    void* m_handle;
};

const std::string kLog = std::filesystem::path(QEL_TEST_MODULE).parent_path().string()
                         + "/module-home/Quelmar/DLC-730.log";

} // namespace

TEST(CModuleLifetime, StartsAtLoadBuildsInstancesAndFinalizesAtTheLastExit)
{
    LoadedModule module;
    ASSERT_TRUE(module.loaded()) << dlerror();
    // Only the module's entry points are visible.
    EXPECT_EQ(module.symbol<void()>("_ZN3qel12CApplication7startupESt16initializer_listIPKNS_11CCreatorRowEEPKNS_11CResourceRowERKNS_7CStringE"), nullptr);
    ASSERT_TRUE(module.symbol<bool(void*)>("ModuleEntry")(nullptr));

    EXPECT_EQ(module.call("qelTestModuleFile"), std::filesystem::canonical(QEL_TEST_MODULE).string());
    const std::string tree = module.call("qelTestModuleInstance");
    EXPECT_EQ(tree, "#0\nplugin#1\nplugin.audio-env#2\nplugin.param-collector#3\nplugin.ext-param-list#4\n"
                    "plugin.ext-param-list.ext-param#5\nplugin.ext-param-list.ext-param#1#6\n");

    std::string log = qel::test::readTextFile(kLog);
    EXPECT_EQ(log.rfind("Initializing application...\r\nloadXMLData \"SharedData.xml\" init time: ", 0), 0u) << log;
    EXPECT_EQ(log.find("Finalizing"), std::string::npos);

    // A host that exits while an instance still lives: finalising waits for the unload.
    ASSERT_TRUE(module.symbol<bool(int)>("qelTestModuleHold")(1));
    ASSERT_TRUE(module.symbol<bool()>("ModuleExit")());
    EXPECT_EQ(qel::test::readTextFile(kLog).find("Finalizing"), std::string::npos);
    ASSERT_TRUE(module.symbol<bool(int)>("qelTestModuleHold")(0));
    module.unload();
    log = qel::test::readTextFile(kLog);
    EXPECT_NE(log.find("\r\nFinalizing application...\r\n"), std::string::npos) << log;

    // Loaded again, the module starts afresh (and empties its log); this time the last
    // exit finalises at once.
    LoadedModule again;
    ASSERT_TRUE(again.loaded());
    ASSERT_TRUE(again.symbol<bool(void*)>("ModuleEntry")(nullptr));
    ASSERT_TRUE(again.symbol<bool(void*)>("ModuleEntry")(nullptr));
    EXPECT_EQ(again.call("qelTestModuleInstance").rfind("#0\nplugin#1\n", 0), 0u);
    ASSERT_TRUE(again.symbol<bool()>("ModuleExit")());
    EXPECT_EQ(qel::test::readTextFile(kLog).find("Finalizing"), std::string::npos);
    ASSERT_TRUE(again.symbol<bool()>("ModuleExit")());
    EXPECT_NE(qel::test::readTextFile(kLog).find("Finalizing application..."), std::string::npos);
}
