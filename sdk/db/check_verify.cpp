// Holding a disk database against the rules of its layout: the chain of its segments, its .ini
// file and its names. One segment is the matter of check_segment.
#include <algorithm>
#include <chrono>
#include <thread>

#include "sdk/db/check_segment.h"

namespace sim {

namespace {

// A finding in a database that is being recorded is looked for again after this time.
constexpr std::chrono::milliseconds SECOND_LOOK_PAUSE{10};
constexpr int MOST_LOOKS = 4;

class Verifier {
  public:
    Verifier(const DatabaseView& view, bool quick, const OnFinding& on_finding,
             const OnProgress& progress)
        : m_view(view), m_quick(quick), m_on_finding(on_finding), m_progress(progress) {}

    Verified run();

  private:
    void check_names();
    void check_ini();
    void check_segment(uint64_t number);
    SegmentCheck look(const OpenSegment& segment, uint64_t number);
    void tell(uint64_t within) const;
    void check_chain(const OpenSegment& segment, const SegmentCheck& check);
    void report(const Finding& finding);
    void report_all(const SegmentCheck& check);

    const DatabaseView& m_view;
    const bool m_quick;
    const OnFinding& m_on_finding;
    const OnProgress& m_progress;
    Verified m_result;
    bool m_any = false;  // a segment came before
    SegmentEnd m_end;    // of that segment
    uint64_t m_newest_bytes = 0;
    uint64_t m_done = 0;  // of the files, for the progress
    uint64_t m_total_bytes = 0;
};

void Verifier::report(const Finding& finding) {
    ++(finding.note ? m_result.notes : m_result.findings);
    if (m_on_finding) m_on_finding(finding);
}

void Verifier::check_names() {
    for (const std::string& name : m_view.strangers()) {
        Finding finding{FindingKind::strange_name};
        finding.text = name;
        report(finding);
    }
    m_result.findings += m_view.stranger_count() - m_view.strangers().size();
}

// Behind the segments: the .ini of a database without segments is right whatever it says.
void Verifier::check_ini() {
    switch (m_view.ini_state()) {
        case IniState::missing: return report(Finding{FindingKind::ini_missing});
        case IniState::damaged: return report(Finding{FindingKind::ini_damaged});
        case IniState::unreadable: {
            Finding finding{FindingKind::cannot_read};
            finding.amount = static_cast<uint64_t>(-m_view.ini_error());
            return report(finding);
        }
        case IniState::whole: break;
    }
    if (m_newest_bytes == 0) return;
    if (!(m_view.ini().identity == m_view.identity()))
        return report(Finding{FindingKind::ini_foreign});
    if (m_view.ini().segment_bytes == m_newest_bytes) return;
    // A recorder with a new size says so before its first segment of that size.
    Finding finding{FindingKind::ini_size};
    finding.note = true;
    finding.amount = m_view.ini().segment_bytes;
    finding.end = m_newest_bytes;
    report(finding);
}

void Verifier::tell(uint64_t within) const {
    const uint64_t done = m_done + within;
    if (m_progress) m_progress(done, std::max(done, m_total_bytes));
}

SegmentCheck Verifier::look(const OpenSegment& segment, uint64_t number) {
    SegmentCheck check(m_view, segment, number == m_view.numbers().back());
    check.run(m_quick, [this](uint64_t within) { tell(within); });
    return check;
}

// What a recorder is writing right now looks torn until it is written; what is damaged looks the
// same each time. Only the newest segment is written, and only the oldest is made ready for the
// ring. One that the ring has taken meanwhile is not looked at any more.
void Verifier::check_segment(uint64_t number) {
    std::unique_ptr<OpenSegment> segment = m_view.segment(number);
    if (segment->state == SegmentState::gone) {
        m_any = false;
        return;
    }
    if (m_total_bytes == 0)
        m_total_bytes = std::max(segment->bytes, segment->header.bytes) * m_view.numbers().size();
    SegmentCheck check = look(*segment, number);
    const bool changes = number == m_view.numbers().front() || number == m_view.numbers().back();
    for (int looks = 1; changes && !check.clean() && looks < MOST_LOOKS; ++looks) {
        if (!m_view.recorded()) break;
        std::this_thread::sleep_for(SECOND_LOOK_PAUSE);
        if (!m_view.still_there(*segment)) break;
        segment = m_view.segment(number);
        SegmentCheck again = look(*segment, number);
        again.keep_what_was_in(check);
        check = std::move(again);
    }
    m_done += segment->bytes;
    tell(0);
    if (!m_view.still_there(*segment)) {
        m_any = false;
        return;
    }
    ++m_result.segments;
    m_result.bytes += m_quick ? 0 : std::min(segment->bytes, uint64_t{MAX_SEGMENT_BYTES});
    if (segment->state == SegmentState::whole) check_chain(*segment, check);
    report_all(check);
}

void Verifier::check_chain(const OpenSegment& segment, const SegmentCheck& check) {
    const SegmentHeader& header = segment.header;
    m_newest_bytes = header.bytes;
    m_result.frames += check.end().frames;
    Finding finding{FindingKind::missing_records};
    finding.segment = segment.number;
    finding.timed = true;
    finding.utc_us = header.utc_us;
    if (m_any && header.first_sequence < m_end.first_sequence) {
        finding.kind = FindingKind::order;
        report(finding);
    } else if (m_any && m_end.known && header.first_sequence > m_end.next_sequence) {
        finding.first = m_end.next_sequence;
        finding.amount = header.first_sequence - m_end.next_sequence;
        report(finding);
    } else if (m_any && m_end.timed && !m_end.damaged &&
               header.first_sequence == m_end.next_sequence &&
               header.latest_utc_us != m_end.latest_utc_us) {
        finding.kind = FindingKind::header_time;
        report(finding);
    }
    if (m_any && header.run < m_end.first_run) {
        finding.kind = FindingKind::run;
        report(finding);
    }
    m_any = true;
    m_end = check.end();
}

void Verifier::report_all(const SegmentCheck& check) {
    for (const Finding& finding : check.findings()) report(finding);
    m_result.findings += check.further();
}

Verified Verifier::run() {
    check_names();
    for (const uint64_t number : m_view.numbers()) check_segment(number);
    check_ini();
    return m_result;
}

}  // namespace

Verified verify(const DatabaseView& view, bool quick, const OnFinding& on_finding,
                const OnProgress& progress) {
    return Verifier(view, quick, on_finding, progress).run();
}

}  // namespace sim
