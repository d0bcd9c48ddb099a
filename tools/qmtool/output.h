// What the commands print with: names and times in words, JSON, the progress bar. What is printed
// stands in the commands.
#ifndef TOOLS_QMTOOL_OUTPUT_H
#define TOOLS_QMTOOL_OUTPUT_H

#include <chrono>
#include <cstdint>
#include <string>

// The bytes of a name or text from a file without control characters: those, and what is no UTF-8,
// as \xNN.
std::string printable(const std::string& bytes);

// A UTC time in microseconds as ISO 8601 with milliseconds, rounded down.
std::string time_text(int64_t utc_us);
// The same with microseconds.
std::string exact_time_text(int64_t utc_us);
// Seconds with milliseconds: "12.500 s".
std::string duration_text(int64_t us);
// "1 frame", "2 frames".
std::string counted(uint64_t count, const char* one, const char* many);
// "main", "dual", "JPEG", "preview", "third", "fourth", "audio": the rows of a summary.
const char* row_name(int row);

// One JSON value, written from its start to its end. Keys are given inside objects only.
class Json {
  public:
    Json& object(const char* key = nullptr) { return open(key, '{', '}'); }
    Json& array(const char* key = nullptr) { return open(key, '[', ']'); }
    Json& end();
    Json& text(const char* key, const std::string& value);
    Json& number(const char* key, uint64_t value);
    Json& signed_number(const char* key, int64_t value);
    Json& truth(const char* key, bool value);
    Json& null(const char* key);
    // An object: "utc" as text, "us" as number.
    Json& time(const char* key, int64_t utc_us);
    const std::string& written() const { return m_out; }

  private:
    Json& open(const char* key, char first, char last);
    void begin(const char* key);
    void quote(const std::string& value);

    std::string m_out;
    std::string m_ends;  // of what is open
    bool m_first = true;
};

// A bar on standard error, when that is a terminal; otherwise nothing. Gone when it is destroyed.
class Progress {
  public:
    Progress();
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Bytes done, and of how many.
    void show(uint64_t done, uint64_t total) { show(done, total, done); }
    // How much of something else is done, and how many bytes that makes so far.
    void show(uint64_t done, uint64_t total, uint64_t bytes);

  private:
    using Clock = std::chrono::steady_clock;
    const bool m_terminal;
    Clock::time_point m_next;
    bool m_shown = false;
};

#endif  // TOOLS_QMTOOL_OUTPUT_H
