/*
 * A minimal host: registers a log callback, raises the log level and shows what the library
 * reports. A firewall's VoIP proxy does the same at start-up before it translates any message.
 */
#include <voipfilter/voipfilter.h>

#include <stdio.h>

static void print_log_line(void* ctx, const char* file, int line, int level, const char* text) {
    (void)ctx;
    printf("[level %d] %s:%d: %s", level, file, line, text);
}

int main(void) {
    voipxlate_setfunction(VOIPXLATE_LOG, (voipxlate_function)print_log_line);
    printf("log level set to %d\n", voipxlate_setloglevel(5));
    return 0;
}
