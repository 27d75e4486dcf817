// Message printing: one printf per message, with the level name and the (always empty)
// second field in front of the text.
#include "diag/log.h"

#include <cstdarg>
#include <cstdio>

namespace {

const char *level_name(int level) {
    switch (level) {
        case ALGO_MSG_ERR:
            return "ALGO_MSG_ERR";
        case ALGO_MSG_WRN:
            return "ALGO_MSG_WRN";
        default:
            return "ALGO_MSG_MSG";
    }
}

void emit(int level, const char *fmt, va_list args) {
    char text[1024];
    vsnprintf(text, sizeof text, fmt, args);
    printf("[%s] %s%s", level_name(level), "", text);
}

}  // namespace

void algo_log(int mask, int level, const char *fmt, ...) {
    if ((mask & level) == 0) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    emit(level, fmt, args);
    va_end(args);
}

void algo_log_always(int level, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    emit(level, fmt, args);
    va_end(args);
}
