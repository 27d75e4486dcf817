// The qenaec element in pipelines run inside this process, so that the asan preset watches
// its allocations: file pipelines against `qenaec process` on the same files, live pipelines
// with a late and a vanishing reference, and formats it must refuse. The environment
// (plugin path, registry, message level) comes from CMakeLists.txt.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

constexpr int kFrame = 128;
constexpr const char *kSupportedWords[] = {"S16LE", "8000, 16000, 32000 or 48000 Hz",
                                           "1 or 2 channels"};

// Lines the library printed, as they reached the qenaec debug category.
std::atomic<int> library_lines{0};

void count_library_lines(GstDebugCategory *category, GstDebugLevel, const gchar *file,
                         const gchar *, gint, GObject *, GstDebugMessage *, gpointer) {
    if (std::strcmp(gst_debug_category_get_name(category), "qenaec") == 0 &&
        std::strcmp(file, "libqenaec") == 0) {
        ++library_lines;
    }
}

struct Stats {
    guint64 frames = 0;
    guint64 saturated = 0;
    guint64 missing = 0;
    double erle = 0.0;
};

struct Outcome {
    bool finished = false;  // end of stream, or the caller's condition
    std::string error_source;
    GQuark error_domain = 0;
    int error_code = 0;
    std::string error_text;
    int stats_messages = 0;
    Stats last;  // the last qenaec-stats message
};

void take_message(GstMessage *m, Outcome &o) {
    switch (GST_MESSAGE_TYPE(m)) {
        case GST_MESSAGE_EOS:
            o.finished = true;
            break;
        case GST_MESSAGE_ERROR:
            if (o.error_source.empty()) {
                GError *e = nullptr;
                gst_message_parse_error(m, &e, nullptr);
                o.error_source = GST_OBJECT_NAME(GST_MESSAGE_SRC(m));
                o.error_domain = e->domain;
                o.error_code = e->code;
                o.error_text = e->message;
                g_error_free(e);
            }
            break;
        case GST_MESSAGE_ELEMENT:
            if (gst_message_has_name(m, "qenaec-stats")) {
                const GstStructure *s = gst_message_get_structure(m);
                ++o.stats_messages;
                gst_structure_get(s, "frames", G_TYPE_UINT64, &o.last.frames, "saturated-frames",
                                  G_TYPE_UINT64, &o.last.saturated, "missing-reference-frames",
                                  G_TYPE_UINT64, &o.last.missing, "erle", G_TYPE_DOUBLE,
                                  &o.last.erle, nullptr);
            }
            break;
        default:
            break;
    }
}

// Plays the pipeline until end of stream, an error, or `done`; `on_playing` runs once it
// plays. The minute's limit only keeps a hang from stalling the suite.
Outcome play(GstElement *pipeline, const std::function<bool()> &done = {},
             const std::function<void()> &on_playing = {}) {
    GstBus *bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    Outcome o;
    bool playing = false;
    const gint64 give_up = g_get_monotonic_time() + 60 * G_USEC_PER_SEC;
    while (!o.finished && o.error_source.empty() && g_get_monotonic_time() < give_up) {
        if (GstMessage *m = gst_bus_timed_pop(bus, 20 * GST_MSECOND)) {
            take_message(m, o);
            gst_message_unref(m);
        }
        if (!playing && on_playing && GST_STATE(pipeline) == GST_STATE_PLAYING) {
            playing = true;
            on_playing();
        }
        o.finished = o.finished || (done && done());
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    while (GstMessage *m = gst_bus_pop(bus)) {
        take_message(m, o);
        gst_message_unref(m);
    }
    gst_object_unref(bus);
    return o;
}

GstElement *launch(const std::string &description) {
    GError *error = nullptr;
    GstElement *pipeline = gst_parse_launch(description.c_str(), &error);
    EXPECT_EQ(error, nullptr) << description << ": " << (error ? error->message : "");
    g_clear_error(&error);
    return pipeline;
}

std::string file_pipeline(const std::string &dir, const std::string &properties) {
    return "qenaec name=aec " + properties + " ! wavenc ! filesink location=" + dir +
           "/element.wav filesrc location=" + dir + "/near.wav ! wavparse ! aec.near_sink " +
           "filesrc location=" + dir + "/far.wav ! wavparse ! aec.far_sink";
}

// Moves everything arriving on the pad later in running time.
void delay_pad(GstElement *pipeline, const char *pad_name, GstClockTime by) {
    GstElement *aec = gst_bin_get_by_name(GST_BIN(pipeline), "aec");
    GstPad *pad = gst_element_get_static_pad(aec, pad_name);
    gst_pad_set_offset(pad, static_cast<gint64>(by));
    gst_object_unref(pad);
    gst_object_unref(aec);
}

// ---- File pipeline against the tool ----------------------------------------------------

struct FileCase {
    const char *name;
    testkit::Scenario scenario = {.seconds = 0.0};  // seconds 0: the demo recordings
    size_t extra_samples = 0;                       // near samples beyond whole frames
    double far_share = 1.0;                         // far length over near length
    bool saturate = false;                          // a clipped burst on the microphone
    long shift = 0;                                 // samples by which the element's reference lags
    bool shift_in_timestamps = false;               // by the far branch's timestamps, not far-delay
    const char *properties = "";
    std::vector<std::string> tool_options = {};
    const char *config = nullptr;  // a tune result, given to the element as config=
};

// Frames in which some microphone sample finds no reference: the reference has ended, or
// it starts late in the stream's timestamps. A far-delay reaches back before the stream's
// start instead, where there never was a reference to miss.
guint64 frames_without_reference(size_t near_samples, size_t far_samples, const FileCase &c) {
    guint64 n = 0;
    for (size_t start = 0; start < near_samples; start += kFrame) {
        const long last =
            static_cast<long>(start + std::min<size_t>(kFrame, near_samples - start)) - 1;
        n += last - c.shift >= static_cast<long>(far_samples) ||
             (c.shift_in_timestamps && static_cast<long>(start) < c.shift);
    }
    return n;
}

void write_inputs(const cli::TempDir &dir, const FileCase &c, cli::Wav &near, cli::Wav &far) {
    if (c.scenario.seconds == 0.0) {
        near = cli::read_wav(QENAEC_DEMO_AUDIO "/near.wav");
        far = cli::read_wav(QENAEC_DEMO_AUDIO "/far.wav");
    } else {
        const testkit::Recording s = testkit::noise_echo(c.scenario);
        near = {c.scenario.rate, c.scenario.near_channels, s.near};
        far = {c.scenario.rate, c.scenario.far_channels, s.far};
    }
    near.samples.resize(near.samples.size() + c.extra_samples * near.channels, 0);
    const size_t near_len = near.samples.size() / near.channels;
    far.samples.resize(static_cast<size_t>(std::lround(near_len * c.far_share)) * far.channels);
    if (c.saturate) {
        for (size_t i = near.samples.size() / 3; i < near.samples.size() / 3 + 4000; ++i) {
            near.samples[i] = i % 2 == 0 ? 32767 : -32768;
        }
    }
    cli::write_wav(dir.path("near.wav"), near.rate, near.channels, near.samples);
    cli::write_wav(dir.path("far.wav"), far.rate, far.channels, far.samples);
}

void PrintTo(const FileCase &c, std::ostream *os) {
    *os << c.name;
}

class FilePipeline : public testing::TestWithParam<FileCase> {};

TEST_P(FilePipeline, EqualsTheToolSampleForSample) {
    const FileCase &c = GetParam();
    cli::TempDir dir;
    cli::Wav near, far;
    write_inputs(dir, c, near, far);

    std::vector<std::string> args = {
        "process",        "--quiet",           "--near", dir.path("near.wav"),
        "--far",          dir.path("far.wav"), "-o",     dir.path("tool.wav"),
        "--metrics-json", dir.path("m.json")};
    args.insert(args.end(), c.tool_options.begin(), c.tool_options.end());
    const cli::Result tool = cli::run(args);
    ASSERT_EQ(tool.status, 0) << tool.err;

    const int lines_before = library_lines;
    Outcome o;
    const std::string printed = qtest::capture_stdout([&] {
        const std::string config =
            c.config != nullptr ? " config=" + dir.write_file("tuned.json", c.config) : "";
        GstElement *pipeline = launch(file_pipeline(dir.dir(), c.properties + config));
        if (c.shift_in_timestamps) {
            delay_pad(pipeline, "far_sink",
                      gst_util_uint64_scale_int(c.shift, GST_SECOND, near.rate));
        }
        o = play(pipeline);
        gst_object_unref(pipeline);
    });
    ASSERT_TRUE(o.finished) << o.error_source << ": " << o.error_text;
    EXPECT_EQ(printed, "") << "the library's messages belong in the debug category";
    EXPECT_GT(library_lines, lines_before);

    const cli::Wav ours = cli::read_wav(dir.path("element.wav"));
    const cli::Wav theirs = cli::read_wav(dir.path("tool.wav"));
    ASSERT_EQ(ours.samples.size(), near.samples.size());
    ASSERT_EQ(ours.samples.size(), theirs.samples.size());
    const auto diff =
        std::mismatch(ours.samples.begin(), ours.samples.end(), theirs.samples.begin());
    EXPECT_TRUE(diff.first == ours.samples.end())
        << "first difference at sample " << (diff.first - ours.samples.begin()) / near.channels;

    const std::string metrics = qtest::read_file(dir.path("m.json"));
    EXPECT_EQ(o.last.frames, cli::json_number(metrics, "frames"));
    EXPECT_EQ(o.last.saturated, cli::json_number(metrics, "saturated_frames"));
    EXPECT_EQ(c.saturate, o.last.saturated > 0);
    EXPECT_EQ(o.last.missing, frames_without_reference(near.samples.size() / near.channels,
                                                       far.samples.size() / far.channels, c));
}

testkit::Scenario scenario(int rate, int near_channels, int far_channels) {
    testkit::Scenario s;
    s.rate = rate;
    s.near_channels = near_channels;
    s.far_channels = far_channels;
    s.seconds = 4.0;
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Gst, FilePipeline,
    testing::Values(
        FileCase{.name = "demo_defaults"},
        FileCase{.name = "linear_stage",
                 .scenario = scenario(16000, 1, 1),
                 .properties = "mode=linear",
                 .tool_options = {"--mode", "linear"}},
        // 12.5 ms at 32 kHz: 400 samples.
        FileCase{.name = "tuned_and_delayed",
                 .scenario = scenario(32000, 1, 1),
                 .shift = 400,
                 .properties = "comfort-noise=true intensity=8,6,6,8,12,12,12 "
                               "edges=5,8,30,45,50,60 ratio=4 far-delay=12.5",
                 .tool_options = {"--cng", "--intensity", "8,6,6,8,12,12,12", "--edges",
                                  "5,8,30,45,50,60", "--ratio", "4", "--far-delay", "12.5"}},
        // A reference 20 ms later in running time pairs as --far-delay 20 does.
        FileCase{.name = "reference_timestamps_later",
                 .scenario = scenario(16000, 1, 1),
                 .shift = 320,
                 .shift_in_timestamps = true,
                 .tool_options = {"--far-delay", "20"}},
        // The tune result's edges and ratio, with its intensities overridden.
        FileCase{.name = "config_and_property",
                 .scenario = scenario(16000, 1, 1),
                 .properties = "intensity=9,9,9,9,9,9,9",
                 .tool_options = {"--intensity", "9,9,9,9,9,9,9", "--edges", "3,7,30,40,60,90",
                                  "--ratio", "3"},
                 .config = R"({"tuned": {"erle_db": 30.5, "intensity": [1, 2, 3, 4, 5, 6, 7],
                               "edges": [3, 7, 30, 40, 60, 90], "ratio": 3}})"},
        FileCase{.name = "stereo_short_reference_odd_length",
                 .scenario = scenario(48000, 2, 2),
                 .extra_samples = 77,
                 .far_share = 0.8,
                 .saturate = true},
        FileCase{.name = "stereo_microphone_mono_reference",
                 .scenario = scenario(8000, 2, 1),
                 .extra_samples = 5}),
    [](const testing::TestParamInfo<FileCase> &info) { return info.param.name; });

// ---- Live pipelines ---------------------------------------------------------------------

// The same noise reaches the microphone and, through a queue that holds it 20 ms (and says
// so in its latency), the reference: the echo path is the identity, so a correct pairing by
// running time cancels it whatever the arrival order. The element waits 40 ms more than the
// latency asks, so that a loaded machine does not make the reference late.
constexpr GstClockTime kExtraLatency = 40 * GST_MSECOND;
const std::string kLivePipeline =
    "audiotestsrc is-live=true wave=white-noise samplesperbuffer=160 "
    "! audio/x-raw,format=S16LE,rate=16000,channels=1 ! tee name=t "
    "t. ! queue ! aec.near_sink "
    "t. ! queue min-threshold-time=20000000 ! aec.far_sink "
    "qenaec name=aec stats-interval=500 latency=" +
    std::to_string(kExtraLatency) + " ! fakesink";
constexpr int kLiveRate = 16000;
constexpr GstClockTime kLiveRun = 5 * GST_SECOND;

struct LiveCase {
    const char *name;
    GstClockTime stop_reference;  // reference buffers from here on are dropped; NONE: never
};

struct OutputLog {
    std::mutex lock;
    std::vector<std::pair<GstClockTime, GstClockTime>> buffers;  // pts, duration
    std::atomic<GstClockTime> reached{0};                        // stream time covered
};

GstPadProbeReturn log_output(GstPad *, GstPadProbeInfo *info, gpointer data) {
    auto *log = static_cast<OutputLog *>(data);
    GstBuffer *b = GST_PAD_PROBE_INFO_BUFFER(info);
    std::lock_guard<std::mutex> hold(log->lock);
    log->buffers.emplace_back(GST_BUFFER_PTS(b), GST_BUFFER_DURATION(b));
    log->reached = GST_BUFFER_PTS(b) + GST_BUFFER_DURATION(b) - log->buffers.front().first;
    return GST_PAD_PROBE_OK;
}

struct ReferenceCut {
    GstClockTime after;
    GstClockTime first = GST_CLOCK_TIME_NONE;
};

GstPadProbeReturn cut_reference(GstPad *, GstPadProbeInfo *info, gpointer data) {
    auto *cut = static_cast<ReferenceCut *>(data);
    const GstClockTime pts = GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info));
    if (!GST_CLOCK_TIME_IS_VALID(cut->first)) {
        cut->first = pts;
    }
    return pts - cut->first >= cut->after ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
}

GstClockTime min_latency(GstPad *pad, bool peer) {
    GstQuery *q = gst_query_new_latency();
    GstClockTime min = GST_CLOCK_TIME_NONE;
    if (peer ? gst_pad_peer_query(pad, q) : gst_pad_query(pad, q)) {
        gst_query_parse_latency(q, nullptr, &min, nullptr);
    }
    gst_query_unref(q);
    return min;
}

void PrintTo(const LiveCase &c, std::ostream *os) {
    *os << c.name;
}

class LivePipeline : public testing::TestWithParam<LiveCase> {};

TEST_P(LivePipeline, KeepsTheMicrophoneFlowing) {
    const LiveCase &c = GetParam();
    GstElement *pipeline = launch(kLivePipeline);
    GstElement *aec = gst_bin_get_by_name(GST_BIN(pipeline), "aec");
    GstPad *src = gst_element_get_static_pad(aec, "src");
    GstPad *near = gst_element_get_static_pad(aec, "near_sink");
    GstPad *far = gst_element_get_static_pad(aec, "far_sink");
    OutputLog log;
    ReferenceCut cut{c.stop_reference};
    gst_pad_add_probe(src, GST_PAD_PROBE_TYPE_BUFFER, log_output, &log, nullptr);
    if (GST_CLOCK_TIME_IS_VALID(c.stop_reference)) {
        gst_pad_add_probe(far, GST_PAD_PROBE_TYPE_BUFFER, cut_reference, &cut, nullptr);
    }
    GstClockTime ours = 0, upstream = 0;
    const Outcome o = play(
        pipeline, [&] { return log.reached >= kLiveRun; },
        [&] {
            ours = min_latency(src, false);
            upstream = std::max(min_latency(near, true), min_latency(far, true));
        });
    double erle = 0.0;
    g_object_get(aec, "erle", &erle, nullptr);
    for (GstPad *p : {src, near, far}) {
        gst_object_unref(p);
    }
    gst_object_unref(aec);
    gst_object_unref(pipeline);

    ASSERT_TRUE(o.finished) << o.error_source << ": " << o.error_text;
    EXPECT_EQ(ours,
              upstream + gst_util_uint64_scale_int(kFrame, GST_SECOND, kLiveRate) + kExtraLatency)
        << "the element adds one frame to the latency";
    ASSERT_GT(log.buffers.size(), 1u);
    for (size_t i = 1; i < log.buffers.size(); ++i) {
        ASSERT_EQ(log.buffers[i].first, log.buffers[i - 1].first + log.buffers[i - 1].second)
            << "gap or overlap before output buffer " << i;
    }
    ASSERT_GT(o.stats_messages, 0);
    if (GST_CLOCK_TIME_IS_VALID(c.stop_reference)) {
        // Every frame from the cut on went without its reference (one more for alignment).
        const guint64 before_cut =
            gst_util_uint64_scale(c.stop_reference, kLiveRate, GST_SECOND) / kFrame;
        EXPECT_GE(o.last.missing + before_cut + 1, o.last.frames);
    } else {
        // A reference that comes within the latency is waited for.
        EXPECT_LT(o.last.missing * 10, o.last.frames);
        EXPECT_GT(erle, 20.0) << "microphone and reference paired by running time";
    }
}

INSTANTIATE_TEST_SUITE_P(Gst, LivePipeline,
                         testing::Values(LiveCase{"reference_20ms_late", GST_CLOCK_TIME_NONE},
                                         LiveCase{"reference_stopped_half_way", kLiveRun / 2}),
                         [](const testing::TestParamInfo<LiveCase> &info) {
                             return info.param.name;
                         });

// ---- Refused formats --------------------------------------------------------------------

struct RefusedCase {
    const char *name;
    int near_rate;
    int near_channels;
    bool near_float;
    int far_rate;
};

void PrintTo(const RefusedCase &c, std::ostream *os) {
    *os << c.name;
}

class RefusedFormat : public testing::TestWithParam<RefusedCase> {};

TEST_P(RefusedFormat, FailsNegotiationNamingWhatIsSupported) {
    const RefusedCase &c = GetParam();
    cli::TempDir dir;
    const std::vector<int16_t> near(c.near_rate / 2 * c.near_channels, 1000);
    if (c.near_float) {
        cli::write_float_wav(dir.path("near.wav"), c.near_rate, c.near_channels,
                             std::vector<float>(near.size(), 0.03f));
    } else {
        cli::write_wav(dir.path("near.wav"), c.near_rate, c.near_channels, near);
    }
    cli::write_wav(dir.path("far.wav"), c.far_rate, 1, std::vector<int16_t>(c.far_rate / 2, 1000));

    GstElement *pipeline = launch(file_pipeline(dir.dir(), ""));
    const Outcome o = play(pipeline);
    gst_object_unref(pipeline);

    EXPECT_EQ(o.error_source, "aec");
    EXPECT_EQ(o.error_domain, GST_CORE_ERROR);
    EXPECT_EQ(o.error_code, GST_CORE_ERROR_NEGOTIATION);
    for (const char *words : kSupportedWords) {
        EXPECT_NE(o.error_text.find(words), std::string::npos) << o.error_text;
    }
}

INSTANTIATE_TEST_SUITE_P(Gst, RefusedFormat,
                         testing::Values(RefusedCase{"rate_44100", 44100, 1, false, 44100},
                                         RefusedCase{"float", 16000, 1, true, 16000},
                                         RefusedCase{"three_channels", 16000, 3, false, 16000},
                                         RefusedCase{"rates_differ", 16000, 1, false, 8000}),
                         [](const testing::TestParamInfo<RefusedCase> &info) {
                             return info.param.name;
                         });

// ---- Unusable tune results --------------------------------------------------------------

struct ConfigCase {
    const char *name;
    const char *text;   // nullptr: no such file
    const char *named;  // what the message must point at, besides the file
};

void PrintTo(const ConfigCase &c, std::ostream *os) {
    *os << c.name;
}

class BadConfig : public testing::TestWithParam<ConfigCase> {};

TEST_P(BadConfig, StopsTheStartNamingTheFile) {
    const ConfigCase &c = GetParam();
    cli::TempDir dir;
    const std::string path =
        c.text != nullptr ? dir.write_file("tuned.json", c.text) : dir.path("absent.json");
    const std::string source =
        "audiotestsrc num-buffers=4 ! audio/x-raw,format=S16LE,rate=16000,channels=1 ! ";
    GstElement *pipeline = launch(source + "aec.near_sink " + source + "aec.far_sink " +
                                  "qenaec name=aec config=" + path + " ! fakesink");
    const Outcome o = play(pipeline);
    gst_object_unref(pipeline);

    EXPECT_EQ(o.error_source, "aec");
    EXPECT_EQ(o.error_domain, GST_RESOURCE_ERROR);
    EXPECT_NE(o.error_text.find(path), std::string::npos) << o.error_text;
    EXPECT_NE(o.error_text.find(c.named), std::string::npos) << o.error_text;
}

INSTANTIATE_TEST_SUITE_P(
    Gst, BadConfig,
    testing::Values(ConfigCase{"missing", nullptr, "No such file"},
                    ConfigCase{"not_json", "tuned: yes", "not valid JSON"},
                    ConfigCase{"edges_short",
                               R"({"tuned": {"intensity": [1, 2, 3, 4, 5, 6, 7], "edges": [4, 6],
                                             "ratio": 2}})",
                               "tuned.edges"}),
    [](const testing::TestParamInfo<ConfigCase> &info) { return info.param.name; });

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    gst_init(&argc, &argv);
    // The library's lines are counted, not printed.
    gst_debug_remove_log_function(gst_debug_log_default);
    gst_debug_add_log_function(count_library_lines, nullptr, nullptr);
    gst_debug_set_active(TRUE);
    gst_debug_set_threshold_for_name("qenaec", GST_LEVEL_INFO);
    const int result = RUN_ALL_TESTS();
    gst_deinit();
    return result;
}
