// A directory of its own for one test, under $TMPDIR or /tmp; removed with all it holds at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

// The file's bytes; empty when there is none, or one such as /dev/full, which has no end.
inline std::string contentsOf(const std::string &file)
{
    std::ostringstream text;
    if (std::filesystem::is_regular_file(file)) {
        text << std::ifstream(file, std::ios::binary).rdbuf();
    }
    return text.str();
}

class TempDir {
public:
    TempDir()
    {
        path_ = std::filesystem::temp_directory_path().string() + "/refetchd-test-XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no temporary directory: " + path_);
        }
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }
    [[nodiscard]] std::string path(const std::string &name) const { return path_ + "/" + name; }

    // Writes a file (directories above it are made); returns its full path.
    std::string write(const std::string &name, const std::string &text) const
    {
        const std::filesystem::path file = path(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }
    [[nodiscard]] std::string read(const std::string &name) const { return contentsOf(path(name)); }

private:
    std::string path_;
};
