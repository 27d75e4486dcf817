// The subcommands. Each registers its options on the root app and returns what to run when
// it was the one given; the argument storage lives as long as the returned function.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace qtool {

struct Command {
    CLI::App *app;
    std::function<int()> run;
};

Command add_process_command(CLI::App &root);
Command add_replay_command(CLI::App &root);
Command add_demo_command(CLI::App &root);
Command add_tune_command(CLI::App &root);

}  // namespace qtool
