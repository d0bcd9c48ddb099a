// A database on disk (types 0 and 1) as the stand-in's threads use it: a recorder or a reader, and
// its voice on standard error.
#ifndef SDK_DB_DISK_DB_H
#define SDK_DB_DISK_DB_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "sdk/db/disk_reader.h"
#include "sdk/db/disk_writer.h"
#include "sdk/db/stream_db.h"

namespace sim {

class DiskDb final : public StreamDb {
  public:
    ~DiskDb() override;

    int Open(QMDBOpenParam* param) override;
    int Close() override;
    int PostOpen(int) override { return 0; }

    void begin_writing() override;
    void end_writing() override;
    Appended append(const qm_dbframe& frame) override;
    int64_t due_us() override;
    void tend() override;
    void commit() override;
    uint64_t first() override;
    uint64_t end() override;
    uint64_t next(uint64_t n) override;
    bool writing() override;
    bool info(uint64_t number, FrameInfo& out) override;
    bool read(uint64_t number, qm_dbframe& out) override;
    uint64_t at_time(int64_t time_us) override;
    bool key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key) override;
    bool key_after(uint64_t n, int stream, int channel, uint64_t& key) override;
    void watch(Alarm*) override {}
    int64_t poll_us() const override { return US_PER_S / 4; }
    DatabaseReport report() override;
    bool left_open() override;
    void keep() override { Close(); }

  private:
    bool open_writer();
    bool open_reader();
    void note_trouble();
    void finish();
    // Calls `ask` with the reader, or gives `otherwise` when there is none.
    template <class Result, class Ask>
    Result with_reader(Result otherwise, Ask ask);

    std::string m_path;  // empty when not open
    bool m_recorder = false;
    WriterOptions m_options;

    std::mutex m_writer_mutex;             // guards those below
    std::unique_ptr<DiskWriter> m_writer;  // while it records
    bool m_troubled = false;               // said so
    int64_t m_busy_until_us = 0;
    uint64_t m_refused = 0;
    uint64_t m_lost = 0;

    std::atomic<bool> m_at_work{false};  // a recording thread is at work

    std::mutex m_reader_mutex;             // guards the one below; taken alone
    std::unique_ptr<DiskReader> m_reader;  // of a recorder: made when first asked
};

}  // namespace sim

#endif  // SDK_DB_DISK_DB_H
