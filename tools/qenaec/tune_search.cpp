// Parallel evaluation of candidates and the coordinate descent over them.
#include "tune_search.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <limits>
#include <map>
#include <mutex>
#include <numeric>
#include <thread>
#include <utility>

#include "errors.h"
#include "options.h"

namespace qtool {

namespace {

constexpr int kPasses = 3;  // passes over all settings for the main limit
// A move must gain more than the 0.1 dB the figures are reported in: smaller gains are
// within what the recordings can tell apart, and each move costs talker loss.
constexpr double kStepDb = 0.1;
constexpr uint32_t kMaxIntensity = 25;
constexpr uint32_t kMaxRatio = 10;
constexpr uint32_t kMaxEdge = 126;
constexpr uint32_t kEdgeSteps[] = {1, 2, 4, 8, 16, 32};
constexpr int kCoordinates = 7 + 1 + 6;  // intensities, ratio, edges
constexpr size_t kPairs = 48;            // pairs tried in a pair step
constexpr int kPairSteps = 8;            // pair steps at most after a descent
constexpr double kNoLimit = std::numeric_limits<double>::infinity();

// Init and Free touch process-wide state of the library: never two at once.
std::mutex &lifecycle() {
    static std::mutex m;
    return m;
}

std::vector<int16_t> run_once(const Scene &sc, const std::optional<QenAecSettings> &settings,
                              const std::vector<int16_t> &near) {
    std::vector<int16_t> out = near;
    const Settings tuning = settings ? to_settings(*settings) : Settings{};
    std::optional<AecRunner> runner;
    {
        std::lock_guard<std::mutex> lock(lifecycle());
        runner.emplace(sc.layout, tuning);
    }
    std::exception_ptr error;
    try {
        runner->process(out, sc.echo.far, Mode::kFull, {});
    } catch (...) {
        error = std::current_exception();
    }
    {
        std::lock_guard<std::mutex> lock(lifecycle());
        runner.reset();
    }
    if (error) {
        std::rethrow_exception(error);
    }
    return out;
}

using Key = std::array<uint32_t, 14>;

Key key_of(const QenAecSettings &s) {
    Key k{};
    std::copy(s.intensity, s.intensity + 7, k.begin());
    std::copy(s.edges, s.edges + 6, k.begin() + 7);
    k[13] = s.ratio;
    return k;
}

// Runs candidates on a pool of threads, each candidate once.
class Evaluator {
public:
    Evaluator(const Scene &sc, unsigned jobs, SearchProgress progress)
        : scene_(sc), jobs_(std::max(1u, jobs)), progress_(std::move(progress)) {}

    // Indices into candidates() of `batch`, in its order; evaluates what is new.
    std::vector<size_t> evaluate(const std::vector<std::optional<QenAecSettings>> &batch);

    std::vector<Candidate> &candidates() { return all_; }

private:
    void run_pool(size_t first);

    const Scene &scene_;
    unsigned jobs_;
    SearchProgress progress_;
    std::vector<Candidate> all_;
    std::map<Key, size_t> seen_;
    size_t reported_ = 0;
};

std::vector<size_t> Evaluator::evaluate(const std::vector<std::optional<QenAecSettings>> &batch) {
    std::vector<size_t> indices;
    const size_t first = all_.size();
    for (const auto &s : batch) {
        if (s) {
            const auto [it, fresh] = seen_.emplace(key_of(*s), all_.size());
            indices.push_back(it->second);
            if (!fresh) {
                continue;
            }
        } else {
            indices.push_back(all_.size());
        }
        all_.push_back({s, {}});
    }
    if (all_.size() > first) {
        run_pool(first);
    }
    return indices;
}

// Two tasks per candidate (the echo recording, the mix), spread over the threads; each
// result lands in its candidate's place, whatever order the threads finish in.
void Evaluator::run_pool(size_t first) {
    const size_t tasks = 2 * (all_.size() - first);
    std::atomic<size_t> next{first * 2};
    std::mutex m;
    std::condition_variable cv;
    size_t done = 0;
    std::exception_ptr error;
    auto work = [&] {
        for (size_t t = next++; t < 2 * all_.size(); t = next++) {
            Candidate &c = all_[t / 2];
            try {
                if (t % 2 == 0) {
                    c.figures.erle_db =
                        scene_erle(scene_, run_once(scene_, c.settings, scene_.echo.near),
                                   Mode::kFull)
                            .db;
                } else {
                    const TalkerFigures tf = talker_figures(
                        scene_, run_once(scene_, c.settings, scene_.mixed), Mode::kFull);
                    c.figures.loss_db = tf.loss_db;
                    c.figures.sdr_db = tf.sdr_db;
                }
            } catch (...) {
                std::lock_guard<std::mutex> lock(m);
                if (!error) {
                    error = std::current_exception();
                }
                next = 2 * all_.size();
            }
            std::lock_guard<std::mutex> lock(m);
            ++done;
            cv.notify_one();
        }
    };
    std::vector<std::thread> threads;
    const size_t count = std::min<size_t>(jobs_, tasks);
    for (size_t i = 0; i < count; ++i) {
        threads.emplace_back(work);
    }
    {
        std::unique_lock<std::mutex> lock(m);
        while (done < tasks && !error) {
            cv.wait(lock);
            if (progress_) {
                // Two runs make a candidate.
                const size_t evaluated = first + done / 2;
                if (evaluated != reported_) {
                    reported_ = evaluated;
                    lock.unlock();
                    progress_(evaluated);
                    lock.lock();
                }
            }
        }
    }
    for (std::thread &t : threads) {
        t.join();
    }
    if (error) {
        std::rethrow_exception(error);
    }
}

// The values coordinate `c` tries around `s`: every intensity, every ratio, and edges moved
// by growing steps between their neighbours.
std::vector<std::optional<QenAecSettings>> neighbours(const QenAecSettings &s, int c) {
    std::vector<std::optional<QenAecSettings>> out;
    if (c < 7) {
        for (uint32_t v = 0; v <= kMaxIntensity; ++v) {
            if (v != s.intensity[c]) {
                QenAecSettings n = s;
                n.intensity[c] = v;
                out.push_back(n);
            }
        }
    } else if (c == 7) {
        for (uint32_t v = 1; v <= kMaxRatio; ++v) {
            if (v != s.ratio) {
                QenAecSettings n = s;
                n.ratio = v;
                out.push_back(n);
            }
        }
    } else {
        const int k = c - 8;
        const uint32_t lo = k > 0 ? s.edges[k - 1] : 1;
        const uint32_t hi = k < 5 ? s.edges[k + 1] : kMaxEdge;
        for (uint32_t step : kEdgeSteps) {
            for (const long v : {static_cast<long>(s.edges[k]) - static_cast<long>(step),
                                 static_cast<long>(s.edges[k]) + static_cast<long>(step)}) {
                if (v >= static_cast<long>(lo) && v <= static_cast<long>(hi)) {
                    QenAecSettings n = s;
                    n.edges[k] = static_cast<uint32_t>(v);
                    out.push_back(n);
                }
            }
        }
    }
    return out;
}

int coordinates(const SearchOptions &opt) {
    return opt.edges ? kCoordinates : 8;
}

size_t pass_size(const SearchOptions &opt) {
    return 7 * kMaxIntensity + (kMaxRatio - 1) + (opt.edges ? 6 * 2 * std::size(kEdgeSteps) : 0);
}

// The limits that get a pass of their own after the main one: the Pareto table's and the
// defaults' own loss.
std::vector<double> other_limits(const SearchOptions &opt, double defaults_loss_db) {
    std::vector<double> limits;
    for (double limit : kParetoLimits) {
        if (limit != opt.max_loss_db) {
            limits.push_back(limit);
        }
    }
    if (defaults_loss_db != opt.max_loss_db) {
        limits.push_back(defaults_loss_db);
    }
    return opt.quick ? std::vector<double>{} : limits;
}

// True when `a` serves the limit better than `b` by more than `step`: within the limit beats
// beyond it; within, more ERLE wins; beyond, less loss wins.
bool serves_better(const Figures &a, const Figures &b, double limit, double step) {
    const bool a_in = a.loss_db <= limit;
    const bool b_in = b.loss_db <= limit;
    if (a_in != b_in) {
        return a_in;
    }
    return a_in ? a.erle_db > b.erle_db + step : a.loss_db < b.loss_db - step;
}

// Of `indices`, the one that serves `limit` best; the first among equals.
size_t best_of(const std::vector<Candidate> &all, const std::vector<size_t> &indices,
               double limit) {
    size_t best = indices.front();
    for (size_t i : indices) {
        if (serves_better(all[i].figures, all[best].figures, limit, 0.0)) {
            best = i;
        }
    }
    return best;
}

// Coordinate descent from `start` for `limit`; returns where it stopped.
size_t descend(Evaluator &ev, size_t start, double limit, int passes, const SearchOptions &opt) {
    size_t at = start;
    for (int pass = 0; pass < passes; ++pass) {
        bool moved = false;
        for (int c = 0; c < coordinates(opt); ++c) {
            const std::vector<size_t> tried =
                ev.evaluate(neighbours(*ev.candidates()[at].settings, c));
            const size_t best = best_of(ev.candidates(), tried, limit);
            if (serves_better(ev.candidates()[best].figures, ev.candidates()[at].figures, limit,
                              kStepDb)) {
                at = best;
                moved = true;
            }
        }
        if (!moved) {
            break;
        }
    }
    return at;
}

// `s` with coordinate `c` taken from `from`.
QenAecSettings with_coordinate(QenAecSettings s, const QenAecSettings &from, int c) {
    if (c < 7) {
        s.intensity[c] = from.intensity[c];
    } else if (c == 7) {
        s.ratio = from.ratio;
    } else {
        s.edges[c - 8] = from.edges[c - 8];
    }
    return s;
}

// One step of a steepest ascent that also moves two coordinates at once. At the limit a
// descent stops where every single move that gains ERLE costs too much loss; a gain in one
// band paid for by a saving in another gets past it. Every single move around `at` is tried,
// then the pairs of them (on different coordinates) whose figures, predicted as the sum of
// their moves' changes, serve the limit best. Returns the best of all, or `at`.
size_t pair_step(Evaluator &ev, size_t at, double limit, const SearchOptions &opt) {
    const QenAecSettings base = *ev.candidates()[at].settings;
    std::vector<std::pair<int, size_t>> moves;  // coordinate, candidate
    std::vector<size_t> tried;
    for (int c = 0; c < coordinates(opt); ++c) {
        for (size_t i : ev.evaluate(neighbours(base, c))) {
            moves.emplace_back(c, i);
            tried.push_back(i);
        }
    }
    const std::vector<Candidate> &all = ev.candidates();
    const Figures f0 = all[at].figures;
    std::vector<std::pair<Figures, QenAecSettings>> pairs;
    for (size_t a = 0; a < moves.size(); ++a) {
        for (size_t b = a + 1; b < moves.size(); ++b) {
            if (moves[a].first == moves[b].first) {
                continue;
            }
            const Figures &fa = all[moves[a].second].figures;
            const Figures &fb = all[moves[b].second].figures;
            const Figures predicted{fa.erle_db + fb.erle_db - f0.erle_db,
                                    fa.loss_db + fb.loss_db - f0.loss_db, 0.0};
            const QenAecSettings s = with_coordinate(
                *all[moves[a].second].settings, *all[moves[b].second].settings, moves[b].first);
            if (serves_better(predicted, f0, limit, kStepDb) &&
                std::is_sorted(std::begin(s.edges), std::end(s.edges))) {
                pairs.emplace_back(predicted, s);
            }
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [limit](const auto &x, const auto &y) {
        return serves_better(x.first, y.first, limit, 0.0);
    });
    std::vector<std::optional<QenAecSettings>> batch;
    for (size_t i = 0; i < std::min(pairs.size(), kPairs); ++i) {
        batch.push_back(pairs[i].second);
    }
    for (size_t i : ev.evaluate(batch)) {
        tried.push_back(i);
    }
    const size_t best = best_of(ev.candidates(), tried, limit);
    return serves_better(ev.candidates()[best].figures, ev.candidates()[at].figures, limit, kStepDb)
               ? best
               : at;
}

// Descent, then pair steps until they gain nothing.
size_t climb(Evaluator &ev, size_t start, double limit, int passes, const SearchOptions &opt) {
    size_t at = descend(ev, start, limit, passes, opt);
    for (int step = 0; step < (opt.quick ? 1 : kPairSteps); ++step) {
        const size_t next = pair_step(ev, at, limit, opt);
        if (next == at) {
            break;
        }
        at = next;
    }
    return at;
}

// The result for `limit`: of all evaluated, the most ERLE within the limit to 0.1 dB, and of
// those the least loss (with nothing within the limit, the least loss).
size_t best_for(const std::vector<Candidate> &all, double limit) {
    std::vector<size_t> indices(all.size());
    std::iota(indices.begin(), indices.end(), size_t{0});
    const size_t top = best_of(all, indices, limit);
    if (all[top].figures.loss_db > limit) {
        return top;
    }
    size_t pick = top;
    for (size_t i : indices) {
        const Figures &f = all[i].figures;
        if (f.loss_db <= limit && f.erle_db >= all[top].figures.erle_db - kStepDb &&
            f.loss_db < all[pick].figures.loss_db) {
            pick = i;
        }
    }
    return pick;
}

ParetoEntry entry_for(const std::vector<Candidate> &all, double limit) {
    const size_t b = best_for(all, limit);
    return {limit, all[b].figures.loss_db <= limit ? std::optional<size_t>(b) : std::nullopt};
}

}  // namespace

size_t planned_candidates(const SearchOptions &opt) {
    const size_t passes = 1 + (opt.quick ? 1 : kPasses);
    const size_t pair_steps = opt.quick ? 1 : kPairSteps;
    return 1 + pass_size(opt) * (passes + other_limits(opt, -1.0).size()) +
           (pass_size(opt) + kPairs) * pair_steps;
}

SearchResult search(const Scene &scene, const SearchOptions &opt, const SearchProgress &progress) {
    const auto start = std::chrono::steady_clock::now();
    SearchResult r;
    {
        // The instance as initialised is a reference, not a candidate.
        Evaluator alone(scene, opt.jobs, {});
        r.initialised = alone.candidates()[alone.evaluate({std::nullopt})[0]];
    }
    Evaluator ev(scene, opt.jobs, progress);
    r.defaults = ev.evaluate({qenaec_settings_defaults})[0];
    // A first pass for ERLE alone maps the strong end of the front. A descent that started
    // beyond its limit would otherwise only shed loss, whatever ERLE that costs, and stop in
    // the first place within the limit.
    descend(ev, r.defaults, kNoLimit, 1, opt);
    climb(ev, best_for(ev.candidates(), opt.max_loss_db), opt.max_loss_db, opt.quick ? 1 : kPasses,
          opt);
    const double defaults_loss = ev.candidates()[r.defaults].figures.loss_db;
    for (double limit : other_limits(opt, defaults_loss)) {
        descend(ev, best_for(ev.candidates(), limit), limit, 1, opt);
    }
    r.candidates = std::move(ev.candidates());
    r.tuned = best_for(r.candidates, opt.max_loss_db);
    r.tuned_within_limit = r.candidates[r.tuned].figures.loss_db <= opt.max_loss_db;
    for (double limit : kParetoLimits) {
        r.pareto.push_back(entry_for(r.candidates, limit));
    }
    r.at_defaults_loss = entry_for(r.candidates, defaults_loss);
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return r;
}

}  // namespace qtool
