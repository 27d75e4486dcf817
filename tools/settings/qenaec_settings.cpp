// Reading, checking and writing the suppressor settings of a tune result.
#include "qenaec_settings.h"

#include <cjson/cJSON.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

const QenAecSettings qenaec_settings_defaults = {
    {5, 4, 4, 5, 10, 10, 10}, {4, 6, 36, 49, 50, 51}, 1};

namespace {

struct Range {
    uint32_t lo, hi;
};

// What QenAec_Config and QenAec_SetRecursiveRatio accept.
constexpr Range kIntensityRange = {0, 25};
constexpr Range kEdgeRange = {1, 126};
constexpr Range kRatioRange = {1, 10};

int fail(char *error, size_t size, const std::string &message) {
    if (error != nullptr && size > 0) {
        std::snprintf(error, size, "%s", message.c_str());
    }
    return -1;
}

std::string range_text(Range r) {
    return "an integer from " + std::to_string(r.lo) + " to " + std::to_string(r.hi);
}

std::string index_name(const std::string &field, size_t i) {
    return field + "[" + std::to_string(i) + "]";
}

// What a JSON value is, for "(got ...)".
std::string describe(const cJSON *v) {
    if (cJSON_IsNumber(v)) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.17g", v->valuedouble);
        return buf;
    }
    if (cJSON_IsString(v)) {
        return "the string \"" + std::string(v->valuestring) + "\"";
    }
    if (cJSON_IsBool(v)) {
        return cJSON_IsTrue(v) ? "true" : "false";
    }
    if (cJSON_IsNull(v)) {
        return "null";
    }
    if (cJSON_IsArray(v)) {
        return "an array of " + std::to_string(cJSON_GetArraySize(v)) + " values";
    }
    return "an object";
}

// An integer in `r`; the message says which field breaks which rule.
bool read_integer(const cJSON *v, Range r, const std::string &field, uint32_t &out,
                  std::string &why) {
    if (cJSON_IsNumber(v)) {
        const double d = v->valuedouble;
        if (std::floor(d) == d && d >= r.lo && d <= r.hi) {
            out = static_cast<uint32_t>(d);
            return true;
        }
    }
    why = field + " must be " + range_text(r) + " (got " + describe(v) + ")";
    return false;
}

bool read_array(const cJSON *parent, const char *key, const std::string &prefix, Range r,
                uint32_t *out, int n, std::string &why) {
    const std::string field = prefix + "." + key;
    const cJSON *a = cJSON_GetObjectItemCaseSensitive(parent, key);
    if (a == nullptr) {
        why = field + " is missing";
        return false;
    }
    if (!cJSON_IsArray(a) || cJSON_GetArraySize(a) != n) {
        why = field + " must be an array of " + std::to_string(n) + " integers (got " +
              describe(a) + ")";
        return false;
    }
    for (int i = 0; i < n; ++i) {
        if (!read_integer(cJSON_GetArrayItem(a, i), r, index_name(field, i), out[i], why)) {
            return false;
        }
    }
    return true;
}

// Equal neighbours are allowed: they make an empty band.
std::string check_order(const QenAecSettings &s) {
    for (size_t i = 1; i < 6; ++i) {
        if (s.edges[i] < s.edges[i - 1]) {
            return "tuned.edges must not decrease: " + index_name("edges", i) + " = " +
                   std::to_string(s.edges[i]) + " is below " + index_name("edges", i - 1) + " = " +
                   std::to_string(s.edges[i - 1]);
        }
    }
    return {};
}

// The figures tune writes beside the settings are informative, but a file that has them
// as anything other than numbers was not written by tune.
std::string check_figures(const cJSON *tuned) {
    for (const char *key : {"erle_db", "near_loss_db", "near_sdr_db"}) {
        const cJSON *v = cJSON_GetObjectItemCaseSensitive(tuned, key);
        if (v != nullptr && !cJSON_IsNumber(v) && !cJSON_IsNull(v)) {
            return std::string("tuned.") + key + " must be a number (got " + describe(v) + ")";
        }
    }
    return {};
}

struct JsonDeleter {
    void operator()(cJSON *j) const { cJSON_Delete(j); }
};

}  // namespace

extern "C" int qenaec_settings_parse(const char *text, size_t length, const char *name,
                                     QenAecSettings *out, char *error, size_t error_size) {
    const std::string file = std::string("'") + (name != nullptr ? name : "") + "': ";
    const char *end = nullptr;
    std::unique_ptr<cJSON, JsonDeleter> root(cJSON_ParseWithLengthOpts(text, length, &end, 0));
    if (!root) {
        const size_t at = end != nullptr && end >= text ? static_cast<size_t>(end - text) : 0;
        return fail(error, error_size,
                    file + "not valid JSON (at byte " + std::to_string(at) + " of " +
                        std::to_string(length) + ")");
    }
    const cJSON *tuned = cJSON_GetObjectItemCaseSensitive(root.get(), "tuned");
    if (!cJSON_IsObject(root.get()) || tuned == nullptr) {
        return fail(error, error_size,
                    file + "tuned is missing: expected the file that `qenaec tune --json` writes");
    }
    if (!cJSON_IsObject(tuned)) {
        return fail(error, error_size,
                    file + "tuned must be an object (got " + describe(tuned) + ")");
    }
    QenAecSettings s{};
    std::string why;
    if (!read_array(tuned, "intensity", "tuned", kIntensityRange, s.intensity, 7, why) ||
        !read_array(tuned, "edges", "tuned", kEdgeRange, s.edges, 6, why)) {
        return fail(error, error_size, file + why);
    }
    const cJSON *ratio = cJSON_GetObjectItemCaseSensitive(tuned, "ratio");
    if (ratio == nullptr) {
        return fail(error, error_size, file + "tuned.ratio is missing");
    }
    if (!read_integer(ratio, kRatioRange, "tuned.ratio", s.ratio, why)) {
        return fail(error, error_size, file + why);
    }
    why = check_order(s);
    if (why.empty()) {
        why = check_figures(tuned);
    }
    if (!why.empty()) {
        return fail(error, error_size, file + why);
    }
    *out = s;
    return 0;
}

extern "C" int qenaec_settings_read(const char *path, QenAecSettings *out, char *error,
                                    size_t error_size) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return fail(error, error_size,
                    std::string("cannot read '") + path + "': " + std::strerror(errno));
    }
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        return fail(error, error_size, std::string("cannot read '") + path + "'");
    }
    return qenaec_settings_parse(text.data(), text.size(), path, out, error, error_size);
}

extern "C" int qenaec_settings_to_json(cJSON *object, const QenAecSettings *s) {
    int intensity[7], edges[6];
    for (int i = 0; i < 7; ++i) {
        intensity[i] = static_cast<int>(s->intensity[i]);
    }
    for (int i = 0; i < 6; ++i) {
        edges[i] = static_cast<int>(s->edges[i]);
    }
    cJSON *a = cJSON_CreateIntArray(intensity, 7);
    cJSON *e = cJSON_CreateIntArray(edges, 6);
    const bool ok = a != nullptr && e != nullptr && cJSON_AddItemToObject(object, "intensity", a);
    if (!ok) {
        cJSON_Delete(a);
        cJSON_Delete(e);
        return -1;
    }
    if (!cJSON_AddItemToObject(object, "edges", e)) {
        cJSON_Delete(e);
        return -1;
    }
    return cJSON_AddNumberToObject(object, "ratio", s->ratio) != nullptr ? 0 : -1;
}
