// The steps of `process`, in the order a user's mistakes are best caught: inputs that
// would be overwritten, unreadable or mismatched inputs, an unwritable output, and only
// then the work.
#include "process.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "errors.h"
#include "library_output.h"
#include "progress.h"
#include "resample.h"

namespace qtool {

namespace {

// Taps kept in front of the strongest path when aligning: the filter cannot model anything
// that arrives before the far end it is given.
constexpr long kAlignLeadSamples = 32;
// Unaligned echo later than this (half the filter) is worth a hint.
constexpr long kHintSamples = 512;

std::string seconds_text(double s) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f s", s);
    return buf;
}

void refuse_overwrite(const ProcessRequest &rq) {
    for (const std::string *in : {&rq.near_path, &rq.far_path}) {
        if (same_file(rq.out_path, *in)) {
            throw failure("refusing to write the output over the input '" + *in + "'");
        }
    }
}

void check_inputs(const Audio &near, const Audio &far, const ProcessRequest &rq) {
    for (const auto &[audio, path] : {std::pair{&near, &rq.near_path}, {&far, &rq.far_path}}) {
        if (audio->frames() == 0) {
            throw failure("cannot read '" + *path + "': it holds no audio");
        }
    }
    if (near.rate != far.rate) {
        throw failure("the near end is " + std::to_string(near.rate) + " Hz but the far end is " +
                      std::to_string(far.rate) + " Hz: both must have the same rate");
    }
    const std::pair<const Audio *, const char *> ends[] = {{&near, "near"}, {&far, "far"}};
    for (const auto &[audio, name] : ends) {
        if (audio->channels < 1 || audio->channels > 2) {
            throw failure(std::string("the ") + name + " end has " +
                          std::to_string(audio->channels) + " channels; the library takes 1 or 2");
        }
    }
    // Padding a short far end with silence is fine; padding most of it would leave most of
    // the echo with no reference to cancel it from.
    if (far.frames() * 2 < near.frames()) {
        throw failure("the far end (" + seconds_text(static_cast<double>(far.frames()) / far.rate) +
                      ") is much shorter than the near end (" +
                      seconds_text(static_cast<double>(near.frames()) / near.rate) +
                      "): give the whole far end, or cut the near end to match");
    }
    if (!is_supported_rate(near.rate)) {
        const std::string rate = "the inputs are " + std::to_string(near.rate) + " Hz; ";
        if (!rq.resample) {
            throw failure(rate + "the library takes " + supported_rates_text() +
                          " (add --resample to convert to " +
                          std::to_string(nearest_supported_rate(near.rate)) + " Hz and back)");
        }
        if (!is_resamplable_rate(near.rate)) {
            throw failure(rate + "--resample converts " + resamplable_rates_text() + " only");
        }
    }
}

// Gives the far end the near end's length, padding with silence or cutting.
double fit_far_length(std::vector<int16_t> &far, int far_ch, size_t frames, int rate, bool quiet) {
    const size_t have = far.size() / far_ch;
    const double diff_s = (static_cast<double>(have) - static_cast<double>(frames)) / rate;
    if (have < frames) {
        notice(quiet, "the far end is " + seconds_text(-diff_s) +
                          " shorter than the near end: padded with silence");
    } else if (have > frames) {
        notice(quiet, "the far end is " + seconds_text(diff_s) +
                          " longer than the near end: the rest is ignored");
    }
    far.resize(frames * far_ch, 0);
    return have < frames ? -diff_s : 0.0;
}

// Far-end shift in samples from --far-delay or --align auto. The estimate is made in any
// case: the ERLE frames follow it, and a delay beyond the filter's reach earns a hint.
long far_shift(const ProcessRequest &rq, const std::vector<int16_t> &near,
               const std::vector<int16_t> &far, ProcessReport &rep) {
    const int rate = rep.processing_rate;
    rep.estimated = estimate_echo_delay(near, rep.near_channels, far, rep.far_channels, rate);
    const DelayEstimate &est = rep.estimated;
    if (rq.far_delay_ms) {
        return std::lround(*rq.far_delay_ms * rate / 1000.0);
    }
    if (!rq.align_auto) {
        if (est.found && est.samples > kHintSamples) {
            char ms[32];
            std::snprintf(ms, sizeof ms, "%.1f ms", est.ms);
            notice(rq.quiet, std::string("the echo seems to lag the far end by ") + ms +
                                 ", much of the filter's 1024-sample reach: try --align auto");
        }
        return 0;
    }
    if (!est.found) {
        notice(rq.quiet,
               "--align auto found no clear echo delay in the first 10 s: the far "
               "end is not shifted");
        return 0;
    }
    return est.samples >= 0 ? std::max(0L, est.samples - kAlignLeadSamples)
                            : est.samples - kAlignLeadSamples;
}

// The far end as the echo follows it, for choosing the frames ERLE is measured over.
std::vector<int16_t> far_as_echo_follows(std::vector<int16_t> far, const ProcessReport &rep,
                                         long applied) {
    if (rep.estimated.found) {
        shift_far_end(far, rep.far_channels, rep.estimated.samples - applied);
    }
    return far;
}

// Runs the library over every frame and returns the output; fills frames and speed.
std::vector<int16_t> run_library(const std::vector<int16_t> &near, std::vector<int16_t> &far,
                                 const ProcessRequest &rq, ProcessReport &rep) {
    std::vector<int16_t> out = near;
    // Declared first so it is undone last: the bar is cleared before library lines appear.
    const LibraryOutput quiet_stdout;
    ProgressBar bar(!rq.quiet, rep.duration_s, rep.frames);
    AecRunner runner({rep.processing_rate, rep.near_channels, rep.far_channels}, rq.tuning);
    const auto start = std::chrono::steady_clock::now();
    runner.process(out, far, rq.mode, [&bar](size_t done) { bar.update(done); });
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    const double audio_s = static_cast<double>(rep.frames) * kFrame / rep.processing_rate;
    rep.speed_x = took.count() > 0.0 ? audio_s / took.count() : 0.0;
    return out;
}

}  // namespace

Pcm16 to_processing_rate(const Audio &a, int rate) {
    if (a.rate == rate) {
        return to_pcm16(a.samples);
    }
    return to_pcm16(
        resample(a.samples, a.channels, a.rate, rate, frames_at_rate(a.frames(), a.rate, rate)));
}

size_t pad_to_frames(std::vector<int16_t> &x, int channels) {
    const size_t step = static_cast<size_t>(kFrame) * channels;
    const size_t frames = (x.size() + step - 1) / step;
    x.resize(frames * step, 0);
    return frames;
}

Inputs read_inputs(const ProcessRequest &rq, ProcessReport &rep) {
    Inputs in{read_audio(rq.near_path, rq.raw_near ? &*rq.raw_near : nullptr),
              read_audio(rq.far_path, rq.raw_far ? &*rq.raw_far : nullptr)};
    check_inputs(in.near, in.far, rq);
    rep.request = rq;
    rep.input_rate = in.near.rate;
    rep.processing_rate =
        is_supported_rate(in.near.rate) ? in.near.rate : nearest_supported_rate(in.near.rate);
    rep.near_channels = in.near.channels;
    rep.far_channels = in.far.channels;
    rep.duration_s = static_cast<double>(in.near.frames()) / in.near.rate;
    return in;
}

Prepared prepare_inputs(const Inputs &in, const ProcessRequest &rq, ProcessReport &rep) {
    if (rep.processing_rate != rep.input_rate) {
        notice(rq.quiet, "processing at " + std::to_string(rep.processing_rate) +
                             " Hz: resampled from " + std::to_string(rep.input_rate) +
                             " Hz and back");
    }
    Pcm16 n16 = to_processing_rate(in.near, rep.processing_rate);
    Pcm16 f16 = to_processing_rate(in.far, rep.processing_rate);
    rep.clipped_near = n16.clipped;
    rep.clipped_far = f16.clipped;
    Prepared p;
    p.samples_per_channel = n16.samples.size() / rep.near_channels;
    rep.far_padded_s = fit_far_length(f16.samples, rep.far_channels, p.samples_per_channel,
                                      rep.processing_rate, rq.quiet);
    const long shift = far_shift(rq, n16.samples, f16.samples, rep);
    shift_far_end(f16.samples, rep.far_channels, shift);
    rep.far_delay_applied_ms = 1000.0 * static_cast<double>(shift) / rep.processing_rate;

    rep.frames = pad_to_frames(n16.samples, rep.near_channels);
    pad_to_frames(f16.samples, rep.far_channels);
    p.far_measured = far_as_echo_follows(f16.samples, rep, shift);
    p.near = std::move(n16.samples);
    p.far = std::move(f16.samples);
    return p;
}

Erle recording_erle(const Prepared &p, const std::vector<int16_t> &output, Mode mode,
                    const ProcessReport &rep, const std::vector<Span> *near_talk) {
    const testkit::ErleInput sig = {
        .near = p.near,
        .out = output,
        .far = p.far_measured,
        .layout = {rep.processing_rate, rep.near_channels, rep.far_channels},
        .delay = testkit::output_delay(mode)};
    return testkit::erle(sig, near_talk);
}

ProcessReport run_process(const ProcessRequest &rq) {
    refuse_overwrite(rq);
    ProcessReport rep;
    const Inputs in = read_inputs(rq, rep);
    const FileKind fallback = rq.raw_near ? FileKind::kRaw : FileKind::kWav;
    AudioWriter writer(rq.out_path, kind_for_path(rq.out_path, fallback), in.near.rate,
                       in.near.channels);
    Prepared p = prepare_inputs(in, rq, rep);
    std::vector<int16_t> out = run_library(p.near, p.far, rq, rep);

    rep.saturated_frames = saturated_frames(p.near, rep.near_channels);
    rep.erle = recording_erle(p, out, rq.mode, rep, rq.near_talk ? &*rq.near_talk : nullptr);

    out.resize(p.samples_per_channel * rep.near_channels);
    if (rep.processing_rate != rep.input_rate) {
        Pcm16 back = to_pcm16(resample(from_pcm16(out), rep.near_channels, rep.processing_rate,
                                       rep.input_rate, in.near.frames()));
        rep.clipped_output = back.clipped;
        out = std::move(back.samples);
    }
    writer.write(out);
    writer.commit();
    return rep;
}

}  // namespace qtool
