// The search of `tune`: coordinate descent over the seven band intensities and the recursive
// ratio (and the band edges when asked), from the library's defaults: one pass for ERLE
// alone, then passes for the best ERLE whose talker loss stays within the limit followed by
// steps that move two settings at once, then one pass for each other limit of the Pareto
// table and one for the defaults' own talker loss. Candidates run in parallel, one library
// instance per thread, and every result is kept in the order the search asked for it, so the
// outcome does not depend on the number of threads.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "qenaec_settings.h"
#include "tune_scene.h"

namespace qtool {

struct Figures {
    double erle_db = 0.0;
    double loss_db = 0.0;
    double sdr_db = 0.0;
};

struct Candidate {
    std::optional<QenAecSettings> settings;  // none: the instance as initialised, no Config
    Figures figures;
};

// Limits of the Pareto table, talker loss in dB.
constexpr double kParetoLimits[] = {1.0, 2.0, 3.0, 6.0, 10.0};

struct SearchOptions {
    double max_loss_db = 3.0;
    unsigned jobs = 1;
    bool edges = false;  // also move the band edges
    bool quick = false;  // one pass and one pair step for max_loss_db; none for the other limits
};

struct ParetoEntry {
    double limit_db = 0.0;
    std::optional<size_t> best;  // index into candidates; none when no candidate is within
};

struct SearchResult {
    Candidate initialised;
    std::vector<Candidate> candidates;  // every setting evaluated, in the order asked for
    size_t defaults = 0;                // index of the library's default table
    size_t tuned = 0;
    bool tuned_within_limit = false;  // false: nothing met the limit; tuned has the least loss
    std::vector<ParetoEntry> pareto;
    ParetoEntry at_defaults_loss;  // the most ERLE for no more talker loss than the defaults
    double seconds = 0.0;          // wall time of the whole search
};

// An upper bound on the candidates `search` evaluates, for a progress bar.
size_t planned_candidates(const SearchOptions &opt);

// Called on the calling thread with the number of candidates evaluated so far.
using SearchProgress = std::function<void(size_t evaluated)>;

SearchResult search(const Scene &scene, const SearchOptions &opt, const SearchProgress &progress);

}  // namespace qtool
