// Body of the frame list.
#include "mainwork/qm_workers.h"
#include "sdk/video/frame.h"

namespace {

bool same_channel(const sim::FrameInfo& a, const sim::FrameInfo& b) {
    const bool both_audio = (a.kind == sim::FrameKind::audio) == (b.kind == sim::FrameKind::audio);
    return a.stream == b.stream && a.channel == b.channel && both_audio;
}

}  // namespace

template <>
int qm_list<qm_dbframe>::count() {
    qm_lock lock(m_mutex);
    return m_count;
}

template <>
void qm_list<qm_dbframe>::push(qm_dbframe* record) {
    qm_lock lock(m_mutex);
    record->next = nullptr;
    (m_last ? m_last->next : m_first) = record;
    m_last = record;
    ++m_count;
}

template <>
qm_dbframe* qm_list<qm_dbframe>::pop() {
    qm_lock lock(m_mutex);
    qm_dbframe* record = m_first;
    if (!record) return nullptr;
    m_first = record->next;
    if (!m_first) m_last = nullptr;
    --m_count;
    return record;
}

template <>
qm_dbframe* qm_list<qm_dbframe>::take_group(bool* more) {
    qm_lock lock(m_mutex);
    *more = false;
    qm_dbframe* group = nullptr;
    qm_dbframe** group_end = &group;
    qm_dbframe* previous = nullptr;
    for (qm_dbframe *record = m_first, *next; record; record = next) {
        next = record->next;
        if (group && same_channel(record->info, group->info)) {
            *more = sim::is_key(record->info.kind);
            if (*more) break;
        } else if (group) {
            previous = record;
            continue;
        }
        (previous ? previous->next : m_first) = next;
        if (m_last == record) m_last = previous;
        --m_count;
        record->next = nullptr;
        *group_end = record;
        group_end = &record->next;
    }
    return group;
}

template class qm_list<qm_dbframe>;
