// A plug-in-like module for the start-up tests: it embeds a definition, starts the
// framework from a static initialiser while it is loaded and finalises it on the way out,
// exactly as the product's module does, and exports a few calls for the test to drive it.

#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CModuleLifetime.h"
#include "Core/CUserFolder.h"

#include <cstring>
#include <string>

namespace qel {
extern const CResourceRow kTestModuleResources[];
}

using namespace qel;

namespace {

// Declared first, so it runs first: the module's log goes beside the module, not into the
// home folder of whoever runs the tests.
struct UserFolderBesideModule
{
    UserFolderBesideModule() { CUserFolder::setRoot(CApplication::moduleFolder() + CString("module-home/")); }
} s_userFolder;

CModuleLifetime s_lifetime({kCoreCreatorRows}, kTestModuleResources, "SharedData.xml");

CObjectPtr s_held;

void describe(const CObject* o, std::string& out)
{
    out += o->getFullName().toUtf8() + "#" + std::to_string(o->objectId()) + "\n";
    for (int i = 0; i < o->childCount(); ++i)
        describe(o->child(i), out);
}

int copyOut(const std::string& text, char* out, int size)
{
    if (size <= 0)
        return -1;
    const size_t n = std::min(text.size(), size_t(size - 1));
    std::memcpy(out, text.data(), n);
    out[n] = 0;
    return int(n);
}

CErrorPtr makeInstance(CObjectPtr& root)
{
    QEL_RETURN_IF_ERROR(CApplication::initRootObject(root, CString()), CString());
    CObject* audio = nullptr;
    QEL_RETURN_IF_ERROR(root->findObjectChecked(audio, CString("shared::audio")), CString());
    CObject* plugin = nullptr;
    QEL_RETURN_IF_ERROR(root->createChild(plugin, audio->getAttrString(CString("plugin-tag")), CString("plugin"), true),
                        CString());
    return nullptr;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) bool ModuleEntry(void*) { return s_lifetime.enter(); }
__attribute__((visibility("default"))) bool ModuleExit() { return s_lifetime.exit(); }

// Builds an instance tree the way the audio wrapper does and lists it ("full-name#id"
// a line); -1 with the error text on failure.
__attribute__((visibility("default"))) int qelTestModuleInstance(char* out, int size)
{
    CObjectPtr root;
    if (CErrorPtr error = makeInstance(root))
        return copyOut(error->text().toUtf8(), out, size), -1;
    std::string text;
    describe(root.get(), text);
    return copyOut(text, out, size);
}

// Keeps an instance alive (hold != 0) or lets it go.
__attribute__((visibility("default"))) bool qelTestModuleHold(int hold)
{
    if (!hold) {
        s_held.reset();
        return true;
    }
    return !makeInstance(s_held);
}

__attribute__((visibility("default"))) int qelTestModuleFile(char* out, int size)
{
    return copyOut(CApplication::moduleFileName().toUtf8(), out, size);
}

} // extern "C"
