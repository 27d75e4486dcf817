// Summary text and the metrics file (cJSON does the quoting).
#include "report.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <memory>

#include "errors.h"

namespace qtool {

namespace {

std::string channels_text(int near, int far) {
    return std::to_string(near) + " near / " + std::to_string(far) + " far channel" +
           (near + far > 2 ? "s" : "");
}

struct JsonDeleter {
    void operator()(cJSON *j) const { cJSON_Delete(j); }
};

void add_number_or_null(cJSON *obj, const char *key, bool present, double value) {
    if (present) {
        cJSON_AddNumberToObject(obj, key, std::round(value * 100.0) / 100.0);
    } else {
        cJSON_AddNullToObject(obj, key);
    }
}

}  // namespace

void print_summary(std::FILE *out, const ProcessReport &rep) {
    const ProcessRequest &rq = rep.request;
    std::fprintf(out, "input: %s (near), %s (far)\n", rq.near_path.c_str(), rq.far_path.c_str());
    std::fprintf(out, "output: %s\n", rq.out_path.c_str());
    std::fprintf(out, "duration: %.2f s, %zu frames at %d Hz, %s, mode %s\n", rep.duration_s,
                 rep.frames, rep.processing_rate,
                 channels_text(rep.near_channels, rep.far_channels).c_str(), mode_name(rq.mode));
    if (rep.processing_rate != rep.input_rate) {
        std::fprintf(out, "resampled: %d Hz -> %d Hz -> %d Hz\n", rep.input_rate,
                     rep.processing_rate, rep.input_rate);
    }
    std::fprintf(out, "speed: %.1fx real time\n", rep.speed_x);
    std::string shifted = "far end not shifted";
    if (rq.far_delay_ms || (rq.align_auto && rep.far_delay_applied_ms != 0.0)) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "far end delayed by %.1f ms%s", rep.far_delay_applied_ms,
                      rq.far_delay_ms ? " (--far-delay)" : "");
        shifted = buf;
    }
    if (rep.estimated.found) {
        std::fprintf(out, "delay: %.1f ms estimated; %s\n", rep.estimated.ms, shifted.c_str());
    } else {
        std::fprintf(out, "delay: not found; %s\n", shifted.c_str());
    }
    if (rep.erle.valid) {
        std::fprintf(out, "ERLE: %.1f dB\n", rep.erle.db);
        std::fprintf(out, "  over %.1f s where the far end is active and the echo dominates (%s)\n",
                     rep.erle.seconds, rep.erle.rule);
    } else {
        std::fprintf(out,
                     "ERLE: n/a (too little where the far end is active and the echo "
                     "dominates)\n");
    }
    std::fprintf(out, "saturated input frames: %zu\n", rep.saturated_frames);
    std::fprintf(out, "clipped to 16 bits: %zu near, %zu far samples\n", rep.clipped_near,
                 rep.clipped_far);
    if (rep.clipped_output > 0) {
        std::fprintf(out, "clipped after resampling back: %zu output samples\n",
                     rep.clipped_output);
    }
}

void write_metrics_json(const std::string &path, const ProcessReport &rep) {
    const ProcessRequest &rq = rep.request;
    std::unique_ptr<cJSON, JsonDeleter> root(cJSON_CreateObject());
    cJSON *j = root.get();
    cJSON_AddStringToObject(j, "near", rq.near_path.c_str());
    cJSON_AddStringToObject(j, "far", rq.far_path.c_str());
    cJSON_AddStringToObject(j, "output", rq.out_path.c_str());
    cJSON_AddStringToObject(j, "mode", mode_name(rq.mode));
    cJSON_AddNumberToObject(j, "sample_rate", rep.input_rate);
    cJSON_AddNumberToObject(j, "processing_rate", rep.processing_rate);
    cJSON_AddNumberToObject(j, "near_channels", rep.near_channels);
    cJSON_AddNumberToObject(j, "far_channels", rep.far_channels);
    cJSON_AddNumberToObject(j, "duration_s", rep.duration_s);
    cJSON_AddNumberToObject(j, "frames", static_cast<double>(rep.frames));
    add_number_or_null(j, "speed_x_realtime", true, rep.speed_x);
    add_number_or_null(j, "erle_db", rep.erle.valid, rep.erle.db);
    add_number_or_null(j, "erle_seconds", true, rep.erle.seconds);
    cJSON_AddStringToObject(j, "erle_rule", rep.erle.rule);
    add_number_or_null(j, "delay_estimated_ms", rep.estimated.found, rep.estimated.ms);
    add_number_or_null(j, "far_delay_applied_ms", true, rep.far_delay_applied_ms);
    cJSON_AddNumberToObject(j, "saturated_frames", static_cast<double>(rep.saturated_frames));
    cJSON *clipped = cJSON_AddObjectToObject(j, "clipped_samples");
    cJSON_AddNumberToObject(clipped, "near", static_cast<double>(rep.clipped_near));
    cJSON_AddNumberToObject(clipped, "far", static_cast<double>(rep.clipped_far));
    cJSON_AddNumberToObject(clipped, "output", static_cast<double>(rep.clipped_output));
    cJSON_AddNumberToObject(j, "far_padded_s", rep.far_padded_s);

    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(j), &cJSON_free);
    std::FILE *f = std::fopen(path.c_str(), "w");
    const bool ok = f != nullptr && std::fputs(text.get(), f) >= 0 && std::fputc('\n', f) != EOF;
    if (f == nullptr || std::fclose(f) != 0 || !ok) {
        throw failure("cannot write '" + path + "'");
    }
}

void print_replay_summary(std::FILE *out, const ReplayReport &rep) {
    std::fprintf(out, "replay: instance %d in %s, %zu frames (%.2f s at %d Hz, %s)\n", rep.id,
                 rep.dir.c_str(), rep.frames, static_cast<double>(rep.frames) * kFrame / rep.rate,
                 rep.rate, channels_text(rep.near_channels, rep.far_channels).c_str());
    if (!rep.has_recording) {
        std::fprintf(out, "result: no recorded output to compare with\n");
        return;
    }
    if (rep.recorded_frames != rep.frames) {
        std::fprintf(out, "recorded output: %zu frames; compared over %zu\n", rep.recorded_frames,
                     rep.comparison.compared_frames);
    }
    const Comparison &c = rep.comparison;
    if (c.bit_exact) {
        std::fprintf(out, "result: bit-exact\n");
        return;
    }
    std::fprintf(out, "result: differs from the recorded output\n");
    std::fprintf(out, "first differing frame: %zu (sample %zu)\n", c.first_frame, c.first_sample);
    std::fprintf(out, "max difference: %d\n", c.max_difference);
    std::fprintf(out, "SNR: %.1f dB\n", c.snr_db);
}

}  // namespace qtool
