// Start-up costs of the object framework: reading the shared definition, and building an
// instance's tree from its template, which happens for every plug-in instance a host makes.

#include "Core/CApplication.h"
#include "Core/CCoreCreators.h"
#include "Core/CLog.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

namespace qel {
extern const CResourceRow kBenchDefinitions[];
}

using namespace qel;

namespace {

void fail(CErrorPtr error)
{
    std::fprintf(stderr, "%s", error->text().toUtf8().c_str());
    std::abort();
}

struct Application
{
    Application()
    {
        CLog::setFileName(CString());
        if (CErrorPtr error = CApplication::startup({kCoreCreatorRows}, kBenchDefinitions, CString("BenchShared.xml")))
            fail(std::move(error));
    }
};

void started()
{
    static Application s_application;
}

int countObjects(const CObject* o)
{
    int n = 1;
    for (int i = 0; i < o->childCount(); ++i)
        n += countObjects(o->child(i));
    return n;
}

void BM_LoadSharedDefinition(benchmark::State& state)
{
    started();
    for (auto _ : state) {
        CObjectPtr root(new CObject);
        root->makeRoot(nullptr);
        if (CErrorPtr error = root->loadXMLData(CString("BenchShared.xml"), true))
            fail(std::move(error));
        benchmark::DoNotOptimize(root.get());
    }
}

void BM_InstantiatePlugin(benchmark::State& state)
{
    started();
    int objects = 0;
    for (auto _ : state) {
        CObjectPtr root;
        if (CErrorPtr error = CApplication::initRootObject(root, CString()))
            fail(std::move(error));
        CObject* plugin = nullptr;
        if (CErrorPtr error = root->createChild(plugin, CString("plugin"), CString("plugin"), true))
            fail(std::move(error));
        objects = countObjects(root.get());
    }
    state.counters["objects"] = objects;
    state.SetItemsProcessed(state.iterations() * objects);
}

} // namespace

BENCHMARK(BM_LoadSharedDefinition)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_InstantiatePlugin)->Unit(benchmark::kMicrosecond);
