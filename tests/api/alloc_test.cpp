// The library allocates nothing on the frame path, nothing in set-up but the message-level
// file's buffer, and frees that before the call returns. A malloc interposer counts.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qen_aec.h"
#include "scratch.h"

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
}

namespace {

bool g_counting = false;
long g_allocations = 0;
void *g_live[256];
int g_live_count = 0;

[[maybe_unused]] void track(void *p) {
    if (g_counting && p != nullptr) {
        ++g_allocations;
        if (g_live_count < 256) {
            g_live[g_live_count++] = p;
        }
    }
}

[[maybe_unused]] void untrack(void *p) {
    for (int i = 0; i < g_live_count; ++i) {
        if (g_live[i] == p) {
            g_live[i] = g_live[--g_live_count];
            return;
        }
    }
}

}  // namespace

#if !defined(__SANITIZE_ADDRESS__)
extern "C" void *malloc(size_t n) {
    void *p = __libc_malloc(n);
    track(p);
    return p;
}
extern "C" void *calloc(size_t n, size_t size) {
    void *p = __libc_calloc(n, size);
    track(p);
    return p;
}
extern "C" void *realloc(void *old, size_t n) {
    untrack(old);
    void *p = __libc_realloc(old, n);
    track(p);
    return p;
}
extern "C" void free(void *p) {
    untrack(p);
    __libc_free(p);
}
#endif

namespace {

struct Counted {
    long allocations;
    int outstanding;
};

template <typename F>
Counted count(F &&fn) {
    g_allocations = 0;
    g_live_count = 0;
    g_counting = true;
    fn();
    g_counting = false;
    return {g_allocations, g_live_count};
}

class Allocations : public testing::Test {
protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
        GTEST_SKIP() << "the sanitizer owns malloc";
#endif
        // libc allocates stdout's buffer on the first write: the one allocation outside the
        // library that a printed message could otherwise be blamed for. Take it now.
        printf("warming up stdout\n");
        fflush(stdout);
    }
    qtest::TempDir dir_;
    qtest::ScopedEnv dml_{"DML_PATH", dir_.write_file("level.json", "{\"debug_level\": 7}")};
    qtest::ScopedEnv dump_{"AUDIO_AEC_DUMP", std::nullopt};
};

TEST_F(Allocations, SetupCallsFreeWhatTheyTakeBeforeReturning) {
    unsigned int size = 0;
    Counted c = count([&] { size = QenAec_GetBufferSize(); });
    EXPECT_GT(c.allocations, 0) << "the message-level file should have been read";
    EXPECT_EQ(c.outstanding, 0);

    std::vector<unsigned char> block(size);
    AudioAecInit init = {128, 2, 2, QEN_AEC_SAMPLE_RATE_48000};
    AEC_HANDLE h = nullptr;
    c = count([&] { h = QenAec_Init(reinterpret_cast<char *>(block.data()), &init); });
    ASSERT_NE(h, nullptr);
    EXPECT_GT(c.allocations, 0);
    EXPECT_EQ(c.outstanding, 0);

    c = count([&] { h = QenAec_Reset(reinterpret_cast<char *>(block.data()), &init); });
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(c.outstanding, 0);

    unsigned short major = 0, minor = 0;
    c = count([&] { QenAec_GetAPIVersion(&major, &minor); });
    EXPECT_EQ(c.outstanding, 0);
    c = count([&] { QenAec_Free(h); });
    EXPECT_EQ(c.allocations, 0);
}

// With no message-level file to read, set-up allocates nothing at all: the FFT plan is
// built in the caller's block, whichever engine the target runs.
TEST_F(Allocations, SetupWithoutAMessageFileAllocatesNothing) {
    qtest::ScopedEnv no_file{"DML_PATH", dir_.path() + "/absent.json"};
    std::vector<unsigned char> block(QenAec_GetBufferSize());
    AudioAecInit init = {128, 2, 2, QEN_AEC_SAMPLE_RATE_48000};
    AEC_HANDLE h = nullptr;
    Counted c = count([&] { h = QenAec_Init(reinterpret_cast<char *>(block.data()), &init); });
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(c.allocations, 0);
    c = count([&] { h = QenAec_Reset(reinterpret_cast<char *>(block.data()), &init); });
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(c.allocations, 0);
    QenAec_Free(h);
}

TEST_F(Allocations, AThousandFramesAllocateNothing) {
    std::vector<unsigned char> block(QenAec_GetBufferSize());
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    AEC_HANDLE h = QenAec_Init(reinterpret_cast<char *>(block.data()), &init);
    ASSERT_NE(h, nullptr);
    AudioAecConfig cfg = {QEN_AEC_TRUE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};
    ASSERT_EQ(QenAec_Config(h, &cfg), ALGO_AEC_RET_SUCCESS);
    std::vector<short> near(128), far(128);
    unsigned x = 1;
    const Counted c = count([&] {
        for (int f = 0; f < 1000; ++f) {
            for (int i = 0; i < 128; ++i) {
                x = x * 1664525u + 1013904223u;
                far[i] = static_cast<short>((x >> 20) - 2048);
                near[i] = static_cast<short>(far[i] / 2 + ((x >> 8) & 63));
            }
            QenAec_Run(h, near.data(), far.data());
            QenAec_ADF_Run(h, near.data(), far.data());
            QenAec_NLP_Run(h, near.data());
        }
    });
    EXPECT_EQ(c.allocations, 0);
    QenAec_Free(h);
}

}  // namespace
