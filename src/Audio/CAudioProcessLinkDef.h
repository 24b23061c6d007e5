#pragma once

#include "Core/CObject.h"

#include <cstdint>
#include <vector>

namespace qel {

// One link between two children of a composite process (tag audio:process-link):
// `src` and `dst` are "process" or "process/port", where the process "*" is the
// parent's own input (as a source) or output (as a destination). A link that names a
// process which does not exist is not refused here: the planner leaves it out.
class CAudioProcessLinkDef : public CObject
{
public:
    // The link state of a link that is always active.
    static constexpr int32_t kAlwaysState = -1;

    enum class EndpointError { None, Name, Port };

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    const CString& srcProcess() const { return m_srcProcess; }
    int32_t srcPort() const { return m_srcPort; }
    const CString& dstProcess() const { return m_dstProcess; }
    int32_t dstPort() const { return m_dstPort; }
    int32_t stateId() const { return m_stateId; }
    // The link is dropped while any of these bypass states holds.
    const std::vector<int32_t>& bypassStateIds() const { return m_bypassStateIds; }

    // "name" or "name/port". The port must be an integer of at least 0; the name must not
    // be empty. On failure the outputs are unspecified.
    static EndpointError parseEndpoint(const CString& text, CString& outProcess, int32_t& outPort);
    // Integers of at least 0 separated by blanks; anything else between the blanks is
    // skipped, so a damaged id costs that id and not the link.
    static void parseIdList(const CString& text, std::vector<int32_t>& out);

private:
    CString m_srcProcess;
    int32_t m_srcPort = 0;
    CString m_dstProcess;
    int32_t m_dstPort = 0;
    int32_t m_stateId = kAlwaysState;
    std::vector<int32_t> m_bypassStateIds;
};

} // namespace qel
