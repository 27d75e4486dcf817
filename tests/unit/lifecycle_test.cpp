// Instance set-up through the internal entry points: every Init check in order, Config's
// all-or-nothing validation, GetConfig, the setters, Reset's keep-list and Free. Outputs are
// compared as exact texts.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/setup.h"
#include "diag/dump.h"
#include "diag/profile.h"
#include "fixture.h"
#include "scratch.h"

namespace {

const AudioAecInit kMono16k = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
const AudioAecConfig kCustom = {
    QEN_AEC_TRUE, 77, {3, 8, 20, 40, 60, 100}, {25, 0, 16, 20, 3, 7, 14}};
const uint32_t kDefaultModes[7] = {5, 4, 4, 5, 10, 10, 10};
const uint32_t kDefaultEdges[6] = {4, 6, 36, 49, 50, 51};
const char *const kNearEndMsg = "[ALGO_MSG_ERR] [AEC]The NearEnd Channel only support 1 or 2\t\n";
const char *const kLevels =
    "[ALGO_MSG_ERR] ALGO_MSG_ERR\t\n[ALGO_MSG_WRN] ALGO_MSG_WRN\t\n[ALGO_MSG_MSG] ALGO_MSG_MSG\t\n";

uint32_t bits(float f) {
    uint32_t u;
    memcpy(&u, &f, sizeof u);
    return u;
}

std::string banner() {
    const std::string dashes(80, '-'), blanks(80, ' ');
    const std::string msg = "[ALGO_MSG_MSG] ";
    return msg + dashes + "\n" + msg + blanks + "\n" + msg + std::string(35, ' ') + "NEON ENABLE" +
           std::string(34, ' ') + "\n" + msg + blanks + "\n" + msg + dashes + "\n";
}

// Every test runs with no message-level file, so the mask is 7.
class Lifecycle : public testing::Test {
protected:
    Lifecycle() : block_(size_of_block()) {}
    static size_t size_of_block() {
        size_t size = 0;
        qtest::capture_stdout([&] { size = _QenAec_GetBufferSize(); });
        return size;
    }
    char *block() { return block_.data(); }
    aec_workingbuf_t *buf() { return reinterpret_cast<aec_workingbuf_t *>(block_.data()); }
    AEC_HANDLE init(AudioAecInit rec = kMono16k) {
        AEC_HANDLE h = nullptr;
        qtest::capture_stdout([&] { h = _QenAec_Init(block(), &rec); });
        return h;
    }
    template <typename Fn>
    std::string out(Fn fn) {
        return qtest::capture_stdout(fn);
    }

    qtest::TempDir dir_;
    qtest::ScopedEnv dml_{"DML_PATH", dir_.path() + "/absent.json"};
    std::vector<char> block_;
};

TEST_F(Lifecycle, BufferSizeIsRecordPlusPlanArea) {
    unsigned int size = 0;
    const std::string text = out([&] { size = _QenAec_GetBufferSize(); });
    EXPECT_EQ(size, sizeof(aec_workingbuf_t) + FFT_GetBufferSize(256));
    EXPECT_EQ(text, "[ALGO_MSG_MSG] [_QenAec_GetBufferSize]Working buffer size = " +
                        std::to_string(size) + " bytes\n");
}

// ---- Init ----------------------------------------------------------------------------

struct InitReject {
    const char *name;
    AudioAecInit rec;
    const char *message;
};

class InitRejects : public Lifecycle, public testing::WithParamInterface<InitReject> {};

TEST_P(InitRejects, RefusesAndLeavesTheBlockUntouched) {
    const InitReject &c = GetParam();
    memset(block(), 0xA5, block_.size());
    AudioAecInit rec = c.rec;
    AEC_HANDLE h = reinterpret_cast<AEC_HANDLE>(1);
    const std::string text = out([&] { h = _QenAec_Init(block(), &rec); });
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(text, std::string(kLevels) + c.message);
    for (size_t i = 0; i < block_.size(); ++i) {
        ASSERT_EQ(static_cast<unsigned char>(block_[i]), 0xA5) << "byte " << i;
    }
}

const char *const kPointMsg =
    "[ALGO_MSG_ERR] [AEC]This AEC Lib only support point_number = 128....\r\n";
const char *const kFarEndMsg = "[ALGO_MSG_ERR] [AEC]The FarEnd Channel only support 1 or 2\t\n";
const char *const kRateMsg =
    "[ALGO_MSG_ERR] [AEC]The sample rate only support 48000, 32000, 16000, 8000.\t\n";
const auto kBadRate = static_cast<QEN_AEC_SAMPLE_RATE>(44100);
const auto kZeroRate = static_cast<QEN_AEC_SAMPLE_RATE>(0);

INSTANTIATE_TEST_SUITE_P(
    Records, InitRejects,
    testing::Values(InitReject{"point_127", {127, 1, 1, QEN_AEC_SAMPLE_RATE_16000}, kPointMsg},
                    InitReject{
                        "point_256_fft_size", {256, 1, 1, QEN_AEC_SAMPLE_RATE_16000}, kPointMsg},
                    InitReject{"point_first_of_all", {0, 3, 3, kBadRate}, kPointMsg},
                    InitReject{"near_0", {128, 0, 1, QEN_AEC_SAMPLE_RATE_16000}, kNearEndMsg},
                    InitReject{"near_before_far", {128, 3, 3, kBadRate}, kNearEndMsg},
                    InitReject{"far_0", {128, 1, 0, QEN_AEC_SAMPLE_RATE_16000}, kFarEndMsg},
                    InitReject{"far_before_rate", {128, 2, 3, kBadRate}, kFarEndMsg},
                    InitReject{"rate_44100", {128, 1, 1, kBadRate}, kRateMsg},
                    InitReject{"rate_0", {128, 2, 2, kZeroRate}, kRateMsg}),
    [](const testing::TestParamInfo<InitReject> &info) { return std::string(info.param.name); });

TEST_F(Lifecycle, InitRefusesNullPointersBeforeAnnouncing) {
    AudioAecInit rec = kMono16k;
    const std::string msg =
        "[ALGO_MSG_ERR] [AEC]Fail! The AecWorkingBuff or AudioAecProcessStruct is NULL\t\n";
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Init(nullptr, &rec), nullptr); }), msg);
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Init(block(), nullptr), nullptr); }), msg);
}

TEST_F(Lifecycle, InitAcceptsEverySaneRecord) {
    const QEN_AEC_SAMPLE_RATE rates[] = {QEN_AEC_SAMPLE_RATE_8000, QEN_AEC_SAMPLE_RATE_16000,
                                         QEN_AEC_SAMPLE_RATE_32000, QEN_AEC_SAMPLE_RATE_48000};
    const std::string expected = std::string(kLevels) +
                                 "[ALGO_MSG_MSG] [AEC]Setting: [128][8]\r\n" + banner() +
                                 "[ALGO_MSG_MSG] [AEC]Floating point mode.\n";
    for (QEN_AEC_SAMPLE_RATE rate : rates) {
        for (uint32_t near = 1; near <= 2; ++near) {
            for (uint32_t far = 1; far <= 2; ++far) {
                SCOPED_TRACE(testing::Message() << rate << " Hz " << near << "x" << far);
                memset(block(), 0x5A, block_.size());
                AudioAecInit rec = {128, near, far, rate};
                AEC_HANDLE h = nullptr;
                EXPECT_EQ(out([&] { h = _QenAec_Init(block(), &rec); }), expected);
                ASSERT_EQ(h, block());
                const aec_workingbuf_t &b = *buf();
                EXPECT_EQ(b.aec_data_property.nearend_channel, near);
                EXPECT_EQ(b.aec_data_property.farend_channel, far);
                EXPECT_EQ(b.aec_inst.sampFreq, rate);
                EXPECT_EQ(b.aec_inst.mult, rate / 8000);
                EXPECT_EQ(b.aec_status_flag.is_aec_init_status, 1);
                // The default bands are installed, but no targets are derived from them.
                EXPECT_EQ(memcmp(b.aec_data_property.Supp_Mode, kDefaultModes, 28), 0);
                EXPECT_EQ(memcmp(b.aec_data_property.Supp_Mode_Frq, kDefaultEdges, 24), 0);
                EXPECT_EQ(b.aec_inst.targetSupp[0], -1.5f);
                EXPECT_EQ(bits(b.Recursive_Ratio), 0x3DCCCCCDu);
                EXPECT_EQ(reinterpret_cast<char *>(b.FFT_workingBuff.fft_Ne10_cfg),
                          block() + sizeof(aec_workingbuf_t));
                // The zeroing reached every field that Init does not set.
                EXPECT_EQ(b.dump_id, 0);
                EXPECT_EQ(b.near_end_dump, nullptr);
                EXPECT_EQ(b.FarEndMean, 0.0f);
                EXPECT_EQ(b.AudioNearEnd[1][255], 0.0f);
                EXPECT_EQ(_QenAec_Free(h), ALGO_AEC_RET_SUCCESS);
            }
        }
    }
}

TEST_F(Lifecycle, TwoInitsAndOneFreeClearTheProfileFlag) {
    std::vector<char> other(block_.size());
    AudioAecInit rec = kMono16k;
    ASSERT_NE(init(), nullptr);
    out([&] { ASSERT_NE(_QenAec_Init(other.data(), &rec), nullptr); });
    EXPECT_EQ(g_is_initialed, 1);
    EXPECT_EQ(_QenAec_Free(block()), ALGO_AEC_RET_SUCCESS);
    EXPECT_EQ(g_is_initialed, 0);
    ASSERT_NE(init(), nullptr);
    EXPECT_EQ(g_is_initialed, 1);
}

// ---- Config -----------------------------------------------------------------------------

struct ConfigReject {
    const char *name;
    void (*spoil)(AudioAecConfig &);
    ALGO_AEC_RET code;
    const char *message;
};

class ConfigRejects : public Lifecycle, public testing::WithParamInterface<ConfigReject> {};

TEST_P(ConfigRejects, RefusesAndChangesNothing) {
    ASSERT_NE(init(), nullptr);
    AudioAecConfig first = kCustom;
    ASSERT_EQ(out([&] { ASSERT_EQ(_QenAec_Config(block(), &first), ALGO_AEC_RET_SUCCESS); }), "");
    const aec_input_data_property_t before = buf()->aec_data_property;
    const aec_t core_before = buf()->aec_inst;

    // Every field differs from the stored settings, and one is out of range.
    AudioAecConfig cfg = {QEN_AEC_FALSE, -5, {1, 2, 2, 9, 10, 126}, {1, 2, 3, 4, 5, 6, 7}};
    GetParam().spoil(cfg);
    ALGO_AEC_RET code = ALGO_AEC_RET_SUCCESS;
    EXPECT_EQ(out([&] { code = _QenAec_Config(block(), &cfg); }), GetParam().message);
    EXPECT_EQ(code, GetParam().code);
    EXPECT_EQ(memcmp(&before, &buf()->aec_data_property, sizeof before), 0);
    EXPECT_EQ(memcmp(&core_before, &buf()->aec_inst, sizeof core_before), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Records, ConfigRejects,
    testing::Values(
        ConfigReject{"cng_2", [](AudioAecConfig &c) { c.comfort_noise_enable = QEN_AEC_BOOL(2); },
                     ALGO_AEC_RET_INVALID_COMFORT_NOISE,
                     "[ALGO_MSG_ERR]  [AEC]Fail! Please Config the CngMode!\t2\n"},
        ConfigReject{"cng_before_mode",
                     [](AudioAecConfig &c) {
                         c.comfort_noise_enable = QEN_AEC_BOOL(-1);
                         c.suppression_mode_intensity[0] = 26;
                     },
                     ALGO_AEC_RET_INVALID_COMFORT_NOISE,
                     "[ALGO_MSG_ERR]  [AEC]Fail! Please Config the CngMode!\t-1\n"},
        ConfigReject{
            "mode_26_last", [](AudioAecConfig &c) { c.suppression_mode_intensity[6] = 26; },
            ALGO_AEC_RET_INVALID_SUP_MODE,
            "[ALGO_MSG_ERR]  [AEC]Fail! The SuppMode only support [0~25] for each element!\t\n"},
        ConfigReject{
            "mode_all_bits_before_band",
            [](AudioAecConfig &c) {
                c.suppression_mode_intensity[2] = 0xFFFFFFFFu;
                c.suppression_mode_freq[0] = 0;
            },
            ALGO_AEC_RET_INVALID_SUP_MODE,
            "[ALGO_MSG_ERR]  [AEC]Fail! The SuppMode only support [0~25] for each element!\t\n"},
        ConfigReject{"band_0", [](AudioAecConfig &c) { c.suppression_mode_freq[0] = 0; },
                     ALGO_AEC_RET_INVALID_SUP_BAND,
                     "[ALGO_MSG_ERR]  [AEC]Fail! The SuppMode_Band only support [1~126] for each "
                     "element!\t\n"},
        ConfigReject{"band_127", [](AudioAecConfig &c) { c.suppression_mode_freq[5] = 127; },
                     ALGO_AEC_RET_INVALID_SUP_BAND,
                     "[ALGO_MSG_ERR]  [AEC]Fail! The SuppMode_Band only support [1~126] for each "
                     "element!\t\n"},
        ConfigReject{"range_before_order_at_same_edge",
                     [](AudioAecConfig &c) { c.suppression_mode_freq[1] = 0; },
                     ALGO_AEC_RET_INVALID_SUP_BAND,
                     "[ALGO_MSG_ERR]  [AEC]Fail! The SuppMode_Band only support [1~126] for each "
                     "element!\t\n"},
        ConfigReject{"order_10_9",
                     [](AudioAecConfig &c) {
                         const uint32_t e[6] = {10, 9, 200, 30, 40, 126};
                         memcpy(c.suppression_mode_freq, e, sizeof e);
                     },
                     ALGO_AEC_RET_INVALID_SUP_BAND,
                     "[ALGO_MSG_ERR]  [AEC]Fail! The SuppMode_Band is not in order!\t10\t9\n"}),
    [](const testing::TestParamInfo<ConfigReject> &info) { return std::string(info.param.name); });

TEST_F(Lifecycle, ConfigRefusesNullAndUninitialised) {
    AudioAecConfig cfg = kCustom;
    const std::string null_msg = "[ALGO_MSG_ERR]  [AEC]Fail! The handle or aec_config is null!\t\n";
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Config(nullptr, &cfg), ALGO_AEC_RET_INVALID_HANDLE); }),
              null_msg);
    ASSERT_NE(init(), nullptr);
    EXPECT_EQ(
        out([&] { EXPECT_EQ(_QenAec_Config(block(), nullptr), ALGO_AEC_RET_INVALID_HANDLE); }),
        null_msg);
    _QenAec_Free(block());
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Config(block(), &cfg), ALGO_AEC_RET_INVALID_CALLING); }),
              "[ALGO_MSG_ERR] [_QenAec_Config]Fail! Need init before QenAec_Config\t\n");
}

TEST_F(Lifecycle, ConfigRechecksTheStoredInitRecord) {
    ASSERT_NE(init(), nullptr);
    buf()->aec_data_property.nearend_channel = 5;
    AudioAecConfig cfg = kCustom;
    ALGO_AEC_RET code = ALGO_AEC_RET_SUCCESS;
    EXPECT_EQ(out([&] { code = _QenAec_Config(block(), &cfg); }),
              std::string(kNearEndMsg) +
                  "[ALGO_MSG_ERR]  [_QenAec_Config]Fail! aec init parameter error\t\n");
    EXPECT_EQ(code, ALGO_AEC_RET_INVALID_CHANNEL);
    EXPECT_EQ(buf()->aec_data_property.delay_sample, 0);
}

TEST_F(Lifecycle, InstanceMessagesFollowTheStoredMask) {
    ASSERT_NE(init(), nullptr);
    buf()->dbg_level = 0;
    AudioAecConfig cfg = kCustom;
    cfg.comfort_noise_enable = QEN_AEC_BOOL(3);
    EXPECT_EQ(out([&] { _QenAec_Config(block(), &cfg); }), "");
    EXPECT_EQ(out([&] { _QenAec_SetHandleId(block(), 500); }), "");
    EXPECT_EQ(out([&] { _QenAec_SetRecursiveRatio(block(), 0); }), "");
}

TEST_F(Lifecycle, ConfigStoresEverythingAndTargetsFollowNewIntensities) {
    ASSERT_NE(init(), nullptr);
    AudioAecConfig cfg = {QEN_AEC_TRUE, -300, {10, 10, 20, 30, 40, 126}, {25, 0, 16, 20, 3, 7, 14}};
    ASSERT_EQ(_QenAec_Config(block(), &cfg), ALGO_AEC_RET_SUCCESS);
    const aec_workingbuf_t &b = *buf();
    EXPECT_EQ(memcmp(b.aec_data_property.Supp_Mode_Frq, cfg.suppression_mode_freq, 24), 0);
    EXPECT_EQ(memcmp(b.aec_data_property.Supp_Mode, cfg.suppression_mode_intensity, 28), 0);
    EXPECT_EQ(b.aec_data_property.delay_sample, -300);
    EXPECT_EQ(b.aec_data_property.comfort_noise_channel, 1u);
    EXPECT_EQ(bits(b.aec_data_property.comfort_noise_min_pwr), 0x3951B717u);
    EXPECT_EQ(b.aec_data_property.comfort_noise_mul_left_shift, -14);
    EXPECT_EQ(b.aec_status_flag.is_aec_config_status, 0);
    // Intensities 25, 0, 16, 20, 3, 7, 14 of the intensity table.
    const float target[7] = {-80.0f, 0.0f, -15.0f, -45.0f, 0.0f, -5.0f, -11.5f};
    const float floor[7] = {90.0f, 0.0f, 8.0f, 8.0f, 1.0f, 1.0f, 1.0f};
    for (int k = 0; k < 7; ++k) {
        EXPECT_EQ(b.aec_inst.targetSupp[k], target[k]) << k;
        EXPECT_EQ(b.aec_inst.minOverDrive[k], floor[k]) << k;
    }
    EXPECT_EQ(b.aec_inst.errThresh, 1.5e-6f);

    // Comfort noise off: the switch follows, its level settings stay.
    cfg.comfort_noise_enable = QEN_AEC_FALSE;
    buf()->aec_data_property.comfort_noise_mul_left_shift = 3;
    ASSERT_EQ(_QenAec_Config(block(), &cfg), ALGO_AEC_RET_SUCCESS);
    EXPECT_EQ(b.aec_data_property.comfort_noise_channel, 0u);
    EXPECT_EQ(b.aec_data_property.comfort_noise_mul_left_shift, 3);
    EXPECT_EQ(bits(b.aec_data_property.comfort_noise_min_pwr), 0x3951B717u);
}

TEST_F(Lifecycle, TargetsDoNotDependOnBandEdges) {
    ASSERT_NE(init(), nullptr);
    AudioAecConfig cfg = {QEN_AEC_FALSE, 0, {1, 1, 1, 1, 1, 1}, {17, 18, 19, 20, 21, 22, 23}};
    ASSERT_EQ(_QenAec_Config(block(), &cfg), ALGO_AEC_RET_SUCCESS);
    const aec_t narrow = buf()->aec_inst;
    ASSERT_NE(init(), nullptr);
    const uint32_t wide[6] = {120, 121, 122, 123, 124, 126};
    memcpy(cfg.suppression_mode_freq, wide, sizeof wide);
    ASSERT_EQ(_QenAec_Config(block(), &cfg), ALGO_AEC_RET_SUCCESS);
    EXPECT_EQ(memcmp(narrow.targetSupp, buf()->aec_inst.targetSupp, sizeof narrow.targetSupp), 0);
    EXPECT_EQ(memcmp(narrow.minOverDrive, buf()->aec_inst.minOverDrive, 28), 0);
    EXPECT_EQ(buf()->aec_inst.targetSupp[6], -60.0f);
}

TEST_F(Lifecycle, SetModeByFreqBand) {
    ASSERT_NE(init(), nullptr);
    unsigned int modes[7] = {1, 2, 3, 4, 5, 6, 7};
    const std::string null_msg = "[ALGO_MSG_ERR] [AEC]Fail! The AecWorkingBuff is NULL\t\n";
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_SetModeByFreqBand(nullptr, modes), -1); }), null_msg);
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_SetModeByFreqBand(block(), nullptr), -1); }), null_msg);
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_SetModeByFreqBand(block(), modes), 0); }), "");
    EXPECT_EQ(buf()->aec_inst.targetSupp[6], -5.0f);
    modes[4] = 30;
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_SetModeByFreqBand(block(), modes), -1); }),
              "[ALGO_MSG_ERR] [AEC]Fail! Set mode error\n.");
}

// ---- GetConfig ----------------------------------------------------------------------------

TEST_F(Lifecycle, GetConfigRoundTrip) {
    ASSERT_NE(init({128, 2, 1, QEN_AEC_SAMPLE_RATE_32000}), nullptr);
    AudioAecConfig cfg = kCustom;
    ASSERT_EQ(_QenAec_Config(block(), &cfg), ALGO_AEC_RET_SUCCESS);
    AudioAecInit rec;
    AudioAecConfig back;
    memset(&rec, 0xEE, sizeof rec);
    memset(&back, 0xEE, sizeof back);
    ASSERT_EQ(_QenAec_GetConfig(block(), &rec, &back), ALGO_AEC_RET_SUCCESS);
    EXPECT_EQ(rec.point_number, 128u);
    EXPECT_EQ(rec.nearend_channel, 2u);
    EXPECT_EQ(rec.farend_channel, 1u);
    EXPECT_EQ(rec.sample_rate, QEN_AEC_SAMPLE_RATE_32000);
    EXPECT_EQ(back.comfort_noise_enable, cfg.comfort_noise_enable);
    EXPECT_EQ(back.delay_sample, cfg.delay_sample);
    EXPECT_EQ(memcmp(back.suppression_mode_freq, cfg.suppression_mode_freq, 24), 0);
    EXPECT_EQ(memcmp(back.suppression_mode_intensity, cfg.suppression_mode_intensity, 28), 0);

    const std::string null_msg = "[ALGO_MSG_ERR]  [AEC]Fail! The handle or aec_config is null!\t\n";
    EXPECT_EQ(out([&] {
                  EXPECT_EQ(_QenAec_GetConfig(nullptr, &rec, &back), ALGO_AEC_RET_INVALID_HANDLE);
              }),
              null_msg);
    EXPECT_EQ(out([&] {
                  EXPECT_EQ(_QenAec_GetConfig(block(), &rec, nullptr), ALGO_AEC_RET_INVALID_HANDLE);
              }),
              null_msg);
}

// ---- Setters --------------------------------------------------------------------------------

struct RatioCase {
    unsigned int ratio;
    ALGO_AEC_RET code;
    float stored;  // Recursive_Ratio afterwards
};

TEST_F(Lifecycle, SetRecursiveRatio) {
    ASSERT_NE(init(), nullptr);
    const RatioCase cases[] = {{0, ALGO_AEC_RET_INVALID_RECURSIVE_RATIO, 0.1f},
                               {1, ALGO_AEC_RET_SUCCESS, 0.1f},
                               {5, ALGO_AEC_RET_SUCCESS, 0.5f},
                               {10, ALGO_AEC_RET_SUCCESS, 1.0f},
                               {11, ALGO_AEC_RET_INVALID_RECURSIVE_RATIO, 1.0f},
                               {7, ALGO_AEC_RET_SUCCESS, 0.7f},
                               {0xFFFFFFFFu, ALGO_AEC_RET_INVALID_RECURSIVE_RATIO, 0.7f}};
    for (const RatioCase &c : cases) {
        SCOPED_TRACE(c.ratio);
        ALGO_AEC_RET code = ALGO_AEC_RET_SUCCESS;
        const std::string text = out([&] { code = _QenAec_SetRecursiveRatio(block(), c.ratio); });
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(buf()->Recursive_Ratio, c.stored);
        const std::string expected =
            c.code == ALGO_AEC_RET_SUCCESS
                ? ""
                : "[ALGO_MSG_ERR]  [_QenAec_SetRecursiveRatio]Fail! The Recursive Ratio only "
                  "support [1~10]!\t" +
                      std::to_string(static_cast<int>(c.ratio)) + "\n";
        EXPECT_EQ(text, expected);
    }
    EXPECT_EQ(
        out([&] { EXPECT_EQ(_QenAec_SetRecursiveRatio(nullptr, 5), ALGO_AEC_RET_INVALID_HANDLE); }),
        "[ALGO_MSG_ERR] [_QenAec_SetRecursiveRatio]Fail! The AEC handle is NULL\t\n");
    _QenAec_Free(block());
    EXPECT_EQ(out([&] {
                  EXPECT_EQ(_QenAec_SetRecursiveRatio(block(), 5), ALGO_AEC_RET_INVALID_CALLING);
              }),
              "[ALGO_MSG_ERR] [_QenAec_SetRecursiveRatio]Fail! Need init before "
              "QenAec_SetRecursiveRatio\t\n");
    EXPECT_EQ(buf()->Recursive_Ratio, 0.7f);
}

TEST_F(Lifecycle, SetHandleIdClampsWithWarnings) {
    ASSERT_NE(init(), nullptr);
    const std::string high =
        "[ALGO_MSG_WRN] [_QenAec_SetHandleId]Warning! The aec handle id exceed 100.\t\n";
    const std::string negative =
        "[ALGO_MSG_WRN] [_QenAec_SetHandleId]Warning! The aec handle id is negative number.\t\n";
    const struct {
        int id;
        int stored;
        std::string warning;
    } cases[] = {{250, 100, high},
                 {-3, 0, negative},
                 {100, 100, ""},
                 {101, 100, high},
                 {0, 0, ""},
                 {42, 42, ""},
                 {-2147483647 - 1, 0, negative}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.id);
        ALGO_AEC_RET code = ALGO_AEC_RET_INVALID_HANDLE;
        EXPECT_EQ(out([&] { code = _QenAec_SetHandleId(block(), c.id); }),
                  c.warning + "[ALGO_MSG_MSG] [_QenAec_SetHandleId]Set the aec handle id as " +
                      std::to_string(c.stored) + ".\t\n");
        EXPECT_EQ(code, ALGO_AEC_RET_SUCCESS);
        EXPECT_EQ(buf()->dump_id, c.stored);
    }
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_SetHandleId(nullptr, 1), ALGO_AEC_RET_INVALID_HANDLE); }),
              "[ALGO_MSG_ERR] [_QenAec_SetHandleId]Fail! The aec handle is NULL.\t\n");
}

// ---- Reset and Free ----------------------------------------------------------------------------

TEST_F(Lifecycle, ResetRefusals) {
    AudioAecInit rec = kMono16k;
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Reset(nullptr, &rec), nullptr); }),
              "[ALGO_MSG_ERR] [AEC]Fail! The WorkingBuff or AudioAecProcessStruct is NULL\t\n");
    ASSERT_NE(init(), nullptr);
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Reset(block(), nullptr), nullptr); }),
              "[ALGO_MSG_ERR] [AEC]Fail! The WorkingBuff or AudioAecProcessStruct is NULL\t\n");
    AudioAecInit bad = {128, 9, 1, QEN_AEC_SAMPLE_RATE_16000};
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Reset(block(), &bad), nullptr); }), kNearEndMsg);
    // Released but still flagged: the caller must Init again.
    EXPECT_EQ(buf()->aec_status_flag.is_aec_init_status, 1);
    _QenAec_Free(block());
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Reset(block(), &rec), nullptr); }),
              "[ALGO_MSG_ERR] [AEC]Fail! Please run QenAec_Init before run QenAec_Reset\r\n");
}

TEST_F(Lifecycle, ResetKeepsExactlyTheListedFields) {
    ASSERT_NE(init(), nullptr);
    AudioAecConfig cfg = kCustom;
    ASSERT_EQ(_QenAec_Config(block(), &cfg), ALGO_AEC_RET_SUCCESS);
    ASSERT_EQ(_QenAec_SetRecursiveRatio(block(), 3), ALGO_AEC_RET_SUCCESS);
    aec_workingbuf_t &b = *buf();
    b.dbg_level = 3;  // Reset prints by its own fresh mask (7) but stores nothing
    b.dump_id = 9;
    b.dump_flag = 2;
    strcpy(b.dump_path, "/some/where");
    b.FarEndMean = 12.5f;
    b.postInfo = {256, 2, -7, 1};
    b.aec_data_property.comfort_noise_mul_left_shift = 5;
    for (int i = 0; i < 256; ++i) {
        b.AudioNearEnd[0][i] = b.AudioFarEnd[0][i] = b.AudioNearEndSub[i] = 9.0f;
        b.AudioNearEnd[1][i] = 3.0f;
        b.AudioFarEnd[1][i] = 4.0f;
    }
    b.aec_saturated_flag = {1, 1, 1, 1};
    b.aec_status_flag = {1, 1, 1};
    b.FE_Level_Thr = 0.0f;

    AudioAecInit rec = {128, 2, 2, QEN_AEC_SAMPLE_RATE_32000};
    AEC_HANDLE h = nullptr;
    EXPECT_EQ(out([&] { h = _QenAec_Reset(block(), &rec); }),
              "[ALGO_MSG_MSG] [AEC]Setting: [128][8]\r\n");
    ASSERT_EQ(h, block());

    EXPECT_EQ(b.dbg_level, 3);
    EXPECT_EQ(b.dump_id, 9);
    EXPECT_EQ(b.dump_flag, 2);
    EXPECT_STREQ(b.dump_path, "/some/where");
    EXPECT_EQ(b.FarEndMean, 12.5f);
    EXPECT_EQ(b.postInfo.length, 256);
    EXPECT_EQ(b.postInfo.bias, -7);
    EXPECT_EQ(b.Recursive_Ratio, 0.3f);
    EXPECT_EQ(b.aec_data_property.delay_sample, 77);
    EXPECT_EQ(bits(b.aec_data_property.comfort_noise_min_pwr), 0x3951B717u);
    EXPECT_EQ(b.aec_data_property.comfort_noise_mul_left_shift, 5);
    EXPECT_EQ(b.AudioNearEnd[1][200], 3.0f);
    EXPECT_EQ(b.AudioFarEnd[1][0], 4.0f);

    EXPECT_EQ(b.aec_data_property.comfort_noise_channel, 0u);
    EXPECT_EQ(b.aec_data_property.nearend_channel, 2u);
    EXPECT_EQ(b.aec_data_property.farend_channel, 2u);
    EXPECT_EQ(memcmp(b.aec_data_property.Supp_Mode, kDefaultModes, 28), 0);
    EXPECT_EQ(memcmp(b.aec_data_property.Supp_Mode_Frq, kDefaultEdges, 24), 0);
    for (int k = 0; k < 7; ++k) {
        EXPECT_EQ(b.aec_inst.targetSupp[k], -1.5f);
    }
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(b.AudioNearEnd[0][i], 0.0f) << i;
        ASSERT_EQ(b.AudioFarEnd[0][i], 0.0f) << i;
        ASSERT_EQ(b.AudioNearEndSub[i], 0.0f) << i;
    }
    EXPECT_EQ(bits(b.FE_Level_Thr), 0x3FEBDA51u);
    EXPECT_EQ(b.aec_saturated_flag.is_saturate_ind, 0);
    EXPECT_EQ(b.aec_saturated_flag.is_saturate_ind_pre, 0);
    EXPECT_EQ(b.aec_status_flag.is_aec_config_status, 0);
    EXPECT_EQ(b.aec_status_flag.is_run_status, 0);
    EXPECT_EQ(b.aec_status_flag.is_aec_init_status, 1);
    EXPECT_EQ(g_is_initialed, 1);
}

TEST_F(Lifecycle, ResetAt48kStartsTheCoreAt16k) {
    ASSERT_NE(init({128, 1, 1, QEN_AEC_SAMPLE_RATE_48000}), nullptr);
    EXPECT_EQ(buf()->aec_inst.mult, 6);
    AudioAecInit rec = {128, 1, 1, QEN_AEC_SAMPLE_RATE_48000};
    out([&] { ASSERT_EQ(_QenAec_Reset(block(), &rec), block()); });
    EXPECT_EQ(buf()->aec_inst.mult, 2);
    EXPECT_EQ(buf()->aec_inst.sampFreq, 48000);
    // The filter is set up as for 48000, not 16000.
    auto ref48 = qtest::make_instance(48000);
    auto ref16 = qtest::make_instance(16000);
    const MdfEchoState &st = buf()->mdf_workingbuff;
    EXPECT_EQ(st.beta0, (*ref48)->mdf_workingbuff.beta0);
    EXPECT_NE(st.beta0, (*ref16)->mdf_workingbuff.beta0);
    EXPECT_EQ(st.spec_average, (*ref48)->mdf_workingbuff.spec_average);
    EXPECT_EQ(st.notch_radius, (*ref48)->mdf_workingbuff.notch_radius);
    AudioAecInit back;
    AudioAecConfig cfg;
    ASSERT_EQ(_QenAec_GetConfig(block(), &back, &cfg), ALGO_AEC_RET_SUCCESS);
    EXPECT_EQ(back.sample_rate, QEN_AEC_SAMPLE_RATE_48000);
}

TEST_F(Lifecycle, FreeClosesDumpsAndClearsTheFlag) {
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Free(nullptr), static_cast<ALGO_AEC_RET>(-1)); }),
              "[ALGO_MSG_ERR] [AEC]Fail! The AecWorkingBuff is NULL\t\n");
    ASSERT_NE(init(), nullptr);
    {
        qtest::ScopedEnv on("AUDIO_AEC_DUMP", "1");
        qtest::ScopedEnv path("AUDIO_DUMP_PATH", dir_.path());
        ASSERT_EQ(DebugDumpDataInit(buf()), 0);
    }
    ASSERT_NE(buf()->near_end_dump, nullptr);
    EXPECT_EQ(out([&] { EXPECT_EQ(_QenAec_Free(block()), ALGO_AEC_RET_SUCCESS); }), "");
    EXPECT_EQ(buf()->near_end_dump, nullptr);
    EXPECT_EQ(buf()->output_dump, nullptr);
    EXPECT_EQ(buf()->aec_status_flag.is_aec_init_status, 0);
    EXPECT_EQ(g_is_initialed, 0);
}

}  // namespace
