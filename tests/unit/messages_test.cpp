// Every message and return code, one table, each row under every accepted mask (1, 3, 7, 15).
// "@" stands for a value the call reports. Left out, as nothing can fail there: "Initialization
// Error at Line" and ne10_init's two lines.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "api/setup.h"
#include "core/aec_state.h"
#include "diag/msglevel.h"
#include "dsp/fft.h"
#include "instance.h"
#include "mdf/mdf.h"
#include "scratch.h"

namespace {

// kRaw: unconditional, no prefix. kAnnounce, kSetUp: the lines Init prints before, after checks.
enum Level { kErr = 1, kWrn, kMsg = 4, kAlways = 8, kRaw = 16, kStderr = 32, kAnnounce, kSetUp };

struct Msg {
    Level level;
    std::string text;
};

struct Ctx {
    int mask;
    AEC_HANDLE h;
    const qtest::TempDir &dir;
    aec_workingbuf_t *buf() const { return static_cast<aec_workingbuf_t *>(h); }
};
struct Out {
    int64_t code;
    std::string arg = "";  // replaces the "@" of the texts
};

struct Row {
    int64_t code;
    const char *name;
    std::vector<Msg> msgs;
    std::function<Out(Ctx &)> call;
};

constexpr int64_t kFail = static_cast<uint32_t>(-1);  // -1: all bits set
constexpr int64_t kNull = 0, kHandle = 1;             // what Init and Reset return

const std::vector<Msg> kAnnounceLines = {
    {kErr, "ALGO_MSG_ERR\t\n"}, {kWrn, "ALGO_MSG_WRN\t\n"}, {kMsg, "ALGO_MSG_MSG\t\n"}};
const std::string kDashes(80, '-'), kBlanks(80, ' ');
const std::vector<Msg> kInitDone = {
    {kMsg, "[AEC]Setting: [128][8]\r\n"},
    {kMsg, kDashes + "\n"},
    {kMsg, kBlanks + "\n"},
    {kMsg, std::string(35, ' ') + "NEON ENABLE" + std::string(34, ' ') + "\n"},
    {kMsg, kBlanks + "\n"},
    {kMsg, kDashes + "\n"},
    {kMsg, "[AEC]Floating point mode.\n"}};
const char *const kPointMsg = "[AEC]This AEC Lib only support point_number = 128....\r\n";
const char *const kNearMsg = "[AEC]The NearEnd Channel only support 1 or 2\t\n";
const char *const kFarMsg = "[AEC]The FarEnd Channel only support 1 or 2\t\n";
const char *const kRateMsg = "[AEC]The sample rate only support 48000, 32000, 16000, 8000.\t\n";
const char *const kNullBuff = "[AEC]Fail! The AecWorkingBuff is NULL\t\n";
const char *const kNullConfig = " [AEC]Fail! The handle or aec_config is null!\t\n";
const char *const kIntensityMsg =
    " [AEC]Fail! The SuppMode only support [0~25] for each element!\t\n";
const char *const kEdgeMsg =
    " [AEC]Fail! The SuppMode_Band only support [1~126] for each element!\t\n";
const char *const kDumpPathMsg = "[DebugDumpDataInit]Fail! Dump path @ doesn't exist!\t\n";
const char *const kExportMsg = "[DebugDumpDataInit]Fail! Dump AEC export error.\t\n";
const char *const kSlapped =
    "warning: The echo canceller started acting funny and got slapped (reset). It swears it "
    "will behave now.\n";
const char *const kNullFfcCfg = "[Audio] input Null in Ne10_workingBufPtr->fft_Ne10_cfg\n";

const AudioAecInit kMono = {128, 1, 1, QEN_AEC_SAMPLE_RATE_16000};
const AudioAecConfig kDefaults = {
    QEN_AEC_FALSE, 0, {4, 6, 36, 49, 50, 51}, {5, 4, 4, 5, 10, 10, 10}};
const auto kRate = [](int r) { return static_cast<QEN_AEC_SAMPLE_RATE>(r); };

std::vector<char> g_area(4096);  // for a plan that does not fit
short g_pcm[128];
AudioAecConfig g_cfg;
AudioAecInit g_rec;

const auto code = [](ALGO_AEC_RET r) { return Out{static_cast<uint32_t>(r)}; };
const auto freed = [](const Ctx &c) { return QenAec_Free(c.h), c.h; };

Out buffer_size() {
    const unsigned size = QenAec_GetBufferSize();
    EXPECT_EQ(size, sizeof(aec_workingbuf_t) + FFT_GetBufferSize(256));
    return {-1, std::to_string(size)};
}

Out versions() {
    unsigned short year = 0, date = 0, time = 1, major = 0, minor = 0;
    EXPECT_EQ(QenAec_GetLibVersion(&year, &date, &time), ALGO_AEC_RET_SUCCESS);
    EXPECT_EQ(std::vector<int>({year, date, time}), std::vector<int>({8228, 788, 0}));
    const Out out = code(QenAec_GetAPIVersion(&major, &minor));
    EXPECT_EQ(major * 10 + minor, 13);
    return out;
}

const auto check_record = [](const Ctx &c, AudioAecInit rec) {
    return code(_QenAec_CheckAudioAecInitElement(&rec, c.mask));
};

// Init or Reset of the instance's block with `rec`; `null` 1 passes no block, 2 no record.
Out setup(const Ctx &c, AudioAecInit rec, AEC_HANDLE (*call)(char *, AudioAecInit *) = QenAec_Init,
          int null = 0) {
    const AEC_HANDLE got =
        call(null == 1 ? nullptr : static_cast<char *>(c.h), null == 2 ? nullptr : &rec);
    return {got == nullptr ? kNull : got == c.h ? kHandle : 2};
}

// Config with the defaults, one field of them changed: kCng, kEdge + k, kMode + k; or kGood,
// a record with every field changed and valid.
enum Field { kCng = 1, kGood = 2, kEdge = 10, kMode = 20 };
Out config(const Ctx &c, int field, uint32_t value) {
    AudioAecConfig cfg = kDefaults;
    if (field == kCng) {
        cfg.comfort_noise_enable = static_cast<QEN_AEC_BOOL>(value);
    } else if (field == kGood) {
        cfg = {QEN_AEC_TRUE, 1, {10, 10, 20, 30, 40, 126}, {25, 0, 1, 2, 3, 4, 5}};
    } else if (field >= kMode) {
        cfg.suppression_mode_intensity[field - kMode] = value;
        cfg.suppression_mode_freq[0] = 0;  // the intensities are checked first
    } else if (field >= kEdge) {
        cfg.suppression_mode_freq[field - kEdge] = value;
    }
    return code(QenAec_Config(c.h, &cfg));
}

const auto set_modes = [](const Ctx &c, unsigned int m3) {
    unsigned int modes[7] = {1, 2, 3, m3, 4, 5, 6};
    return Out{_QenAec_SetModeByFreqBand(c.h, modes)};
};

// One mono frame through `run`; `edit` shapes the two ends first.
Out frame(
    const Ctx &c, ALGO_AEC_RET (*run)(AEC_HANDLE, short *, short *),
    void (*edit)(short *near, short *far) = [](short *, short *) {}) {
    short near[128] = {}, far[128] = {};
    edit(near, far);
    return code(run(c.h, near, far));
}

template <int from, int count, short value>
void rail_run(short *near, short *) {
    std::fill_n(near + from, count, value);
}

void hostile(short *, short *far) {  // alternating full scale: the filter diverges at once
    for (int i = 0; i < 128; ++i) {
        far[i] = i % 2 ? -32767 : 32767;
    }
}

// A frame through `first` with the dump switched to `value` in `dir`, then one through `then`.
Out dump_in(const Ctx &c, const std::string &dir, const char *value = "1",
            ALGO_AEC_RET (*then)(AEC_HANDLE, short *, short *) = nullptr,
            ALGO_AEC_RET (*first)(AEC_HANDLE, short *, short *) = QenAec_Run) {
    qtest::ScopedEnv path("AUDIO_DUMP_PATH", dir), on("AUDIO_AEC_DUMP", value);
    const Out out = {frame(c, first).code, dir};
    return then == nullptr ? out : frame(c, then);
}

// A directory whose path is `length` characters long.
std::string dir_of_length(const qtest::TempDir &base, size_t length) {
    std::string path = base.path() + "/";
    path += std::string(length - path.size(), 'd');
    mkdir(path.c_str(), 0755);
    return path;
}

Out fft_call(void (*call)(FFTHandle_t *), FFTHandle_t *h) {
    call(h);
    return {h == nullptr ? -1 : h->is_fft_init};
}

Out fft_without_area(unsigned int bytes) {
    FFTHandle_t h{};
    h.fftSize = 256;
    h.fft_Ne10_cfg = reinterpret_cast<ne10_fft_r2c_cfg_float32_t>(bytes ? g_area.data() : nullptr);
    bytes ? fft_init_in(&h, bytes) : fft_init(&h);
    return {h.is_fft_init};
}

// A transform of the instance (none for `c` null) with one array missing: 'i' ip, 'w' w, 'p'
// the plan, 'a' the data (those two skip the transform, which would crash without them).
Out fft_run(const Ctx *c, int isgn, char missing) {
    float a[258] = {};
    if (c == nullptr) {
        VEL_rdft(nullptr, 256, isgn, a, nullptr, nullptr);
        return {0};
    }
    char text[64];
    aec_workingbuf_t *b = c->buf();
    FFTHandle_t h = b->FFT_workingBuff;
    h.fft_Ne10_cfg = missing == 'p' ? nullptr : h.fft_Ne10_cfg;
    snprintf(text, sizeof text, "%p", static_cast<void *>(h.fft_Ne10_cfg));
    VEL_rdft(&h, 256, isgn, missing == 'a' ? nullptr : a, missing == 'i' ? nullptr : b->fft_aec_ip,
             missing == 'w' ? nullptr : b->fft_aec_wfft);
    return {0, text};
}

const auto counter_overflow = [](const Ctx &c, uint16_t before) {
    return c.buf()->mdf_workingbuff.screwed_up = before, frame(c, QenAec_Run, hostile);
};

const char *const kNullInit = "[AEC]Fail! The AecWorkingBuff or AudioAecProcessStruct is NULL\t\n";
const char *const kNullReset = "[AEC]Fail! The WorkingBuff or AudioAecProcessStruct is NULL\t\n";
const char *const kBadRatio =
    " [_QenAec_SetRecursiveRatio]Fail! The Recursive Ratio only support [1~10]!\t";
const char *const kSetId = "[_QenAec_SetHandleId]Set the aec handle id as ";
const char *const kSaturate = "Warning! The Microphone data is saturate.\t\n";
const char *const kAddress = "address = @ is NULL in VEL_rdft\n";

// Code returned, the call (an expression of the instance `c`, also the row's name), messages.
#define ROW(code, call, ...)                                                            \
    Row {                                                                               \
        code, #call, {__VA_ARGS__}, []([[maybe_unused]] Ctx &c) -> Out { return call; } \
    }

const std::vector<Row> kRows = {
    // ---- buffer size, versions, Init ----
    ROW(-1, buffer_size(), {kMsg, "[_QenAec_GetBufferSize]Working buffer size = @ bytes\n"}),
    ROW(0, versions(), {kMsg, "AEC_API_VERSION: 1.3\n"}),
    ROW(kHandle, setup(c, kMono), {kAnnounce, ""}, {kSetUp, ""}),
    ROW(kNull, setup(c, kMono, QenAec_Init, 1), {kErr, kNullInit}),
    ROW(kNull, setup(c, kMono, QenAec_Init, 2), {kErr, kNullInit}),
    ROW(kNull, setup(c, {256, 1, 1, kRate(16000)}), {kAnnounce, ""}, {kErr, kPointMsg}),
    ROW(kNull, setup(c, {128, 3, 1, kRate(16000)}), {kAnnounce, ""}, {kErr, kNearMsg}),
    ROW(kNull, setup(c, {128, 2, 0, kRate(16000)}), {kAnnounce, ""}, {kErr, kFarMsg}),
    ROW(kNull, setup(c, {128, 1, 2, kRate(44100)}), {kAnnounce, ""}, {kErr, kRateMsg}),
    ROW(0x10000404, check_record(c, {127, 0, 0, kRate(0)}), {kErr, kPointMsg}),
    ROW(0x10000405, check_record(c, {128, 0, 3, kRate(0)}), {kErr, kNearMsg}),
    ROW(0x10000405, check_record(c, {128, 2, 3, kRate(0)}), {kErr, kFarMsg}),
    ROW(0x10000403, check_record(c, {128, 2, 2, kRate(16001)}), {kErr, kRateMsg}),
    ROW(0, check_record(c, {128, 2, 1, kRate(48000)})),
    // ---- Config, GetConfig and the band mode ----
    ROW(0x10000402, code(QenAec_Config(nullptr, &g_cfg)), {kAlways, kNullConfig}),
    ROW(0x10000402, code(QenAec_Config(c.h, nullptr)), {kAlways, kNullConfig}),
    ROW(0x10000413, code(QenAec_Config(freed(c), &g_cfg)),
        {kErr, "[_QenAec_Config]Fail! Need init before QenAec_Config\t\n"}),
    ROW(0x10000405, (c.buf()->aec_data_property.nearend_channel = 5, config(c, 0, 0)),
        {kErr, kNearMsg}, {kErr, " [_QenAec_Config]Fail! aec init parameter error\t\n"}),
    ROW(0x10000409, config(c, kCng, 2), {kErr, " [AEC]Fail! Please Config the CngMode!\t2\n"}),
    ROW(0x10000408, config(c, kMode + 6, 26), {kErr, kIntensityMsg}),
    ROW(0x10000408, config(c, kMode, ~0u), {kErr, kIntensityMsg}),
    ROW(0x10000407, config(c, kEdge + 1, 0), {kErr, kEdgeMsg}),
    ROW(0x10000407, config(c, kEdge + 5, 127), {kErr, kEdgeMsg}),
    ROW(0x10000407, config(c, kEdge + 0, 7),
        {kErr, " [AEC]Fail! The SuppMode_Band is not in order!\t7\t6\n"}),
    ROW(0, config(c, kGood, 0)),
    ROW(-1, Out{_QenAec_SetModeByFreqBand(c.h, nullptr)}, {kAlways, kNullBuff}),
    ROW(-1, set_modes(c, 26), {kErr, "[AEC]Fail! Set mode error\n."}),
    ROW(0, set_modes(c, 25)),
    ROW(0x10000402, code(QenAec_GetConfig(nullptr, &g_rec, &g_cfg)), {kAlways, kNullConfig}),
    ROW(0x10000402, code(QenAec_GetConfig(c.h, &g_rec, nullptr)), {kAlways, kNullConfig}),
    // ---- the two setters ----
    ROW(0x10000402, code(QenAec_SetRecursiveRatio(nullptr, 5)),
        {kAlways, "[_QenAec_SetRecursiveRatio]Fail! The AEC handle is NULL\t\n"}),
    ROW(0x10000413, code(QenAec_SetRecursiveRatio(freed(c), 5)),
        {kErr, "[_QenAec_SetRecursiveRatio]Fail! Need init before QenAec_SetRecursiveRatio\t\n"}),
    ROW(0x10000411, code(QenAec_SetRecursiveRatio(c.h, 0)), {kErr, std::string(kBadRatio) + "0\n"}),
    ROW(0x10000411, code(QenAec_SetRecursiveRatio(c.h, 11)),
        {kErr, std::string(kBadRatio) + "11\n"}),
    ROW(0, code(QenAec_SetRecursiveRatio(c.h, 10))),
    ROW(0x10000402, code(QenAec_SetHandleId(nullptr, 5)),
        {kAlways, "[_QenAec_SetHandleId]Fail! The aec handle is NULL.\t\n"}),
    ROW(0, code(QenAec_SetHandleId(c.h, 101)),
        {kWrn, "[_QenAec_SetHandleId]Warning! The aec handle id exceed 100.\t\n"},
        {kMsg, std::string(kSetId) + "100.\t\n"}),
    ROW(0, code(QenAec_SetHandleId(c.h, -1)),
        {kWrn, "[_QenAec_SetHandleId]Warning! The aec handle id is negative number.\t\n"},
        {kMsg, std::string(kSetId) + "0.\t\n"}),
    ROW(0, code(QenAec_SetHandleId(freed(c), 100)), {kMsg, std::string(kSetId) + "100.\t\n"}),
    // ---- Reset and Free ----
    ROW(kNull, setup(c, kMono, QenAec_Reset, 1), {kAlways, kNullReset}),
    ROW(kNull, setup(c, kMono, QenAec_Reset, 2), {kAlways, kNullReset}),
    ROW(kNull, (freed(c), setup(c, kMono, QenAec_Reset)),
        {kErr, "[AEC]Fail! Please run QenAec_Init before run QenAec_Reset\r\n"}),
    ROW(kNull, setup(c, {128, 1, 1, kRate(8001)}, QenAec_Reset), {kErr, kRateMsg}),
    ROW(kHandle, setup(c, {128, 2, 2, kRate(48000)}, QenAec_Reset),
        {kMsg, "[AEC]Setting: [128][8]\r\n"}),
    ROW(kFail, code(QenAec_Free(nullptr)), {kAlways, kNullBuff}),
    ROW(0, code(QenAec_Free(c.h))),
    ROW(-1, Out{VelFuncAec_FreeAec(nullptr)}),
    ROW(0, Out{VelFuncAec_FreeAec(c.buf())}),
    // ---- the run functions ----
    ROW(kFail, code(QenAec_Run(nullptr, g_pcm, g_pcm)), {kAlways, kNullBuff}),
    ROW(kFail, code(QenAec_ADF_Run(nullptr, g_pcm, g_pcm)), {kAlways, kNullBuff}),
    ROW(kFail, code(QenAec_NLP_Run(nullptr, g_pcm)), {kAlways, "The AecWorkingBuff is NULL\t\n"}),
    ROW(kFail, (freed(c), frame(c, QenAec_Run))),
    ROW(kFail, (memset(c.h, 0, sizeof(aec_workingbuf_t)), frame(c, QenAec_ADF_Run))),
    ROW(0, code(QenAec_NLP_Run(freed(c), g_pcm))),  // it tests no flag
    ROW(0x10000401, dump_in(c, c.dir.path(), "2"), {kErr, kExportMsg}),
    ROW(0x10000401, dump_in(c, c.dir.path(), "9", nullptr, QenAec_ADF_Run), {kErr, kExportMsg}),
    // A failed dump set-up leaves the run flag set on purpose: later frames conflict.
    ROW(0x10000412, dump_in(c, c.dir.path(), "2", QenAec_Run), {kErr, kExportMsg}),
    ROW(0x10000412, dump_in(c, c.dir.path(), "2", QenAec_ADF_Run), {kErr, kExportMsg}),
    ROW(0x10000401, dump_in(c, c.dir.path() + "/missing"), {kErr, kDumpPathMsg}),
    ROW(0x10000401, dump_in(c, dir_of_length(c.dir, 64)), {kErr, kDumpPathMsg}),
    ROW(0, dump_in(c, dir_of_length(c.dir, 63))),  // the longest path taken
    // 43 equal pairs at a rail are a clipped microphone, 42 are not.
    ROW(0, frame(c, QenAec_Run, rail_run<0, 44, 32767>), {kWrn, kSaturate}),
    ROW(0, frame(c, QenAec_ADF_Run, rail_run<84, 44, -32768>), {kWrn, kSaturate}),
    ROW(0, frame(c, QenAec_Run, rail_run<0, 43, 32767>)),
    // ---- the adaptive filter ----
    ROW(0, frame(c, QenAec_Run, hostile), {kStderr, kSlapped}),
    ROW(0, counter_overflow(c, 65486), {kErr, "[AEC] Fail! screwed_up counter overflow.\t\n"}),
    ROW(0, counter_overflow(c, 65485), {kStderr, kSlapped}),  // reaches 65535
    ROW(-1, Out{mdf_echo_ctl(c.buf(), 7, &c.mask)},
        {kStderr, "warning: Unknown mdf_echo_ctl request:  7\n"}),
    // ---- the FFT wrapper ----
    ROW(-1, fft_call(fft_init, nullptr), {kRaw, "[FFT]The handle is NULL\n"}),
    ROW(1, fft_call(fft_init, &c.buf()->FFT_workingBuff), {kRaw, "[FFT]Ne10 has init already\n"}),
    ROW(0, fft_without_area(0),
        {kRaw, "[FFT] Please assigned the begining address about FFT workingbuffer in Init.\n"}),
    ROW(0, fft_without_area(100), {kRaw, "[Audio] memory malloc failed\n"}),
    ROW(0, fft_run(nullptr, 1, 'i'), {kRaw, "[Audio] Ne10_workingBufPtr is Null in fft\n"}),
    ROW(0, fft_run(&c, 1, 'i'), {kRaw, kNullFfcCfg}, {kRaw, kAddress}),
    ROW(0, fft_run(&c, -1, 'w'), {kRaw, kNullFfcCfg}, {kRaw, kAddress}),
    ROW(0, fft_run(&c, 1, 'p'), {kRaw, kNullFfcCfg}, {kRaw, kAddress}),
    ROW(0, fft_run(&c, -1, 'a'), {kRaw, kNullFfcCfg}, {kRaw, kAddress}),
    ROW(-1, fft_call(fft_Free, nullptr), {kRaw, "handle is NULL in FFT_Free!\t\n"}),
    ROW(0, Out{ne10_init()}),
    // ---- never returned, the two keep their numbers around the gap after 0x10000409 ----
    ROW(0x10000406, code(ALGO_AEC_RET_INVALID_ENABLE)),
    ROW(0x10000410, code(ALGO_AEC_RET_INVALID_DELAY_SAMPLE)),
};

class Messages : public testing::TestWithParam<int> {};

TEST_P(Messages, EveryRowPrintsItsTextsUnderTheMaskAndReturnsItsCode) {
    const int mask = GetParam();
    const qtest::TempDir dir;
    const qtest::ScopedEnv dml(
        "DML_PATH",
        dir.write_file("level.json", "{\"debug_level\": " + std::to_string(mask) + "}")),
        no_dump("AUDIO_AEC_DUMP", std::nullopt);
    size_t size = 0;
    qtest::capture_stdout([&] { size = QenAec_GetBufferSize(); });
    for (const Row &row : kRows) {
        SCOPED_TRACE(row.name);
        std::vector<char> block(size);
        AudioAecInit rec = kMono;
        Ctx c{mask, nullptr, dir};
        qtest::capture_stdout([&] { c.h = QenAec_Init(block.data(), &rec); });
        ASSERT_NE(c.h, nullptr);
        Out got{0};
        std::string err;
        const std::string out =
            qtest::capture_stdout([&] { err = qtest::capture_stderr([&] { got = row.call(c); }); });
        std::string want_out, want_err;
        std::vector<Msg> msgs;
        for (const Msg &m : row.msgs) {
            const std::vector<Msg> one{m};
            const auto &more = m.level == kAnnounce ? kAnnounceLines
                               : m.level == kSetUp  ? kInitDone
                                                    : one;
            msgs.insert(msgs.end(), more.begin(), more.end());
        }
        for (const Msg &m : msgs) {
            std::string text = m.text;
            if (const size_t at = text.find('@'); at != std::string::npos) {
                text.replace(at, 1, got.arg);
            }
            if (m.level == kStderr) {
                want_err += text;
            } else if (m.level == kRaw) {
                want_out += text;
            } else if (m.level == kAlways || (mask & m.level) != 0) {
                want_out += (m.level == kWrn   ? "[ALGO_MSG_WRN] "
                             : m.level == kMsg ? "[ALGO_MSG_MSG] "
                                               : "[ALGO_MSG_ERR] ") +
                            text;
            }
        }
        EXPECT_EQ(out, want_out);
        EXPECT_EQ(err, want_err);
        EXPECT_EQ(got.code, row.code);
        qtest::capture_stdout([&] { QenAec_Free(c.h); });
    }
}

INSTANTIATE_TEST_SUITE_P(Masks, Messages, testing::Values(1, 3, 7, 15));

// The mask file: 1, 3, 7 and 15 are taken; anything else means 7.
TEST(Messages, MaskFileGivesAnAcceptedMaskOrSeven) {
    const qtest::TempDir dir;
    const struct {
        const char *json;
        int mask;
    } cases[] = {{"{\"debug_level\": 1}", 1},  {"{\"debug_level\": 3}", 3},
                 {"{\"debug_level\":15}", 15}, {"{\"debug_level\": 0}", 7},
                 {"{\"debug_level\": 2}", 7},  {"{\"debug_level\": 5}", 7},
                 {"{\"other\": 1}", 7},        {"{\"debug_level\": 3", 7},
                 {"debug_level 1", 7},         {"", 7}};
    for (const auto &c : cases) {
        const qtest::ScopedEnv dml("DML_PATH", dir.write_file("m.json", c.json));
        EXPECT_EQ(DynamicMessageLevel(), c.mask) << c.json;
    }
    const qtest::ScopedEnv missing("DML_PATH", dir.path() + "/none.json");
    EXPECT_EQ(DynamicMessageLevel(), 7);
}

}  // namespace
