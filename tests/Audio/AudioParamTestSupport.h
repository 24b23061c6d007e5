#pragma once

// What the parameter tests share: an application with the audio classes and converters in
// the shared tree, an env and a collector; definitions made in code from attribute lists;
// stored forms built by hand, little-endian, to compare saved bytes with.

#include "Audio/CAudioCreators.h"
#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CWriteSeqBuffer.h"

#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <utility>
#include <vector>

namespace qel::test {

using Attrs = std::vector<std::pair<const char*, const char*>>;
using Bytes = std::vector<uint8_t>;

struct ByteBuilder
{
    ByteBuilder& le(uint64_t v, int size)
    {
        for (int i = 0; i < size; ++i)
            bytes.push_back(uint8_t(v >> (8 * i)));
        return *this;
    }
    ByteBuilder& u32(uint32_t v) { return le(v, 4); }
    ByteBuilder& f64(double v) { return le(std::bit_cast<uint64_t>(v), 8); }
    ByteBuilder& str(const std::string& s)
    {
        u32(uint32_t(s.size()));
        bytes.insert(bytes.end(), s.begin(), s.end());
        return *this;
    }
    Bytes bytes;
};

template <class T, class... Args>
Bytes saved(const T& target, Args... args)
{
    CWriteSeqBuffer sink;
    EXPECT_FALSE(target.save(sink, args...));
    CByteArray out;
    EXPECT_FALSE(sink.toArray(out));
    return Bytes(out.data(), out.data() + out.size());
}

inline std::string firstLine(const CErrorPtr& error)
{
    return error ? error->line(0).toUtf8() : std::string();
}

// A float parameter of one value per element on the plain real converter.
inline Attrs realParam(const char* defValues, const char* min = "0", const char* max = "100")
{
    return {{"element-size", "1"}, {"converter", "real"}, {"min-values", min}, {"max-values", max}, {"def-values", defValues}};
}

class AudioParamFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows}, nullptr, CString()));
        ASSERT_FALSE(CApplication::initRootObject(m_root, CString()));
        for (const char* tag : {"real", "gain", "text"})
            ASSERT_TRUE(make(CApplication::sharedRoot(), CString("audio:cvt-").append(tag).toUtf8().c_str(), tag, {}));
        m_env = dynamic_cast<CAudioEnv*>(make(m_root.get(), "audio:audio-env", "env", {}));
        m_collector = dynamic_cast<CAudioParamCollector*>(make(m_root.get(), "audio:param-collector", "params", {{"env", "env"}}));
        ASSERT_TRUE(m_env && m_collector);
    }

    void TearDown() override
    {
        m_root.reset();
        CApplication::finalize();
    }

    CErrorPtr create(CObject*& out, CObject* parent, const char* tag, const char* name, const Attrs& attrs)
    {
        CAttrMap map;
        for (const auto& [key, value] : attrs)
            map[CString(key)].setString(CString(value));
        return parent->createChild(out, CString(tag), CString(name), false, nullptr, &map);
    }

    CObject* make(CObject* parent, const char* tag, const char* name, const Attrs& attrs)
    {
        CObject* made = nullptr;
        CErrorPtr error = create(made, parent, tag, name, attrs);
        EXPECT_FALSE(error) << (error ? error->text().toUtf8() : std::string());
        return error ? nullptr : made;
    }

    // The first line of the error making `tag` with `attrs` gives; "" when it is accepted.
    std::string initError(const char* tag, const Attrs& attrs)
    {
        CObject* made = nullptr;
        return firstLine(create(made, m_root.get(), tag, nextName().c_str(), attrs));
    }

    const CAudioParamInfo* def(const Attrs& attrs)
    {
        auto* made = dynamic_cast<CAudioParamDef*>(make(m_root.get(), "audio:param", nextName().c_str(), attrs));
        return made ? &made->info() : nullptr;
    }

    // A live parameter holding a definition of `attrs`.
    CAudioParam* param(const CString& name, const Attrs& attrs)
    {
        CAudioParam* p = m_collector->getParam(name);
        CAudioParamUpdateContext context;
        p->attachDefinition(def(attrs), context);
        return p;
    }

    // What an audio thread does at the start of a block.
    void drain()
    {
        CAudioParamQueuedChange* list = m_collector->takePendingChanges();
        CAudioParamCollector::applyPendingChanges(list);
        CAudioParamQueuedChange::freeList(list);
    }

    std::string nextName() { return CString("obj").append(CString::number(++m_made)).toUtf8(); }

    CObjectPtr m_root;
    CAudioEnv* m_env = nullptr;
    CAudioParamCollector* m_collector = nullptr;
    int m_made = 0;
};

} // namespace qel::test
