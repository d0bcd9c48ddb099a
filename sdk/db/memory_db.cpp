// The ring of the in-memory database, and the database object over it.
#include "sdk/db/memory_db.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <vector>

#include "sdk/runtime/settings.h"

namespace sim {

namespace {

constexpr uint64_t CAPACITY_UNIT = 64 * 1024;
constexpr uint64_t MAX_CAPACITY = uint64_t{1} << 30;
constexpr uint32_t MODE_RECORD = 1;

// Stores by path, as long as one has them open. An empty path names nothing and is not listed.
// Never destroyed, as the list of kept ones: databases may be closed while the program ends.
std::map<std::string, std::weak_ptr<MemoryStore>>& stores() {
    static auto* stores = new std::map<std::string, std::weak_ptr<MemoryStore>>;
    return *stores;
}

// Stores that were left open, oldest first, until a recorder of their path takes them over.
struct Kept {
    std::string path;
    std::shared_ptr<MemoryStore> store;
};
constexpr size_t MAX_KEPT = 4;

std::vector<Kept>& kept() {
    static auto* kept = new std::vector<Kept>;
    return *kept;
}

void give_up_oldest_kept() {
    const Kept& oldest = kept().front();
    complain("database '%s': %llu records in memory are given up, nobody asked for them again",
             oldest.path.c_str(),
             static_cast<unsigned long long>(oldest.store->end() - oldest.store->first()));
    kept().erase(kept().begin());
}

bool is_key_of(const FrameInfo& info, int stream, int channel) {
    return is_key(info.kind) && info.stream == stream && info.channel == channel;
}

std::shared_ptr<MemoryStore> store_of(const std::string& path) {
    const auto found = stores().find(path);
    return found == stores().end() ? nullptr : found->second.lock();
}

}  // namespace

MemoryStore::MemoryStore(size_t bytes, size_t video_frames)
    : m_capacity(bytes), m_max_video(video_frames), m_ring(new uint8_t[bytes]) {}

bool MemoryStore::claim() {
    std::lock_guard lock(m_mutex);
    if (m_claimed) return false;
    m_claimed = true;
    ++m_run;
    return true;
}

void MemoryStore::release() {
    std::lock_guard lock(m_mutex);
    m_claimed = false;
    ring_watcher();
}

bool MemoryStore::writing() {
    std::lock_guard lock(m_mutex);
    return m_claimed;
}

const MemoryStore::Record* MemoryStore::find(uint64_t number) const {
    if (number < m_first || number - m_first >= m_records.size()) return nullptr;
    return &m_records[static_cast<size_t>(number - m_first)];
}

void MemoryStore::drop_oldest() {
    if (m_records.front().info.kind != FrameKind::audio) --m_video;
    m_records.pop_front();
    ++m_first;
}

// The payloads of the records lie in ring order from the oldest to m_write. A payload that does not
// fit before the ring's end goes to its start, and what stood behind m_write is dropped first.
size_t MemoryStore::make_room(size_t bytes) {
    if (m_write + bytes > m_capacity) {
        while (!m_records.empty() && m_records.front().offset >= m_write) drop_oldest();
        m_write = 0;
    }
    while (!m_records.empty() && m_records.front().offset >= m_write &&
           m_records.front().offset < m_write + bytes)
        drop_oldest();
    return m_write;
}

bool MemoryStore::append(const qm_dbframe& frame) {
    std::lock_guard lock(m_mutex);
    const bool video = frame.info.kind != FrameKind::audio;
    if (frame.info.bytes > m_capacity || (video && m_max_video == 0)) {
        ++m_refused;
        return false;
    }
    while (video && m_video >= m_max_video) drop_oldest();
    if (m_records.empty()) m_write = 0;
    const size_t room = std::max<size_t>(frame.info.bytes, 1);  // so that no two share a place
    const size_t offset = make_room(room);
    if (frame.info.bytes > 0) memcpy(m_ring.get() + offset, frame.payload.get(), frame.info.bytes);
    m_records.push_back({frame.info, offset});
    m_records.back().info.run = m_run;
    m_write = offset + room;
    if (video) ++m_video;
    ring_watcher();
    return true;
}

uint64_t MemoryStore::first() {
    std::lock_guard lock(m_mutex);
    return m_first;
}

uint64_t MemoryStore::end() {
    std::lock_guard lock(m_mutex);
    return m_first + m_records.size();
}

bool MemoryStore::info(uint64_t number, FrameInfo& out) {
    std::lock_guard lock(m_mutex);
    const Record* record = find(number);
    if (record) out = record->info;
    return record;
}

bool MemoryStore::read(uint64_t number, qm_dbframe& out) {
    std::lock_guard lock(m_mutex);
    const Record* record = find(number);
    if (!record) return false;
    out.info = record->info;
    out.reserve(record->info.bytes);
    if (record->info.bytes > 0)
        memcpy(out.payload.get(), m_ring.get() + record->offset, record->info.bytes);
    return true;
}

uint64_t MemoryStore::at_time(int64_t time_us) {
    std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_records.begin(), m_records.end(), [&](const Record& record) {
        return record.info.time_us >= time_us;
    });
    return m_first + static_cast<uint64_t>(found - m_records.begin());
}

bool MemoryStore::key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key) {
    std::lock_guard lock(m_mutex);
    const uint64_t end = m_first + m_records.size();
    for (uint64_t i = n < end ? n + 1 : end; i > m_first; --i) {
        if (!is_key_of(find(i - 1)->info, stream, channel)) continue;
        key = i - 1;
        return true;
    }
    return false;
}

bool MemoryStore::key_after(uint64_t n, int stream, int channel, uint64_t& key) {
    std::lock_guard lock(m_mutex);
    const uint64_t end = m_first + m_records.size();
    for (uint64_t i = n < m_first ? m_first : n + 1; n < end && i < end; ++i) {
        if (!is_key_of(find(i)->info, stream, channel)) continue;
        key = i;
        return true;
    }
    return false;
}

void MemoryStore::watch(Alarm* alarm) {
    std::lock_guard lock(m_mutex);
    m_watcher = alarm;
}

void MemoryStore::ring_watcher() {
    if (m_watcher) m_watcher->ring();
}

DatabaseReport MemoryStore::report() {
    std::lock_guard lock(m_mutex);
    DatabaseReport report;
    report.first = m_first;
    report.end = m_first + m_records.size();
    report.refused = m_refused;
    report.video = m_video;
    for (const Record& record : m_records) report.bytes += record.info.bytes;
    report.writing = m_claimed;
    return report;
}

MemoryDb::~MemoryDb() { Close(); }

void forget_kept_stores() { kept().clear(); }

// A store that another database left open is taken over with all it holds: the recording goes on
// in it.
int MemoryDb::Open(QMDBOpenParam* param) {
    const char* path = param->path.c_str();
    const bool records = param->mode == MODE_RECORD;
    if (m_store) {
        complain("database '%s' is not opened: this database is open already", path);
        return 0;
    }
    if (settings().fail_open.strikes()) {
        complain("database '%s' is not opened: it was told to fail", path);
        return 0;
    }
    std::shared_ptr<MemoryStore> store = param->path.empty() ? nullptr : store_of(param->path);
    if (!records && !store) {
        complain("database '%s' is not opened: nothing is recorded in memory under that name",
                 path);
        return 0;
    }
    if (!store) {
        const uint64_t bytes = uint64_t{param->capacity_a} * CAPACITY_UNIT;
        if (bytes == 0 || bytes > MAX_CAPACITY) {
            complain("database '%s' is not opened: a ring of %u x 64 KiB cannot be made", path,
                     param->capacity_a);
            return 0;
        }
        store = std::make_shared<MemoryStore>(static_cast<size_t>(bytes), param->capacity_b);
    }
    if (records && !store->claim()) {
        complain("database '%s' is not opened: it is being recorded already", path);
        return 0;
    }
    m_store = store;
    m_recorder = m_claimed = records;
    m_path = param->path;
    if (m_path.empty()) return 1;
    stores()[m_path] = m_store;
    if (records) std::erase_if(kept(), [&](const Kept& entry) { return entry.path == m_path; });
    return 1;
}

int MemoryDb::Close() {
    end_writing();
    m_recorder = false;
    m_store.reset();
    if (!m_path.empty() && !store_of(m_path)) stores().erase(m_path);
    return 0;
}

bool MemoryDb::left_open() { return m_store && m_recorder && !m_at_work; }

void MemoryDb::keep() {
    end_writing();
    if (m_path.empty() || m_store->writing()) return;  // unnamed, or taken over already
    kept().push_back({m_path, m_store});
    if (kept().size() > MAX_KEPT) give_up_oldest_kept();
}

void MemoryDb::begin_writing() {
    if (m_recorder && !m_claimed) m_claimed = m_store->claim();  // not the first thread
    m_at_work = m_claimed.load();
}

// The recorder's place is free for another: who takes it takes over what was recorded.
void MemoryDb::end_writing() {
    if (m_claimed) m_store->release();
    m_claimed = false;
    m_at_work = false;
}

StreamDb::Appended MemoryDb::append(const qm_dbframe& frame) try {
    return m_claimed && m_store->append(frame) ? Appended::stored : Appended::refused;
} catch (const std::bad_alloc&) {
    return Appended::busy;  // kept by the caller, for another time
}

uint64_t MemoryDb::first() { return m_store ? m_store->first() : 0; }

uint64_t MemoryDb::end() { return m_store ? m_store->end() : 0; }

uint64_t MemoryDb::next(uint64_t n) { return std::clamp(n, first(), end()); }

bool MemoryDb::writing() { return m_store && m_store->writing(); }

bool MemoryDb::info(uint64_t number, FrameInfo& out) {
    return m_store && m_store->info(number, out);
}

bool MemoryDb::read(uint64_t number, qm_dbframe& out) try {
    return m_store && m_store->read(number, out);
} catch (const std::bad_alloc&) {
    return false;
}

uint64_t MemoryDb::at_time(int64_t time_us) { return m_store ? m_store->at_time(time_us) : 0; }

bool MemoryDb::key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key) {
    return m_store && m_store->key_at_or_before(n, stream, channel, key);
}

bool MemoryDb::key_after(uint64_t n, int stream, int channel, uint64_t& key) {
    return m_store && m_store->key_after(n, stream, channel, key);
}

void MemoryDb::watch(Alarm* alarm) {
    if (m_store) m_store->watch(alarm);
}

DatabaseReport MemoryDb::report() { return m_store ? m_store->report() : DatabaseReport{}; }

}  // namespace sim
