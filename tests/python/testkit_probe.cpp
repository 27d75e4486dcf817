// The C++ side of the agreement tests (test_agreement.py): testkit's output delays and its
// ERLE of recordings the Python side writes.
//   testkit_probe delays
//       prints "<mode> <samples>" per run mode
//   testkit_probe erle RATE NEAR_CH FAR_CH DELAY NEAR OUT FAR [START END]...
//       reads the three raw 16-bit files and prints "<valid> <dB> <seconds> <rule>"
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "testkit/erle.h"

namespace {

std::vector<int16_t> read_pcm(const char *path) {
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    std::vector<int16_t> pcm(bytes.size() / 2);
    std::memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
    return pcm;
}

int print_erle(int argc, char **argv) {
    const testkit::Layout layout = {std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4])};
    const std::vector<int16_t> near = read_pcm(argv[6]), out = read_pcm(argv[7]),
                               far = read_pcm(argv[8]);
    std::vector<testkit::Span> spans;
    for (int i = 9; i + 1 < argc; i += 2) {
        spans.push_back({std::atof(argv[i]), std::atof(argv[i + 1])});
    }
    const testkit::Erle e = testkit::erle(
        {near, out, far, layout, std::strtoul(argv[5], nullptr, 10)}, argc > 9 ? &spans : nullptr);
    std::printf("%d %.6f %.6f %s\n", e.valid ? 1 : 0, e.db, e.seconds, e.rule);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "delays" && argc == 2) {
        for (testkit::Mode m :
             {testkit::Mode::kFull, testkit::Mode::kLinear, testkit::Mode::kSplit}) {
            std::printf("%s %zu\n", testkit::mode_name(m), testkit::output_delay(m));
        }
        return 0;
    }
    if (what == "erle" && argc >= 9 && argc % 2 == 1) {
        return print_erle(argc, argv);
    }
    std::fprintf(stderr,
                 "usage: %s delays\n       %s erle RATE NEAR_CH FAR_CH DELAY NEAR OUT FAR "
                 "[START END]...\n",
                 argv[0], argv[0]);
    return 2;
}
