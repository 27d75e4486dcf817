// Sliding PCM loader, saturating output stage and clipping warning.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "dsp/stream.h"
#include "fixture.h"

namespace {

postInfo_t info(int length, uint32_t channels, int bias, int flag) {
    return postInfo_t{length, channels, bias, flag};
}

// A buffer whose halves are recognisable: old half 1..128, new half 1001..1128.
std::vector<float> marked_buffer() {
    std::vector<float> b(256);
    for (int i = 0; i < 256; ++i) {
        b[i] = i < 128 ? float(i + 1) : float(1000 + i - 127);
    }
    return b;
}

TEST(LoadStreamf, MonoSlidesThenLoadsWithoutScaling) {
    auto buf = marked_buffer();
    std::vector<short> pcm(128);
    for (int k = 0; k < 128; ++k) {
        pcm[k] = short(k * 250 - 16000);
    }
    postInfo_t p = info(256, 1, 128, 1);
    LoadStreamf(buf.data(), pcm.data(), 1, &p);  // channel index ignored for mono
    for (int k = 0; k < 128; ++k) {
        EXPECT_EQ(buf[k], float(1001 + k)) << k;
        EXPECT_EQ(buf[128 + k], float(pcm[k])) << k;
    }
}

TEST(LoadStreamf, StereoPicksTheChannelAndTwoMeansZero) {
    std::vector<short> pcm(256);
    for (int k = 0; k < 128; ++k) {
        pcm[2 * k] = short(k);            // channel 0
        pcm[2 * k + 1] = short(-10 * k);  // channel 1
    }
    struct Case {
        int counter;
        short sign;  // +1 for channel 0, -10 for channel 1
    };
    for (Case c : {Case{0, 1}, Case{1, -10}, Case{2, 1}}) {
        auto buf = marked_buffer();
        postInfo_t p = info(256, 2, 128, 1);
        LoadStreamf(buf.data(), pcm.data(), c.counter, &p);
        for (int k = 0; k < 128; ++k) {
            ASSERT_EQ(buf[128 + k], float(c.sign * k)) << "counter " << c.counter << " k " << k;
        }
    }
}

TEST(LoadStreamf, StereoSelectorLoadsOnlyTheMatchingChannel) {
    std::vector<short> pcm(256, 7);
    // flag 0 selects channel 0 (counter 0 or 2), so counter 1 is skipped, slide included.
    for (int counter : {0, 1, 2}) {
        auto buf = marked_buffer();
        const auto before = buf;
        postInfo_t p = info(256, 2, 128, 0);
        LoadStreamf(buf.data(), pcm.data(), counter, &p);
        if (counter == 1) {
            EXPECT_EQ(buf, before);
        } else {
            EXPECT_EQ(buf[0], 1001.0f);
            EXPECT_EQ(buf[200], 7.0f);
        }
    }
}

TEST(LoadStreamf, UnsupportedChannelCountLeavesBufferAlone) {
    std::vector<short> pcm(3 * 128, 5);
    for (uint32_t channels : {0u, 3u}) {
        auto buf = marked_buffer();
        const auto before = buf;
        postInfo_t p = info(256, channels, 128, 1);
        LoadStreamf(buf.data(), pcm.data(), 0, &p);
        EXPECT_EQ(buf, before) << channels << " channels";
    }
}

// The second buffer is added before saturating; truncation is toward zero and NaN is silence.
TEST(PostOla, AddsSaturatesAndTruncatesTowardZero) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    float a[10] = {32767.4f, -32768.9f, 1.9f,  -1.9f, 40000.0f,
                   -1e9f,    32766.99f, -0.5f, nan,   32000.0f};
    float b[10] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 1000.0f};
    const short want[10] = {32767, -32768, 1, -1, 32767, -32768, 32766, 0, 0, 32767};
    short out[10] = {};
    postInfo_t p = info(10, 1, 0, 1);
    Post_OLA_Process(a, b, out, &p);
    EXPECT_THAT(out, testing::ElementsAreArray(want));
    b[9] = 0.0f;
    Post_OLA_Process(a, nullptr, out, &p);  // no second buffer
    EXPECT_EQ(out[9], 32000);
}

TEST(PostOla, StereoDuplicationAndChannelOffset) {
    std::vector<float> in(128);
    for (int k = 0; k < 128; ++k) {
        in[k] = float(k * 3 - 100);
    }
    // flag set: both channels receive the sample.
    std::vector<short> out(256, -1);
    postInfo_t p = info(128, 2, 0, 1);
    Post_OLA_Process(in.data(), nullptr, out.data(), &p);
    for (int k = 0; k < 128; ++k) {
        ASSERT_EQ(out[2 * k], short(k * 3 - 100));
        ASSERT_EQ(out[2 * k + 1], out[2 * k]) << k;
    }
    // flag clear, bias 1: only the second channel is written.
    std::vector<short> right(256, -1);
    p = info(128, 2, 1, 0);
    Post_OLA_Process(in.data(), nullptr, right.data(), &p);
    for (int k = 0; k < 128; ++k) {
        ASSERT_EQ(right[2 * k], -1);
        ASSERT_EQ(right[2 * k + 1], short(k * 3 - 100));
    }
}

// `pairs` adjacent equal pairs at the rail in 128 samples: the run is pairs + 1 long.
std::vector<float> clipped(int pairs, float rail) {
    std::vector<float> v(128, 0.0f);
    for (int k = 0; k <= pairs; ++k) {
        v[10 + k] = rail;
    }
    return v;
}

TEST(PostClippingCheck, WarnsAbove42EqualRailPairs) {
    const std::string warning = "[ALGO_MSG_WRN] Warning! The Microphone data is saturate.\t\n";
    postInfo_t p = info(128, 1, 128, 1);
    for (float rail : {32767.0f, -32768.0f}) {
        auto v42 = clipped(42, rail);
        auto v43 = clipped(43, rail);
        EXPECT_EQ(qtest::capture_stdout([&] { Post_Clipping_Check(v42.data(), &p, 7); }), "");
        EXPECT_EQ(qtest::capture_stdout([&] { Post_Clipping_Check(v43.data(), &p, 7); }), warning);
        // Without the warning bit nothing is printed.
        EXPECT_EQ(qtest::capture_stdout([&] { Post_Clipping_Check(v43.data(), &p, 5); }), "");
    }
}

TEST(PostClippingCheck, NearRailAndAlternatingRailsDoNotCount) {
    postInfo_t p = info(128, 1, 128, 1);
    std::vector<float> near(128, 32766.9f);
    std::vector<float> alternating(128);
    for (int k = 0; k < 128; ++k) {
        alternating[k] = k % 2 ? 32767.0f : -32768.0f;
    }
    EXPECT_EQ(qtest::capture_stdout([&] { Post_Clipping_Check(near.data(), &p, 7); }), "");
    EXPECT_EQ(qtest::capture_stdout([&] { Post_Clipping_Check(alternating.data(), &p, 7); }), "");
}

}  // namespace
