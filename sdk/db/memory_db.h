// The in-memory database (type 2): a ring of records that recorder and playback share.
#ifndef SDK_DB_MEMORY_DB_H
#define SDK_DB_MEMORY_DB_H

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

#include "sdk/db/stream_db.h"

namespace sim {

// The ring itself. Outlives the database object that made it when another takes it over.
class MemoryStore {
  public:
    // A ring of `bytes` payload bytes and at most `video_frames` video frames.
    MemoryStore(size_t bytes, size_t video_frames);

    // The recorder's place: at most one database holds it. False when it is taken.
    bool claim();
    void release();
    bool writing();  // it is taken

    bool append(const qm_dbframe& frame);
    uint64_t first();
    uint64_t end();
    bool info(uint64_t number, FrameInfo& out);
    bool read(uint64_t number, qm_dbframe& out);
    uint64_t at_time(int64_t time_us);
    bool key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key);
    bool key_after(uint64_t n, int stream, int channel, uint64_t& key);
    void watch(Alarm* alarm);
    DatabaseReport report();

  private:
    struct Record {
        FrameInfo info;
        size_t offset;  // of the payload in m_ring
    };

    const Record* find(uint64_t number) const;
    void drop_oldest();
    // A place for `bytes` contiguous bytes, after dropping what stands there.
    size_t make_room(size_t bytes);
    void ring_watcher();

    std::mutex m_mutex;  // guards all below
    const size_t m_capacity;
    const size_t m_max_video;
    std::unique_ptr<uint8_t[]> m_ring;  // one allocation; its pages are used as it fills
    std::deque<Record> m_records;       // oldest first, offsets in ring order
    uint64_t m_first = 0;               // number of m_records.front()
    size_t m_write = 0;                 // where the next payload goes
    size_t m_video = 0;                 // video frames among the records
    uint64_t m_refused = 0;
    bool m_claimed = false;
    uint32_t m_run = 0;  // recorders so far
    Alarm* m_watcher = nullptr;
};

// Gives up the recordings that were kept of databases left open.
void forget_kept_stores();

class MemoryDb final : public StreamDb {
  public:
    ~MemoryDb() override;

    int Open(QMDBOpenParam* param) override;
    int Close() override;
    int PostOpen(int) override { return 0; }

    void begin_writing() override;
    void end_writing() override;
    Appended append(const qm_dbframe& frame) override;
    int64_t due_us() override { return NEVER; }
    void tend() override {}
    void commit() override {}
    uint64_t first() override;
    uint64_t end() override;
    uint64_t next(uint64_t n) override;
    bool writing() override;
    bool info(uint64_t number, FrameInfo& out) override;
    bool read(uint64_t number, qm_dbframe& out) override;
    uint64_t at_time(int64_t time_us) override;
    bool key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key) override;
    bool key_after(uint64_t n, int stream, int channel, uint64_t& key) override;
    void watch(Alarm* alarm) override;
    int64_t poll_us() const override { return NEVER; }
    DatabaseReport report() override;
    bool left_open() override;
    void keep() override;

  private:
    std::string m_path;
    std::shared_ptr<MemoryStore> m_store;  // null when not open
    bool m_recorder = false;               // opened for recording
    std::atomic<bool> m_claimed{false};    // holds the store's recorder's place
    std::atomic<bool> m_at_work{false};    // a recording thread is at work
};

}  // namespace sim

#endif  // SDK_DB_MEMORY_DB_H
