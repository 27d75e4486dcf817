// Version queries and the identification records that tools read from the library file.
#pragma once

#include "qen_aec.h"

struct RB_VERSION {
    unsigned char tagPrefix[3];
    unsigned char headerVersion[1];
    unsigned char libType[2];
    unsigned char chip[8];
    unsigned char changelist[8];
    unsigned char component[12];
    unsigned char reserved[1];
    unsigned char tagSuffix[3];
};

struct RB_AEC_INTERNAL_PARAMETER {
    unsigned char tagPrefix[6];
    unsigned char connect[2];
    unsigned char isFloatPts[6];
    unsigned char nlmsOnly[5];
    unsigned char filterBuffer[5];
    unsigned char api_char[10];
    unsigned char api_int[2];
    unsigned char PN_char[2];
    unsigned char PN_int[3];
    unsigned char converge_char[8];
    unsigned char converge_value[1];
    unsigned char echo_diff_mode_char[8];
    unsigned char echo_diff_mode_value[1];
    unsigned char msgmask_char[8];
    unsigned char msgmask_value[2];
    unsigned char connect1[2];
    unsigned char tagSuffix[6];
};

static_assert(sizeof(RB_VERSION) == 38);
static_assert(sizeof(RB_AEC_INTERNAL_PARAMETER) == 77);

extern volatile const RB_AEC_INTERNAL_PARAMETER aec_setting;

// A version record of the given source revision and component, each already padded with '#'
// to its field width (8 and 12 characters).
constexpr RB_VERSION make_rb_version(const char (&changelist)[9], const char (&component)[13]) {
    RB_VERSION r = {
        {'J', 'Q', 'W'}, {'1'}, {'#', '#'}, {'Q', '7', 'L', 'P', '#', '#', '#', '#'}, {}, {}, {'#'},
        {'W', 'Q', 'J'}};
    for (int i = 0; i < 8; ++i) {
        r.changelist[i] = static_cast<unsigned char>(changelist[i]);
    }
    for (int i = 0; i < 12; ++i) {
        r.component[i] = static_cast<unsigned char>(component[i]);
    }
    return r;
}

ALGO_AEC_RET _QenAec_GetLibVersion(unsigned short *ver_year, unsigned short *ver_date,
                                   unsigned short *ver_time);
ALGO_AEC_RET _QenAec_GetAPIVersion(unsigned short *major, unsigned short *minor);
