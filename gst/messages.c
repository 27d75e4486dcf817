/* The wrappers behind the link-time redirection of the library's output functions. Each
 * thread collects its own line, so instances running on different threads never mix their
 * text, and nothing is formatted while the category is silent. */
#include "messages.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

GST_DEBUG_CATEGORY(qenaec_debug);

/* The originals, reached through the linker's __real_ aliases. */
int __real_vfprintf(FILE *stream, const char *format, va_list args);
int __real_fputs(const char *text, FILE *stream);
int __real_fputc(int c, FILE *stream);
int __real_putc(int c, FILE *stream);
size_t __real_fwrite(const void *data, size_t size, size_t count, FILE *stream);

int __wrap_printf(const char *format, ...);
int __wrap_vprintf(const char *format, va_list args);
int __wrap_puts(const char *text);
int __wrap_putchar(int c);
int __wrap_fprintf(FILE *stream, const char *format, ...);
int __wrap_vfprintf(FILE *stream, const char *format, va_list args);
int __wrap_fputs(const char *text, FILE *stream);
int __wrap_fputc(int c, FILE *stream);
int __wrap_putc(int c, FILE *stream);
size_t __wrap_fwrite(const void *data, size_t size, size_t count, FILE *stream);

enum { kLineBytes = 1024 };

static _Thread_local char line[kLineBytes];
static _Thread_local size_t line_length;
static _Thread_local GObject *current_element;

/* The library's level names and the adaptive filter's prefix, as the category's levels.
 * A line with none of them (the FFT wrapper's own notes) is information. */
static const struct {
    const char *prefix;
    GstDebugLevel level;
} kLevels[] = {
    {"[ALGO_MSG_ERR]", GST_LEVEL_ERROR},
    {"[ALGO_MSG_WRN]", GST_LEVEL_WARNING},
    {"[ALGO_MSG_MSG]", GST_LEVEL_INFO},
    {"warning: ", GST_LEVEL_WARNING},
};

void qenaec_messages_init(void) {
    GST_DEBUG_CATEGORY_INIT(qenaec_debug, "qenaec", 0,
                            "qenaec element and the echo canceller library's messages");
}

GObject *qenaec_messages_enter(GObject *element) {
    GObject *previous = current_element;
    current_element = element;
    return previous;
}

void qenaec_messages_leave(GObject *previous) {
    current_element = previous;
}

static gboolean category_active(void) {
    return gst_debug_category_get_threshold(qenaec_debug) >= GST_LEVEL_ERROR;
}

static void flush_line(void) {
    while (line_length > 0 && g_ascii_isspace(line[line_length - 1])) {
        --line_length;
    }
    line[line_length] = '\0';
    GstDebugLevel level = GST_LEVEL_INFO;
    for (size_t i = 0; i < G_N_ELEMENTS(kLevels); ++i) {
        if (g_str_has_prefix(line, kLevels[i].prefix)) {
            level = kLevels[i].level;
            break;
        }
    }
    if (line_length > 0 && level <= gst_debug_category_get_threshold(qenaec_debug)) {
        gst_debug_log(qenaec_debug, level, "libqenaec", "", 0, current_element, "%s", line);
    }
    line_length = 0;
}

static void take(const char *text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (text[i] == '\n') {
            flush_line();
            continue;
        }
        if (line_length == kLineBytes - 1) {
            flush_line(); /* a line longer than the buffer is logged in pieces */
        }
        line[line_length++] = text[i];
    }
}

static int route(const char *format, va_list args) {
    char text[kLineBytes];
    const int n = vsnprintf(text, sizeof text, format, args);
    if (n > 0 && category_active()) {
        take(text, MIN((size_t)n, sizeof text - 1));
    }
    return n;
}

static gboolean is_console(FILE *stream) {
    return stream == stdout || stream == stderr;
}

int __wrap_vprintf(const char *format, va_list args) {
    return route(format, args);
}

int __wrap_printf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int n = route(format, args);
    va_end(args);
    return n;
}

int __wrap_puts(const char *text) {
    if (category_active()) {
        take(text, strlen(text));
        take("\n", 1);
    }
    return 1;
}

int __wrap_putchar(int c) {
    const char ch = (char)c;
    if (category_active()) {
        take(&ch, 1);
    }
    return (unsigned char)c;
}

int __wrap_vfprintf(FILE *stream, const char *format, va_list args) {
    return is_console(stream) ? route(format, args) : __real_vfprintf(stream, format, args);
}

int __wrap_fprintf(FILE *stream, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int n = __wrap_vfprintf(stream, format, args);
    va_end(args);
    return n;
}

int __wrap_fputs(const char *text, FILE *stream) {
    if (!is_console(stream)) {
        return __real_fputs(text, stream);
    }
    if (category_active()) {
        take(text, strlen(text));
    }
    return 1;
}

int __wrap_fputc(int c, FILE *stream) {
    return is_console(stream) ? __wrap_putchar(c) : __real_fputc(c, stream);
}

int __wrap_putc(int c, FILE *stream) {
    return is_console(stream) ? __wrap_putchar(c) : __real_putc(c, stream);
}

size_t __wrap_fwrite(const void *data, size_t size, size_t count, FILE *stream) {
    if (!is_console(stream)) {
        return __real_fwrite(data, size, count, stream);
    }
    if (category_active()) {
        take(data, size * count);
    }
    return count;
}
