// The real-FFT wrapper over KissFFT. Both plans (forward and inverse) are built in the
// caller's plan area; the wrapper converts between the engine's bins and the packed layout
// and applies the inverse's 1/N in the engine entry point. The two engine entry points are
// process-wide: every instance set-up stores them (always the same two functions) while other
// instances may be transforming on other threads, so both sides use relaxed atomic accesses.
#include "dsp/fft.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include <kissfft/kiss_fftr.h>

struct fft_plan_t {
    kiss_fftr_cfg forward;
    kiss_fftr_cfg inverse;
};

static_assert(sizeof(ne10_fft_cpx_float32_t) == sizeof(kiss_fft_cpx));

namespace {

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
fft_plan_t *build_plan(void *area, size_t bytes, int nfft) {
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

template <typename Fn>
Fn load_entry(Fn &entry) {
    return std::atomic_ref<Fn>(entry).load(std::memory_order_relaxed);
}

template <typename Fn>
void store_entry(Fn &entry, Fn fn) {
    std::atomic_ref<Fn>(entry).store(fn, std::memory_order_relaxed);
}

void warn_null(const FFTHandle_t *handle) {
    printf("[Audio] input Null in Ne10_workingBufPtr->fft_Ne10_cfg\n");
    printf("address = %p is NULL in %s\n", static_cast<void *>(handle->fft_Ne10_cfg), "VEL_rdft");
}

}  // namespace

ne10_fft_r2c_fn ne10_fft_r2c_1d_float32 = nullptr;
ne10_fft_c2r_fn ne10_fft_c2r_1d_float32 = nullptr;

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
    fft_plan_t *plan = build_plan(area, area_bytes, handle->fftSize);
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
            load_entry(ne10_fft_r2c_1d_float32)(handle->fft_Ne10_out, a, handle->fft_Ne10_cfg);
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
            load_entry(ne10_fft_c2r_1d_float32)(a, handle->fft_Ne10_out, handle->fft_Ne10_cfg);
        }
    }
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
    store_entry(ne10_fft_r2c_1d_float32, &kiss_r2c);
    store_entry(ne10_fft_c2r_1d_float32, &kiss_c2r);
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
