// The qenaec element in pipelines run inside this process (so the asan preset watches its
// allocations): against `qenaec process` on the same files, live, and refusing.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

constexpr int kFrame = 128;
std::atomic<int> library_lines{0};  // the library's lines, as they reached the debug category

void count_library_lines(GstDebugCategory *category, GstDebugLevel, const gchar *file,
                         const gchar *, gint, GObject *, GstDebugMessage *, gpointer) {
    library_lines += std::strcmp(gst_debug_category_get_name(category), "qenaec") == 0 &&
                     std::strcmp(file, "libqenaec") == 0;
}

struct Outcome {
    bool finished = false;  // end of stream, or the caller's condition
    std::string error_source, error_text;
    GQuark error_domain = 0;
    int error_code = 0, stats_messages = 0;
    guint64 frames = 0, saturated = 0, missing = 0;  // of the last qenaec-stats message
};

// Takes the message in and releases it.
void take_message(GstMessage *m, Outcome &o) {
    if (GST_MESSAGE_TYPE(m) == GST_MESSAGE_EOS) {
        o.finished = true;
    } else if (GST_MESSAGE_TYPE(m) == GST_MESSAGE_ERROR && o.error_source.empty()) {
        GError *e = nullptr;
        gst_message_parse_error(m, &e, nullptr);
        o.error_source = GST_OBJECT_NAME(GST_MESSAGE_SRC(m));
        o.error_domain = e->domain;
        o.error_code = e->code;
        o.error_text = e->message;
        g_error_free(e);
    } else if (gst_message_has_name(m, "qenaec-stats")) {
        ++o.stats_messages;
        gst_structure_get(gst_message_get_structure(m), "frames", G_TYPE_UINT64, &o.frames,
                          "saturated-frames", G_TYPE_UINT64, &o.saturated,
                          "missing-reference-frames", G_TYPE_UINT64, &o.missing, nullptr);
    }
    gst_message_unref(m);
}

// Plays until end of stream, an error, or `done`. The minute's limit only keeps a hang from
// stalling the suite. The pipeline is released.
Outcome play(GstElement *pipeline, const std::function<bool()> &done = {}) {
    GstBus *bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    Outcome o;
    const gint64 give_up = g_get_monotonic_time() + 60 * G_USEC_PER_SEC;
    while (!o.finished && o.error_source.empty() && g_get_monotonic_time() < give_up) {
        if (GstMessage *m = gst_bus_timed_pop(bus, 20 * GST_MSECOND)) {
            take_message(m, o);
        }
        o.finished = o.finished || (done && done());
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    while (GstMessage *m = gst_bus_pop(bus)) {
        take_message(m, o);
    }
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    return o;
}

GstElement *launch(const std::string &description) {
    GError *error = nullptr;
    GstElement *pipeline = gst_parse_launch(description.c_str(), &error);
    EXPECT_EQ(error, nullptr) << description << ": " << (error ? error->message : "");
    g_clear_error(&error);
    return pipeline;
}

GstPad *aec_pad(GstElement *pipeline, const char *name) {
    GstElement *aec = gst_bin_get_by_name(GST_BIN(pipeline), "aec");
    GstPad *pad = gst_element_get_static_pad(aec, name);
    gst_object_unref(aec);
    return pad;
}

std::string file_pipeline(const std::string &dir, const std::string &properties) {
    return "qenaec name=aec " + properties + " ! wavenc ! filesink location=" + dir +
           "/element.wav filesrc location=" + dir + "/near.wav ! wavparse ! aec.near_sink " +
           "filesrc location=" + dir + "/far.wav ! wavparse ! aec.far_sink";
}

const auto case_name = [](const auto &info) { return std::string(info.param.name); };

// ---- File pipelines against the tool -----------------------------------------------------

struct FileCase {
    const char *name;
    int rate, near_channels, far_channels;
    size_t extra_samples = 0;  // near samples beyond whole frames
    double far_share = 1.0;    // far length over near length
    bool saturate = false;     // a clipped burst on the microphone
    long far_delay = 0;        // samples the properties delay the reference by
    long late = 0;             // samples the reference's timestamps lag by
    const char *properties = "", *tool_options = "";
    const char *config = nullptr;  // a tune result, given to the element as config=
};

class FilePipeline : public testing::TestWithParam<FileCase> {};

TEST_P(FilePipeline, EqualsTheToolSampleForSample) {
    const FileCase &c = GetParam();
    cli::TempDir dir;
    testkit::Recording r = testkit::noise_echo({.rate = c.rate,
                                                .near_channels = c.near_channels,
                                                .far_channels = c.far_channels,
                                                .seconds = 4.0});
    r.near.resize(r.near.size() + c.extra_samples * c.near_channels, 0);
    const size_t near_len = r.near.size() / c.near_channels;
    const size_t far_len = static_cast<size_t>(std::lround(near_len * c.far_share));
    r.far.resize(far_len * c.far_channels);
    for (size_t i = r.near.size() / 3; c.saturate && i < r.near.size() / 3 + 4000; ++i) {
        r.near[i] = i % 2 == 0 ? 32767 : -32768;
    }
    std::vector<std::string> args = {"--quiet"};
    std::istringstream options(c.tool_options);
    for (std::string word; options >> word;) {
        args.push_back(word);
    }
    const cli::Result tool =
        cli::process_files(dir, c.rate, c.near_channels, r.near, c.far_channels, r.far, args);
    ASSERT_EQ(tool.status, 0) << tool.err;

    const int lines_before = library_lines;
    Outcome o;
    const std::string printed = qtest::capture_stdout([&] {
        const std::string config = c.config ? " config=" + dir.write_file("t.json", c.config) : "";
        GstElement *pipeline = launch(file_pipeline(dir.path(), c.properties + config));
        GstPad *pad = aec_pad(pipeline, "far_sink");
        gst_pad_set_offset(pad, gst_util_uint64_scale_int(c.late, GST_SECOND, c.rate));
        gst_object_unref(pad);
        o = play(pipeline);
    });
    ASSERT_TRUE(o.finished) << o.error_source << ": " << o.error_text;
    EXPECT_EQ(printed, "") << "the library's messages belong in the debug category";
    EXPECT_GT(library_lines, lines_before);
    const std::vector<int16_t> ours = cli::read_wav(dir.path("element.wav")).samples;
    ASSERT_EQ(ours.size(), r.near.size());
    EXPECT_TRUE(ours == cli::read_wav(dir.path("out.wav")).samples);

    const std::string metrics = qtest::read_file(dir.path("m.json"));
    EXPECT_EQ(o.frames, cli::json_number(metrics, "frames"));
    EXPECT_EQ(o.saturated, cli::json_number(metrics, "saturated_frames"));
    EXPECT_EQ(c.saturate, o.saturated > 0);
    // Frames where some microphone sample finds no reference: it has ended, or it starts
    // late in the timestamps. A far-delay reaches back before the start instead, where
    // there never was a reference to miss.
    guint64 missing = 0;
    for (size_t start = 0; start < near_len; start += kFrame) {
        const long last = static_cast<long>(std::min(start + kFrame, near_len)) - 1;
        missing += last - c.far_delay - c.late >= static_cast<long>(far_len) ||
                   static_cast<long>(start) < c.late;
    }
    EXPECT_EQ(o.missing, missing);
}

INSTANTIATE_TEST_SUITE_P(
    Gst, FilePipeline,
    testing::Values(
        // 12.5 ms at 32 kHz: 400 samples.
        FileCase{"tuned_and_delayed", 32000, 1, 1, 0, 1.0, false, 400, 0,
                 "comfort-noise=true intensity=8,6,6,8,12,12,12 edges=5,8,30,45,50,60 ratio=4 "
                 "far-delay=12.5",
                 "--cng --intensity 8,6,6,8,12,12,12 --edges 5,8,30,45,50,60 --ratio 4 "
                 "--far-delay 12.5"},
        // A reference 20 ms later in running time pairs as --far-delay 20 does.
        FileCase{"linear_reference_timestamps_later", 16000, 1, 1, 0, 1.0, false, 0, 320,
                 "mode=linear", "--mode linear --far-delay 20"},
        // The tune result's edges and ratio, with its intensities overridden.
        FileCase{"config_and_property", 8000, 2, 1, 5, 1.0, false, 0, 0, "intensity=9,9,9,9,9,9,9",
                 "--intensity 9,9,9,9,9,9,9 --edges 3,7,30,40,60,90 --ratio 3",
                 R"({"tuned": {"erle_db": 30.5, "intensity": [1, 2, 3, 4, 5, 6, 7],
                               "edges": [3, 7, 30, 40, 60, 90], "ratio": 3}})"},
        FileCase{"stereo_short_reference_odd_length", 48000, 2, 2, 77, 0.8, true}),
    case_name);

// ---- Live pipelines -----------------------------------------------------------------------

// The same noise reaches the microphone and, 20 ms later through a queue, the reference: the
// echo path is the identity, so only a pairing by running time cancels it. The element waits
// 250 ms more than the latency asks, so that a loaded machine does not make the reference late.
constexpr GstClockTime kExtraLatency = 250 * GST_MSECOND, kLiveRun = 5 * GST_SECOND;
constexpr int kLiveRate = 16000;

struct LiveCase {
    const char *name;
    GstClockTime stop_reference;  // reference buffers from here on are dropped; NONE: never
};

// The output's timestamps, checked for gaps and overlaps on the streaming thread.
struct Probes {
    std::atomic<int> buffers{0}, gaps{0};
    std::atomic<GstClockTime> reached{0};  // stream time put out
    GstClockTime first_output = GST_CLOCK_TIME_NONE, next_output = GST_CLOCK_TIME_NONE;
    GstClockTime stop_reference, first_reference = GST_CLOCK_TIME_NONE;
};

GstPadProbeReturn log_output(GstPad *, GstPadProbeInfo *info, gpointer data) {
    auto *p = static_cast<Probes *>(data);
    GstBuffer *b = GST_PAD_PROBE_INFO_BUFFER(info);
    p->gaps += p->buffers++ > 0 && GST_BUFFER_PTS(b) != p->next_output;
    p->first_output = p->buffers == 1 ? GST_BUFFER_PTS(b) : p->first_output;
    p->next_output = GST_BUFFER_PTS(b) + GST_BUFFER_DURATION(b);
    p->reached = p->next_output - p->first_output;
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn cut_reference(GstPad *, GstPadProbeInfo *info, gpointer data) {
    auto *p = static_cast<Probes *>(data);
    const GstClockTime pts = GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info));
    if (!GST_CLOCK_TIME_IS_VALID(p->first_reference)) {
        p->first_reference = pts;
    }
    return pts - p->first_reference >= p->stop_reference ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
}

class LivePipeline : public testing::TestWithParam<LiveCase> {};

TEST_P(LivePipeline, KeepsTheMicrophoneFlowing) {
    const LiveCase &c = GetParam();
    GstElement *pipeline = launch(
        "audiotestsrc is-live=true wave=white-noise samplesperbuffer=160 "
        "! audio/x-raw,format=S16LE,rate=16000,channels=1 ! tee name=t "
        "t. ! queue ! aec.near_sink t. ! queue min-threshold-time=20000000 ! aec.far_sink "
        "qenaec name=aec stats-interval=500 latency=" +
        std::to_string(kExtraLatency) + " ! fakesink");
    GstElement *aec = gst_bin_get_by_name(GST_BIN(pipeline), "aec");
    GstPad *src = aec_pad(pipeline, "src"), *far = aec_pad(pipeline, "far_sink");
    Probes p;
    p.stop_reference = c.stop_reference;
    gst_pad_add_probe(src, GST_PAD_PROBE_TYPE_BUFFER, log_output, &p, nullptr);
    gst_pad_add_probe(far, GST_PAD_PROBE_TYPE_BUFFER, cut_reference, &p, nullptr);
    gst_object_unref(src);
    gst_object_unref(far);
    const Outcome o = play(pipeline, [&] { return p.reached >= kLiveRun; });
    double erle = 0.0;
    g_object_get(aec, "erle", &erle, nullptr);
    gst_object_unref(aec);

    ASSERT_TRUE(o.finished) << o.error_source << ": " << o.error_text;
    ASSERT_GT(p.buffers, 1);
    EXPECT_EQ(p.gaps, 0) << "gaps or overlaps between output buffers";
    ASSERT_GT(o.stats_messages, 0);
    if (GST_CLOCK_TIME_IS_VALID(c.stop_reference)) {
        // Every frame from the cut on went without its reference (one more for alignment).
        const guint64 before_cut =
            gst_util_uint64_scale(c.stop_reference, kLiveRate, GST_SECOND) / kFrame;
        EXPECT_GE(o.missing + before_cut + 1, o.frames);
    } else {
        // A reference that comes within the latency is waited for.
        EXPECT_LT(o.missing * 10, o.frames);
        EXPECT_GT(erle, 20.0) << "microphone and reference paired by running time";
    }
}

INSTANTIATE_TEST_SUITE_P(Gst, LivePipeline,
                         testing::Values(LiveCase{"reference_20ms_late", GST_CLOCK_TIME_NONE},
                                         LiveCase{"reference_stopped_half_way", kLiveRun / 2}),
                         case_name);

// ---- Refused formats and configs -----------------------------------------------------------

struct Refusal {
    const char *name;
    int near_rate, near_channels;
    bool near_float;
    int far_rate;
    const char *config;  // nullptr: none; "": a file that does not exist
    std::vector<const char *> words;
};

class Refused : public testing::TestWithParam<Refusal> {};

TEST_P(Refused, StopsNamingWhatIsWrong) {
    const Refusal &c = GetParam();
    cli::TempDir dir;
    const size_t samples = c.near_rate / 2 * c.near_channels;
    const std::string near = dir.path("near.wav");
    c.near_float
        ? cli::write_wav(near, c.near_rate, c.near_channels, std::vector(samples, 0.03f))
        : cli::write_wav(near, c.near_rate, c.near_channels, std::vector<int16_t>(samples, 1000));
    cli::write_wav(dir.path("far.wav"), c.far_rate, 1, std::vector<int16_t>(c.far_rate / 2, 1000));
    std::string path;
    if (c.config != nullptr) {
        path = *c.config ? dir.write_file("t.json", c.config) : dir.path("absent.json");
    }
    const Outcome o = play(launch(file_pipeline(dir.path(), path.empty() ? "" : "config=" + path)));
    EXPECT_EQ(o.error_source, "aec");
    EXPECT_EQ(o.error_domain, c.config ? GST_RESOURCE_ERROR : GST_CORE_ERROR);
    EXPECT_TRUE(c.config || o.error_code == GST_CORE_ERROR_NEGOTIATION) << o.error_code;
    EXPECT_NE(o.error_text.find(path), std::string::npos) << o.error_text;
    for (const char *words : c.words) {
        EXPECT_NE(o.error_text.find(words), std::string::npos) << o.error_text;
    }
}

const std::vector<const char *> kSupported = {"S16LE", "8000, 16000, 32000 or 48000 Hz",
                                              "1 or 2 channels"};
const char *kShortEdges =
    R"({"tuned": {"intensity": [1, 2, 3, 4, 5, 6, 7], "edges": [4, 6], "ratio": 2}})";

INSTANTIATE_TEST_SUITE_P(
    Gst, Refused,
    testing::Values(
        Refusal{"rate_44100", 44100, 1, false, 44100, nullptr, kSupported},
        Refusal{"float", 16000, 1, true, 16000, nullptr, kSupported},
        Refusal{"three_channels", 16000, 3, false, 16000, nullptr, kSupported},
        Refusal{"rates_differ", 16000, 1, false, 8000, nullptr, kSupported},
        Refusal{"config_missing", 16000, 1, false, 16000, "", {"No such file"}},
        Refusal{"config_not_json", 16000, 1, false, 16000, "tuned: yes", {"not valid JSON"}},
        Refusal{"config_edges_short", 16000, 1, false, 16000, kShortEdges, {"tuned.edges"}}),
    case_name);

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
