#pragma once

// What the registry tests share: a user folder of their own with fresh stores, parameters
// whose definitions stand in the shared tree under "audio.mod" (so a registry's name
// remaps find them), registries made from attribute lists, and presets written by hand
// as their streams lay them out, to compare with what the registries write.

#include "AudioParamTestSupport.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamRegistry.h"
#include "Audio/CAudioParamUndo.h"
#include "Audio/CAudioPreset.h"
#include "Audio/CAudioPresetBank.h"
#include "Audio/CAudioPresetList.h"
#include "Audio/CPresetEntry.h"
#include "Core/CAppData.h"
#include "Core/CMemoryReader.h"
#include "Core/CUserFolder.h"

#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace qel::test {

// A fresh user folder and stores that remember nothing, as a new process has them.
class ScratchStores
{
public:
    ScratchStores() : m_previous(CUserFolder::path())
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "qel-registry-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            std::abort();
        root = pattern + "/";
        CUserFolder::setRoot(CString::fromUtf8(root));
        CAppData::resetForTests();
    }
    ~ScratchStores()
    {
        CUserFolder::setRoot(m_previous);
        CAppData::resetForTests();
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    ScratchStores(const ScratchStores&) = delete;
    ScratchStores& operator=(const ScratchStores&) = delete;

    std::string root;

private:
    CString m_previous;
};

// One entry's blob as CAudioParam::save lays it out, for a float parameter of one value
// per element: the definition's name, storage version 1, element size 1, type float, the
// groups and their lists.
inline Bytes floatBlob(const std::string& definition, const std::vector<std::vector<double>>& groups)
{
    ByteBuilder b;
    b.str(definition).u32(1).u32(1).u32(0).u32(uint32_t(groups.size()));
    for (const auto& values : groups) {
        b.u32(uint32_t(values.size()));
        for (double v : values)
            b.f64(v);
    }
    return b.bytes;
}

// A string parameter's blob with one group: the item table (count, then id, type 1 and
// the text per item), then the element count and the ids.
inline Bytes stringBlob(const std::string& definition, const std::vector<std::string>& texts)
{
    ByteBuilder b;
    b.str(definition).u32(1).u32(1).u32(1).u32(1);
    b.u32(uint32_t(texts.size()));
    for (size_t i = 0; i < texts.size(); ++i)
        b.u32(uint32_t(i + 1)).u32(1).str(texts[i]);
    b.u32(uint32_t(texts.size()));
    for (size_t i = 0; i < texts.size(); ++i)
        b.u32(uint32_t(i + 1));
    return b.bytes;
}

// A preset's stream: the name, the count and the entries in the order given (the writer
// sorts them; a reader takes any order).
inline Bytes presetStream(const std::string& name, const std::vector<std::pair<std::string, Bytes>>& entries)
{
    ByteBuilder b;
    b.str(name).u32(uint32_t(entries.size()));
    for (const auto& [key, blob] : entries) {
        b.str(key).u32(uint32_t(blob.size()));
        b.bytes.insert(b.bytes.end(), blob.begin(), blob.end());
    }
    return b.bytes;
}

inline CAudioPreset presetOf(const Bytes& stream)
{
    CAudioPreset preset;
    EXPECT_FALSE(preset.fromBytes(stream.data(), stream.size()));
    return preset;
}

inline Bytes bytesOf(const CWriteSeqBuffer& sink)
{
    CByteArray out;
    EXPECT_FALSE(sink.toArray(out));
    return Bytes(out.data(), out.data() + out.size());
}

inline Bytes acquired(CAudioParamRegistry& registry, bool isFactory = false, int32_t index = -1, int32_t group = -1)
{
    CWriteSeqBuffer sink;
    CErrorPtr error = registry.acquirePreset(isFactory, index, group, sink);
    EXPECT_FALSE(error) << firstLine(error);
    return bytesOf(sink);
}

inline CErrorPtr activate(CAudioParamRegistry& registry, const Bytes& stream, bool includePersistent = false,
                          int32_t group = -1, const void* source = nullptr)
{
    CMemoryReader in(stream.data(), stream.size());
    return registry.activatePreset(in, includePersistent, group, source);
}

// The float values an entry holds in `group`, read back through the storage's own reader.
inline std::vector<double> entryValues(const CPresetEntry& entry, int32_t group = 0)
{
    CAudioParamStorage values;
    values.setFormat(1, CAudioParamStorage::Float, false, false);
    CString definition;
    EXPECT_FALSE(entry.parse(definition, values));
    std::vector<double> out;
    for (int32_t e = 0; e < values.elementCount(group); ++e)
        out.push_back(values.getElementValue(group, e, 0, 0.0));
    return out;
}

inline std::vector<double> listOf(CAudioParam& param, int32_t group)
{
    CLockGuard guard(param.lock());
    std::vector<double> out;
    for (int32_t e = 0; e < param.values().elementCount(group); ++e)
        out.push_back(param.values().getElementValue(group, e, 0, 0.0));
    return out;
}

inline double valueOf(CAudioParam& param, int32_t group = 0, int32_t element = 0)
{
    CLockGuard guard(param.lock());
    return param.values().getElementValue(group, element, 0, std::numeric_limits<double>::quiet_NaN());
}

// Counts the registry's update notifications and keeps the last source.
class UpdateCounter : public CUpdateListener
{
public:
    void onUpdate(const CUpdateMessage* message) override
    {
        ++count;
        const auto* update = static_cast<const CAudioParamRegistryUpdateMessage*>(message);
        lastSource = update->requestSource;
    }
    int count = 0;
    const void* lastSource = nullptr;
};

} // namespace qel::test
