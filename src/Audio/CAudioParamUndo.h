#pragma once

#include "Audio/CAudioParamUndoData.h"
#include "Audio/CAudioParamUndoHistory.h"
#include "Audio/CAudioParamUndoRecord.h"
#include "Core/CCriticalSection.h"
#include "Core/CObject.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace qel {

class CAudioParamCollector;
class CAudioParamStorage;

// The undo history of a plug-in instance: a bounded list of user actions, each recording
// per parameter and group the whole element list before and after. Attributes:
// `undo-count-max` (below 5 taken as 4) and `param-collector` (path).
//
// Threads: any but the audio thread. `historyLock` guards the active history and the
// entries in it; it may be taken under a registry's bank lock and under no other lock.
class CAudioParamUndo : public CObject
{
public:
    static void initClassInfo(CClassInfo& info) { CObject::initClassInfo(info); }
    CErrorPtr init() override;

    // Recording, on an entry that its caller owns (so no lock): called by the parameter
    // around the application of a change, under the parameter's lock.
    // Records the state before; nothing when the entry already holds this group.
    static void openRecord(CAudioParamUndoData& entry, const CString& paramName, int32_t group,
                           const CAudioParamStorage& storage, bool isEmpty);
    // Records the state after, replacing an earlier one; nothing when the record is
    // missing or its format differs.
    static void closeRecord(CAudioParamUndoData& entry, const CString& paramName, int32_t group,
                            const CAudioParamStorage& storage, bool isEmpty);

    // Enters a finished entry, folding it into the last one where both are mergeable.
    void submit(std::unique_ptr<CAudioParamUndoData> entry);
    // "Undo history start" first, then one name per entry: `position` indexes the list.
    void getHistory(std::vector<CString>& names, int32_t& position);
    // Undoes or redoes entry by entry up to `position`, each entry reaching the audio thread
    // as one batch; out of range, or the current position, is no request.
    void setHistoryPosition(int32_t position);
    // Parks the active history in `parked` and makes `coming` (may be null = empty) active;
    // `coming` is left empty, unless it is the same slot as `parked`: then the two are
    // exchanged. Nothing is applied to the parameters; onHistoryChanged follows.
    void swapHistories(std::unique_ptr<CAudioParamUndoHistory>& parked,
                       std::unique_ptr<CAudioParamUndoHistory>& coming);
    // A deep copy of the active history into `slot` (null when there is none).
    void copyHistory(std::unique_ptr<CAudioParamUndoHistory>& slot);

    CCriticalSection& historyLock() { return m_historyLock; }
    CAudioParamCollector* collector() const { return m_collector; }
    int32_t maxEntries() const { return m_maxEntries; }

    // After every change of the active history or its position. Nothing here; the
    // interface server sends the history to its clients.
    virtual void onHistoryChanged();

private:
    // Sends the old (undo) or the new (redo) state of every record of an entry as one batch.
    void applyEntry(const CAudioParamUndoData& entry, bool isUndo);

    CCriticalSection m_historyLock{4000};
    CAudioParamCollector* m_collector = nullptr;
    int32_t m_maxEntries = 4;
    std::unique_ptr<CAudioParamUndoHistory> m_history; // created on first use
};

} // namespace qel
