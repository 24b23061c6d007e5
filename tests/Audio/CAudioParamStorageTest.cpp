#include "AudioParamTestSupport.h"

#include "Audio/CAudioParamInfo.h"
#include "Core/CMemoryReader.h"

using namespace qel;
using namespace qel::test;

namespace {

using Groups = std::vector<std::vector<double>>;
using Strings = std::vector<std::string>;
constexpr uint32_t kFloat = CAudioParamStorage::Float;
constexpr uint32_t kString = CAudioParamStorage::String;

// Whole elements of `values` into `group` from `first` on, in `s`'s format.
CAudioParamChange changeOf(const CAudioParamStorage& s, int32_t group, int32_t first, const std::vector<double>& values,
                           bool isListEnd, const CAudioParamData* data = nullptr)
{
    CAudioParamChange c = s.makeChange(group, first, int32_t(values.size()) / s.elementSize(), isListEnd);
    c.values = values.data();
    c.data = data;
    return c;
}

CAudioParamStorage withDefaults(int32_t esize, uint32_t dtype, bool singleGroup, bool singleElement,
                                const std::vector<double>& defaults, const CAudioParamData* data = nullptr)
{
    CAudioParamStorage s;
    s.setFormat(esize, dtype, singleGroup, singleElement);
    s.applyChange(changeOf(s, kParamDefaultsGroup, 0, defaults, true, data));
    return s;
}

Groups groupsOf(const CAudioParamStorage& s)
{
    Groups out;
    for (int32_t g = 0; g < s.groupCount(); ++g)
        out.emplace_back(s.groupValues(g), s.groupValues(g) + s.elementCount(g) * s.elementSize());
    return out;
}

Strings stringsOf(const CAudioParamStorage& s, int32_t group)
{
    Strings out;
    for (int32_t e = 0; e < s.elementCount(group); ++e)
        out.push_back(s.data().getString(uint32_t(s.getElementValue(group, e, 0, 0))).toUtf8());
    return out;
}

CErrorPtr load(CAudioParamStorage& s, const Bytes& b)
{
    CMemoryReader in(b.data(), b.size());
    return s.load(in);
}

// Every cut of `bytes` short of its end is refused and leaves `target` as it was.
template <class T, class Load, class... SaveArgs>
void refusesEveryCut(T& target, const Bytes& bytes, Load loader, SaveArgs... saveArgs)
{
    const Bytes before = saved(target, saveArgs...);
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        SCOPED_TRACE(cut);
        CMemoryReader in(bytes.data(), cut);
        EXPECT_TRUE(loader(target, in));
        EXPECT_EQ(saved(target, saveArgs...), before);
    }
}

using ParamDefTest = AudioParamFixture;

TEST_F(ParamDefTest, DefValuesAndAttributes)
{
    const Attrs pair = {{"element-size", "2"}, {"converter", "real"}, {"converter2", "real"}, {"min-values", "0 0"},
                        {"max-values", "100 100"}};
    auto with = [](Attrs attrs, const char* name, const char* value) {
        attrs.emplace_back(name, value);
        return attrs;
    };
    const Attrs gain = {{"element-size", "1"}, {"converter", "gain"}, {"min-values", "-12"}, {"max-values", "12"}};
    const struct
    {
        Attrs attrs;
        Groups groups;
        const char* error;
    } cases[] = {
        {realParam("1,2,0,0,0,0,0,0"), {{1, 2, 0, 0, 0, 0, 0, 0}}, ""},
        {realParam("1;2;"), {{1}, {2}}, ""},
        {realParam("150,-3"), {{100, 0}}, ""}, // each token through the clamping reader
        {with(gain, "def-values", "0"), {{1.0}}, ""},
        {with(pair, "def-values", "1 2,3 4;5 6"), {{1, 2, 3, 4}, {5, 6}}, ""},
        {with(pair, "def-values", "1,2"), {}, "Not enough default elements at pos 1."},
        {with(pair, "def-values", "1 2;3"), {}, "Not enough default elements at pos 5."},
        {with(pair, "def-values", "1 2 3"), {}, "Default values parsing error."},
        {with(pair, "def-values", "1  2"), {}, "Default values parsing error."},
        {realParam("1 ,2"), {}, "Default values parsing error."}, // a blank is no separator here
        {realParam("x"), {}, "Default values parsing error."},
        {gain, {}, "Default values parsing error."},
        {{{"element-size", "0"}}, {}, "Invalid element size 0 specified."},
        {{{"element-size", "2"}, {"data-type", "string"}}, {}, "Invalid element size 2 for non-float data specified."},
        {{{"element-size", "1"}, {"converter", "nope"}}, {}, "Audio parameter converter 'nope' not found."},
        {with(pair, "min-values", "0"), {}, "Not enough minimum values defined 1 (should be 2)."},
        {realParam("1", "5", "5"), {}, "Zero default min-max values difference detected in element 0."},
        {realParam("1", "abc", "x"), {}, "Zero default min-max values difference detected in element 0."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.attrs.back().second);
        EXPECT_EQ(initError("audio:param", c.attrs), c.error);
        if (const CAudioParamInfo* info = *c.error ? nullptr : def(c.attrs)) {
            EXPECT_EQ(groupsOf(info->defaults), c.groups);
            EXPECT_EQ(info->defaults.defaultValues(), c.groups[0]);
        }
    }
    const Attrs text = {{"element-size", "1"}, {"data-type", "string"}, {"converter", "text"}};
    EXPECT_EQ(stringsOf(def(with(text, "def-values", "Default"))->defaults, 0), Strings{"Default"});
    const CAudioParamInfo* two = def(with(text, "def-values", "Hello World,b;c"));
    EXPECT_EQ(stringsOf(two->defaults, 0), (Strings{"Hello World", "b"}));
    EXPECT_EQ(stringsOf(two->defaults, 1), Strings{"c"});
    EXPECT_EQ(stringsOf(def(text)->defaults, 0), Strings{""});
    EXPECT_TRUE(def(with(realParam("1"), "switch-values", "1,x"))->switchValues.empty());

    EXPECT_EQ(initError("audio:param-alloc", {{"index", "1"}}), "Invalid parameter name specified.");
    EXPECT_EQ(initError("audio:param-alloc", {{"param-name", "p"}, {"index", "-1"}}),
              "Invalid parameter's 'p' index '-1' specified.");
    EXPECT_EQ(initError("audio:param-alloc", {{"param-name", "p"}, {"index", "3"}}), "");
}

TEST(ParamStorage, ReadsMapGroupsAndElements)
{
    EXPECT_EQ(CAudioParamStorage().getValue(0, 0, -1.0), -1.0);
    CAudioParamStorage plain = withDefaults(1, kFloat, false, false, {2, 1, 3});
    EXPECT_EQ(plain.getValue(0, 5, -1), 2.0); // past the defaults: default element 0
    EXPECT_EQ(plain.getElementValue(0, 5, 0, -1), 2.0);
    EXPECT_EQ(plain.getValue(3, 1, -1), 1.0); // a group never written reads the defaults
    plain.applyChange(changeOf(plain, 3, 0, {7}, true));
    EXPECT_EQ(plain.getValue(3, 0, -1), 7.0);
    EXPECT_EQ(plain.getValue(3, 2, -1), 3.0);

    CAudioParamStorage single = withDefaults(1, kFloat, true, false, {2});
    single.applyChange(changeOf(single, 5, 0, {7, 8}, true));
    EXPECT_EQ(single.groupCount(), 1);
    for (int32_t g : {0, 1, 5, 9}) {
        EXPECT_EQ(single.getValue(g, 1, -1), 8.0) << g;
        EXPECT_EQ(single.elementCount(g), 2) << g;
    }
    CAudioParamStorage one = withDefaults(2, kFloat, false, true, {4, 5});
    one.applyChange(changeOf(one, 0, 3, {8, 9}, false));
    EXPECT_EQ(one.elementCount(0), 1);
    for (int32_t e = 0; e < 5; ++e) {
        EXPECT_EQ(one.getElementValue(0, e, 0, -1), 8.0) << e;
        EXPECT_EQ(one.getValue(0, e * 2 + 1, -1), 9.0) << e;
    }
}

TEST(ParamStorage, ChangesFormatsAndClamping)
{
    CAudioParamStorage s = withDefaults(1, kFloat, false, false, {0});
    s.applyChange(changeOf(s, 1, 0, {1, 2, 3, 4, 5}, true));
    s.applyChange(changeOf(s, 1, 2, {}, true)); // empties the list from element 2 on
    EXPECT_EQ(groupsOf(s)[1], (std::vector<double>{1, 2}));
    CAudioParamChange other = changeOf(s, 1, 0, {9, 9}, true);
    other.elementSize = 2;
    s.applyChange(other); // another format: dropped
    EXPECT_EQ(groupsOf(s)[1], (std::vector<double>{1, 2}));

    CAudioParamStorage wide;
    wide.setFormat(2, kFloat, true, false);
    s.applyChange(changeOf(wide, kParamDefaultsGroup, 0, {7, 8}, true));
    EXPECT_TRUE(s.elementSize() == 2 && s.isSingleGroup());
    EXPECT_EQ(s.defaultValues(), (std::vector<double>{7, 8}));
    EXPECT_EQ(groupsOf(s), (Groups{{7, 8}}));
    CAudioParamInfo reversed;
    reversed.minValues = {10, 1};
    reversed.maxValues = {0, 2};
    s.applyChange(changeOf(s, 0, 0, {-5, 0, 5, 1.5, 15, 3}, true));
    s.clampValues(reversed);
    EXPECT_EQ(groupsOf(s), (Groups{{0, 1, 5, 1.5, 10, 2}}));

}

TEST(ParamStorage, SavedLayout)
{
    CAudioParamStorage s = withDefaults(2, kFloat, false, false, {0, 0});
    s.applyChange(changeOf(s, 0, 0, {1, 2, 3, 4}, true));
    s.applyChange(changeOf(s, 1, 0, {5, 6}, true));
    const Bytes all = ByteBuilder().u32(1).u32(2).u32(kFloat).u32(2).u32(2).f64(1).f64(2).f64(3).f64(4).u32(1).f64(5).f64(6).bytes;
    EXPECT_EQ(saved(s, -1), all);
    EXPECT_EQ(saved(s, 1), ByteBuilder().u32(1).u32(2).u32(kFloat).u32(1).u32(1).f64(5).f64(6).bytes);
    CAudioParamStorage back;
    back.setFormat(2, kFloat, false, false);
    ASSERT_FALSE(load(back, all));
    EXPECT_EQ(groupsOf(back), (Groups{{1, 2, 3, 4}, {5, 6}}));
    EXPECT_EQ(saved(back, -1), all);
    // A single-group storage saves its one group whichever group is named.
    EXPECT_EQ(saved(withDefaults(1, kFloat, true, false, {9}), 3),
              ByteBuilder().u32(1).u32(1).u32(kFloat).u32(1).u32(1).f64(9).bytes);

    // Fresh copies of the items in use, numbered from 1 in value order, so an item named
    // twice is stored twice; a single blank comes back empty.
    CAudioParamData items;
    const double x = items.addString(CString("x")), blank = items.addString(CString(" "));
    const double raw = items.addRaw(CByteArray("\x01\x02", 2));
    CAudioParamStorage text = withDefaults(1, kString, false, false, {x}, &items);
    text.applyChange(changeOf(text, 0, 0, {blank, x, x, raw}, true, &items));
    auto textBytes = [](const char* blankText) {
        return ByteBuilder().u32(1).u32(1).u32(kString).u32(1).u32(4).u32(1).u32(1).str(blankText).u32(2).u32(1).str("x")
            .u32(3).u32(1).str("x").u32(4).u32(2).str("\x01\x02").u32(4).u32(1).u32(2).u32(3).u32(4).bytes;
    };
    EXPECT_EQ(saved(text, -1), textBytes(" "));
    CAudioParamStorage textBack;
    textBack.setFormat(1, kString, false, false);
    ASSERT_FALSE(load(textBack, textBytes(" ")));
    EXPECT_EQ(stringsOf(textBack, 0), (Strings{"", "x", "x", ""}));
    EXPECT_EQ(saved(textBack, -1), textBytes(""));
}

TEST(ParamStorage, DamagedInputIsRefusedAndChangesNothing)
{
    auto loader = [](auto& target, CMemoryReader& in) { return target.load(in); };
    CAudioParamStorage s = withDefaults(2, kFloat, false, false, {0, 0});
    s.applyChange(changeOf(s, 0, 0, {1, 2, 3, 4}, true));
    const Bytes before = saved(s, -1);
    const std::pair<Bytes, const char*> cases[] = {
        {ByteBuilder().u32(2).u32(2).u32(kFloat).u32(0).bytes,
         "qelstr_CAudioParamStorage_load_VersionError Unsupported data set version 2."},
        {ByteBuilder().u32(1).u32(3).u32(kFloat).u32(0).bytes,
         "Unsupported storage format (esize=3, dtype=0; should be: esize=2, dtype=0)."},
        {ByteBuilder().u32(1).u32(2).u32(kFloat).u32(0xFFFFFFF0u).bytes, "Unsupported group count 4294967280."},
        {ByteBuilder().u32(1).u32(2).u32(kFloat).u32(1).u32(0x40000000u).f64(1).bytes, ""},
    };
    for (const auto& [bytes, message] : cases) {
        CErrorPtr error = load(s, bytes);
        ASSERT_TRUE(error) << message;
        EXPECT_EQ(firstLine(error), *message ? message : firstLine(error));
        EXPECT_EQ(saved(s, -1), before);
    }
    refusesEveryCut(s, before, loader, -1);

    CAudioParamData items;
    CAudioParamStorage text = withDefaults(1, kString, false, false, {double(items.addString(CString("k")))}, &items);
    const Bytes textBefore = saved(text, -1);
    EXPECT_EQ(firstLine(load(text, ByteBuilder().u32(1).u32(1).u32(kString).u32(1).u32(1).u32(1).u32(3).bytes)),
              "Unknown data type 3 encountered");
    EXPECT_EQ(saved(text, -1), textBefore);
    refusesEveryCut(text, textBefore, loader, -1);

    CAudioParamData table;
    table.addString(CString("hi"));
    table.addRaw(CByteArray("\x07", 1));
    const Bytes tableBytes = ByteBuilder().u32(2).u32(1).u32(1).str("hi").u32(2).u32(2).str("\x07").bytes;
    EXPECT_EQ(saved(table), tableBytes);
    refusesEveryCut(table, tableBytes, loader);
    const Bytes unknownType = ByteBuilder().u32(1).u32(5).u32(9).bytes;
    CMemoryReader unknown(unknownType.data(), unknownType.size());
    EXPECT_EQ(firstLine(table.load(unknown)), "Unknown data type 9 encountered");
    EXPECT_EQ(saved(table), tableBytes);
}

TEST_F(ParamDefTest, InfoWireForm)
{
    const CAudioParamInfo* made = def({{"element-size", "2"}, {"converter", "real"}, {"converter2", "gain"},
                                       {"min-values", "0 -12"}, {"max-values", "10 12"}, {"def-values", "1 0;2 6"},
                                       {"state-names", "Soft|S;Hard"}, {"switch-values", "0,1"},
                                       {"switch-names", "Off,On"}, {"is-storable", "true"}, {"visual-name", "V"}});
    ASSERT_TRUE(made);
    const Bytes bytes = saved(*made);
    CAudioParamInfo back;
    auto loader = [this](CAudioParamInfo& info, CMemoryReader& in) { return info.load(in, *m_root); };
    CMemoryReader in(bytes.data(), bytes.size());
    ASSERT_FALSE(loader(back, in));
    EXPECT_TRUE(back.sameShape(*made) && back.isStorable && back.isGlobal && back.visualName == made->visualName);
    EXPECT_TRUE(back.converters == made->converters && back.minValues == made->minValues && back.maxValues == made->maxValues);
    EXPECT_TRUE(back.shortStateNames == made->shortStateNames && back.switchNames == made->switchNames);
    EXPECT_EQ(groupsOf(back.defaults), groupsOf(made->defaults));
    EXPECT_EQ(back.defaults.defaultValues(), made->defaults.defaultValues());
    EXPECT_EQ(saved(back), bytes);
    refusesEveryCut(back, bytes, loader);

    CAudioParamInfo renamed = back;
    renamed.converterNames[1] = CString("nope");
    const Bytes unresolved = saved(renamed);
    CMemoryReader again(unresolved.data(), unresolved.size());
    EXPECT_EQ(firstLine(loader(back, again)), "Audio parameter converter 'nope' not found.");
    EXPECT_EQ(saved(back), bytes);
}

} // namespace
