// Prints the bytes a caller must provide for one instance on this target, with the parts
// that make it up. Uses the size query behind the exported one; once the exported function
// is in the library this should print QenAec_GetBufferSize() itself.
#include <cstdio>

#include "api/setup.h"
#include "instance.h"

int main() {
    const unsigned int total = _QenAec_GetBufferSize();
    std::printf("qenaec-footprint: working_buffer=%u record=%u fft_plans=%u core=%u mdf=%u\n",
                total, static_cast<unsigned>(sizeof(aec_workingbuf_t)), FFT_GetBufferSize(256),
                static_cast<unsigned>(sizeof(aec_t)), static_cast<unsigned>(sizeof(MdfEchoState)));
    return 0;
}
