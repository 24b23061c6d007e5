#include "Core/CAttrValue.h"

#include <gtest/gtest.h>

#include <string>

using qel::CAttrValue;
using qel::CString;

namespace {

std::string text(const CAttrValue& v) { return v.toString().toUtf8(); }

} // namespace

TEST(CAttrValue, ConversionTable)
{
    CAttrValue b;
    b.setBool(true);
    double real = 7;
    EXPECT_FALSE(b.tryReal(real)); // no conversion from bool to real
    EXPECT_EQ(b.toReal(), 0.0);
    EXPECT_EQ(b.toInt(), 1);
    EXPECT_EQ(text(b), "true");

    CAttrValue r;
    struct RealCase { double value; int32_t asInt; const char* asText; };
    for (const RealCase& c : {RealCase{2.5, 3, "2.5000"}, RealCase{-2.5, -3, "-2.5000"}, RealCase{0.35, 0, "0.3500"},
                              RealCase{-0.00004, 0, "0.0000"}, RealCase{1234.56789, 1235, "1234.5679"},
                              RealCase{0.00005, 0, "0.0001"}}) {
        SCOPED_TRACE(c.value);
        r.setReal(c.value);
        EXPECT_EQ(r.toInt(), c.asInt);
        EXPECT_EQ(text(r), c.asText);
        bool flag = true;
        EXPECT_FALSE(r.tryBool(flag));
    }
    r.setReal(3e9);
    int32_t i = 5;
    EXPECT_FALSE(r.tryInt(i)); // out of the i32 range

    CAttrValue n;
    n.setInt(-42);
    EXPECT_TRUE(n.toBool());
    EXPECT_EQ(n.toReal(), -42.0);
    EXPECT_EQ(text(n), "-42");

    CAttrValue s;
    struct StringCase { const char* text; bool boolOk; bool asBool; bool realOk; double asReal; bool intOk; int32_t asInt; };
    const StringCase cases[] = {
        {"1", true, true, true, 1.0, true, 1},          {"0", true, false, true, 0.0, true, 0},
        {"true", true, true, false, 0, false, 0},      {"false", true, false, false, 0, false, 0},
        {"0,5", false, false, true, 0.5, false, 0},    {"#ff", false, false, false, 0, true, 255},
        {"-0x10", false, false, false, 0, true, -16},  {"yes", false, false, false, 0, false, 0},
        {"", false, false, false, 0, false, 0},
    };
    for (const StringCase& c : cases) {
        SCOPED_TRACE(c.text);
        s.setString(CString(c.text));
        bool flag = !c.asBool;
        double value = -1;
        int32_t integer = -1;
        EXPECT_EQ(s.tryBool(flag), c.boolOk);
        EXPECT_EQ(s.tryReal(value), c.realOk);
        EXPECT_EQ(s.tryInt(integer), c.intOk);
        if (c.boolOk) {
            EXPECT_EQ(flag, c.asBool);
        }
        if (c.realOk) {
            EXPECT_EQ(value, c.asReal);
        }
        if (c.intOk) {
            EXPECT_EQ(integer, c.asInt);
        }
    }

    CAttrValue p;
    int marker = 0;
    p.setPointer(&marker);
    EXPECT_EQ(p.toPointer(), &marker);
    CString out("unchanged");
    EXPECT_FALSE(p.tryString(out));
    EXPECT_EQ(p.toInt(), 0);

    const CAttrValue unset;
    EXPECT_FALSE(unset.isSet());
    EXPECT_EQ(unset.toBool(), false);
    EXPECT_EQ(unset.toReal(), 0.0);
    EXPECT_EQ(unset.toInt(), 0);
    EXPECT_EQ(text(unset), "");
    EXPECT_EQ(unset.toPointer(), nullptr);
}

TEST(CAttrValue, CachesAndStateBits)
{
    CAttrValue v;
    v.setQueued(true);
    v.setSetter([](qel::CObject*, CAttrValue&) { return qel::CErrorPtr(); });
    v.setString(CString("12"));
    EXPECT_EQ(v.flags(), CAttrValue::Queued | CAttrValue::SetterKnown | CAttrValue::HasString);
    EXPECT_EQ(v.toInt(), 12);
    EXPECT_EQ(v.toReal(), 12.0);
    EXPECT_EQ(v.flags() & (CAttrValue::HasInt | CAttrValue::HasReal), CAttrValue::HasInt | CAttrValue::HasReal);

    // A new value drops every cache but keeps the queue and setter state.
    v.setInt(3);
    EXPECT_EQ(v.flags(), CAttrValue::Queued | CAttrValue::SetterKnown | CAttrValue::HasInt);
    EXPECT_EQ(text(v), "3");
    EXPECT_EQ(v.kind(), CAttrValue::Int);

    // A copy is only a value: not queued, no setter.
    const CAttrValue copy(v);
    EXPECT_EQ(copy.flags() & (CAttrValue::Queued | CAttrValue::SetterKnown), 0);
    EXPECT_EQ(copy.toInt(), 3);
}
