// What callers ask a disk database for. Which files there are, and which are loaded, is looked
// after in disk_reader_files.cpp.
#include "sdk/db/disk_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sdk/db/crc32c.h"
#include "sdk/db/segment_files.h"

namespace sim {

namespace {

// Read ahead of a caller who reads on. Larger records go straight to the caller.
constexpr size_t AHEAD_BYTES = 512 * 1024;
constexpr uint64_t NEAR_BYTES = 64 * 1024;  // what may be passed over in reading on
// Who has read so much in order gets all from the stream.
constexpr uint64_t STREAM_BYTES = 4 << 20;

void fill_info(const RecordHeader& record, FrameInfo& out) {
    out.kind = static_cast<FrameKind>(record.kind);
    out.stream = record.stream;
    out.channel = record.channel;
    out.number = record.frame_number;
    out.time_us = record.utc_us;
    out.run = record.run;
    out.bytes = record.bytes;
}

bool valid_lane(int stream, int channel) {
    return stream >= 0 && stream < QMCODEC_STREAMS && channel >= 0 && channel < QMCODEC_CHANNELS;
}

}  // namespace

std::unique_ptr<DiskReader> DiskReader::open(FileSystem& files, const std::string& path,
                                             std::string& why, bool own_thread) {
    std::string folder;
    std::string name;
    split_path(path, folder, name);
    std::unique_ptr<DiskReader> reader(new DiskReader(files, name, own_thread));
    if (!reader->start(folder, why)) return nullptr;
    return reader;
}

DiskReader::~DiskReader() {
    m_loaded.clear();
    if (m_lock >= 0) m_files.close(m_lock);
    if (m_folder >= 0) m_files.close(m_folder);
}

bool DiskReader::start(const std::string& folder, std::string& why) {
    m_folder = m_files.open_folder(folder, false);
    if (m_folder == -ENOENT || m_folder == -ENOTDIR || m_name.empty()) {
        why = "there is no such database";
        return false;
    }
    if (m_folder < 0) {
        why = std::string("cannot open the folder: ") + strerror(-m_folder);
        return false;
    }
    read_ini();
    refresh();
    if (m_newest != NONE || m_has_ini) return true;
    why = m_error < 0 ? std::string("cannot be read: ") + strerror(-m_error)
                      : "there is no such database";
    return false;
}

void DiskReader::read_ini() {
    const int file = m_files.open(m_folder, m_name, FileSystem::Access::read);
    if (file < 0 && file != -ENOENT) m_error = file;
    if (file < 0) return;
    char bytes[MAX_INI_BYTES + 1];
    const int64_t got = m_files.read(file, bytes, sizeof bytes, 0);
    m_files.close(file);
    DatabaseIni ini;
    if (got < 0 || static_cast<size_t>(got) > MAX_INI_BYTES ||
        !parse_ini(std::string(bytes, static_cast<size_t>(got)), ini))
        return;
    m_has_ini = true;
    m_identity = m_ini_identity = ini.identity;
}

// The last segment in use for which `before` holds; it holds for all before one for which it does.
template <class Before>
size_t DiskReader::last_where(Before before) {
    size_t found = NONE;
    size_t low = 0;
    size_t high = m_newest == NONE ? 0 : m_newest + 1;
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        size_t place = middle;
        while (place > low && !good(place)) --place;
        if (!good(place)) {
            low = middle + 1;
        } else if (before(m_segments[place])) {
            found = place;
            low = middle + 1;
        } else {
            high = place;
        }
    }
    return found;
}

// The first segment in use at `place` or behind it; NONE when there is none.
size_t DiskReader::good_above(size_t place) {
    if (m_newest == NONE) return NONE;
    for (; place <= m_newest; ++place)
        if (good(place)) return place;
    return NONE;
}

// The segment that has record n, if any has. Where a segment was given up, the next one begins
// with the records that it may have lost: that one counts.
size_t DiskReader::holder(uint64_t n) {
    return last_where([n](const Segment& segment) { return segment.first_sequence <= n; });
}

// Records of the segment have lower numbers.
uint64_t DiskReader::limit(size_t place) {
    const size_t above = good_above(place + 1);
    return above == NONE ? UINT64_MAX : m_segments[above].first_sequence;
}

bool DiskReader::first_known(uint64_t& first) {
    for (size_t place = good_above(0); place != NONE; place = good_above(place + 1)) {
        Segment& segment = m_segments[place];
        if (segment.loaded ? still_there(*segment.loaded) : examine(segment)) {
            first = std::min(segment.first_sequence, m_end);
            return true;
        }
        pass_over(place);
    }
    return false;
}

uint64_t DiskReader::first() {
    uint64_t first = 0;
    if (first_known(first)) return first;
    // The ring has turned since the last look.
    m_list_due_us = 0;
    refresh();
    return first_known(first) ? first : m_end;
}

uint64_t DiskReader::end() {
    refresh();
    return m_end;
}

bool DiskReader::next_known(uint64_t n, uint64_t& found) {
    size_t place = holder(n);
    for (place = place == NONE ? good_above(0) : place; place != NONE;
         place = good_above(place + 1)) {
        const Loaded* loaded = load(place);
        if (!loaded) continue;
        const size_t entry = loaded->index.at_or_behind(n);
        if (entry == loaded->index.size()) continue;
        found = loaded->index.sequence(entry);
        if (found < limit(place)) return true;
    }
    return false;
}

uint64_t DiskReader::next(uint64_t n) {
    uint64_t found = 0;
    if (next_known(n, found) || (refresh() && next_known(n, found))) return found;
    return m_end;
}

// Missing records may be more than can be counted: the search halves what is left of them.
uint64_t DiskReader::previous(uint64_t n) {
    uint64_t last = next(0);
    if (last >= n) return n;
    for (uint64_t none_from = n; none_from - last > 1;) {
        const uint64_t middle = last + (none_from - last) / 2;
        const uint64_t found = next(middle);
        if (found < n)
            last = found;
        else
            none_from = middle;
    }
    return last;
}

bool DiskReader::at_time_known(int64_t time_us, uint64_t& found) {
    size_t place =
        last_where([time_us](const Segment& segment) { return segment.latest_utc_us < time_us; });
    for (place = place == NONE ? good_above(0) : place; place != NONE;
         place = good_above(place + 1)) {
        const Loaded* loaded = load(place);
        if (!loaded) continue;
        const size_t entry = loaded->index.at_time(time_us);
        if (entry == loaded->index.size()) continue;
        found = loaded->index.sequence(entry);
        if (found < limit(place)) return true;
    }
    return false;
}

uint64_t DiskReader::at_time(int64_t time_us) {
    uint64_t found = 0;
    if (at_time_known(time_us, found) || (refresh() && at_time_known(time_us, found))) return found;
    return m_end;
}

bool DiskReader::key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key) {
    if (!valid_lane(stream, channel)) return false;
    const size_t lane = lane_of(stream, channel);
    if (n >= m_end) refresh();
    size_t place = holder(n);
    if (place == NONE) return false;
    for (uint64_t most = n;; --place) {
        const Segment& segment = m_segments[place];
        if (good(place) && !(segment.keys_known && !segment.keys[lane])) {
            const Loaded* loaded = load(place);
            const uint64_t behind = loaded ? limit(place) : 0;
            if (loaded && behind > 0 &&
                loaded->index.last_key(lane, std::min(most, behind - 1), key))
                return true;
        }
        if (place == 0) return false;
    }
}

bool DiskReader::key_after_known(uint64_t n, size_t lane, uint64_t& key) {
    size_t place = holder(n);
    for (place = place == NONE ? good_above(0) : place; place != NONE;
         place = good_above(place + 1)) {
        const Segment& segment = m_segments[place];
        if (segment.keys_known && !segment.keys[lane]) continue;
        const Loaded* loaded = load(place);
        if (loaded && loaded->index.first_key(lane, n + 1, key) && key < limit(place)) return true;
    }
    return false;
}

bool DiskReader::key_after(uint64_t n, int stream, int channel, uint64_t& key) {
    if (!valid_lane(stream, channel) || n == UINT64_MAX) return false;
    const size_t lane = lane_of(stream, channel);
    return key_after_known(n, lane, key) || (refresh() && key_after_known(n, lane, key));
}

// Where record n stands. The segment is loaded then.
bool DiskReader::locate(uint64_t n, size_t& place, size_t& entry) {
    if (n >= m_end) refresh();
    place = holder(n);
    if (place == NONE) return false;
    const Loaded* loaded = load(place);
    if (!loaded) return false;
    entry = loaded->index.at_or_behind(n);
    return entry < loaded->index.size() && loaded->index.sequence(entry) == n;
}

// Bytes that were read ahead for a caller who goes from record to record; null when they were not.
const uint8_t* DiskReader::read_ahead(const Loaded& loaded, uint64_t offset, size_t wanted) const {
    const bool held = m_ahead_segment == loaded.header.identity && offset >= m_ahead_next &&
                      offset >= m_ahead_offset && offset - m_ahead_offset <= m_ahead_bytes &&
                      m_ahead_bytes - (offset - m_ahead_offset) >= wanted;
    return held ? m_ahead.get() + (offset - m_ahead_offset) : nullptr;
}

// Goes on from the record that was read last, in its segment or the next.
bool DiskReader::reads_on(const Loaded& loaded, uint64_t offset) const {
    if (m_ahead_segment == loaded.header.identity)
        return offset >= m_ahead_next && offset - m_ahead_next <= NEAR_BYTES;
    return m_read_last && loaded.number > m_read_number && offset - SEGMENT_START <= NEAR_BYTES;
}

// Bytes of records from `offset` on, `wanted` or fewer. Of a header alone no more is read; else the
// more the longer the caller has gone from record to record.
const uint8_t* DiskReader::bytes_at(Loaded& loaded, uint64_t offset, size_t wanted, size_t& got) {
    got = wanted;
    if (const uint8_t* held = read_ahead(loaded, offset, wanted)) return held;
    if (hold_file(loaded) < 0) return nullptr;
    if (wanted == RECORD_BYTES) {
        const int64_t read = m_files.read(loaded.file, m_record, RECORD_BYTES, offset);
        return read == static_cast<int64_t>(RECORD_BYTES) ? m_record : nullptr;
    }
    const bool onward = reads_on(loaded, offset);
    if (!onward) m_read_on = 0;
    if (m_read_on >= STREAM_BYTES) {
        if (const uint8_t* bytes = streamed(loaded, offset, wanted)) return bytes;
        m_read_on = 0;
    }
    if (!m_ahead) m_ahead.reset(new uint8_t[AHEAD_BYTES]);
    const uint64_t most = std::min<uint64_t>(AHEAD_BYTES, loaded.index.end() - offset);
    m_ahead_reach = onward ? std::max(wanted, 2 * m_ahead_reach) : wanted;
    m_ahead_reach = static_cast<size_t>(std::min<uint64_t>(m_ahead_reach, most));
    m_ahead_bytes = 0;
    int64_t read = m_files.read(loaded.file, m_ahead.get(), m_ahead_reach, offset);
    if (read < 0 && m_ahead_reach > wanted) {  // what cannot be read may come behind this record
        m_ahead_reach = wanted;
        read = m_files.read(loaded.file, m_ahead.get(), wanted, offset);
    }
    if (read <= 0) return nullptr;
    m_ahead_segment = loaded.header.identity;
    m_ahead_offset = m_ahead_next = offset;
    m_ahead_bytes = static_cast<size_t>(read);
    got = std::min(m_ahead_bytes, wanted);
    return m_ahead.get();
}

// The record's header, which must be what the index says, and as much behind it as is at hand.
const uint8_t* DiskReader::header_at(Loaded& loaded, size_t entry, size_t wanted,
                                     RecordHeader& header, size_t& got) {
    const IndexEntry& known = loaded.index.entry(entry);
    const uint8_t* bytes = bytes_at(loaded, known.offset(), wanted, got);
    if (!bytes || got < RECORD_BYTES || !read_record_header(bytes, loaded.seed, header) ||
        header.sequence != loaded.index.sequence(entry) || header.kind != known.kind ||
        header.stream != known.stream || header.channel != known.channel ||
        header.total_bytes() > loaded.index.end_of(entry) - known.offset())
        return nullptr;
    return bytes;
}

bool DiskReader::info(uint64_t n, FrameInfo& out) {
    size_t place = 0;
    size_t entry = 0;
    if (!locate(n, place, entry)) return false;
    Loaded& loaded = *m_segments[place].loaded;
    RecordHeader header;
    size_t got = 0;
    if (header_at(loaded, entry, RECORD_BYTES, header, got)) {
        fill_info(header, out);
        return true;
    }
    if (!still_there(loaded)) pass_over(place);
    return false;
}

bool DiskReader::read_entry(Loaded& loaded, size_t entry, qm_dbframe& out) {
    const uint64_t offset = loaded.index.entry(entry).offset();
    const uint64_t room = loaded.index.end_of(entry) - offset;
    const size_t wanted = room > AHEAD_BYTES ? RECORD_BYTES : static_cast<size_t>(room);
    RecordHeader header;
    size_t got = 0;
    const uint8_t* bytes = header_at(loaded, entry, wanted, header, got);
    if (!bytes) return false;
    const auto filled = static_cast<size_t>(header.total_bytes() - RECORD_BYTES);
    uint32_t crc = record_crc_start(bytes, loaded.seed);
    out.reserve(filled);
    if (got >= header.total_bytes()) {
        crc = crc32c(crc, bytes + RECORD_BYTES, filled);
        if (header.bytes > 0) memcpy(out.payload.get(), bytes + RECORD_BYTES, header.bytes);
    } else if (hold_file(loaded) == 0 &&
               m_files.read(loaded.file, out.payload.get(), filled, offset + RECORD_BYTES) ==
                   static_cast<int64_t>(filled)) {
        crc = crc32c(crc, out.payload.get(), filled);
    } else {
        return false;
    }
    if (crc != header.crc) return false;
    if (m_ahead_segment != loaded.header.identity) m_ahead_bytes = 0;
    m_ahead_segment = loaded.header.identity;
    m_ahead_next = offset + header.total_bytes();
    m_read_number = loaded.number;
    m_read_last = entry + 1 == loaded.index.size();
    m_read_on += header.total_bytes();
    fill_info(header, out.info);
    return true;
}

bool DiskReader::read(uint64_t n, qm_dbframe& out) {
    if (m_load_soon != 0) load_ahead();
    size_t place = 0;
    size_t entry = 0;
    if (!locate(n, place, entry)) return false;
    Loaded& loaded = *m_segments[place].loaded;
    if (read_entry(loaded, entry, out)) return true;
    if (m_read_on >= STREAM_BYTES) {  // the file may have changed since it was read ahead
        m_stream.forget();
        m_read_on = 0;
        if (read_entry(loaded, entry, out)) return true;
    }
    if (!still_there(loaded)) pass_over(place);
    return false;
}

// The lock file may have been removed and made again.
bool DiskReader::recorded() {
    if (m_lock >= 0 && m_files.locked(m_lock) == 1) return true;
    if (m_lock >= 0) m_files.close(m_lock);
    m_lock = m_files.open(m_folder, lock_name(m_name), FileSystem::Access::read);
    return m_lock >= 0 && m_files.locked(m_lock) == 1;
}

}  // namespace sim
