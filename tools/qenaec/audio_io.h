// Audio files in and out of the tool, through libsndfile: WAV, FLAC (any sample format) and
// headerless 16-bit little-endian PCM; the conversion to the library's 16-bit samples with
// rounding and a count of clipped samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct sf_private_tag;

namespace qtool {

// Layout of a headerless file: signed 16-bit little-endian PCM, interleaved.
struct RawLayout {
    int rate = 0;
    int channels = 0;
};

// Interleaved samples at full scale +-1.0, as libsndfile normalises them.
struct Audio {
    int rate = 0;
    int channels = 0;
    std::vector<float> samples;
    size_t frames() const { return channels > 0 ? samples.size() / channels : 0; }
};

// Interleaved 16-bit samples and how many had to be clipped to get there.
struct Pcm16 {
    std::vector<int16_t> samples;
    size_t clipped = 0;
};

// Reads a whole file; `raw` non-null reads it as headerless PCM of that layout.
// Throws a failure naming the file when it cannot be opened or read.
Audio read_audio(const std::string &path, const RawLayout *raw);

// Scales by 32768, rounds half away from zero, clips to [-32768, 32767] and counts clips.
Pcm16 to_pcm16(const std::vector<float> &samples);
std::vector<float> from_pcm16(const std::vector<int16_t> &samples);

enum class FileKind { kWav, kFlac, kRaw };

// The kind a path's extension names (.wav, .flac, .raw, .pcm), else `fallback`.
FileKind kind_for_path(const std::string &path, FileKind fallback);

// True when both paths name one existing file (so writing one would destroy the other).
bool same_file(const std::string &a, const std::string &b);

// A 16-bit output file. Opened up front so an unwritable path fails before any work; a
// writer that is destroyed without commit() removes its file instead of leaving half of it.
class AudioWriter {
public:
    AudioWriter(const std::string &path, FileKind kind, int rate, int channels);
    ~AudioWriter();
    AudioWriter(const AudioWriter &) = delete;
    AudioWriter &operator=(const AudioWriter &) = delete;

    void write(const std::vector<int16_t> &interleaved);
    void commit();

private:
    std::string path_;
    int channels_;
    sf_private_tag *file_ = nullptr;
};

}  // namespace qtool
