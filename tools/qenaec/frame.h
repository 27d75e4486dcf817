// The library's frame: 128 samples per channel.
#pragma once

namespace qtool {

constexpr int kFrame = 128;

}  // namespace qtool
