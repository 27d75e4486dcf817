// `qenaec process`: the options of one recording, turned into a request.
#include <CLI/CLI.hpp>

#include <memory>

#include "commands.h"
#include "errors.h"
#include "options.h"
#include "process.h"
#include "report.h"
#include "resample.h"

namespace qtool {

namespace {

struct ProcessArgs {
    std::string near, far, out;
    bool raw = false;
    int rate = 0;
    int near_channels = 1;
    int far_channels = 1;
    TuningArgs tuning;
    double far_delay_ms = 0.0;
    std::string align;
    bool resample = false;
    std::string metrics_json;
    bool quiet = false;
    std::string near_talk;
};

int run(const ProcessArgs &a, const CLI::App &cmd) {
    ProcessRequest rq;
    rq.near_path = a.near;
    rq.far_path = a.far;
    rq.out_path = a.out;
    if (a.raw) {
        if (a.rate <= 0) {
            throw usage_error("--raw needs --rate (and --near-channels, --far-channels unless 1)");
        }
        rq.raw_near = RawLayout{a.rate, a.near_channels};
        rq.raw_far = RawLayout{a.rate, a.far_channels};
    }
    rq.mode = parse_mode(a.tuning.mode);
    rq.tuning = parse_tuning(a.tuning);
    if (cmd.count("--far-delay") > 0) {
        rq.far_delay_ms = a.far_delay_ms;
    }
    rq.align_auto = !a.align.empty();
    rq.resample = a.resample;
    rq.quiet = a.quiet;
    if (!a.near_talk.empty()) {
        rq.near_talk = parse_spans(a.near_talk, "--near-talk");
    }
    if (!a.metrics_json.empty() &&
        (same_file(a.metrics_json, a.near) || same_file(a.metrics_json, a.far))) {
        throw failure("refusing to write the metrics over an input ('" + a.metrics_json + "')");
    }
    const ProcessReport rep = run_process(rq);
    if (!a.metrics_json.empty()) {
        write_metrics_json(a.metrics_json, rep);
    }
    if (!a.quiet) {
        print_summary(stdout, rep);
    }
    return kExitOk;
}

}  // namespace

Command add_process_command(CLI::App &root) {
    auto args = std::make_shared<ProcessArgs>();
    CLI::App *cmd =
        root.add_subcommand("process",
                            "Cancel the echo in a recording: microphone (near end) and loudspeaker "
                            "reference (far end) in, echo-cancelled microphone out");
    cmd->add_option("--near", args->near, "microphone recording (WAV or FLAC, any sample format)")
        ->required();
    cmd->add_option("--far", args->far, "loudspeaker reference, same rate as --near")->required();
    cmd->add_option("-o,--output", args->out,
                    "output: the near end's length, channels and rate, 16-bit; WAV, or FLAC "
                    "or raw by extension (.flac, .raw, .pcm); raw with --raw")
        ->required();
    CLI::Option *raw = cmd->add_flag("--raw", args->raw,
                                     "both inputs are headerless signed 16-bit little-endian PCM");
    cmd->add_option("--rate", args->rate, "sample rate of raw inputs, Hz")->needs(raw);
    cmd->add_option("--near-channels", args->near_channels, "channels of the raw near end")
        ->needs(raw)
        ->capture_default_str();
    cmd->add_option("--far-channels", args->far_channels, "channels of the raw far end")
        ->needs(raw)
        ->capture_default_str();
    add_tuning_options(cmd, args->tuning, {"full", "linear", "split"});
    CLI::Option *delay = cmd->add_option(
        "--far-delay", args->far_delay_ms,
        "delay the far end by MS milliseconds before processing (negative: advance it)");
    delay->type_name("MS");
    cmd->add_option("--align", args->align,
                    "auto: estimate the echo's delay behind the far end (GCC-PHAT over the "
                    "first 10 s, within +-1 s), delay the far end by it less 32 samples of "
                    "lead, and report it. The filter reaches only 1024 samples.")
        ->check(CLI::IsMember({"auto"}))
        ->type_name("auto")
        ->excludes(delay);
    cmd->add_flag("--resample", args->resample,
                  "inputs at another rate from " + resamplable_rates_text() +
                      " (e.g. 44100 Hz) are converted to the nearest of "
                      "8000/16000/32000/48000 Hz and the output back (libsoxr)");
    cmd->add_option("--metrics-json", args->metrics_json,
                    "also write the figures as JSON: duration_s, frames, speed_x_realtime, "
                    "erle_db, erle_seconds, delay_estimated_ms, far_delay_applied_ms, "
                    "saturated_frames, clipped_samples, ...")
        ->type_name("FILE");
    cmd->add_flag("--quiet", args->quiet, "no summary, notices or progress bar; errors only");
    cmd->add_option("--near-talk", args->near_talk,
                    "where the near-end talker is known to speak, START-END in seconds, "
                    "comma-separated: ERLE then leaves these out instead of judging by level")
        ->type_name("SPANS");
    cmd->footer(
        "ERLE is measured where the far end is active (its level over 100 ms within 30 dB of "
        "its 95th percentile and above -50 dBFS) and the echo dominates (the near-to-far level "
        "ratio within 3 dB of its median and no frame within 0.5 s more than 6 dB above it; or "
        "outside --near-talk).\n"
        "Saturated input frames have a near-end sample beyond +-32700.\n\n"
        "Example:\n"
        "  qenaec process --near mic.wav --far ref.wav -o clean.wav --align auto\n"
        "  qenaec process --raw --rate 16000 --near-channels 2 --near mic.pcm --far ref.pcm "
        "-o clean.pcm");
    return {cmd, [args, cmd] { return run(*args, *cmd); }};
}

}  // namespace qtool
