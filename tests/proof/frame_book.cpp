#include "tests/proof/frame_book.h"

#include <algorithm>
#include <cstring>

#include "sdk/db/check.h"
#include "sdk/db/crc32c.h"
#include "sdk/db/disk_reader.h"

namespace {

constexpr size_t TABLE_BYTES = 64 * 1024;
constexpr uint32_t MOST_BYTES = 20'000;

const uint8_t* random_table() {
    static const std::vector<uint8_t> table = [] {
        std::vector<uint8_t> bytes(TABLE_BYTES);
        ProofRandom random(7105);
        for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.next());
        return bytes;
    }();
    return table.data();
}

uint64_t hash(uint64_t value) { return ProofRandom(value).next(); }

// Of a record that ends, when it begins on a block, at the end of a block or up to 56 bytes before:
// where a pad just fits and where it does not, and where old records may follow.
uint32_t ends_at_block(uint32_t some) {
    const uint32_t before = some % 4 == 0 ? 8 * (some / 4 % 8) : 0;
    return static_cast<uint32_t>(sim::BLOCK_BYTES - sim::RECORD_BYTES) - before;
}

sim::FrameInfo frame_info(uint32_t id, FrameSize size, int64_t time_us) {
    const uint64_t draw = hash(id);
    sim::FrameInfo info;
    info.kind = static_cast<sim::FrameKind>(draw % 4);
    info.stream = info.kind == sim::FrameKind::audio ? uint8_t{0} : uint8_t((draw >> 8) % 6);
    info.channel = uint8_t((draw >> 16) % 16);
    info.number = id;
    info.time_us = time_us;
    const uint32_t some = static_cast<uint32_t>(draw >> 32);
    if (size == FrameSize::small) info.bytes = some % 301;
    if (size == FrameSize::large) info.bytes = 3000 + some % 4001;
    if (size == FrameSize::large && some % 3 == 0) info.bytes = ends_at_block(some / 3);
    if (size == FrameSize::huge) info.bytes = 12'000 + some % 8001;
    return info;
}

const uint8_t* payload_of(uint32_t id) {
    return random_table() + hash(id + 0x100000000) % (TABLE_BYTES - MOST_BYTES - 1);
}

uint64_t first_frame(const std::vector<uint8_t>& bytes, uint64_t number) {
    sim::SegmentHeader header;
    if (bytes.size() < sim::SEGMENT_START + sim::RECORD_BYTES) return UINT64_MAX;
    if (!(sim::read_segment_header(bytes.data(), header) && header.number == number) &&
        !(sim::read_segment_header(bytes.data() + sim::BLOCK_BYTES, header) &&
          header.number == number))
        return UINT64_MAX;
    const uint8_t* record = bytes.data() + sim::SEGMENT_START;
    sim::RecordHeader first;
    if (!sim::read_record_header(record, header.seed(), first) ||
        first.total_bytes() > bytes.size() - sim::SEGMENT_START)
        return UINT64_MAX;
    const uint32_t crc =
        sim::crc32c(sim::record_crc_start(record, header.seed()), record + sim::RECORD_BYTES,
                    static_cast<size_t>(first.total_bytes()) - sim::RECORD_BYTES);
    return crc == first.crc ? header.first_sequence : UINT64_MAX;
}

std::string number_text(const char* before, uint64_t number, const char* after) {
    return before + std::to_string(number) + after;
}

}  // namespace

void make_frame(uint32_t id, FrameSize size, int64_t time_us, qm_dbframe& out) {
    out.info = frame_info(id, size, time_us);
    out.reserve(std::max<uint32_t>(out.info.bytes, 1));
    std::memcpy(out.payload.get(), payload_of(id), out.info.bytes);
}

std::map<uint64_t, uint64_t> segments_with_records(const CrashFiles& files, uint64_t above) {
    std::map<uint64_t, uint64_t> found;
    for (const std::string& name : files.names(BOOK_FOLDER)) {
        const uint64_t number = sim::segment_number(BOOK_INI, name);
        if (number <= above) continue;
        const uint64_t first = first_frame(*files.content(BOOK_FOLDER, name), number);
        if (first != UINT64_MAX) found[number] = first;
    }
    return found;
}

static bool tolerates(Tolerated tolerated, const sim::Finding& it) {
    using sim::FindingKind;
    const FindingKind kind = it.kind;
    if (tolerated == Tolerated::missing) return kind == FindingKind::missing_records;
    return tolerated == Tolerated::crash &&
           (kind == FindingKind::header_copy || kind == FindingKind::header_time ||
            kind == FindingKind::no_header || kind == FindingKind::directory ||
            // the pad of an interrupted last batch, when the recording went on in the next segment
            (kind == FindingKind::damage && it.amount == 0));
}

std::string findings(sim::FileSystem& files, Tolerated tolerated, const std::string& path) {
    std::string why;
    const auto view = sim::DatabaseView::open(files, path, why);
    if (!view) return "it cannot be checked: " + why;
    std::string found;
    const auto note = [&](const sim::Finding& it) {
        if (it.note || tolerates(tolerated, it)) return;
        found += number_text("finding of kind ", static_cast<uint64_t>(it.kind), " in segment ") +
                 std::to_string(it.segment) + number_text(" at ", it.offset, "; ");
    };
    sim::verify(*view, false, note, {});
    return found;
}

sim::DiskWriter::Outcome FrameBook::append(sim::DiskWriter& writer, FrameSize size) {
    using Outcome = sim::DiskWriter::Outcome;
    m_now_us += 1000;
    const Entry entry = {writer.next_sequence(), m_next_id++, size, m_now_us, false};
    qm_dbframe frame;  // a crash meanwhile appends others
    make_frame(entry.id, size, entry.time_us, frame);
    m_entries.push_back(entry);
    const Outcome outcome = writer.append(frame, BOOK_UTC_STEP_US, m_now_us);
    ++m_counts.appended;
    if (outcome == Outcome::stored) ++m_counts.stored;
    if (outcome == Outcome::refused) ++m_counts.refused;
    if (outcome == Outcome::busy) ++m_counts.busy;
    if (outcome != Outcome::stored) m_entries.pop_back();
    return outcome;
}

bool FrameBook::commit(sim::DiskWriter& writer) { return writer.commit(m_now_us); }

bool FrameBook::finish(sim::DiskWriter& writer) { return writer.finish(m_now_us); }

void FrameBook::acknowledge(const sim::DiskWriter& writer, const CrashFiles* files) {
    if (writer.durable_sequence() <= m_durable) return;
    m_durable = writer.durable_sequence();
    if (!files) return;
    m_segments.merge(
        segments_with_records(*files, m_segments.empty() ? 0 : m_segments.rbegin()->first));
}

void FrameBook::cut_to(uint64_t durable) {
    m_durable = durable;
    std::erase_if(m_segments, [&](const auto& it) { return it.second >= durable; });
}

bool FrameBook::begin(const sim::DiskWriter& writer, const CrashFiles* files, std::string& wrong,
                      bool excused) {
    const uint64_t next = writer.next_sequence();
    const auto last = std::find_if(m_entries.rbegin(), m_entries.rend(),
                                   [this](const Entry& entry) { return promised(entry); });
    const uint64_t durable = last == m_entries.rend() ? 0 : last->sequence + 1;
    while (!m_entries.empty() && m_entries.back().sequence >= next) m_entries.pop_back();
    for (auto it = m_entries.rbegin(); it != m_entries.rend() && it->sequence >= m_durable; ++it)
        it->excused = excused;
    acknowledge(writer, files);
    if (next < durable)
        wrong = number_text("a recorder begins with number ", next, "") +
                number_text(", durable was all up to ", durable, "");
    return next >= durable;
}

// While a segment is begun the ring has one less: its oldest file is becoming the new one.
uint64_t FrameBook::kept_from() const {
    const uint64_t kept = m_ring - 1 > m_allowed ? m_ring - 1 - m_allowed : 0;
    if (m_segments.size() <= kept) return 0;
    if (kept == 0) return m_durable;
    return std::prev(m_segments.end(), static_cast<ptrdiff_t>(kept))->second;
}

const FrameBook::Entry* FrameBook::find(uint64_t sequence) const {
    const auto it = std::lower_bound(
        m_entries.begin(), m_entries.end(), sequence,
        [](const Entry& entry, uint64_t wanted) { return entry.sequence < wanted; });
    return it != m_entries.end() && it->sequence == sequence ? &*it : nullptr;
}

std::string FrameBook::compare_frame(const qm_dbframe& frame, const Entry& entry) {
    const sim::FrameInfo right = frame_info(entry.id, entry.size, entry.time_us + BOOK_UTC_STEP_US);
    if (frame.info.kind != right.kind || frame.info.stream != right.stream ||
        frame.info.channel != right.channel || frame.info.number != right.number ||
        frame.info.time_us != right.time_us || frame.info.bytes != right.bytes)
        return number_text("frame ", entry.sequence, "") +
               number_text(" is not the one recorded but has number ", frame.info.number, "");
    if (std::memcmp(frame.payload.get(), payload_of(entry.id), right.bytes) != 0)
        return number_text("frame ", entry.sequence, " has other bytes");
    return "";
}

std::string FrameBook::compare(sim::FileSystem& files, bool gaps, const std::string& path) const {
    const uint64_t from = kept_from();
    // The next one that must be there.
    auto wanted = m_entries.begin();
    const auto pass = [&] {
        wanted = std::find_if(wanted, m_entries.end(), [&](const Entry& entry) {
            return entry.sequence >= from && promised(entry);
        });
    };
    pass();
    std::string why;
    const auto reader = sim::DiskReader::open(files, path, why);
    if (!reader) return wanted == m_entries.end() ? "" : "no reader: " + why;
    static thread_local qm_dbframe frame;
    uint64_t last = UINT64_MAX;
    const uint64_t end = reader->end();
    for (uint64_t n = reader->next(reader->first()); n < end; n = reader->next(n + 1)) {
        if (last != UINT64_MAX && (n <= last || (!gaps && n != last + 1)))
            return number_text("frame ", n, "") + number_text(" follows ", last, "");
        last = n;
        const Entry* entry = find(n);
        if (!entry) return number_text("frame ", n, " is one that nobody recorded");
        if (!reader->read(n, frame)) return number_text("frame ", n, " cannot be read");
        const std::string wrong = compare_frame(frame, *entry);
        if (!wrong.empty()) return wrong;
        if (wanted == m_entries.end() || wanted->sequence > n) continue;
        if (wanted->sequence < n) break;
        ++wanted;
        pass();
    }
    if (wanted == m_entries.end()) return "";
    return number_text("frame ", wanted->sequence, " is missing") +
           number_text(", durable was all up to ", m_durable, "") +
           number_text(", kept from ", from, "");
}
