#pragma once

#include "Audio/CDSPModDelay.h"

#include <cstdint>
#include <memory>

namespace qel {

// A channel is matched across the graph by its key and group, never by position. The key
// packs the channel index within a port (0..15) with the port number.
constexpr int32_t channelKey(int32_t channel, int32_t port) { return channel + 16 * port; }
constexpr int32_t keyChannel(int32_t key) { return key & 15; }
constexpr int32_t keyPort(int32_t key) { return key >> 4; }

// What one process hands to one input port of the next, block after block.
//
// Everything is a fixed-size array, so that handing on a block allocates nothing; the
// record behind a key is found through `map` without a search. The format (rate and
// records) changes rarely, at the producer's reconfiguration, and each change bumps the
// consumer's dirty counter so that the consumer refreshes its ports before its next block.
// The buffers change every block: the producer puts one reference into each record, the
// consumer takes them out.
//
// Audio thread.
struct CAudioStream
{
    static constexpr int32_t kMaxChannels = 32;
    // Keys of two ports of 16 channels.
    static constexpr int32_t kKeyCount = 32;

    struct CChannel
    {
        int32_t channel = 0;  // key & 15
        int32_t group = 0;
        int32_t latency = 0;  // samples at the stream's rate
        int32_t port = 0;     // key >> 4: the producer's port the channel belongs to
        double* buffer = nullptr;

        int32_t key() const { return channelKey(channel, port); }
    };

    int32_t destPort = 0;
    // The producer's output port this stream takes: the producer publishes the records of
    // that port only, re-keyed to destPort, so that the consumer finds them on its own port.
    int32_t srcPort = 0;
    int32_t* ownerDirty = nullptr;
    double sampleRate = 0.0;
    int32_t channelCount = 0;
    CChannel channels[kMaxChannels];
    int8_t map[kKeyCount];    // record index of each key, -1 when the stream lacks it
    int32_t blockLength = 0;
    // Keyed like `map`: the line that aligns that channel, when its latency falls short of
    // the consumer's. Keyed rather than indexed by record so that a line keeps its history
    // when the records are rebuilt.
    std::unique_ptr<CDSPModDelay> delays[kKeyCount];

    CAudioStream();
    ~CAudioStream();
    CAudioStream(const CAudioStream&) = delete;
    CAudioStream& operator=(const CAudioStream&) = delete;

    CChannel* find(int32_t key);
    const CChannel* find(int32_t key) const;

    // Producer, at its reconfiguration: the stream takes this rate and these records
    // (buffers ignored). When anything differs from what it had, it lets go of its buffers
    // and bumps the owner's dirty counter. A record whose key is out of range or repeated
    // is dropped, as are records past kMaxChannels. True when the format changed.
    bool setFormat(double rate, const CChannel* records, int32_t count);
    void markChanged()
    {
        if (ownerDirty)
            ++*ownerDirty;
    }

    // The line for a key, made on first use. Called when the consumer refreshes its ports.
    CDSPModDelay* delayFor(int32_t key, CSampleBufferPool& pool);
    void dropDelay(int32_t key) { delays[key].reset(); }
    void resetDelays();

    // Runs the delay of every channel that has one over this block's buffers. A line that
    // sits at 0 with no fade under way passes its channel untouched. False when the pool
    // ran out of memory for one of them.
    bool runDelays();

    // Back to a stream that was never used: no format, no buffers, every line re-armed
    // (lines are kept, so that reconnecting costs no allocation). The owner hears of it.
    void clear();

    // Drops the reference of every record on its buffer.
    void releaseBuffers();
};

} // namespace qel
