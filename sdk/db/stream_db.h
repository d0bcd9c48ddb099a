// What a database is to the stand-in's own threads: one recorder appends, any number of readers
// follow.
#ifndef SDK_DB_STREAM_DB_H
#define SDK_DB_STREAM_DB_H

#include <cstdint>
#include <string>

#include "mainwork/qm_db.h"
#include "sdk/runtime/clock.h"
#include "sdk/sim_control.h"
#include "sdk/video/frame.h"

namespace sim {

// Records are numbered from 0 in the order they were appended. The oldest make room for the newest,
// so the numbers kept are first() <= n < end(); on disk some in between may be missing. All
// operations but Open and Close may be called from any thread while the database is open.
class StreamDb : public iqm_db {
  public:
    enum class Appended {
        stored,
        refused,  // it can never fit; it is counted
        busy,     // not now: to be offered again at due_us()
    };

    virtual ~StreamDb() = default;

    // A recording thread begins and ends its work. What was recorded stays for the readers; after
    // the end nothing can be appended.
    virtual void begin_writing() = 0;
    virtual void end_writing() = 0;
    virtual Appended append(const qm_dbframe& frame) = 0;
    // When the recording thread has to call tend(), board time; NEVER when nothing waits for it.
    virtual int64_t due_us() = 0;
    virtual void tend() = 0;
    // Makes everything appended so far durable, and seen by readers, if that is possible now.
    virtual void commit() = 0;

    virtual uint64_t first() = 0;
    virtual uint64_t end() = 0;
    // The least number >= n that is there; end() when none is.
    virtual uint64_t next(uint64_t n) = 0;
    virtual bool writing() = 0;
    // What record `number` is, without its payload. False when it is not there (any more).
    virtual bool info(uint64_t number, FrameInfo& out) = 0;
    // Copies record `number` with its payload. False when it is not there (any more).
    virtual bool read(uint64_t number, qm_dbframe& out) = 0;

    // The first record at which the recording had reached that recorded time; end() when it never
    // did.
    virtual uint64_t at_time(int64_t time_us) = 0;
    // The last key frame of a channel at or before record n; the next one behind it. False when
    // there is none.
    virtual bool key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key) = 0;
    virtual bool key_after(uint64_t n, int stream, int channel, uint64_t& key) = 0;

    // `alarm` is rung when a record arrives or the recorder ends; null ends that. One reader. On
    // disk nothing rings: a reader at the end looks again after poll_us().
    virtual void watch(Alarm* alarm) = 0;
    virtual int64_t poll_us() const = 0;

    virtual DatabaseReport report() = 0;

    // Open, and no recording thread is at work on it (any more).
    virtual bool left_open() = 0;
    // Called on one that was left open before it is destroyed: what it recorded is kept for the
    // next recorder of its path.
    virtual void keep() = 0;

    static StreamDb* of(iqm_db* db) { return static_cast<StreamDb*>(db); }
};

}  // namespace sim

#endif  // SDK_DB_STREAM_DB_H
