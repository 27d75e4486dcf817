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
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace cli {

static std::string quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

template <typename Sample>
void write_wav(const std::string &path, int rate, int channels,
               const std::vector<Sample> &samples) {
    constexpr bool kFloat = std::is_same_v<Sample, float>;
    SF_INFO info{0, rate, channels, SF_FORMAT_WAV | (kFloat ? SF_FORMAT_FLOAT : SF_FORMAT_PCM_16),
                 0, 0};
    SNDFILE *f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (f == nullptr) {
        throw std::runtime_error("cannot write " + path);
    }
    const auto frames = static_cast<sf_count_t>(samples.size() / channels);
    if constexpr (kFloat) {
        sf_command(f, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
        sf_writef_float(f, samples.data(), frames);
    } else {
        sf_writef_short(f, samples.data(), frames);
    }
    sf_close(f);
}
template void write_wav(const std::string &, int, int, const std::vector<int16_t> &);
template void write_wav(const std::string &, int, int, const std::vector<float> &);

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
    cmd.append(" >" + quote(base + ".out") + " 2>" + quote(base + ".err") + " </dev/null");
    const int raw = std::system(cmd.c_str());
    Result r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, qtest::read_file(base + ".out"),
             qtest::read_file(base + ".err")};
    std::filesystem::remove(base + ".out");
    std::filesystem::remove(base + ".err");
    return r;
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

// The tool runs on little-endian hosts only, as does its raw format.
void write_raw(const std::string &path, const std::vector<int16_t> &samples) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(int16_t)));
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

Result process(const TempDir &dir, const std::vector<std::string> &extra, const Env &env) {
    std::vector<std::string> args = {
        "process",           "--near", dir.path("near.wav"), "--far",
        dir.path("far.wav"), "-o",     dir.path("out.wav"),  "--metrics-json",
        dir.path("m.json")};
    args.insert(args.end(), extra.begin(), extra.end());
    return run(args, env);
}

Result process_files(const TempDir &dir, int rate, int near_channels,
                     const std::vector<int16_t> &near, int far_channels,
                     const std::vector<int16_t> &far, const std::vector<std::string> &extra,
                     const Env &env) {
    write_wav(dir.path("near.wav"), rate, near_channels, near);
    write_wav(dir.path("far.wav"), rate, far_channels, far);
    return process(dir, extra, env);
}

}  // namespace cli
