// Summary text, JSON result and CSV of a tune run (cJSON does the quoting).
#include "tune_report.h"

#include <cjson/cJSON.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "errors.h"

namespace qtool {

namespace {

std::string list(const uint32_t *v, size_t n, const char *sep) {
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += (i > 0 ? sep : "") + std::to_string(v[i]);
    }
    return s;
}

std::string number(double v, const char *format = "%.1f") {
    char buf[48];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

// A word for the shell: quoted unless it is plainly safe.
std::string shell_word(const std::string &w) {
    if (!w.empty() && w.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                          "0123456789_./:,+=-") == std::string::npos) {
        return w;
    }
    std::string q = "'";
    for (char c : w) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

// The input options of the echo recording, as `process` takes them.
std::string input_options(const ProcessRequest &rq) {
    std::string s = "--near " + shell_word(rq.near_path) + " --far " + shell_word(rq.far_path);
    if (rq.raw_near) {
        s += " --raw --rate " + std::to_string(rq.raw_near->rate) + " --near-channels " +
             std::to_string(rq.raw_near->channels) + " --far-channels " +
             std::to_string(rq.raw_far->channels);
    }
    if (rq.far_delay_ms) {
        s += " --far-delay " + number(*rq.far_delay_ms, "%g");
    }
    if (rq.align_auto) {
        s += " --align auto";
    }
    if (rq.resample) {
        s += " --resample";
    }
    return s;
}

std::string settings_options(const QenAecSettings &s) {
    return "--intensity " + list(s.intensity, 7, ",") + " --edges " + list(s.edges, 6, ",") +
           " --ratio " + std::to_string(s.ratio);
}

void print_row(std::FILE *out, const std::string &label, const Candidate &c) {
    std::fprintf(out, "%-18s %9.1f %16.1f %15.1f  ", label.c_str(), c.figures.erle_db,
                 c.figures.loss_db, c.figures.sdr_db);
    if (c.settings) {
        std::fprintf(out, "%-20s %-23s %s\n", list(c.settings->intensity, 7, ",").c_str(),
                     list(c.settings->edges, 6, ",").c_str(),
                     std::to_string(c.settings->ratio).c_str());
    } else {
        std::fprintf(out, "(no QenAec_Config call)\n");
    }
}

void print_header(std::FILE *out, const char *first) {
    std::fprintf(out, "%-18s %9s %16s %15s  %-20s %-23s %s\n", first, "ERLE (dB)",
                 "talker loss (dB)", "talker SDR (dB)", "intensity", "edges", "ratio");
}

void print_c_initialiser(std::FILE *out, const QenAecSettings &s) {
    std::fprintf(out,
                 "AudioAecConfig config = {\n"
                 "    .comfort_noise_enable = QEN_AEC_FALSE,\n"
                 "    .delay_sample = 0,\n"
                 "    .suppression_mode_freq = {%s},\n"
                 "    .suppression_mode_intensity = {%s},\n"
                 "};\n"
                 "/* QenAec_Config(handle, &config); QenAec_SetRecursiveRatio(handle, %u); */\n",
                 list(s.edges, 6, ", ").c_str(), list(s.intensity, 7, ", ").c_str(), s.ratio);
}

struct JsonDeleter {
    void operator()(cJSON *j) const { cJSON_Delete(j); }
};

double rounded(double v) {
    return std::round(v * 100.0) / 100.0;
}

cJSON *figures_json(const Candidate &c) {
    cJSON *o = cJSON_CreateObject();
    cJSON_AddNumberToObject(o, "erle_db", rounded(c.figures.erle_db));
    cJSON_AddNumberToObject(o, "near_loss_db", rounded(c.figures.loss_db));
    cJSON_AddNumberToObject(o, "near_sdr_db", rounded(c.figures.sdr_db));
    if (c.settings && qenaec_settings_to_json(o, &*c.settings) != 0) {
        throw std::bad_alloc();
    }
    return o;
}

// Writes `text` to a temporary file in `path`'s folder and renames it over `path`.
void replace_file(const std::string &path, const std::string &text) {
    std::string tmp = path + ".XXXXXX";
    const int fd = mkstemp(tmp.data());
    bool ok = fd >= 0;
    if (ok) {
        std::FILE *f = fdopen(fd, "w");
        ok = f != nullptr && std::fputs(text.c_str(), f) >= 0;
        ok = (f != nullptr && std::fclose(f) == 0) && ok;
        // mkstemp makes the file private; results are ordinary files.
        ok = ok && chmod(tmp.c_str(), 0644) == 0 && std::rename(tmp.c_str(), path.c_str()) == 0;
        if (!ok) {
            std::remove(tmp.c_str());
        }
    }
    if (!ok) {
        throw failure("cannot write '" + path + "': " + std::strerror(errno));
    }
}

std::string folder_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

void check_writable(const std::string &path, const std::string &option) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        throw failure(option + " '" + path + "' is a folder");
    }
    const std::string dir = folder_of(path);
    if (access(dir.c_str(), W_OK) != 0) {
        throw failure("cannot write '" + path + "': the folder '" + dir + "' " +
                      (errno == ENOENT ? "does not exist" : "is not writable"));
    }
}

void print_tune_summary(std::FILE *out, const TuneReport &rep) {
    const Scene &sc = *rep.scene;
    const SearchResult &r = *rep.result;
    const SearchOptions &opt = *rep.options;
    const ProcessRequest &rq = rep.request->echo;
    std::fprintf(out,
                 "echo recording: %s (near), %s (far); %.2f s at %d Hz, %d near / %d far "
                 "channel(s)\n",
                 rq.near_path.c_str(), rq.far_path.c_str(), sc.rep.duration_s,
                 sc.rep.processing_rate, sc.rep.near_channels, sc.rep.far_channels);
    const std::string shifted =
        sc.rep.far_delay_applied_ms != 0.0
            ? "far end delayed by " + number(sc.rep.far_delay_applied_ms) + " ms"
            : std::string("far end not shifted");
    if (sc.rep.estimated.found) {
        std::fprintf(out, "delay: %.1f ms estimated; %s\n", sc.rep.estimated.ms, shifted.c_str());
    } else {
        std::fprintf(out, "delay: not found; %s\n", shifted.c_str());
    }
    std::fprintf(out,
                 "talker: %s (%.2f s), mixed in at %+.1f dB re the echo's active level "
                 "(gain %+.1f dB)\n",
                 rep.request->talker_path.c_str(), sc.talker_s, rep.request->talker_level_db,
                 sc.talker_gain_db);
    std::fprintf(out,
                 "double talk: %.1f s; ERLE over %.1f s where the far end is active and "
                 "the echo dominates\n",
                 sc.double_talk_s, sc.erle_s);
    const size_t n = r.candidates.size();
    std::fprintf(out, "search: %zu candidates in %.1f s, %.1f candidates/s on %u thread%s\n", n,
                 r.seconds, r.seconds > 0.0 ? static_cast<double>(n) / r.seconds : 0.0, opt.jobs,
                 opt.jobs == 1 ? "" : "s");
    std::fprintf(out, "\n");
    print_header(out, "");
    print_row(out, "as initialised", r.initialised);
    print_row(out, "defaults", r.candidates[r.defaults]);
    print_row(out, "tuned", r.candidates[r.tuned]);
    const Figures &d = r.candidates[r.defaults].figures;
    const Figures &t = r.candidates[r.tuned].figures;
    std::fprintf(out, "%-18s %+9.1f %+16.1f %+15.1f\n", "tuned - defaults", t.erle_db - d.erle_db,
                 t.loss_db - d.loss_db, t.sdr_db - d.sdr_db);
    if (r.at_defaults_loss.best) {
        print_row(out, "at defaults' loss", r.candidates[*r.at_defaults_loss.best]);
    }
    if (!r.tuned_within_limit) {
        std::fprintf(out,
                     "no candidate kept the talker loss within %.1f dB: tuned is the one with "
                     "the least loss\n",
                     opt.max_loss_db);
    } else {
        std::fprintf(out,
                     "tuned: the most ERLE (to 0.1 dB, then the least loss) with a talker loss "
                     "of at most %.1f dB\n",
                     opt.max_loss_db);
    }

    std::fprintf(out, "\nPareto front: the most ERLE reached within each talker-loss limit\n");
    print_header(out, "loss limit (dB)");
    for (const ParetoEntry &p : r.pareto) {
        const std::string label = number(p.limit_db);
        if (p.best) {
            print_row(out, label, r.candidates[*p.best]);
        } else {
            std::fprintf(out, "%-18s %9s  (no candidate within the limit)\n", label.c_str(), "-");
        }
    }

    const QenAecSettings &s = *r.candidates[r.tuned].settings;
    std::fprintf(out, "\nThe tuned result with qenaec process:\n  qenaec process %s -o %s %s\n",
                 input_options(rq).c_str(), "tuned-out.wav", settings_options(s).c_str());
    if (!rep.json_path.empty()) {
        std::fprintf(out, "  qenaec process %s -o %s --config %s\n", input_options(rq).c_str(),
                     "tuned-out.wav", shell_word(rep.json_path).c_str());
    }
    std::fprintf(out, "\nFor the device (C):\n");
    print_c_initialiser(out, s);
}

void write_tune_json(const std::string &path, const TuneReport &rep) {
    const SearchResult &r = *rep.result;
    const Scene &sc = *rep.scene;
    std::unique_ptr<cJSON, JsonDeleter> root(cJSON_CreateObject());
    cJSON *j = root.get();
    cJSON_AddItemToObject(j, "default", figures_json(r.candidates[r.defaults]));
    cJSON_AddItemToObject(j, "tuned", figures_json(r.candidates[r.tuned]));
    cJSON_AddItemToObject(j, "initialised", figures_json(r.initialised));
    cJSON *pareto = cJSON_AddArrayToObject(j, "pareto");
    for (const ParetoEntry &p : r.pareto) {
        cJSON *e = p.best ? figures_json(r.candidates[*p.best]) : cJSON_CreateObject();
        if (!p.best) {
            cJSON_AddNullToObject(e, "erle_db");
        }
        cJSON_AddNumberToObject(e, "max_near_loss_db", p.limit_db);
        cJSON_AddItemToArray(pareto, e);
    }
    cJSON *same = figures_json(r.candidates[*r.at_defaults_loss.best]);
    cJSON_AddNumberToObject(same, "max_near_loss_db", rounded(r.at_defaults_loss.limit_db));
    cJSON_AddItemToObject(j, "at_default_loss", same);
    cJSON_AddNumberToObject(j, "candidates", static_cast<double>(r.candidates.size()));
    cJSON_AddNumberToObject(j, "seconds", rounded(r.seconds));
    cJSON_AddNumberToObject(j, "max_near_loss_db", rep.options->max_loss_db);
    cJSON_AddBoolToObject(j, "tuned_within_limit", r.tuned_within_limit);
    cJSON_AddNumberToObject(j, "talker_level_db", rep.request->talker_level_db);
    cJSON_AddNumberToObject(j, "double_talk_s", rounded(sc.double_talk_s));
    cJSON_AddNumberToObject(j, "sample_rate", sc.rep.processing_rate);
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(j), &cJSON_free);
    if (!text) {
        throw std::bad_alloc();
    }
    replace_file(path, std::string(text.get()) + "\n");
}

void write_tune_csv(const std::string &path, const TuneReport &rep) {
    std::string text = "candidate,erle_db,near_loss_db,near_sdr_db";
    for (int i = 0; i < 7; ++i) {
        text += ",intensity_" + std::to_string(i);
    }
    for (int i = 0; i < 6; ++i) {
        text += ",edge_" + std::to_string(i);
    }
    text += ",ratio\n";
    const auto &all = rep.result->candidates;
    for (size_t i = 0; i < all.size(); ++i) {
        const Figures &f = all[i].figures;
        const QenAecSettings &s = *all[i].settings;
        text += std::to_string(i) + "," + number(f.erle_db, "%.2f") + "," +
                number(f.loss_db, "%.2f") + "," + number(f.sdr_db, "%.2f") + "," +
                list(s.intensity, 7, ",") + "," + list(s.edges, 6, ",") + "," +
                std::to_string(s.ratio) + "\n";
    }
    replace_file(path, text);
}

}  // namespace qtool
