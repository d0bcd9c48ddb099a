// The search record, and the choice and opening of the database to play back.
#ifndef SEARCHWORK_SEARCH_DB_H
#define SEARCHWORK_SEARCH_DB_H

#include <atomic>
#include <cstdint>
#include <string>

#include "mainwork/qm_db.h"
#include "mainwork/qm_workers.h"

// What SEARCH plays back. The console thread writes it; the status thread reads the playback thread
// through PlaybackReader and nothing else.
struct tagSearchRecord {
    std::string path;
    std::atomic<qm_thread_decode*> thread;  // owned; null outside the SEARCH menu
    iqm_db* db;      // owned unless the type is 2, then the encoder's; may be stale outside SEARCH
    int32_t stream;  // DEC_STREAM_TYPE
    int32_t type;    // DB_TYPE of the stream
    std::atomic<int32_t> readers;  // reports that hold the playback thread

    // Returns when no report holds a playback thread that was taken out of the record before.
    void wait_for_readers();
};

extern tagSearchRecord _l_stDec;

// Holds the playback thread of the record from construction to destruction: it is not deleted
// before. Any thread.
class PlaybackReader {
  public:
    PlaybackReader();
    ~PlaybackReader();
    PlaybackReader(const PlaybackReader&) = delete;
    PlaybackReader& operator=(const PlaybackReader&) = delete;

    qm_thread_decode* thread() const { return m_thread; }  // null outside SEARCH

  private:
    qm_thread_decode* m_thread;
};

// Fills the record for a stream and opens its database. Returns non-zero on success; a stream that
// is neither main nor dual prints an error and leaves the record alone.
int app_searchwork_open_search_db(DEC_STREAM_TYPE stream);

// Closes and destroys the record's database when the record owns one.
void close_search_db();

// Starts the playback thread on the record's database, all channels on.
void start_playback(qm_thread_decode& thread);

// SETDB [stream]: switches playback to another stream's database. Returns 0.
int searchwork_set_db(int argc, char** argv);

// Dialogues that no command uses. The first returns 1 for one file, 2 for memory, 0 for neither;
// the second copies the path into `path` (ANSWER_SIZE bytes) and returns 1 if one was typed.
int searchwork_get_db_stream_type();
int searchwork_get_user_stream(char* path);

#endif  // SEARCHWORK_SEARCH_DB_H
