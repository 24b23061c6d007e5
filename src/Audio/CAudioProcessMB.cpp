#include "Audio/CAudioProcessMB.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamInfo.h"
#include "Audio/CAudioProcessDefBase.h"
#include "Audio/Processes/CModNode.h"
#include "Core/CLog.h"
#include "Core/CPtrArray.h"

#include <algorithm>
#include <cmath>

namespace qel {

CAudioProcessMB::CAudioProcessMB() { m_isLeaf = false; }

// The copies go before the streams they are wired to.
CAudioProcessMB::~CAudioProcessMB()
{
    m_pre.reset();
    m_bands.clear();
    m_lowPasses.clear();
    m_highPasses.clear();
    m_sink.reset();
}

// ---- set-up

int32_t CAudioProcessMB::bandsToPrepare() const
{
    const CAudioParamInfo* info = m_countBinding->param ? m_countBinding->param->info() : nullptr;
    if (!info || info->maxValues.empty())
        return kFallbackBands;
    double top = std::round(info->maxValues[0]);
    if (!info->minValues.empty())
        top = std::max(top, std::round(info->minValues[0]));
    if (!(top >= 1.0))
        return 1;
    return int32_t(std::min(top, double(kMaxBands)));
}

CErrorPtr CAudioProcessMB::makeCopy(std::unique_ptr<CAudioProcessBase>& out, const CAudioProcessDefBase* def,
                                    const char* suffix, int32_t element, bool isBand)
{
    CAudioProcessBase* made = nullptr;
    QEL_RETURN_IF_ERROR(def->createProcess(made, this, CString(m_fullName).append(suffix), m_env, m_group, element,
                                           m_pool, true, true),
                        m_fullName);
    out.reset(made);
    // A band feeds the sum on both ports; a filter or the pre stage feeds a crossover's two
    // filters or a band.
    made->reserveOutputs(isBand ? kPortCount : 2);
    return nullptr;
}

CErrorPtr CAudioProcessMB::init()
{
    m_allChanged = 1;
    if (!m_def)
        return QEL_ERROR(m_fullName, "@qelstr_CAudioProcessMB_init_NoProcessDef No audio process def supplied.");
    if (m_def->multibandFreqParam().isEmpty())
        return QEL_ERROR(m_fullName, "@qelstr_CAudioProcessMB_init_NoMBFreqParamDefined No 'multiband-freq-param' attribute defined.");
    if (m_def->multibandCountParam().isEmpty())
        return QEL_ERROR(m_fullName, "@qelstr_CAudioProcessMB_init_NoMBCountParamDefined No 'multiband-count-param' attribute defined.");
    CAudioProcessDefBase* lowPass = nullptr;
    CAudioProcessDefBase* highPass = nullptr;
    CAudioProcessDefBase* pre = nullptr;
    QEL_RETURN_IF_ERROR(m_def->findObjectByAttr(lowPass, CString("multiband-lp")), m_fullName);
    QEL_RETURN_IF_ERROR(m_def->findObjectByAttr(highPass, CString("multiband-hp")), m_fullName);
    if (!m_def->multibandPre().isEmpty())
        QEL_RETURN_IF_ERROR(m_def->findObjectByAttr(pre, CString("multiband-pre")), m_fullName);

    // Ports that go past the split. The split itself works on port 0, so naming it
    // changes nothing, and what is not a port number is no port.
    CPtrArray<CString, true> items;
    m_def->multibandPtPorts().split(',', items, true, true);
    for (int i = 0; i < items.count(); ++i) {
        int32_t port = -1;
        if (items[i]->toInt(port) && port > 0 && port < kPortCount)
            m_isPassThrough[port] = true;
    }

    CAudioParamCollector* params = collector();
    for (auto [binding, path] : {std::pair{&m_countBinding, &m_def->multibandCountParam()},
                                 std::pair{&m_freqBinding, &m_def->multibandFreqParam()}}) {
        auto made = std::make_unique<CParamBinding>();
        if (params)
            bindParam(*made, params->getParam(CAudioProcessDefBase::resolveParamPath(m_fullName, *path)), -1, -1);
        *binding = made.get();
        m_bindings.push_back(std::move(made));
    }

    if (pre)
        QEL_RETURN_IF_ERROR(makeCopy(m_pre, pre, ".pre", m_element, false), m_fullName);
    const int32_t bands = bandsToPrepare();
    for (int32_t i = 0; i < bands; ++i) {
        std::unique_ptr<CAudioProcessBase> band, low, high;
        CErrorPtr error = makeCopy(band, m_def, ".mod", i, true);
        if (!error && i + 1 < bands) {
            error = makeCopy(low, lowPass, ".lp", i, false);
            if (!error)
                error = makeCopy(high, highPass, ".hp", i, false);
        }
        if (error) {
            // The process goes on with the bands it has.
            CLog::printfObject(m_fullName, "%s", error->line(0).toUtf8().c_str());
            break;
        }
        m_bands.push_back(std::move(band));
        if (low) {
            m_lowPasses.push_back(std::move(low));
            m_highPasses.push_back(std::move(high));
        }
    }
    // The last band made needs no crossover behind it.
    m_lowPasses.resize(m_bands.empty() ? 0 : m_bands.size() - 1);
    m_highPasses.resize(m_lowPasses.size());
    m_isBandActive.assign(m_bands.size(), 0);
    m_isSplitActive.assign(m_lowPasses.size(), 0);

    m_sink = std::make_unique<CModNode>();
    m_sink->setup(nullptr, this, m_fullName, m_env, m_group, m_element, m_pool);
    QEL_RETURN_IF_ERROR(m_sink->init(), m_fullName);
    const auto bandCount = int32_t(m_bands.size());
    for (int32_t p = 0; p < kPortCount; ++p) {
        m_sink->reserveInputs(p, bandCount, 0);
        reserveInputs(p, 0, bandCount + 2);
    }
    // Per band: its input, a pass-through per port, its outputs; per crossover its input
    // and its two filters' inputs; the pre stage's input.
    const auto links = size_t(bandCount) * size_t(2 + 2 * kPortCount) + 2;
    for (size_t i = 0; i < links; ++i)
        m_streams.push_back(std::make_unique<CAudioStream>());
    m_links.reserve(links);
    m_runList.reserve(size_t(bandCount) * 3 + 1);
    return nullptr;
}

// ---- wiring

void CAudioProcessMB::link(CAudioProcessBase* src, int32_t srcPort, CAudioProcessBase* dst, int32_t dstPort)
{
    if (m_links.size() >= m_streams.size())
        return;
    CAudioStream* s = m_streams[m_links.size()].get();
    s->srcPort = srcPort;
    dst->attachInput(s, dstPort);
    if (src)
        src->attachOutput(s);
    else
        attachFeed(srcPort, dst, dstPort, s);
    m_links.push_back({src, srcPort, dst, dstPort, s});
}

void CAudioProcessMB::unlinkAll()
{
    for (const CLink& l : m_links) {
        l.dst->detachInput(l.stream, l.dstPort);
        if (l.src)
            l.src->detachOutput(l.stream);
        else
            detachFeed(l.srcPort, l.stream);
        l.stream->clear();
    }
    m_links.clear();
    m_runList.clear();
}

void CAudioProcessMB::setActive(CAudioProcessBase* process, bool& isActive, bool shouldBe)
{
    if (isActive == shouldBe)
        return;
    // A band that goes loses its state; one that comes starts from cleared state.
    if (shouldBe)
        process->activate();
    else
        process->deactivate();
    isActive = shouldBe;
}

void CAudioProcessMB::wire(int32_t bands)
{
    unlinkAll();
    bands = std::clamp(bands, 0, int32_t(m_bands.size()));
    for (size_t i = 0; i < m_bands.size(); ++i) {
        bool isActive = m_isBandActive[i] != 0;
        setActive(m_bands[i].get(), isActive, int32_t(i) < bands);
        m_isBandActive[i] = isActive;
    }
    for (size_t i = 0; i < m_lowPasses.size(); ++i) {
        bool isActive = m_isSplitActive[i] != 0;
        const bool shouldBe = int32_t(i) + 1 < bands;
        if (isActive != shouldBe) {
            bool isHighActive = isActive;
            setActive(m_lowPasses[i].get(), isActive, shouldBe);
            setActive(m_highPasses[i].get(), isHighActive, shouldBe);
        }
        m_isSplitActive[i] = isActive;
    }
    if (m_pre)
        setActive(m_pre.get(), m_isPreActive, bands > 0);
    m_bandCount = bands;
    m_isWired = true;
    if (bands == 0)
        return;

    // What reaches the split: the pre stage, or this process's port 0.
    CAudioProcessBase* source = nullptr;
    if (m_pre) {
        link(nullptr, 0, m_pre.get(), 0);
        m_runList.push_back(m_pre.get());
        source = m_pre.get();
    }
    for (int32_t i = 0; i + 1 < bands; ++i) {
        CAudioProcessBase* low = m_lowPasses[size_t(i)].get();
        CAudioProcessBase* high = m_highPasses[size_t(i)].get();
        link(source, 0, low, 0);
        link(source, 0, high, 0);
        link(low, 0, m_bands[size_t(i)].get(), 0);
        m_runList.push_back(low);
        m_runList.push_back(high);
        source = high;
    }
    link(source, 0, m_bands[size_t(bands) - 1].get(), 0);
    for (int32_t i = 0; i < bands; ++i) {
        CAudioProcessBase* band = m_bands[size_t(i)].get();
        for (int32_t p = 0; p < kPortCount; ++p) {
            if (m_isPassThrough[p])
                link(nullptr, p, band, p);
            link(band, p, m_sink.get(), p);
        }
        m_runList.push_back(band);
    }
}

// ---- run time

int32_t CAudioProcessMB::countFromParams() const
{
    const CAudioParam* countParam = m_countBinding->param;
    const double wanted = countParam ? countParam->audioValues().getElementValue(m_group, 0, 0, 1.0) : 1.0;
    const int32_t count = wanted > 0.0 ? int32_t(std::lround(std::min(wanted, double(kMaxBands)))) : 0;
    const CAudioParam* freqParam = m_freqBinding->param;
    if (!freqParam || count <= 1)
        return std::min(count, 1);
    const CAudioParamStorage& freqs = freqParam->audioValues();
    const int32_t available = freqs.elementCount(m_group);
    int32_t bands = 1;
    double previous = 0.0;
    for (int32_t i = 0; i < available && bands < count; ++i) {
        const double freq = freqs.getElementValue(m_group, i, 0, 0.0);
        if (!(freq < 0.5 * m_inputRate) || (i > 0 && freq < previous))
            break;
        previous = freq;
        ++bands;
    }
    return bands;
}

void CAudioProcessMB::update()
{
    const bool isChanged = m_reconfigured || m_allChanged || m_countBinding->changed || m_freqBinding->changed;
    if (m_isWired && !isChanged)
        return;
    const int32_t bands = countFromParams();
    if (m_isWired && bands == m_bandCount)
        return;
    wire(bands);
}

void CAudioProcessMB::process()
{
    pull();
    releasePortBuffers();
    for (CAudioProcessBase* p : m_runList)
        p->process();
    m_sink->process();
}

void CAudioProcessMB::reset()
{
    CAudioProcessBase::reset();
    for (CAudioProcessBase* p : m_runList)
        p->reset();
    for (const CLink& l : m_links)
        l.stream->releaseBuffers();
    m_sink->reset();
}

void CAudioProcessMB::release()
{
    unlinkAll();
    wire(0);
    m_isWired = false;
    m_sink->release();
    CAudioProcessBase::release();
}

void CAudioProcessMB::attachOutput(CAudioStream* stream) { m_sink->attachOutput(stream); }

void CAudioProcessMB::detachOutput(CAudioStream* stream) { m_sink->detachOutput(stream); }

void CAudioProcessMB::reserveOutputs(int32_t count) { m_sink->reserveOutputs(count); }

CAudioProcessBase* CAudioProcessMB::band(int32_t index) const
{
    return index >= 0 && index < m_bandCount ? m_bands[size_t(index)].get() : nullptr;
}

const CAudioProcessBase& CAudioProcessMB::outputSide() const { return *m_sink; }

} // namespace qel
