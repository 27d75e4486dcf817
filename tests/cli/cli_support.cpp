// The tool is run through the shell, each argument single-quoted.
#include "cli_support.h"

#include <cjson/cJSON.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace cli {

namespace {

std::string quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

void write_sndfile(const std::string &path, int rate, int channels, int format,
                   const std::function<void(SNDFILE *)> &write) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (f == nullptr) {
        throw std::runtime_error("cannot write " + path);
    }
    write(f);
    sf_close(f);
}

}  // namespace

Result run(const std::vector<std::string> &args, const Env &env) {
    static int counter = 0;
    const std::string base = std::filesystem::temp_directory_path().string() + "/qenaec-cli-" +
                             std::to_string(getpid()) + "-" + std::to_string(counter++);
    std::string cmd = "env";
    for (const auto &[k, v] : env) {
        cmd.append(" ").append(quote(k + "=" + v));
    }
    cmd.append(" ").append(quote(QENAEC_TOOL));
    for (const std::string &a : args) {
        cmd.append(" ").append(quote(a));
    }
    cmd.append(" >").append(quote(base + ".out")).append(" 2>").append(quote(base + ".err"));
    cmd.append(" </dev/null");
    const int raw = std::system(cmd.c_str());
    Result r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, qtest::read_file(base + ".out"),
             qtest::read_file(base + ".err")};
    std::filesystem::remove(base + ".out");
    std::filesystem::remove(base + ".err");
    return r;
}

void write_wav(const std::string &path, int rate, int channels,
               const std::vector<int16_t> &samples) {
    write_sndfile(path, rate, channels, SF_FORMAT_PCM_16, [&](SNDFILE *f) {
        sf_writef_short(f, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    });
}

void write_float_wav(const std::string &path, int rate, int channels,
                     const std::vector<float> &samples) {
    write_sndfile(path, rate, channels, SF_FORMAT_FLOAT, [&](SNDFILE *f) {
        sf_command(f, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
        sf_writef_float(f, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    });
}

Wav read_wav(const std::string &path) {
    SF_INFO info{};
    SNDFILE *f = sf_open(path.c_str(), SFM_READ, &info);
    if (f == nullptr) {
        throw std::runtime_error("cannot read " + path);
    }
    Wav w{info.samplerate, info.channels,
          std::vector<int16_t>(static_cast<size_t>(info.frames) * info.channels)};
    sf_readf_short(f, w.samples.data(), info.frames);
    sf_close(f);
    return w;
}

void write_raw(const std::string &path, const std::vector<int16_t> &samples) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(int16_t)));
}

std::vector<int16_t> read_raw(const std::string &path) {
    const std::string bytes = qtest::read_file(path);
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i) {  // little-endian whatever the host
        samples[i] = static_cast<int16_t>(static_cast<uint8_t>(bytes[2 * i]) |
                                          (static_cast<uint8_t>(bytes[2 * i + 1]) << 8));
    }
    return samples;
}

double json_number(const std::string &json, const std::string &key) {
    cJSON *root = cJSON_Parse(json.c_str());
    const cJSON *item = root;
    std::istringstream path(key);
    for (std::string k; item != nullptr && std::getline(path, k, '.');) {
        item = cJSON_IsArray(item) ? cJSON_GetArrayItem(item, std::stoi(k))
                                   : cJSON_GetObjectItemCaseSensitive(item, k.c_str());
    }
    const double v = cJSON_IsNumber(item) ? item->valuedouble : NAN;
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

}  // namespace cli
