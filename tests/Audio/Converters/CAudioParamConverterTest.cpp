#include "Audio/CAudioCreators.h"
#include "Audio/CAudioParamData.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/Converters/CAudioParamConverterGain.h"
#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

using qel::CAudioParamConverter;
using qel::CAudioParamInfo;
using qel::CAttrMap;
using qel::CString;

namespace {

using Attrs = std::vector<std::pair<const char*, const char*>>;

// One value with the exact text it must print as in normal mode.
struct Point
{
    double value;
    const char* text;
};

CAudioParamInfo rangeInfo(double min, double max)
{
    CAudioParamInfo info;
    info.minValues = {min};
    info.maxValues = {max};
    return info;
}

class ConverterTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(qel::CApplication::startup({qel::kCoreCreatorRows, qel::kAudioCreatorRows}, nullptr, CString()));
        ASSERT_FALSE(qel::CApplication::initRootObject(m_root, CString()));
    }

    void TearDown() override
    {
        m_root.reset();
        qel::CApplication::finalize();
    }

    qel::CErrorPtr create(CAudioParamConverter*& out, const char* tag, const Attrs& attrs)
    {
        CAttrMap map;
        for (const auto& [name, value] : attrs)
            map[CString(name)].setString(CString(value));
        return m_root->createChild(out, CString(tag), CString("cvt") + CString::number(++m_made), false, nullptr, &map);
    }

    CAudioParamConverter* make(const char* tag, const Attrs& attrs)
    {
        CAudioParamConverter* made = nullptr;
        qel::CErrorPtr error = create(made, tag, attrs);
        EXPECT_FALSE(error) << (error ? error->text().toUtf8() : std::string());
        return made;
    }

    // The first line of the error `attrs` give, or "" when they are accepted.
    std::string initError(const char* tag, const Attrs& attrs)
    {
        CAudioParamConverter* made = nullptr;
        qel::CErrorPtr error = create(made, tag, attrs);
        return error ? error->line(0).toUtf8() : std::string();
    }

    static std::string text(const CAudioParamConverter* cvt, const CAudioParamInfo& info, double value,
                            CAudioParamConverter::TextMode mode = CAudioParamConverter::TextModeNormal,
                            const qel::CAudioParamData* data = nullptr)
    {
        CString out("unset");
        cvt->valueToText(out, info, 0, value, data, mode);
        return out.toUtf8();
    }

    // value -> position -> value and value -> text -> value; the text read back may differ
    // from the value by what the printed decimals dropped.
    static void roundTrips(const CAudioParamConverter* cvt, const CAudioParamInfo& info,
                           const std::vector<Point>& points, double textTolerance)
    {
        for (const Point& p : points) {
            SCOPED_TRACE(p.text);
            const double norm = cvt->valueToNorm(info, 0, p.value);
            EXPECT_GE(norm, -1e-12);
            EXPECT_LE(norm, 1.0 + 1e-12);
            EXPECT_NEAR(cvt->normToValue(info, 0, norm), p.value, 1e-9 * std::fabs(p.value) + 1e-12);
            EXPECT_EQ(text(cvt, info, p.value), p.text);
            bool ok = false;
            EXPECT_NEAR(cvt->parseValue(info, 0, CString(p.text), &ok), p.value, textTolerance);
            EXPECT_TRUE(ok);
        }
    }

    static double parse(const CAudioParamConverter* cvt, const CAudioParamInfo& info, const char* textIn, bool expectOk)
    {
        bool ok = !expectOk;
        const double value = cvt->parseValue(info, 0, CString(textIn), &ok);
        EXPECT_EQ(ok, expectOk) << textIn;
        return value;
    }

    static double parseRaw(const CAudioParamConverter* cvt, const CAudioParamInfo& info, const char* textIn, bool expectOk)
    {
        bool ok = !expectOk;
        const double value = cvt->parseRawValue(info, 0, CString(textIn), &ok);
        EXPECT_EQ(ok, expectOk) << textIn;
        return value;
    }

    qel::CObjectPtr m_root;
    int m_made = 0;
};

constexpr auto Tiny = CAudioParamConverter::TextModeTiny;
constexpr auto Short = CAudioParamConverter::TextModeShort;
constexpr auto Precise = CAudioParamConverter::TextModePrecise;

double dbOf(double factor) { return 20.0 * std::log10(factor); }
double factorOf(double db) { return std::pow(10.0, db / 20.0); }

TEST(ConverterNumbers, FormatReadAndRound)
{
    const std::vector<std::pair<std::pair<double, int>, const char*>> formats = {
        {{0.0, 2}, "0.00"},   {{-0.001, 2}, "0.00"}, {{-0.005, 2}, "-0.01"}, {{1234.5, 0}, "1235"},
        {{-2.5, 0}, "-3"},    {{7.0, 3}, "7.000"},   {{-0.5, 3}, "-0.500"},  {{123.456, 1}, "123.5"},
        {{0.0625, 10}, "0.0625000000"}};
    for (const auto& [in, expected] : formats) {
        SCOPED_TRACE(expected);
        EXPECT_EQ(CAudioParamConverter::formatReal(in.first, in.second).toUtf8(), expected);
    }
    const std::vector<std::pair<const char*, double>> numbers = {
        {"1.5", 1.5}, {"1,5", 1.5}, {"-2e3", -2000.0}, {"+.5", 0.5}, {"1E-2", 0.01}, {"1.05", 1.05}, {"007", 7.0}};
    for (const auto& [in, expected] : numbers) {
        SCOPED_TRACE(in);
        bool ok = false;
        EXPECT_EQ(CAudioParamConverter::readNumber(CString(in), &ok), expected);
        EXPECT_TRUE(ok);
    }
    for (const char* bad : {"", "-", ".", "1.", " 1", "1 ", "1e", "e5", "1.5.2", "0x10", "inf", "1.5k", "--1"}) {
        SCOPED_TRACE(bad);
        bool ok = true;
        CAudioParamConverter::readNumber(CString(bad), &ok);
        EXPECT_FALSE(ok);
    }
    EXPECT_EQ(CAudioParamConverter::roundHalfAway(2.5), 3.0);
    EXPECT_EQ(CAudioParamConverter::roundHalfAway(-2.5), -3.0);
    EXPECT_EQ(CAudioParamConverter::roundHalfAway(-2.4), -2.0);
}

TEST_F(ConverterTest, AttributesAndTheirErrors)
{
    auto* gain = make("audio:cvt-gain", {{"decimals", "1"}, {"label", "dB"}});
    ASSERT_TRUE(gain);
    EXPECT_EQ(gain->label().toUtf8(), "dB");
    EXPECT_FALSE(gain->isDiscrete());
    auto* log = dynamic_cast<qel::CAudioParamConverterGain*>(gain);
    ASSERT_TRUE(log);
    EXPECT_EQ(log->scalePower(), 1.0);
    EXPECT_EQ(log->scaleThreshold(), -1.0);
    EXPECT_TRUE(make("audio:cvt-text", {{"is-discrete", "true"}})->isDiscrete());

    EXPECT_EQ(initError("audio:cvt-gain", {{"scale-power", "0"}}), "Invalid 'scale-power' attribute value 0 specified.");
    EXPECT_EQ(initError("audio:cvt-freq", {{"scale-threshold", "1.5"}}),
              "Invalid 'scale-threshold' attribute value 1.5 specified.");
    EXPECT_EQ(initError("audio:cvt-freq", {{"scale-threshold", "1"}}), "");
    EXPECT_EQ(initError("audio:cvt-gain", {{"decimals", "11"}}), "Invalid 'decimals' attribute value 11 specified.");
    EXPECT_EQ(initError("audio:cvt-real", {{"decimals", "-1"}}), "Invalid decimals -1 specified.");
    EXPECT_EQ(initError("audio:cvt-ratio", {}), "Invalid decimals  specified.");
    EXPECT_EQ(initError("audio:cvt-ratio", {{"decimals", "10"}}), "");
    EXPECT_EQ(initError("audio:cvt-time", {}), "Invalid scale  specified.");
    EXPECT_EQ(initError("audio:cvt-time", {{"scale", "abc"}}), "Invalid scale abc specified.");
}

TEST_F(ConverterTest, Gain)
{
    const auto* cvt = make("audio:cvt-gain", {{"scale-power", "1.0"}, {"scale-threshold", "-1.0"}, {"decimals", "1"}, {"label", "dB"}});
    ASSERT_TRUE(cvt);
    const CAudioParamInfo info = rangeInfo(0.5, 4.0);
    // Texts read back within the 0.05 dB the printed decimal leaves.
    const double tolerance = factorOf(0.05) - 1.0;
    roundTrips(cvt, info, {{0.5, "-6.0"}, {1.0, "0.0"}, {2.0, "6.0"}, {4.0, "12.0"}}, 4.0 * tolerance);
    EXPECT_NEAR(cvt->normToValue(info, 0, 0.0), 0.5, 1e-12);
    EXPECT_NEAR(cvt->normToValue(info, 0, 0.5), std::sqrt(0.5 * 4.0), 1e-12);
    EXPECT_NEAR(cvt->normToValue(info, 0, 1.0), 4.0, 1e-12);
    EXPECT_NEAR(parse(cvt, info, "-6.0", true), factorOf(-6.0), 1e-12);
    EXPECT_EQ(parse(cvt, info, "0", true), 1.0);
    EXPECT_EQ(parse(cvt, info, "-inf", false), 0.5);
    EXPECT_EQ(parse(cvt, info, "20", true), 4.0);
    EXPECT_EQ(parseRaw(cvt, info, "junk", false), 1.0);
    EXPECT_NEAR(parseRaw(cvt, info, "20", true), 10.0, 1e-12);
    EXPECT_EQ(text(cvt, info, 0.5, Tiny), "-6.0");
    EXPECT_EQ(text(cvt, info, 4.0, Tiny), "12");
    EXPECT_EQ(text(cvt, info, 1.0, Tiny), "0");
    EXPECT_EQ(text(cvt, info, 2.0, Precise), "6.02");
    EXPECT_NEAR(cvt->normToDisplay(info, 0, 1.0), dbOf(4.0), 1e-12);
    EXPECT_NEAR(cvt->displayToNorm(info, 0, dbOf(2.0)), cvt->valueToNorm(info, 0, 2.0), 1e-12);
    EXPECT_NEAR(cvt->displayToNorm(info, 0, 40.0), 1.0, 1e-12);
}

TEST_F(ConverterTest, LogPowerAndThreshold)
{
    const auto* pivot = make("audio:cvt-gain", {{"scale-threshold", "0.5"}});
    const CAudioParamInfo wide = rangeInfo(0.25, 4.0);
    // Factor 1 at the centre; each half geometric on its own side.
    const std::vector<std::pair<double, double>> pivotPoints = {{0.0, 0.25}, {0.25, 0.5}, {0.5, 1.0}, {0.75, 2.0}, {1.0, 4.0}};
    for (const auto& [norm, value] : pivotPoints) {
        SCOPED_TRACE(norm);
        EXPECT_NEAR(pivot->normToValue(wide, 0, norm), value, 1e-12);
        EXPECT_NEAR(pivot->valueToNorm(wide, 0, value), norm, 1e-12);
    }
    const auto* bent = make("audio:cvt-freq", {{"scale-power", "2"}});
    const CAudioParamInfo decades = rangeInfo(1.0, 100.0);
    // u = norm^(1/2): a quarter of the travel reaches the geometric middle.
    const std::vector<std::pair<double, double>> bentPoints = {{0.0, 1.0}, {0.25, 10.0}, {1.0, 100.0}};
    for (const auto& [norm, value] : bentPoints) {
        SCOPED_TRACE(norm);
        EXPECT_NEAR(bent->normToValue(decades, 0, norm), value, 1e-12);
        EXPECT_NEAR(bent->valueToNorm(decades, 0, value), norm, 1e-12);
    }
}

TEST_F(ConverterTest, Freq)
{
    const auto* cvt = make("audio:cvt-freq", {{"scale-power", "1.0"}, {"scale-threshold", "-1.0"}, {"label", "Hz"}});
    ASSERT_TRUE(cvt);
    CAudioParamInfo info = rangeInfo(20.0, 20000.0);
    roundTrips(cvt, info,
               {{20.0, "20.0"}, {99.94, "99.9"}, {440.0, "440"}, {999.96, "1.00k"}, {1500.0, "1.50k"}, {20000.0, "20.0k"}},
               0.05);
    EXPECT_NEAR(cvt->normToValue(info, 0, 0.5), std::sqrt(20.0 * 20000.0), 1e-9);
    EXPECT_EQ(parse(cvt, info, "1k", true), 1000.0);
    EXPECT_EQ(parse(cvt, info, "1,5k", true), 1500.0);
    EXPECT_EQ(parse(cvt, info, "1.5 k", false), 20.0);
    EXPECT_EQ(parse(cvt, info, "5", true), 20.0);
    EXPECT_EQ(parseRaw(cvt, info, "5", true), 5.0);
    EXPECT_EQ(parseRaw(cvt, info, "x", false), 0.0);
    EXPECT_EQ(text(cvt, info, 440.0, Precise), "440.00");
    EXPECT_EQ(text(cvt, info, 5.0, Tiny), "5.0");
    EXPECT_EQ(text(cvt, info, 9999.4, Tiny), "9999");
    EXPECT_EQ(text(cvt, info, 15000.0, Tiny), "15.0k");
    EXPECT_EQ(text(cvt, info, 150000.0, Tiny), "150k");

    info.switchValues = {20.0, 20000.0};
    info.switchNames = {"Off", "Max"};
    EXPECT_EQ(text(cvt, info, 20.0), "Off");
    EXPECT_EQ(text(cvt, info, 20.09), "Off"); // within 0.5 % of the switch
    EXPECT_EQ(text(cvt, info, 20.2), "20.2");
    EXPECT_EQ(text(cvt, info, 20000.0), "20.0k"); // only the first switch counts
    EXPECT_EQ(parse(cvt, info, "Off", true), 20.0);
    EXPECT_EQ(parse(cvt, info, "Max", false), 20.0);
}

TEST_F(ConverterTest, Ratio)
{
    const auto* cvt = make("audio:cvt-ratio", {{"decimals", "2"}});
    ASSERT_TRUE(cvt);
    const CAudioParamInfo info = rangeInfo(0.05, 20.0);
    roundTrips(cvt, info,
               {{0.05, "20.0:1"}, {0.25, "4.00:1"}, {1.0 / 1.05, "1.05:1"}, {2.0, "1:2.00"}, {20.0, "1:20.0"}}, 1e-12);
    EXPECT_NEAR(cvt->normToValue(info, 0, 0.5), std::sqrt(0.05 * 20.0), 1e-12);
    EXPECT_EQ(text(cvt, info, 0.952381), "1.05:1");
    EXPECT_EQ(parse(cvt, info, "4", true), 0.25);
    EXPECT_EQ(parse(cvt, info, " 4 : 1 ", true), 0.25);
    EXPECT_EQ(parse(cvt, info, "1:1", true), 0.999);
    EXPECT_EQ(parse(cvt, info, "1:1.0005", true), 1.001);
    EXPECT_EQ(parse(cvt, info, "50:1", true), 0.05);
    EXPECT_EQ(parseRaw(cvt, info, "50:1", true), 0.02);
    for (const char* bad : {"1:2:3", "0:1", "a:1", "1:", ""}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(parse(cvt, info, bad, false), 0.05);
        EXPECT_EQ(parseRaw(cvt, info, bad, false), 0.5);
    }
    EXPECT_EQ(text(cvt, info, 2.0, Tiny), "1:2.0");
    EXPECT_EQ(text(cvt, info, 20.0, Tiny), "1:20");
    EXPECT_EQ(text(cvt, info, 0.05, Tiny), "20:1");
}

TEST_F(ConverterTest, Time)
{
    const auto* cvt = make("audio:cvt-time", {{"scale", "0.001"}, {"label", "ms"}});
    ASSERT_TRUE(cvt);
    CAudioParamInfo info;
    info.minValues = {parseRaw(cvt, info, "0.1", true)};
    info.maxValues = {parseRaw(cvt, info, "5000", true)};
    ASSERT_NEAR(info.minValues[0], 0.0001, 1e-18);
    roundTrips(cvt, info, {{0.0001, "0.10"}, {0.0123, "12.3"}, {0.25, "250"}, {5.0, "5000"}}, 1e-12);
    // Square law by default.
    EXPECT_NEAR(cvt->normToValue(info, 0, 0.5), 0.0001 + 0.25 * (5.0 - 0.0001), 1e-12);
    EXPECT_NEAR(cvt->normToDisplay(info, 0, 1.0), 5000.0, 1e-9);
    EXPECT_NEAR(cvt->displayToNorm(info, 0, 250.0), std::sqrt((0.25 - 0.0001) / (5.0 - 0.0001)), 1e-12);
    EXPECT_EQ(parse(cvt, info, "abc", false), 0.0001);
    EXPECT_EQ(parse(cvt, info, "10000", true), 5.0);
    EXPECT_EQ(parseRaw(cvt, info, "abc", false), 0.0);
    EXPECT_EQ(text(cvt, info, 1.2345), "1235");
    EXPECT_EQ(text(cvt, info, 0.00004, Tiny), "0");
    EXPECT_EQ(text(cvt, info, 0.0052, Tiny), "5.2");
    EXPECT_EQ(text(cvt, info, 0.25, Tiny), "250");
    EXPECT_EQ(text(cvt, info, 1.234, Tiny), "1.2*");
    EXPECT_EQ(text(cvt, info, 12.345, Tiny), "12*");

    const auto* exact = make("audio:cvt-time", {{"scale", "0.001"}, {"is-exact", "true"}, {"is-precise", "true"}});
    EXPECT_EQ(text(exact, info, 1.2345), "1234.500");
    EXPECT_NEAR(exact->normToValue(info, 0, 0.5), (0.0001 + 5.0) / 2.0, 1e-12);
    const auto* exactPlain = make("audio:cvt-time", {{"scale", "0.001"}, {"is-exact", "true"}});
    EXPECT_EQ(text(exactPlain, info, 1.2345), "1234.50");
    const auto* precise = make("audio:cvt-time", {{"scale", "0.001"}, {"is-precise", "true"}});
    EXPECT_EQ(text(precise, info, 0.0123), "12.30");
    const auto* logLaw = make("audio:cvt-time", {{"scale", "1"}, {"is-log", "true"}});
    const CAudioParamInfo decades = rangeInfo(0.001, 1.0);
    EXPECT_NEAR(logLaw->normToValue(decades, 0, 0.5), std::sqrt(0.001), 1e-12);
    EXPECT_NEAR(logLaw->valueToNorm(decades, 0, 0.1), 2.0 / 3.0, 1e-12);
}

TEST_F(ConverterTest, PercentRealAndBandwidth)
{
    const auto* percent = make("audio:cvt-percent", {{"label", "%"}});
    CAudioParamInfo info = rangeInfo(-0.15, 0.15);
    roundTrips(percent, info, {{-0.15, "-15.0"}, {0.0, "0.0"}, {0.075, "7.5"}, {0.15, "15.0"}}, 1e-12);
    EXPECT_EQ(parse(percent, info, "200", true), 0.15);
    EXPECT_EQ(parseRaw(percent, info, "200", true), 2.0);
    EXPECT_EQ(parse(percent, info, "x", false), -0.15);
    EXPECT_EQ(parseRaw(percent, info, "x", false), 0.0);
    EXPECT_EQ(text(percent, info, 0.075, Tiny), "8");
    EXPECT_NEAR(percent->normToDisplay(info, 0, 1.0), 15.0, 1e-12);
    EXPECT_NEAR(percent->displayToNorm(info, 0, 7.5), 0.75, 1e-12);
    EXPECT_NEAR(percent->displayToNorm(info, 0, 100.0), 1.0, 1e-12);
    info.switchValues = {0.0};
    info.switchNames = {"Off"};
    EXPECT_EQ(text(percent, info, 0.004), "Off");
    EXPECT_EQ(text(percent, info, 0.006), "0.6");
    EXPECT_EQ(parse(percent, info, "Off", true), 0.0);

    const auto* real = make("audio:cvt-real", {{"decimals", "2"}});
    const CAudioParamInfo symmetric = rangeInfo(-10.0, 10.0);
    roundTrips(real, symmetric, {{-10.0, "-10.00"}, {0.0, "0.00"}, {3.25, "3.25"}, {10.0, "10.00"}}, 1e-12);
    EXPECT_EQ(text(real, symmetric, 3.14159, Tiny), "3.1");
    EXPECT_EQ(text(real, symmetric, -10.0, Tiny), "-10");
    EXPECT_EQ(text(real, symmetric, -0.001, Tiny), "0.0");
    EXPECT_EQ(parseRaw(real, symmetric, "x", false), 0.0);

    const auto* bw = make("audio:cvt-bw", {{"label", "Oct"}});
    const CAudioParamInfo octaves = rangeInfo(0.1, 4.0);
    roundTrips(bw, octaves, {{0.1, "0.10"}, {1.0, "1.00"}, {2.5, "2.50"}, {4.0, "4.00"}}, 1e-12);
    EXPECT_NEAR(bw->normToValue(octaves, 0, 0.5), 0.1 + 3.9 * 0.25, 1e-12);
    EXPECT_EQ(text(bw, octaves, 1.5, Precise), "1.500");
    EXPECT_EQ(parseRaw(bw, octaves, "x", false), 0.001);
}

TEST_F(ConverterTest, TextItems)
{
    const auto* cvt = make("audio:cvt-text", {{"is-discrete", "true"}});
    qel::CAudioParamData data;
    const uint32_t id = data.addString(CString("Hello"));
    const uint32_t raw = data.addRaw();
    const CAudioParamInfo info = rangeInfo(0.0, 8388608.0);
    EXPECT_EQ(text(cvt, info, double(id), CAudioParamConverter::TextModeNormal, &data), "Hello");
    EXPECT_EQ(text(cvt, info, double(id) + 0.3, Short, &data), "Hello");
    EXPECT_EQ(text(cvt, info, double(raw), CAudioParamConverter::TextModeNormal, &data), "");
    EXPECT_EQ(text(cvt, info, 99.0, CAudioParamConverter::TextModeNormal, &data), "");
    EXPECT_EQ(text(cvt, info, double(id)), "");
    EXPECT_EQ(parse(cvt, info, "anything", true), 0.0);
    EXPECT_EQ(parseRaw(cvt, info, "anything", true), 0.0);
}

TEST_F(ConverterTest, Enum)
{
    const auto* enable = make("audio:cvt-enum", {{"is-discrete", "true"}, {"state-names", "Off;On"}});
    ASSERT_TRUE(enable);
    const CAudioParamInfo info = rangeInfo(0.0, 1.0);
    roundTrips(enable, info, {{0.0, "Off"}, {1.0, "On"}}, 0.0);
    EXPECT_EQ(text(enable, info, 5.0), "Reserve");
    EXPECT_EQ(text(enable, info, -1.0, Tiny), "Rsv");
    EXPECT_EQ(text(enable, info, 0.4, Short), "Off");
    EXPECT_EQ(enable->normToValue(info, 0, 0.6), 1.0);
    EXPECT_EQ(parse(enable, info, " ON ", true), 1.0);
    EXPECT_EQ(parse(enable, info, "1", true), 1.0);
    EXPECT_EQ(parse(enable, info, "7", true), 1.0);
    EXPECT_EQ(parseRaw(enable, info, "7", true), 7.0);
    EXPECT_EQ(parse(enable, info, "maybe", false), 0.0);

    // The converter's names come first; the parameter's continue after them.
    const auto* named = make("audio:cvt-enum", {{"state-names", "Very Soft|VSoft;Medium Hardness"}});
    CAudioParamInfo param = rangeInfo(2.0, 5.0);
    param.stateNames = {"Ignored", "Ignored too", "Third"};
    param.shortStateNames = {"Ign", "Ign2", "3rd"};
    EXPECT_EQ(text(named, param, 2.0), "Very Soft");
    EXPECT_EQ(text(named, param, 2.0, Short), "VSoft");
    EXPECT_EQ(text(named, param, 2.0, Tiny), "VSo");
    EXPECT_EQ(text(named, param, 3.0, Short), "Medium ");
    EXPECT_EQ(text(named, param, 4.0), "Third");
    EXPECT_EQ(text(named, param, 4.0, Short), "3rd");
    EXPECT_EQ(text(named, param, 5.0), "Reserve");
    EXPECT_EQ(parse(named, param, "vsoft", true), 2.0);
    EXPECT_EQ(parse(named, param, "medium hardness", true), 3.0);
    EXPECT_EQ(parse(named, param, "THIRD", true), 4.0);
    EXPECT_EQ(parse(named, param, "3rd", true), 4.0);
    EXPECT_EQ(parse(named, param, "ignored too", true), 3.0); // the parameter's names read too, at their own index
    EXPECT_EQ(parseRaw(named, param, "third", true), 2.0);
    EXPECT_EQ(parse(named, param, "none", false), 2.0);

    const auto* bare = make("audio:cvt-enum", {});
    EXPECT_EQ(text(bare, rangeInfo(0.0, 9.0), 3.4), "3");
    param.stateNames = {"First"};
    param.shortStateNames = {"1st"};
    EXPECT_EQ(text(bare, param, 2.0), "First");
    EXPECT_EQ(text(bare, param, 3.0, Tiny), "Rsv");
}

} // namespace
