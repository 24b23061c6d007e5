#pragma once

#include "Audio/CAudioPort.h"
#include "Audio/CAudioProcessBase.h"
#include "Core/CCheckedObject.h"
#include "Core/CError.h"

#include <cstdint>

namespace qel {

class CAudioProcessTerminalBase;

// One DSP object of a leaf process: it serves one channel, or every channel of the port
// when the definition says `is-terminal-whole`. The leaf gives it its channels, rate and
// block length, points its inputs at the port's buffers and takes its outputs.
//
// A module type adds a non-virtual `process(int32_t n)` that reads input(c) and sets each
// output(c) to a buffer holding one reference: a new one from the pool when it writes, the
// input itself (one more reference) when it changes nothing. CAudioProcessTerminal<Module>
// calls it without a virtual call.
//
// A module may also hand on a side signal of each channel on output port 1 (key + 16, same
// group and latency), as a saturator hands on its level: it says so with
// setOutputPortCount(2) and sets output(c, 1) as well.
//
// Parameters are read in update, never per sample; update is called when a slot changed
// (see isSlotChanged), with every slot marked after a reconfiguration.
//
// Audio thread, but for construction, init and regParams, which the leaf runs at set-up
// (and on the audio thread only for a channel layout never seen at set-up).
class CAudioModule : public CCheckedObject
{
public:
    static constexpr int32_t kMaxChannels = CAudioPort::kMaxChannels;
    static constexpr int32_t kMaxSlots = 32;
    static constexpr int32_t kOutputPorts = CAudioProcessBase::kPortCount;

    struct CChannel
    {
        int32_t key = 0;
        int32_t group = 0;
        int32_t index = 0; // entry of the leaf's port 0 table
    };

    explicit CAudioModule(int32_t slotCount);
    ~CAudioModule() override;
    CAudioModule(const CAudioModule&) = delete;
    CAudioModule& operator=(const CAudioModule&) = delete;

    // When the module is made: sizes what it needs once.
    virtual CErrorPtr init();
    // Clears the signal state (not the coefficients).
    virtual void reset();
    // Reads the parameters and chooses what process will do.
    virtual void update();
    // Slot i reads the leaf's binding of the param-alloc row with index i; a slot without
    // a row stays unbound and is reported by the leaf.
    virtual void regParams(CAudioProcessTerminalBase& owner);

    // ---- for the leaf
    void attach(CAudioProcessTerminalBase* owner) { m_owner = owner; }
    void setChannels(const CChannel* channels, int32_t count);
    bool hasSameChannels(const CChannel* channels, int32_t count) const;
    int32_t channelCount() const { return m_channelCount; }
    const CChannel& channel(int32_t c) const { return m_channels[c]; }
    // The bits of the groups of its channels, for change masks.
    uint32_t groupBits() const;
    void setSampleRate(double rate) { m_sampleRate = rate; }
    double sampleRate() const { return m_sampleRate; }
    void setBlockLength(int32_t n) { m_blockLength = n; }
    void setInput(int32_t c, double* buffer) { m_in[c] = buffer; }
    double* takeOutput(int32_t c, int32_t port = 0)
    {
        double* out = m_out[port][c];
        m_out[port][c] = nullptr;
        return out;
    }
    // Output ports it writes for each channel: 1, or 2 with a side signal on port 1.
    int32_t outputPortCount() const { return m_outputPortCount; }
    // Its own latency in samples, added to the leaf's for the channels it hands on.
    int32_t latency() const { return m_latency; }
    void markChanged(int32_t slot) { m_changedSlots |= slotBit(slot); }
    void markAllChanged() { m_changedSlots = ~uint32_t(0); }
    void clearChanged() { m_changedSlots = 0; }
    bool isChanged() const { return m_changedSlots != 0; }

protected:
    static uint32_t slotBit(int32_t slot) { return uint32_t(1) << (uint32_t(slot) % kMaxSlots); }

    CAudioProcessTerminalBase* owner() const { return m_owner; }
    bool isSlotChanged(int32_t slot) const { return (m_changedSlots & slotBit(slot)) != 0; }
    bool isSlotBound(int32_t slot) const { return m_slots[slot] && m_slots[slot]->param; }
    // The value of the slot's parameter for a group and the leaf's element; the fallback
    // when the slot is unbound or the parameter has no values yet.
    double paramValue(int32_t slot, int32_t group, double fallback) const;
    // For the group of the first channel.
    double paramValue(int32_t slot, double fallback) const;
    // Groups that hold values, at least 1: how far a `use-all-groups` slot is read.
    int32_t paramGroupCount(int32_t slot) const;
    double* input(int32_t c) const { return m_in[c]; }
    void setOutput(int32_t c, double* buffer, int32_t port = 0) { m_out[port][c] = buffer; }
    // In init: 2 when the module hands on a side signal on port 1.
    void setOutputPortCount(int32_t count)
    {
        m_outputPortCount = count < 1 ? 1 : count > kOutputPorts ? kOutputPorts : count;
    }
    // Passes the input on by reference.
    void passInput(int32_t c);
    // A buffer of this block's length from the leaf's pool, one reference; null without memory.
    double* takeBuffer() const;
    int32_t blockLength() const { return m_blockLength; }

    int32_t m_latency = 0;

private:
    CAudioProcessTerminalBase* m_owner = nullptr;
    int32_t m_slotCount;
    const CAudioProcessBase::CParamBinding* m_slots[kMaxSlots] = {};
    uint32_t m_changedSlots = ~uint32_t(0);
    double m_sampleRate = 44100.0;
    int32_t m_blockLength = 0;
    int32_t m_channelCount = 0;
    CChannel m_channels[kMaxChannels];
    double* m_in[kMaxChannels] = {};
    double* m_out[kOutputPorts][kMaxChannels] = {};
    int32_t m_outputPortCount = 1;
};

} // namespace qel
