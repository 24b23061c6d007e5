#include "Audio/CAudioProcessLinkDef.h"

namespace qel {

CErrorPtr CAudioProcessLinkDef::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    const CString srcName("src");
    const CString dstName("dst");
    if (!hasAttr(srcName))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessLinkDef_init_NoSrc No 'src' attribute defined.");
    if (!hasAttr(dstName))
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessLinkDef_init_NoDst No 'dst' attribute defined.");

    const CString src = getAttrString(srcName);
    switch (parseEndpoint(src, m_srcProcess, m_srcPort)) {
    case EndpointError::None:
        break;
    case EndpointError::Name:
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessLinkDef_init_SrcNameError Invalid process in the 'src' attribute value '%1' specified.",
                         src);
    case EndpointError::Port:
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessLinkDef_init_SrcPortError Invalid port in the 'src' attribute value '%1' specified.",
                         src);
    }
    const CString dst = getAttrString(dstName);
    switch (parseEndpoint(dst, m_dstProcess, m_dstPort)) {
    case EndpointError::None:
        break;
    case EndpointError::Name:
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessLinkDef_init_DstNameError Invalid process in the 'dst' attribute value '%1' specified.",
                         dst);
    case EndpointError::Port:
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessLinkDef_init_DstPortError Invalid port in the 'dst' attribute value '%1' specified.",
                         dst);
    }

    m_stateId = getAttrInt(CString("state-id"));
    if (m_stateId < kAlwaysState)
        return QEL_ERROR(getFullName(), "@qelstr_CAudioProcessLinkDef_init_StateError Invalid state identifier '%1' specified.",
                         getAttrString(CString("state-id")));
    parseIdList(getAttrString(CString("bypass-state-id")), m_bypassStateIds);
    return nullptr;
}

CAudioProcessLinkDef::EndpointError CAudioProcessLinkDef::parseEndpoint(const CString& text, CString& outProcess,
                                                                       int32_t& outPort)
{
    const int slash = text.find('/');
    outPort = 0;
    if (slash >= 0 && (!text.substring(slash + 1).toInt(outPort) || outPort < 0))
        return EndpointError::Port;
    outProcess = slash >= 0 ? text.substring(0, slash) : text;
    return outProcess.isEmpty() ? EndpointError::Name : EndpointError::None;
}

void CAudioProcessLinkDef::parseIdList(const CString& text, std::vector<int32_t>& out)
{
    out.clear();
    CPtrArray<CString, true> items;
    text.split(' ', items, true, true);
    for (const CString* item : items) {
        int32_t id = 0;
        if (item->toInt(id) && id >= 0)
            out.push_back(id);
    }
}

} // namespace qel
