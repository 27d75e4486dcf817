// Running the tool through the shell, with each argument single-quoted.
#include "cli_support.h"

#include <cjson/cJSON.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace cli {

namespace {

std::string quote(const std::string &s) {
    std::string q(1, '\'');
    for (char c : s) {
        if (c == '\'') {
            q.append("'\\''");
        } else {
            q.push_back(c);
        }
    }
    q.push_back('\'');
    return q;
}

void write_sndfile(const std::string &path, int rate, int channels, int format, const void *data,
                   size_t samples, bool is_float) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (f == nullptr) {
        throw std::runtime_error("cannot write " + path);
    }
    if (is_float) {
        sf_command(f, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
        sf_writef_float(f, static_cast<const float *>(data), samples / channels);
    } else {
        sf_writef_short(f, static_cast<const short *>(data), samples / channels);
    }
    sf_close(f);
}

}  // namespace

Result run(const std::vector<std::string> &args, const Env &env) {
    static int counter = 0;
    const std::string base = std::filesystem::temp_directory_path().string() + "/qenaec-cli-" +
                             std::to_string(getpid()) + "-" + std::to_string(counter++);
    std::string cmd = "env";
    auto add = [&cmd](const std::string &word) {
        cmd.push_back(' ');
        cmd.append(quote(word));
    };
    for (const auto &[k, v] : env) {
        add(k + "=" + v);
    }
    add(QENAEC_TOOL);
    for (const std::string &a : args) {
        add(a);
    }
    cmd.append(" >").append(quote(base + ".out"));
    cmd.append(" 2>").append(quote(base + ".err")).append(" </dev/null");
    const int raw = std::system(cmd.c_str());
    Result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = qtest::read_file(base + ".out");
    r.err = qtest::read_file(base + ".err");
    std::filesystem::remove(base + ".out");
    std::filesystem::remove(base + ".err");
    return r;
}

void write_wav(const std::string &path, int rate, int channels,
               const std::vector<int16_t> &samples) {
    write_sndfile(path, rate, channels, SF_FORMAT_WAV | SF_FORMAT_PCM_16, samples.data(),
                  samples.size(), false);
}

void write_float_wav(const std::string &path, int rate, int channels,
                     const std::vector<float> &samples) {
    write_sndfile(path, rate, channels, SF_FORMAT_WAV | SF_FORMAT_FLOAT, samples.data(),
                  samples.size(), true);
}

Wav read_wav(const std::string &path) {
    SF_INFO info{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (f == nullptr) {
        throw std::runtime_error("cannot read " + path);
    }
    Wav w;
    w.rate = info.samplerate;
    w.channels = info.channels;
    w.samples.resize(static_cast<size_t>(info.frames) * info.channels);
    sf_readf_short(f, w.samples.data(), info.frames);
    sf_close(f);
    return w;
}

void write_raw(const std::string &path, const std::vector<int16_t> &samples) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(samples.data()),
              static_cast<std::streamsize>(samples.size() * sizeof(int16_t)));
}

std::vector<int16_t> read_raw(const std::string &path) {
    const std::string bytes = qtest::read_file(path);
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<int16_t>(static_cast<uint8_t>(bytes[2 * i]) |
                                          (static_cast<uint8_t>(bytes[2 * i + 1]) << 8));
    }
    return samples;
}

bool file_exists(const std::string &path) {
    std::error_code ec;
    return std::filesystem::exists(path, ec);
}

double json_number(const std::string &json, const std::string &key) {
    cJSON *root = cJSON_Parse(json.c_str());
    const cJSON *item = root;
    size_t start = 0;
    while (item != nullptr && start <= key.size()) {
        const size_t dot = key.find('.', start);
        item = cJSON_GetObjectItemCaseSensitive(item, key.substr(start, dot - start).c_str());
        start = dot == std::string::npos ? key.size() + 1 : dot + 1;
    }
    const double v = item != nullptr && cJSON_IsNumber(item) ? item->valuedouble : NAN;
    cJSON_Delete(root);
    return v;
}

Result process_files(const TempDir &dir, int rate, int near_channels,
                     const std::vector<int16_t> &near, int far_channels,
                     const std::vector<int16_t> &far, const std::vector<std::string> &extra,
                     const Env &env) {
    write_wav(dir.path("near.wav"), rate, near_channels, near);
    write_wav(dir.path("far.wav"), rate, far_channels, far);
    std::vector<std::string> args = {
        "process",           "--near", dir.path("near.wav"), "--far",
        dir.path("far.wav"), "-o",     dir.path("out.wav"),  "--metrics-json",
        dir.path("m.json")};
    args.insert(args.end(), extra.begin(), extra.end());
    return run(args, env);
}

int count_lines(const std::string &text) {
    int n = 0;
    for (char c : text) {
        n += c == '\n' ? 1 : 0;
    }
    return n;
}

}  // namespace cli
