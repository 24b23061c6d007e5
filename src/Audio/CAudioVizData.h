#pragma once

#include "Core/CError.h"

#include <cstdint>

namespace qel {

class CInputStream;
class COutputStream;

// A record of visual data, stamped with audio time, that a process makes on the audio
// thread for the displays of the UI side. Its stored form is the payload of one item of a
// `viz-data` block: channel, group and element (u32 each), time (f64) and slot (i32), then
// what a derived record adds. The type travels in the item's header, not here.
//
// The base stands for type 2, a record with nothing behind the common fields.
class CAudioVizData
{
public:
    enum Type : uint32_t { TypeMeter = 0, TypeInfo = 1, TypePlain = 2, TypeSpectrum = 3, TypeVScope = 4 };
    // Bytes of the common fields in the stored form.
    static constexpr uint32_t kBaseSize = 4 + 4 + 4 + 8 + 4;

    CAudioVizData() = default;
    virtual ~CAudioVizData() = default;
    CAudioVizData(const CAudioVizData&) = default;
    CAudioVizData& operator=(const CAudioVizData&) = default;

    // A failed write leaves what the stream already took; a failed read (truncated data)
    // leaves the record as it was.
    virtual CErrorPtr save(COutputStream& out) const;
    virtual CErrorPtr load(CInputStream& in);

    uint32_t type() const { return m_type; }

    // Channel within its group (0 for a module without a channel), group, and the element
    // of the module that measured: its stack index.
    uint32_t channel = 0;
    uint32_t group = 0;
    uint32_t element = 0;
    // Seconds of audio time: the middle of the measured frame.
    double time = 0.0;
    // -1 for data of this instance, else the export slot it came through.
    int32_t slot = -1;

protected:
    explicit CAudioVizData(uint32_t type) : m_type(type) {}

    CErrorPtr saveBase(COutputStream& out) const;
    // Reads the common fields into `into` without touching this record.
    static CErrorPtr loadBase(CInputStream& in, CAudioVizData& into);

private:
    uint32_t m_type = TypePlain;
};

} // namespace qel
