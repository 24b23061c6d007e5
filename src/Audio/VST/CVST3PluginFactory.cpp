#include "Audio/VST/CVST3PluginFactory.h"

#include "Audio/VST/CVST3Text.h"

#include <cstring>

namespace qel {

using namespace Steinberg;

namespace {

// The 8-bit fields hold UTF-8; the wide ones take the same text as UTF-16.
void utf8ToWide(char16* out, const char8* text, int32 size)
{
    CVST3Text::toField(CString::fromUtf8(text, strnlen(text, size_t(size))), out, size);
}

} // namespace

CVST3PluginFactory::CVST3PluginFactory(const PFactoryInfo& info) : m_info(info) {}

CVST3PluginFactory::~CVST3PluginFactory() = default;

void CVST3PluginFactory::registerClass(const PClassInfo2& info, CreateFunction create)
{
    m_classes.push_back(ClassEntry{info, create});
}

const CVST3PluginFactory::ClassEntry* CVST3PluginFactory::entry(int32 index) const
{
    if (index < 0 || index >= int32(m_classes.size()))
        return nullptr;
    return &m_classes[size_t(index)];
}

tresult PLUGIN_API CVST3PluginFactory::getFactoryInfo(PFactoryInfo* info)
{
    if (!info)
        return kInvalidArgument;
    *info = m_info;
    return kResultOk;
}

int32 PLUGIN_API CVST3PluginFactory::countClasses()
{
    return int32(m_classes.size());
}

tresult PLUGIN_API CVST3PluginFactory::getClassInfo(int32 index, PClassInfo* info)
{
    const ClassEntry* e = entry(index);
    if (!info || !e)
        return kInvalidArgument;
    *info = {};
    std::memcpy(info->cid, e->info.cid, sizeof(TUID));
    info->cardinality = e->info.cardinality;
    std::memcpy(info->category, e->info.category, sizeof info->category);
    std::memcpy(info->name, e->info.name, sizeof info->name);
    return kResultOk;
}

tresult PLUGIN_API CVST3PluginFactory::getClassInfo2(int32 index, PClassInfo2* info)
{
    const ClassEntry* e = entry(index);
    if (!info || !e)
        return kInvalidArgument;
    *info = e->info;
    return kResultOk;
}

tresult PLUGIN_API CVST3PluginFactory::getClassInfoUnicode(int32 index, PClassInfoW* info)
{
    const ClassEntry* e = entry(index);
    if (!info || !e)
        return kInvalidArgument;
    const PClassInfo2& ci = e->info;
    *info = {};
    std::memcpy(info->cid, ci.cid, sizeof(TUID));
    info->cardinality = ci.cardinality;
    std::memcpy(info->category, ci.category, sizeof info->category);
    utf8ToWide(info->name, ci.name, PClassInfo::kNameSize);
    info->classFlags = ci.classFlags;
    std::memcpy(info->subCategories, ci.subCategories, sizeof info->subCategories);
    utf8ToWide(info->vendor, ci.vendor, PClassInfoW::kVendorSize);
    utf8ToWide(info->version, ci.version, PClassInfoW::kVersionSize);
    utf8ToWide(info->sdkVersion, ci.sdkVersion, PClassInfoW::kVersionSize);
    return kResultOk;
}

tresult PLUGIN_API CVST3PluginFactory::createInstance(FIDString cid, FIDString wanted, void** obj)
{
    if (!obj)
        return kInvalidArgument;
    *obj = nullptr;
    if (!cid || !wanted)
        return kInvalidArgument;
    for (const ClassEntry& e : m_classes) {
        if (std::memcmp(e.info.cid, cid, sizeof(TUID)) != 0)
            continue;
        FUnknown* instance = e.create();
        if (!instance)
            return kOutOfMemory;
        // The instance answers for itself which interfaces it has; the creation's
        // reference goes either way, so a refused interface frees it.
        const tresult result = instance->queryInterface(wanted, obj);
        instance->release();
        if (result != kResultOk)
            *obj = nullptr;
        return result == kResultOk ? kResultOk : kNoInterface;
    }
    return kNoInterface;
}

tresult PLUGIN_API CVST3PluginFactory::setHostContext(FUnknown*)
{
    return kNotImplemented;
}

tresult PLUGIN_API CVST3PluginFactory::queryInterface(const TUID wanted, void** obj)
{
    if (!obj)
        return kInvalidArgument;
    QUERY_INTERFACE(wanted, obj, FUnknown::iid, IPluginFactory3)
    QUERY_INTERFACE(wanted, obj, IPluginFactory::iid, IPluginFactory3)
    QUERY_INTERFACE(wanted, obj, IPluginFactory2::iid, IPluginFactory3)
    QUERY_INTERFACE(wanted, obj, IPluginFactory3::iid, IPluginFactory3)
    *obj = nullptr;
    return kNoInterface;
}

uint32 PLUGIN_API CVST3PluginFactory::addRef()
{
    return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint32 PLUGIN_API CVST3PluginFactory::release()
{
    const uint32 left = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0)
        delete this;
    return left;
}

} // namespace qel
