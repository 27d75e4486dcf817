// `qenaec tune` end to end: on a synthetic device whose loudspeaker distorts in one band, the
// search must spend its suppression there; `process --config` must get the ERLE tune
// reported; the thread count must not change the result; and bad input must be refused
// before any work, leaving an existing result untouched.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "cli_support.h"
#include "testkit/signals.h"

namespace {

constexpr int kRate = 8000;

struct Device {
    std::vector<int16_t> mic, far, talker;
};

// A linear-phase band pass of lo..hi Hz (windowed sinc, 255 taps): the output lags the input
// by 127 samples.
std::vector<double> band_pass(const std::vector<double> &x, double lo, double hi) {
    constexpr int kTaps = 255;
    std::vector<double> h(kTaps);
    for (int k = 0; k < kTaps; ++k) {
        const double t = k - kTaps / 2;
        const auto low_pass = [t](double hz) {
            const double w = 2.0 * hz / kRate;
            return t == 0.0 ? w : std::sin(std::numbers::pi * w * t) / (std::numbers::pi * t);
        };
        h[k] = (low_pass(hi) - low_pass(lo)) *
               (0.54 - 0.46 * std::cos(2 * std::numbers::pi * k / (kTaps - 1)));
    }
    std::vector<double> y(x.size(), 0.0);
    for (size_t n = 0; n < x.size(); ++n) {
        for (size_t k = 0; k < h.size() && k <= n; ++k) {
            y[n] += h[k] * x[n - k];
        }
    }
    return y;
}

double energy(const std::vector<double> &x) {
    double e = 0.0;
    for (double v : x) {
        e += v * v;
    }
    return e;
}

// Modulated noise on the loudspeaker and its echo through a short random room, as the
// end-to-end suites make them, above 200 Hz, plus the loudspeaker's distortion |x|x kept to
// 400..900 Hz at three times the linear echo's power there: the linear stage cannot model it, and
// with the default edges at 8 kHz it lies in band 2 (bins 7..36, 219..1125 Hz). The talker speaks
// in bursts of noise, 0.4 s on and off.
Device leaky_device(double seconds) {
    testkit::Scenario s;
    s.rate = kRate;
    s.seconds = seconds;
    s.seed = 5;
    const testkit::Recording rec = testkit::noise_echo(s);
    const size_t n = rec.far.size();
    // A small loudspeaker plays nothing below 200 Hz.
    const std::vector<double> echo =
        band_pass(std::vector<double>(rec.near.begin(), rec.near.end()), 200.0, kRate / 2.0);
    std::vector<double> driven(n);
    for (size_t t = 0; t < n; ++t) {
        driven[t] = std::fabs(static_cast<double>(rec.far[t])) * rec.far[t];
    }
    const std::vector<double> distortion = band_pass(driven, 400.0, 900.0);
    const double gain = std::sqrt(3.0 * energy(band_pass(echo, 400.0, 900.0)) / energy(distortion));

    Device d;
    d.far = rec.far;
    std::mt19937 rng(11);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const size_t burst = static_cast<size_t>(0.4 * kRate);
    for (size_t t = 0; t < n; ++t) {
        d.mic.push_back(testkit::to_pcm(echo[t] + gain * distortion[t]));
        const double voice = (t / burst) % 2 == 1 ? 2000.0 * gauss(rng) : 0.0;
        d.talker.push_back(testkit::to_pcm(voice + 33.0 * gauss(rng)));
    }
    return d;
}

struct Files {
    std::string mic, far, talker;
};

Files write_device(const cli::TempDir &dir, const Device &d, int talker_rate = kRate) {
    Files f{dir.path("mic.wav"), dir.path("far.wav"), dir.path("talker.wav")};
    cli::write_wav(f.mic, kRate, 1, d.mic);
    cli::write_wav(f.far, kRate, 1, d.far);
    cli::write_wav(f.talker, talker_rate, 1, d.talker);
    return f;
}

std::vector<std::string> tune_args(const Files &f, const std::vector<std::string> &extra) {
    std::vector<std::string> args = {"tune", "--near",   f.mic,    "--far",
                                     f.far,  "--talker", f.talker, "--quick"};
    args.insert(args.end(), extra.begin(), extra.end());
    return args;
}

std::array<int, 7> intensities(const std::string &json, const char *entry) {
    std::array<int, 7> v{};
    cJSON *root = cJSON_Parse(json.c_str());
    const cJSON *a = cJSON_GetObjectItem(cJSON_GetObjectItem(root, entry), "intensity");
    for (int i = 0; i < 7 && cJSON_GetArraySize(a) == 7; ++i) {
        v[i] = cJSON_GetArrayItem(a, i)->valueint;
    }
    cJSON_Delete(root);
    return v;
}

TEST(Tune, SpendsSuppressionOnTheLeakyBandAndProcessGetsItsErle) {
    cli::TempDir tmp;
    const Files f = write_device(tmp, leaky_device(4.0));
    const cli::Result r = cli::run(tune_args(f, {"--max-near-loss", "10", "--jobs", "2", "--json",
                                                 tmp.path("t.json"), "--csv", tmp.path("c.csv")}));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string json = qtest::read_file(tmp.path("t.json"));
    const auto before = intensities(json, "default");
    const auto after = intensities(json, "tuned");
    EXPECT_GE(after[2] - before[2], 6) << json;
    for (int b = 0; b < 7; ++b) {
        if (b != 2) {
            EXPECT_LT(after[b] - before[b], after[2] - before[2]) << "band " << b << "\n" << json;
        }
    }
    EXPECT_LE(cli::json_number(json, "tuned.near_loss_db"), 10.0);
    EXPECT_EQ(cli::count_lines(qtest::read_file(tmp.path("c.csv"))),
              cli::json_number(json, "candidates") + 1);

    // The tuned ERLE is what `process` measures with the tuned settings.
    const cli::Result p =
        cli::run({"process", "--near", f.mic, "--far", f.far, "-o", tmp.path("out.wav"), "--config",
                  tmp.path("t.json"), "--metrics-json", tmp.path("m.json")});
    ASSERT_EQ(p.status, 0) << p.err;
    EXPECT_NEAR(cli::json_number(qtest::read_file(tmp.path("m.json")), "erle_db"),
                cli::json_number(json, "tuned.erle_db"), 0.05);
}

// The candidates run on threads; their figures and order must not depend on how many.
TEST(Tune, SameResultWhateverTheThreadCount) {
    cli::TempDir tmp;
    const Files f = write_device(tmp, leaky_device(1.5));
    std::string csv[2];
    for (int i = 0; i < 2; ++i) {
        const std::string path = tmp.path(i == 0 ? "one.csv" : "three.csv");
        const cli::Result r = cli::run(tune_args(f, {"--jobs", i == 0 ? "1" : "3", "--csv", path}));
        ASSERT_EQ(r.status, 0) << r.err;
        csv[i] = qtest::read_file(path);
    }
    EXPECT_GT(cli::count_lines(csv[0]), 100);
    EXPECT_EQ(csv[1], csv[0]);
}

struct Refusal {
    const char *what;
    std::string talker;              // the talker recording given
    std::vector<std::string> extra;  // after --json of an existing result
    int status;
    const char *message;
};

TEST(Tune, RefusesBadInputWithOneMessageAndNoOutput) {
    cli::TempDir tmp;
    const Device d = leaky_device(2.0);
    const Files f = write_device(tmp, d);
    const std::string t16k = tmp.path("t16k.wav"), silent = tmp.path("silent.wav"),
                      short_one = tmp.path("short.wav"), stereo = tmp.path("stereo.wav");
    cli::write_wav(t16k, 16000, 1, d.talker);
    cli::write_wav(silent, kRate, 1, std::vector<int16_t>(d.talker.size(), 0));
    cli::write_wav(short_one, kRate, 1,
                   std::vector<int16_t>(d.talker.begin(), d.talker.begin() + kRate / 2));
    std::vector<int16_t> both;
    for (int16_t v : d.talker) {
        both.insert(both.end(), {v, v});
    }
    cli::write_wav(stereo, kRate, 2, both);
    const std::string kept = tmp.path("kept.json");
    const Refusal cases[] = {
        {"talker rate", t16k, {}, 1, "is 16000 Hz but the near end is 8000 Hz"},
        {"silent talker", silent, {}, 1, "is silent"},
        {"short talker", short_one, {}, 1, "is 0.50 s long; at least 1 s"},
        {"talker channels", stereo, {}, 1, "has 2 channel(s) but the near end 1"},
        {"negative loss",
         f.talker,
         {"--max-near-loss", "-1"},
         2,
         "--max-near-loss must be 0 dB or more"},
        {"no jobs", f.talker, {"--jobs", "0"}, 2, "--jobs must be 1 to 256 (got 0)"},
        {"talker level",
         f.talker,
         {"--talker-level", "100"},
         2,
         "--talker-level must be within +-40 dB"},
        {"csv over input", f.talker, {"--csv", f.far}, 1, "refusing to write --csv over the input"},
        {"one file twice", f.talker, {"--csv", kept}, 2, "--json and --csv name the same file"},
        {"no folder", f.talker, {"--csv", tmp.path("none/c.csv")}, 1, "does not exist"},
    };
    const std::string far_before = qtest::read_file(f.far);
    for (const Refusal &c : cases) {
        tmp.write_file("kept.json", "keep\n");
        std::vector<std::string> args = {"tune",     "--near", f.mic,    "--far", f.far,
                                         "--talker", c.talker, "--json", kept};
        args.insert(args.end(), c.extra.begin(), c.extra.end());
        const cli::Result r = cli::run(args);
        EXPECT_EQ(r.status, c.status) << c.what << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.what << ": " << r.err;
        EXPECT_EQ(cli::count_lines(r.err), 1) << c.what << ": " << r.err;
        EXPECT_TRUE(r.out.empty()) << c.what;
        EXPECT_EQ(qtest::read_file(kept), "keep\n") << c.what;
    }
    EXPECT_EQ(qtest::read_file(f.far), far_before);
}

// Each broken result names its file and the field; a result the library would refuse never
// reaches it. A good one is the same as giving its values as options.
TEST(ProcessConfig, TakesTheTunedEntryAndRefusesABrokenOneNamingTheField) {
    cli::TempDir tmp;
    const Device d = leaky_device(1.0);
    const std::string good =
        R"({"default": {"ratio": 99}, "tuned": {"erle_db": 30.5, "intensity": [5, 4, 25, 5, 10, )"
        R"(10, 1], "edges": [4, 6, 36, 49, 50, 51], "ratio": 4}})";
    const std::string path = tmp.write_file("t.json", good);
    cli::Result r = cli::process_files(tmp, kRate, 1, d.mic, 1, d.far, {"--config", path});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<int16_t> from_file = cli::read_wav(tmp.path("out.wav")).samples;
    r = cli::process_files(
        tmp, kRate, 1, d.mic, 1, d.far,
        {"--intensity", "5,4,25,5,10,10,1", "--edges", "4,6,36,49,50,51", "--ratio", "4"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(cli::read_wav(tmp.path("out.wav")).samples, from_file);

    const std::pair<std::string, std::string> broken[] = {
        {"[5, 4, 25, 5, 10, 10, 1]", "[5, 4, 26, 5, 10, 10, 1]"},
        {"[5, 4, 25, 5, 10, 10, 1]", "[5, 4, 2.5, 5, 10, 10, 1]"},
        {"[5, 4, 25, 5, 10, 10, 1]", "[5, 4, 25, 5, 10, 10]"},
        {"[4, 6, 36, 49, 50, 51]", "[4, 6, 36, 49, 50, 127]"},
        {"[4, 6, 36, 49, 50, 51]", "[4, 6, 36, 35, 50, 51]"},
        {"\"ratio\": 4", "\"ratio\": 0"},
        {"\"ratio\": 4", "\"ratio\": \"4\""},
        {"\"erle_db\": 30.5", "\"erle_db\": \"high\""},
        {"\"tuned\"", "\"tuning\""},
        {"}}", "}"},
    };
    const char *messages[] = {
        "tuned.intensity[2] must be an integer from 0 to 25 (got 26)",
        "tuned.intensity[2] must be an integer from 0 to 25 (got 2.5)",
        "tuned.intensity must be an array of 7 integers (got an array of 6 values)",
        "tuned.edges[5] must be an integer from 1 to 126 (got 127)",
        "tuned.edges must not decrease: edges[3] = 35 is below edges[2] = 36",
        "tuned.ratio must be an integer from 1 to 10 (got 0)",
        "tuned.ratio must be an integer from 1 to 10 (got the string \"4\")",
        "tuned.erle_db must be a number (got the string \"high\")",
        "tuned is missing",
        "not valid JSON",
    };
    for (size_t i = 0; i < std::size(broken); ++i) {
        std::string text = good;
        text.replace(text.find(broken[i].first), broken[i].first.size(), broken[i].second);
        const std::string bad = tmp.write_file("bad.json", text);
        r = cli::run({"process", "--near", tmp.path("near.wav"), "--far", tmp.path("far.wav"), "-o",
                      tmp.path("bad.wav"), "--config", bad});
        EXPECT_EQ(r.status, 1) << text;
        EXPECT_EQ(r.err.rfind("qenaec: error: '" + bad + "': " + messages[i], 0), 0u) << r.err;
        EXPECT_EQ(cli::count_lines(r.err), 1) << r.err;
        EXPECT_FALSE(cli::file_exists(tmp.path("bad.wav"))) << text;
    }
    r = cli::run({"process", "--near", tmp.path("near.wav"), "--far", tmp.path("far.wav"), "-o",
                  tmp.path("bad.wav"), "--config", path, "--ratio", "2"});
    EXPECT_EQ(r.status, 2) << r.err;
}

}  // namespace
