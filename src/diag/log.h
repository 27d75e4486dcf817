// The one way the library prints its messages: "[LEVEL] " + text on standard output, gated by
// the instance's message mask (bit 0 errors, bit 1 warnings, bit 2 information).
#pragma once

enum : int { ALGO_MSG_ERR = 1, ALGO_MSG_WRN = 2, ALGO_MSG_MSG = 4 };

// Prints when `level` is set in `mask`. `fmt` is the text after the "[%s] %s" prefix.
void algo_log(int mask, int level, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
// Prints whatever the mask (messages about a null handle, which has no mask to consult).
void algo_log_always(int level, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
