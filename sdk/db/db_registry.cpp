// Creating and destroying databases, and cleaning up after the ones that were left open.
#include "sdk/db/db_registry.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "sdk/db/disk_db.h"
#include "sdk/db/memory_db.h"
#include "sdk/runtime/settings.h"

namespace sim {

namespace {

// A type that cannot be opened.
class UnsupportedDb final : public StreamDb {
  public:
    explicit UnsupportedDb(uint32_t type) : m_type(type) {}
    int Open(QMDBOpenParam* param) override {
        settings().fail_open.strikes();  // it fails anyway, and is counted
        complain(
            "database '%s' is not opened: type %u is not supported, only 0 and 1 (on disk) and 2 (in memory) are",
            param->path.c_str(), m_type);
        return 0;
    }
    int Close() override { return 0; }
    int PostOpen(int) override { return 0; }
    void begin_writing() override {}
    void end_writing() override {}
    Appended append(const qm_dbframe&) override { return Appended::refused; }
    int64_t due_us() override { return NEVER; }
    void tend() override {}
    void commit() override {}
    uint64_t first() override { return 0; }
    uint64_t end() override { return 0; }
    uint64_t next(uint64_t) override { return 0; }
    bool writing() override { return false; }
    bool info(uint64_t, FrameInfo&) override { return false; }
    bool read(uint64_t, qm_dbframe&) override { return false; }
    uint64_t at_time(int64_t) override { return 0; }
    bool key_at_or_before(uint64_t, int, int, uint64_t&) override { return false; }
    bool key_after(uint64_t, int, int, uint64_t&) override { return false; }
    void watch(Alarm*) override {}
    int64_t poll_us() const override { return NEVER; }
    DatabaseReport report() override { return {}; }
    bool left_open() override { return false; }
    void keep() override {}

  private:
    uint32_t m_type;
};

// Every database that was created and not destroyed. Its end finishes what the program left open.
// Console thread only.
using Databases = std::vector<std::unique_ptr<StreamDb>>;

Databases& databases() {
    static Databases databases;
    return databases;
}

Databases::iterator find(const iqm_db* db) {
    return std::find_if(databases().begin(), databases().end(),
                        [db](const auto& entry) { return entry.get() == db; });
}

}  // namespace

void finish_open_databases() {
    databases().clear();
    forget_kept_stores();
}

int open_databases() { return static_cast<int>(databases().size()); }

DatabaseReport database_report(iqm_db* db) { return StreamDb::of(db)->report(); }

}  // namespace sim

// *out may still name a database that was left open, since the program starts a group again over
// it. After this call nobody can reach that one any more: it goes, and what it recorded is kept.
void qm_db_create(DB_TYPE type, iqm_db** out) {
    const auto old = sim::find(*out);
    if (old != sim::databases().end() && (*old)->left_open()) {
        (*old)->keep();
        sim::databases().erase(old);
    }
    std::unique_ptr<sim::StreamDb> db;
    if (type == DB_TYPE_MEMORY)
        db = std::make_unique<sim::MemoryDb>();
    else if (type == DB_TYPE_DISK || type == DB_TYPE_DISK_SHARED)
        db = std::make_unique<sim::DiskDb>();
    else
        db = std::make_unique<sim::UnsupportedDb>(type);
    *out = db.get();
    sim::databases().push_back(std::move(db));
}

void qm_db_destroy(iqm_db** db) {
    const auto found = sim::find(*db);
    if (found != sim::databases().end()) sim::databases().erase(found);
    *db = nullptr;
}
