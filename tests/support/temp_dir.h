// A directory of its own for one test.
#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <string>

// Made by the constructor, removed with everything in it by the destructor.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    // The path of `name` inside the directory.
    std::string file(const std::string& name) const;
    // Writes `content` to the file `name`; returns its path.
    std::string write(const std::string& name, const std::string& content) const;
    // The content of the file `name`; empty when there is none.
    std::string read(const std::string& name) const;

  private:
    std::string m_path;
};

#endif  // TESTS_SUPPORT_TEMP_DIR_H
