#include "Audio/CAudioProcessDefBase.h"

#include "Audio/CAudioEnv.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamDef.h"
#include "Audio/CAudioProcessBase.h"
#include "Audio/CAudioProcessMB.h"
#include "Audio/CAudioProcessStack.h"
#include "Audio/ParamFilters/CAudioParamFilterDef.h"
#include "Audio/ParamFilters/CAudioParamRemapDef.h"
#include "Audio/ParamFilters/CAudioParamSharedStorage.h"

#include <memory>
#include <new>
#include <vector>

namespace qel {

CErrorPtr CAudioProcessDefBase::init()
{
    QEL_RETURN_IF_ERROR(CAudioProcessDefBaseInit::init(), getFullName());
    m_isSmoothUpdate = getAttrBool(CString("is-smooth-update"));
    m_isMultiband = getAttrBool(CString("is-multiband"));
    m_multibandPtPorts = getAttrString(CString("multiband-pt-ports"));
    m_multibandFreqParam = getAttrString(CString("multiband-freq-param"));
    m_multibandCountParam = getAttrString(CString("multiband-count-param"));
    m_multibandPre = getAttrString(CString("multiband-pre"));
    m_multibandLp = getAttrString(CString("multiband-lp"));
    m_multibandHp = getAttrString(CString("multiband-hp"));
    m_isStacked = getAttrBool(CString("is-stacked"));
    m_stackParam = getAttrString(CString("stack-param"));
    m_stackIndexShift = getAttrInt(CString("stack-index-shift"));
    if (m_stackIndexShift < 0)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessDefBase_init_InvalidStackIndexShift Invalid stack index shift value '%1' specified.",
                         getAttrString(CString("stack-index-shift")));
    m_isChannelStack = getAttrBool(CString("is-channel-stack"));
    m_isTerminalWhole = getAttrBool(CString("is-terminal-whole"));
    m_isPrototype = getAttrBool(CString("is-prototype"));
    m_isOutOfOrder = getAttrBool(CString("is-outoforder"));
    m_bypassStateId = getAttrInt(CString("bypass-state-id"));
    m_isCompInput = getAttrBool(CString("is-comp-input"));

    const CString combo = getAttrString(CString("input-combo-mode"));
    m_inputComboMode = combo == CString("avg") ? ComboAvg : combo == CString("max") ? ComboMax : ComboSum;

    // Also catches an absent value, which reads as 0.
    m_hasXfadeLength = hasAttr(CString("xfade-length"));
    m_xfadeLengthSec = getAttrReal(CString("xfade-length"));
    if (!(m_xfadeLengthSec >= kMinXfadeLengthSec))
        m_xfadeLengthSec = kMinXfadeLengthSec;
    return nullptr;
}

CErrorPtr CAudioProcessDefBase::createProcess(CAudioProcessBase*& outProcess, CAudioProcessBase* parent,
                                              const CString& fullName, CAudioEnv* env, int32_t group, int32_t element,
                                              CSampleBufferPool* pool, bool skipStack, bool skipMultiband) const
{
    outProcess = nullptr;
    std::unique_ptr<CAudioProcessBase> process(m_isMultiband && !skipMultiband ? newMultiband()
                                               : m_isStacked && !skipStack   ? newStack()
                                                                             : newProcess());
    if (!process)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessDefBase_createProcess_NotAvailable Audio process creation is not available.");
    process->setup(this, parent, fullName, env, group, m_stackIndexShift + element, pool);
    QEL_RETURN_IF_ERROR(bindParams(env, fullName), fullName);
    QEL_RETURN_IF_ERROR(process->init(), fullName);
    // A root is made by whoever sets the graph up, never on the audio thread: what its
    // making noticed (a cycle, a slot without a row) is told at once.
    if (!parent && env)
        env->diagnostics().flush();
    outProcess = process.release();
    return nullptr;
}

CAudioProcessBase* CAudioProcessDefBase::newStack() const { return new (std::nothrow) CAudioProcessStack(); }

CAudioProcessBase* CAudioProcessDefBase::newMultiband() const { return new (std::nothrow) CAudioProcessMB(); }

CAudioProcessBase* CAudioProcessDefBase::newProcess() const { return nullptr; }

void CAudioProcessDefBase::attachParamDefs(CAudioEnv* env, const CString& fullName) const
{
    CAudioParamCollector* collector = env ? env->paramCollector() : nullptr;
    if (!collector)
        return;
    // Every instance attaches the same definition; after the first this changes nothing.
    for (const auto& entry : params()) {
        const CString name = resolveParamPath(fullName, entry.path);
        // A remapped name stands for a parameter declared elsewhere, which keeps its own
        // definition: this one only describes the slot.
        if (collector->isAliased(name))
            continue;
        CAudioParamUpdateContext context;
        collector->getParam(name)->attachDefinition(&entry.object->info(), context);
    }
}

CErrorPtr CAudioProcessDefBase::bindParams(CAudioEnv* env, const CString& fullName) const
{
    CAudioParamCollector* collector = env ? env->paramCollector() : nullptr;
    if (!collector)
        return nullptr;
    // Aliases first: the definitions attached next, and every parameter that this process
    // and its children bind later, must already find their targets.
    for (const CAudioParamRemapDef* remap : remaps()) {
        for (const CAudioParamRemapDef::CPair& pair : remap->pairs()) {
            const CString alias = resolveParamPath(fullName, pair.orig);
            const CString target = resolveParamPath(fullName, pair.target);
            if (alias != target)
                collector->addAlias(alias, target);
        }
    }
    attachParamDefs(env, fullName);
    // The collector keeps one of each per process name, whichever copy asks first.
    for (const auto& entry : sharedStorages())
        collector->addSharedParam(resolveParamPath(fullName, entry.path), entry.object->store(),
                                  entry.object->dataName());
    for (const CAudioParamFilterDef* filter : paramFilters()) {
        std::vector<CString> sources;
        std::vector<CString> destinations;
        for (const CString& name : filter->sourceNames())
            sources.push_back(resolveParamPath(fullName, name));
        for (const CString& name : filter->destinationNames())
            destinations.push_back(resolveParamPath(fullName, name));
        QEL_RETURN_IF_ERROR(collector->addFilter(*filter, fullName, sources, destinations), fullName);
    }
    return nullptr;
}

CString CAudioProcessDefBase::resolveParamPath(const CString& baseName, const CString& path)
{
    if (!path.isEmpty() && path.at(0) == '/')
        return path.substring(1);
    CString base(baseName);
    int pos = 0;
    for (; pos < path.length() && path.at(pos) == '^'; ++pos) {
        const int dot = base.findLast('.');
        base = dot < 0 ? CString() : base.substring(0, dot);
    }
    const CString rest = path.substring(pos);
    if (rest.isEmpty())
        return base;
    if (rest.at(0) != '.')
        base.append(".");
    return base.append(rest);
}

} // namespace qel
