// Command-line options shared by `process` and `replay`: the run mode and the tuning
// values, registered on a CLI11 subcommand and parsed into the library's terms.
#pragma once

#include <string>
#include <vector>

#include "aec_runner.h"
#include "metrics.h"

namespace CLI {
class App;
}

namespace qtool {

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

// "START-END[,START-END...]" in seconds.
std::vector<Span> parse_spans(const std::string &text, const std::string &option);

}  // namespace qtool
