// Files in memory.
#include "tests/proof/memory_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

const int MemoryFiles::GONE = -EIO;

bool MemoryFiles::may_change() {
    ++m_changes;
    if (m_left == 0) m_ended = true;
    if (!m_ended) --m_left;
    return !m_ended;
}

MemoryFiles::Folder MemoryFiles::copy() const {
    Folder folder;
    for (const auto& [name, file] : m_files) folder[name] = *file;
    return folder;
}

void MemoryFiles::put(const Folder& folder) {
    m_files.clear();
    for (const auto& [name, bytes] : folder) put(name, bytes);
}

void MemoryFiles::put(const std::string& name, const Bytes& bytes) {
    m_files[name] = std::make_shared<Bytes>(bytes);
}

MemoryFiles::Bytes* MemoryFiles::at(int file) {
    const size_t index = static_cast<size_t>(file - FIRST);
    return file >= FIRST && index < m_open.size() ? m_open[index].get() : nullptr;
}

int MemoryFiles::open_folder(const std::string& path, bool) {
    return path == "folder" ? FOLDER : -ENOENT;
}

int MemoryFiles::open(int, const std::string& name, Access access) {
    auto found = m_files.find(name);
    const bool makes = access == Access::create || access == Access::lock;
    if (found != m_files.end() && access == Access::create) return -EEXIST;
    if (found == m_files.end()) {
        if (!makes) return -ENOENT;
        if (!may_change()) return GONE;
        found = m_files.emplace(name, std::make_shared<Bytes>()).first;
    }
    const auto free = std::find(m_open.begin(), m_open.end(), nullptr);
    const auto index = static_cast<int>(free - m_open.begin());
    if (free == m_open.end())
        m_open.push_back(found->second);
    else
        *free = found->second;
    return FIRST + index;
}

void MemoryFiles::close(int file) {
    if (at(file)) m_open[static_cast<size_t>(file - FIRST)].reset();
}

int64_t MemoryFiles::read(int file, void* out, size_t size, uint64_t offset) {
    const Bytes* bytes = at(file);
    if (!bytes) return -EBADF;
    if (offset >= bytes->size()) return 0;
    const size_t got = std::min(size, bytes->size() - static_cast<size_t>(offset));
    memcpy(out, bytes->data() + offset, got);
    return static_cast<int64_t>(got);
}

int MemoryFiles::write(int file, const void* data, size_t size, uint64_t offset) {
    Bytes* bytes = at(file);
    if (!bytes) return -EBADF;
    const bool was_ended = m_ended;
    const bool whole = may_change();
    if (was_ended) return GONE;
    const size_t part = whole ? size : size / 2;
    const size_t end = static_cast<size_t>(offset) + part;
    if (bytes->size() < end) bytes->resize(end);
    memcpy(bytes->data() + offset, data, part);
    return whole ? 0 : GONE;
}

int MemoryFiles::allocate(int file, uint64_t size) { return truncate(file, size); }

int MemoryFiles::truncate(int file, uint64_t size) {
    Bytes* bytes = at(file);
    if (!bytes) return -EBADF;
    if (!may_change()) return GONE;
    bytes->resize(static_cast<size_t>(size));
    return 0;
}

int64_t MemoryFiles::size(int file) {
    const Bytes* bytes = at(file);
    return bytes ? static_cast<int64_t>(bytes->size()) : -EBADF;
}

int MemoryFiles::rename(int, const std::string& from, const std::string& to) {
    if (!may_change()) return GONE;
    const auto found = m_files.find(from);
    if (found == m_files.end()) return -ENOENT;
    const File file = found->second;
    m_files.erase(found);
    m_files[to] = file;
    return 0;
}

int MemoryFiles::remove(int, const std::string& name) {
    if (!may_change()) return GONE;
    return m_files.erase(name) != 0 ? 0 : -ENOENT;
}

int MemoryFiles::list(int, const std::string& prefix, std::vector<std::string>& names) {
    for (const auto& [name, file] : m_files)
        if (name.compare(0, prefix.size(), prefix) == 0) names.push_back(name);
    return 0;
}
