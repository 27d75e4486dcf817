// The library allocates nothing on the frame path, nothing in set-up but the message-level
// file's buffer, and frees that before the call returns. A malloc interposer counts.
#include <gtest/gtest.h>

#include <cstdio>
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
std::vector<void *> g_live;  // outstanding allocations while counting

[[maybe_unused]] void *track(void *p, void *old) {
    if (g_counting) {
        g_counting = false;  // the vector allocates too
        std::erase(g_live, old);
        if (p != nullptr) {
            ++g_allocations;
            g_live.push_back(p);
        }
        g_counting = true;
    }
    return p;
}

}  // namespace

#if !defined(__SANITIZE_ADDRESS__)
extern "C" void *malloc(size_t n) {
    return track(__libc_malloc(n), nullptr);
}
extern "C" void *calloc(size_t n, size_t size) {
    return track(__libc_calloc(n, size), nullptr);
}
extern "C" void *realloc(void *old, size_t n) {
    return track(__libc_realloc(old, n), old);
}
extern "C" void free(void *p) {
    track(nullptr, p);
    __libc_free(p);
}
#endif

namespace {

// Allocations made by `fn`, and how many of them it left outstanding.
template <typename F>
std::pair<long, size_t> count(F &&fn) {
    g_live.clear();
    g_allocations = 0;
    g_counting = true;
    fn();
    g_counting = false;
    return {g_allocations, g_live.size()};
}

class Allocations : public testing::Test {
protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
        GTEST_SKIP() << "the sanitizer owns malloc";
#endif
        printf("stdout's buffer is allocated on the first write: now, not in a count\n");
        fflush(stdout);
    }
    qtest::TempDir dir_;
    qtest::ScopedEnv dml_{"DML_PATH", dir_.write_file("level.json", "{\"debug_level\": 1}")};
    qtest::ScopedEnv dump_{"AUDIO_AEC_DUMP", std::nullopt};
};

// Set-up frees what it takes (the message-level file's buffer) before returning; with no file to
// read (none, or an empty one) it allocates nothing: the FFT plan lives in the caller's block.
TEST_F(Allocations, SetUpFreesWhatItTakesAndWithoutAMessageFileTakesNothing) {
    for (const std::string &file :
         {dir_.path("level.json"), dir_.path("absent.json"), dir_.write_file("e.json", "")}) {
        qtest::ScopedEnv dml{"DML_PATH", file};
        const bool reads = file.ends_with("level.json");
        unsigned int size = 0;
        auto c = count([&] { size = QenAec_GetBufferSize(); });
        EXPECT_EQ(c.first > 0, reads) << file;
        EXPECT_EQ(c.second, 0u);
        std::vector<char> block(size);
        AudioAecInit init = {128, 2, 2, QEN_AEC_SAMPLE_RATE_48000};
        AEC_HANDLE h = nullptr;
        c = count([&] { h = QenAec_Init(block.data(), &init); });
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(c.first > 0, reads) << file;
        EXPECT_EQ(c.second, 0u);
        c = count([&] { h = QenAec_Reset(block.data(), &init); });
        EXPECT_TRUE(reads || c.first == 0) << file;
        EXPECT_EQ(c.second, 0u);
        EXPECT_EQ(count([&] { QenAec_Free(h); }).first, 0);
    }
}

TEST_F(Allocations, AThousandFramesAllocateNothing) {
    std::vector<char> block(QenAec_GetBufferSize());
    AudioAecInit init = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
    const AEC_HANDLE h = QenAec_Init(block.data(), &init);
    AudioAecConfig cfg = {QEN_AEC_TRUE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};
    ASSERT_EQ(QenAec_Config(h, &cfg), ALGO_AEC_RET_SUCCESS);
    short near[128], far[128];
    unsigned x = 1;
    const auto c = count([&] {
        for (int f = 0; f < 1000; ++f) {
            for (int i = 0; i < 128; ++i) {
                x = x * 1664525u + 1013904223u;
                far[i] = static_cast<short>((x >> 20) - 2048);
                near[i] = static_cast<short>(far[i] / 2 + ((x >> 8) & 63));
            }
            QenAec_Run(h, near, far);
            QenAec_ADF_Run(h, near, far);
            QenAec_NLP_Run(h, near);
        }
    });
    EXPECT_EQ(c.first, 0);
    QenAec_Free(h);
}

}  // namespace
