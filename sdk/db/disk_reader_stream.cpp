// Reading all of a database in order: large pieces of its files, the next one on its way while the
// caller works on one, over the ends of segments.
#include "sdk/db/disk_reader.h"

#include <algorithm>

namespace sim {

namespace {

// What load() looks at in a segment that ended well: its directory and its last batch.
constexpr uint64_t ENDING_BYTES = 1280 * 1024;

}  // namespace

// Null where that does not work; then the caller reads by itself.
const uint8_t* DiskReader::streamed(const Loaded& loaded, uint64_t offset, size_t wanted) {
    const uint8_t* bytes = m_stream.at(loaded.number, offset, wanted);
    if (!bytes && stream_from(loaded.number, offset, loaded.index.end()))
        bytes = m_stream.at(loaded.number, offset, wanted);
    while (bytes && m_stream.has_room() && stream_on()) {
    }
    return bytes;
}

bool DiskReader::stream_from(uint64_t number, uint64_t offset, uint64_t end) {
    if (m_stream.number() != number) {
        const int file =
            m_files.open(m_folder, segment_name(m_name, number), FileSystem::Access::stream);
        if (file < 0) return false;
        m_stream.use(number, file);
    }
    return m_stream.begin(offset, end);
}

// Begins with what comes behind all that is on its way: the rest of its segment, else the start of
// the next one, unless that is still being written. Further pieces of it wait until its records are
// known.
bool DiskReader::stream_on() {
    const size_t place = place_of(m_stream.number());
    if (place == NONE || !m_segments[place].loaded) return false;
    const Loaded& loaded = *m_segments[place].loaded;
    const bool has_next = m_newest != NONE && place + 1 < m_newest;
    const uint64_t next = has_next ? m_segments[place + 1].number : 0;
    const uint64_t end = m_stream.end();
    if (end >= loaded.index.end()) {
        m_load_soon = next;
        return has_next && stream_from(next, 0, ReadAhead::PIECE_BYTES);
    }
    if (has_next) announce_ending(next);
    const size_t entry = loaded.index.reaching_beyond(end);
    return entry < loaded.index.size() &&
           stream_from(loaded.number, loaded.index.entry(entry).offset(), loaded.index.end());
}

// Loads the segment that the stream has come to, while pieces are on their way.
void DiskReader::load_ahead() {
    const size_t place = place_of(m_load_soon);
    m_load_soon = 0;
    if (place != NONE && good(place)) load(place);
}

// The next segment is to be loaded without waiting for the disk.
void DiskReader::announce_ending(uint64_t number) {
    if (m_announced == number) return;
    m_announced = number;
    const int file = m_files.open(m_folder, segment_name(m_name, number), FileSystem::Access::read);
    if (file < 0) return;
    const int64_t size = m_files.size(file);
    m_files.announce(file, 0, SEGMENT_START);
    if (size > static_cast<int64_t>(ENDING_BYTES))
        m_files.announce(file, static_cast<uint64_t>(size) - ENDING_BYTES, ENDING_BYTES);
    m_files.close(file);
}

}  // namespace sim
