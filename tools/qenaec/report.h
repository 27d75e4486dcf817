// How a run is reported: the summary on standard output and the same figures as JSON.
#pragma once

#include <cstdio>
#include <string>

#include "metrics.h"
#include "process.h"

namespace qtool {

void print_summary(std::FILE *out, const ProcessReport &rep);

// Throws a failure when the file cannot be written.
void write_metrics_json(const std::string &path, const ProcessReport &rep);

struct ReplayReport {
    std::string dir;
    int id = 0;
    int rate = 0;
    int near_channels = 0;
    int far_channels = 0;
    size_t frames = 0;
    bool has_recording = false;
    size_t recorded_frames = 0;
    Comparison comparison;
};

void print_replay_summary(std::FILE *out, const ReplayReport &rep);

}  // namespace qtool
