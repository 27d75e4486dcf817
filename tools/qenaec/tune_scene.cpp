// The tune scene: reading and checking the talker recording, levelling and mixing it into the
// echo recording, the double-talk frames, and the talker's figures.
#include "tune_scene.h"

#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <numbers>

#include "errors.h"

namespace qtool {

namespace {

constexpr double kMinimumTalkerSeconds = 1.0;
// Below this, the loudest part of the talker recording is no talker.
constexpr double kSilentDbfs = -70.0;
constexpr double kMinimumDoubleTalkSeconds = 0.25;
constexpr double kFarFloorDbfs = -50.0;  // the far-end floor of the ERLE rule
constexpr size_t kHop = kSpectrumSize / 2;
constexpr size_t kBand = 8;  // bins per band of the projection

// A Hann-windowed real transform of one frame.
class Spectrum {
public:
    Spectrum() : cfg_(kiss_fftr_alloc(kSpectrumSize, 0, nullptr, nullptr)) {
        if (!cfg_) {
            throw std::bad_alloc();
        }
        for (size_t n = 0; n < kSpectrumSize; ++n) {
            window_[n] = static_cast<float>(
                0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * n / kSpectrumSize));
        }
    }

    // `x` holds kSpectrumSize samples; `out` receives kSpectrumBins values.
    void transform(const float *x, std::complex<float> *out) {
        for (size_t n = 0; n < kSpectrumSize; ++n) {
            in_[n] = x[n] * window_[n];
        }
        kiss_fftr(cfg_.get(), in_, reinterpret_cast<kiss_fft_cpx *>(out));
    }

    // Power of 16-bit rounding noise in one spectrum, over its bins.
    double rounding_noise() const {
        double w2 = 0.0;
        for (float w : window_) {
            w2 += static_cast<double>(w) * w;
        }
        return w2 / 12.0 * kSpectrumBins;
    }

private:
    struct Deleter {
        void operator()(void *p) const { kiss_fftr_free(p); }
    };
    std::unique_ptr<std::remove_pointer_t<kiss_fftr_cfg>, Deleter> cfg_;
    float window_[kSpectrumSize];
    float in_[kSpectrumSize];
};

static_assert(sizeof(std::complex<float>) == sizeof(kiss_fft_cpx));

// Mean over the channels of interleaved samples [first, first + n) per channel.
void channel_mean(const std::vector<int16_t> &x, int channels, size_t first, size_t n, float *out) {
    for (size_t i = 0; i < n; ++i) {
        float sum = 0.0f;
        for (int c = 0; c < channels; ++c) {
            sum += x[(first + i) * channels + c];
        }
        out[i] = sum / channels;
    }
}

std::string fixed(double v, const char *format) {
    char buf[48];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

Audio read_talker(const SceneRequest &rq, const Scene &sc) {
    const ProcessRequest &e = rq.echo;
    const RawLayout *raw = e.raw_near ? &*e.raw_near : nullptr;
    Audio t = read_audio(rq.talker_path, raw);
    const std::string name = "the talker recording '" + rq.talker_path + "'";
    if (t.frames() == 0) {
        throw failure("cannot read '" + rq.talker_path + "': it holds no audio");
    }
    if (t.rate != sc.rep.input_rate) {
        throw failure(name + " is " + std::to_string(t.rate) + " Hz but the near end is " +
                      std::to_string(sc.rep.input_rate) + " Hz: record both at one rate");
    }
    if (t.channels != sc.rep.near_channels) {
        throw failure(name + " has " + std::to_string(t.channels) +
                      " channel(s) but the near end " + std::to_string(sc.rep.near_channels) +
                      ": record the talker with the same microphones");
    }
    const double seconds = static_cast<double>(t.frames()) / t.rate;
    if (seconds < kMinimumTalkerSeconds) {
        throw failure(name + " is " + fixed(seconds, "%.2f") + " s long; at least " +
                      fixed(kMinimumTalkerSeconds, "%.0f") + " s is needed");
    }
    return t;
}

// Interleaved audio repeated or cut to `size` values (whole frames of all channels).
std::vector<int16_t> looped(const std::vector<int16_t> &x, size_t size) {
    std::vector<int16_t> y(size);
    for (size_t i = 0; i < size; ++i) {
        y[i] = x[i % x.size()];
    }
    return y;
}

// Adds the talker to the echo recording; returns the talker as added, mean of the channels.
std::vector<float> mix_talker(Scene &sc, const std::vector<int16_t> &talker) {
    const int ch = sc.rep.near_channels;
    const double gain = std::pow(10.0, sc.talker_gain_db / 20.0);
    sc.mixed = sc.echo.near;
    std::vector<float> added(sc.mixed.size() / ch, 0.0f);
    for (size_t n = 0; n < sc.echo.samples_per_channel; ++n) {
        double sum = 0.0;
        for (int c = 0; c < ch; ++c) {
            const size_t i = n * ch + c;
            const double t = gain * talker[i];
            const double v = std::round(sc.mixed[i] + t);
            sc.clipped_mix += v > 32767.0 || v < -32768.0;
            sc.mixed[i] = static_cast<int16_t>(std::clamp(v, -32768.0, 32767.0));
            sum += t;
        }
        added[n] = static_cast<float>(sum / ch);
    }
    return added;
}

// The spectra whose two halves are both double-talk frames.
void talker_spectra(Scene &sc, const std::vector<float> &added) {
    Spectrum spectrum;
    for (size_t f = 0; f + 1 < sc.double_talk.size(); ++f) {
        if (sc.double_talk[f] && sc.double_talk[f + 1]) {
            sc.talker_starts.push_back(f * kHop);
            sc.talker_spectra.resize(sc.talker_starts.size() * kSpectrumBins);
            spectrum.transform(
                added.data() + f * kHop,
                sc.talker_spectra.data() + (sc.talker_starts.size() - 1) * kSpectrumBins);
        }
    }
}

}  // namespace

Scene make_scene(const SceneRequest &rq) {
    Scene sc;
    const Inputs in = read_inputs(rq.echo, sc.rep);
    const Audio talker_in = read_talker(rq, sc);
    sc.echo = prepare_inputs(in, rq.echo, sc.rep);
    sc.layout = {sc.rep.processing_rate, sc.rep.near_channels, sc.rep.far_channels};
    sc.talker_s = static_cast<double>(talker_in.frames()) / talker_in.rate;
    const int ch = sc.rep.near_channels;
    const int rate = sc.rep.processing_rate;

    const std::vector<int16_t> talker16 = to_processing_rate(talker_in, rate).samples;
    const testkit::Activity own =
        testkit::activity(talker16, ch, rate, -std::numeric_limits<double>::infinity());
    if (own.loud_dbfs < kSilentDbfs || own.seconds <= 0.0) {
        throw failure("the talker recording '" + rq.talker_path +
                      "' is silent (its loud parts are at " + fixed(own.loud_dbfs, "%.1f") +
                      " dBFS)");
    }
    const testkit::Activity echo =
        testkit::activity(sc.echo.near, ch, rate, -std::numeric_limits<double>::infinity());
    sc.talker_gain_db = rq.talker_level_db + echo.level_dbfs - own.level_dbfs;

    std::vector<int16_t> talker = looped(talker16, sc.echo.samples_per_channel * ch);
    const std::vector<float> added = mix_talker(sc, talker);
    pad_to_frames(talker, ch);
    const testkit::Activity talking =
        testkit::activity(talker, ch, rate, -std::numeric_limits<double>::infinity());
    const testkit::Activity far =
        testkit::activity(sc.echo.far_measured, sc.rep.far_channels, rate, kFarFloorDbfs);
    sc.double_talk.assign(talking.active.size(), false);
    size_t count = 0;
    for (size_t f = 0; f < sc.double_talk.size() && f < far.active.size(); ++f) {
        sc.double_talk[f] = talking.active[f] && far.active[f];
        count += sc.double_talk[f];
    }
    sc.double_talk_s = static_cast<double>(count) * kFrame / rate;
    talker_spectra(sc, added);
    // The ERLE frames follow from the inputs alone, so any output tells whether there are
    // enough of them.
    const Erle frames = scene_erle(sc, sc.echo.near, Mode::kFull);
    if (!frames.valid) {
        throw failure(
            "too little of the echo recording has the far end active and the echo dominating "
            "to measure ERLE (" +
            fixed(frames.seconds, "%.2f") + " s; at least 0.25 s is needed)");
    }
    sc.erle_s = frames.seconds;
    if (sc.double_talk_s < kMinimumDoubleTalkSeconds) {
        throw failure("the talker and the far end are active together for only " +
                      fixed(sc.double_talk_s, "%.2f") + " s; at least " +
                      fixed(kMinimumDoubleTalkSeconds, "%.2f") +
                      " s of double talk is needed to measure the talker's loss");
    }
    return sc;
}

TalkerFigures talker_figures(const Scene &sc, const std::vector<int16_t> &mixed_output, Mode mode) {
    const int ch = sc.rep.near_channels;
    const size_t lag = testkit::output_delay(mode);
    const size_t samples = mixed_output.size() / ch;
    Spectrum spectrum;
    std::vector<float> frame(kSpectrumSize);
    std::vector<std::complex<float>> out(kSpectrumBins);
    double talker = 0.0, projected = 0.0, rest = 0.0, spectra = 0.0;
    for (size_t j = 0; j < sc.talker_starts.size(); ++j) {
        const size_t first = sc.talker_starts[j] + lag;
        if (first + kSpectrumSize > samples) {
            break;
        }
        channel_mean(mixed_output, ch, first, kSpectrumSize, frame.data());
        spectrum.transform(frame.data(), out.data());
        const std::complex<float> *t = sc.talker_spectra.data() + j * kSpectrumBins;
        for (size_t lo = 0; lo < kSpectrumBins; lo += kBand) {
            double tt = 0.0, ot = 0.0, oo = 0.0;
            for (size_t k = lo; k < std::min(lo + kBand, kSpectrumBins); ++k) {
                tt += std::norm(t[k]);
                ot += std::real(out[k] * std::conj(t[k]));
                oo += std::norm(out[k]);
            }
            const double gain = tt > 0.0 ? std::max(ot / tt, 0.0) : 0.0;
            talker += tt;
            projected += gain * gain * tt;
            rest += std::max(oo - 2.0 * gain * ot + gain * gain * tt, 0.0);
        }
        spectra += 1.0;
    }
    // The rounding noise of 16-bit samples keeps both figures finite, as in ERLE.
    const double floor = spectra * spectrum.rounding_noise();
    return {10.0 * std::log10((talker + floor) / (projected + floor)),
            10.0 * std::log10((projected + floor) / (rest + floor))};
}

Erle scene_erle(const Scene &sc, const std::vector<int16_t> &echo_output, Mode mode) {
    return recording_erle(sc.echo, echo_output, mode, sc.rep, nullptr);
}

}  // namespace qtool
