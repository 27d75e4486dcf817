// The real-FFT wrapper: the packed layout around a real-FFT engine, the plan in the caller's
// area, the messages. Two engines, one per target:
// - ARMv7 (the device): Ne10's NEON transforms, ne10_fft_r2c_1d_float32_neon and
//   ne10_fft_c2r_1d_float32_neon, installed directly: Ne10's own start-up chooses by reading
//   the kernel's CPU description, which under an emulator describes the host, and every ARMv7
//   target here has NEON. The inverse carries its own 1/N. Ne10's allocator would take the
//   plan from malloc, so the plan is built in place instead: the record at the area's start,
//   then, laid out as Ne10 lays out its one block, the factors (Ne10's ne10_factor), the
//   twiddles of the N/2-point complex transform and the super-twiddles that split it into
//   the real spectrum (computed exactly as Ne10's allocator computes them, so the plan is
//   Ne10's own bit for bit), and the engine's scratch. Nothing is allocated, not even at
//   set-up. The rest of the area holds an aligned stage for signals the engine cannot take
//   where they are (see signal_stage).
// - Elsewhere (the x86-64 host): KissFFT, both plans (forward and inverse) in the area; the
//   wrapper applies the inverse's 1/N in its entry point.
// The two engine entry points are process-wide: every instance set-up stores them (always
// the same two functions) while other instances may be transforming on other threads, so
// both sides use relaxed atomic accesses.
#include "dsp/fft.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "kernels/vector.h"

#if defined(QENAEC_FFT_NE10)
#include <NE10_macros.h>
#include <dsp/NE10_fft.h>
#else
#include <kissfft/kiss_fftr.h>

struct fft_plan_t {
    kiss_fftr_cfg forward;
    kiss_fftr_cfg inverse;
};

static_assert(sizeof(ne10_fft_cpx_float32_t) == sizeof(kiss_fft_cpx));
#endif

namespace {

template <typename Fn>
Fn load_entry(Fn &entry) {
    return std::atomic_ref<Fn>(entry).load(std::memory_order_relaxed);
}

template <typename Fn>
void store_entry(Fn &entry, Fn fn) {
    std::atomic_ref<Fn>(entry).store(fn, std::memory_order_relaxed);
}

#if defined(QENAEC_FFT_NE10)

// Ne10 aligns the arrays after its record to 8 bytes.
constexpr uintptr_t kPlanAlign = 8;

// Builds Ne10's plan for `nfft` points in `bytes` bytes at `area`; null when it does not fit
// or Ne10 cannot factor the length.
ne10_fft_r2c_cfg_float32_t build_plan(void *area, size_t bytes, int nfft) {
    const int ncfft = nfft / 2;
    const uintptr_t start = reinterpret_cast<uintptr_t>(area);
    const uintptr_t arrays =
        (start + sizeof(ne10_fft_r2c_state_float32_t) + kPlanAlign - 1) & ~(kPlanAlign - 1);
    const size_t needed = (arrays - start) + sizeof(ne10_int32_t) * 2 * NE10_MAXFACTORS +
                          sizeof(ne10_fft_cpx_float32_t) * (ncfft + ncfft / 2 + nfft) +
                          sizeof(float) * nfft;
    if (ncfft < 2 || needed > bytes) {
        return nullptr;
    }
    // The record, then Ne10's arrays, then the wrapper's signal stage.
    auto *plan = static_cast<ne10_fft_r2c_state_float32_t *>(area);
    plan->ncfft = ncfft;
    plan->factors = reinterpret_cast<ne10_int32_t *>(arrays);
    plan->twiddles =
        reinterpret_cast<ne10_fft_cpx_float32_t *>(plan->factors + 2 * NE10_MAXFACTORS);
    plan->super_twiddles = plan->twiddles + ncfft;
    plan->buffer = plan->super_twiddles + ncfft / 2;
    if (ne10_factor(ncfft, plan->factors, NE10_FACTOR_DEFAULT) != NE10_OK) {
        return nullptr;
    }
    // factors[0] is the number of stages and factors[1] the first stage's stride; each stage s
    // has its radix at 2s and its sub-length at 2s + 1. The first stage needs no twiddles.
    // Phases in float and cosf/sinf, as Ne10 computes them.
    const ne10_int32_t *factors = plan->factors;
    ne10_fft_cpx_float32_t *tw = plan->twiddles;
    int fstride = factors[1];
    for (int stage = factors[0] - 1; stage > 0; --stage) {
        const int radix = factors[2 * stage];
        const int m = factors[2 * stage + 1];
        fstride /= radix;
        for (int j = 0; j < m; ++j) {
            for (int k = 1; k < radix; ++k) {
                const float phase = -2 * NE10_PI * fstride * k * j / ncfft;
                tw[m * (k - 1) + j] = {cosf(phase), sinf(phase)};
            }
        }
        tw += m * (radix - 1);
    }
    for (int i = 0; i < ncfft / 2; ++i) {
        const float phase = -NE10_PI * (static_cast<float>(i + 1) / ncfft + 0.5f);
        plan->super_twiddles[i] = {cosf(phase), sinf(phase)};
    }
    return plan;
}

// Ne10's NEON transforms read and write the real signal as 8-byte pairs and fault on one that
// is only float-aligned, as the caller's block and the instance's arrays may be. Such a signal
// goes through the 8-byte aligned stage after the engine's scratch in the plan area.
float *signal_stage(ne10_fft_r2c_cfg_float32_t plan) {
    return reinterpret_cast<float *>(plan->buffer + 2 * plan->ncfft);
}

bool pair_aligned(const float *p) {
    return (reinterpret_cast<uintptr_t>(p) & 7) == 0;
}

// The engine on the caller's arrays: the complex side may sit anywhere, the real side goes
// through the stage when it is not 8-byte aligned. Neither entry point writes its input (the
// inverse's is declared writable only).
void run_forward(ne10_fft_r2c_cfg_float32_t plan, const float *signal,
                 ne10_fft_cpx_float32_t *spectrum) {
    const float *in = signal;
    if (!pair_aligned(signal)) {
        float *stage = signal_stage(plan);
        copy_floats(stage, signal, kAecFft);
        in = stage;
    }
    load_entry(ne10_fft_r2c_1d_float32)(spectrum, const_cast<float *>(in), plan);
}

void run_inverse(ne10_fft_r2c_cfg_float32_t plan, const ne10_fft_cpx_float32_t *spectrum,
                 float *signal) {
    auto *in = const_cast<ne10_fft_cpx_float32_t *>(spectrum);
    if (pair_aligned(signal)) {
        load_entry(ne10_fft_c2r_1d_float32)(signal, in, plan);
        return;
    }
    float *out = signal_stage(plan);
    load_entry(ne10_fft_c2r_1d_float32)(out, in, plan);
    copy_floats(signal, out, kAecFft);
}

#else

constexpr size_t kPlanAlign = 16;

size_t align_up(size_t n) {
    return (n + kPlanAlign - 1) & ~(kPlanAlign - 1);
}

void kiss_r2c(ne10_fft_cpx_float32_t *out, const float *in, ne10_fft_r2c_cfg_float32_t cfg) {
    kiss_fftr(cfg->forward, in, reinterpret_cast<kiss_fft_cpx *>(out));
}

void kiss_c2r(float *out, const ne10_fft_cpx_float32_t *in, ne10_fft_r2c_cfg_float32_t cfg) {
    kiss_fftri(cfg->inverse, reinterpret_cast<const kiss_fft_cpx *>(in), out);
    // The engine carries the 1/N of the inverse; 0.25 / (N / 4) is exact for N = kAecFft.
    const int n = kAecFft;
    const float scale = 0.25f / static_cast<float>(n / 4);
    for (int t = 0; t < n; ++t) {
        out[t] *= scale;
    }
}

// Builds the two plans one after the other in `bytes` bytes at `area`; null when they do
// not fit (the engine reports what it needs instead of writing past the end).
ne10_fft_r2c_cfg_float32_t build_plan(void *area, size_t bytes, int nfft) {
    auto *base = static_cast<unsigned char *>(area);
    size_t used = align_up(sizeof(fft_plan_t));
    if (used > bytes) {
        return nullptr;
    }
    fft_plan_t *plan = reinterpret_cast<fft_plan_t *>(base);
    for (int inverse = 0; inverse < 2; ++inverse) {
        size_t len = bytes - used;
        kiss_fftr_cfg cfg = kiss_fftr_alloc(nfft, inverse, base + used, &len);
        if (cfg == nullptr) {
            return nullptr;
        }
        (inverse ? plan->inverse : plan->forward) = cfg;
        used += align_up(len);
        if (used > bytes) {
            used = bytes;
        }
    }
    return plan;
}

void run_forward(ne10_fft_r2c_cfg_float32_t plan, const float *signal,
                 ne10_fft_cpx_float32_t *spectrum) {
    load_entry(ne10_fft_r2c_1d_float32)(spectrum, signal, plan);
}

void run_inverse(ne10_fft_r2c_cfg_float32_t plan, const ne10_fft_cpx_float32_t *spectrum,
                 float *signal) {
    load_entry(ne10_fft_c2r_1d_float32)(signal, spectrum, plan);
}

#endif

void warn_null(const FFTHandle_t *handle) {
    printf("[Audio] input Null in Ne10_workingBufPtr->fft_Ne10_cfg\n");
    printf("address = %p is NULL in %s\n", static_cast<void *>(handle->fft_Ne10_cfg), "VEL_rdft");
}

}  // namespace

#if !defined(QENAEC_FFT_NE10)
ne10_fft_r2c_fn ne10_fft_r2c_1d_float32 = nullptr;
ne10_fft_c2r_fn ne10_fft_c2r_1d_float32 = nullptr;
#endif

unsigned int FFT_GetBufferSize(unsigned int nfft) {
    return 18 * nfft + 96 * (nfft / 32 + 1) + 556;
}

void fft_init(FFTHandle_t *handle) {
    fft_init_in(handle, handle != nullptr ? FFT_GetBufferSize(handle->fftSize) : 0);
}

void fft_init_in(FFTHandle_t *handle, unsigned int area_bytes) {
    if (handle == nullptr) {
        printf("[FFT]The handle is NULL\n");
        return;
    }
    if (handle->is_fft_init == 1) {
        printf("[FFT]Ne10 has init already\n");
        return;
    }
    if (handle->fft_Ne10_cfg == nullptr) {
        printf("[FFT] Please assigned the begining address about FFT workingbuffer in Init.\n");
        return;
    }
    void *area = handle->fft_Ne10_cfg;
    memset(area, 0, area_bytes);
    ne10_fft_r2c_cfg_float32_t plan = build_plan(area, area_bytes, handle->fftSize);
    if (plan == nullptr) {
        printf("[Audio] memory malloc failed\n");
        return;
    }
    handle->fft_Ne10_cfg = plan;
    handle->is_fft_init = 1;
}

void VEL_rdft(FFTHandle_t *handle, int n, int isgn, float *a, int *ip, float *w) {
    if (handle == nullptr) {
        printf("[Audio] Ne10_workingBufPtr is Null in fft\n");
        return;
    }
    const size_t bins_bytes = sizeof(ne10_fft_cpx_float32_t) * static_cast<size_t>(n / 2 + 1);
    const bool missing =
        handle->fft_Ne10_cfg == nullptr || a == nullptr || ip == nullptr || w == nullptr;
    // The check only warns; the transform runs on whatever is there, except that a missing
    // plan or data array would crash the engine, so those two alone skip it.
    const bool runnable = handle->fft_Ne10_cfg != nullptr && a != nullptr;
    if (isgn == 1) {
        if (missing) {
            warn_null(handle);
        }
        if (runnable) {
            run_forward(handle->fft_Ne10_cfg, a, handle->fft_Ne10_out);
            memcpy(a, handle->fft_Ne10_out, bins_bytes);
        }
    } else if (isgn == -1) {
        if (a != nullptr) {
            memcpy(handle->fft_Ne10_out, a, bins_bytes);
            memset(a, 0, sizeof(float) * static_cast<size_t>(n + 2));
        }
        if (missing) {
            warn_null(handle);
        }
        if (runnable) {
            run_inverse(handle->fft_Ne10_cfg, handle->fft_Ne10_out, a);
        }
    }
}

void fft_forward_to(const fft_ctx_t &fft, const float *signal, float *spectrum) {
    run_forward(fft.handle->fft_Ne10_cfg, signal,
                reinterpret_cast<ne10_fft_cpx_float32_t *>(spectrum));
}

void fft_inverse_to(const fft_ctx_t &fft, const float *spectrum, float *signal) {
    run_inverse(fft.handle->fft_Ne10_cfg,
                reinterpret_cast<const ne10_fft_cpx_float32_t *>(spectrum), signal);
}

void fft_Free(FFTHandle_t *handle) {
    if (handle == nullptr) {
        printf("handle is NULL in FFT_Free!\t\n");
        return;
    }
    if (handle->is_fft_init != 0) {
        handle->is_fft_init = 0;
    }
}

namespace {

int ne10_init_dsp() {
#if defined(QENAEC_FFT_NE10)
    store_entry(ne10_fft_r2c_1d_float32, &ne10_fft_r2c_1d_float32_neon);
    store_entry(ne10_fft_c2r_1d_float32, &ne10_fft_c2r_1d_float32_neon);
#else
    store_entry(ne10_fft_r2c_1d_float32, &kiss_r2c);
    store_entry(ne10_fft_c2r_1d_float32, &kiss_c2r);
#endif
    return NE10_OK;
}

}  // namespace

ne10_result_t ne10_init(void) {
    if (ne10_init_dsp() != NE10_OK) {
        printf("init Ne10 DSP fail\n");
        printf("ERROR: init dsp failed\n");
        return NE10_ERR;
    }
    return NE10_OK;
}
