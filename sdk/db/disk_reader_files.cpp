// A reader's view of the files of a database: which segments there are, which is the newest, and
// which of them are loaded. What callers ask for stands in disk_reader.cpp.
#include "sdk/db/disk_reader.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "sdk/db/directory.h"

namespace sim {

namespace {

constexpr size_t MOST_SEGMENTS = 1'000'000;  // files looked at, the newest
constexpr size_t MOST_ENTRIES = 256 * 1024;  // kept in all indexes
constexpr size_t INDEX_COST = 128;           // entries that an index costs besides its own
constexpr size_t MOST_FILES = 64;            // kept open
constexpr size_t LOOKED_AT_AGAIN = 8;        // newest files that were passed over
constexpr size_t MOST_ADOPTED = 1024;        // newer segments found by one call
constexpr int64_t LIST_US = 200'000;         // between two listings of the folder
constexpr int64_t LIST_SHARE = 10;           // and so many times what one takes

int64_t steady_us() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool too_many_files(int result) { return result == -EMFILE || result == -ENFILE; }

// Says nothing about the file.
bool passing(int result) { return too_many_files(result) || result == -ENOMEM; }

}  // namespace

void DiskReader::Loaded::close() {
    if (file >= 0) files.close(file);
    file = -1;
}

// Gives own files up where the process or the machine has too many.
int DiskReader::open_file(uint64_t number) {
    const std::string name = segment_name(m_name, number);
    int file = m_files.open(m_folder, name, FileSystem::Access::read);
    while (too_many_files(file) && close_one(nullptr))
        file = m_files.open(m_folder, name, FileSystem::Access::read);
    if (file < 0 && file != -ENOENT) m_error = file;
    return file;
}

// The open file of a segment with a header, or less than 0.
int DiskReader::open_header(uint64_t number, SegmentHeader& header) {
    const int file = open_file(number);
    if (file < 0) return file;
    if (load_segment_header(m_files, file, number, header)) return file;
    m_files.close(file);
    return -EINVAL;
}

size_t DiskReader::place_of(uint64_t number) const {
    const auto found =
        std::partition_point(m_segments.begin(), m_segments.end(),
                             [number](const Segment& segment) { return segment.number < number; });
    if (found == m_segments.end() || found->number != number) return NONE;
    return static_cast<size_t>(found - m_segments.begin());
}

// Reads the folder anew. False when that is not possible; then all stays as it was.
bool DiskReader::list_segments() {
    std::vector<std::string> names;
    if (const int error = m_files.list(m_folder, m_name + ".", names); error < 0) {
        m_error = error;
        return false;
    }
    std::vector<Segment> listed;
    listed.reserve(names.size());
    for (const std::string& name : names) {
        Segment segment;
        segment.number = segment_number(m_name, name);
        if (segment.number > 0) listed.push_back(segment);
    }
    std::sort(listed.begin(), listed.end(),
              [](const Segment& a, const Segment& b) { return a.number < b.number; });
    if (listed.size() > MOST_SEGMENTS)
        listed.erase(listed.begin(), listed.end() - static_cast<ptrdiff_t>(MOST_SEGMENTS));
    keep_listed(listed);
    return true;
}

// What is known of the segments that are still there is kept, the others are forgotten.
void DiskReader::keep_listed(std::vector<Segment>& listed) {
    const uint64_t newest = m_newest == NONE ? 0 : m_segments[m_newest].number;
    m_newest = NONE;
    size_t old = 0;
    for (size_t place = 0; place < listed.size(); ++place) {
        Segment& segment = listed[place];
        while (old < m_segments.size() && m_segments[old].number < segment.number) ++old;
        if (old < m_segments.size() && m_segments[old].number == segment.number)
            std::swap(segment, m_segments[old]);
        if (segment.state == State::unreadable) segment.state = State::unknown;
        if (segment.number == newest) m_newest = place;
    }
    m_segments.swap(listed);
    for (const Segment& gone : listed)
        if (gone.loaded) unload(gone.loaded);
}

// The database is the one of the .ini file when any segment says so too, else that of the newest.
bool DiskReader::decide_identity() {
    SegmentHeader header;
    const auto readable = [&](const Segment& segment) {
        const int file = open_header(segment.number, header);
        if (file >= 0) m_files.close(file);
        return file >= 0;
    };
    const auto newest_one = std::find_if(m_segments.rbegin(), m_segments.rend(), readable);
    if (newest_one == m_segments.rend()) return m_has_ini;
    m_identity = header.database;
    m_has_identity = true;
    if (!m_has_ini || m_identity == m_ini_identity) return true;
    for (const size_t place : places_to_ask(static_cast<size_t>(m_segments.rend() - newest_one))) {
        if (!readable(m_segments[place]) || header.database != m_ini_identity) continue;
        m_identity = m_ini_identity;
        break;
    }
    return true;
}

// Finds the newest segment where none was known. False when there is no database.
bool DiskReader::settle() {
    if (!decide_identity()) return false;
    if (!m_has_identity) return true;
    for (size_t place = m_segments.size(); place-- > 0;) {
        if (!examine(m_segments[place])) continue;
        adopt(place);
        break;
    }
    return true;
}

// Whether the file is a segment of the database, as it is now.
bool DiskReader::examine(Segment& segment) {
    SegmentHeader header;
    const int file = open_header(segment.number, header);
    if (file >= 0) m_files.close(file);
    if (file < 0 || header.database != m_identity) {
        segment.state = passing(file) ? State::unreadable : State::passed_over;
        return false;
    }
    segment.state = State::good;
    segment.first_sequence = header.first_sequence;
    segment.latest_utc_us = header.latest_utc_us;
    return true;
}

bool DiskReader::good(size_t place) {
    Segment& segment = m_segments[place];
    return segment.state == State::unknown ? examine(segment) : segment.state == State::good;
}

// New records of the newest segment are taken, and newer segments. False when there was nothing.
bool DiskReader::refresh() {
    bool found = false;
    for (size_t left = MOST_ADOPTED; left > 0; --left) {
        if (m_newest != NONE && follow_newest()) found = true;
        const uint64_t newest = m_newest == NONE ? 0 : m_segments[m_newest].number;
        if (!find_newer()) return found;
        found |= m_segments[m_newest].number != newest;
    }
    return found;
}

bool DiskReader::follow_newest() {
    const uint64_t before = m_end;
    Loaded* loaded = load(m_newest);
    if (!loaded) return false;
    try {
        loaded->scan->follow();
    } catch (...) {
        unload(loaded);
        throw;
    }
    m_end = loaded->scan->result().next_sequence;
    return m_end != before;
}

// There was no segment, and the one that a recorder begins with is there by now.
bool DiskReader::has_begun() {
    const uint64_t last = m_segments.empty() ? 0 : m_segments.back().number;
    for (const uint64_t number : {last, last + 1}) {
        SegmentHeader header;
        const int file = number > 0 ? open_header(number, header) : -ENOENT;
        if (file < 0) continue;
        m_files.close(file);
        return true;
    }
    return false;
}

// The segment after the newest is looked for by its name, any other in the folder now and then.
bool DiskReader::find_newer() {
    if (m_newest == NONE) {
        if (has_begun()) m_list_due_us = 0;
        return find_listed();
    }
    const size_t place = m_newest + 1;
    Segment next;
    next.number = m_segments[m_newest].number + 1;
    if (next.number > MAX_SEGMENT_NUMBER) return false;
    const bool listed = place < m_segments.size() && m_segments[place].number == next.number;
    if (!examine(next)) return find_listed();
    if (listed)
        m_segments[place] = next;
    else
        m_segments.insert(m_segments.begin() + static_cast<ptrdiff_t>(place), next);
    adopt(place);
    return true;
}

bool DiskReader::find_listed() {
    const int64_t now = steady_us();
    if (now < m_list_due_us) return false;
    const bool found = look_in_folder();
    const int64_t took = steady_us() - now;
    m_list_due_us = now + took + std::max(LIST_US, LIST_SHARE * took);
    return found;
}

// Files that were no segments may be by now: a recorder makes the newest.
bool DiskReader::look_in_folder() {
    if (!list_segments()) return false;
    if (m_newest == NONE) {
        settle();
        return m_newest != NONE;
    }
    for (size_t place = m_newest + 1; place < m_segments.size(); ++place) {
        Segment& segment = m_segments[place];
        const bool recent = m_segments.size() - place <= LOOKED_AT_AGAIN;
        if ((segment.state != State::unknown && !recent) || !examine(segment)) continue;
        adopt(place);
        return true;
    }
    return false;
}

// The recording went on in this segment: what could not be followed in the last one is found now.
void DiskReader::adopt(size_t place) {
    if (m_newest != NONE && m_segments[m_newest].loaded) {
        Loaded* before = m_segments[m_newest].loaded;
        try {
            if (before->scan) before->scan->run();
        } catch (...) {
            unload(before);
            throw;
        }
        before->scan.reset();
        m_segments[m_newest].keys = before->index.lanes_with_keys();
        m_segments[m_newest].keys_known = true;
    }
    m_newest = place;
    m_end = m_segments[place].first_sequence;
}

// The segment with its index; null when it is none any more, or cannot be read now.
DiskReader::Loaded* DiskReader::load(size_t place) {
    Segment& segment = m_segments[place];
    const bool newest = place == m_newest;
    if (segment.loaded && newest && !segment.loaded->scan) unload(segment.loaded);
    if (segment.loaded) {
        segment.loaded->used = ++m_calls;
        return segment.loaded;
    }
    auto loaded = std::make_unique<Loaded>(m_files);
    m_loaded.reserve(m_loaded.size() + 1);
    loaded->file = open_header(segment.number, loaded->header);
    if (passing(loaded->file)) return nullptr;
    if (loaded->file < 0 || loaded->header.database != m_identity) {
        pass_over(place);
        return nullptr;
    }
    loaded->number = segment.number;
    loaded->seed = loaded->header.seed();
    loaded->used = ++m_calls;
    load_index(*loaded, newest);
    segment.first_sequence = loaded->header.first_sequence;
    segment.latest_utc_us = loaded->header.latest_utc_us;
    segment.keys = loaded->index.lanes_with_keys();
    segment.keys_known = !newest;
    segment.loaded = loaded.get();
    m_loaded.push_back(std::move(loaded));
    make_room(segment.loaded);
    return segment.loaded;
}

void DiskReader::load_index(Loaded& loaded, bool newest) {
    ScanResult known;
    std::vector<DirectoryEntry> frames;
    const bool has_directory = load_directory(m_files, loaded.file, loaded.header, frames, known);
    loaded.index.begin(loaded.header);
    loaded.index.reserve(frames.size());
    for (size_t i = 0; i < frames.size(); ++i)
        loaded.index.add(loaded.header.first_sequence + i, frames[i]);
    if (has_directory)
        loaded.index.set_end(known.end - RECORD_BYTES - directory_bytes(frames.size()));
    if (has_directory && !newest) return;
    const auto on_record = [&loaded](const RecordHeader& record, uint64_t offset) {
        if (!record.is_frame()) return;
        loaded.index.add(record.sequence, {record.utc_us, static_cast<uint32_t>(offset / 8),
                                           record.kind, record.stream, record.channel});
        loaded.index.set_end(offset + record.total_bytes());
    };
    auto scan =
        std::make_unique<SegmentScan>(m_files, loaded.file, loaded.header, on_record, nullptr);
    if (has_directory)
        scan->resume(known);
    else
        scan->run();
    if (newest) loaded.scan = std::move(scan);
}

// Opens the file again that was closed for others: 0, or less when that is not possible or the name
// is another segment's by now.
int DiskReader::hold_file(Loaded& loaded) {
    if (loaded.file >= 0) return 0;
    SegmentHeader header;
    const int file = open_header(loaded.number, header);
    if (file < 0) return file;
    if (header.identity != loaded.header.identity || header.database != m_identity) {
        m_files.close(file);
        return -ENOENT;
    }
    loaded.file = file;
    make_room(&loaded);
    return 0;
}

// The file was not taken for another segment meanwhile.
bool DiskReader::still_there(Loaded& loaded) {
    SegmentHeader header;
    if (const int held = hold_file(loaded); held < 0) return passing(held);
    return load_segment_header(m_files, loaded.file, loaded.number, header) &&
           header.identity == loaded.header.identity;
}

void DiskReader::unload(Loaded* loaded) {
    const size_t place = place_of(loaded->number);
    if (place != NONE && m_segments[place].loaded == loaded) m_segments[place].loaded = nullptr;
    std::erase_if(m_loaded, [loaded](const auto& other) { return other.get() == loaded; });
}

// The index and the file used least recently give way; never those of the newest segment.
void DiskReader::make_room(const Loaded* in_use) {
    for (;;) {
        size_t cost = 0;
        size_t open = 0;
        Loaded* oldest = nullptr;
        for (const auto& loaded : m_loaded) {
            cost += loaded->index.size() + INDEX_COST;
            if (loaded->file >= 0) ++open;
            if (loaded.get() != in_use && !loaded->scan && (!oldest || loaded->used < oldest->used))
                oldest = loaded.get();
        }
        if (cost > MOST_ENTRIES && oldest)
            unload(oldest);
        else if (open <= MOST_FILES || !close_one(in_use))
            return;
    }
}

bool DiskReader::close_one(const Loaded* in_use) {
    Loaded* oldest = nullptr;
    for (const auto& loaded : m_loaded)
        if (loaded.get() != in_use && !loaded->scan && loaded->file >= 0 &&
            (!oldest || loaded->used < oldest->used))
            oldest = loaded.get();
    if (oldest) oldest->close();
    return oldest;
}

void DiskReader::pass_over(size_t place) {
    Segment& segment = m_segments[place];
    segment.state = State::passed_over;
    if (segment.loaded) unload(segment.loaded);
    if (place != m_newest) return;
    m_newest = NONE;
    m_list_due_us = 0;
}

}  // namespace sim
