// The making and removing of a test's directory.
#include "tests/support/temp_dir.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

TempDir::TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "qm7105-XXXXXX").string();
    if (!mkdtemp(name.data())) {
        perror("mkdtemp");
        abort();
    }
    m_path = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string TempDir::file(const std::string& name) const { return m_path + "/" + name; }

std::string TempDir::write(const std::string& name, const std::string& content) const {
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
}

std::string TempDir::read(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
