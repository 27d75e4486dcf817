// Replays a committed corpus without libFuzzer in every build: a crash, abort or hang fails.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "scratch.h"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s CORPUS_DIR\n", argv[0]);
        return 2;
    }
    FILE *report = stderr;  // the harness sends the library's own output elsewhere
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        if (entry.is_regular_file())
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    LLVMFuzzerInitialize(&argc, &argv);
    for (const auto &path : files) {
        const std::string bytes = qtest::read_file(path);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    fprintf(report, "%zu inputs replayed from %s\n", files.size(), argv[1]);
    return files.empty() ? 1 : 0;
}
