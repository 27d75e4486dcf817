// Registration and parsing of the tuning options.
#include "options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <cstdlib>

#include "errors.h"
#include "resample.h"

namespace qtool {

namespace {

std::vector<std::string> split(const std::string &text, char sep) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (true) {
        const size_t end = text.find(sep, start);
        parts.push_back(text.substr(start, end - start));
        if (end == std::string::npos) {
            return parts;
        }
        start = end + 1;
    }
}

// A decimal integer that fits the library's unsigned 32-bit fields.
bool parse_u32(const std::string &text, uint32_t &value) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    errno = 0;
    const unsigned long long v = std::strtoull(text.c_str(), nullptr, 10);
    if (errno != 0 || v > 0xFFFFFFFFull) {
        return false;
    }
    value = static_cast<uint32_t>(v);
    return true;
}

template <size_t N>
std::array<uint32_t, N> parse_list(const std::string &text, const std::string &option) {
    const auto parts = split(text, ',');
    std::array<uint32_t, N> values{};
    bool ok = parts.size() == N;
    for (size_t i = 0; ok && i < N; ++i) {
        ok = parse_u32(parts[i], values[i]);
    }
    if (!ok) {
        throw usage_error(option + " takes " + std::to_string(N) +
                          " comma-separated non-negative integers (got '" + text + "')");
    }
    return values;
}

bool parse_seconds(const std::string &text, double &value) {
    char *end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && end == text.c_str() + text.size() && value >= 0.0;
}

}  // namespace

void add_input_options(CLI::App *cmd, InputArgs &args) {
    cmd->add_option("--near", args.near, "microphone recording (WAV or FLAC, any sample format)")
        ->required();
    cmd->add_option("--far", args.far, "loudspeaker reference, same rate as --near")->required();
    CLI::Option *raw = cmd->add_flag("--raw", args.raw,
                                     "the inputs are headerless signed 16-bit little-endian PCM");
    cmd->add_option("--rate", args.rate, "sample rate of raw inputs, Hz")->needs(raw);
    cmd->add_option("--near-channels", args.near_channels, "channels of the raw near end")
        ->needs(raw)
        ->capture_default_str();
    cmd->add_option("--far-channels", args.far_channels, "channels of the raw far end")
        ->needs(raw)
        ->capture_default_str();
    CLI::Option *delay = cmd->add_option(
        "--far-delay", args.far_delay_ms,
        "delay the far end by MS milliseconds before processing (negative: advance it)");
    delay->type_name("MS");
    cmd->add_option("--align", args.align,
                    "auto: estimate the echo's delay behind the far end (GCC-PHAT over the "
                    "first 10 s, within +-1 s), delay the far end by it less 32 samples of "
                    "lead, and report it. The filter reaches only 1024 samples.")
        ->check(CLI::IsMember({"auto"}))
        ->type_name("auto")
        ->excludes(delay);
    cmd->add_flag("--resample", args.resample,
                  "inputs at another rate from " + resamplable_rates_text() +
                      " (e.g. 44100 Hz) are converted to the nearest of "
                      "8000/16000/32000/48000 Hz, and an output back to their rate (libsoxr)");
}

void apply_input_args(const InputArgs &a, const CLI::App &cmd, ProcessRequest &rq) {
    rq.near_path = a.near;
    rq.far_path = a.far;
    if (a.raw) {
        if (a.rate <= 0) {
            throw usage_error("--raw needs --rate (and --near-channels, --far-channels unless 1)");
        }
        rq.raw_near = RawLayout{a.rate, a.near_channels};
        rq.raw_far = RawLayout{a.rate, a.far_channels};
    }
    if (cmd.count("--far-delay") > 0) {
        rq.far_delay_ms = a.far_delay_ms;
    }
    rq.align_auto = !a.align.empty();
    rq.resample = a.resample;
}

void add_tuning_options(CLI::App *cmd, TuningArgs &args, const std::vector<std::string> &modes) {
    std::string modes_text;
    for (const std::string &m : modes) {
        modes_text += (modes_text.empty() ? "" : "|") + m;
    }
    cmd->add_option("--mode", args.mode,
                    "full: QenAec_Run per frame; linear: QenAec_ADF_Run (adaptive filter "
                    "only); split: QenAec_ADF_Run then QenAec_NLP_Run per frame")
        ->check(CLI::IsMember(modes))
        ->type_name(modes_text)
        ->capture_default_str();
    cmd->add_flag("--cng", args.cng, "turn comfort noise on (QenAec_Config)");
    cmd->add_option("--intensity", args.intensity,
                    "suppression intensity of the 7 bands, each 0..25 (default 5,4,4,5,10,10,10)")
        ->type_name("a,b,c,d,e,f,g");
    cmd->add_option("--edges", args.edges,
                    "upper FFT bin of bands 0..5, each 1..126, non-decreasing (default "
                    "4,6,36,49,50,51)")
        ->type_name("a,b,c,d,e,f");
    cmd->add_option("--ratio", args.ratio,
                    "smoothing of the suppressor's spectra in tenths, 1..10 "
                    "(QenAec_SetRecursiveRatio; default 1)")
        ->type_name("1..10");
}

Mode parse_mode(const std::string &name) {
    if (name == "linear") {
        return Mode::kLinear;
    }
    if (name == "split") {
        return Mode::kSplit;
    }
    return Mode::kFull;
}

Settings parse_tuning(const TuningArgs &args) {
    Settings t;
    if (args.cng) {
        t.comfort_noise = true;
    }
    if (!args.intensity.empty()) {
        t.intensity = parse_list<7>(args.intensity, "--intensity");
    }
    if (!args.edges.empty()) {
        t.edges = parse_list<6>(args.edges, "--edges");
    }
    if (!args.ratio.empty()) {
        uint32_t ratio = 0;
        if (!parse_u32(args.ratio, ratio)) {
            throw usage_error("--ratio takes a non-negative integer (got '" + args.ratio + "')");
        }
        t.ratio = ratio;
    }
    return t;
}

Settings to_settings(const QenAecSettings &s) {
    Settings t;
    t.intensity.emplace();
    std::copy(std::begin(s.intensity), std::end(s.intensity), t.intensity->begin());
    t.edges.emplace();
    std::copy(std::begin(s.edges), std::end(s.edges), t.edges->begin());
    t.ratio = s.ratio;
    return t;
}

Settings read_config(const std::string &path, bool cng) {
    QenAecSettings s;
    char error[512];
    if (qenaec_settings_read(path.c_str(), &s, error, sizeof error) != 0) {
        throw failure(error);
    }
    Settings t = to_settings(s);
    if (cng) {
        t.comfort_noise = true;
    }
    return t;
}

std::vector<Span> parse_spans(const std::string &text, const std::string &option) {
    std::vector<Span> spans;
    for (const std::string &part : split(text, ',')) {
        const auto ends = split(part, '-');
        Span s;
        if (ends.size() != 2 || !parse_seconds(ends[0], s.start_s) ||
            !parse_seconds(ends[1], s.end_s) || s.end_s < s.start_s) {
            throw usage_error(option + " takes START-END spans in seconds, comma-separated (got '" +
                              text + "')");
        }
        spans.push_back(s);
    }
    return spans;
}

}  // namespace qtool
