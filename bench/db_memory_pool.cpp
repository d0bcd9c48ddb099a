// Holding memory and giving it back in large pieces.
#include "bench/db_memory_pool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "bench/measure.h"

namespace {

constexpr size_t SMALL_PIECES_MIB = 512;

// Through the page cache.
void write_file(const std::string& path, size_t mib) {
    const int file = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0640);
    if (file < 0) give_up("no file in the benchmark's folder");
    const std::vector<uint8_t> block(1 << 20, 1);
    for (size_t i = 0; i < mib; ++i)
        if (write(file, block.data(), block.size()) != ssize_t{1 << 20}) give_up("no room on disk");
    fsync(file);
    close(file);
}

}  // namespace

MemoryPool::MemoryPool(const std::string& folder, uint64_t bytes)
    : m_small_pieces(folder + "/small_pieces"), m_bytes((bytes + AHEAD + STEP - 1) / STEP * STEP) {
    void* memory =
        mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) give_up("not enough memory for the files' pages");
    m_memory = static_cast<uint8_t*>(memory);
    madvise(m_memory, m_bytes, MADV_HUGEPAGE);  // given back quicker
    for (uint64_t i = 0; i < m_bytes; i += 4096) m_memory[i] = 1;
    write_file(m_small_pieces, SMALL_PIECES_MIB);
    written(0);
}

MemoryPool::~MemoryPool() {
    give_back(m_bytes);
    unlink(m_small_pieces.c_str());
}

// Databases may write everything twice.
void MemoryPool::written(uint64_t bytes) { give_back(2 * bytes + AHEAD); }

void MemoryPool::give_back(uint64_t bytes) {
    const uint64_t wanted = std::min(m_bytes, (bytes + STEP - 1) / STEP * STEP);
    if (wanted <= m_given) return;
    munmap(m_memory + m_given, wanted - m_given);
    m_given = wanted;
}
