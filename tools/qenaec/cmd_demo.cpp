// `qenaec demo`: the bundled example recordings through `process` with the delay aligned,
// and ERLE measured outside the stretch where the near-end talker is known to speak.
#include <CLI/CLI.hpp>

#include <fstream>
#include <memory>

#include "commands.h"
#include "errors.h"
#include "process.h"
#include "report.h"

#ifndef QENAEC_DEMO_AUDIO_DIR
#define QENAEC_DEMO_AUDIO_DIR "examples/audio"
#endif

namespace qtool {

namespace {

struct DemoArgs {
    std::string audio_dir = QENAEC_DEMO_AUDIO_DIR;
    std::string out = "demo-out.wav";
    std::string metrics_json;
    bool quiet = false;
};

// "start end" in seconds per line, as the script that made the recordings wrote them.
std::vector<Span> read_talk_spans(const std::string &path) {
    std::ifstream in(path);
    if (!in) {
        throw failure("cannot read '" + path + "'");
    }
    std::vector<Span> spans;
    Span s;
    while (in >> s.start_s >> s.end_s) {
        spans.push_back(s);
    }
    return spans;
}

int run(const DemoArgs &a) {
    ProcessRequest rq;
    rq.near_path = a.audio_dir + "/near.wav";
    rq.far_path = a.audio_dir + "/far.wav";
    rq.out_path = a.out;
    rq.align_auto = true;
    rq.quiet = a.quiet;
    rq.near_talk = read_talk_spans(a.audio_dir + "/near-talk.txt");
    if (!a.quiet) {
        std::printf(
            "QenAec demo. far.wav is what the loudspeaker played; near.wav is what the\n"
            "microphone heard: its echo through a synthetic room, a second talker");
        for (const Span &s : *rq.near_talk) {
            std::printf(" (%.1f-%.1f s)", s.start_s, s.end_s);
        }
        std::printf(" and noise.\n\n");
        std::fflush(stdout);
    }
    const ProcessReport rep = run_process(rq);
    if (!a.metrics_json.empty()) {
        write_metrics_json(a.metrics_json, rep);
    }
    if (!a.quiet) {
        print_summary(stdout, rep);
        std::printf("\nListen to %s beside %s.\n", a.out.c_str(), rq.near_path.c_str());
    }
    return kExitOk;
}

}  // namespace

Command add_demo_command(CLI::App &root) {
    auto args = std::make_shared<DemoArgs>();
    CLI::App *cmd = root.add_subcommand(
        "demo",
        "Process the bundled example recordings and write demo-out.wav beside a "
        "short summary");
    cmd->add_option("-o,--output", args->out, "where to write the result")->capture_default_str();
    cmd->add_option("--audio-dir", args->audio_dir,
                    "folder with near.wav, far.wav and near-talk.txt")
        ->capture_default_str();
    cmd->add_option("--metrics-json", args->metrics_json, "also write the figures as JSON")
        ->type_name("FILE");
    cmd->add_flag("--quiet", args->quiet, "no summary or progress bar; errors only");
    cmd->footer(
        "The recordings are made by scripts/make_demo_audio.sh (espeak-ng, sox).\n\n"
        "Example:\n"
        "  qenaec demo -o /tmp/demo-out.wav");
    return {cmd, [args] { return run(*args); }};
}

}  // namespace qtool
