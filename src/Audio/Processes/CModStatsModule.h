#pragma once

#include "Audio/CAudioModule.h"

#include <cstdint>

namespace qel {

class CAudioVizData;
class CAudioVizReceiver;
struct CVizSource;

// The framing half of a module that measures rather than changes its signal: it runs the
// measuring kernel over spans of the block and, every frame length of samples, has the
// measurement make one record, stamps it with the middle of its frame in audio time, and
// hands it to the viz source. A derived module measures (statsProcess), rebuilds what it
// measures with (statsRecalc) and makes the record (statsMakeData).
//
// The frame rate is either fixed by the definition or the environment's, which follows
// what the displays ask for; the latter is read again after every frame, so a meter runs
// as fast as the UI draws. Such a frame is an even number of samples, at least 32.
//
// A module measures its first channel; on port 1 it finds the channel of the same key as
// the second signal, which a comparing kernel reads (its own input stands in without one).
//
// Audio thread, but for construction and init.
class CModStatsModule : public CAudioModule
{
public:
    // What the leaf reads once, when it is made, and all its modules share.
    struct CSettings
    {
        double fps = 30.0;
        bool isFpsFixed = false;
        bool isDiff = false;
        bool isCompression = false;
        bool isInverted = false;
        CAudioVizReceiver* receiver = nullptr;
        CVizSource* source = nullptr;
    };

    static constexpr int32_t kMinFrameLength = 32;

    CModStatsModule(int32_t slotCount, const CSettings& settings);

    void process(int32_t n);

    // ---- for tests and diagnostics
    double frameRate() const { return m_frameRate; }
    int32_t frameLength() const { return m_frameLength; }
    int32_t samplesToFrame() const { return m_samplesToFrame; }
    double frameTime() const { return m_frameTime; }
    int64_t frameCount() const { return m_frameCount; }
    // The entry of port 1 the module reads as its second signal, -1 for its own input.
    int32_t sideIndex() const { return m_sideIndex; }
    const CSettings& settings() const { return *m_settings; }

protected:
    // Coefficients, rings and a cleared measurement from the parameters and the rate.
    virtual void statsRecalc() = 0;
    // Measures n samples; `side` is the second signal (the input itself without one).
    virtual void statsProcess(const double* in, const double* side, int32_t n) = 0;
    // The record of the frame that just ended; the framing adds channel, group, element
    // and time.
    virtual CAudioVizData& statsMakeData() = 0;

    // From update, when the input or a time changed: finds the second signal, starts a
    // frame at the environment's time and recalculates.
    void restartFraming();

private:
    const double* sideInput() const;
    void endFrame();

    const CSettings* m_settings;
    double m_frameRate;
    int32_t m_frameLength = 1;
    int32_t m_samplesToFrame = 1;
    double m_frameTime = 0.0;
    int64_t m_frameCount = 0;
    int32_t m_sideIndex = -1;
};

} // namespace qel
