#include "Core/CUserFolder.h"

#include "Core/CCriticalSection.h"

#include <cerrno>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace qel {
namespace {

struct Root
{
    CCriticalSection lock{50};
    CString override;
};

Root& root()
{
    static Root s_root;
    return s_root;
}

CString homeConfigFolder()
{
    struct passwd entry;
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) != 0 || !found
        || !found->pw_dir || !*found->pw_dir)
        return CString();
    CString folder = CString::fromUtf8(found->pw_dir);
    if (folder.at(folder.length() - 1) != '/')
        folder.append('/');
    folder.append(".config/");
    return folder;
}

} // namespace

CString CUserFolder::path()
{
    {
        CLockGuard guard(root().lock);
        if (!root().override.isEmpty())
            return root().override;
    }
    return homeConfigFolder();
}

void CUserFolder::setRoot(const CString& folder)
{
    CLockGuard guard(root().lock);
    root().override = folder;
    if (!folder.isEmpty() && folder.at(folder.length() - 1) != '/')
        root().override.append('/');
}

bool CUserFolder::ensureFolder(const CString& folder)
{
    const std::string path = folder.toUtf8();
    for (size_t i = 1; i <= path.size(); ++i) {
        if (i < path.size() && path[i] != '/')
            continue;
        const std::string part = path.substr(0, i);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace qel
