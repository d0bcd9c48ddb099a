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
// so the numbers kept are first() <= n < end(). All operations but Open and Close may be called
// from any thread while the database is open.
class StreamDb : public iqm_db {
  public:
    virtual ~StreamDb() = default;

    // A recording thread begins and ends its work. What was recorded stays for the readers; after
    // the end nothing can be appended.
    virtual void begin_writing() = 0;
    virtual void end_writing() = 0;
    // False when the record can never fit; it is counted.
    virtual bool append(const qm_dbframe& frame) = 0;

    virtual uint64_t first() = 0;
    virtual uint64_t end() = 0;
    virtual bool writing() = 0;
    // What record `number` is, without its payload. False when it is not there (any more).
    virtual bool info(uint64_t number, FrameInfo& out) = 0;
    // Copies record `number` with its payload. False when it is not there (any more).
    virtual bool read(uint64_t number, qm_dbframe& out) = 0;

    // `alarm` is rung when a record arrives or the recorder ends; null ends that. One reader.
    virtual void watch(Alarm* alarm) = 0;

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
