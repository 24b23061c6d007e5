// A host's automation through the filters on the audio thread: once every group and element
// was touched, writing sources and applying the filters' changes allocates and frees nothing.
// Part of the graph's real-time counting program.

#include "../AudioParamTestSupport.h"
#include "../RealTimeCounting.h"

#include "Audio/ParamFilters/CAudioParamFilterDef.h"

#include <cmath>
#include <thread>

using namespace qel;
using namespace qel::test;

namespace {

class FilterRealTime : public AudioParamFixture
{
protected:
    void addFilter(const char* tag, const Attrs& attrs, std::vector<CString> sources, std::vector<CString> destinations)
    {
        auto* def = dynamic_cast<CAudioParamFilterDef*>(make(m_root.get(), tag, nextName().c_str(), attrs));
        ASSERT_NE(def, nullptr);
        ASSERT_FALSE(m_collector->addFilter(*def, CString("x"), sources, destinations));
    }
};

Attrs dbParam(const char* min, const char* max)
{
    return {{"element-size", "1"}, {"converter", "gain"}, {"min-values", min}, {"max-values", max}, {"def-values", "0"}};
}

Attrs single(Attrs attrs)
{
    attrs.push_back({"is-single-group", "true"});
    attrs.push_back({"is-single-element", "true"});
    return attrs;
}

TEST_F(FilterRealTime, HostAutomationThroughFiltersAllocatesNothing)
{
    CAudioParam* bands = param(CString("x.eq-params.gain"), dbParam("-3", "9"));
    CAudioParam* outgain = param(CString("x.outgain"), dbParam("-12", "12"));
    CAudioParam* ingain = param(CString("x.ingain"), dbParam("-36", "36"));
    CAudioParam* solo = param(CString("x.solo"), realParam("0", "0", "1"));
    param(CString("x.solo-bypass"), single(realParam("0", "0", "1")));
    CAudioParam* oversampling = param(CString("x.os"), single(realParam("1", "0", "4")));
    param(CString("x.host"), single(realParam("0", "0", "3")));
    CAudioParam* osBypass = param(CString("x.os-bypass"), single(realParam("0", "0", "1")));
    addFilter("audio:param-filter-fixedag", {{"src", "a,b"}, {"dst", "c"}, {"coeffs", "-0.35,-0.35,-0.2"}},
              {CString("x.eq-params.gain"), CString("x.outgain")}, {CString("x.ingain")});
    addFilter("audio:param-filter-bypass-group-solo", {{"src", "a"}, {"dst", "b"}}, {CString("x.solo")},
              {CString("x.solo-bypass")});
    addFilter("audio:param-filter-bypass-os", {{"src", "a,b"}, {"dst", "c"}}, {CString("x.os"), CString("x.host")},
              {CString("x.os-bypass")});
    drain();
    m_env->setActive(true);

    constexpr int kRounds = 3000;
    constexpr int kWarmUp = 200;
    RealTimeCounts counts;
    std::thread audio([&] {
        for (int i = 0; i < kRounds; ++i) {
            t_counting = i >= kWarmUp;
            // As the wrapper applies a host's parameter points: one element of one group.
            const int32_t group = i % 8;
            bands->setElementValue(std::pow(10.0, (-3.0 + 12.0 * ((i * 7) % 13) / 12.0) / 20.0), group, (i / 8) % 3, nullptr);
            outgain->setElementValue(std::pow(10.0, std::sin(0.01 * i) * 12.0 / 20.0), group, 0, nullptr);
            solo->setElementValue(i % 5 == 0 ? 1.0 : 0.0, group, 0, nullptr);
            oversampling->setElementValue(double(i % 5), 0, 0, nullptr);
            // And the next block takes the changes in.
            CAudioParamQueuedChange* list = m_collector->takePendingChanges();
            CAudioParamCollector::applyPendingChanges(list);
            CAudioParamQueuedChange::freeList(list);
            t_counting = false;
        }
        counts = {t_news, t_mallocs, t_frees};
    });
    audio.join();
    m_env->setActive(false);

    // The filters ran all along: the last values agree on both sides.
    for (int32_t g = 0; g < 8; ++g) {
        double db = 20.0 * std::log10(outgain->values().getElementValue(g, 0, 0, 0.0));
        const double coeffs[3] = {-0.35, -0.35, -0.2};
        for (int32_t e = 0; e < 3; ++e)
            db += coeffs[e] * 20.0 * std::log10(bands->values().getElementValue(g, e, 0, 0.0));
        EXPECT_NEAR(20.0 * std::log10(ingain->audioValues().getElementValue(g, 0, 0, 0.0)), db, 1e-9) << g;
    }
    EXPECT_EQ(osBypass->audioValues().getElementValue(0, 0, 0, -1.0), (kRounds - 1) % 5 == 1 ? 1.0 : 0.0);
    QEL_EXPECT_NOTHING_ALLOCATED(counts);
}

} // namespace
