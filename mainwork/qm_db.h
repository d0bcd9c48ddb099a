// The SDK's stream databases: encoded frames, named by the path of their ini file.
#ifndef MAINWORK_QM_DB_H
#define MAINWORK_QM_DB_H

#include <cstdint>
#include <string>

// The environment's database types, passed on as numbers.
enum DB_TYPE : uint32_t {
    DB_TYPE_DISK = 0,         // on disk
    DB_TYPE_DISK_SHARED = 1,  // on disk, the same format
    DB_TYPE_MEMORY = 2,       // in memory, shared by recorder and playback
};

struct QMDBOpenParam {
    std::string path;     // the database's ini file
    uint32_t mode;        // 1 records, 0 plays back
    uint32_t capacity_a;  // size of the store, in units of 64 KiB
    uint32_t capacity_b;  // disk: number of such segments; memory: number of video frames
};

class iqm_db {
  public:
    // Returns NON-ZERO on success and 0 on failure, unlike every other call of the SDK.
    virtual int Open(QMDBOpenParam* param) = 0;
    // Ends what Open began; called before qm_db_destroy on a database that was opened.
    virtual int Close() = 0;
    // Called by the playback side after Open, with 0. No result is used.
    virtual int PostOpen(int) = 0;

  protected:
    ~iqm_db() = default;
};

// Creates an unopened database object in *out, which must hold null or a database made here: one
// that was left open (its thread has ended, or none was started) is finished, and its recording is
// taken over by the next recorder of its path. Console thread.
void qm_db_create(DB_TYPE type, iqm_db** out);
// Destroys *db and sets it to null. Console thread.
void qm_db_destroy(iqm_db** db);

#endif  // MAINWORK_QM_DB_H
