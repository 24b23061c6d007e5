#pragma once

#include <cstdint>

namespace qel {

// What a design call carries besides its parameters. Kernel sets are constant tables that
// stages of one kind share (CDCDAWKernelSet), so the workspace has no cache to keep; it
// bounds how deep generators may call one another, so that a definition whose serial
// generators name each other in a ring designs nothing instead of recursing for ever.
// One per module; audio thread.
class CDCDAWFilterWorkspace
{
public:
    static constexpr int32_t kMaxDepth = 8;

    // False when the call would go deeper than kMaxDepth; otherwise pair with leave().
    bool enter()
    {
        if (m_depth >= kMaxDepth)
            return false;
        ++m_depth;
        return true;
    }
    void leave()
    {
        if (m_depth > 0)
            --m_depth;
    }
    int32_t depth() const { return m_depth; }

private:
    int32_t m_depth = 0;
};

} // namespace qel
