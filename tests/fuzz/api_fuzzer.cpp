// libFuzzer target for the public API. The input bytes decode into a sequence of calls on two
// instance blocks (any order, any record, any value, any frame, null pointers where the API
// accepts them). A small model of each instance predicts every return code; the harness
// aborts on any code it did not predict, on a refused Init that touched the block, on a stereo
// output whose channels differ, and (through ASan poisoning) on any access outside the
// QenAec_GetBufferSize() bytes of a block.
#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#endif
#ifndef ASAN_POISON_MEMORY_REGION
#define ASAN_POISON_MEMORY_REGION(addr, size) ((void)(addr), (void)(size))
#endif

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_input.h"
#include "qen_aec.h"

namespace {

constexpr int kSlots = 2;
constexpr size_t kGuard = 4096;
// Frames per input: enough to reach the divergence reset with a hostile far end (one frame of
// alternating full scale does it) and what follows it, few enough to keep executions short.
constexpr int kMaxFrames = 12;

constexpr ALGO_AEC_RET kMinusOne = static_cast<ALGO_AEC_RET>(-1);

FILE *g_report = nullptr;  // the real stderr; the library's own chatter goes to /dev/null

[[noreturn]] void fail(const char *what, long got, long want, int line) {
    fprintf(g_report, "api_fuzzer: %s (line %d): got 0x%lx, expected 0x%lx\n", what, line, got,
            want);
    fflush(g_report);
    abort();
}

#define EXPECT_CODE(got, want)                                                \
    do {                                                                      \
        const long g_ = static_cast<long>(got), w_ = static_cast<long>(want); \
        if (g_ != w_)                                                         \
            fail(#got, g_, w_, __LINE__);                                     \
    } while (0)
#define EXPECT_TRUE(cond)                \
    do {                                 \
        if (!(cond))                     \
            fail(#cond, 0, 1, __LINE__); \
    } while (0)

// kBlank: zeroed, never initialised. kRefused: an Init or Reset refused it; only Init may
// touch it again. kLive and kFreed hold a real instance (Free keeps the memory valid).
enum class State { kBlank, kLive, kFreed, kRefused };

struct Slot {
    unsigned char *block = nullptr;
    State state = State::kBlank;
    AudioAecInit rec{};  // of the last successful Init or Reset
};

unsigned int g_size = 0;
Slot g_slots[kSlots];

// One arena per slot: the block with a poisoned guard before and after it.
void allocate_blocks() {
    g_size = QenAec_GetBufferSize();
    for (Slot &s : g_slots) {
        const size_t total = kGuard + ((g_size + kGuard - 1) / kGuard) * kGuard + kGuard;
        auto *arena = static_cast<unsigned char *>(aligned_alloc(kGuard, total));
        s.block = arena + kGuard;
        ASAN_POISON_MEMORY_REGION(arena, kGuard);
        ASAN_POISON_MEMORY_REGION(s.block + g_size, total - kGuard - g_size);
    }
}

bool valid_init(const AudioAecInit &r) {
    const bool rate = r.sample_rate == 8000 || r.sample_rate == 16000 || r.sample_rate == 32000 ||
                      r.sample_rate == 48000;
    return r.point_number == 128 && (r.nearend_channel == 1 || r.nearend_channel == 2) &&
           (r.farend_channel == 1 || r.farend_channel == 2) && rate;
}

ALGO_AEC_RET expected_config(const AudioAecConfig &c) {
    if (c.comfort_noise_enable != 0 && c.comfort_noise_enable != 1) {
        return ALGO_AEC_RET_INVALID_COMFORT_NOISE;
    }
    for (uint32_t v : c.suppression_mode_intensity) {
        if (v > 25) {
            return ALGO_AEC_RET_INVALID_SUP_MODE;
        }
    }
    for (int k = 0; k < 6; ++k) {
        const uint32_t e = c.suppression_mode_freq[k];
        if (e == 0 || e >= 127 || (k > 0 && e < c.suppression_mode_freq[k - 1])) {
            return ALGO_AEC_RET_INVALID_SUP_BAND;
        }
    }
    return ALGO_AEC_RET_SUCCESS;
}

bool same_config(const AudioAecConfig &a, const AudioAecConfig &b) {
    return a.comfort_noise_enable == b.comfort_noise_enable && a.delay_sample == b.delay_sample &&
           memcmp(a.suppression_mode_freq, b.suppression_mode_freq,
                  sizeof a.suppression_mode_freq) == 0 &&
           memcmp(a.suppression_mode_intensity, b.suppression_mode_intensity,
                  sizeof a.suppression_mode_intensity) == 0;
}

bool holds_instance(const Slot &s) {
    return s.state == State::kLive || s.state == State::kFreed;
}

AEC_HANDLE handle_of(const Slot &s, bool null) {
    return null ? nullptr : static_cast<AEC_HANDLE>(s.block);
}

void do_init(fuzz::Input &in, Slot &s, int variant) {
    AudioAecInit rec = fuzz::init_record(in);
    char *buffer = variant == 1 ? nullptr : reinterpret_cast<char *>(s.block);
    AudioAecInit *prec = variant == 2 ? nullptr : &rec;
    std::vector<unsigned char> before(s.block, s.block + g_size);
    const AEC_HANDLE h = QenAec_Init(buffer, prec);
    if (buffer != nullptr && prec != nullptr && valid_init(rec)) {
        EXPECT_TRUE(h == s.block);
        s.state = State::kLive;
        s.rec = rec;
        return;
    }
    EXPECT_TRUE(h == nullptr);
    // A refused Init leaves the block as it was, and the harness never uses it again.
    EXPECT_TRUE(memcmp(before.data(), s.block, g_size) == 0);
    s.state = State::kRefused;
}

void do_reset(fuzz::Input &in, Slot &s, int variant) {
    AudioAecInit rec = fuzz::init_record(in);
    char *buffer = variant == 1 ? nullptr : reinterpret_cast<char *>(s.block);
    AudioAecInit *prec = variant == 2 ? nullptr : &rec;
    const AEC_HANDLE h = QenAec_Reset(buffer, prec);
    if (buffer == nullptr || prec == nullptr || s.state != State::kLive) {
        EXPECT_TRUE(h == nullptr);
        return;
    }
    if (valid_init(rec)) {
        EXPECT_TRUE(h == s.block);
        s.rec = rec;
    } else {
        // Refused after its release steps: the instance must be initialised again.
        EXPECT_TRUE(h == nullptr);
        s.state = State::kRefused;
    }
}

void do_config(fuzz::Input &in, Slot &s, bool null_handle, bool null_record) {
    AudioAecConfig cfg = fuzz::config_record(in);
    AudioAecInit rb_init{};
    AudioAecConfig before{}, after{};
    const AEC_HANDLE h = handle_of(s, null_handle);
    if (h != nullptr) {
        EXPECT_CODE(QenAec_GetConfig(h, &rb_init, &before), ALGO_AEC_RET_SUCCESS);
    }
    ALGO_AEC_RET want = ALGO_AEC_RET_SUCCESS;
    if (h == nullptr || null_record) {
        want = ALGO_AEC_RET_INVALID_HANDLE;
    } else if (s.state != State::kLive) {
        want = ALGO_AEC_RET_INVALID_CALLING;
    } else {
        want = expected_config(cfg);
    }
    EXPECT_CODE(QenAec_Config(h, null_record ? nullptr : &cfg), want);
    if (h == nullptr) {
        return;
    }
    EXPECT_CODE(QenAec_GetConfig(h, &rb_init, &after), ALGO_AEC_RET_SUCCESS);
    // All or nothing: an accepted record reads back whole, a refused one changes nothing.
    EXPECT_TRUE(same_config(after, want == ALGO_AEC_RET_SUCCESS ? cfg : before));
}

void do_get_config(Slot &s, bool null_handle, bool null_record) {
    AudioAecInit rec{};
    AudioAecConfig cfg{};
    const AEC_HANDLE h = handle_of(s, null_handle);
    const ALGO_AEC_RET want =
        h == nullptr || null_record ? ALGO_AEC_RET_INVALID_HANDLE : ALGO_AEC_RET_SUCCESS;
    EXPECT_CODE(QenAec_GetConfig(h, &rec, null_record ? nullptr : &cfg), want);
    if (want == ALGO_AEC_RET_SUCCESS) {
        EXPECT_TRUE(memcmp(&rec, &s.rec, sizeof rec) == 0);
    }
}

// Runs `count` frames of one kind through Run, ADF_Run, NLP_Run or the ADF+NLP pair.
void do_frames(fuzz::Input &in, Slot &s, bool null_handle, int mode, int count, int *budget) {
    const AEC_HANDLE h = handle_of(s, null_handle);
    const uint32_t nch = s.rec.nearend_channel, fch = s.rec.farend_channel;
    fuzz::FrameSource near_src = fuzz::frame_source(in);
    fuzz::FrameSource far_src = fuzz::frame_source(in);
    for (int f = 0; f<count && * budget> 0; ++f, --*budget) {
        // Exactly sized, so ASan catches a read or write past either frame.
        std::vector<short> near(128 * nch), far(128 * fch);
        fuzz::fill(near_src, far_src, near, far, nch, fch, f);
        const std::vector<short> near_in = near;
        const bool live = s.state == State::kLive;
        ALGO_AEC_RET want = h == nullptr ? kMinusOne : ALGO_AEC_RET_SUCCESS;
        ALGO_AEC_RET got = ALGO_AEC_RET_SUCCESS;
        switch (mode) {
            case 0:
                got = QenAec_Run(h, near.data(), far.data());
                want = live ? want : kMinusOne;
                break;
            case 1:
                got = QenAec_ADF_Run(h, near.data(), far.data());
                want = live ? want : kMinusOne;
                break;
            case 2:
                got = QenAec_NLP_Run(h, near.data());
                break;
            default:
                got = QenAec_ADF_Run(h, near.data(), far.data());
                EXPECT_CODE(got, live ? want : kMinusOne);
                got = QenAec_NLP_Run(h, near.data());
                break;
        }
        EXPECT_CODE(got, want);
        if (got != ALGO_AEC_RET_SUCCESS) {
            // Refused frames read and write nothing.
            EXPECT_TRUE(near == near_in);
        } else if (nch == 2) {
            // The single processed channel goes to both output channels.
            for (int i = 0; i < 128; ++i) {
                EXPECT_TRUE(near[2 * i] == near[2 * i + 1]);
            }
        }
    }
}

void do_versions() {
    unsigned short year = 0, date = 0, time = 1, major = 0, minor = 0;
    EXPECT_CODE(QenAec_GetLibVersion(&year, &date, &time), ALGO_AEC_RET_SUCCESS);
    EXPECT_TRUE(year == 0x2024 && date == 0x0314 && time == 0);
    EXPECT_CODE(QenAec_GetAPIVersion(&major, &minor), ALGO_AEC_RET_SUCCESS);
    EXPECT_TRUE(major == 1 && minor == 3);
}

void step(fuzz::Input &in, int *budget) {
    const uint8_t op = in.u8();
    Slot &s = g_slots[(op >> 4) & 1];
    // The top bits pick the null-pointer variants; a null handle is always allowed.
    const int variant = op >> 5;
    const bool null_handle = variant == 7;
    const bool null_record = variant == 6;
    const bool usable = holds_instance(s) || null_handle;
    switch (op & 0x0F) {
        case 0:
            EXPECT_CODE(QenAec_GetBufferSize(), g_size);
            break;
        case 1:
            do_init(in, s, variant % 4 == 3 ? 1 : (variant == 6 ? 2 : 0));
            break;
        case 2:
            if (usable)
                do_config(in, s, null_handle, null_record);
            break;
        case 3:
            if (usable)
                do_get_config(s, null_handle, null_record);
            break;
        case 4:
            if (usable) {
                const uint32_t ratio = fuzz::ratio_value(in);
                const AEC_HANDLE h = handle_of(s, null_handle);
                ALGO_AEC_RET want = ALGO_AEC_RET_SUCCESS;
                if (h == nullptr) {
                    want = ALGO_AEC_RET_INVALID_HANDLE;
                } else if (s.state != State::kLive) {
                    want = ALGO_AEC_RET_INVALID_CALLING;
                } else if (ratio == 0 || ratio > 10) {
                    want = ALGO_AEC_RET_INVALID_RECURSIVE_RATIO;
                }
                EXPECT_CODE(QenAec_SetRecursiveRatio(h, ratio), want);
            }
            break;
        case 5:
            if (usable) {
                const AEC_HANDLE h = handle_of(s, null_handle);
                EXPECT_CODE(QenAec_SetHandleId(h, static_cast<int>(in.u32())),
                            h == nullptr ? ALGO_AEC_RET_INVALID_HANDLE : ALGO_AEC_RET_SUCCESS);
            }
            break;
        case 6:
        case 7:
        case 8:
        case 9:
            if (usable)
                do_frames(in, s, null_handle, (op & 0x0F) - 6, 1, budget);
            break;
        case 10:
            if (usable)
                do_frames(in, s, null_handle, in.u8() & 3, 1 + in.u8() % 32, budget);
            break;
        case 11:
            if (s.state == State::kLive || null_handle) {
                do_reset(in, s, variant % 4 == 3 ? 1 : (variant == 6 ? 2 : 0));
            }
            break;
        case 12:
            if (usable) {
                const AEC_HANDLE h = handle_of(s, null_handle);
                EXPECT_CODE(QenAec_Free(h), h == nullptr ? kMinusOne : ALGO_AEC_RET_SUCCESS);
                if (h != nullptr)
                    s.state = State::kFreed;
            }
            break;
        default:
            do_versions();
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The library prints on stdout and its adaptive filter warns on stderr; neither is the
    // harness's business. Sanitizer and libFuzzer reports keep the real stderr.
    g_report = stderr;
    stdout = fopen("/dev/null", "w");
    stderr = stdout;
    unsetenv("AUDIO_AEC_DUMP");
    // No message-level file unless the caller names one: the same mask on every machine.
    setenv("DML_PATH", "/nonexistent/qenaec-fuzz.json", 0);
    allocate_blocks();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    for (Slot &s : g_slots) {
        memset(s.block, 0, g_size);
        s.state = State::kBlank;
        s.rec = AudioAecInit{};
    }
    fuzz::Input in(data, size);
    int budget = kMaxFrames;
    while (!in.empty()) {
        step(in, &budget);
    }
    for (Slot &s : g_slots) {
        if (s.state == State::kLive)
            QenAec_Free(s.block);
    }
    return 0;
}
