// Storing frames in LMDB: appended in the order of their sequence numbers, written in place into
// what the library reserves, one transaction a second.
#include <lmdb.h>

#include <cstring>

#include "bench/db_store.h"
#include "bench/measure.h"

namespace {

void must(int result, const char* what) {
    if (result != MDB_SUCCESS) give_up(std::string("LMDB: ") + what + ": " + mdb_strerror(result));
}

class Lmdb : public Store {
  public:
    Lmdb(const std::string& folder, uint64_t bytes, unsigned flags) {
        must(mdb_env_create(&m_env), "create");
        must(mdb_env_set_mapsize(m_env, bytes * 2 + (uint64_t{64} << 20)), "map size");
        must(mdb_env_open(m_env, (folder + "/frames.lmdb").c_str(), MDB_NOSUBDIR | flags, 0640),
             "open");
        begin();
        must(mdb_dbi_open(m_txn, nullptr, MDB_INTEGERKEY, &m_dbi), "table");
    }
    ~Lmdb() override {
        mdb_txn_abort(m_txn);
        mdb_env_close(m_env);
    }

    void append(const qm_dbframe& frame, int64_t) override {
        MDB_val key{sizeof m_sequence, &m_sequence};
        MDB_val value{sizeof frame.info + frame.info.bytes, nullptr};
        must(mdb_put(m_txn, m_dbi, &key, &value, MDB_APPEND | MDB_RESERVE), "put");
        auto* out = static_cast<uint8_t*>(value.mv_data);
        memcpy(out, &frame.info, sizeof frame.info);
        memcpy(out + sizeof frame.info, frame.payload.get(), frame.info.bytes);
        ++m_sequence;
    }
    void make_durable(int64_t) override {
        must(mdb_txn_commit(m_txn), "commit");
        begin();
    }

  private:
    void begin() { must(mdb_txn_begin(m_env, nullptr, 0, &m_txn), "begin"); }

    MDB_env* m_env = nullptr;
    MDB_txn* m_txn = nullptr;
    MDB_dbi m_dbi = 0;
    size_t m_sequence = 0;
};

}  // namespace

std::unique_ptr<Store> make_lmdb(const std::string& folder, const Workload&, uint64_t bytes) {
    return std::make_unique<Lmdb>(folder, bytes, MDB_WRITEMAP | MDB_NORDAHEAD);
}
