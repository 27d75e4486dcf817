// `qenaec replay`: re-runs the library on the near-end and far-end dump files one instance
// wrote in the field and compares the result with the output dump it wrote alongside.
#include <CLI/CLI.hpp>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "audio_io.h"
#include "commands.h"
#include "errors.h"
#include "library_output.h"
#include "options.h"
#include "report.h"
#include "resample.h"

namespace qtool {

namespace {

struct ReplayArgs {
    std::string dir;
    int id = 0;
    int rate = 0;
    int near_channels = 1;
    int far_channels = 1;
    std::string out;
    TuningArgs tuning;
    bool quiet = false;
};

std::string dump_path(const ReplayArgs &a, const char *what) {
    return a.dir + "/Audio_AEC_" + what + "_data_" + std::to_string(a.id) + ".pcm";
}

std::vector<int16_t> read_dump(const std::string &path, int rate, int channels) {
    const RawLayout layout{rate, channels};
    return to_pcm16(read_audio(path, &layout).samples).samples;
}

void check_layout(const ReplayArgs &a) {
    if (!is_supported_rate(a.rate)) {
        throw failure("--rate " + std::to_string(a.rate) + ": the library runs at " +
                      supported_rates_text());
    }
    for (int ch : {a.near_channels, a.far_channels}) {
        if (ch < 1 || ch > 2) {
            throw failure("channel counts are 1 or 2 (got " + std::to_string(ch) + ")");
        }
    }
}

int run(const ReplayArgs &a) {
    check_layout(a);
    const std::string out_dump = dump_path(a, "output");
    for (const char *what : {"near_end", "far_end", "output"}) {
        if (!a.out.empty() && same_file(a.out, dump_path(a, what))) {
            throw failure("refusing to write over the dump '" + dump_path(a, what) + "'");
        }
    }
    std::vector<int16_t> near = read_dump(dump_path(a, "near_end"), a.rate, a.near_channels);
    std::vector<int16_t> far = read_dump(dump_path(a, "far_end"), a.rate, a.far_channels);

    ReplayReport rep;
    rep.dir = a.dir;
    rep.id = a.id;
    rep.rate = a.rate;
    rep.near_channels = a.near_channels;
    rep.far_channels = a.far_channels;
    const size_t near_frames = near.size() / (kFrame * a.near_channels);
    const size_t far_frames = far.size() / (kFrame * a.far_channels);
    rep.frames = std::min(near_frames, far_frames);
    if (near_frames != far_frames) {
        notice(a.quiet, "the near-end dump holds " + std::to_string(near_frames) +
                            " frames and the far-end dump " + std::to_string(far_frames) +
                            ": replaying " + std::to_string(rep.frames));
    }
    near.resize(rep.frames * kFrame * a.near_channels);
    far.resize(rep.frames * kFrame * a.far_channels);

    std::error_code ec;
    rep.has_recording = std::filesystem::exists(out_dump, ec);
    const std::vector<int16_t> recorded =
        rep.has_recording ? read_dump(out_dump, a.rate, a.near_channels) : std::vector<int16_t>{};
    rep.recorded_frames = recorded.size() / (kFrame * a.near_channels);

    std::unique_ptr<AudioWriter> writer;
    if (!a.out.empty()) {
        writer = std::make_unique<AudioWriter>(a.out, kind_for_path(a.out, FileKind::kRaw), a.rate,
                                               a.near_channels);
    }
    // The replay must not dump again: with AUDIO_AEC_DUMP=1 it would truncate the very
    // files it reads when they are in AUDIO_DUMP_PATH.
    unsetenv("AUDIO_AEC_DUMP");
    {
        const LibraryOutput quiet_stdout;
        AecRunner runner({a.rate, a.near_channels, a.far_channels}, parse_tuning(a.tuning));
        runner.process(near, far, parse_mode(a.tuning.mode), nullptr);
    }
    rep.comparison = compare_outputs(recorded, near, a.near_channels);
    if (writer) {
        writer->write(near);
        writer->commit();
    }
    if (!a.quiet) {
        print_replay_summary(stdout, rep);
    }
    const bool same =
        rep.has_recording && rep.comparison.bit_exact && rep.recorded_frames == rep.frames;
    return same || !rep.has_recording ? kExitOk : kExitReplayDiffers;
}

}  // namespace

Command add_replay_command(CLI::App &root) {
    auto args = std::make_shared<ReplayArgs>();
    CLI::App *cmd = root.add_subcommand(
        "replay",
        "Re-run the library on the dump files an instance wrote (AUDIO_AEC_DUMP=1) "
        "and compare with its recorded output");
    cmd->add_option("DIR", args->dir, "directory holding the dumps (AUDIO_DUMP_PATH)")->required();
    cmd->add_option("--id", args->id, "instance id in the file names (QenAec_SetHandleId)")
        ->capture_default_str();
    cmd->add_option("--rate", args->rate, "sample rate the instance ran at, Hz")->required();
    cmd->add_option("--near-channels", args->near_channels, "near-end channels")
        ->capture_default_str();
    cmd->add_option("--far-channels", args->far_channels, "far-end channels")
        ->capture_default_str();
    cmd->add_option("-o,--output", args->out,
                    "write the replayed output (raw 16-bit PCM; WAV or FLAC by extension)");
    add_tuning_options(cmd, args->tuning, {"full", "linear"});
    cmd->add_flag("--quiet", args->quiet, "no summary; the exit status tells the result");
    cmd->footer(
        "Reads Audio_AEC_near_end_data_N.pcm, Audio_AEC_far_end_data_N.pcm and "
        "Audio_AEC_output_data_N.pcm (raw 16-bit PCM). Give the tuning the device used. A "
        "host that calls QenAec_ADF_Run and QenAec_NLP_Run records the linear output: replay "
        "it with --mode linear. AUDIO_AEC_DUMP is ignored while replaying.\n"
        "Exit status 0 when bit-exact (or nothing recorded to compare), 3 when the result "
        "differs.\n\n"
        "Example:\n"
        "  qenaec replay /tmp/dumps --id 0 --rate 16000 --near-channels 1 --far-channels 1 "
        "-o replayed.wav");
    return {cmd, [args] { return run(*args); }};
}

}  // namespace qtool
