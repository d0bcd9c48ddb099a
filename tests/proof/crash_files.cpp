#include "tests/proof/crash_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "sdk/db/format.h"

namespace {

bool is_segment(const std::string& name) { return name.ends_with(".seg"); }

uint64_t sectors_of(size_t bytes) { return (bytes + SECTOR_BYTES - 1) / SECTOR_BYTES; }

}  // namespace

// ---- choices -----------------------------------------------------------------------------------

void RandomChooser::pick_sectors(uint64_t, std::vector<bool>& there) {
    const size_t count = there.size();
    switch (m_random.below(6)) {
        case 0: there.assign(count, false); return;
        case 1: there.assign(count, true); return;
        case 2:
            for (size_t i = 0, first = m_random.below(count + 1); i < count; ++i)
                there[i] = i < first;
            return;
        case 3:
            there.assign(count, true);
            there[m_random.below(count)] = false;
            return;
        case 4:
            for (size_t i = 0, first = m_random.below(count + 1); i < count; ++i)
                there[i] = i >= first;
            return;
        default:
            for (size_t i = 0; i < count; ++i) there[i] = m_random.one_in(2);
    }
}

size_t EveryChoice::pick(size_t options) {
    if (m_at == m_decisions.size()) m_decisions.push_back({0, options});
    return m_decisions[m_at++].taken;
}

bool EveryChoice::next() {
    m_at = 0;
    while (!m_decisions.empty()) {
        Decision& last = m_decisions.back();
        if (++last.taken < last.options) return true;
        m_decisions.pop_back();
    }
    return false;
}

void EveryChoice::pick_sectors(uint64_t offset, std::vector<bool>& there) {
    const size_t count = there.size();
    const size_t block = sim::BLOCK_BYTES / SECTOR_BYTES;
    std::vector<size_t> starts;  // of the groups
    if (offset == 0 && count > 2 * block && m_groups > 4)
        starts = {0, block, 2 * block, 2 * block + 1};
    else
        starts = {0, 1};
    const size_t first = starts.back();
    const size_t middle = m_groups > starts.size() ? m_groups - starts.size() : 1;
    if (count > first + 1) {
        const size_t span = count - 1 - first;
        for (size_t i = 1; i < middle && i < span; ++i) starts.push_back(first + i * span / middle);
        starts.push_back(count - 1);
    }
    for (size_t i = 0; i < starts.size() && starts[i] < count; ++i) {
        const size_t end = i + 1 < starts.size() ? std::min(starts[i + 1], count) : count;
        if (end == starts[i]) continue;
        const bool on_disk = pick(2) == 1;
        for (size_t k = starts[i]; k < end; ++k) there[k] = on_disk;
    }
}

// ---- states ------------------------------------------------------------------------------------

CrashFiles::CrashFiles(const CrashFiles& other)
    : FileSystem(),
      m_folders(other.m_folders),
      m_files(other.m_files),
      m_next_file(other.m_next_file),
      m_next_handle(other.m_next_handle + 1000),  // one of the other's is none of this
      m_offences(other.m_offences) {
    for (auto& [number, file] : m_files)
        for (Change& change : file.pending) change.own = false;
}

size_t CrashFiles::pending() const {
    size_t count = 0;
    for (const auto& [path, folder] : m_folders) count += folder.pending.size();
    for (const auto& [number, file] : m_files) count += file.pending.size();
    return count;
}

void CrashFiles::apply(const NameChange& change, std::map<std::string, int>& names) {
    if (change.to.empty()) {
        if (change.file)
            names[change.name] = change.file;
        else
            names.erase(change.name);
        return;
    }
    const auto old = names.find(change.name);
    if (old != names.end() && old->second == change.file) names.erase(old);
    names[change.to] = change.file;
}

void CrashFiles::apply(const Change& change, Bytes& bytes) {
    if (!change.data) {
        bytes.resize(change.offset);
        return;
    }
    const size_t end = change.offset + change.data->size();
    if (bytes.size() < end) bytes.resize(end);
    std::memcpy(bytes.data() + change.offset, change.data->data(), change.data->size());
}

void CrashFiles::choose_names(const Folder& folder, CrashChooser& chooser,
                              std::map<std::string, int>& names) {
    if (folder.pending.empty()) return;
    if (chooser.names_in_any_order()) {
        for (const NameChange& change : folder.pending)
            if (chooser.pick(2) == 1) apply(change, names);
        return;
    }
    const size_t done = chooser.pick(folder.pending.size() + 1);
    for (size_t i = 0; i < done; ++i) apply(folder.pending[i], names);
}

// Every sector old or new, every size that the file had since its last sync.
CrashFiles::Content CrashFiles::lost_power(const File& file, CrashChooser& chooser) {
    auto bytes = std::make_shared<Bytes>(*file.durable);
    std::vector<uint64_t> sizes = {bytes->size()};
    uint64_t size = bytes->size();
    std::vector<bool> there;
    for (const Change& change : file.pending) {
        size = change.data ? std::max<uint64_t>(size, change.offset + change.data->size())
                           : change.offset;
        if (std::find(sizes.begin(), sizes.end(), size) == sizes.end()) sizes.push_back(size);
        if (!change.data) {
            if (change.offset < bytes->size() && chooser.pick(2) == 1) apply(change, *bytes);
            continue;
        }
        there.assign(sectors_of(change.data->size()), false);
        chooser.pick_sectors(change.offset, there);
        for (size_t i = 0; i < there.size(); ++i) {
            if (!there[i]) continue;
            const size_t from = i * SECTOR_BYTES;
            const size_t length = std::min(SECTOR_BYTES, change.data->size() - from);
            const size_t end = change.offset + from + length;
            if (bytes->size() < end) bytes->resize(end);
            std::memcpy(bytes->data() + change.offset + from, change.data->data() + from, length);
        }
    }
    bytes->resize(sizes.size() > 1 ? sizes[chooser.pick(sizes.size())] : sizes[0]);
    return bytes;
}

CrashFiles CrashFiles::after_power_loss(CrashChooser& chooser) const {
    CrashFiles after(*this);
    std::set<int> kept;
    for (auto& [path, folder] : after.m_folders) {
        choose_names(folder, chooser, folder.durable);
        folder.now = folder.durable;
        folder.pending.clear();
        for (const auto& [name, file] : folder.now) kept.insert(file);
    }
    std::erase_if(after.m_files, [&](const auto& it) { return !kept.contains(it.first); });
    for (auto& [number, file] : after.m_files) {
        if (!file.pending.empty()) file.durable = lost_power(file, chooser);
        file.now = file.durable;
        file.pending.clear();
    }
    return after;
}

CrashFiles CrashFiles::after_kill(const FileChange& change, size_t done) const {
    CrashFiles after(*this);
    done = std::min(done, change.size);
    if (change.kind != FileChange::Kind::write || done == 0) return after;
    for (auto& [path, folder] : after.m_folders) {
        const auto it = folder.now.find(change.name);
        if (it == folder.now.end()) continue;
        File& file = after.m_files[it->second];
        const Change part = {std::make_shared<const Bytes>(change.data, change.data + done),
                             change.offset, false};
        auto bytes = std::make_shared<Bytes>(*file.now);
        apply(part, *bytes);
        file.now = bytes;
        file.pending.push_back(part);
    }
    return after;
}

void CrashFiles::forget_unsynced(int handle) {
    if (File* file = file_of(handle)) file->pending.clear();
}

std::shared_ptr<const CrashFiles::Bytes> CrashFiles::content(const std::string& path,
                                                             const std::string& name) const {
    const auto folder = m_folders.find(path);
    if (folder == m_folders.end()) return nullptr;
    const auto it = folder->second.now.find(name);
    return it == folder->second.now.end() ? nullptr : m_files.at(it->second).now;
}

std::vector<std::string> CrashFiles::names(const std::string& path) const {
    std::vector<std::string> all;
    const auto folder = m_folders.find(path);
    if (folder == m_folders.end()) return all;
    for (const auto& [name, file] : folder->second.now) all.push_back(name);
    return all;
}

void CrashFiles::put(const std::string& path, const std::string& name, const Bytes& bytes) {
    Folder& folder = m_folders[path];
    const int number = m_next_file++;
    m_files[number].now = m_files[number].durable = std::make_shared<const Bytes>(bytes);
    folder.now[name] = folder.durable[name] = number;
}

// ---- handles -----------------------------------------------------------------------------------

int CrashFiles::new_handle(const Open& open) {
    m_open[m_next_handle] = open;
    return m_next_handle++;
}

CrashFiles::Open* CrashFiles::opened(int handle) {
    const auto it = m_open.find(handle);
    return it == m_open.end() ? nullptr : &it->second;
}

CrashFiles::File* CrashFiles::file_of(int handle) {
    const Open* open = opened(handle);
    return open && open->file ? &m_files[open->file] : nullptr;
}

CrashFiles::Folder* CrashFiles::folder_of(int handle) {
    const Open* open = opened(handle);
    return open && !open->file ? &m_folders[open->folder] : nullptr;
}

std::string CrashFiles::name_of(const Open& open) const {
    for (const auto& [name, file] : m_folders.at(open.folder).now)
        if (file == open.file) return name;
    return "";
}

std::string CrashFiles::name_of(int handle) const {
    const auto it = m_open.find(handle);
    return it == m_open.end() ? "" : name_of(it->second);
}

void CrashFiles::tell(const FileChange& change) const {
    if (on_change) on_change(change);
}

// ---- the interface -----------------------------------------------------------------------------

int CrashFiles::open_folder(const std::string& path, bool make) {
    if (!m_folders.contains(path)) {
        if (!make) return -ENOENT;
        m_folders[path];
    }
    return new_handle({path, 0, Access::read, false});
}

int CrashFiles::open(int handle, const std::string& name, Access access) {
    Folder* folder = folder_of(handle);
    if (!folder) return -EBADF;
    const auto it = folder->now.find(name);
    if (it != folder->now.end()) {
        if (access == Access::create) return -EEXIST;
        return new_handle({opened(handle)->folder, it->second, access, false});
    }
    if (access != Access::create && access != Access::lock) return -ENOENT;
    tell({FileChange::Kind::create, name});
    const int number = m_next_file++;
    m_files[number];
    folder->pending.push_back({name, "", number});
    apply(folder->pending.back(), folder->now);
    return new_handle({opened(handle)->folder, number, access, false});
}

void CrashFiles::close(int handle) {
    if (m_open.erase(handle) == 0) m_offences.push_back("closed what is not open");
}

int64_t CrashFiles::read(int handle, void* out, size_t size, uint64_t offset) {
    const File* file = file_of(handle);
    if (!file) return -EBADF;
    const Bytes& bytes = *file->now;
    if (offset >= bytes.size()) return 0;
    const size_t length = std::min<uint64_t>(size, bytes.size() - offset);
    std::memcpy(out, bytes.data() + offset, length);
    return static_cast<int64_t>(length);
}

void CrashFiles::check_write(const Open& open, const File& file, const void* data, size_t size,
                             uint64_t offset) {
    const std::string name = name_of(open);
    const std::string where = name + " at " + std::to_string(offset);
    if (open.access == Access::lock) return;
    if (size % sim::BLOCK_BYTES || offset % sim::BLOCK_BYTES ||
        reinterpret_cast<uintptr_t>(data) % sim::BLOCK_BYTES)
        m_offences.push_back("part of a block written: " + where);
    if (!is_segment(name)) return;
    for (uint64_t at = offset; at < offset + size; at += sim::BLOCK_BYTES)
        if (file.synced_blocks.contains(at / sim::BLOCK_BYTES)) {
            m_offences.push_back("durable block written again: " + where);
            break;
        }
    for (const auto& [other, number] : m_folders.at(open.folder).now) {
        const auto& pending = m_files.at(number).pending;
        if (is_segment(other) && std::any_of(pending.begin(), pending.end(),
                                             [](const Change& it) { return it.data && it.own; }))
            m_offences.push_back("written while " + other + " is not durable: " + where);
    }
}

int CrashFiles::write(int handle, const void* data, size_t size, uint64_t offset) {
    File* file = file_of(handle);
    if (!file || opened(handle)->access == Access::read) return -EBADF;
    const auto* bytes = static_cast<const uint8_t*>(data);
    check_write(*opened(handle), *file, data, size, offset);
    tell({FileChange::Kind::write, name_of(handle), offset, bytes, size, ""});
    file->pending.push_back({std::make_shared<const Bytes>(bytes, bytes + size), offset});
    auto now = std::make_shared<Bytes>(*file->now);
    apply(file->pending.back(), *now);
    file->now = now;
    return 0;
}

int CrashFiles::sync(int handle) {
    File* file = file_of(handle);
    if (!file) return -EBADF;
    tell({FileChange::Kind::sync, name_of(handle)});
    auto durable = std::make_shared<Bytes>(*file->durable);
    for (const Change& change : file->pending) {
        apply(change, *durable);
        if (!change.data || !change.own) continue;
        for (uint64_t at = 0; at < change.data->size(); at += sim::BLOCK_BYTES)
            file->synced_blocks.insert((change.offset + at) / sim::BLOCK_BYTES);
    }
    const bool all = *durable == *file->now;
    file->durable = all ? file->now : durable;
    file->pending.clear();
    return 0;
}

int CrashFiles::sync_folder(int handle) {
    Folder* folder = folder_of(handle);
    if (!folder) return -EBADF;
    tell({FileChange::Kind::sync_folder, ""});
    folder->durable = folder->now;
    folder->pending.clear();
    return 0;
}

void CrashFiles::resize(File& file, uint64_t size) {
    file.pending.push_back({nullptr, size});
    auto now = std::make_shared<Bytes>(*file.now);
    now->resize(size);
    file.now = now;
}

int CrashFiles::allocate(int handle, uint64_t size) {
    File* file = file_of(handle);
    if (!file || opened(handle)->access == Access::read) return -EBADF;
    tell({FileChange::Kind::allocate, name_of(handle), 0, nullptr, size, ""});
    if (file->now->size() < size) resize(*file, size);
    return 0;
}

int CrashFiles::truncate(int handle, uint64_t size) {
    File* file = file_of(handle);
    if (!file || opened(handle)->access == Access::read) return -EBADF;
    tell({FileChange::Kind::truncate, name_of(handle), 0, nullptr, size, ""});
    if (file->now->size() != size) resize(*file, size);
    return 0;
}

int64_t CrashFiles::size(int handle) {
    const File* file = file_of(handle);
    return file ? static_cast<int64_t>(file->now->size()) : -EBADF;
}

int CrashFiles::rename(int handle, const std::string& from, const std::string& to) {
    Folder* folder = folder_of(handle);
    if (!folder) return -EBADF;
    const auto it = folder->now.find(from);
    if (it == folder->now.end()) return -ENOENT;
    tell({FileChange::Kind::rename, from, 0, nullptr, 0, to});
    m_files[it->second].synced_blocks.clear();
    folder->pending.push_back({from, to, it->second});
    apply(folder->pending.back(), folder->now);
    return 0;
}

int CrashFiles::remove(int handle, const std::string& name) {
    Folder* folder = folder_of(handle);
    if (!folder) return -EBADF;
    if (!folder->now.contains(name)) return -ENOENT;
    tell({FileChange::Kind::remove, name});
    folder->pending.push_back({name, "", 0});
    apply(folder->pending.back(), folder->now);
    return 0;
}

int CrashFiles::list(int handle, const std::string& prefix, std::vector<std::string>& names) {
    const Folder* folder = folder_of(handle);
    if (!folder) return -EBADF;
    for (const auto& [name, file] : folder->now)
        if (name.starts_with(prefix)) names.push_back(name);
    return 0;
}

int64_t CrashFiles::room(int handle) {
    return folder_of(handle) ? std::numeric_limits<int64_t>::max() : -EBADF;
}

int CrashFiles::locked(int handle) {
    const Open* open = opened(handle);
    if (!open || !open->file) return -EBADF;
    for (const auto& [other, it] : m_open)
        if (other != handle && it.file == open->file && it.has_lock) return 1;
    return 0;
}

int CrashFiles::lock(int handle) {
    const int taken = locked(handle);
    if (taken < 0) return taken;
    if (taken) return -EAGAIN;
    if (opened(handle)->access == Access::read) return -EBADF;
    opened(handle)->has_lock = true;
    return 0;
}
