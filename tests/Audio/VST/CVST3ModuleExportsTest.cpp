// The built module shows the host its three entry points and nothing else.

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

// Symbols a sanitizer's instrumentation may leave in a module's dynamic table. They are the
// toolchain's, never ours, so they are left out of the comparison; anything else counts.
bool isSanitizerSymbol(const std::string& name)
{
    for (const char* prefix : {"__asan", "__ubsan", "__lsan", "__sanitizer", "__sancov", "__start___sancov",
                               "__stop___sancov", "__odr_asan"})
        if (name.rfind(prefix, 0) == 0)
            return true;
    return false;
}

std::set<std::string> definedDynamicSymbols(const std::string& module, bool& ok)
{
    std::set<std::string> names;
    const std::string command = "nm -D --defined-only '" + module + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    ok = pipe != nullptr;
    if (!pipe)
        return names;
    char line[1024];
    while (fgets(line, sizeof line, pipe)) {
        // "<address> <type> <name>"
        std::istringstream fields(line);
        std::string address, type, name;
        if (fields >> address >> type >> name && !isSanitizerSymbol(name))
            names.insert(name);
    }
    ok = pclose(pipe) == 0;
    return names;
}

TEST(CVST3ModuleExportsTest, OnlyTheThreeEntryPointsAreExported)
{
    bool ok = false;
    const std::set<std::string> names = definedDynamicSymbols(QEL_VST3_MODULE, ok);
    ASSERT_TRUE(ok) << "nm failed on " << QEL_VST3_MODULE;
    EXPECT_EQ(names, (std::set<std::string>{"GetPluginFactory", "ModuleEntry", "ModuleExit"}));
}

TEST(CVST3ModuleExportsTest, TheModuleSitsInTheBundleLayout)
{
    const std::string bundle = QEL_VST3_BUNDLE_DIR;
    const std::string name = "/DLC-730.vst3";
    ASSERT_GE(bundle.size(), name.size());
    EXPECT_EQ(bundle.substr(bundle.size() - name.size()), name);
    EXPECT_EQ(std::string(QEL_VST3_MODULE), bundle + "/Contents/x86_64-linux/DLC-730.so");
}

} // namespace
