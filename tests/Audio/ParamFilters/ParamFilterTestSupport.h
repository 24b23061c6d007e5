#pragma once

// What the filter, remap and shared-storage tests share: the graphs of ParamFilterGraphs.xml
// built under "plugin." as the graph tests build theirs, a filter kind made for the test
// that exercises the base class's element mapping, and levels in decibels.

#include "../GraphTestSupport.h"

#include "Audio/CAudioParamInfo.h"
#include "Audio/ParamFilters/CAudioParamFilter.h"
#include "Audio/ParamFilters/CAudioParamFilterDef.h"

#include <cmath>
#include <string>

namespace qel {
extern const CResourceRow kParamFilterTestDefinitions[];
}

namespace qel::test {

// x = 2 * a + b(element 0), element by element; y is left to keep its values.
class CTestScaleFilter : public CAudioParamFilter
{
public:
    int getMinSourceCount() const override { return 2; }

protected:
    int computeElement(CSources sources, int32_t group, int32_t element, double* outValues) override
    {
        outValues[0] = 2.0 * sources[0]->getElementValue(group, element, 0, 0.0) + sources[1]->getElementValue(group, 0, 0, 0.0);
        return 1;
    }
};

class CTestScaleFilterDef : public CAudioParamFilterDef
{
public:
    static void initClassInfo(CClassInfo& info) { CAudioParamFilterDef::initClassInfo(info); }
    CAudioParamFilter* createFilter() const override { return new CTestScaleFilter(); }
};

inline const CCreatorRow kParamFilterTestCreatorRows[] = {
    creatorRow<CTestScaleFilterDef>("test:param-filter-scale"),
    {nullptr, nullptr, nullptr},
};

inline double toLinear(double db) { return std::pow(10.0, db / 20.0); }
inline double toDb(double linear) { return 20.0 * std::log10(linear); }

class ParamFilterFixture : public GraphFixture
{
protected:
    ParamFilterFixture() : GraphFixture(kParamFilterTestDefinitions) {}

    void SetUp() override
    {
        ASSERT_FALSE(CApplication::startup({kCoreCreatorRows, kAudioCreatorRows, kGraphTestCreatorRows,
                                            kParamFilterTestCreatorRows},
                                           m_definitions, CString("TestProcessGraphs.xml")));
        ASSERT_FALSE(CApplication::initRootObject(m_root, CString()));
        m_collector = addInstance(m_env);
        ASSERT_TRUE(m_env && m_collector);
    }

    // A further env and collector, as a second plug-in instance in the same process has.
    CAudioParamCollector* addInstance(CAudioEnv*& env)
    {
        CObject* made = nullptr;
        const CString suffix = CString::number(++m_instances);
        const CString envName = CString("env").append(suffix);
        EXPECT_FALSE(m_root->createChild(made, CString("audio:audio-env"), envName, false));
        env = dynamic_cast<CAudioEnv*>(made);
        CAttrMap attrs;
        attrs[CString("env")].setString(envName);
        EXPECT_FALSE(m_root->createChild(made, CString("audio:param-collector"), CString("params").append(suffix), false,
                                         nullptr, &attrs));
        auto* collector = dynamic_cast<CAudioParamCollector*>(made);
        if (env)
            env->setParamCollector(collector);
        return collector;
    }

    // The process `audio.<name>` as plugin.<name> in the given instance, without wiring.
    std::unique_ptr<CAudioProcessBase> instantiate(const char* name, CAudioEnv* env, std::string* error = nullptr)
    {
        CAudioProcessDefBase* def = nullptr;
        CErrorPtr failure = CApplication::sharedRoot()->findObjectChecked(def, CString("audio.").append(name));
        CAudioProcessBase* made = nullptr;
        if (!failure)
            failure = def->createProcess(made, nullptr, CString("plugin.").append(name), env, 0, 0, &m_pool, false, false);
        if (error)
            *error = firstLine(failure);
        else
            EXPECT_FALSE(failure) << (failure ? failure->text().toUtf8() : std::string());
        return std::unique_ptr<CAudioProcessBase>(made);
    }

    // A definition of the test file's templates, made in the instance tree.
    CErrorPtr instantiateTemplate(CObject*& out, const char* templateName)
    {
        return m_root->createChild(out, CString(templateName), CString("t").append(CString::number(++m_instances)), true);
    }

    CAudioParam* param(const std::string& name, CAudioParamCollector* collector = nullptr)
    {
        return (collector ? collector : m_collector)->getParam(CString("plugin.").append(CString::fromUtf8(name)));
    }
    // Element `element` of `group`, as the UI and the host see it.
    double value(const std::string& name, int32_t group = 0, int32_t element = 0, CAudioParamCollector* collector = nullptr)
    {
        CAudioParam* p = param(name, collector);
        CAudioParamLock lock(*p);
        return p->values().getElementValue(group, element, 0, std::nan(""));
    }
    void setElement(const std::string& name, double v, int32_t group, int32_t element)
    {
        param(name)->setElementValue(v, group, element, nullptr);
    }

    // What an audio thread does at the start of a block.
    void drain(CAudioParamCollector* collector = nullptr)
    {
        CAudioParamQueuedChange* list = (collector ? collector : m_collector)->takePendingChanges();
        CAudioParamCollector::applyPendingChanges(list);
        CAudioParamQueuedChange::freeList(list);
    }

    CSampleBufferPool m_pool;
    int m_instances = 0;
};

} // namespace qel::test
