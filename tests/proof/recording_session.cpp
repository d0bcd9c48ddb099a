#include "tests/proof/recording_session.h"

const char* step_name(Step step) {
    switch (step) {
        case Step::small: return "small";
        case Step::large: return "large";
        case Step::huge: return "huge";
        case Step::commit: return "commit";
        case Step::finish: return "finish";
        case Step::reopen: return "reopen";
        case Step::seal: return "seal";
        case Step::turn: return "turn";
        case Step::kill: return "kill";
    }
    return "?";
}

void RecordingSession::acknowledge() {
    m_book.acknowledge(*m_writer, m_in_memory);
    if (on_durable) on_durable(m_book.durable());
}

std::string RecordingSession::begin() {
    if (m_writer) return "";
    std::string why;
    m_writer = sim::DiskWriter::open(m_files, m_path, m_options, why);
    if (!m_writer) return "a recorder cannot open it: " + why;
    std::string wrong;
    m_book.begin(*m_writer, m_in_memory, wrong);
    acknowledge();
    return wrong;
}

std::string RecordingSession::append(FrameSize size) {
    const auto outcome = m_book.append(*m_writer, size);
    acknowledge();
    if (outcome == sim::DiskWriter::Outcome::stored) return "";
    return "a frame was not taken: " + m_writer->trouble();
}

std::string RecordingSession::end() {
    const bool finished = m_book.finish(*m_writer);
    acknowledge();
    const std::string trouble = m_writer->trouble();
    const uint64_t missing = m_writer->next_sequence() - m_writer->durable_sequence();
    m_writer.reset();
    if (!finished) return "the recording was not finished: " + trouble;
    return missing == 0 ? "" : "finished, and not all is durable";
}

std::string RecordingSession::run(Step step) {
    std::string wrong = begin();
    if (!wrong.empty()) return wrong;
    const uint64_t segments = step == Step::turn ? m_options.ring_segments : 1;
    const uint64_t goal = m_writer->segment() + segments;
    switch (step) {
        case Step::small: return append(FrameSize::small);
        case Step::large: return append(FrameSize::large);
        case Step::huge: return append(FrameSize::huge);
        case Step::commit:
            if (!m_book.commit(*m_writer)) return "not committed: " + m_writer->trouble();
            acknowledge();
            return m_writer->durable_sequence() == m_writer->next_sequence()
                       ? ""
                       : "committed, and not all is durable";
        case Step::finish: return end();
        case Step::reopen: wrong = end(); return wrong.empty() ? begin() : wrong;
        case Step::kill: m_writer.reset(); return begin();
        case Step::seal:
        case Step::turn:
            for (uint64_t i = 0; i < 100 * segments && m_writer->segment() < goal; ++i) {
                wrong = append(i % 3 ? FrameSize::large : FrameSize::small);
                if (!wrong.empty()) return wrong;
            }
            return m_writer->segment() >= goal ? "" : "the segment does not fill";
    }
    return "?";
}
