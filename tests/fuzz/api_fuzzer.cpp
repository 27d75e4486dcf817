// libFuzzer target for the public API: bytes decode into calls on two blocks (records biased to
// the boundaries, pathological frames, null pointers). A model predicts every code; the harness
// aborts on a surprise, a refused call that touched its block or buffer, a touched far end,
// differing stereo outputs, or (ASan poisoning) an access outside a block.
#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#endif
#ifndef ASAN_POISON_MEMORY_REGION
#define ASAN_POISON_MEMORY_REGION(addr, size) ((void)(addr), (void)(size))
#endif

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qen_aec.h"

namespace {

// Bytes in order; zeros once used up.
struct Input {
    const uint8_t *p, *end;
    bool empty() const { return p == end; }
    uint8_t u8() { return p == end ? 0 : *p++; }
    uint16_t u16() {
        const uint8_t lo = u8();
        return static_cast<uint16_t>(lo | u8() << 8);
    }
    uint32_t u32() {
        const uint16_t lo = u16();
        return lo | static_cast<uint32_t>(u16()) << 16;
    }
    // One byte picks an entry of `table`; past its end, 4 raw bytes follow.
    template <size_t N>
    uint32_t pick(const uint32_t (&table)[N]) {
        const uint8_t c = u8();
        return c < N ? table[c] : u32();
    }
};

FILE *g_report = nullptr;  // the real stderr; the library's own output goes to /dev/null

void check(bool ok, const char *what, long got, long want, int line) {
    if (!ok) {
        fprintf(g_report, "api_fuzzer: %s (line %d): got 0x%lx, expected 0x%lx\n", what, line, got,
                want);
        abort();
    }
}
#define EXPECT_CODE(got, want) check((got) == (want), #got, long(got), long(want), __LINE__)
#define EXPECT_TRUE(cond) check(cond, #cond, 0, 1, __LINE__)

constexpr ALGO_AEC_RET kMinusOne = static_cast<ALGO_AEC_RET>(-1);
constexpr size_t kGuard = 4096;
constexpr int kMaxFrames = 12;  // per input: enough for a divergence reset and what follows

// kRefused: an Init or Reset refused it. kFreed still holds a real instance.
enum class State { kBlank, kLive, kFreed, kRefused };

struct Slot {
    unsigned char *block = nullptr;
    State state = State::kBlank;
    AudioAecInit rec{};  // of the last successful Init or Reset
};

unsigned int g_size = 0;
Slot g_slots[2];

AudioAecInit init_record(Input &in) {
    static const uint32_t points[] = {128, 0, 127, 129, 256};
    static const uint32_t channels[] = {1, 2, 0, 3, 0xFFFFFFFFu};
    static const uint32_t rates[] = {16000, 8000, 32000, 48000, 0, 44100, 16001};
    AudioAecInit r;
    r.point_number = in.pick(points);
    r.nearend_channel = in.pick(channels);
    r.farend_channel = in.pick(channels);
    r.sample_rate = static_cast<QEN_AEC_SAMPLE_RATE>(in.pick(rates));
    return r;
}

bool valid(const AudioAecInit &r) {
    const uint32_t rate = r.sample_rate;
    return r.point_number == 128 && (r.nearend_channel == 1 || r.nearend_channel == 2) &&
           (r.farend_channel == 1 || r.farend_channel == 2) &&
           (rate == 8000 || rate == 16000 || rate == 32000 || rate == 48000);
}

AudioAecConfig config_record(Input &in) {
    static const uint32_t switches[] = {0, 1, 2, 0xFFFFFFFFu};
    static const uint32_t edges[] = {4, 6, 36, 49, 50, 51, 1, 126, 127, 0, 10, 9};
    static const uint32_t intensities[] = {5, 4, 10, 0, 25, 26, 16, 0xFFFFFFFFu};
    AudioAecConfig c;
    c.comfort_noise_enable = static_cast<QEN_AEC_BOOL>(in.pick(switches));
    c.delay_sample = static_cast<int16_t>(in.u16());
    for (uint32_t &e : c.suppression_mode_freq) {
        e = in.pick(edges);
    }
    for (uint32_t &v : c.suppression_mode_intensity) {
        v = in.pick(intensities);
    }
    return c;
}

ALGO_AEC_RET expected_config(const AudioAecConfig &c) {
    const uint32_t *e = c.suppression_mode_freq, *v = c.suppression_mode_intensity;
    return static_cast<uint32_t>(c.comfort_noise_enable) > 1 ? ALGO_AEC_RET_INVALID_COMFORT_NOISE
           : std::any_of(v, v + 7, [](uint32_t x) { return x > 25; })
               ? ALGO_AEC_RET_INVALID_SUP_MODE
           : e[0] == 0 || e[5] > 126 || !std::is_sorted(e, e + 6) ? ALGO_AEC_RET_INVALID_SUP_BAND
                                                                  : ALGO_AEC_RET_SUCCESS;
}

enum Kind { kRaw, kConstant, kSquare, kAlternating, kImpulse, kNoise, kSilence, kEcho };

struct Source {
    int kind;
    int16_t level;
    uint8_t param;
    std::vector<int16_t> raw;  // kRaw: repeated to fill the frames
};

Source source(Input &in) {
    Source s;
    s.kind = in.u8() % 8;
    s.level = static_cast<int16_t>(in.u16());
    s.param = in.u8();
    for (int i = 0; s.kind == kRaw && i < 1 + s.param % 64; ++i) {
        s.raw.push_back(static_cast<int16_t>(in.u16()));
    }
    return s;
}

// Sample t (counted over the burst); `far` is the far-end sample, for the echo.
int16_t sample(const Source &s, uint32_t t, int16_t far) {
    switch (s.kind) {
        case kRaw:
            return s.raw[t % s.raw.size()];
        case kConstant:
            return s.level;
        case kSquare:
            return (t / (1 + s.param)) % 2 ? -32768 : 32767;
        case kAlternating:
            return t % 2 ? -32768 : 32767;
        case kImpulse:
            return t % 128 == s.param % 128u ? s.level : 0;
        case kNoise: {
            uint32_t x = (t + 1) * 2654435761u ^ (static_cast<uint32_t>(s.level) << 8) ^ s.param;
            x ^= x >> 15;
            x *= 2246822519u;
            return static_cast<int16_t>(x ^ x >> 13);
        }
        case kSilence:
            return 0;
        default:
            return static_cast<int16_t>(far * (s.param % 8 + 1) / 9);  // learnable
    }
}

// Init (or Reset, on a live instance only); variant 1 passes no block, 2 no record.
void setup(Input &in, Slot &s, int variant, bool reset) {
    AudioAecInit rec = init_record(in);
    char *buffer = variant == 1 ? nullptr : reinterpret_cast<char *>(s.block);
    AudioAecInit *prec = variant == 2 ? nullptr : &rec;
    const std::vector<unsigned char> before(s.block, s.block + g_size);
    const AEC_HANDLE h = (reset ? QenAec_Reset : QenAec_Init)(buffer, prec);
    if (buffer != nullptr && prec != nullptr && valid(rec) && (!reset || s.state == State::kLive)) {
        EXPECT_TRUE(h == s.block);
        s.state = State::kLive;
        s.rec = rec;
        return;
    }
    EXPECT_TRUE(h == nullptr);
    if (!reset) {  // a refused Init leaves the block as it was
        EXPECT_TRUE(memcmp(before.data(), s.block, g_size) == 0);
    }
    if (buffer != nullptr && prec != nullptr && (!reset || s.state == State::kLive)) {
        s.state = State::kRefused;  // Reset refuses after its release steps
    }
}

bool same(const AudioAecConfig &a, const AudioAecConfig &b) {
    return a.comfort_noise_enable == b.comfort_noise_enable && a.delay_sample == b.delay_sample &&
           memcmp(a.suppression_mode_freq, b.suppression_mode_freq, 24) == 0 &&
           memcmp(a.suppression_mode_intensity, b.suppression_mode_intensity, 28) == 0;
}

void config(Input &in, Slot &s, bool null_handle, bool null_record) {
    AudioAecConfig cfg = config_record(in), before{}, after{};
    AudioAecInit rec{};
    const AEC_HANDLE h = null_handle ? nullptr : s.block;
    if (h != nullptr) {
        EXPECT_CODE(QenAec_GetConfig(h, &rec, &before), ALGO_AEC_RET_SUCCESS);
        EXPECT_TRUE(memcmp(&rec, &s.rec, sizeof rec) == 0);
    }
    const ALGO_AEC_RET want = h == nullptr || null_record ? ALGO_AEC_RET_INVALID_HANDLE
                              : s.state != State::kLive   ? ALGO_AEC_RET_INVALID_CALLING
                                                          : expected_config(cfg);
    EXPECT_CODE(QenAec_Config(h, null_record ? nullptr : &cfg), want);
    if (h != nullptr) {  // all or nothing
        EXPECT_CODE(QenAec_GetConfig(h, &rec, &after), ALGO_AEC_RET_SUCCESS);
        EXPECT_TRUE(same(after, want == ALGO_AEC_RET_SUCCESS ? cfg : before));
    }
}

// `count` frames through Run, ADF_Run, NLP_Run or ADF_Run then NLP_Run (`mode` 0..3).
void frames(Input &in, Slot &s, bool null_handle, int mode, int count, int *budget) {
    const AEC_HANDLE h = null_handle ? nullptr : s.block;
    const uint32_t nch = s.rec.nearend_channel, fch = s.rec.farend_channel;
    const Source near_src = source(in), far_src = source(in);
    for (int f = 0; f<count && * budget> 0; ++f, --*budget) {
        std::vector<short> near(128 * nch), far(128 * fch);  // exact sizes, for ASan
        for (uint32_t i = 0; i < 128; ++i) {
            const uint32_t t = static_cast<uint32_t>(f) * 128 + i;
            const int16_t x = sample(far_src, t, 0);
            for (uint32_t ch = 0; ch < fch; ++ch) {
                far[i * fch + ch] = x;
            }
            for (uint32_t ch = 0; ch < nch; ++ch) {
                near[i * nch + ch] = sample(near_src, t + ch * 7, x);
            }
        }
        const std::vector<short> near_in = near, far_in = far;
        const ALGO_AEC_RET ok = h == nullptr ? kMinusOne : ALGO_AEC_RET_SUCCESS;
        ALGO_AEC_RET got = ALGO_AEC_RET_SUCCESS;
        if (mode != 2) {
            got = (mode == 0 ? QenAec_Run : QenAec_ADF_Run)(h, near.data(), far.data());
            EXPECT_CODE(got, s.state == State::kLive ? ok : kMinusOne);
        }
        if (mode >= 2) {  // NLP_Run tests no flag
            got = QenAec_NLP_Run(h, near.data());
            EXPECT_CODE(got, ok);
        }
        EXPECT_TRUE(got == ALGO_AEC_RET_SUCCESS || near == near_in);  // refused: untouched
        EXPECT_TRUE(far == far_in);
        for (uint32_t i = 0; got == ALGO_AEC_RET_SUCCESS && nch == 2 && i < 128; ++i) {
            EXPECT_TRUE(near[2 * i] == near[2 * i + 1]);
        }
    }
}

void step(Input &in, int *budget) {
    const uint8_t op = in.u8();
    Slot &s = g_slots[(op >> 4) & 1];
    const int variant = op >> 5;  // 7: null handle, 6: null record, 3: null block
    const bool null_handle = variant == 7, null_record = variant == 6;
    const int setup_variant = variant % 4 == 3 ? 1 : variant == 6 ? 2 : 0;
    const AEC_HANDLE h = null_handle ? nullptr : s.block;
    const bool usable = s.state == State::kLive || s.state == State::kFreed || null_handle;
    const int code = op & 0x0F;
    if (code == 0) {
        EXPECT_CODE(QenAec_GetBufferSize(), g_size);
    } else if (code == 1) {
        setup(in, s, setup_variant, false);
    } else if (code == 11) {
        if (s.state == State::kLive || null_handle) {
            setup(in, s, setup_variant, true);
        }
    } else if (!usable || code == 3 || code >= 13) {
        return;  // versions and GetConfig's refusals: the message table pins them
    } else if (code == 2) {
        config(in, s, null_handle, null_record);
    } else if (code == 4) {
        const uint32_t ratios[] = {1, 5, 10, 0, 11, 0xFFFFFFFFu}, r = in.pick(ratios);
        EXPECT_CODE(QenAec_SetRecursiveRatio(h, r),
                    h == nullptr              ? ALGO_AEC_RET_INVALID_HANDLE
                    : s.state != State::kLive ? ALGO_AEC_RET_INVALID_CALLING
                    : r == 0 || r > 10        ? ALGO_AEC_RET_INVALID_RECURSIVE_RATIO
                                              : ALGO_AEC_RET_SUCCESS);
    } else if (code == 5) {
        EXPECT_CODE(QenAec_SetHandleId(h, static_cast<int>(in.u32())),
                    h == nullptr ? ALGO_AEC_RET_INVALID_HANDLE : ALGO_AEC_RET_SUCCESS);
    } else if (code <= 9) {
        frames(in, s, null_handle, code - 6, 1, budget);
    } else if (code == 10) {
        const int mode = in.u8() & 3;
        frames(in, s, null_handle, mode, 1 + in.u8() % 32, budget);
    } else {  // 12
        EXPECT_CODE(QenAec_Free(h), h == nullptr ? kMinusOne : ALGO_AEC_RET_SUCCESS);
        if (h != nullptr) {
            s.state = State::kFreed;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_report = stderr;
    stdout = fopen("/dev/null", "w");
    stderr = stdout;
    unsetenv("AUDIO_AEC_DUMP");
    setenv("DML_PATH", "/nonexistent/qenaec-fuzz.json", 0);  // the same mask everywhere
    g_size = QenAec_GetBufferSize();
    for (Slot &s : g_slots) {  // each block between poisoned guards
        const size_t total = kGuard + (g_size + kGuard - 1) / kGuard * kGuard + kGuard;
        auto *arena = static_cast<unsigned char *>(aligned_alloc(kGuard, total));
        s.block = arena + kGuard;
        ASAN_POISON_MEMORY_REGION(arena, kGuard);
        ASAN_POISON_MEMORY_REGION(s.block + g_size, total - kGuard - g_size);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    for (Slot &s : g_slots) {
        memset(s.block, 0, g_size);
        s.state = State::kBlank;
        s.rec = AudioAecInit{};
    }
    Input in{data, data + size};
    int budget = kMaxFrames;
    while (!in.empty()) {
        step(in, &budget);
    }
    for (Slot &s : g_slots) {
        if (s.state == State::kLive) {
            QenAec_Free(s.block);
        }
    }
    return 0;
}
