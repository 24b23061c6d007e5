#include "Core/CLog.h"
#include "Core/CUserFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

// Gives the run its own user folder and removes it afterwards.
class ScratchUserFolder : public ::testing::Environment
{
public:
    void SetUp() override
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qel-test-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            std::abort();
        m_folder = pattern;
        qel::CUserFolder::setRoot(qel::CString::fromUtf8(m_folder + "/"));
        qel::CLog::setFileName(qel::CString::fromUtf8(m_folder + "/test.log"));
    }

    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

private:
    std::string m_folder;
};

} // namespace

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new ScratchUserFolder);
    return RUN_ALL_TESTS();
}
