// libFuzzer target for the tool's input layer: raw PCM, field dumps or any libsndfile format,
// converted and resampled as the tool does. A refusal is fine; a crash, another exception, a hang
// or samples not matching the reported layout is a finding.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "audio_io.h"
#include "errors.h"
#include "resample.h"

namespace {

// Resampling is linear in the length; longer inputs are read and converted but not resampled.
constexpr size_t kMaxResampleFrames = 1 << 15;

[[noreturn]] void fail(const char *what) {
    fprintf(stderr, "tool_fuzzer: %s\n", what);
    abort();
}

void check_audio(const qtool::Audio &a, const qtool::RawLayout *raw, size_t bytes) {
    if (a.channels <= 0 && !a.samples.empty())
        fail("samples without channels");
    if (a.channels > 0 && a.samples.size() % a.channels != 0)
        fail("a partial frame");
    if (raw != nullptr) {
        if (a.rate != raw->rate || a.channels != raw->channels)
            fail("raw layout changed");
        // Headerless 16-bit PCM: every whole frame of the file, nothing more.
        if (a.frames() != bytes / 2 / raw->channels)
            fail("raw frame count");
    }
    const qtool::Pcm16 pcm = qtool::to_pcm16(a.samples);
    if (pcm.samples.size() != a.samples.size() || pcm.clipped > a.samples.size()) {
        fail("16-bit conversion changed the length");
    }
    if (a.channels < 1 || a.channels > 2 || qtool::is_supported_rate(a.rate) ||
        !qtool::is_resamplable_rate(a.rate) || a.frames() > kMaxResampleFrames) {
        return;
    }
    const int to = qtool::nearest_supported_rate(a.rate);
    const size_t frames = qtool::frames_at_rate(a.frames(), a.rate, to);
    const std::vector<float> out = qtool::resample(a.samples, a.channels, a.rate, to, frames);
    if (out.size() != frames * a.channels)
        fail("resampled length");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    static const int kRawRates[] = {16000, 8000, 32000, 48000, 44100, 11025, 1, 0, -8000};
    static const int kDumpRates[] = {8000, 16000, 32000, 48000};
    const uint8_t how = data[0];
    // The bytes as a file the input layer can open by name, without touching the disk.
    const int fd = memfd_create("tool_fuzzer", 0);
    if (fd < 0 || write(fd, data + 1, size - 1) != static_cast<ssize_t>(size - 1)) {
        fail("memfd");
    }
    qtool::RawLayout layout;
    const qtool::RawLayout *raw = nullptr;
    switch (how % 3) {
        case 0:  // --raw --rate R --near-channels C
            layout = {kRawRates[(how / 3) % 9], 1 + (how / 27) % 3};
            raw = &layout;
            break;
        case 1:  // a replayed dump
            layout = {kDumpRates[(how / 3) % 4], 1 + (how / 12) % 2};
            raw = &layout;
            break;
        default:  // WAV, FLAC or anything else libsndfile takes
            break;
    }
    try {
        const qtool::Audio audio = qtool::read_audio("/proc/self/fd/" + std::to_string(fd), raw);
        check_audio(audio, raw, size - 1);
    } catch (const qtool::ToolError &e) {
        if (e.status != qtool::kExitFailure)
            fail("a refusal with a usage status");
    }
    close(fd);
    return 0;
}
