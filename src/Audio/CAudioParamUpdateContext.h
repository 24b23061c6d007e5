#pragma once

namespace qel {

class CAudioParamQueuedChange;
class CAudioParamUndoData;

// What travels beside a change down the call chain.
struct CAudioParamUpdateContext
{
    // When set, old and new values are recorded for undo.
    CAudioParamUndoData* undo = nullptr;
    // When set, copies for the audio thread are gathered here (appended at *batchTail)
    // instead of being posted one by one; the owner posts the whole batch.
    CAudioParamQueuedChange** batchTail = nullptr;
    // Apply to the audio side at once, without queueing: only where the caller is the
    // audio thread, or audio is not running.
    bool isImmediate = false;
};

} // namespace qel
