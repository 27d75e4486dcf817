// qenaec: the command-line face of the library. Parses the command line, runs the chosen
// subcommand and turns its errors into one line on standard error and an exit status.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <new>

#include "commands.h"
#include "errors.h"

namespace {

constexpr const char *kFooter =
    "Standard output carries only the tool's summary. The library's own messages are "
    "collected while it runs and printed on standard error afterwards; unless DML_PATH is "
    "set, the library prints errors only (debug_level 1). AUDIO_AEC_DUMP=1 and "
    "AUDIO_DUMP_PATH make `process` write the library's dump files, which `replay` reads.\n"
    "Exit status: 0 success, 1 error (input, output or a value the library refuses), 2 bad "
    "command line, 3 replay differs from the recording.\n\n"
    "Example:\n"
    "  qenaec process --near mic.wav --far ref.wav -o clean.wav --align auto";

}  // namespace

int main(int argc, char **argv) {
    CLI::App app("qenaec: acoustic echo cancellation of recordings with the QenAec library",
                 "qenaec");
    app.require_subcommand(1);
    app.footer(kFooter);
    const qtool::Command commands[] = {qtool::add_process_command(app),
                                       qtool::add_replay_command(app), qtool::add_demo_command(app),
                                       qtool::add_tune_command(app)};
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        std::fprintf(stderr, "qenaec: error: %s\nRun with --help for more information.\n",
                     e.what());
        return qtool::kExitUsage;
    }
    try {
        for (const qtool::Command &c : commands) {
            if (c.app->parsed()) {
                return c.run();
            }
        }
    } catch (const qtool::ToolError &e) {
        std::fprintf(stderr, "qenaec: error: %s\n", e.what());
        return e.status;
    } catch (const std::bad_alloc &) {
        std::fprintf(stderr, "qenaec: error: out of memory\n");
        return qtool::kExitFailure;
    }
    return qtool::kExitUsage;
}
