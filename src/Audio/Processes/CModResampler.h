#pragma once

#include "Audio/Processes/CModProcessSeq.h"

#include <cstdint>
#include <memory>

namespace qel {

// One end of the oversampling chain (tag audio:modResampler): a sequence of octave steps,
// each a rate changer and a half-band filter. The upsampler doubles the rate per octave
// (interpolator, then filter), the downsampler halves it (filter, then decimator), so that
// everything between the two runs at 2, 4 or 8 times the host's rate without knowing it.
//
// Slot 0 `mode`: 0 Auto, 1 1X, 2 2X, 3 4X, 4 8X; slot 1 `host-mode`: the octaves Auto
// stands for. Both are read rounded. Octaves come and go at the high-rate end: the
// upsampler's last steps, the downsampler's first ones. The octave next to the host's rate
// has the steep filter, since the image it removes lies closest to the audio band; the
// others have the soft one. The octaves that remain keep their state.
//
// Which definitions the steps are made of is fixed: the rate changer, first-octave and
// further-octave filters under shared::audio. Every step for three octaves is made at
// set-up; on the audio thread a change of mode only rewires.
class CModResampler : public CModProcessSeq
{
public:
    enum Slot : int32_t { SlotMode = 0, SlotHostMode = 1 };
    static constexpr int32_t kMaxOctaves = 3;

    ~CModResampler() override;

    CErrorPtr init() override;
    void update() override;
    void release() override;

    // ---- for tests
    bool isUpsampler() const { return m_isUpsampler; }
    int32_t octaveCount() const { return m_octaveCount; }

    // Octaves in force for a mode and Auto's octaves.
    static int32_t octavesFor(double mode, double hostMode);

private:
    struct COctave
    {
        std::unique_ptr<CAudioProcessBase> rateChanger;
        std::unique_ptr<CAudioProcessBase> filter;
    };

    CErrorPtr makeStep(std::unique_ptr<CAudioProcessBase>& out, const CString& defPath, const CString& name);
    double slotValue(int32_t slot) const;
    void addOctave();
    void removeOctave();

    bool m_isUpsampler = false;
    // Octave 0 runs next to the host's rate.
    COctave m_octaves[kMaxOctaves];
    int32_t m_octaveCount = 0;
    CString m_rateChangerName;
    CString m_filterName;
};

} // namespace qel
