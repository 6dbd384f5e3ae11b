/* Compiled as C99: the public header must be usable from C, and a C host must link. */
#include <voipfilter/voipfilter.h>

#include <stddef.h>
#include <stdio.h>
#include <string.h>

static int g_lines;

static void log_line(void* ctx, const char* file, int line, int level, const char* text) {
    (void)ctx;
    (void)file;
    (void)line;
    (void)level;
    (void)text;
    ++g_lines;
}

int main(void) {
    sockaddr_type address;
    voipxlate_callinformation info;
    int failures = 0;

    memset(&address, 0, sizeof address);
    memset(&info, 0, sizeof info);
    if (sizeof(sockaddr_type) != 20) {
        puts("sockaddr_type is not 20 bytes");
        ++failures;
    }
    if (sizeof info.sessions / sizeof info.sessions[0] != VOIPXLATE_MAX_SESSIONS) {
        puts("wrong session count");
        ++failures;
    }
    if (voipxlate_setfunction(VOIPXLATE_LOG, (voipxlate_function)log_line) != 0) {
        puts("setfunction did not return 0");
        ++failures;
    }
    if (voipxlate_setfunction(16, (voipxlate_function)log_line) != 0) {
        puts("setfunction(16) did not return 0");
        ++failures;
    }
    if (voipxlate_setloglevel(4) != 4) {
        puts("setloglevel did not return the level");
        ++failures;
    }
    voipxlate_setfunction(VOIPXLATE_LOG, NULL);
    voipxlate_setloglevel(0);
    printf("%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}
