#include "scratch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace qtest {

ScopedEnv::ScopedEnv(const char *name, std::optional<std::string> value) : name_(name) {
    if (const char *old = getenv(name)) {
        saved_ = old;
    }
    if (value) {
        setenv(name, value->c_str(), 1);
    } else {
        unsetenv(name);
    }
}

ScopedEnv::~ScopedEnv() {
    if (saved_) {
        setenv(name_.c_str(), saved_->c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
}

TempDir::TempDir() : path_(std::filesystem::temp_directory_path() / "qenaec-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string TempDir::write_file(const std::string &name, const std::string &text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
}

long file_size(const std::string &path) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    return ec ? -1 : static_cast<long>(size);
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<int16_t> read_pcm(const std::string &path) {
    const std::string bytes = read_file(path);
    std::vector<int16_t> samples(bytes.size() / 2);
    memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

std::string capture_stdout(const std::function<void()> &fn) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

std::string capture_stderr(const std::function<void()> &fn) {
    fflush(stderr);
    testing::internal::CaptureStderr();
    fn();
    fflush(stderr);
    return testing::internal::GetCapturedStderr();
}

}  // namespace qtest
