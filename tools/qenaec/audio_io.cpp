// libsndfile reading and writing, and the float to 16-bit conversion of the tool.
#include "audio_io.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "errors.h"

namespace qtool {

namespace {

std::string lower_extension(const std::string &path) {
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ext;
}

constexpr int kRawFormat = SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE;

}  // namespace

Audio read_audio(const std::string &path, const RawLayout *raw) {
    SF_INFO info{};
    if (raw != nullptr) {
        info.samplerate = raw->rate;
        info.channels = raw->channels;
        info.format = kRawFormat;
    }
    SNDFILE *file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        throw failure("cannot read '" + path + "': " + sf_strerror(nullptr));
    }
    Audio audio;
    audio.rate = info.samplerate;
    audio.channels = info.channels;
    audio.samples.resize(static_cast<size_t>(info.frames) * info.channels);
    const sf_count_t got = sf_readf_float(file, audio.samples.data(), info.frames);
    const int err = sf_error(file);
    const std::string why = sf_strerror(file);
    sf_close(file);
    if (err != SF_ERR_NO_ERROR) {
        throw failure("cannot read '" + path + "': " + why);
    }
    audio.samples.resize(static_cast<size_t>(got) * info.channels);
    return audio;
}

Pcm16 to_pcm16(const std::vector<float> &samples) {
    Pcm16 out;
    out.samples.resize(samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        double v = std::round(static_cast<double>(samples[i]) * 32768.0);
        if (v > 32767.0 || v < -32768.0 || std::isnan(v)) {
            ++out.clipped;
            v = std::isnan(v) ? 0.0 : std::clamp(v, -32768.0, 32767.0);
        }
        out.samples[i] = static_cast<int16_t>(v);
    }
    return out;
}

std::vector<float> from_pcm16(const std::vector<int16_t> &samples) {
    std::vector<float> out(samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        out[i] = static_cast<float>(samples[i]) / 32768.0f;
    }
    return out;
}

FileKind kind_for_path(const std::string &path, FileKind fallback) {
    const std::string ext = lower_extension(path);
    if (ext == ".wav") {
        return FileKind::kWav;
    }
    if (ext == ".flac") {
        return FileKind::kFlac;
    }
    if (ext == ".raw" || ext == ".pcm") {
        return FileKind::kRaw;
    }
    return fallback;
}

bool same_file(const std::string &a, const std::string &b) {
    std::error_code ec;
    return std::filesystem::exists(a, ec) && std::filesystem::exists(b, ec) &&
           std::filesystem::equivalent(a, b, ec);
}

AudioWriter::AudioWriter(const std::string &path, FileKind kind, int rate, int channels)
    : path_(path), channels_(channels) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    switch (kind) {
        case FileKind::kWav:
            info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
            break;
        case FileKind::kFlac:
            info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
            break;
        case FileKind::kRaw:
            info.format = kRawFormat;
            break;
    }
    file_ = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file_ == nullptr) {
        throw failure("cannot write '" + path + "': " + sf_strerror(nullptr));
    }
}

AudioWriter::~AudioWriter() {
    if (file_ != nullptr) {
        sf_close(file_);
        std::error_code ec;
        std::filesystem::remove(path_, ec);
    }
}

void AudioWriter::write(const std::vector<int16_t> &interleaved) {
    const sf_count_t frames = static_cast<sf_count_t>(interleaved.size() / channels_);
    if (sf_writef_short(file_, interleaved.data(), frames) != frames) {
        throw failure("cannot write '" + path_ + "': " + sf_strerror(file_));
    }
}

void AudioWriter::commit() {
    const int err = sf_close(file_);
    file_ = nullptr;
    if (err != 0) {
        throw failure("cannot write '" + path_ + "': " + sf_error_number(err));
    }
}

}  // namespace qtool
