// Scoped environment variables, temporary directories, captured output.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qtest {

// Sets (nullopt: unsets) `name` until destruction.
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

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string path(const std::string &name) const { return path_ + "/" + name; }
    std::string write_file(const std::string &name, const std::string &text) const;

private:
    std::string path_;
};

long file_size(const std::string &path);                 // -1 when missing
std::string read_file(const std::string &path);          // empty when unreadable
std::vector<int16_t> read_pcm(const std::string &path);  // 16-bit samples, host order

std::string capture_stdout(const std::function<void()> &fn);
std::string capture_stderr(const std::function<void()> &fn);

}  // namespace qtest
