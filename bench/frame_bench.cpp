// Per-frame cost of the three run functions at every rate and for the (1,1) and (2,2)
// layouts, each kernel and the FFT wrapper on its own, the compute floor of one Run frame,
// the time-domain NLMS baseline, and the cost of silence after speech. Inputs are the
// speech-like echo scenes of testkit/signals.h; every instance has comfort noise on, as the public
// header's lifecycle example configures it. After the runs a summary prints the ratios the
// performance targets are stated in (see bench/README.md).
#include <benchmark/benchmark.h>

#include <kissfft/kiss_fftr.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "dsp/comfort_noise.h"
#include "dsp/fft.h"
#include "instance.h"
#include "kernels/spectral.h"
#include "core/nlp.h"
#include "nlms.h"
#include "quiet.h"
#include "testkit/erle.h"
#include "testkit/frame_loop.h"
#include "testkit/signals.h"

namespace {

constexpr int kFrame = static_cast<int>(testkit::kFrame);

// One instance in its own block, configured as the header's example does (comfort noise on
// unless asked otherwise).
class Instance {
public:
    Instance(int rate, int near_ch, int far_ch, bool comfort_noise = true) {
        bench::without_stdout([&] {
            aec_.emplace(testkit::Layout{rate, near_ch, far_ch},
                         testkit::Settings{.comfort_noise = comfort_noise});
        });
    }
    AEC_HANDLE handle() const { return aec_->handle(); }
    aec_workingbuf_t *buf() const { return static_cast<aec_workingbuf_t *>(handle()); }

private:
    std::optional<testkit::Instance> aec_;
};

const testkit::Recording &scene(int rate, int near_ch, int far_ch) {
    static std::map<std::tuple<int, int, int>, testkit::Recording> cache;
    const auto key = std::make_tuple(rate, near_ch, far_ch);
    auto it = cache.find(key);
    if (it == cache.end()) {
        testkit::Scenario s = testkit::speech_scenario(rate, near_ch, far_ch);
        s.seconds = 3.0;
        s.path_ms = 20.0;
        it = cache.emplace(key, testkit::speech_echo(s)).first;
    }
    return it->second;
}

// Walks a scene frame by frame, cycling; the near-end frame is copied first because the run
// functions write their output over it.
class FrameFeed {
public:
    FrameFeed(const testkit::Recording &sig, int near_ch, int far_ch)
        : sig_(sig), nc_(near_ch), fc_(far_ch), near_(kFrame * near_ch) {}
    short *near() { return near_.data(); }
    short *far() { return const_cast<short *>(sig_.far.data()) + frame_ * kFrame * fc_; }
    void next() {
        frame_ = (frame_ + 1) % sig_.frames();
        memcpy(near_.data(), sig_.near.data() + frame_ * kFrame * nc_,
               sizeof(short) * kFrame * nc_);
    }

private:
    const testkit::Recording &sig_;
    int nc_, fc_;
    size_t frame_ = 0;
    std::vector<short> near_;
};

void warm_up(const Instance &inst, FrameFeed *feed, int frames) {
    for (int f = 0; f < frames; ++f) {
        feed->next();
        QenAec_Run(inst.handle(), feed->near(), feed->far());
    }
}

void set_real_time_counter(benchmark::State &state, int rate) {
    // Seconds of audio processed per second: the multiple of real time.
    state.counters["xRT"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * kFrame / rate, benchmark::Counter::kIsRate);
}

enum class RunFn { kRun, kAdf, kNlp };

void bm_run(benchmark::State &state, RunFn fn, int rate, int nc, int fc) {
    Instance inst(rate, nc, fc);
    FrameFeed feed(scene(rate, nc, fc), nc, fc);
    warm_up(inst, &feed, rate / kFrame);
    for (auto _ : state) {
        feed.next();
        if (fn == RunFn::kRun) {
            QenAec_Run(inst.handle(), feed.near(), feed.far());
        } else if (fn == RunFn::kAdf) {
            QenAec_ADF_Run(inst.handle(), feed.near(), feed.far());
        } else {
            // Only the nonlinear stage is timed; the linear stage prepares each frame.
            QenAec_ADF_Run(inst.handle(), feed.near(), feed.far());
            const auto t0 = std::chrono::steady_clock::now();
            QenAec_NLP_Run(inst.handle(), feed.near());
            const auto t1 = std::chrono::steady_clock::now();
            state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
        }
        benchmark::DoNotOptimize(feed.near()[0]);
    }
    set_real_time_counter(state, rate);
}

// Silence after speech: the scene fades into exact zeros, then three minutes of silence let
// every recursive state decay as far as it will before the timed frames (more silence).
void bm_silence(benchmark::State &state, bool silence) {
    const int rate = 16000;
    Instance inst(rate, 1, 1);
    testkit::Scenario s = testkit::speech_scenario();
    s.seconds = 4.0;
    testkit::Recording sig = testkit::speech_echo(s);
    FrameFeed speech(sig, 1, 1);
    warm_up(inst, &speech, static_cast<int>(sig.frames()));
    std::vector<short> zeros(kFrame, 0), near(kFrame, 0);
    if (silence) {
        testkit::fade_to_silence(sig, 0, 1.0);
        FrameFeed fade(sig, 1, 1);
        warm_up(inst, &fade, static_cast<int>(sig.frames()));
        for (int f = 0; f < 180 * rate / kFrame; ++f) {
            QenAec_Run(inst.handle(), near.data(), zeros.data());
        }
    }
    for (auto _ : state) {
        if (silence) {
            near.assign(kFrame, 0);
            QenAec_Run(inst.handle(), near.data(), zeros.data());
        } else {
            speech.next();
            QenAec_Run(inst.handle(), speech.near(), speech.far());
        }
    }
    set_real_time_counter(state, rate);
}

// An instance that has run one second of speech, so every spectrum holds realistic values.
struct WarmInstance {
    Instance inst{16000, 1, 1};
    WarmInstance() {
        FrameFeed feed(scene(16000, 1, 1), 1, 1);
        warm_up(inst, &feed, 16000 / kFrame);
    }
    aec_workingbuf_t *buf() { return inst.buf(); }
};

void register_kernels() {
    using benchmark::State;
    benchmark::RegisterBenchmark("kernel/PowerSpectrum", [](State &state) {
        WarmInstance w;
        float ps[129];
        for (auto _ : state) {
            VelFunAec_PowerSpectrum(w.buf()->ef, ps, 258);
            benchmark::DoNotOptimize(ps);
        }
    });
    benchmark::RegisterBenchmark("kernel/SpectralMulAccum", [](State &state) {
        WarmInstance w;
        float acc[258];
        for (auto _ : state) {
            VelFunc_SpectralMulAccum(w.buf()->mdf_workingbuff.X, w.buf()->aec_inst.wfBuf, acc, 258,
                                     8);
            benchmark::DoNotOptimize(acc);
        }
    });
    benchmark::RegisterBenchmark("kernel/WeightedSpectralMulConj", [](State &state) {
        WarmInstance w;
        MdfEchoState *st = &w.buf()->mdf_workingbuff;
        float prod[258];
        for (auto _ : state) {
            VelFunc_WeightedSpectralMulConj(st->power_1, st->prop[0], st->X + 258, w.buf()->ef,
                                            prod, 258);
            benchmark::DoNotOptimize(prod);
        }
    });
    benchmark::RegisterBenchmark("kernel/SmoothPSD", [](State &state) {
        WarmInstance w;
        for (auto _ : state) {
            VelFuncAec_SmoothPSD(w.buf(), 1);
            benchmark::ClobberMemory();
        }
    });
    // The two in-place kernels get their input back each time (a 387-float copy, included).
    benchmark::RegisterBenchmark("kernel/OverdriveAndSuppress", [](State &state) {
        WarmInstance w;
        float hnl[129], efw[258];
        memcpy(hnl, w.buf()->hNl, sizeof hnl);
        memcpy(efw, w.buf()->efw, sizeof efw);
        for (auto _ : state) {
            memcpy(w.buf()->hNl, hnl, sizeof hnl);
            memcpy(w.buf()->efw, efw, sizeof efw);
            VelFuncAec_OverdriveAndSuppress(w.buf(), 0.3f, 1);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("kernel/ComfortNoise", [](State &state) {
        WarmInstance w;
        float efw[258];
        memcpy(efw, w.buf()->efw, sizeof efw);
        for (auto _ : state) {
            memcpy(w.buf()->efw, efw, sizeof efw);
            ComfortNoise_Process(w.buf()->efw, w.buf()->aec_inst.noisePow, w.buf()->hNl, 256,
                                 0.0002f, -14);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("kernel/InnerProduct128", [](State &state) {
        WarmInstance w;
        float r;
        for (auto _ : state) {
            ne10_InnerProduct(w.buf()->aec_inst.eBuf, w.buf()->aec_inst.yBuf, &r, 128);
            benchmark::DoNotOptimize(r);
        }
    });
    // The wrapper works in place; each call starts from the same 258 floats (copy included).
    for (int isgn : {1, -1}) {
        const std::string name = isgn == 1 ? "fft/VEL_rdft forward" : "fft/VEL_rdft inverse";
        benchmark::RegisterBenchmark(name.c_str(), [isgn](State &state) {
            WarmInstance w;
            aec_workingbuf_t *b = w.buf();
            float input[258], a[258];
            memcpy(input, isgn == 1 ? b->aec_inst.eBuf : b->efw, sizeof input);
            for (auto _ : state) {
                memcpy(a, input, sizeof a);
                VEL_rdft(&b->FFT_workingBuff, 256, isgn, a, b->fft_aec_ip, b->fft_aec_wfft);
                benchmark::DoNotOptimize(a);
            }
        });
    }
}

// The same engine plans the library builds, out of place: nothing but the transforms.
struct Engine {
    kiss_fftr_cfg forward = kiss_fftr_alloc(256, 0, nullptr, nullptr);
    kiss_fftr_cfg inverse = kiss_fftr_alloc(256, 1, nullptr, nullptr);
    ~Engine() {
        kiss_fftr_free(forward);
        kiss_fftr_free(inverse);
    }
};

// Work of one Run frame at 16 kHz mono with comfort noise on, and nothing else:
// forward transforms: far-end pair and its windowed pair (2), near-end noise floor (1),
// adaptive filter: far-end ring, error and echo spectra (3), gradient constraint of two
// partitions (2), nonlinear stage: near end, error, echo (3);
// inverse transforms: foreground and background outputs (2), gradient constraint (2),
// synthesis (1); 2 multiply-accumulates over 8 partitions, 8 weighted conjugate products and
// 3 power spectra.
constexpr int kFloorForward = 11;
constexpr int kFloorInverse = 5;

void bm_floor(benchmark::State &state) {
    WarmInstance w;
    Engine engine;
    aec_workingbuf_t *b = w.buf();
    MdfEchoState *st = &b->mdf_workingbuff;
    float time_in[256], time_out[256], acc[258], prod[258], ps[129];
    kiss_fft_cpx spectrum[129];
    memcpy(time_in, b->aec_inst.eBuf, sizeof time_in);
    for (auto _ : state) {
        for (int k = 0; k < kFloorForward; ++k) {
            kiss_fftr(engine.forward, time_in, spectrum);
        }
        for (int k = 0; k < kFloorInverse; ++k) {
            kiss_fftri(engine.inverse, spectrum, time_out);
        }
        for (int k = 0; k < 2; ++k) {
            SpectralMulAccum_Neon(st->X, b->aec_inst.wfBuf, acc, 258, 8);
        }
        for (int j = 0; j < 8; ++j) {
            WeightedSpectralMulConj_Neon(st->power_1, st->prop[j], st->X + 258 * (j + 1), b->ef,
                                         prod, 258);
        }
        for (int k = 0; k < 3; ++k) {
            PowerSpectrum_Neon(b->ef, ps, 258);
        }
        benchmark::DoNotOptimize(time_out);
        benchmark::DoNotOptimize(acc);
        benchmark::DoNotOptimize(prod);
        benchmark::DoNotOptimize(ps);
    }
    set_real_time_counter(state, 16000);
}

void register_engine() {
    benchmark::RegisterBenchmark("fft/engine forward", [](benchmark::State &state) {
        Engine engine;
        float in[256];
        kiss_fft_cpx out[129];
        for (int t = 0; t < 256; ++t) {
            in[t] = static_cast<float>(std::sin(0.1 * t) * 1000);
        }
        for (auto _ : state) {
            kiss_fftr(engine.forward, in, out);
            benchmark::DoNotOptimize(out);
        }
    });
    benchmark::RegisterBenchmark("fft/engine inverse", [](benchmark::State &state) {
        Engine engine;
        float in[256], out[256];
        kiss_fft_cpx spectrum[129];
        for (int t = 0; t < 256; ++t) {
            in[t] = static_cast<float>(std::sin(0.1 * t) * 1000);
        }
        kiss_fftr(engine.forward, in, spectrum);
        for (auto _ : state) {
            kiss_fftri(engine.inverse, spectrum, out);
            benchmark::DoNotOptimize(out);
        }
    });
}

void bm_nlms(benchmark::State &state, bench::NlmsCanceller::Sum sum) {
    const testkit::Recording &sig = scene(16000, 1, 1);
    bench::NlmsCanceller nlms(sum);
    std::vector<int16_t> out(kFrame);
    size_t frame = 0;
    for (auto _ : state) {
        nlms.process(sig.near.data() + frame * kFrame, sig.far.data() + frame * kFrame, out.data(),
                     kFrame);
        frame = (frame + 1) % sig.frames();
        benchmark::DoNotOptimize(out.data());
    }
    set_real_time_counter(state, 16000);
}

// Seconds of CPU time per frame by benchmark name (the median when repetitions are asked
// for); CPU time, because on a shared machine the wall clock also counts time spent
// descheduled. Manually timed benchmarks have only their measured time.
class Collector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs) {
            const std::string name = r.run_name.str();
            const bool manual = name.find("/manual_time") != std::string::npos;
            const double t = manual ? r.GetAdjustedRealTime() : r.GetAdjustedCPUTime();
            const double seconds = t / benchmark::GetTimeUnitMultiplier(r.time_unit);
            if (r.run_type == Run::RT_Aggregate ? r.aggregate_name == "median"
                                                : times_.count(name) == 0) {
                times_[name] = seconds;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    double time(const std::string &name) const {
        auto it = times_.find(name);
        return it == times_.end() ? NAN : it->second;
    }

private:
    std::map<std::string, double> times_;
};

struct Erle {
    double run_db, run_cn_db, nlms_db;
};

// ERLE of Run and of the baseline on the same 20 s of speech-like echo, over the last 10 s.
// Echo removal is compared with comfort noise off: with it on, the noise the library adds on
// purpose counts as residual, which is also printed.
Erle measure_erle() {
    testkit::Scenario s = testkit::speech_scenario();
    s.seconds = 20.0;
    const testkit::Recording sig = testkit::speech_echo(s);
    const auto last_10_s = [&](const std::vector<int16_t> &out, testkit::Mode mode) {
        return testkit::erle_between(
                   {sig.near, out, sig.far, sig.layout, testkit::output_delay(mode)}, 10.0, 20.0)
            .db;
    };
    const auto run = [&](bool comfort_noise) {
        const Instance inst(s.rate, 1, 1, comfort_noise);
        std::vector<int16_t> out = sig.near;
        testkit::run(inst.handle(), sig.layout, out, sig.far, testkit::Mode::kFull);
        return last_10_s(out, testkit::Mode::kFull);
    };
    std::vector<int16_t> theirs(sig.near.size());
    bench::NlmsCanceller nlms;
    nlms.process(sig.near.data(), sig.far.data(), theirs.data(), static_cast<int>(sig.near.size()));
    // The baseline's error is current, as the linear stage's.
    return {run(false), run(true), last_10_s(theirs, testkit::Mode::kLinear)};
}

void print_summary(const Collector &c, const Erle &erle) {
    const double run = c.time("Run/16000/1,1");
    const double floor = c.time("floor/Run frame 16000/1,1");
    const double nlms = c.time("baseline/NLMS 1024 taps textbook 16000/1,1");
    const double nlms8 = c.time("baseline/NLMS 1024 taps partial sums 16000/1,1");
    const double speech = c.time("denormal/Run speech");
    const double silence = c.time("denormal/Run silence after speech");
    const double frame_seconds = kFrame / 16000.0;
    printf("\nSummary, 16 kHz mono, speech-like input            figure      target\n");
    printf("  Run per frame (ns)                      %12.0f\n", run * 1e9);
    printf("  Run, multiple of real time              %12.0f      >= 1000\n", frame_seconds / run);
    printf("  nonlinear stage, Run - ADF_Run (ns)     %12.0f\n",
           (run - c.time("ADF_Run/16000/1,1")) * 1e9);
    printf("  floor per frame (ns)                    %12.0f\n", floor * 1e9);
    printf("  Run / floor                             %12.2f      <= 1.5\n", run / floor);
    printf("  NLMS textbook per frame (ns)            %12.0f\n", nlms * 1e9);
    printf("  NLMS textbook / Run                     %12.2f      >= 3\n", nlms / run);
    printf("  NLMS partial sums per frame (ns)        %12.0f\n", nlms8 * 1e9);
    printf("  NLMS partial sums / Run                 %12.2f\n", nlms8 / run);
    printf("  ERLE Run, comfort noise off (dB)        %12.1f\n", erle.run_db);
    printf("  ERLE Run, comfort noise on (dB)         %12.1f\n", erle.run_cn_db);
    printf("  ERLE NLMS (dB)                          %12.1f\n", erle.nlms_db);
    printf("  ERLE Run - NLMS (dB)                    %12.1f      >= 20\n",
           erle.run_db - erle.nlms_db);
    printf("  silence / speech per frame              %12.2f      <= 1.2\n", silence / speech);
    printf("  QenAec_GetBufferSize() (bytes)          %12u\n", QenAec_GetBufferSize());
}

}  // namespace

int main(int argc, char **argv) {
    bench::quiet_library_messages();
    const char *fn_names[] = {"Run", "ADF_Run", "NLP_Run"};
    for (int fn = 0; fn < 3; ++fn) {
        for (int rate : {8000, 16000, 32000, 48000}) {
            for (int ch : {1, 2}) {
                const std::string name = std::string(fn_names[fn]) + "/" + std::to_string(rate) +
                                         "/" + std::to_string(ch) + "," + std::to_string(ch);
                auto *b = benchmark::RegisterBenchmark(name.c_str(), bm_run, static_cast<RunFn>(fn),
                                                       rate, ch, ch);
                if (fn == 2) {
                    b->UseManualTime();
                }
            }
        }
    }
    register_kernels();
    register_engine();
    benchmark::RegisterBenchmark("floor/Run frame 16000/1,1", bm_floor);
    benchmark::RegisterBenchmark("baseline/NLMS 1024 taps textbook 16000/1,1", bm_nlms,
                                 bench::NlmsCanceller::Sum::kTextbook);
    benchmark::RegisterBenchmark("baseline/NLMS 1024 taps partial sums 16000/1,1", bm_nlms,
                                 bench::NlmsCanceller::Sum::kPartial8);
    benchmark::RegisterBenchmark("denormal/Run speech", bm_silence, false);
    benchmark::RegisterBenchmark("denormal/Run silence after speech", bm_silence, true);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    const Erle erle = measure_erle();
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    print_summary(collector, erle);
    benchmark::Shutdown();
    return 0;
}
