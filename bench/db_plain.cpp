// Storing frames without any database: one file written from end to end, and a file for each frame.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "bench/db_store.h"
#include "bench/measure.h"

namespace {

void write_all(int file, const uint8_t* bytes, size_t size) {
    while (size > 0) {
        const ssize_t written = write(file, bytes, size);
        if (written <= 0) give_up(std::string("write: ") + strerror(errno));
        bytes += written;
        size -= static_cast<size_t>(written);
    }
}

int open_new(const std::string& path) {
    const int file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0640);
    if (file < 0) give_up(path + ": " + strerror(errno));
    return file;
}

// For every block of payload that comes in one block of memory is written: nothing is gathered, no
// header, no checksum.
class RawAppend : public Store {
  public:
    RawAppend(const std::string& folder, const Workload& workload)
        : m_plain(workload.plain()), m_file(open_new(folder + "/plain")) {}
    ~RawAppend() override { close(m_file); }

    void append(const qm_dbframe& frame, int64_t) override {
        m_waiting += frame.info.bytes;
        if (m_waiting >= Workload::BLOCK) write_some(Workload::BLOCK);
    }
    void make_durable(int64_t) override {
        write_some(m_waiting);
        if (fdatasync(m_file) != 0) give_up("fdatasync of the plain file failed");
    }

  private:
    void write_some(size_t bytes) {
        if (m_next == m_plain.size()) m_next = 0;
        write_all(m_file, m_plain.data() + m_next, bytes);
        m_next += Workload::BLOCK;
        m_waiting -= bytes;
    }

    const std::span<const uint8_t> m_plain;
    const int m_file;
    size_t m_next = 0;
    size_t m_waiting = 0;
};

// One folder a channel-stream, so that none grows large; all are made durable together.
class FileAFrame : public Store {
  public:
    explicit FileAFrame(const std::string& folder) {
        for (size_t i = 0; i < Workload::TICK_FRAMES; ++i) {
            const std::string name = folder + "/" + std::to_string(i);
            if (mkdir(name.c_str(), 0750) != 0) give_up(name + ": " + strerror(errno));
            m_folders[i] = open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (m_folders[i] < 0) give_up(name + ": " + strerror(errno));
        }
    }
    ~FileAFrame() override {
        for (const int folder : m_folders) close(folder);
    }

    void append(const qm_dbframe& frame, int64_t) override {
        const sim::FrameInfo& info = frame.info;
        char name[32];
        snprintf(name, sizeof name, "%u", info.number);
        const int folder = m_folders[info.channel * Workload::STREAMS + info.stream];
        const int file = openat(folder, name, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0640);
        if (file < 0) give_up(std::string("a file for a frame: ") + strerror(errno));
        write_all(file, frame.payload.get(), info.bytes);
        close(file);
    }
    void make_durable(int64_t) override {
        if (syncfs(m_folders[0]) != 0) give_up("syncfs failed");
    }

  private:
    int m_folders[Workload::TICK_FRAMES];
};

}  // namespace

std::unique_ptr<Store> make_raw_append(const std::string& folder, const Workload& workload,
                                       uint64_t) {
    return std::make_unique<RawAppend>(folder, workload);
}

std::unique_ptr<Store> make_file_a_frame(const std::string& folder, const Workload&, uint64_t) {
    return std::make_unique<FileAFrame>(folder);
}
