#include "Audio/VST/CAudioWrapperVST3Factory.h"

#include "Audio/VST/CAudioWrapperVST3.h"
#include "ProductTestFixture.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace qel {
namespace {

using namespace Steinberg;

using Bytes = std::array<uint8_t, 16>;

Bytes bytesOf(const TUID id)
{
    Bytes out;
    std::memcpy(out.data(), id, 16);
    return out;
}

// The made-up example written out by hand: the first group byte-reversed, the next two
// swapped within themselves, the rest as they stand.
const char* const kExample = "a1b2c3d4-e5f6-4a7b-8c9d-0e1f2a3b4c5d";
const Bytes kExampleBytes = {0xd4, 0xc3, 0xb2, 0xa1, 0xf6, 0xe5, 0x7b, 0x4a,
                             0x8c, 0x9d, 0x0e, 0x1f, 0x2a, 0x3b, 0x4c, 0x5d};

// The product's own plugin-uuid, 5e1f7a3c-9b24-4d8e-a6c1-73d0b2e94f18, in the same way.
const Bytes kProductClassId = {0x3c, 0x7a, 0x1f, 0x5e, 0x24, 0x9b, 0x8e, 0x4d,
                               0xa6, 0xc1, 0x73, 0xd0, 0xb2, 0xe9, 0x4f, 0x18};

TEST(CAudioWrapperVST3FactoryTest, ClassIdTakesItsBytesInTheFixedOrder)
{
    // Either case; the separators are not looked at, nor anything behind the 36th character.
    for (const char* text :
         {kExample, "A1B2C3D4-E5F6-4A7B-8C9D-0E1F2A3B4C5D", "a1b2c3d4xe5f6_4a7b 8c9d!0e1f2a3b4c5d and more"}) {
        TUID id = {};
        ASSERT_TRUE(CAudioWrapperVST3Factory::parseClassId(CString(text), id)) << text;
        EXPECT_EQ(bytesOf(id), kExampleBytes) << text;
    }
}

TEST(CAudioWrapperVST3FactoryTest, ClassIdRefusesShortTextAndBadDigits)
{
    const std::string good = kExample;
    TUID id;
    std::memset(id, 0x77, sizeof id);
    const Bytes untouched = bytesOf(id);

    EXPECT_FALSE(CAudioWrapperVST3Factory::parseClassId(CString(good.substr(0, 35).c_str()), id));
    EXPECT_FALSE(CAudioWrapperVST3Factory::parseClassId(CString(), id));
    for (size_t pos = 0; pos < good.size(); ++pos) {
        if (pos == 8 || pos == 13 || pos == 18 || pos == 23)
            continue;
        for (char bad : {'g', 'G', ' ', '-'}) {
            std::string text = good;
            text[pos] = bad;
            SCOPED_TRACE(text);
            EXPECT_FALSE(CAudioWrapperVST3Factory::parseClassId(CString(text.c_str()), id));
        }
    }
    EXPECT_EQ(bytesOf(id), untouched);
}

class CAudioWrapperVST3FactoryProductTest : public test::ProductTestFixture
{
};

TEST_F(CAudioWrapperVST3FactoryProductTest, DescribesTheProductFromItsProjectSettings)
{
    IPluginFactory* base = CAudioWrapperVST3Factory::get();
    ASSERT_NE(base, nullptr);
    // One factory per process: the second request gets the same object.
    IPluginFactory* again = CAudioWrapperVST3Factory::get();
    EXPECT_EQ(again, base);
    again->release();

    PFactoryInfo factoryInfo;
    ASSERT_EQ(base->getFactoryInfo(&factoryInfo), kResultOk);
    EXPECT_STREQ(factoryInfo.vendor, "Quelmar");
    EXPECT_STREQ(factoryInfo.url, "https://www.quelmar.example/");
    EXPECT_STREQ(factoryInfo.email, "support@quelmar.example");
    EXPECT_EQ(factoryInfo.flags, 16);

    ASSERT_EQ(base->countClasses(), 1);
    IPluginFactory3* factory = nullptr;
    ASSERT_EQ(base->queryInterface(IPluginFactory3::iid, reinterpret_cast<void**>(&factory)), kResultOk);
    PClassInfo2 info;
    ASSERT_EQ(factory->getClassInfo2(0, &info), kResultOk);
    EXPECT_EQ(bytesOf(info.cid), kProductClassId);
    EXPECT_EQ(info.cardinality, 0x7fffffff);
    EXPECT_STREQ(info.category, "Audio Module Class");
    EXPECT_STREQ(info.name, "DLC-730");
    EXPECT_EQ(info.classFlags, 0u);
    EXPECT_STREQ(info.subCategories, "Fx|EQ");
    EXPECT_STREQ(info.vendor, "");
    EXPECT_STREQ(info.version, "1.0.0");
    EXPECT_STREQ(info.sdkVersion, "VST 3.6.5");

    PClassInfo plain;
    ASSERT_EQ(factory->getClassInfo(0, &plain), kResultOk);
    EXPECT_EQ(bytesOf(plain.cid), kProductClassId);
    EXPECT_STREQ(plain.name, "DLC-730");

    PClassInfoW wide;
    ASSERT_EQ(factory->getClassInfoUnicode(0, &wide), kResultOk);
    EXPECT_EQ(std::u16string(wide.name), u"DLC-730");
    EXPECT_EQ(std::u16string(wide.version), u"1.0.0");
    EXPECT_EQ(std::u16string(wide.sdkVersion), u"VST 3.6.5");
    EXPECT_STREQ(wide.subCategories, "Fx|EQ");

    // Indices past the end are refused, not read.
    EXPECT_NE(factory->getClassInfo(1, &plain), kResultOk);
    EXPECT_NE(factory->getClassInfo2(-1, &info), kResultOk);
    EXPECT_NE(factory->getClassInfoUnicode(1, &wide), kResultOk);

    factory->release();
    base->release();
}

TEST_F(CAudioWrapperVST3FactoryProductTest, CreatesOneObjectThatIsBothComponentAndController)
{
    IPluginFactory* factory = CAudioWrapperVST3Factory::get();
    ASSERT_NE(factory, nullptr);
    TUID cid;
    std::memcpy(cid, kProductClassId.data(), 16);

    Vst::IComponent* component = nullptr;
    ASSERT_EQ(factory->createInstance(cid, Vst::IComponent::iid, reinterpret_cast<void**>(&component)), kResultOk);
    ASSERT_NE(component, nullptr);
    Vst::IEditController* controller = nullptr;
    ASSERT_EQ(component->queryInterface(Vst::IEditController::iid, reinterpret_cast<void**>(&controller)), kResultOk);
    Vst::IAudioProcessor* processor = nullptr;
    ASSERT_EQ(component->queryInterface(Vst::IAudioProcessor::iid, reinterpret_cast<void**>(&processor)), kResultOk);
    // One object behind every view.
    EXPECT_EQ(static_cast<CAudioWrapperVST3*>(controller), static_cast<CAudioWrapperVST3*>(component));
    EXPECT_EQ(static_cast<CAudioWrapperVST3*>(processor), static_cast<CAudioWrapperVST3*>(component));
    EXPECT_TRUE(static_cast<CAudioWrapperVST3*>(component)->isTypeOf("CAudioWrapperVST3"));
    processor->release();
    controller->release();
    EXPECT_EQ(component->release(), 0u);

    // A class id of another plug-in, or an interface the class lacks, gives nothing (and the
    // made instance is not leaked: the sanitizer build checks that).
    void* none = reinterpret_cast<void*>(1);
    TUID other = {};
    EXPECT_EQ(factory->createInstance(other, Vst::IComponent::iid, &none), kNoInterface);
    EXPECT_EQ(none, nullptr);
    none = reinterpret_cast<void*>(1);
    EXPECT_EQ(factory->createInstance(cid, IPluginFactory::iid, &none), kNoInterface);
    EXPECT_EQ(none, nullptr);
    factory->release();
}

// A project object of the test's own, to vary the settings.
class CAudioWrapperVST3FactoryProjectTest : public test::ProductTestFixture
{
protected:
    void SetUp() override
    {
        test::ProductTestFixture::SetUp();
        ASSERT_FALSE(CApplication::initRootObject(m_root, CString()));
        ASSERT_FALSE(m_root->addChild(m_project, CString("core:object"), CString("project"), false));
        set("app-name", "Test");
        set("app-vendor", "Vendor");
        set("app-version", "2.1");
        set("plugin-category-vst3", "Fx");
        set("plugin-uuid", kExample);
    }

    void TearDown() override
    {
        m_root.reset();
        test::ProductTestFixture::TearDown();
    }

    void set(const char* name, const CString& value)
    {
        ASSERT_FALSE(m_project->setAttrString(CString(name), value, true));
    }

    static FUnknown* createNothing() { return nullptr; }

    CObjectPtr m_root;
    CObject* m_project = nullptr;
};

TEST_F(CAudioWrapperVST3FactoryProjectTest, LongTextsAreCutAtACharacterBoundaryAndABadClassIdGivesNoFactory)
{
    // 62 ASCII letters and a two-byte character: the field has room for 63 bytes of text,
    // so the character does not fit and goes as a whole.
    const std::string name = std::string(62, 'n') + "\xc3\xa9";
    set("app-name", CString::fromUtf8(name));
    set("app-vendor-url", CString(std::string(300, 'u').c_str()));

    PFactoryInfo factoryInfo;
    PClassInfo2 classInfo;
    ASSERT_TRUE(CAudioWrapperVST3Factory::describe(*m_project, factoryInfo, classInfo));
    EXPECT_EQ(std::string(classInfo.name), std::string(62, 'n'));
    EXPECT_EQ(std::string(factoryInfo.url), std::string(255, 'u'));
    EXPECT_STREQ(classInfo.version, "2.1");

    // Wide text of the same class carries the character, UTF-16 having room for it.
    set("app-name", CString::fromUtf8(std::string("Caf\xc3\xa9")));
    CVST3PluginFactory* factory = CAudioWrapperVST3Factory::make(*m_project, &createNothing);
    ASSERT_NE(factory, nullptr);
    PClassInfoW wide;
    ASSERT_EQ(factory->getClassInfoUnicode(0, &wide), kResultOk);
    EXPECT_EQ(std::u16string(wide.name), u"Caf\u00e9");
    factory->release();

    // A class id that does not parse (ClassIdRefusesShortTextAndBadDigits) gives no factory.
    set("plugin-uuid", "z1b2c3d4-e5f6-4a7b-8c9d-0e1f2a3b4c5d");
    EXPECT_EQ(CAudioWrapperVST3Factory::make(*m_project, &createNothing), nullptr);
}

} // namespace
} // namespace qel
