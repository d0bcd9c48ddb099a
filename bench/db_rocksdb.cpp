// Storing frames in RocksDB with blob files, nothing compressed. What came in within a second is
// flushed into blob files instead of a log, so that it is written once.
#include <rocksdb/db.h>
#include <rocksdb/options.h>

#include <cstring>

#include "bench/db_store.h"
#include "bench/measure.h"

namespace {

class Rocksdb : public Store {
  public:
    explicit Rocksdb(const std::string& folder) {
        rocksdb::Options options;
        options.create_if_missing = true;
        options.compression = rocksdb::kNoCompression;
        options.enable_blob_files = true;
        options.min_blob_size = 1024;
        options.blob_file_size = uint64_t{256} << 20;
        options.blob_compression_type = rocksdb::kNoCompression;
        options.write_buffer_size = size_t{256} << 20;
        options.max_write_buffer_number = 4;
        options.disable_auto_compactions = true;
        options.level0_slowdown_writes_trigger = 1 << 20;
        options.level0_stop_writes_trigger = 1 << 20;
        options.allow_mmap_writes = false;
        rocksdb::DB* db = nullptr;
        must(rocksdb::DB::Open(options, folder + "/frames.rocksdb", &db), "open");
        m_db.reset(db);
        m_write.disableWAL = true;
    }

    void append(const qm_dbframe& frame, int64_t) override {
        uint8_t key[8];  // most significant byte first: the order of the sequence numbers
        for (int i = 0; i < 8; ++i) key[i] = static_cast<uint8_t>(m_sequence >> (56 - 8 * i));
        ++m_sequence;
        const rocksdb::Slice keys[] = {{reinterpret_cast<char*>(key), sizeof key}};
        const rocksdb::Slice values[] = {
            {reinterpret_cast<const char*>(&frame.info), sizeof frame.info},
            {reinterpret_cast<const char*>(frame.payload.get()), frame.info.bytes}};
        rocksdb::WriteBatch batch;
        must(batch.Put(rocksdb::SliceParts(keys, 1), rocksdb::SliceParts(values, 2)), "put");
        must(m_db->Write(m_write, &batch), "write");
    }
    void make_durable(int64_t) override { must(m_db->Flush(rocksdb::FlushOptions()), "flush"); }

  private:
    static void must(const rocksdb::Status& status, const char* what) {
        if (!status.ok()) give_up(std::string("RocksDB: ") + what + ": " + status.ToString());
    }

    std::unique_ptr<rocksdb::DB> m_db;
    rocksdb::WriteOptions m_write;
    uint64_t m_sequence = 0;
};

}  // namespace

std::unique_ptr<Store> make_rocksdb(const std::string& folder, const Workload&, uint64_t) {
    return std::make_unique<Rocksdb>(folder);
}
