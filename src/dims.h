// The fixed dimensions of the library: the frame, its transform, the packed spectrum, the
// adaptive filter and the suppression bands. Every array size and loop bound of a block,
// spectrum or filter is written in these names; nothing else defines them.
#pragma once

constexpr int kAecBlock = 128;                        // samples per channel per frame; the hop
constexpr int kAecFft = 2 * kAecBlock;                // real transform length: a block pair
constexpr int kAecBins = kAecFft / 2 + 1;             // bins 0 (DC) .. 128 (Nyquist)
constexpr int kAecSpectrum = 2 * kAecBins;            // floats of a packed (re, im) spectrum
constexpr int kAecPartitions = 8;                     // partitions of the adaptive filter
constexpr int kAecTaps = kAecPartitions * kAecBlock;  // echo path the filter covers, samples
constexpr int kAecPartitioned = kAecPartitions * kAecSpectrum;  // floats of a partitioned filter
constexpr int kAecRing = (kAecPartitions + 1) * kAecSpectrum;   // floats of the far-end ring
constexpr int kAecBands = 7;                                    // suppression bands
constexpr int kAecBandEdges = kAecBands - 1;                    // upper edges of bands 0..5
