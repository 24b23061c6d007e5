#pragma once

#include "Core/CObject.h"

#include <cstdint>

namespace qel {

class CAudioParam;
class CAudioParamCollector;

// A named on/off condition over one or two parameters (tag audio:process-bypass-state).
// Processes and links name it by `id`; while it holds they count as absent. One
// definition serves every instance and every group, so the parameters it reads are bound
// per process, in a CBinding, never stored here.
class CAudioProcessBypassStateDef : public CObject
{
public:
    // "[min;max]" or "[min;max;step]", each bracket square (bound inside) or round
    // (outside), '*' for an open side. Values are compared on the step's grid, rounded
    // half away from zero, so that a knob's float noise never decides a bound.
    struct CRange
    {
        static constexpr double kDefaultStep = 0.01;

        double step = kDefaultStep;
        bool hasMin = false;
        bool hasMax = false;
        bool isMinInside = true;
        bool isMaxInside = true;
        int64_t minSteps = 0;
        int64_t maxSteps = 0;

        // False for anything else, including a step that is not above 0.
        static bool parse(const CString& text, CRange& out);
        // A value that is not a number is in no range.
        bool contains(double value) const;
    };

    // The test of one parameter: within the range, or without one within 0.1 of `value`.
    struct CTest
    {
        static constexpr double kTolerance = 0.1;

        bool hasRange = false;
        CRange range;
        double value = 0.0;

        bool matches(double x) const;
    };

    // The state's parameters as one process sees them: found in that process's collector
    // beside its full name.
    class CBinding
    {
    public:
        CBinding() = default;
        CBinding(const CAudioProcessBypassStateDef* state, CAudioParam* param, CAudioParam* andParam)
            : m_state(state), m_param(param), m_andParam(andParam)
        {
        }

        const CAudioProcessBypassStateDef* state() const { return m_state; }
        CAudioParam* param() const { return m_param; }
        CAudioParam* andParam() const { return m_andParam; }

        // Audio thread, while planning: reads the audio side's values of the process's
        // group and element. An unbound binding never holds.
        bool isBypassed(int32_t group, int32_t element) const;

    private:
        const CAudioProcessBypassStateDef* m_state = nullptr;
        CAudioParam* m_param = nullptr;
        CAudioParam* m_andParam = nullptr; // null when the state tests one parameter
    };

    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    int32_t id() const { return m_id; }
    const CString& param() const { return m_param; }
    const CString& andParam() const { return m_andParam; }
    bool hasAndParam() const { return !m_andParam.isEmpty(); }
    bool isInverted() const { return m_isInverted; }
    const CTest& test() const { return m_test; }
    const CTest& andTest() const { return m_andTest; }

    // Whether the state holds for these values; `andValue` counts only with `and-param`.
    bool matches(double value, double andValue) const;

    // Any thread but the audio thread, since the collector's lookup takes its lock and may
    // make the parameter: the parameters named by `param` and `and-param`, resolved
    // against the process's full name. A parameter that does not exist yet is made, so
    // binding cannot fail.
    CBinding bind(CAudioParamCollector& collector, const CString& processFullName) const;

private:
    int32_t m_id = 0;
    CString m_param;
    CString m_andParam;
    bool m_isInverted = false;
    CTest m_test;
    CTest m_andTest;
};

} // namespace qel
