// Lock, .ini file and ring of a recorder.
#include "sdk/db/segment_files.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

#include "sdk/db/segment_scan.h"

namespace sim {

namespace {

// Closes a file unless it is handed on.
class Opened {
  public:
    Opened(FileSystem& files, int file) : m_files(files), m_file(file) {}
    ~Opened() {
        if (m_file >= 0) m_files.close(m_file);
    }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
    int get() const { return m_file; }
    int release() {
        const int file = m_file;
        m_file = -1;
        return file;
    }

  private:
    FileSystem& m_files;
    int m_file;
};

struct alignas(BLOCK_BYTES) Block {
    uint8_t bytes[BLOCK_BYTES];
};

// There is no such file, or something else has its name.
bool no_file(int result) {
    return result == -ENOENT || result == -ELOOP || result == -EISDIR || result == -EINVAL ||
           result == -ENXIO;
}

// A file under a segment's name that this process can do nothing with.
bool not_ours(int result) { return no_file(result) || result == -EACCES || result == -EPERM; }

}  // namespace

// Never fails for so few bytes; where the kernel has no such call, time has to do.
void fill_at_random(void* out, size_t size) {
    if (getrandom(out, size, 0) == static_cast<ssize_t>(size)) return;
    const int64_t now = std::chrono::steady_clock::now().time_since_epoch().count();
    memcpy(out, &now, std::min(size, sizeof now));
}

bool no_room(int result) { return result == -ENOSPC || result == -EDQUOT; }

void split_path(const std::string& path, std::string& folder, std::string& name) {
    const size_t slash = path.rfind('/');
    folder = slash == std::string::npos ? "" : path.substr(0, std::max<size_t>(slash, 1));
    name = slash == std::string::npos ? path : path.substr(slash + 1);
}

std::unique_ptr<SegmentFiles> SegmentFiles::open(FileSystem& files, const std::string& path,
                                                 std::string& why) {
    std::string folder, name;
    split_path(path, folder, name);
    if (name.empty() || name == "." || name == "..") {
        why = "the path names no file";
        return nullptr;
    }
    std::unique_ptr<SegmentFiles> segments(new SegmentFiles(files, name));
    segments->m_folder = files.open_folder(folder, true);
    if (segments->m_folder < 0) {
        why = std::string("cannot open the folder: ") + strerror(-segments->m_folder);
        return nullptr;
    }
    segments->m_lock = files.open(segments->m_folder, lock_name(name), FileSystem::Access::lock);
    const int locked = segments->m_lock < 0 ? segments->m_lock : files.lock(segments->m_lock);
    if (locked < 0) {
        why = locked == -EAGAIN && segments->m_lock >= 0
                  ? "it is being recorded already"
                  : "cannot lock " + lock_name(name) + ": " + strerror(-locked);
        return nullptr;
    }
    return segments;
}

SegmentFiles::~SegmentFiles() {
    if (m_ini_file >= 0) m_files.close(m_ini_file);
    if (m_lock >= 0) m_files.close(m_lock);
    if (m_folder >= 0) m_files.close(m_folder);
}

// -EAGAIN when the lock file was removed under a recorder: its .ini is locked as well.
int SegmentFiles::read_ini() {
    m_has_ini = false;
    const Opened file(m_files, m_files.open(m_folder, m_name, FileSystem::Access::read));
    if (file.get() < 0) return no_file(file.get()) ? 0 : file.get();
    if (m_files.locked(file.get()) == 1) return -EAGAIN;
    char text[MAX_INI_BYTES];
    const int64_t size = m_files.read(file.get(), text, sizeof text, 0);
    if (size < 0) return static_cast<int>(size);
    m_ini.assign(text, static_cast<size_t>(size));
    DatabaseIni ini;
    m_has_ini = parse_ini(m_ini, ini);
    if (m_has_ini) m_identity = ini.identity;
    return 0;
}

int SegmentFiles::load(Newest& newest) {
    std::vector<std::string> names;
    const int listed = m_files.list(m_folder, m_name, names);
    if (listed < 0) return listed;
    for (const std::string& name : names)
        if (const uint64_t number = segment_number(m_name, name)) m_numbers.push_back(number);
    std::sort(m_numbers.begin(), m_numbers.end());
    m_next = m_numbers.empty() ? 1 : m_numbers.back() + 1;
    const int ini = read_ini();
    if (ini == -EAGAIN) return ini;
    size_t place = m_numbers.size();
    const int found = find_newest(newest, place);
    if (found < 0) return found;
    if (newest.found && m_has_ini && newest.header.database != m_identity)
        decide_identity(newest, place);
    // A file that only has a name of the highest numbers does not end the numbers.
    if (m_next > MAX_SEGMENT_NUMBER) m_next = newest.found ? newest.header.number + 1 : 1;
    if (m_next > MAX_SEGMENT_NUMBER) return -EOVERFLOW;
    // Another identity would hide what is recorded, if it can be read later.
    if (!newest.found && !m_has_ini && (ini < 0 || newest.error < 0))
        return ini < 0 ? ini : newest.error;
    if (!newest.found || newest.error < 0) place = m_numbers.size();
    if (newest.found)
        m_identity = newest.header.database;
    else if (!m_has_ini)
        fill_at_random(m_identity.bytes, sizeof m_identity.bytes);
    drop_foreign_behind(place);
    // Files that never became segments, or are none any more, are used again before any record.
    m_blanks = m_numbers.size() - place;
    std::rotate(m_numbers.begin(), m_numbers.begin() + static_cast<ptrdiff_t>(place),
                m_numbers.end());
    return 0;
}

// The newest segment below `place` in m_numbers; `place` is then that of the file behind it.
int SegmentFiles::find_newest(Newest& newest, size_t& place) {
    newest.found = false;
    for (; place > 0; --place) {
        const uint64_t number = m_numbers[place - 1];
        const Opened file(m_files, open_existing(number));
        Block headers[2];
        int64_t result = file.get();
        if (result >= 0) result = m_files.read(file.get(), headers, sizeof headers, 0);
        const bool readable = result >= 0;
        // The lock file was removed under a recorder: the lock on its segment is still there.
        if (readable && m_files.locked(file.get()) == 1) return -EAGAIN;
        if (!readable && !no_file(static_cast<int>(result)))
            newest.error = static_cast<int>(result);
        // A file that was cut may have one whole header.
        const auto copies =
            readable ? std::min(static_cast<size_t>(result) / sizeof(Block), std::size(headers))
                     : 0;
        const bool is_segment = std::any_of(headers, headers + copies, [&](const Block& block) {
            return read_segment_header(block.bytes, newest.header) &&
                   newest.header.number == number;
        });
        if (!is_segment) continue;
        newest.found = true;
        break;
    }
    return 0;
}

// The newest segment is not of the database that the .ini names. When another one is, that is the
// newest, and those behind it do not belong here.
void SegmentFiles::decide_identity(Newest& newest, size_t& place) {
    SegmentHeader header;
    const auto is_own = [&](size_t at) {
        const Opened file(m_files, open_existing(m_numbers[at]));
        return file.get() >= 0 && load_segment_header(m_files, file.get(), m_numbers[at], header) &&
               header.database == m_identity;
    };
    size_t above = place;
    for (const size_t at : places_to_ask(place)) {
        if (is_own(at)) {
            size_t last = above - 1;  // the newest may be behind it
            while (last > at && !is_own(last)) --last;
            if (!is_own(last)) return;
            newest.header = header;
            place = last + 1;
            return;
        }
        above = at;
    }
}

// Behind the newest segment are files that never became one, and those of another database: these
// are no part of the ring.
void SegmentFiles::drop_foreign_behind(size_t place) {
    const auto is_foreign_file = [this](uint64_t number) {
        const Opened file(m_files, open_existing(number));
        return file.get() >= 0 && is_foreign(file.get(), number);
    };
    m_numbers.erase(std::remove_if(m_numbers.begin() + static_cast<ptrdiff_t>(place),
                                   m_numbers.end(), is_foreign_file),
                    m_numbers.end());
}

void SegmentFiles::keep_ini(uint64_t segment_bytes, uint64_t ring_segments) try {
    const std::string text = ini_text({m_identity, segment_bytes, ring_segments});
    if (text != m_ini && write_ini(text) == 0) m_ini = text;
    if (text != m_ini || m_ini_file >= 0) return;
    m_ini_file = m_files.open(m_folder, m_name, FileSystem::Access::lock);
    if (m_ini_file >= 0) m_files.lock(m_ini_file);
} catch (const std::bad_alloc&) {  // at the next occasion
}

int SegmentFiles::write_ini(const std::string& text) {
    const std::string passing = new_ini_name(m_name);
    const int removed = m_files.remove(m_folder, passing);
    if (removed < 0 && removed != -ENOENT) return removed;
    Opened file(m_files, m_files.open(m_folder, passing, FileSystem::Access::lock));
    if (file.get() < 0) return file.get();
    m_files.lock(file.get());
    int result = m_files.write(file.get(), text.data(), text.size(), 0);
    if (result == 0) result = m_files.sync(file.get());
    if (result == 0) result = m_files.rename(m_folder, passing, m_name);
    if (result < 0) {
        m_files.remove(m_folder, passing);
        return result;
    }
    if (m_ini_file >= 0) m_files.close(m_ini_file);
    m_ini_file = file.release();
    return m_files.sync_folder(m_folder);
}

int SegmentFiles::open_existing(uint64_t number) {
    return m_files.open(m_folder, segment_name(m_name, number), FileSystem::Access::write);
}

int SegmentFiles::open_to_go_on(uint64_t number) {
    const int file = open_existing(number);
    if (file >= 0) m_files.lock(file);
    return file;
}

bool SegmentFiles::short_of_room(uint64_t bytes) {
    const int64_t room = m_files.room(m_folder);
    return room >= 0 && static_cast<uint64_t>(room) < bytes + bytes / 8;
}

int SegmentFiles::make(uint64_t number, uint64_t bytes, uint64_t ring) {
    if (number > MAX_SEGMENT_NUMBER) return -EOVERFLOW;
    m_numbers.reserve(m_numbers.size() + 1);
    m_leftovers.reserve(m_leftovers.size() + 2);
    const std::string name = segment_name(m_name, number);
    m_old_seed = 0;
    m_taken_over_bytes = 0;
    int result = remove_leftovers();
    const uint64_t given_bytes = m_given_bytes;
    while (result >= 0 && m_numbers.size() > ring) result = remove_oldest();
    if (result < 0) return result;
    m_given_bytes = given_bytes;  // those went for a shorter ring
    const bool full = m_blanks > 0 || m_numbers.size() >= ring;
    const bool short_of = !m_numbers.empty() && m_given_bytes < 2 * bytes && short_of_room(bytes);
    result = full || short_of ? recycle(number, bytes) : create(name, bytes);
    if (no_room(result)) result = make_room(result, number, bytes);
    if (result < 0) return result;
    m_files.lock(result);
    m_numbers.push_back(number);
    m_next = number + 1;
    return result;
}

// Room went short meanwhile, or a quota is. The oldest segment's file needs no more of it; one that
// was cut does, and goes. When enough went for two segments and there is still no room, no more
// goes before something could be made: what is recorded is not given up for nothing.
int SegmentFiles::make_room(int result, uint64_t number, uint64_t bytes) {
    while (no_room(result) && m_numbers.size() > 1 && m_given_bytes < 2 * bytes &&
           (result == -EDQUOT || short_of_room(bytes))) {
        const uint64_t given_bytes = m_given_bytes;
        result = recycle(number, bytes);
        const bool kept = no_room(result) && m_given_bytes == given_bytes;
        const int removed = kept && !m_numbers.empty() ? remove_oldest() : 0;
        if (removed < 0) return removed;
    }
    return result;
}

int SegmentFiles::create(const std::string& name, uint64_t bytes) {
    Opened file(m_files, m_files.open(m_folder, name, FileSystem::Access::create));
    if (file.get() < 0) return file.get();
    int result = m_files.allocate(file.get(), bytes);
    if (result == 0) return file.release();
    const uint64_t number = segment_number(m_name, name);
    if (m_files.remove(m_folder, name) < 0) m_leftovers.push_back(number);
    return result;
}

// Whether the file holds a segment of another database.
bool SegmentFiles::is_foreign(int file, uint64_t number) {
    SegmentHeader header;
    if (!load_segment_header(m_files, file, number, header)) return false;
    m_old_seed = header.seed();
    return !(header.database == m_identity);
}

// The oldest segment's file becomes that of the new one. A foreign file, and what cannot be opened,
// is not part of the ring.
int SegmentFiles::recycle(uint64_t number, uint64_t bytes) {
    while (!m_numbers.empty()) {
        const uint64_t oldest = m_numbers.front();
        Opened file(m_files, open_existing(oldest));
        if (file.get() < 0 && !not_ours(file.get())) return file.get();
        if (file.get() >= 0 && !is_foreign(file.get(), oldest)) {
            const int result = take_over(file.get(), oldest, number, bytes);
            return result < 0 ? result : file.release();
        }
        drop_first();
    }
    return create(segment_name(m_name, number), bytes);
}

// -EEXIST when something has the name: it would be replaced.
int SegmentFiles::check_free(const std::string& name) {
    const Opened file(m_files, m_files.open(m_folder, name, FileSystem::Access::read));
    if (file.get() == -ENOENT) return 0;
    return file.get() >= 0 || not_ours(file.get()) ? -EEXIST : file.get();
}

int SegmentFiles::take_over(int file, uint64_t old_number, uint64_t number, uint64_t bytes) {
    const std::string name = segment_name(m_name, number);
    const int64_t size = m_files.size(file);
    if (size < 0) return static_cast<int>(size);
    int result = number == old_number ? 0 : check_free(name);
    if (result < 0) return result;
    if (static_cast<uint64_t>(size) < bytes) result = m_files.allocate(file, bytes);
    if (static_cast<uint64_t>(size) > bytes) result = m_files.truncate(file, bytes);
    if (result == 0) result = m_files.rename(m_folder, segment_name(m_name, old_number), name);
    if (result < 0) return result;
    drop_first();
    m_taken_over_bytes = bytes;
    return 0;
}

void SegmentFiles::use_first(uint64_t number) {
    const auto place = std::find(m_numbers.begin(), m_numbers.end(), number);
    if (place == m_numbers.end()) return;
    std::rotate(m_numbers.begin(), place, place + 1);
    ++m_blanks;
}

void SegmentFiles::drop_first() {
    m_numbers.erase(m_numbers.begin());
    if (m_blanks > 0) --m_blanks;
}

int SegmentFiles::remove_oldest() {
    const uint64_t oldest = m_numbers.front();
    int64_t size = 0;
    {
        const Opened file(m_files, open_existing(oldest));
        if (file.get() < 0 && !not_ours(file.get())) return file.get();
        if (file.get() < 0 || is_foreign(file.get(), oldest)) {
            drop_first();
            return 0;
        }
        size = m_files.size(file.get());
    }
    const int result = m_files.remove(m_folder, segment_name(m_name, oldest));
    if (result < 0) return result;
    drop_first();
    m_given_bytes += size > 0 ? static_cast<uint64_t>(size) : 0;
    return 0;
}

int SegmentFiles::remove_leftovers() {
    while (!m_leftovers.empty()) {
        const int result = m_files.remove(m_folder, segment_name(m_name, m_leftovers.back()));
        if (result < 0 && result != -ENOENT) return result;
        m_leftovers.pop_back();
    }
    return 0;
}

void SegmentFiles::discard(uint64_t number) {
    std::erase(m_numbers, number);
    m_given_bytes += m_taken_over_bytes;
    m_taken_over_bytes = 0;
    int result = -ENOMEM;
    try {
        result = m_files.remove(m_folder, segment_name(m_name, number));
    } catch (const std::bad_alloc&) {
    }
    if (result < 0) m_leftovers.push_back(number);
}

int SegmentFiles::trial() {
    static const Block block = {};
    const std::string name = probe_name(m_name);
    m_files.remove(m_folder, name);
    int result;
    {
        const Opened file(m_files, m_files.open(m_folder, name, FileSystem::Access::create));
        result = file.get();
        if (result >= 0) result = m_files.write(file.get(), block.bytes, BLOCK_BYTES, 0);
        if (result >= 0) result = m_files.sync(file.get());
        if (result >= 0) result = m_files.sync_folder(m_folder);
    }
    m_files.remove(m_folder, name);
    return result < 0 && !no_room(result) ? result : 0;
}

}  // namespace sim
