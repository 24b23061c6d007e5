#pragma once

#include "Audio/CAudioParamInfo.h"
#include "Core/CObject.h"

namespace qel {

// A parameter as a definition declares it (tag audio:param): read once in init into the
// plain record that the rest of the system uses.
class CAudioParamDef : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    const CAudioParamInfo& info() const { return m_info; }

private:
    CAudioParamInfo m_info;
};

// States that the process it belongs to uses parameter `param-name` in slot `index`
// (tag audio:param-alloc).
class CAudioParamAllocDef : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    const CString& paramName() const { return m_paramName; }
    // The last part of `param-name` ("freq" of "^eq-params.freq"): what a process keys
    // its slots by, wherever the parameter lives.
    CString plainParamName() const;
    int32_t index() const { return m_index; }
    bool useAllGroups() const { return m_useAllGroups; }
    bool useAllElements() const { return m_useAllElements; }
    bool isSmoothUpdate() const { return m_isSmoothUpdate; }

private:
    CString m_paramName;
    int32_t m_index = 0;
    bool m_useAllGroups = false;
    bool m_useAllElements = false;
    bool m_isSmoothUpdate = false;
};

} // namespace qel
