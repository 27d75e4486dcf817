// Decoding of fuzzer bytes into API arguments: a byte reader that yields zeros once the input
// is used up, records biased towards the boundaries the API checks, and frame generators
// that reach the pathological signals (full-scale squares, DC, alternating extremes,
// impulses, echoes) from a few bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qen_aec.h"

namespace fuzz {

class Input {
public:
    Input(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    bool empty() const { return p_ == end_; }
    uint8_t u8() { return p_ == end_ ? 0 : *p_++; }
    uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
    uint32_t u32() { return u16() | (static_cast<uint32_t>(u16()) << 16); }

    // One byte chooses: below the table size, an entry of `table`; otherwise 4 raw bytes.
    template <size_t N>
    uint32_t pick(const uint32_t (&table)[N]) {
        const uint8_t c = u8();
        return c < N ? table[c] : u32();
    }

private:
    const uint8_t *p_;
    const uint8_t *end_;
};

inline AudioAecInit init_record(Input &in) {
    static const uint32_t points[] = {128, 0, 127, 129, 256};
    static const uint32_t channels[] = {1, 2, 0, 3, 0xFFFFFFFFu};
    static const uint32_t rates[] = {16000, 8000, 32000, 48000, 0, 44100, 16001};
    AudioAecInit r;
    r.point_number = in.pick(points);
    r.nearend_channel = in.pick(channels);
    r.farend_channel = in.pick(channels);
    r.sample_rate = static_cast<QEN_AEC_SAMPLE_RATE>(in.pick(rates));
    return r;
}

inline AudioAecConfig config_record(Input &in) {
    static const uint32_t switches[] = {0, 1, 2, 0xFFFFFFFFu};
    static const uint32_t edges[] = {4, 6, 36, 49, 50, 51, 1, 126, 127, 0, 10, 9};
    static const uint32_t intensities[] = {5, 4, 10, 0, 25, 26, 16, 0xFFFFFFFFu};
    AudioAecConfig c;
    c.comfort_noise_enable = static_cast<QEN_AEC_BOOL>(in.pick(switches));
    c.delay_sample = static_cast<int16_t>(in.u16());
    for (uint32_t &e : c.suppression_mode_freq)
        e = in.pick(edges);
    for (uint32_t &v : c.suppression_mode_intensity)
        v = in.pick(intensities);
    return c;
}

inline uint32_t ratio_value(Input &in) {
    static const uint32_t ratios[] = {1, 5, 10, 0, 11, 0xFFFFFFFFu};
    return in.pick(ratios);
}

enum class Kind : uint8_t {
    kRaw,
    kConstant,
    kSquare,
    kAlternating,
    kImpulse,
    kNoise,
    kSilence,
    kEcho
};

struct FrameSource {
    Kind kind;
    int16_t level;
    uint8_t param;
    std::vector<int16_t> raw;  // kRaw: samples taken from the input
};

inline FrameSource frame_source(Input &in) {
    FrameSource s;
    s.kind = static_cast<Kind>(in.u8() % 8);
    s.level = static_cast<int16_t>(in.u16());
    s.param = in.u8();
    if (s.kind == Kind::kRaw) {
        const int n = 1 + s.param % 64;  // repeated to fill a frame
        for (int i = 0; i < n; ++i)
            s.raw.push_back(static_cast<int16_t>(in.u16()));
    }
    return s;
}

// Sample t (counted over the whole burst) of a generated signal; `echo_of` is the far-end
// sample for the kEcho kind.
inline int16_t sample(const FrameSource &s, uint32_t t, int16_t echo_of) {
    switch (s.kind) {
        case Kind::kRaw:
            return s.raw[t % s.raw.size()];
        case Kind::kConstant:
            return s.level;
        case Kind::kSquare: {
            const uint32_t half = 1 + s.param;
            return (t / half) % 2 ? -32768 : 32767;
        }
        case Kind::kAlternating:
            return t % 2 ? -32768 : 32767;
        case Kind::kImpulse:
            return t % 128 == s.param % 128 ? s.level : 0;
        case Kind::kNoise: {
            uint32_t x = (t + 1) * 2654435761u ^ (static_cast<uint32_t>(s.level) << 8) ^ s.param;
            x ^= x >> 15;
            x *= 2246822519u;
            x ^= x >> 13;
            return static_cast<int16_t>(x);
        }
        case Kind::kSilence:
            return 0;
        case Kind::kEcho:
        default:
            // A scaled copy of the far end: something the filter can learn.
            return static_cast<int16_t>((echo_of * (s.param % 8 + 1)) / 9);
    }
}

// Fills one frame (number `frame` of a burst) of both ends, interleaved.
inline void fill(const FrameSource &near_src, const FrameSource &far_src, std::vector<short> &near,
                 std::vector<short> &far, uint32_t nch, uint32_t fch, int frame) {
    for (uint32_t i = 0; i < 128; ++i) {
        const uint32_t t = static_cast<uint32_t>(frame) * 128 + i;
        const int16_t f = sample(far_src, t, 0);
        for (uint32_t ch = 0; ch < fch; ++ch)
            far[i * fch + ch] = f;
        for (uint32_t ch = 0; ch < nch; ++ch) {
            near[i * nch + ch] = sample(near_src, t + ch * 7, f);
        }
    }
}

}  // namespace fuzz
