// The adaptive filter's documented entry points. Each is an adapter: it picks out of the
// instance the state record (mdf_workingbuff), the arrays the filter borrows (weights W and
// far-end power Xf, error and echo buffers e and y of the core state; spectra E and Y of the
// instance), the transform, and the message level, and calls the array
// functions of mdf_state.cpp, mdf_echo.cpp and mdf_helpers.cpp.
#include "instance.h"
#include "mdf/mdf.h"

namespace {

mdf_borrowed_t borrowed(aec_workingbuf_t *buf) {
    aec_t *aec = &buf->aec_inst;
    return {aec->wfBuf, buf->ef, aec->xPow, aec->eBuf, aec->yBuf, buf->yf};
}

}  // namespace

// The set-up ignores both sizes: the dimensions are fixed.
int mdf_echo_state_init(aec_workingbuf_t *buf, int /*frame_size*/, int /*filter_length*/) {
    mdf_state_setup(&buf->mdf_workingbuff, buf->aec_inst.wfBuf, buf->aec_inst.sampFreq);
    return 0;
}

void mdf_echo_state_reset(aec_workingbuf_t *buf) {
    mdf_state_clear(&buf->mdf_workingbuff, buf->aec_inst.wfBuf, buf->ef);
}

int mdf_echo_ctl(aec_workingbuf_t *buf, int request, void *ptr) {
    return mdf_control(&buf->mdf_workingbuff, &buf->aec_inst.sampFreq, request,
                       static_cast<int *>(ptr));
}

// The second channel's arguments are part of the signature only: the filter is single-channel.
void mdf_echo_cancellation(aec_workingbuf_t *buf, mdf_word16_t *in, mdf_word16_t * /*in_ch2*/,
                           mdf_word16_t *far_end, mdf_word16_t *out, mdf_word16_t * /*out_ch2*/,
                           mdf_word16_t *estimated_echo, mdf_word16_t * /*estimated_echo_ch2*/) {
    mdf_step(&buf->mdf_workingbuff, borrowed(buf), instance_fft(buf), buf->dbg_level, in, far_end,
             out, estimated_echo);
}

void fft_wrap(aec_workingbuf_t *buf, float *time_domain, float *frquency_domain) {
    mdf_forward(instance_fft(buf), time_domain, frquency_domain);
}

void ifft_wrap(aec_workingbuf_t *buf, float *frquency_domain, float *time_domain) {
    mdf_inverse(instance_fft(buf), frquency_domain, time_domain);
}
