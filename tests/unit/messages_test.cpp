// Every message the library prints and every code it returns, as one table. The texts are
// written once, exactly; a row's call goes through the public API, or through the documented
// entry point that owns the message where the API cannot reach it. Each row runs under every
// accepted message mask (1, 3, 7, 15), each time on an instance set up under that mask:
// messages of a level print only when its bit is set, "always" ones (null handles) whatever
// the mask, the FFT wrapper's unconditionally and without the prefix, the adaptive filter's on
// standard error. "@" in a text stands for a value the call reports (a size, a path, a pointer).
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "api/setup.h"
#include "diag/msglevel.h"
#include "dsp/fft.h"
#include "instance.h"
#include "mdf/mdf.h"
#include "scratch.h"

namespace {

enum Level { kErr = 1, kWrn = 2, kMsg = 4, kAlways = 8, kRaw = 16, kStderr = 32 };

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
    const char *name;
    int64_t code;
    std::vector<Msg> msgs;
    std::function<Out(Ctx &)> call;
};

constexpr int64_t kFail = static_cast<uint32_t>(-1);  // -1: all bits set
constexpr int64_t kNull = 0, kHandle = 1;             // what Init and Reset return

int64_t as_code(ALGO_AEC_RET r) {
    return static_cast<uint32_t>(r);
}

Out handle_out(AEC_HANDLE got, const Ctx &c) {
    return {got == nullptr ? kNull : got == c.h ? kHandle : 2};
}

std::vector<Msg> operator+(std::vector<Msg> a, const std::vector<Msg> &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const std::vector<Msg> kAnnounce = {
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

std::vector<char> g_other(4096);  // an area for a plan that does not fit

Out init(const Ctx &c, AudioAecInit rec) {
    return handle_out(QenAec_Init(static_cast<char *>(c.h), &rec), c);
}

Out check_record(const Ctx &c, AudioAecInit rec) {
    return {as_code(_QenAec_CheckAudioAecInitElement(&rec, c.mask))};
}

Out config(const Ctx &c, void (*edit)(AudioAecConfig &)) {
    AudioAecConfig cfg = kDefaults;
    edit(cfg);
    return {as_code(QenAec_Config(c.h, &cfg))};
}

// One mono frame through `run`; `edit` shapes the two ends first.
Out frame(const Ctx &c, ALGO_AEC_RET (*run)(AEC_HANDLE, short *, short *),
          void (*edit)(short *near, short *far) = nullptr) {
    short near[128] = {}, far[128] = {};
    if (edit != nullptr) {
        edit(near, far);
    }
    return {as_code(run(c.h, near, far))};
}

void hostile(short *, short *far) {  // alternating full scale: the filter diverges at once
    for (int i = 0; i < 128; ++i) {
        far[i] = i % 2 ? -32767 : 32767;
    }
}

Out dump_in(const Ctx &c, const std::string &dir, const char *value = "1") {
    qtest::ScopedEnv path("AUDIO_DUMP_PATH", dir), on("AUDIO_AEC_DUMP", value);
    return {frame(c, QenAec_Run).code, dir};
}

// A directory whose path is `length` characters long.
std::string dir_of_length(const qtest::TempDir &base, size_t length) {
    std::string path = base.path() + "/";
    path += std::string(length - path.size(), 'd');
    mkdir(path.c_str(), 0755);
    return path;
}

FFTHandle_t *fft_of(const Ctx &c) {
    return &c.buf()->FFT_workingBuff;
}

Out fft_null_warning(const Ctx &c, int isgn, bool no_ip) {
    char text[64];
    snprintf(text, sizeof text, "%p", static_cast<void *>(fft_of(c)->fft_Ne10_cfg));
    float a[258] = {};
    VEL_rdft(fft_of(c), 256, isgn, a, no_ip ? nullptr : c.buf()->fft_aec_ip,
             no_ip ? c.buf()->fft_aec_wfft : nullptr);
    return {0, text};
}

Out counter_overflow(const Ctx &c, uint16_t before) {
    c.buf()->mdf_workingbuff.screwed_up = before;
    return frame(c, QenAec_Run, hostile);
}

const std::vector<Row> kRows = {
    // ---- buffer size, versions, Init ----
    {"GetBufferSize",
     -1,
     {{kMsg, "[_QenAec_GetBufferSize]Working buffer size = @ bytes\n"}},
     [](Ctx &) {
         const unsigned size = QenAec_GetBufferSize();
         EXPECT_EQ(size, sizeof(aec_workingbuf_t) + FFT_GetBufferSize(256));
         return Out{-1, std::to_string(size)};
     }},
    {"GetAPIVersion",
     0,
     {{kMsg, "AEC_API_VERSION: 1.3\n"}},
     [](Ctx &) {
         unsigned short major = 0, minor = 0;
         const int64_t code = as_code(QenAec_GetAPIVersion(&major, &minor));
         EXPECT_EQ(major * 10 + minor, 13);
         return Out{code};
     }},
    {"GetLibVersion",
     0,
     {},
     [](Ctx &) {
         unsigned short year = 0, date = 0, time = 1;
         const int64_t code = as_code(QenAec_GetLibVersion(&year, &date, &time));
         EXPECT_EQ(year, 8228);
         EXPECT_EQ(date, 788);
         EXPECT_EQ(time, 0);
         return Out{code};
     }},
    {"Init", kHandle, kAnnounce + kInitDone, [](Ctx &c) { return init(c, kMono); }},
    {"Init null block",
     kNull,
     {{kErr, "[AEC]Fail! The AecWorkingBuff or AudioAecProcessStruct is NULL\t\n"}},
     [](Ctx &) {
         AudioAecInit rec = kMono;
         return Out{QenAec_Init(nullptr, &rec) == nullptr ? kNull : kHandle};
     }},
    {"Init null record",
     kNull,
     {{kErr, "[AEC]Fail! The AecWorkingBuff or AudioAecProcessStruct is NULL\t\n"}},
     [](Ctx &c) { return handle_out(QenAec_Init(static_cast<char *>(c.h), nullptr), c); }},
    {"Init point 256", kNull, kAnnounce + std::vector<Msg>{{kErr, kPointMsg}},
     [](Ctx &c) {
         return init(c, {256, 1, 1, QEN_AEC_SAMPLE_RATE_16000});
     }},
    {"Init near 3", kNull, kAnnounce + std::vector<Msg>{{kErr, kNearMsg}},
     [](Ctx &c) {
         return init(c, {128, 3, 1, QEN_AEC_SAMPLE_RATE_16000});
     }},
    {"Init far 0", kNull, kAnnounce + std::vector<Msg>{{kErr, kFarMsg}},
     [](Ctx &c) {
         return init(c, {128, 2, 0, QEN_AEC_SAMPLE_RATE_16000});
     }},
    {"Init rate 44100", kNull, kAnnounce + std::vector<Msg>{{kErr, kRateMsg}},
     [](Ctx &c) {
         return init(c, {128, 1, 2, static_cast<QEN_AEC_SAMPLE_RATE>(44100)});
     }},
    {"record point first",
     0x10000404,
     {{kErr, kPointMsg}},
     [](Ctx &c) {
         return check_record(c, {127, 0, 0, static_cast<QEN_AEC_SAMPLE_RATE>(0)});
     }},
    {"record near before far",
     0x10000405,
     {{kErr, kNearMsg}},
     [](Ctx &c) {
         return check_record(c, {128, 0, 3, static_cast<QEN_AEC_SAMPLE_RATE>(0)});
     }},
    {"record far before rate",
     0x10000405,
     {{kErr, kFarMsg}},
     [](Ctx &c) {
         return check_record(c, {128, 2, 3, static_cast<QEN_AEC_SAMPLE_RATE>(0)});
     }},
    {"record rate",
     0x10000403,
     {{kErr, kRateMsg}},
     [](Ctx &c) {
         return check_record(c, {128, 2, 2, static_cast<QEN_AEC_SAMPLE_RATE>(16001)});
     }},
    {"record valid",
     0,
     {},
     [](Ctx &c) {
         return check_record(c, {128, 2, 1, QEN_AEC_SAMPLE_RATE_48000});
     }},
    // ---- Config, GetConfig and the band mode ----
    {"Config null handle",
     0x10000402,
     {{kAlways, kNullConfig}},
     [](Ctx &) {
         AudioAecConfig cfg = kDefaults;
         return Out{as_code(QenAec_Config(nullptr, &cfg))};
     }},
    {"Config null record",
     0x10000402,
     {{kAlways, kNullConfig}},
     [](Ctx &c) { return Out{as_code(QenAec_Config(c.h, nullptr))}; }},
    {"Config freed",
     0x10000413,
     {{kErr, "[_QenAec_Config]Fail! Need init before QenAec_Config\t\n"}},
     [](Ctx &c) {
         QenAec_Free(c.h);
         return config(c, [](AudioAecConfig &) {});
     }},
    {"Config on a broken stored record",
     0x10000405,
     {{kErr, kNearMsg}, {kErr, " [_QenAec_Config]Fail! aec init parameter error\t\n"}},
     [](Ctx &c) {
         c.buf()->aec_data_property.nearend_channel = 5;
         return config(c, [](AudioAecConfig &) {});
     }},
    {"Config comfort noise 2",
     0x10000409,
     {{kErr, " [AEC]Fail! Please Config the CngMode!\t2\n"}},
     [](Ctx &c) {
         return config(c, [](AudioAecConfig &r) { r.comfort_noise_enable = QEN_AEC_BOOL(2); });
     }},
    {"Config intensity 26",
     0x10000408,
     {{kErr, kIntensityMsg}},
     [](Ctx &c) {
         return config(c, [](AudioAecConfig &r) { r.suppression_mode_intensity[6] = 26; });
     }},
    {"Config intensity all bits",
     0x10000408,
     {{kErr, kIntensityMsg}},
     [](Ctx &c) {
         return config(c, [](AudioAecConfig &r) {
             r.suppression_mode_intensity[0] = 0xFFFFFFFFu;
             r.suppression_mode_freq[0] = 0;
         });
     }},
    {"Config edge 0",
     0x10000407,
     {{kErr, kEdgeMsg}},
     [](Ctx &c) { return config(c, [](AudioAecConfig &r) { r.suppression_mode_freq[1] = 0; }); }},
    {"Config edge 127",
     0x10000407,
     {{kErr, kEdgeMsg}},
     [](Ctx &c) { return config(c, [](AudioAecConfig &r) { r.suppression_mode_freq[5] = 127; }); }},
    {"Config edges 10 9",
     0x10000407,
     {{kErr, " [AEC]Fail! The SuppMode_Band is not in order!\t10\t9\n"}},
     [](Ctx &c) {
         return config(c, [](AudioAecConfig &r) {
             const uint32_t e[6] = {10, 9, 200, 30, 40, 126};
             memcpy(r.suppression_mode_freq, e, sizeof e);
         });
     }},
    {"Config equal edges",
     0,
     {},
     [](Ctx &c) {
         return config(c, [](AudioAecConfig &r) {
             const uint32_t e[6] = {10, 10, 20, 30, 40, 126};
             memcpy(r.suppression_mode_freq, e, sizeof e);
             r.comfort_noise_enable = QEN_AEC_TRUE;
             r.suppression_mode_intensity[3] = 25;
         });
     }},
    {"SetModeByFreqBand null",
     -1,
     {{kAlways, kNullBuff}},
     [](Ctx &c) { return Out{_QenAec_SetModeByFreqBand(c.h, nullptr)}; }},
    {"SetModeByFreqBand intensity 26",
     -1,
     {{kErr, "[AEC]Fail! Set mode error\n."}},
     [](Ctx &c) {
         unsigned int modes[7] = {1, 2, 3, 26, 4, 5, 6};
         return Out{_QenAec_SetModeByFreqBand(c.h, modes)};
     }},
    {"GetConfig null handle",
     0x10000402,
     {{kAlways, kNullConfig}},
     [](Ctx &) {
         AudioAecInit rec;
         AudioAecConfig cfg;
         return Out{as_code(QenAec_GetConfig(nullptr, &rec, &cfg))};
     }},
    {"GetConfig null record",
     0x10000402,
     {{kAlways, kNullConfig}},
     [](Ctx &c) {
         AudioAecInit rec;
         return Out{as_code(QenAec_GetConfig(c.h, &rec, nullptr))};
     }},
    // ---- the two setters ----
    {"SetRecursiveRatio null",
     0x10000402,
     {{kAlways, "[_QenAec_SetRecursiveRatio]Fail! The AEC handle is NULL\t\n"}},
     [](Ctx &) { return Out{as_code(QenAec_SetRecursiveRatio(nullptr, 5))}; }},
    {"SetRecursiveRatio freed",
     0x10000413,
     {{kErr, "[_QenAec_SetRecursiveRatio]Fail! Need init before QenAec_SetRecursiveRatio\t\n"}},
     [](Ctx &c) {
         QenAec_Free(c.h);
         return Out{as_code(QenAec_SetRecursiveRatio(c.h, 5))};
     }},
    {"SetRecursiveRatio 0",
     0x10000411,
     {{kErr, " [_QenAec_SetRecursiveRatio]Fail! The Recursive Ratio only support [1~10]!\t0\n"}},
     [](Ctx &c) { return Out{as_code(QenAec_SetRecursiveRatio(c.h, 0))}; }},
    {"SetRecursiveRatio 11",
     0x10000411,
     {{kErr, " [_QenAec_SetRecursiveRatio]Fail! The Recursive Ratio only support [1~10]!\t11\n"}},
     [](Ctx &c) { return Out{as_code(QenAec_SetRecursiveRatio(c.h, 11))}; }},
    {"SetRecursiveRatio 10",
     0,
     {},
     [](Ctx &c) { return Out{as_code(QenAec_SetRecursiveRatio(c.h, 10))}; }},
    {"SetHandleId null",
     0x10000402,
     {{kAlways, "[_QenAec_SetHandleId]Fail! The aec handle is NULL.\t\n"}},
     [](Ctx &) { return Out{as_code(QenAec_SetHandleId(nullptr, 5))}; }},
    {"SetHandleId 101",
     0,
     {{kWrn, "[_QenAec_SetHandleId]Warning! The aec handle id exceed 100.\t\n"},
      {kMsg, "[_QenAec_SetHandleId]Set the aec handle id as 100.\t\n"}},
     [](Ctx &c) { return Out{as_code(QenAec_SetHandleId(c.h, 101))}; }},
    {"SetHandleId -1",
     0,
     {{kWrn, "[_QenAec_SetHandleId]Warning! The aec handle id is negative number.\t\n"},
      {kMsg, "[_QenAec_SetHandleId]Set the aec handle id as 0.\t\n"}},
     [](Ctx &c) { return Out{as_code(QenAec_SetHandleId(c.h, -1))}; }},
    {"SetHandleId 100 on a freed instance",
     0,
     {{kMsg, "[_QenAec_SetHandleId]Set the aec handle id as 100.\t\n"}},
     [](Ctx &c) {
         QenAec_Free(c.h);
         return Out{as_code(QenAec_SetHandleId(c.h, 100))};
     }},
    // ---- Reset and Free ----
    {"Reset null block",
     kNull,
     {{kAlways, "[AEC]Fail! The WorkingBuff or AudioAecProcessStruct is NULL\t\n"}},
     [](Ctx &) {
         AudioAecInit rec = kMono;
         return Out{QenAec_Reset(nullptr, &rec) == nullptr ? kNull : kHandle};
     }},
    {"Reset null record",
     kNull,
     {{kAlways, "[AEC]Fail! The WorkingBuff or AudioAecProcessStruct is NULL\t\n"}},
     [](Ctx &c) { return handle_out(QenAec_Reset(static_cast<char *>(c.h), nullptr), c); }},
    {"Reset freed",
     kNull,
     {{kErr, "[AEC]Fail! Please run QenAec_Init before run QenAec_Reset\r\n"}},
     [](Ctx &c) {
         QenAec_Free(c.h);
         AudioAecInit rec = kMono;
         return handle_out(QenAec_Reset(static_cast<char *>(c.h), &rec), c);
     }},
    {"Reset bad rate",
     kNull,
     {{kErr, kRateMsg}},
     [](Ctx &c) {
         AudioAecInit rec = {128, 1, 1, static_cast<QEN_AEC_SAMPLE_RATE>(8001)};
         return handle_out(QenAec_Reset(static_cast<char *>(c.h), &rec), c);
     }},
    {"Reset",
     kHandle,
     {{kMsg, "[AEC]Setting: [128][8]\r\n"}},
     [](Ctx &c) {
         AudioAecInit rec = {128, 2, 2, QEN_AEC_SAMPLE_RATE_48000};
         return handle_out(QenAec_Reset(static_cast<char *>(c.h), &rec), c);
     }},
    {"Free null",
     kFail,
     {{kAlways, kNullBuff}},
     [](Ctx &) { return Out{as_code(QenAec_Free(nullptr))}; }},
    {"Free", 0, {}, [](Ctx &c) { return Out{as_code(QenAec_Free(c.h))}; }},
    // ---- the run functions ----
    {"Run null",
     kFail,
     {{kAlways, kNullBuff}},
     [](Ctx &) {
         short s[128] = {};
         return Out{as_code(QenAec_Run(nullptr, s, s))};
     }},
    {"ADF_Run null",
     kFail,
     {{kAlways, kNullBuff}},
     [](Ctx &) {
         short s[128] = {};
         return Out{as_code(QenAec_ADF_Run(nullptr, s, s))};
     }},
    {"NLP_Run null",
     kFail,
     {{kAlways, "The AecWorkingBuff is NULL\t\n"}},
     [](Ctx &) {
         short s[128] = {};
         return Out{as_code(QenAec_NLP_Run(nullptr, s))};
     }},
    {"Run freed",
     kFail,
     {},
     [](Ctx &c) {
         QenAec_Free(c.h);
         return frame(c, QenAec_Run);
     }},
    {"ADF_Run never initialised",
     kFail,
     {},
     [](Ctx &c) {
         memset(c.h, 0, sizeof(aec_workingbuf_t));
         return frame(c, QenAec_ADF_Run);
     }},
    {"NLP_Run freed",
     0,
     {},  // tests no flag at all
     [](Ctx &c) {
         QenAec_Free(c.h);
         short s[128] = {};
         return Out{as_code(QenAec_NLP_Run(c.h, s))};
     }},
    {"Run dump switch 2",
     0x10000401,
     {{kErr, kExportMsg}},
     [](Ctx &c) { return dump_in(c, c.dir.path(), "2"); }},
    {"ADF_Run dump switch 9",
     0x10000401,
     {{kErr, kExportMsg}},
     [](Ctx &c) {
         qtest::ScopedEnv on("AUDIO_AEC_DUMP", "9");
         return frame(c, QenAec_ADF_Run);
     }},
    // A failed dump set-up leaves the run flag set on purpose: later frames conflict.
    {"Run after a failed dump set-up",
     0x10000412,
     {{kErr, kExportMsg}},
     [](Ctx &c) {
         dump_in(c, c.dir.path(), "2");
         return Out{frame(c, QenAec_Run).code};
     }},
    {"ADF_Run after a failed dump set-up",
     0x10000412,
     {{kErr, kExportMsg}},
     [](Ctx &c) {
         dump_in(c, c.dir.path(), "2");
         return Out{frame(c, QenAec_ADF_Run).code};
     }},
    {"dump directory missing",
     0x10000401,
     {{kErr, kDumpPathMsg}},
     [](Ctx &c) { return dump_in(c, c.dir.path() + "/missing"); }},
    {"dump directory of 64 characters",
     0x10000401,
     {{kErr, kDumpPathMsg}},
     [](Ctx &c) { return dump_in(c, dir_of_length(c.dir, 64)); }},
    {"dump directory of 63 characters",
     0,
     {},
     [](Ctx &c) { return dump_in(c, dir_of_length(c.dir, 63)); }},
    {"clipped microphone: 43 equal pairs at 32767",
     0,
     {{kWrn, "Warning! The Microphone data is saturate.\t\n"}},
     [](Ctx &c) {
         return frame(c, QenAec_Run, [](short *near, short *) { std::fill_n(near, 44, 32767); });
     }},
    {"clipped microphone: 43 equal pairs at -32768",
     0,
     {{kWrn, "Warning! The Microphone data is saturate.\t\n"}},
     [](Ctx &c) {
         return frame(c, QenAec_ADF_Run,
                      [](short *near, short *) { std::fill_n(near + 84, 44, -32768); });
     }},
    {"microphone at the rail: 42 equal pairs",
     0,
     {},
     [](Ctx &c) {
         return frame(c, QenAec_Run, [](short *near, short *) {
             std::fill_n(near, 43, 32767);
             std::fill_n(near + 60, 40, 32766);
         });
     }},
    // ---- the adaptive filter ----
    {"divergence reset",
     0,
     {{kStderr, kSlapped}},
     [](Ctx &c) { return frame(c, QenAec_Run, hostile); }},
    {"divergence counter overflow",
     0,
     {{kErr, "[AEC] Fail! screwed_up counter overflow.\t\n"}},
     [](Ctx &c) { return counter_overflow(c, 65486); }},
    {"divergence counter at 65535",
     0,
     {{kStderr, kSlapped}},
     [](Ctx &c) { return counter_overflow(c, 65485); }},
    {"mdf_echo_ctl unknown request",
     -1,
     {{kStderr, "warning: Unknown mdf_echo_ctl request:  7\n"}},
     [](Ctx &c) {
         int v = 0;
         return Out{mdf_echo_ctl(c.buf(), 7, &v)};
     }},
    // ---- the FFT wrapper ----
    {"fft_init null",
     -1,
     {{kRaw, "[FFT]The handle is NULL\n"}},
     [](Ctx &) {
         fft_init(nullptr);
         return Out{-1};
     }},
    {"fft_init twice",
     1,
     {{kRaw, "[FFT]Ne10 has init already\n"}},
     [](Ctx &c) {
         fft_init(fft_of(c));
         return Out{fft_of(c)->is_fft_init};
     }},
    {"fft_init without an area",
     0,
     {{kRaw, "[FFT] Please assigned the begining address about FFT workingbuffer in Init.\n"}},
     [](Ctx &) {
         FFTHandle_t h{};
         fft_init(&h);
         return Out{h.is_fft_init};
     }},
    {"fft_init in too small an area",
     0,
     {{kRaw, "[Audio] memory malloc failed\n"}},
     [](Ctx &) {
         FFTHandle_t h{};
         h.fft_Ne10_cfg = reinterpret_cast<ne10_fft_r2c_cfg_float32_t>(g_other.data());
         h.fftSize = 256;
         fft_init_in(&h, 100);
         return Out{h.is_fft_init};
     }},
    {"VEL_rdft null",
     -1,
     {{kRaw, "[Audio] Ne10_workingBufPtr is Null in fft\n"}},
     [](Ctx &) {
         float a[258] = {};
         VEL_rdft(nullptr, 256, 1, a, nullptr, nullptr);
         return Out{-1};
     }},
    {"VEL_rdft forward without ip",
     0,
     {{kRaw, kNullFfcCfg}, {kRaw, "address = @ is NULL in VEL_rdft\n"}},
     [](Ctx &c) { return fft_null_warning(c, 1, true); }},
    {"VEL_rdft inverse without w",
     0,
     {{kRaw, kNullFfcCfg}, {kRaw, "address = @ is NULL in VEL_rdft\n"}},
     [](Ctx &c) { return fft_null_warning(c, -1, false); }},
    {"fft_Free null",
     -1,
     {{kRaw, "handle is NULL in FFT_Free!\t\n"}},
     [](Ctx &) {
         fft_Free(nullptr);
         return Out{-1};
     }},
    {"ne10_init", 0, {}, [](Ctx &) { return Out{ne10_init()}; }},
};

const char *prefix(Level l) {
    return l == kWrn ? "[ALGO_MSG_WRN] " : l == kMsg ? "[ALGO_MSG_MSG] " : "[ALGO_MSG_ERR] ";
}

std::string with_arg(std::string text, const std::string &arg) {
    const size_t at = text.find('@');
    return at == std::string::npos ? text : text.replace(at, 1, arg);
}

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
        for (const Msg &m : row.msgs) {
            const std::string text = with_arg(m.text, got.arg);
            if (m.level == kStderr) {
                want_err += text;
            } else if (m.level == kRaw) {
                want_out += text;
            } else if (m.level == kAlways || (mask & m.level) != 0) {
                want_out.append(prefix(m.level)).append(text);
            }
        }
        EXPECT_EQ(out, want_out);
        EXPECT_EQ(err, want_err);
        EXPECT_EQ(got.code, row.code);
        qtest::capture_stdout([&] { QenAec_Free(c.h); });
    }
}

INSTANTIATE_TEST_SUITE_P(Masks, Messages, testing::Values(1, 3, 7, 15));

// The mask file: 1, 3, 7 and 15 are taken; anything else, and any file that does not give one
// of them, means 7.
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

// The codes are the public header's, numbered with the deliberate gap after 0x10000409.
TEST(Messages, CodesKeepTheirNumbers) {
    const ALGO_AEC_RET codes[] = {ALGO_AEC_RET_INIT_ERROR,
                                  ALGO_AEC_RET_INVALID_HANDLE,
                                  ALGO_AEC_RET_INVALID_SAMPLE_RATE,
                                  ALGO_AEC_RET_INVALID_POINT_NUMBER,
                                  ALGO_AEC_RET_INVALID_CHANNEL,
                                  ALGO_AEC_RET_INVALID_ENABLE,
                                  ALGO_AEC_RET_INVALID_SUP_BAND,
                                  ALGO_AEC_RET_INVALID_SUP_MODE,
                                  ALGO_AEC_RET_INVALID_COMFORT_NOISE,
                                  ALGO_AEC_RET_INVALID_DELAY_SAMPLE,
                                  ALGO_AEC_RET_INVALID_RECURSIVE_RATIO,
                                  ALGO_AEC_RET_API_CONFLICT,
                                  ALGO_AEC_RET_INVALID_CALLING};
    const uint32_t numbers[] = {0x401, 0x402, 0x403, 0x404, 0x405, 0x406, 0x407,
                                0x408, 0x409, 0x410, 0x411, 0x412, 0x413};
    EXPECT_EQ(ALGO_AEC_RET_SUCCESS, 0);
    for (size_t i = 0; i < std::size(codes); ++i) {
        EXPECT_EQ(static_cast<uint32_t>(codes[i]), 0x10000000u | numbers[i]);
    }
}

}  // namespace
