#include "fixture.h"

#include <gtest/gtest.h>

#include <cstring>

namespace qtest {

InstanceBlock::InstanceBlock() : bytes_(sizeof(aec_workingbuf_t) + FFT_GetBufferSize(256), 0) {
    get()->FFT_workingBuff.fft_Ne10_cfg =
        reinterpret_cast<ne10_fft_r2c_cfg_float32_t>(bytes_.data() + sizeof(aec_workingbuf_t));
}

std::unique_ptr<InstanceBlock> make_instance(int rate) {
    auto block = std::make_unique<InstanceBlock>();
    aec_workingbuf_t *buf = block->get();
    buf->aec_data_property.point_number = 128;
    buf->aec_data_property.nearend_channel = 1;
    buf->aec_data_property.farend_channel = 1;
    buf->aec_inst.sampFreq = rate;
    buf->FFT_workingBuff.fftSize = 256;
    buf->Recursive_Ratio = 0.1f;
    buf->FE_Level_Thr = 1.8426f;
    buf->dbg_level = 7;
    static const uint32_t edges[6] = {4, 6, 36, 49, 50, 51};
    static const uint32_t modes[7] = {5, 4, 4, 5, 10, 10, 10};
    memcpy(buf->aec_data_property.Supp_Mode_Frq, edges, sizeof edges);
    memcpy(buf->aec_data_property.Supp_Mode, modes, sizeof modes);
    ne10_init();
    VelFuncAec_InitAec(rate, buf);
    mdf_echo_state_init(buf, 128, 1024);
    mdf_echo_ctl(buf, 24, &buf->aec_inst.sampFreq);
    return block;
}

}  // namespace qtest
