// Frame levels and the rules that pick the frames ERLE is measured over.
#include "testkit/erle.h"

#include <algorithm>
#include <cmath>

namespace testkit {

namespace {

constexpr double kWindowSeconds = 0.1;
constexpr double kFarBelowPeakDb = 30.0;
constexpr double kFarMinimumDbfs = -50.0;
constexpr double kRatioMarginDb = 3.0;
constexpr double kClearTalkDb = 6.0;
constexpr double kTalkHangoverSeconds = 0.5;
constexpr double kMinimumSeconds = 0.25;

// Mean power per sample of each frame, all channels together, from sample `offset` (per
// channel) on; samples beyond the end count as zeros.
std::vector<double> frame_power(std::span<const int16_t> x, int channels, size_t frames,
                                size_t offset = 0) {
    std::vector<double> p(frames, 0.0);
    const size_t per_frame = kFrame * channels;
    for (size_t f = 0; f < frames; ++f) {
        double sum = 0.0;
        const size_t begin = (f * kFrame + offset) * channels;
        for (size_t i = begin; i < begin + per_frame && i < x.size(); ++i) {
            sum += static_cast<double>(x[i]) * x[i];
        }
        p[f] = sum / static_cast<double>(per_frame);
    }
    return p;
}

// dBFS of the mean power over each frame and the frames before it within the window.
std::vector<double> trailing_level(const std::vector<double> &power, size_t window) {
    std::vector<double> level(power.size());
    double sum = 0.0;
    for (size_t f = 0; f < power.size(); ++f) {
        sum += power[f];
        if (f >= window) {
            sum -= power[f - window];
        }
        const double mean = std::max(sum, 0.0) / static_cast<double>(std::min(f + 1, window));
        level[f] = 10.0 * std::log10(std::max(mean / (32768.0 * 32768.0), 1e-12));
    }
    return level;
}

double percentile(std::vector<double> v, double q) {
    if (v.empty()) {
        return 0.0;
    }
    const size_t k = static_cast<size_t>(q * static_cast<double>(v.size() - 1));
    std::nth_element(v.begin(), v.begin() + k, v.end());
    return v[k];
}

bool in_any_span(double t0, double t1, const std::vector<Span> &spans) {
    for (const Span &s : spans) {
        if (t0 < s.end_s && t1 > s.start_s) {
            return true;
        }
    }
    return false;
}

// Relative to the loud end of the levels, not to their floor: a far end that never pauses
// (music, noise) has no floor to be above.
std::vector<bool> active_by_level(const std::vector<double> &level, double loud_dbfs,
                                  double floor_dbfs) {
    const double threshold = std::max(loud_dbfs - kFarBelowPeakDb, floor_dbfs);
    std::vector<bool> active(level.size());
    for (size_t f = 0; f < level.size(); ++f) {
        active[f] = level[f] >= threshold;
    }
    return active;
}

std::vector<bool> far_active(const std::vector<double> &far_level) {
    return active_by_level(far_level, percentile(far_level, 0.95), kFarMinimumDbfs);
}

size_t level_window(int rate) {
    return std::max<size_t>(1, static_cast<size_t>(std::lround(kWindowSeconds * rate / kFrame)));
}

// Level-ratio rule: frames within `hangover` of clear near-end talk go, and so do frames
// whose ratio is more than a margin above the median. Speech pauses between syllables, so
// the hangover keeps a talker's quieter moments out as well.
void keep_echo_dominated(std::vector<bool> &use, const std::vector<double> &near_level,
                         const std::vector<double> &far_level, double median, size_t hangover) {
    const size_t frames = use.size();
    std::vector<bool> talk(frames, false);
    for (size_t f = 0; f < frames; ++f) {
        if (use[f] && near_level[f] - far_level[f] > median + kClearTalkDb) {
            const size_t lo = f > hangover ? f - hangover : 0;
            const size_t hi = std::min(frames, f + hangover + 1);
            std::fill(talk.begin() + lo, talk.begin() + hi, true);
        }
    }
    for (size_t f = 0; f < frames; ++f) {
        use[f] = use[f] && !talk[f] && near_level[f] - far_level[f] <= median + kRatioMarginDb;
    }
}

}  // namespace

Erle erle(const ErleInput &in, const std::vector<Span> *left_out) {
    const Layout &l = in.layout;
    const size_t frames = in.near.size() / (kFrame * l.near_channels);
    const size_t window = level_window(l.rate);
    const auto far_level = trailing_level(frame_power(in.far, l.far_channels, frames), window);
    const auto near_power = frame_power(in.near, l.near_channels, frames);
    const auto near_level = trailing_level(near_power, window);
    const auto out_power = frame_power(in.out, l.near_channels, frames, in.delay);

    std::vector<bool> use = far_active(far_level);
    std::vector<double> ratios;
    for (size_t f = 0; f < frames; ++f) {
        if (use[f]) {
            ratios.push_back(near_level[f] - far_level[f]);
        }
    }
    const double frame_s = static_cast<double>(kFrame) / l.rate;
    if (left_out != nullptr) {
        for (size_t f = 0; f < frames; ++f) {
            use[f] = use[f] && !in_any_span(f * frame_s, (f + 1) * frame_s, *left_out);
        }
    } else {
        keep_echo_dominated(use, near_level, far_level, percentile(ratios, 0.5),
                            static_cast<size_t>(kTalkHangoverSeconds / frame_s));
    }

    Erle e;
    e.rule = left_out != nullptr ? "known near-end talk" : "level ratio";
    double in_sum = 0.0, out_sum = 0.0;
    size_t count = 0;
    for (size_t f = 0; (f + 1) * kFrame + in.delay <= frames * kFrame; ++f) {
        if (use[f]) {
            in_sum += near_power[f];
            out_sum += out_power[f];
            ++count;
        }
    }
    e.seconds = static_cast<double>(count) * frame_s;
    e.valid = count > 0 && e.seconds >= kMinimumSeconds && in_sum > 0.0;
    // Powers are per-sample means over equal frames, so the 1/12 floor adds per frame.
    e.db =
        e.valid ? 10.0 * std::log10(in_sum / (out_sum + static_cast<double>(count) / 12.0)) : 0.0;
    return e;
}

Activity activity(std::span<const int16_t> x, int channels, int rate, double floor_dbfs) {
    const size_t frames = x.size() / (kFrame * channels);
    const auto power = frame_power(x, channels, frames);
    const auto level = trailing_level(power, level_window(rate));
    Activity a;
    a.loud_dbfs = percentile(level, 0.95);
    a.active = active_by_level(level, a.loud_dbfs, floor_dbfs);
    double sum = 0.0;
    size_t count = 0;
    for (size_t f = 0; f < frames; ++f) {
        if (a.active[f]) {
            sum += power[f];
            ++count;
        }
    }
    a.seconds = static_cast<double>(count) * kFrame / rate;
    if (count > 0) {
        a.level_dbfs = 10.0 * std::log10(std::max(sum / count / (32768.0 * 32768.0), 1e-12));
    }
    return a;
}

Erle erle_between(const ErleInput &in, double from_s, double to_s) {
    const std::vector<Span> left_out = {{0.0, from_s}, {to_s, INFINITY}};
    return erle(in, &left_out);
}

}  // namespace testkit
