#pragma once

#include "Core/CString.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace qel {

// The names a filter generator may ask for ("freq", "gain", "bw", "length", "beta"), in the
// order of the process's parameter slots. Made at set-up; looking a name up afterwards
// only compares bytes, so a generator may do it on the audio thread.
class CAudioFilterParamNames
{
public:
    static constexpr int32_t kMaxNames = 32;

    // Set-up thread. A name past kMaxNames is not taken.
    bool add(const CString& name)
    {
        if (int32_t(m_names.size()) >= kMaxNames)
            return false;
        m_names.push_back(name.toUtf8());
        return true;
    }
    bool add(const char* name) { return add(CString(name)); }
    void clear() { m_names.clear(); }

    int32_t count() const { return int32_t(m_names.size()); }
    const std::string& name(int32_t position) const { return m_names[size_t(position)]; }
    // Position of `name`, or -1.
    int32_t indexOf(const char* name) const
    {
        for (size_t i = 0; i < m_names.size(); ++i)
            if (std::strcmp(m_names[i].c_str(), name) == 0)
                return int32_t(i);
        return -1;
    }

private:
    std::vector<std::string> m_names;
};

// What a generator designs from: the name table and one value per name, in internal units
// (Hz, linear gain, octaves, seconds). A value that is not a number counts as missing,
// which is how a parameter without a value yet reaches the generator.
struct CAudioFilterParams
{
    const CAudioFilterParamNames* names = nullptr;
    const double* values = nullptr;
    int32_t count = 0;

    bool find(const char* name, double& out) const
    {
        if (!names || !values)
            return false;
        const int32_t at = names->indexOf(name);
        if (at < 0 || at >= count || std::isnan(values[at]))
            return false;
        out = values[at];
        return true;
    }
};

} // namespace qel
