// `qenaec tune`: the options of the two recordings and of the search, checked before any
// work, and the result printed and written only once the search is over.
#include <CLI/CLI.hpp>

#include <cmath>
#include <memory>
#include <thread>

#include "commands.h"
#include "errors.h"
#include "library_output.h"
#include "options.h"
#include "progress.h"
#include "tune_report.h"
#include "tune_scene.h"
#include "tune_search.h"

namespace qtool {

namespace {

constexpr double kMaxTalkerLevelDb = 40.0;
constexpr unsigned kMaxJobs = 256;

struct TuneArgs {
    InputArgs input;
    std::string talker;
    double talker_level_db = 0.0;
    double max_near_loss_db = 3.0;
    int jobs = 0;  // 0: all cores
    std::string json, csv;
    bool search_edges = false;
    bool quick = false;
    bool quiet = false;
};

std::string db_text(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

void check_values(const TuneArgs &a, const CLI::App &cmd) {
    if (!std::isfinite(a.max_near_loss_db) || a.max_near_loss_db < 0.0) {
        throw usage_error("--max-near-loss must be 0 dB or more (got " +
                          db_text(a.max_near_loss_db) + ")");
    }
    if (!std::isfinite(a.talker_level_db) || std::fabs(a.talker_level_db) > kMaxTalkerLevelDb) {
        throw usage_error("--talker-level must be within +-" + db_text(kMaxTalkerLevelDb) +
                          " dB (got " + db_text(a.talker_level_db) + ")");
    }
    if (cmd.count("--jobs") > 0 && (a.jobs < 1 || a.jobs > static_cast<int>(kMaxJobs))) {
        throw usage_error("--jobs must be 1 to " + std::to_string(kMaxJobs) + " (got " +
                          std::to_string(a.jobs) + ")");
    }
    if (!a.json.empty() && a.json == a.csv) {
        throw usage_error("--json and --csv name the same file '" + a.json + "'");
    }
}

// Results never go over an input, and a folder that cannot take them fails now, not after
// the search.
void check_outputs(const TuneArgs &a) {
    const std::pair<const std::string *, const char *> outputs[] = {{&a.json, "--json"},
                                                                    {&a.csv, "--csv"}};
    for (const auto &[path, option] : outputs) {
        if (path->empty()) {
            continue;
        }
        for (const std::string *in : {&a.input.near, &a.input.far, &a.talker}) {
            if (same_file(*path, *in)) {
                throw failure(std::string("refusing to write ") + option + " over the input '" +
                              *in + "'");
            }
        }
        check_writable(*path, option);
    }
}

unsigned default_jobs() {
    return std::max(1u, std::thread::hardware_concurrency());
}

int run(const TuneArgs &a, const CLI::App &cmd) {
    check_values(a, cmd);
    SceneRequest rq;
    apply_input_args(a.input, cmd, rq.echo);
    rq.echo.quiet = a.quiet;
    rq.talker_path = a.talker;
    rq.talker_level_db = a.talker_level_db;
    check_outputs(a);

    SearchOptions opt;
    opt.max_loss_db = a.max_near_loss_db;
    opt.jobs = a.jobs > 0 ? static_cast<unsigned>(a.jobs) : default_jobs();
    opt.edges = a.search_edges;
    opt.quick = a.quick;

    const Scene scene = make_scene(rq);
    if (scene.clipped_mix > 0) {
        notice(a.quiet, std::to_string(scene.clipped_mix) +
                            " samples of the echo recording with the talker mixed in were "
                            "clipped to 16 bits: try a lower --talker-level");
    }
    SearchResult result;
    {
        // Declared first so it is undone last: the bar is cleared before library lines appear.
        const LibraryOutput quiet_stdout;
        ProgressBar bar(!a.quiet, planned_candidates(opt), "candidates");
        result = search(scene, opt, [&bar](size_t done) { bar.update(done); });
    }
    const TuneReport rep{&rq, &scene, &opt, &result, a.json};
    if (!a.json.empty()) {
        write_tune_json(a.json, rep);
    }
    if (!a.csv.empty()) {
        write_tune_csv(a.csv, rep);
    }
    if (!a.quiet) {
        print_tune_summary(stdout, rep);
    }
    return kExitOk;
}

}  // namespace

Command add_tune_command(CLI::App &root) {
    auto args = std::make_shared<TuneArgs>();
    CLI::App *cmd = root.add_subcommand(
        "tune",
        "Fit the suppressor's band intensities and smoothing ratio (and band edges) to a "
        "device from two recordings: an echo recording (--near, --far) and a talker "
        "recording (--talker)");
    add_input_options(cmd, args->input);
    cmd->add_option("--talker", args->talker,
                    "the talker recording: a person speaking to the device with its "
                    "loudspeaker silent, microphone only, at the near end's rate and channel "
                    "count; looped or cut to the echo recording's length and mixed into it")
        ->required()
        ->type_name("FILE");
    cmd->add_option("--talker-level", args->talker_level_db,
                    "the talker's active speech level relative to that of the echo, dB")
        ->type_name("DB")
        ->capture_default_str();
    cmd->add_option("--max-near-loss", args->max_near_loss_db,
                    "how much the talker may lose in double talk, dB")
        ->type_name("DB")
        ->capture_default_str();
    cmd->add_option("--jobs", args->jobs,
                    "candidates run in parallel, one library instance per thread (default: "
                    "all cores)")
        ->type_name("N");
    cmd->add_option("--json", args->json,
                    "write the result: default, tuned, pareto, candidates, seconds; `qenaec "
                    "process --config` reads it. Written when the search is over.")
        ->type_name("FILE");
    cmd->add_option("--csv", args->csv, "write every candidate evaluated, one row each")
        ->type_name("FILE");
    cmd->add_flag("--search-edges", args->search_edges,
                  "also move the band edges, not only the intensities and the ratio");
    cmd->add_flag("--quick", args->quick,
                  "one pass and one step of pairs for --max-near-loss after the ERLE-only pass, "
                  "and nothing for the other limits: the Pareto table then lists the best of the "
                  "candidates met on the way");
    cmd->add_flag("--quiet", args->quiet, "no summary, notices or progress bar; errors only");
    cmd->footer(
        "Each candidate runs the library (QenAec_Run, comfort noise off) twice: over the echo "
        "recording, where ERLE is measured as `process` measures it, and over the echo "
        "recording with the talker mixed in, where the talker's loss is measured in double "
        "talk (the far end and the talker both active). There the output, one frame later, "
        "is projected onto the known talker per 256-sample Hann spectrum and band of 8 bins "
        "(a gain that is never negative): the loss is the talker's power over the "
        "projection's, the SDR the projection's power over the rest of the output.\n"
        "The search is a coordinate descent from the library's default table, one setting "
        "at a time: every intensity 0..25 of each band, every ratio 1..10 (and with "
        "--search-edges each edge moved by 1 to 32 bins). One pass keeps the most ERLE at any "
        "loss; up to three keep the most ERLE within --max-near-loss, then up to eight steps "
        "that each try every single move and the 48 most promising pairs of moves (a gain in "
        "one setting paid for by a saving in another, predicted as the sum of the two) and "
        "take the best; then one pass each for the other limits of the Pareto table (1, 2, 3, "
        "6, 10 dB) and for the defaults' own loss. A move must gain more than 0.1 dB; of results "
        "within 0.1 dB of the most ERLE the one with the least loss is reported. The result "
        "does not depend on --jobs.\n"
        "\"as initialised\" is the library without any QenAec_Config call, as `process` runs "
        "it without tuning options; \"defaults\" is QenAec_Config with the default table.\n\n"
        "Example:\n"
        "  qenaec tune --near echo-mic.wav --far echo-ref.wav --talker talker.wav "
        "--json tuned.json\n"
        "  qenaec process --near mic.wav --far ref.wav -o clean.wav --config tuned.json");
    return {cmd, [args, cmd] { return run(*args, *cmd); }};
}

}  // namespace qtool
