// The bytes a caller provides for one instance on this target, and their parts.
#include <cstdio>

#include "instance.h"
#include "qen_aec.h"

int main() {
    const unsigned int total = QenAec_GetBufferSize();
    std::printf("qenaec-footprint: working_buffer=%u record=%u fft_plans=%u core=%u mdf=%u\n",
                total, static_cast<unsigned>(sizeof(aec_workingbuf_t)), FFT_GetBufferSize(256),
                static_cast<unsigned>(sizeof(aec_t)), static_cast<unsigned>(sizeof(MdfEchoState)));
    return 0;
}
