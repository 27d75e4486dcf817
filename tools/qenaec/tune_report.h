// How `tune` reports: the summary (defaults and tuned side by side, the Pareto table, the
// `process` command line and the C initialiser), the JSON result that `process --config`
// reads, and one CSV row per candidate.
#pragma once

#include <cstdio>
#include <string>

#include "tune_scene.h"
#include "tune_search.h"

namespace qtool {

struct TuneReport {
    const SceneRequest *request;
    const Scene *scene;
    const SearchOptions *options;
    const SearchResult *result;
    std::string json_path;  // empty: none written
};

void print_tune_summary(std::FILE *out, const TuneReport &rep);

// Both write to a temporary file beside `path` and rename it over `path` only when it is
// complete. Throw a failure when they cannot.
void write_tune_json(const std::string &path, const TuneReport &rep);
void write_tune_csv(const std::string &path, const TuneReport &rep);

// Refuses, before any work, a path whose folder cannot take the file.
void check_writable(const std::string &path, const std::string &option);

}  // namespace qtool
