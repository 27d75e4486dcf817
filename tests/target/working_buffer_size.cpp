// Prints the bytes a caller must provide for one instance on this target: the instance
// record plus the FFT plan area that follows it. Computed from the record until the public
// size query is exported; then this should print QenAec_GetBufferSize() instead.
#include <cstdio>

#include "instance.h"

int main() {
    const unsigned int record = sizeof(aec_workingbuf_t);
    const unsigned int plans = FFT_GetBufferSize(256);
    std::printf("qenaec-footprint: working_buffer=%u record=%u fft_plans=%u core=%u mdf=%u\n",
                record + plans, record, plans, static_cast<unsigned>(sizeof(aec_t)),
                static_cast<unsigned>(sizeof(MdfEchoState)));
    return 0;
}
