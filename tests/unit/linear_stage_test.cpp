// The core's linear stage: far-end spectra, the stereo merge, the echo dump, the near-end
// noise-floor tracker and the far-end level.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include "core/linear_stage.h"
#include "signal_ref.h"
#include "fixture.h"

namespace {

TEST(LinearStage, FarEndSpectraAreUnwindowedAndWindowedTransforms) {
    auto inst = qtest::make_instance(16000);
    std::vector<float> pair = qtest::uniform_noise(256, 8000.0f, 2);
    VelFuncAec_BufferFarendPartition(inst->get(), pair.data());

    const std::vector<double> windowed = qtest::ref_windowed(pair.data());
    const double tol = 8000.0 * 256 * 1e-6;
    for (int k : {0, 1, 2, 37, 64, 127, 128}) {
        const auto x = qtest::ref_dft_bin(pair.data(), k);
        const auto xw = qtest::ref_dft_bin(windowed.data(), k);
        EXPECT_NEAR(inst->get()->xf[2 * k], x.real(), tol) << "bin " << k;
        EXPECT_NEAR(inst->get()->xf[2 * k + 1], x.imag(), tol) << "bin " << k;
        EXPECT_NEAR(inst->get()->xfw[2 * k], xw.real(), tol) << "bin " << k;
        EXPECT_NEAR(inst->get()->xfw[2 * k + 1], xw.imag(), tol) << "bin " << k;
    }
    // The far end itself is left as it was.
    EXPECT_EQ(pair, qtest::uniform_noise(256, 8000.0f, 2));
}

TEST(LinearStage, FarEndMean) {
    struct Case {
        const char *name;
        std::vector<float> input;
        float mean;
    };
    std::vector<float> alternating(128), ramp(128), spike(128, 0.0f);
    for (int m = 0; m < 128; ++m) {
        alternating[m] = m % 2 ? 100.0f : -100.0f;
        ramp[m] = static_cast<float>(-m);
    }
    spike[77] = -32768.0f;
    const Case cases[] = {
        {"silence", std::vector<float>(128, 0.0f), 0.0f},
        {"alternating +-100", alternating, 100.0f},
        {"ramp 0..-127", ramp, 63.5f},
        {"one full-scale sample", spike, 256.0f},
        {"short block", {3.0f, -5.0f}, 4.0f},
    };
    for (const Case &c : cases) {
        std::vector<float> in = c.input;
        EXPECT_FLOAT_EQ(FarEndMean_Compute(in.data(), static_cast<int>(in.size())), c.mean)
            << c.name;
    }
}

// Fills channel pairs of an instance the way the frame driver leaves them.
void load_pairs(aec_workingbuf_t *buf, unsigned seed) {
    for (int ch = 0; ch < 2; ++ch) {
        std::vector<float> v = qtest::uniform_noise(256, 3000.0f, seed + ch);
        std::copy(v.begin(), v.end(), buf->AudioNearEnd[ch]);
        v = qtest::uniform_noise(256, 3000.0f, seed + 10 + ch);
        std::copy(v.begin(), v.end(), buf->AudioFarEnd[ch]);
    }
}

TEST(LinearStage, LinearStageMergesTwoChannelsAndLeavesOneAlone) {
    for (unsigned channels : {1u, 2u}) {
        auto inst = qtest::make_instance(16000);
        aec_workingbuf_t *buf = inst->get();
        buf->aec_data_property.nearend_channel = channels;
        buf->aec_saturated_flag.isCurrNearEndSat = 1;
        load_pairs(buf, 20);
        std::vector<float> ch0(buf->AudioNearEnd[0], buf->AudioNearEnd[0] + 256);
        std::vector<float> ch1(buf->AudioNearEnd[1], buf->AudioNearEnd[1] + 256);

        Aec_NLMS_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);

        EXPECT_EQ(buf->aec_inst.nearEndFrmPtr, buf->AudioNearEnd[0]);
        EXPECT_EQ(buf->aec_inst.nearEndFrmPtr_ch2, buf->AudioNearEnd[1]);
        EXPECT_EQ(buf->aec_inst.nearEndDiffFrmPtr, buf->AudioNearEndSub);
        EXPECT_EQ(buf->aec_saturated_flag.nearend_saturated_ind, 1);
        for (int i = 0; i < 256; ++i) {
            const float expect = channels == 2 ? (ch0[i] + ch1[i]) / 2.0f : ch0[i];
            ASSERT_FLOAT_EQ(buf->AudioNearEnd[0][i], expect) << channels << " ch, sample " << i;
            ASSERT_EQ(buf->AudioNearEnd[1][i], ch1[i]);
        }
    }
}

std::vector<short> read_all(FILE *f) {
    fflush(f);
    rewind(f);
    std::vector<short> out;
    short s;
    while (fread(&s, sizeof s, 1, f) == 1) {
        out.push_back(s);
    }
    return out;
}

TEST(LinearStage, EchoDumpSaturatesAndTruncates) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float in[] = {40000.7f, -1.9f, 1.9f, -40000.0f, 32767.9f, -32768.9f, 0.49f, nan, 1e30f};
    const short expect[] = {32767, -1, 1, -32768, 32767, -32768, 0, 0, 32767};
    float echo[128] = {};
    std::copy(std::begin(in), std::end(in), echo);
    echo[127] = -123.99f;

    FILE *f = tmpfile();
    ASSERT_NE(f, nullptr);
    echo_dump_write(0, f, 128, echo);  // dumping off
    echo_dump_write(1, f, 128, echo);
    const std::vector<short> got = read_all(f);
    ASSERT_EQ(got.size(), 128u);
    for (size_t i = 0; i < std::size(expect); ++i) {
        EXPECT_EQ(got[i], expect[i]) << "sample " << i;
    }
    EXPECT_EQ(got[127], -123);
    fclose(f);

    echo_dump_write(1, nullptr, 128, echo);  // a stream that is not open is skipped
}

TEST(LinearStage, EchoDumpCarriesTheFilterEstimate) {
    auto inst = qtest::make_instance(16000);
    aec_workingbuf_t *buf = inst->get();
    FILE *f = tmpfile();
    ASSERT_NE(f, nullptr);
    buf->echo_dump = f;
    buf->dump_flag = 1;
    std::vector<short> expect;
    for (int frame = 0; frame < 20; ++frame) {
        load_pairs(buf, 100 + frame);
        // A near end that is the far end attenuated, so the estimate becomes non-zero.
        for (int i = 0; i < 256; ++i) {
            buf->AudioNearEnd[0][i] = 0.5f * buf->AudioFarEnd[0][i];
        }
        Aec_NLMS_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
        for (int i = 0; i < 128; ++i) {
            expect.push_back(static_cast<short>(std::trunc(buf->mdf_echo[128 + i])));
        }
    }
    const std::vector<short> got = read_all(f);
    fclose(f);
    EXPECT_EQ(got, expect);
    bool any = false;
    for (short s : got) {
        any = any || s != 0;
    }
    EXPECT_TRUE(any) << "the filter never produced an echo estimate";
}

// A near-end pair of constant 1000: all its power is in bin 0.
struct NoiseTracker {
    std::unique_ptr<qtest::InstanceBlock> inst;
    float pair[256];
    explicit NoiseTracker(int rate) : inst(qtest::make_instance(rate)) {
        std::fill(pair, pair + 256, 1000.0f);
        inst->get()->aec_inst.nearEndFrmPtr = pair;
    }
    aec_t &aec() { return inst->get()->aec_inst; }
    void run(int blocks) {
        for (int n = 0; n < blocks; ++n) {
            Noise_Power_Estimation(inst->get());
        }
    }
};

TEST(NoiseTracker, MinimumHeldForFirstBlocksWhileStartEstimateRises) {
    NoiseTracker t(8000);
    const double bin0 = 128000.0 * 128000.0;  // (256 * 1000 / 2)^2
    t.run(1);
    EXPECT_NEAR(t.aec().dPow[0], 0.1 * bin0, 1e-5 * bin0);
    EXPECT_NEAR(t.aec().dInitMinPow[5], 50000.0f, 0.01f);
    t.run(50);  // blocks 2..51: the counter has not yet passed 50
    for (int j = 0; j < 129; ++j) {
        ASSERT_EQ(t.aec().dMinPow[j], 500000.0f) << "bin " << j;
        ASSERT_NEAR(t.aec().dInitMinPow[j], 500000.0 * (1.0 - std::pow(0.9, 51)), 0.5) << j;
    }
    EXPECT_NEAR(t.aec().dPow[0], bin0 * (1.0 - std::pow(0.9, 51)), 1e-4 * bin0);
    EXPECT_EQ(t.aec().noisePow, t.aec().dInitMinPow);

    const float init0 = t.aec().dInitMinPow[0];
    t.run(1);  // block 52: the minimum starts tracking
    // Bin 0 is far above the minimum: it creeps up by the ramp, the start estimate follows.
    EXPECT_FLOAT_EQ(t.aec().dMinPow[0], 500000.0f * 1.0003f);
    EXPECT_NEAR(t.aec().dInitMinPow[0], init0 + (500150.0f - init0) * 0.1f, 0.5f);
    // An empty bin falls by 90% of the gap, and the start estimate takes it at once.
    EXPECT_NEAR(t.aec().dMinPow[5], 50000.0f * 1.0003f, 0.1f);
    EXPECT_EQ(t.aec().dInitMinPow[5], t.aec().dMinPow[5]);
}

TEST(NoiseTracker, NoisePowSwitchesToTrackedMinimumAfter500TimesMultBlocks) {
    for (int rate : {8000, 16000, 32000, 48000}) {
        NoiseTracker t(rate);
        const int blocks = 500 * (rate / 8000);
        t.run(blocks);
        EXPECT_EQ(t.aec().noiseEstCtr, blocks) << rate;
        EXPECT_EQ(t.aec().noisePow, t.aec().dInitMinPow) << rate;
        t.run(1);
        EXPECT_EQ(t.aec().noisePow, t.aec().dMinPow) << rate;
        t.run(3);
        EXPECT_EQ(t.aec().noiseEstCtr, blocks) << rate;
        EXPECT_EQ(t.aec().noisePow, t.aec().dMinPow) << rate;
    }
}

TEST(NoiseTracker, RunsOnlyWithComfortNoiseOn) {
    for (unsigned comfort : {0u, 1u}) {
        auto inst = qtest::make_instance(16000);
        aec_workingbuf_t *buf = inst->get();
        buf->aec_data_property.comfort_noise_channel = comfort;
        for (int frame = 0; frame < 3; ++frame) {
            load_pairs(buf, 40 + frame);
            Aec_NLMS_process(buf, buf->AudioNearEnd[0], buf->AudioNearEnd[1]);
        }
        const aec_t &aec = buf->aec_inst;
        EXPECT_EQ(aec.noiseEstCtr, comfort ? 3 : 0);
        EXPECT_EQ(aec.noisePow, aec.dInitMinPow);
        float dpow = 0.0f;
        for (float p : aec.dPow) {
            dpow += p;
        }
        if (comfort) {
            EXPECT_GT(dpow, 0.0f);
        } else {
            EXPECT_EQ(dpow, 0.0f);
            EXPECT_EQ(aec.dMinPow[64], 500000.0f);
        }
    }
}

}  // namespace
