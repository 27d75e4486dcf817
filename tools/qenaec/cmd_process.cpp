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
    InputArgs input;
    std::string out;
    TuningArgs tuning;
    std::string config;
    std::string metrics_json;
    bool quiet = false;
    std::string near_talk;
};

int run(const ProcessArgs &a, const CLI::App &cmd) {
    ProcessRequest rq;
    apply_input_args(a.input, cmd, rq);
    rq.out_path = a.out;
    rq.mode = parse_mode(a.tuning.mode);
    rq.tuning = parse_tuning(a.tuning);
    if (!a.config.empty()) {
        rq.tuning = read_config(a.config, a.tuning.cng);
    }
    rq.quiet = a.quiet;
    if (!a.near_talk.empty()) {
        rq.near_talk = parse_spans(a.near_talk, "--near-talk");
    }
    if (!a.metrics_json.empty() &&
        (same_file(a.metrics_json, a.input.near) || same_file(a.metrics_json, a.input.far))) {
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
    add_input_options(cmd, args->input);
    cmd->add_option("-o,--output", args->out,
                    "output: the near end's length, channels and rate, 16-bit; WAV, or FLAC "
                    "or raw by extension (.flac, .raw, .pcm); raw with --raw")
        ->required();
    add_tuning_options(cmd, args->tuning, {"full", "linear", "split"});
    cmd->add_option("--config", args->config,
                    "the band intensities, edges and ratio of a `qenaec tune --json` result "
                    "(its \"tuned\" entry)")
        ->type_name("FILE")
        ->excludes("--intensity")
        ->excludes("--edges")
        ->excludes("--ratio");
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
