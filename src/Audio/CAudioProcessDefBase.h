#pragma once

#include "Audio/CAudioProcessDefBaseInit.h"

#include <cstdint>

namespace qel {

class CAudioEnv;
class CAudioProcessBase;
class CSampleBufferPool;

// What every process definition says, composite or leaf. An absent attribute reads as 0,
// false or empty like any other attribute; the product's definitions spell every one out,
// so nothing here substitutes a default of its own. Read once in init and never changed:
// the running graph keeps its state in the processes, not here.
class CAudioProcessDefBase : public CAudioProcessDefBaseInit
{
public:
    enum InputComboMode : int32_t { ComboSum = 0, ComboAvg = 1, ComboMax = 2 };
    // A crossfade must have at least a few samples at any rate a host uses.
    static constexpr double kMinXfadeLengthSec = 0.0001;

    static void initClassInfo(CClassInfo& info) { CAudioProcessDefBaseInit::initClassInfo(info); }
    CErrorPtr init() override;

    // Set-up thread: makes, names and initialises the process this definition describes,
    // under the dotted `fullName` its parameter paths are resolved against. A stacked or
    // multiband definition makes its wrapper unless the caller asks to skip it, as those
    // wrappers do for their inner instances. The parameters the definition holds are
    // attached in the environment's collector before the process binds its own.
    // The caller owns what comes back in `outProcess`.
    CErrorPtr createProcess(CAudioProcessBase*& outProcess, CAudioProcessBase* parent, const CString& fullName,
                            CAudioEnv* env, int32_t group, int32_t element, CSampleBufferPool* pool, bool skipStack,
                            bool skipMultiband) const;
    // Set-up thread: what the definition says about parameters, in the environment's
    // collector, for a process named `fullName`: remaps become aliases, the parameters it
    // declares get their definitions, shared storages and filters are made. Every copy of
    // a stacked or multiband definition and its wrapper may call it: what exists already
    // is kept.
    CErrorPtr bindParams(CAudioEnv* env, const CString& fullName) const;

    // A parameter path as a process's definition writes it, resolved against the
    // process's dotted full name: "/x" is absolute; each leading '^' drops the last
    // component of the base; what remains is appended, with a '.' unless it brings its own.
    static CString resolveParamPath(const CString& baseName, const CString& path);

    bool isSmoothUpdate() const { return m_isSmoothUpdate; }
    bool isMultiband() const { return m_isMultiband; }
    const CString& multibandPtPorts() const { return m_multibandPtPorts; }
    const CString& multibandFreqParam() const { return m_multibandFreqParam; }
    const CString& multibandCountParam() const { return m_multibandCountParam; }
    const CString& multibandPre() const { return m_multibandPre; }
    const CString& multibandLp() const { return m_multibandLp; }
    const CString& multibandHp() const { return m_multibandHp; }
    bool isStacked() const { return m_isStacked; }
    const CString& stackParam() const { return m_stackParam; }
    int32_t stackIndexShift() const { return m_stackIndexShift; }
    bool isChannelStack() const { return m_isChannelStack; }
    bool isTerminalWhole() const { return m_isTerminalWhole; }
    // A template for others: the parent makes no node for it.
    bool isPrototype() const { return m_isPrototype; }
    // Left out of the automatic chain; only explicit links reach it.
    bool isOutOfOrder() const { return m_isOutOfOrder; }
    // -1 names no state.
    int32_t bypassStateId() const { return m_bypassStateId; }
    bool isCompInput() const { return m_isCompInput; }
    InputComboMode inputComboMode() const { return m_inputComboMode; }
    double xfadeLengthSec() const { return m_xfadeLengthSec; }
    // Whether the definition names a crossfade length of its own rather than leaving the
    // minimum in place.
    bool hasXfadeLength() const { return m_hasXfadeLength; }

protected:
    // The class's own process, not yet initialised: the last virtual slot. Null for a
    // definition that makes none.
    virtual CAudioProcessBase* newProcess() const;

private:
    // The wrappers that run copies of this definition: per group and element, per band.
    CAudioProcessBase* newStack() const;
    CAudioProcessBase* newMultiband() const;
    void attachParamDefs(CAudioEnv* env, const CString& fullName) const;

    bool m_isSmoothUpdate = false;
    bool m_isMultiband = false;
    CString m_multibandPtPorts;
    CString m_multibandFreqParam;
    CString m_multibandCountParam;
    CString m_multibandPre;
    CString m_multibandLp;
    CString m_multibandHp;
    bool m_isStacked = false;
    CString m_stackParam;
    int32_t m_stackIndexShift = 0;
    bool m_isChannelStack = false;
    bool m_isTerminalWhole = false;
    bool m_isPrototype = false;
    bool m_isOutOfOrder = false;
    int32_t m_bypassStateId = 0;
    bool m_isCompInput = false;
    InputComboMode m_inputComboMode = ComboSum;
    double m_xfadeLengthSec = kMinXfadeLengthSec;
    bool m_hasXfadeLength = false;
};

} // namespace qel
