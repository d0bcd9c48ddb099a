// Storing frames in SQLite: one table, the payload in the row, one transaction a second. Once with
// a write-ahead log that is copied into the database every second, once with a rollback journal.
#include <sqlite3.h>

#include "bench/db_store.h"
#include "bench/measure.h"

namespace {

class Sqlite : public Store {
  public:
    Sqlite(const std::string& folder, bool wal) : m_wal(wal) {
        if (sqlite3_open((folder + "/frames.sqlite").c_str(), &m_db) != SQLITE_OK) fail();
        run("PRAGMA page_size=65536");
        run("PRAGMA locking_mode=EXCLUSIVE");
        run(wal ? "PRAGMA journal_mode=WAL" : "PRAGMA journal_mode=TRUNCATE");
        // NORMAL makes a write-ahead log durable when it is copied into the database, and that is
        // done every second. A rollback journal needs FULL to be as safe.
        run(wal ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=FULL");
        run("PRAGMA wal_autocheckpoint=0");
        // Pages that wait for the end of the transaction in a larger one cost more than they save.
        run("PRAGMA cache_size=-8192");
        run("PRAGMA temp_store=MEMORY");
        run("CREATE TABLE frames(sequence INTEGER PRIMARY KEY, utc INTEGER, stream INTEGER,"
            " channel INTEGER, kind INTEGER, number INTEGER, payload BLOB)");
        const char insert[] = "INSERT INTO frames VALUES(?,?,?,?,?,?,?)";
        if (sqlite3_prepare_v2(m_db, insert, -1, &m_insert, nullptr) != SQLITE_OK) fail();
        run("BEGIN");
    }
    ~Sqlite() override {
        sqlite3_finalize(m_insert);
        sqlite3_close(m_db);
    }

    void append(const qm_dbframe& frame, int64_t) override {
        const sim::FrameInfo& info = frame.info;
        sqlite3_bind_int64(m_insert, 1, m_sequence++);
        sqlite3_bind_int64(m_insert, 2, info.time_us);
        sqlite3_bind_int(m_insert, 3, info.stream);
        sqlite3_bind_int(m_insert, 4, info.channel);
        sqlite3_bind_int(m_insert, 5, static_cast<int>(info.kind));
        sqlite3_bind_int64(m_insert, 6, info.number);
        sqlite3_bind_blob(m_insert, 7, frame.payload.get(), static_cast<int>(info.bytes),
                          SQLITE_STATIC);
        if (sqlite3_step(m_insert) != SQLITE_DONE) fail();
        sqlite3_reset(m_insert);
    }
    void make_durable(int64_t) override {
        run("COMMIT");
        if (m_wal && sqlite3_wal_checkpoint_v2(m_db, nullptr, SQLITE_CHECKPOINT_RESTART, nullptr,
                                               nullptr) != SQLITE_OK)
            fail();
        run("BEGIN");
    }

  private:
    void run(const char* statement) {
        if (sqlite3_exec(m_db, statement, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
    }
    [[noreturn]] void fail() { give_up(std::string("SQLite: ") + sqlite3_errmsg(m_db)); }

    const bool m_wal;
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    int64_t m_sequence = 1;
};

}  // namespace

std::unique_ptr<Store> make_sqlite_wal(const std::string& folder, const Workload&, uint64_t) {
    return std::make_unique<Sqlite>(folder, true);
}

std::unique_ptr<Store> make_sqlite_journal(const std::string& folder, const Workload&, uint64_t) {
    return std::make_unique<Sqlite>(folder, false);
}
