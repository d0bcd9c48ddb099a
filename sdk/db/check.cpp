// Finding the files of a disk database and looking at them from outside. What is counted and what
// is verified stands in check_summary and check_verify.
#include "sdk/db/check.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sdk/db/segment_files.h"
#include "sdk/db/segment_scan.h"

namespace sim {

namespace {

constexpr char SEGMENT_ENDING[] = ".seg";
constexpr char INI_ENDING[] = ".ini";

bool ends_with(const std::string& name, const std::string& ending) {
    return name.size() > ending.size() &&
           name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

// The name of the .ini file that a segment's name belongs to; empty for other names.
std::string ini_of_segment(const std::string& name) {
    constexpr size_t BEHIND = 15;  // ".0000000001.seg"
    if (name.size() <= BEHIND) return {};
    const std::string ini = name.substr(0, name.size() - BEHIND);
    return segment_number(ini, name) != 0 ? ini : std::string();
}

// Reads up to `size` bytes of a file's start; the bytes read or -errno.
int64_t read_start(FileSystem& files, int folder, const std::string& name, void* out, size_t size) {
    const int file = files.open(folder, name, FileSystem::Access::read);
    if (file < 0) return file;
    const int64_t got = files.read(file, out, size, 0);
    files.close(file);
    return got;
}

bool all_zero(const uint8_t* bytes, size_t size) {
    return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

}  // namespace

std::unique_ptr<DatabaseView> DatabaseView::open(FileSystem& files, const std::string& path,
                                                 std::string& why) {
    std::unique_ptr<DatabaseView> view(new DatabaseView(files));
    if (!view->find(path, why)) return nullptr;
    const int error = view->load();
    if (error < 0) {
        why = std::string("cannot read the folder: ") + strerror(-error);
        return nullptr;
    }
    if (view->m_numbers.empty() && view->m_ini_state == IniState::missing) {
        why = "there is no such database";
        return nullptr;
    }
    if (view->m_numbers.empty() && view->m_ini_state == IniState::unreadable) {
        why = std::string("cannot read the .ini file: ") + strerror(-view->m_ini_error);
        return nullptr;
    }
    return view;
}

DatabaseView::~DatabaseView() {
    if (m_folder >= 0) m_files.close(m_folder);
}

bool DatabaseView::find(const std::string& path, std::string& why) {
    m_folder = path.empty() ? -ENOENT : m_files.open_folder(path, false);
    if (m_folder >= 0) return find_in_folder(path, why);
    split_path(path, m_folder_path, m_name);
    if (m_name.empty() || m_name == "." || m_name == "..") {
        why = path.empty() ? "the path is empty" : std::string(strerror(-m_folder));
        return false;
    }
    m_folder = m_files.open_folder(m_folder_path, false);
    if (m_folder >= 0) return true;
    why = m_folder == -ENOENT ? "there is no such database"
                              : std::string("cannot open the folder: ") + strerror(-m_folder);
    return false;
}

// The one database of a folder: what segments are named after, else an .ini file that is one.
bool DatabaseView::find_in_folder(const std::string& path, std::string& why) {
    m_folder_path = path;
    std::vector<std::string> names;
    const int error = m_files.list(m_folder, "", names);
    if (error < 0) {
        why = std::string("cannot read the folder: ") + strerror(-error);
        return false;
    }
    std::vector<std::string> found;
    for (const std::string& name : names) {
        std::string ini = ini_of_segment(name);
        if (ini.empty() && ends_with(name, INI_ENDING)) {
            char text[MAX_INI_BYTES];
            DatabaseIni parsed;
            const int64_t size = read_start(m_files, m_folder, name, text, sizeof text);
            if (size > 0 && parse_ini({text, static_cast<size_t>(size)}, parsed)) ini = name;
        }
        if (!ini.empty() && std::find(found.begin(), found.end(), ini) == found.end())
            found.push_back(ini);
        if (found.size() > 1) break;
    }
    if (found.size() == 1) {
        m_name = found[0];
        return true;
    }
    why = found.empty() ? "there is no database in this folder"
                        : "there are several databases in this folder: name the .ini file of one";
    return false;
}

int DatabaseView::load() {
    std::vector<std::string> names;
    const int error = m_files.list(m_folder, m_name + ".", names);
    if (error < 0) return error;
    for (const std::string& name : names) {
        if (const uint64_t number = segment_number(m_name, name)) {
            m_numbers.push_back(number);
            continue;
        }
        const char after = name.size() > m_name.size() + 1 ? name[m_name.size() + 1] : '\0';
        if (name.find(SEGMENT_ENDING, m_name.size()) == std::string::npos &&
            (after < '0' || after > '9'))
            continue;
        ++m_stranger_count;
        if (m_strangers.size() < MOST_STRANGERS) m_strangers.push_back(name);
    }
    std::sort(m_numbers.begin(), m_numbers.end());
    std::sort(m_strangers.begin(), m_strangers.end());
    load_ini();
    find_identity();
    return 0;
}

void DatabaseView::load_ini() {
    char text[MAX_INI_BYTES + 1];
    const int64_t size = read_start(m_files, m_folder, m_name, text, sizeof text);
    if (size == -ENOENT) return;
    m_ini_error = size < 0 ? static_cast<int>(size) : 0;
    m_ini_state = IniState::unreadable;
    if (size < 0) return;
    m_ini_state = size <= static_cast<int64_t>(MAX_INI_BYTES) &&
                          parse_ini({text, static_cast<size_t>(size)}, m_ini)
                      ? IniState::whole
                      : IniState::damaged;
}

// That of the .ini when any segment has it, else that of the newest.
void DatabaseView::find_identity() {
    const bool named = m_ini_state == IniState::whole;
    if (named) m_identity = m_ini.identity;
    const auto database_of = [this](uint64_t number, Identity& database) {
        SegmentHeader header;
        const int file =
            m_files.open(m_folder, segment_name(m_name, number), FileSystem::Access::read);
        if (file < 0) return false;
        const bool loaded = load_segment_header(m_files, file, number, header);
        m_files.close(file);
        database = header.database;
        return loaded;
    };
    Identity newest, other;
    size_t last = m_numbers.size();
    while (last > 0 && !database_of(m_numbers[last - 1], newest)) --last;
    if (last == 0 || newest == m_identity) return;
    if (named)
        for (const size_t place : places_to_ask(last))
            if (database_of(m_numbers[place], other) && other == m_identity) return;
    m_identity = newest;
}

std::unique_ptr<OpenSegment> DatabaseView::segment(uint64_t number) const {
    auto segment = std::make_unique<OpenSegment>(m_files, number);
    segment->file = m_files.open(m_folder, segment_name(m_name, number), FileSystem::Access::read);
    const int64_t size = segment->file < 0 ? segment->file : m_files.size(segment->file);
    if (size < 0) {
        segment->error = static_cast<int>(size);
        if (size == -ENOENT) segment->state = SegmentState::gone;
        return segment;
    }
    segment->bytes = static_cast<uint64_t>(size);
    look_at_start(*segment);
    return segment;
}

HeaderBlocks look_at_headers(const uint8_t* blocks, uint64_t number) {
    HeaderBlocks found;
    for (const size_t i : {size_t{0}, size_t{1}}) {
        const uint8_t* block = blocks + i * BLOCK_BYTES;
        SegmentHeader header;
        found.copy[i] = read_segment_header(block, header) && header.number == number;
        found.rest_is_zero[i] = all_zero(block + HEADER_BYTES, BLOCK_BYTES - HEADER_BYTES);
        if (found.copy[i] && !(i == 1 && found.copy[0])) found.header = header;
    }
    found.copies_agree =
        !found.copy[0] || !found.copy[1] || memcmp(blocks, blocks + BLOCK_BYTES, HEADER_BYTES) == 0;
    found.blank = found.rest_is_zero[0] && found.rest_is_zero[1] &&
                  all_zero(blocks, HEADER_BYTES) && all_zero(blocks + BLOCK_BYTES, HEADER_BYTES);
    return found;
}

void DatabaseView::look_at_start(OpenSegment& segment) const {
    alignas(BLOCK_BYTES) uint8_t bytes[SEGMENT_START] = {};
    const int64_t got = m_files.read(segment.file, bytes, sizeof bytes, 0);
    if (got < 0) {
        segment.error = static_cast<int>(got);
        return;
    }
    segment.blocks = look_at_headers(bytes, segment.number);
    if (segment.blocks.copy[0] || segment.blocks.copy[1]) {
        segment.header = segment.blocks.header;
        segment.state =
            segment.header.database == m_identity ? SegmentState::whole : SegmentState::foreign;
        return;
    }
    const bool unbegun = segment.blocks.blank || was_renamed(bytes, segment.number);
    segment.state = unbegun ? SegmentState::unbegun : SegmentState::headless;
}

// The ring gave the file this number and then nothing was written: its headers are those of its
// former number, which no file has any more.
bool DatabaseView::was_renamed(const uint8_t* blocks, uint64_t number) const {
    SegmentHeader header;
    if (memcmp(blocks, blocks + BLOCK_BYTES, BLOCK_BYTES) != 0 ||
        !read_segment_header(blocks, header) || !(header.database == m_identity) ||
        header.number >= number)
        return false;
    const int file =
        m_files.open(m_folder, segment_name(m_name, header.number), FileSystem::Access::read);
    if (file >= 0) m_files.close(file);
    return file == -ENOENT;
}

bool DatabaseView::still_there(const OpenSegment& segment) const {
    const std::unique_ptr<OpenSegment> again = this->segment(segment.number);
    if (again->state == SegmentState::gone) return false;
    return segment.state != SegmentState::whole || again->state != SegmentState::whole ||
           again->header.identity == segment.header.identity;
}

std::string DatabaseView::path() const {
    const bool needs_slash = !m_folder_path.empty() && m_folder_path.back() != '/';
    return m_folder_path + (needs_slash ? "/" : "") + m_name;
}

bool DatabaseView::recorded() const {
    return is_locked(lock_name(m_name)) || recorded_without_lock_file();
}

bool DatabaseView::recorded_without_lock_file() const {
    return is_locked(m_name) ||
           (!m_numbers.empty() && is_locked(segment_name(m_name, m_numbers.back())));
}

bool DatabaseView::is_locked(const std::string& name) const {
    const int file = m_files.open(m_folder, name, FileSystem::Access::read);
    if (file < 0) return false;
    const bool locked = m_files.locked(file) == 1;
    m_files.close(file);
    return locked;
}

DirectoryView look_for_directory(FileSystem& files, const OpenSegment& segment) {
    DirectoryView view;
    uint8_t tail[TAIL_BYTES];
    if (segment.bytes < SEGMENT_START + RECORD_BYTES + TAIL_BYTES ||
        files.read(segment.file, tail, sizeof tail, segment.bytes - TAIL_BYTES) != TAIL_BYTES)
        return view;
    view.tail = read_tail(tail, view.entries, view.offset);
    if (!view.tail || view.offset < SEGMENT_START || segment.bytes > segment.header.bytes ||
        view.offset + RECORD_BYTES + directory_bytes(view.entries) != segment.bytes)
        return view;
    FileWindow window(files, segment.file);
    const uint32_t seed = segment.header.seed();
    RecordHeader record;
    const uint8_t* bytes = window.at(view.offset, RECORD_BYTES);
    view.ours = bytes && read_record_header(bytes, seed, record) && record.kind == RECORD_DIRECTORY;
    if (!view.ours || record.bytes != directory_bytes(view.entries) ||
        record.sequence != segment.header.first_sequence + view.entries)
        return view;
    uint32_t crc = record_crc_start(bytes, seed);
    view.whole = window.crc(view.offset + RECORD_BYTES, record.bytes, crc) && crc == record.crc;
    return view;
}

}  // namespace sim
