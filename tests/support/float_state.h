// Every float of an instance that a frame can write, field by field, for the checks that
// scan the whole state (non-finite values, denormals).
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "instance.h"

namespace qtest {

struct FloatSpan {
    std::string name;
    const float *p;
    size_t n;
};

// Appends `fields`, named in order by the space-separated `names`.
template <typename... Fields>
void add_spans(std::vector<FloatSpan> &out, const char *names, const Fields &...fields) {
    std::istringstream words(names);
    auto add = [&](const auto &field) {
        std::string name;
        words >> name;
        out.push_back({name, reinterpret_cast<const float *>(&field), sizeof(field) / 4});
    };
    (add(fields), ...);
}

inline std::vector<FloatSpan> float_state(const aec_workingbuf_t &b) {
    const aec_t &c = b.aec_inst;
    const MdfEchoState &m = b.mdf_workingbuff;
    std::vector<FloatSpan> v;
    add_spans(v,
              "eBuf yBuf xPow dPow dMinPow dInitMinPow wfBuf sde syd sy sd se hNlFbMin "
              "hNlFbLocalMin hNlXdAvgMin overDrive overDriveSm outBuf",
              c.eBuf, c.yBuf, c.xPow, c.dPow, c.dMinPow, c.dInitMinPow, c.wfBuf, c.sde, c.syd, c.sy,
              c.sd, c.se, c.hNlFbMin, c.hNlFbLocalMin, c.hNlXdAvgMin, c.overDrive, c.overDriveSm,
              c.outBuf);
    add_spans(v,
              "spec_average sum_adapt leak_estimate x X input last_y PHI foreground Davg1 Davg2 "
              "Dvar1 Dvar2 power power_1 wtmp Rf Yf Eh Yh Pey Pyy prop memX memD memE notch_mem",
              m.spec_average, m.sum_adapt, m.leak_estimate, m.x, m.X, m.input, m.last_y, m.PHI,
              m.foreground, m.Davg1, m.Davg2, m.Dvar1, m.Dvar2, m.power, m.power_1, m.wtmp, m.Rf,
              m.Yf, m.Eh, m.Yh, m.Pey, m.Pyy, m.prop, m.memX, m.memD, m.memE, m.notch_mem);
    add_spans(v,
              "AudioNearEnd AudioFarEnd fft_aec_buf xf xfw yf yfw ef efw dfw hNl FarEndMean "
              "fft_Ne10_out mdf_echo mdf_error",
              b.AudioNearEnd, b.AudioFarEnd, b.fft_aec_buf, b.xf, b.xfw, b.yf, b.yfw, b.ef, b.efw,
              b.dfw, b.hNl, b.FarEndMean, b.FFT_workingBuff.fft_Ne10_out, b.mdf_echo, b.mdf_error);
    return v;
}

// "field[index]" of the first float for which `pred` holds, or an empty string.
template <typename Pred>
std::string first_float(const aec_workingbuf_t &b, Pred pred) {
    for (const FloatSpan &s : float_state(b)) {
        for (size_t i = 0; i < s.n; ++i) {
            if (pred(s.p[i])) {
                return s.name + "[" + std::to_string(i) + "]";
            }
        }
    }
    return {};
}

}  // namespace qtest
