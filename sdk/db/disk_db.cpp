// Recording into and playing from a database on disk.
#include "sdk/db/disk_db.h"

#include <algorithm>
#include <new>

#include "sdk/db/rehearsed_files.h"
#include "sdk/runtime/settings.h"

namespace sim {

namespace {

constexpr uint64_t CAPACITY_UNIT = 64 * 1024;
constexpr uint32_t MODE_RECORD = 1;
constexpr int64_t BUSY_US = 1'000'000;  // between two offers of a frame

}  // namespace

DiskDb::~DiskDb() { Close(); }

int DiskDb::Open(QMDBOpenParam* param) {
    const char* path = param->path.c_str();
    if (!m_path.empty()) {
        complain("database '%s' is not opened: this database is open already", path);
        return 0;
    }
    if (settings().fail_open.strikes()) {
        complain("database '%s' is not opened: it was told to fail", path);
        return 0;
    }
    if (param->path.empty()) {
        complain("database '' is not opened: on disk it needs a name");
        return 0;
    }
    const bool records = param->mode == MODE_RECORD;
    const uint64_t bytes = param->capacity_a * CAPACITY_UNIT;
    if (records && (bytes == 0 || bytes > MAX_SEGMENT_BYTES || param->capacity_b == 0)) {
        complain("database '%s' is not opened: %u segments of %u x 64 KiB cannot be made", path,
                 param->capacity_b, param->capacity_a);
        return 0;
    }
    m_options.segment_bytes = bytes;
    m_options.ring_segments = param->capacity_b;
    m_options.own_thread = true;
    m_path = param->path;
    m_recorder = records;
    if (records ? open_writer() : open_reader()) return 1;
    m_path.clear();
    return 0;
}

bool DiskDb::open_writer() {
    std::string why;
    std::lock_guard lock(m_writer_mutex);
    try {
        m_writer = DiskWriter::open(rehearsed_file_system(), m_path, m_options, why);
    } catch (const std::bad_alloc&) {
        why = "out of memory";
    }
    if (!m_writer) complain("database '%s' is not opened: %s", m_path.c_str(), why.c_str());
    m_troubled = false;
    m_busy_until_us = 0;
    return m_writer != nullptr;
}

bool DiskDb::open_reader() {
    std::string why;
    std::lock_guard lock(m_reader_mutex);
    try {
        m_reader = DiskReader::open(real_file_system(), m_path, why, true);
    } catch (const std::bad_alloc&) {
        why = "out of memory";
    }
    if (!m_reader) complain("database '%s' is not opened: %s", m_path.c_str(), why.c_str());
    return m_reader != nullptr;
}

int DiskDb::Close() {
    if (m_path.empty()) return 0;
    finish();
    {
        std::lock_guard lock(m_reader_mutex);
        m_reader.reset();
    }
    m_recorder = false;
    m_path.clear();
    return 0;
}

void DiskDb::finish() {
    std::lock_guard lock(m_writer_mutex);
    if (!m_writer) return;
    if (m_writer->finish(now_us()) && m_troubled) note_trouble();
    m_lost += m_writer->lost();
    if (m_writer->lost() > 0)
        complain("database '%s': %llu records are lost: %s", m_path.c_str(),
                 static_cast<unsigned long long>(m_writer->lost()), m_writer->trouble().c_str());
    m_writer.reset();
}

bool DiskDb::left_open() { return !m_path.empty() && m_recorder && !m_at_work; }

void DiskDb::begin_writing() {
    bool open;
    {
        std::lock_guard lock(m_writer_mutex);
        open = m_writer != nullptr;
    }
    if (m_recorder && !open) open = open_writer();  // not the first thread
    m_at_work = m_recorder && open;
}

void DiskDb::end_writing() {
    finish();
    m_at_work = false;
}

StreamDb::Appended DiskDb::append(const qm_dbframe& frame) {
    std::lock_guard lock(m_writer_mutex);
    if (!m_writer) return Appended::refused;
    const int64_t now = now_us();
    const DiskWriter::Outcome outcome = m_writer->append(frame, utc_step_us(), now);
    if (outcome == DiskWriter::Outcome::stored) m_writer->commit_if_due(now);
    note_trouble();
    if (outcome == DiskWriter::Outcome::stored) return Appended::stored;
    if (outcome == DiskWriter::Outcome::busy) {
        m_busy_until_us = now + BUSY_US;
        return Appended::busy;
    }
    ++m_refused;
    return Appended::refused;
}

int64_t DiskDb::due_us() {
    std::lock_guard lock(m_writer_mutex);
    if (!m_writer) return NEVER;
    const int64_t offer = m_busy_until_us > now_us() ? m_busy_until_us : NEVER;
    return std::min(m_writer->due_us(), offer);
}

void DiskDb::tend() {
    std::lock_guard lock(m_writer_mutex);
    if (!m_writer) return;
    m_writer->commit_if_due(now_us());
    note_trouble();
}

void DiskDb::commit() {
    std::lock_guard lock(m_writer_mutex);
    if (!m_writer) return;
    m_writer->commit(now_us());
    note_trouble();
}

// One line when writing begins to fail, one when it works again.
void DiskDb::note_trouble() {
    if (m_writer->failing() == m_troubled) return;
    m_troubled = m_writer->failing();
    if (m_troubled)
        complain("database '%s': %s; the frames wait", m_path.c_str(), m_writer->trouble().c_str());
    else
        complain("database '%s' is written again", m_path.c_str());
}

template <class Result, class Ask>
Result DiskDb::with_reader(Result otherwise, Ask ask) {
    if (m_path.empty()) return otherwise;
    std::lock_guard lock(m_reader_mutex);
    try {
        std::string why;
        if (!m_reader) m_reader = DiskReader::open(real_file_system(), m_path, why, true);
        return m_reader ? ask(*m_reader) : otherwise;
    } catch (const std::bad_alloc&) {
        return otherwise;
    }
}

uint64_t DiskDb::first() {
    return with_reader(uint64_t{0}, [](DiskReader& reader) { return reader.first(); });
}

uint64_t DiskDb::end() {
    return with_reader(uint64_t{0}, [](DiskReader& reader) { return reader.end(); });
}

uint64_t DiskDb::next(uint64_t n) {
    return with_reader(n, [n](DiskReader& reader) { return reader.next(n); });
}

bool DiskDb::writing() {
    return with_reader(false, [](DiskReader& reader) { return reader.recorded(); });
}

bool DiskDb::info(uint64_t number, FrameInfo& out) {
    return with_reader(false, [&](DiskReader& reader) { return reader.info(number, out); });
}

bool DiskDb::read(uint64_t number, qm_dbframe& out) {
    return with_reader(false, [&](DiskReader& reader) { return reader.read(number, out); });
}

uint64_t DiskDb::at_time(int64_t time_us) {
    return with_reader(uint64_t{0},
                       [time_us](DiskReader& reader) { return reader.at_time(time_us); });
}

bool DiskDb::key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key) {
    return with_reader(false, [&](DiskReader& reader) {
        return reader.key_at_or_before(n, stream, channel, key);
    });
}

bool DiskDb::key_after(uint64_t n, int stream, int channel, uint64_t& key) {
    return with_reader(
        false, [&](DiskReader& reader) { return reader.key_after(n, stream, channel, key); });
}

DatabaseReport DiskDb::report() {
    DatabaseReport report;
    report.first = first();
    report.end = end();
    std::lock_guard lock(m_writer_mutex);
    report.refused = m_refused;
    report.lost = m_lost;
    report.writing = m_writer != nullptr;
    return report;
}

}  // namespace sim
