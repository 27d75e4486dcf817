// Test helpers: an instance block set up the way instance initialisation does it (core state,
// FFT plans, adaptive filter) without going through the public API.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "instance.h"
#include "scratch.h"

namespace qtest {

// A zeroed block of instance size plus plan area, with the plan pointer set.
class InstanceBlock {
public:
    InstanceBlock();
    aec_workingbuf_t *get() { return reinterpret_cast<aec_workingbuf_t *>(bytes_.data()); }
    aec_workingbuf_t *operator->() { return get(); }
    unsigned char *raw() { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }

private:
    std::vector<unsigned char> bytes_;
};

// Core state, FFT and adaptive filter initialised at `rate`, defaults as after instance set-up
// (mono, 128 samples per frame).
std::unique_ptr<InstanceBlock> make_instance(int rate);

}  // namespace qtest
