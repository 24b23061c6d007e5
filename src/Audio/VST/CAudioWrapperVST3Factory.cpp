#include "Audio/VST/CAudioWrapperVST3Factory.h"

#include "Audio/VST/CAudioWrapperVST3.h"
#include "Core/CApplication.h"
#include "Core/CObject.h"

#include <cstring>
#include <mutex>

namespace qel {

using namespace Steinberg;

namespace {

// Where each pair of digits of the UUID text goes in the class id: the first three fields
// are stored little-endian, the rest as written.
constexpr int kPairToByte[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
// Positions of the first digit of each pair.
constexpr int kPairPosition[16] = {0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};

int hexValue(char16_t c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// UTF-8 into a fixed field, cut at a character boundary so that the terminator fits.
void copyField(char8* out, size_t size, const CString& text)
{
    size_t used = 0;
    text.encodeUtf8(0, out, size - 1, used);
    out[used] = 0;
}

CString projectText(const CObject& project, const char* name)
{
    return project.getAttrString(CString(name));
}

// The process's single factory; it forgets itself when the host lets go of it.
class CProcessFactory : public CVST3PluginFactory
{
public:
    using CVST3PluginFactory::CVST3PluginFactory;
    ~CProcessFactory() override;
};

std::mutex s_factoryLock;
CProcessFactory* s_factory = nullptr;

CProcessFactory::~CProcessFactory()
{
    std::lock_guard<std::mutex> guard(s_factoryLock);
    if (s_factory == this)
        s_factory = nullptr;
}

} // namespace

bool CAudioWrapperVST3Factory::parseClassId(const CString& text, TUID out)
{
    if (text.length() < 36)
        return false;
    TUID id = {};
    for (int pair = 0; pair < 16; ++pair) {
        const int high = hexValue(text.at(kPairPosition[pair]));
        const int low = hexValue(text.at(kPairPosition[pair] + 1));
        if (high < 0 || low < 0)
            return false;
        id[kPairToByte[pair]] = static_cast<char8>((high << 4) | low);
    }
    std::memcpy(out, id, sizeof(TUID));
    return true;
}

void CAudioWrapperVST3Factory::fillFactoryInfo(const CObject& project, PFactoryInfo& out)
{
    out = PFactoryInfo();
    copyField(out.vendor, sizeof out.vendor, projectText(project, "app-vendor"));
    copyField(out.url, sizeof out.url, projectText(project, "app-vendor-url"));
    copyField(out.email, sizeof out.email, projectText(project, "app-vendor-email"));
    out.flags = PFactoryInfo::kUnicode;
}

void CAudioWrapperVST3Factory::fillClassInfo(const CObject& project, const TUID cid, PClassInfo2& out)
{
    out = PClassInfo2();
    std::memcpy(out.cid, cid, sizeof(TUID));
    out.cardinality = PClassInfo::kManyInstances;
    copyField(out.category, sizeof out.category, CString(kCategory));
    copyField(out.name, sizeof out.name, projectText(project, "app-name"));
    out.classFlags = 0;
    copyField(out.subCategories, sizeof out.subCategories, projectText(project, "plugin-category-vst3"));
    out.vendor[0] = 0;
    copyField(out.version, sizeof out.version, projectText(project, "app-version"));
    copyField(out.sdkVersion, sizeof out.sdkVersion, CString(kSdkVersion));
}

bool CAudioWrapperVST3Factory::describe(const CObject& project, PFactoryInfo& factoryInfo, PClassInfo2& classInfo)
{
    TUID cid = {};
    if (!parseClassId(projectText(project, "plugin-uuid"), cid))
        return false;
    fillFactoryInfo(project, factoryInfo);
    fillClassInfo(project, cid, classInfo);
    return true;
}

CVST3PluginFactory* CAudioWrapperVST3Factory::make(const CObject& project, CVST3PluginFactory::CreateFunction create)
{
    PFactoryInfo factoryInfo;
    PClassInfo2 classInfo;
    if (!describe(project, factoryInfo, classInfo))
        return nullptr;
    auto* factory = new CVST3PluginFactory(factoryInfo);
    factory->registerClass(classInfo, create);
    return factory;
}

IPluginFactory* CAudioWrapperVST3Factory::get()
{
    std::lock_guard<std::mutex> guard(s_factoryLock);
    if (s_factory) {
        s_factory->addRef();
        return s_factory;
    }
    CObject* shared = CApplication::sharedRoot();
    CObject* project = shared ? shared->findObject(CString("project")) : nullptr;
    PFactoryInfo factoryInfo;
    PClassInfo2 classInfo;
    if (!project || !describe(*project, factoryInfo, classInfo))
        return nullptr;
    s_factory = new CProcessFactory(factoryInfo);
    s_factory->registerClass(classInfo, &CAudioWrapperVST3::create);
    return s_factory;
}

} // namespace qel
