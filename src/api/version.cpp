// Version queries, and the record of the build's fixed parameters (also read by the API
// version query, so the two always agree).
#include "api/version.h"

#include "diag/log.h"
#include "diag/msglevel.h"

__attribute__((used)) volatile const RB_AEC_INTERNAL_PARAMETER aec_setting = {
    {'A', 'E', 'C', 'S', 'E', 'T'},
    {'#', '#'},
    {'F', 'L', 'O', 'A', 'T', '1'},
    {'N', 'L', 'M', 'S', '0'},
    {'T', 'A', 'I', 'L', '8'},
    {'A', 'P', 'I', 'V', 'E', 'R', 'S', 'I', 'O', 'N'},
    {'1', '3'},
    {'P', 'N'},
    {'1', '2', '8'},
    {'C', 'O', 'N', 'V', 'E', 'R', 'G', 'E'},
    {'0'},
    {'E', 'C', 'H', 'O', 'D', 'I', 'F', 'F'},
    {'0'},
    {'M', 'S', 'G', 'L', 'E', 'V', 'E', 'L'},
    {'0', '7'},
    {'#', '#'},
    {'S', 'E', 'T', 'A', 'E', 'C'},
};

ALGO_AEC_RET _QenAec_GetLibVersion(unsigned short *ver_year, unsigned short *ver_date,
                                   unsigned short *ver_time) {
    // The date reads as hexadecimal digits: 2024-03-14.
    *ver_year = 0x2024;
    *ver_date = 0x0314;
    *ver_time = 0;
    return ALGO_AEC_RET_SUCCESS;
}

ALGO_AEC_RET _QenAec_GetAPIVersion(unsigned short *major, unsigned short *minor) {
    const int dbg_lv = DynamicMessageLevel();
    *major = static_cast<unsigned short>(aec_setting.api_int[0] - '0');
    *minor = static_cast<unsigned short>(aec_setting.api_int[1] - '0');
    algo_log(dbg_lv, ALGO_MSG_MSG, "AEC_API_VERSION: %d.%d\n", *major, *minor);
    return ALGO_AEC_RET_SUCCESS;
}
