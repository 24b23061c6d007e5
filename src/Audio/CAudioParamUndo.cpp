#include "Audio/CAudioParamUndo.h"

#include "Audio/CAudioParam.h"
#include "Audio/CAudioParamCollector.h"
#include "Audio/CAudioParamQueuedChange.h"
#include "Audio/CAudioParamStorage.h"
#include "Audio/CAudioParamUpdateContext.h"

#include <algorithm>

namespace qel {

CErrorPtr CAudioParamUndo::init()
{
    QEL_RETURN_IF_ERROR(CObject::init(), getFullName());
    // Fewer than four steps would make the history useless; small limits are raised.
    const int32_t limit = getAttrInt(CString("undo-count-max"));
    m_maxEntries = limit < 5 ? 4 : limit;
    QEL_RETURN_IF_ERROR(findObjectByAttr(m_collector, CString("param-collector")), getFullName());
    return nullptr;
}

void CAudioParamUndo::openRecord(CAudioParamUndoData& entry, const CString& paramName, int32_t group,
                                 const CAudioParamStorage& storage, bool isEmpty)
{
    if (!storage.isFormatSet() || entry.findRecord(paramName, group))
        return;
    entry.addRecord(paramName).captureOld(group, storage, isEmpty);
}

void CAudioParamUndo::closeRecord(CAudioParamUndoData& entry, const CString& paramName, int32_t group,
                                  const CAudioParamStorage& storage, bool isEmpty)
{
    if (CAudioParamUndoRecord* record = entry.findRecord(paramName, group))
        record->captureNew(storage, isEmpty);
}

void CAudioParamUndo::submit(std::unique_ptr<CAudioParamUndoData> entry)
{
    if (!entry || entry->recordCount() == 0)
        return;
    CLockGuard guard(m_historyLock);
    if (!m_history)
        m_history = std::make_unique<CAudioParamUndoHistory>();
    CAudioParamUndoHistory& history = *m_history;
    if (history.position > 0 && entry->isMergeable()) {
        CAudioParamUndoData& last = *history.entries[size_t(history.position) - 1];
        // One drag arrives as many small entries; they make one step.
        if (last.isMergeable() && last.mergeTag() == entry->mergeTag() && last.merge(*entry))
            return;
    }
    history.entries.resize(size_t(history.position));
    if (history.count() >= m_maxEntries)
        history.entries.erase(history.entries.begin(), history.entries.begin() + (history.count() - m_maxEntries + 1));
    else
        ++history.position;
    history.entries.push_back(std::move(entry));
    onHistoryChanged();
}

void CAudioParamUndo::getHistory(std::vector<CString>& names, int32_t& position)
{
    CLockGuard guard(m_historyLock);
    names.clear();
    names.push_back(CString("Undo history start"));
    position = 0;
    if (!m_history)
        return;
    for (const auto& entry : m_history->entries)
        names.push_back(entry->name());
    position = m_history->position;
}

void CAudioParamUndo::setHistoryPosition(int32_t position)
{
    CLockGuard guard(m_historyLock);
    if (!m_history || position < 0 || position > m_history->count() || position == m_history->position)
        return;
    CAudioParamUndoHistory& history = *m_history;
    while (history.position < position) {
        applyEntry(*history.entries[size_t(history.position)], false);
        ++history.position;
    }
    while (history.position > position) {
        --history.position;
        applyEntry(*history.entries[size_t(history.position)], true);
    }
    onHistoryChanged();
}

void CAudioParamUndo::swapHistories(std::unique_ptr<CAudioParamUndoHistory>& parked,
                                    std::unique_ptr<CAudioParamUndoHistory>& coming)
{
    CLockGuard guard(m_historyLock);
    // Through a temporary, so that one slot given twice is a plain exchange.
    std::unique_ptr<CAudioParamUndoHistory> next = std::move(coming);
    parked = std::move(m_history);
    m_history = std::move(next);
    onHistoryChanged();
}

void CAudioParamUndo::copyHistory(std::unique_ptr<CAudioParamUndoHistory>& slot)
{
    CLockGuard guard(m_historyLock);
    slot = m_history ? m_history->clone() : nullptr;
}

void CAudioParamUndo::onHistoryChanged() {}

void CAudioParamUndo::applyEntry(const CAudioParamUndoData& entry, bool isUndo)
{
    if (!m_collector)
        return;
    // The whole entry reaches the audio thread as one batch: it never sees half a step.
    CAudioParamQueuedChange* batch = nullptr;
    CAudioParamUpdateContext context;
    context.batchTail = &batch;
    for (const auto& [name, records] : entry.params()) {
        CAudioParam* param = m_collector->getParam(name);
        for (const CAudioParamUndoRecord& record : records)
            param->change(record.makeChange(isUndo, &entry), context);
    }
    m_collector->postChanges(batch);
}

} // namespace qel
