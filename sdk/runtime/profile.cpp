// Bodies of the INI profile readers.
#include "shell/qm_profile.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "sdk/runtime/settings.h"
#include "shell/qm_string.h"

namespace {

constexpr off_t MAX_FILE_BYTES = 1 << 20;

const char BLANKS[] = " \t\r\n\v\f";

struct Key {
    std::string name;
    std::string value;
};

struct Section {
    std::string name;
    std::vector<Key> keys;
};

using Profile = std::vector<Section>;

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::string value_of(const std::string& text) {
    std::string value = trimmed(text.substr(0, text.find('\0')));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        value = value.substr(1, value.size() - 2);
    return value;
}

template <class Named>
const Named* find_named(const std::vector<Named>& list, const char* name) {
    for (const Named& entry : list)
        if (strcasecmp(entry.name.c_str(), name) == 0) return &entry;
    return nullptr;
}

// A line that is neither a section, a key nor a comment is passed over.
void parse_line(Profile& profile, const std::string& raw) {
    const std::string line = trimmed(raw);
    if (line.empty() || line[0] == ';' || line[0] == '#') return;
    if (line[0] == '[') {
        const size_t end = line.find(']');
        if (end != std::string::npos) profile.push_back({trimmed(line.substr(1, end - 1)), {}});
        return;
    }
    const size_t equals = line.find('=');
    if (equals == std::string::npos || profile.empty()) return;
    profile.back().keys.push_back(
        {trimmed(line.substr(0, equals)), value_of(line.substr(equals + 1))});
}

Profile parse(const std::string& text) {
    Profile profile;
    size_t begin = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    while (begin < text.size()) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        parse_line(profile, text.substr(begin, end - begin));
        begin = end + 1;
    }
    return profile;
}

// Reads a whole regular file. Returns null, or why it cannot be read.
const char* read_regular_file(int fd, std::string& text) {
    struct stat info;
    if (fstat(fd, &info) != 0) return strerror(errno);
    if (S_ISDIR(info.st_mode)) return "it is a directory";
    if (!S_ISREG(info.st_mode)) return "it is not a regular file";
    if (info.st_size > MAX_FILE_BYTES) return "it is larger than 1 MiB";
    char block[4096];
    for (;;) {
        const ssize_t n = read(fd, block, sizeof block);
        if (n == 0) return nullptr;
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return strerror(errno);
        text.append(block, static_cast<size_t>(n));
        if (text.size() > static_cast<size_t>(MAX_FILE_BYTES)) return "it is larger than 1 MiB";
    }
}

// The file that was looked at last, and how it looked then.
struct Cache {
    std::string path;
    struct stat info;         // all zero when there is none
    bool loaded = false;      // `profile` holds it
    bool complained = false;  // what is wrong with it was told
    Profile profile;
};

Cache& cache() {
    static Cache cache;
    return cache;
}

bool same_time(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           same_time(a.st_mtim, b.st_mtim) && same_time(a.st_ctim, b.st_ctim);
}

// Opening a FIFO or a device may wait or set something going, so the file is looked at first.
const char* read_profile_file(const char* path, struct stat& info, std::string& text) {
    if (stat(path, &info) != 0) return strerror(errno);
    if (S_ISDIR(info.st_mode)) return "it is a directory";
    if (!S_ISREG(info.st_mode)) return "it is not a regular file";
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return strerror(errno);
    const char* why = read_regular_file(fd, text);
    close(fd);
    return why;
}

// Makes the cache hold the file. A file that is simply missing is no news.
void load(const char* path) {
    Cache& c = cache();
    if (c.path != path) c.complained = false;
    c.path = path;
    c.info = {};
    std::string text;
    errno = 0;
    const char* why = read_profile_file(path, c.info, text);
    c.loaded = !why;
    if (c.loaded) c.profile = parse(text);
    if (c.loaded || errno == ENOENT || errno == ENOTDIR || c.complained) return;
    sim::complain("environment file '%s' is not read: %s", path, why);
    c.complained = true;
}

const Profile* profile_of(const char* path) {
    const Cache& c = cache();
    struct stat info;
    if (stat(path, &info) != 0) info = {};
    if (c.path != path || !same_file(info, c.info)) load(path);
    return c.loaded ? &c.profile : nullptr;
}

// The value of the key, or null.
const std::string* find_value(const char* section, const char* key, const char* file) {
    const Profile* profile = profile_of(file);
    const Section* found = profile ? find_named(*profile, section) : nullptr;
    const Key* entry = found ? find_named(found->keys, key) : nullptr;
    return entry ? &entry->value : nullptr;
}

bool is_hexadecimal(const std::string& text) {
    return text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

}  // namespace

int qm_existfile(std::string path) {
    cache().complained = false;
    load(path.c_str());
    return cache().loaded ? 1 : 0;
}

int getPrivateProfileInt(const char* section, const char* key, int fallback, const char* file) {
    const std::string* value = find_value(section, key, file);
    if (!value || value->empty()) return fallback;
    return is_hexadecimal(*value) ? static_cast<int>(qm_atoh(value->c_str()))
                                  : qm_atoi(value->c_str());
}

int getPrivateProfileString(const char* section, const char* key, const char* fallback,
                            char* buffer, int size, const char* file) {
    const std::string* value = find_value(section, key, file);
    if (size > 0)
        snprintf(buffer, static_cast<size_t>(size), "%s", value ? value->c_str() : fallback);
    return value ? 1 : 0;
}
