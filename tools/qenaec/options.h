// Command-line options shared by the subcommands: the recording's inputs (`process`, `tune`),
// the run mode and the tuning values (`process`, `replay`), registered on a CLI11 subcommand
// and parsed into the library's terms.
#pragma once

#include <string>
#include <vector>

#include "aec_runner.h"
#include "metrics.h"
#include "process.h"
#include "qenaec_settings.h"

namespace CLI {
class App;
}

namespace qtool {

struct InputArgs {
    std::string near, far;
    bool raw = false;
    int rate = 0;
    int near_channels = 1;
    int far_channels = 1;
    double far_delay_ms = 0.0;
    std::string align;
    bool resample = false;
};

// --near, --far, --raw with its layout, --far-delay, --align and --resample.
void add_input_options(CLI::App *cmd, InputArgs &args);

// Sets the input fields of `rq`; throws a usage error for --raw without --rate.
void apply_input_args(const InputArgs &args, const CLI::App &cmd, ProcessRequest &rq);

struct TuningArgs {
    std::string mode = "full";
    bool cng = false;
    std::string intensity;
    std::string edges;
    std::string ratio;
};

// `modes` lists the accepted --mode values.
void add_tuning_options(CLI::App *cmd, TuningArgs &args, const std::vector<std::string> &modes);

// Throws a usage error for a malformed list or number. Values that parse are passed on
// as they are: whether they are in range is the library's decision.
Settings parse_tuning(const TuningArgs &args);
Mode parse_mode(const std::string &name);

// Every band intensity, edge and the ratio set; comfort noise as Init installed it (off).
Settings to_settings(const QenAecSettings &s);

// The "tuned" entry of a `tune --json` result, comfort noise on with `cng`; throws a failure
// naming the file and the field.
Settings read_config(const std::string &path, bool cng);

// "START-END[,START-END...]" in seconds.
std::vector<Span> parse_spans(const std::string &text, const std::string &option);

}  // namespace qtool
