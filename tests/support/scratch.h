// Test helpers for code that reads the environment and the file system or prints: an
// environment variable set (or unset) for one scope, a fresh temporary directory removed
// afterwards, and the text a call prints.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace qtest {

// Sets (or, with nullopt, unsets) `name` and restores the previous state on destruction.
class ScopedEnv {
public:
    ScopedEnv(const char *name, std::optional<std::string> value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

private:
    std::string name_;
    std::optional<std::string> saved_;
};

// A directory made with mkdtemp, removed with its contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    // Writes `text` to `name` inside the directory and returns the full path.
    std::string write_file(const std::string &name, const std::string &text) const;

private:
    std::string path_;
};

// Size of a file in bytes, or -1 when it does not exist.
long file_size(const std::string &path);
// The whole file (empty when it cannot be read).
std::string read_file(const std::string &path);

std::string capture_stdout(const std::function<void()> &fn);
std::string capture_stderr(const std::function<void()> &fn);

}  // namespace qtest
