#include "Core/CMap.h"
#include "Core/CPtrArray.h"
#include "Core/CString.h"

#include <gtest/gtest.h>

#include <string>

using qel::CString;

namespace {

std::u16string units(const CString& s)
{
    std::u16string out;
    for (int i = 0; i < s.length(); ++i)
        out.push_back(s.at(i));
    return out;
}

} // namespace

TEST(CString, InlineBufferHoldsTwentySixNarrowOrTwelveWideCharacters)
{
    const std::string narrow26(26, 'a');
    CString a(narrow26.c_str());
    EXPECT_TRUE(a.isInline());
    EXPECT_EQ(a.capacity(), 27);

    const std::string narrow27(27, 'a');
    CString b(narrow27.c_str());
    EXPECT_FALSE(b.isInline());
    EXPECT_EQ(b.capacity(), 27 + 13); // a new heap string gets length + 13

    const std::u16string wide12(12, u'\u0100');
    CString c(wide12.c_str());
    EXPECT_TRUE(c.isInline());
    EXPECT_TRUE(c.isWide());

    const std::u16string wide13(13, u'\u0100');
    CString d(wide13.c_str());
    EXPECT_FALSE(d.isInline());
    EXPECT_EQ(d.capacity(), 2 * 13 + 26);
    EXPECT_EQ(units(d), wide13);

    EXPECT_TRUE(CString().isEmpty());
    EXPECT_TRUE(CString().isInline());
}

TEST(CString, SetLengthGrowsByTheRuleAndNeverShrinks)
{
    CString s("abc");
    s.setLength(30, true); // leaves the inline buffer for exactly the need
    EXPECT_EQ(s.capacity(), 31);
    EXPECT_EQ(std::string(s.data8(), 3), "abc");
    EXPECT_EQ(s.data8()[30], '\0');

    s.setLength(31, true); // heap and above capacity: need + 12
    EXPECT_EQ(s.capacity(), 32 + 12);
    EXPECT_EQ(std::string(s.data8(), 3), "abc");

    s.setLength(2, true);
    EXPECT_EQ(s.capacity(), 44);
    EXPECT_FALSE(s.isInline());
    EXPECT_EQ(s.length(), 2);

    CString w(u"\u0101b");
    w.setLength(14, true); // wide need 30 > 27
    EXPECT_EQ(w.capacity(), 30);
    w.setLength(15, true); // 32 > 30: need + 24
    EXPECT_EQ(w.capacity(), 32 + 24);
    EXPECT_EQ(w.at(0), u'\u0101');
    EXPECT_EQ(w.at(1), u'b');
    EXPECT_EQ(w.data16()[15], 0);
}

TEST(CString, WidthRulesOfAppendAndAssign)
{
    CString s("caf");
    s.append(CString(u"\u00e9\u20ac"));
    EXPECT_TRUE(s.isWide());
    EXPECT_EQ(units(s), u"caf\u00e9\u20ac");

    s.append("!\xff"); // 8-bit text widened unit by unit
    EXPECT_EQ(units(s), u"caf\u00e9\u20ac!\u00ff");

    s.assign("plain"); // 8-bit text makes the target narrow again
    EXPECT_FALSE(s.isWide());
    EXPECT_EQ(units(s), u"plain");

    CString narrow("x");
    narrow.assign(u"\u0416", 1);
    EXPECT_TRUE(narrow.isWide());

    // Widening in place keeps every character, inline and on the heap.
    for (int n : {0, 5, 12, 13, 26, 40}) {
        SCOPED_TRACE(n);
        std::string text;
        for (int i = 0; i < n; ++i)
            text.push_back(static_cast<char>(0xA0 + i));
        CString t(text.c_str());
        t.widen();
        ASSERT_TRUE(t.isWide());
        ASSERT_EQ(t.length(), n);
        for (int i = 0; i < n; ++i)
            ASSERT_EQ(t.at(i), 0xA0 + i);
        EXPECT_EQ(t.data16()[n], 0);
    }

    CString self("ab");
    self.append(self);
    self.append(self.data8() + 1, 2);
    EXPECT_EQ(units(self), u"ababba");
}

TEST(CString, ComparisonIsByCharacterValueAcrossWidths)
{
    const CString narrow("abc");
    CString wide("abc");
    wide.widen();
    EXPECT_EQ(qel::compareStrings(narrow, wide), 0);
    EXPECT_TRUE(narrow == wide);
    EXPECT_LT(qel::compareStrings(CString("ab"), CString("abc")), 0); // a prefix sorts first
    EXPECT_GT(qel::compareStrings(CString("\xe9"), CString("z")), 0);  // Latin-1 above ASCII
    EXPECT_LT(qel::compareStrings(CString("\xff"), CString(u"\u0100")), 0);

    qel::CMap<CString, int> map;
    map[CString("beta")] = 2;
    map[CString("alpha")] = 1;
    map[CString(u"\u03b3amma")] = 3;
    CString key("alpha");
    key.widen();
    ASSERT_NE(map.find(key), map.end());
    EXPECT_EQ(map.find(key)->second, 1);
    std::u16string order;
    for (auto& entry : map)
        order += units(entry.first).substr(0, 1);
    EXPECT_EQ(order, u"ab\u03b3");
}

TEST(CString, SubstringAndFind)
{
    const CString s("key=value=x");
    EXPECT_EQ(units(s.substring(4)), u"value=x");
    EXPECT_EQ(units(s.substring(4, 5)), u"value");
    EXPECT_EQ(units(s.substring(4, 100)), u"value=x");
    EXPECT_TRUE(s.substring(11).isEmpty());
    EXPECT_TRUE(s.substring(50, 2).isEmpty());
    EXPECT_EQ(s.find('='), 3);
    EXPECT_EQ(s.find('=', 4), 9);
    EXPECT_EQ(s.find('#'), -1);
    EXPECT_EQ(s.findLast('='), 9);
    EXPECT_EQ(CString().findLast('='), -1);
    EXPECT_TRUE(CString(u"\u0100ab").substring(1).isWide()); // no silent narrowing
}

TEST(CString, IntegerNotations)
{
    struct Case { const char* text; bool ok; int32_t value; };
    const Case cases[] = {
        {"0", true, 0},           {"-12", true, -12},         {"2147483647", true, INT32_MAX},
        {"-2147483648", true, INT32_MIN},                     {"2147483648", false, 0},
        {"0x1F", true, 31},       {"0X1f", true, 31},         {"#ff", true, 255},
        {"$10", true, 16},        {"-0x10", true, -16},       {"#FFFFFFFF", true, -1},
        {"0x100000000", false, 0}, {"", false, 0},            {"-", false, 0},
        {"0x", false, 0},         {"12a", false, 0},          {" 1", false, 0},
        {"+1", false, 0},         {"1.0", false, 0},          {"99999999999999999999999", false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        int32_t value = 12345;
        EXPECT_EQ(CString(c.text).toInt(value), c.ok);
        if (c.ok) {
            EXPECT_EQ(value, c.value);
        }
    }
    int64_t big = 0;
    EXPECT_TRUE(CString("-9223372036854775808").toInt64(big));
    EXPECT_EQ(big, INT64_MIN);
    EXPECT_EQ(units(CString::number(INT64_MIN)), u"-9223372036854775808");
    EXPECT_EQ(units(CString::number(-7)), u"-7");
}

TEST(CString, RealNotationsAcceptPointOrComma)
{
    struct Case { const char* text; bool ok; double value; };
    const Case cases[] = {
        {"1.5", true, 1.5},     {"1,5", true, 1.5},     {"-0.25", true, -0.25},
        {"+2.5e-3", true, 0.0025}, {"1E3", true, 1000.0}, {".5", true, 0.5},
        {"5.", true, 5.0},      {"-.5e+1", true, -5.0}, {"12", true, 12.0},
        {"", false, 0},         {"e5", false, 0},       {"1e", false, 0},
        {"inf", false, 0},      {"nan", false, 0},      {"1.2.3", false, 0},
        {"0x10", false, 0},     {"1 ", false, 0},       {"--1", false, 0},
        {"1e999", false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        double value = 42;
        EXPECT_EQ(CString(c.text).toReal(value), c.ok);
        if (c.ok) {
            EXPECT_DOUBLE_EQ(value, c.value);
        }
    }
    // Shortest round-trip text of a double parses back to the same bits.
    double exact = 0;
    ASSERT_TRUE(CString("0.1").toReal(exact));
    EXPECT_EQ(exact, 0.1);
}

TEST(CString, Utf8DecodingFollowsTheLoader)
{
    CString latin = CString::fromUtf8("caf\xc3\xa9");
    EXPECT_FALSE(latin.isWide());
    EXPECT_EQ(units(latin), u"caf\u00e9");

    CString euro = CString::fromUtf8("a\xe2\x82\xac");
    EXPECT_TRUE(euro.isWide());
    EXPECT_EQ(units(euro), u"a\u20ac");

    // A 4-byte sequence keeps its low 16 bits.
    EXPECT_EQ(units(CString::fromUtf8("\xf0\x9f\x98\x80")), std::u16string(1, char16_t(0xF600)));
    // Stray continuation and invalid lead bytes vanish; a cut sequence at the end too.
    EXPECT_EQ(units(CString::fromUtf8("a\x80" "b\xff" "c\xe2\x82")), u"abc");
    // Surrogate units are not text: a string read must be the one written back.
    EXPECT_EQ(units(CString::fromUtf8("a\xed\xa0\x80" "b\xf0\x9d\xa0\x80")), u"ab");
    // Continuation bytes are not checked: the lead byte decides the length.
    EXPECT_EQ(CString::fromUtf8("\xc3" "A").length(), 1);

    // Encoding: narrow units as Latin-1 code points, wide units by value, surrogates left out.
    EXPECT_EQ(CString("caf\xe9").toUtf8(), "caf\xc3\xa9");
    const char16_t units16[] = {0x7f, 0x80, 0x7ff, 0x800, 0xd800, 0xdfff, 0xffff, 0};
    EXPECT_EQ(CString(units16).toUtf8(),
              "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf");
    const CString mixed(u"x\u00e9\u4e2d\u20ac");
    EXPECT_EQ(mixed.utf8Length(), mixed.toUtf8().size());
    EXPECT_EQ(CString::fromUtf8(mixed.toUtf8()), mixed);
}

TEST(CString, SplitAndWildcards)
{
    qel::CPtrArray<CString, true> parts;
    CString("a,,b,").split(',', parts, false, true);
    ASSERT_EQ(parts.count(), 4);
    EXPECT_EQ(units(*parts[0]), u"a");
    EXPECT_TRUE(parts[1]->isEmpty());
    EXPECT_EQ(units(*parts[2]), u"b");
    EXPECT_TRUE(parts[3]->isEmpty());

    CString("c,,d").split(',', parts, true, false); // appends, skipping empty items
    ASSERT_EQ(parts.count(), 6);
    EXPECT_EQ(units(*parts[5]), u"d");
    CString("").split(',', parts, true, true);
    EXPECT_EQ(parts.count(), 0);

    struct Case { const char* text; const char* pattern; bool match; };
    const Case cases[] = {
        {"50%", "*%", true},     {"50", "*%", false},     {"abc", "a?c", true},
        {"ac", "a?c", false},    {"", "*", true},         {"", "", true},
        {"x", "", false},        {"abcabd", "*abd", true}, {"abcabd", "a*b*d", true},
        {"abcabe", "*abd", false}, {"aXbYc", "a*b?c", true}, {"a", "**a**", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " ~ " + c.pattern);
        EXPECT_EQ(qel::matchWildcard(CString(c.text), CString(c.pattern)), c.match);
    }
    CString wideText(u"\u00e950%");
    EXPECT_TRUE(qel::matchWildcard(wideText, CString("?50*")));
}

TEST(CString, CopyAndMoveKeepContentAndStorageRules)
{
    const std::string longText(40, 'q');
    CString heap(longText.c_str());
    const char* block = heap.data8();
    CString moved(std::move(heap));
    EXPECT_EQ(moved.data8(), block); // a heap block is handed over, not copied
    EXPECT_TRUE(heap.isEmpty());

    CString target(longText.c_str());
    const char* targetBlock = target.data8();
    target = CString("short"); // an inline source is copied into the existing heap block
    EXPECT_EQ(target.data8(), targetBlock);
    EXPECT_EQ(units(target), u"short");

    CString copy(moved);
    EXPECT_NE(copy.data8(), moved.data8());
    EXPECT_EQ(copy, moved);
}
