// Writing the .ini file of a disk database from what its segments say.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "sdk/db/check.h"
#include "sdk/db/segment_scan.h"

namespace sim {

namespace {

// Of a database whose .ini is lost; as many as a recorder's without other settings.
constexpr uint64_t USUAL_RING_SEGMENTS = 1920;

// What the headers say, by the database they name.
struct Database {
    uint64_t segments = 0;
    uint64_t newest = 0;         // its number
    uint64_t segment_bytes = 0;  // of the newest
};
struct LessBytes {
    bool operator()(const Identity& a, const Identity& b) const {
        return memcmp(a.bytes, b.bytes, sizeof a.bytes) < 0;
    }
};
using Databases = std::map<Identity, Database, LessBytes>;

Databases read_headers(const DatabaseView& view, Rebuilt& rebuilt) {
    Databases found;
    for (const uint64_t number : view.numbers()) {
        const std::unique_ptr<OpenSegment> segment = view.segment(number);
        if (segment->state != SegmentState::whole && segment->state != SegmentState::foreign) {
            ++rebuilt.without_header;
            continue;
        }
        Database& database = found[segment->header.database];
        ++database.segments;
        database.newest = number;
        database.segment_bytes = segment->header.bytes;
    }
    return found;
}

// The .ini's own database while a segment has it; else the one that most segments have, of equals
// the newest.
Databases::const_iterator choose(const Databases& found, const DatabaseView& view) {
    if (view.ini_state() == IniState::whole) {
        const auto named = found.find(view.ini().identity);
        if (named != found.end()) return named;
    }
    return std::max_element(found.begin(), found.end(), [](const auto& a, const auto& b) {
        return a.second.segments != b.second.segments ? a.second.segments < b.second.segments
                                                      : a.second.newest < b.second.newest;
    });
}

struct alignas(BLOCK_BYTES) Block {
    uint8_t bytes[BLOCK_BYTES] = {};
};

// 0 or -errno. Files are written in whole blocks, then cut.
int write_new(FileSystem& files, const DatabaseView& view, const std::string& text) {
    const std::string passing = new_ini_name(view.ini_name());
    const int removed = files.remove(view.folder(), passing);
    if (removed < 0 && removed != -ENOENT) return removed;
    Block block;
    memcpy(block.bytes, text.data(), text.size());
    const int file = files.open(view.folder(), passing, FileSystem::Access::create);
    if (file < 0) return file;
    int result = files.write(file, block.bytes, BLOCK_BYTES, 0);
    if (result == 0) result = files.truncate(file, text.size());
    if (result == 0) result = files.sync(file);
    files.close(file);
    if (result == 0) result = files.rename(view.folder(), passing, view.ini_name());
    if (result < 0) {
        files.remove(view.folder(), passing);
        return result;
    }
    return files.sync_folder(view.folder());
}

// Held while the file is written, so that no recorder begins meanwhile.
class Lock {
  public:
    Lock(FileSystem& files, const DatabaseView& view)
        : m_files(files),
          m_file(files.open(view.folder(), lock_name(view.ini_name()), FileSystem::Access::lock)) {
        m_error = m_file < 0 ? m_file : files.lock(m_file);
    }
    ~Lock() {
        if (m_file >= 0) m_files.close(m_file);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    int error() const { return m_error; }

  private:
    FileSystem& m_files;
    const int m_file;
    int m_error;
};

}  // namespace

namespace {

// Fills all but what became of it.
void decide(const DatabaseView& view, const Databases& found, Rebuilt& rebuilt) {
    const auto chosen = choose(found, view);
    for (const auto& [identity, database] : found) rebuilt.foreign += database.segments;
    rebuilt.segments = chosen->second.segments;
    rebuilt.foreign -= rebuilt.segments;
    const bool readable = view.ini_state() == IniState::whole;
    rebuilt.other_identity = readable && !(view.ini().identity == chosen->first);
    rebuilt.ini = {chosen->first, chosen->second.segment_bytes,
                   readable ? view.ini().ring_segments : USUAL_RING_SEGMENTS};
    // A ring that is too short would cost recordings.
    if (!readable || rebuilt.other_identity)
        rebuilt.ini.ring_segments =
            std::max<uint64_t>(rebuilt.ini.ring_segments, view.numbers().size());
}

}  // namespace

Rebuilt rebuild_ini(FileSystem& files, const DatabaseView& named) {
    Rebuilt rebuilt;
    const Lock lock(files, named);
    if (lock.error() == -EAGAIN || named.recorded_without_lock_file()) {
        rebuilt.why = "it is being recorded";
        return rebuilt;
    }
    if (lock.error() < 0) {
        rebuilt.why = "cannot lock " + lock_name(named.ini_name()) + ": " + strerror(-lock.error());
        return rebuilt;
    }
    // Read again: a recorder may have come and gone.
    const std::unique_ptr<DatabaseView> view = DatabaseView::open(files, named.path(), rebuilt.why);
    if (!view) return rebuilt;
    rebuilt.before = view->ini_state();
    const Databases found = read_headers(*view, rebuilt);
    if (found.empty()) {
        rebuilt.why = "no segment of it has a header";
        return rebuilt;
    }
    decide(*view, found, rebuilt);
    const std::string text = ini_text(rebuilt.ini);
    if (rebuilt.before == IniState::whole && text == ini_text(view->ini())) return rebuilt;
    const int result = write_new(files, *view, text);
    rebuilt.written = result == 0;
    if (result < 0) rebuilt.why = std::string("cannot write the .ini file: ") + strerror(-result);
    return rebuilt;
}

}  // namespace sim
