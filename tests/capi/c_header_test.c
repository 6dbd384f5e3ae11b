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
    {
        /* The SIP family from C: an opaque handle, null handling, a message passed unchanged. */
        static const unsigned char options[] = "OPTIONS sip:x SIP/2.0\r\n\r\n";
        unsigned char out[64];
        unsigned int length = sizeof out;
        SIPConnection* connection = sipxlate_create(NULL, &address, &address, &address, &address);
        if (connection == NULL ||
            sipxlate_udp_translate(connection, 1, options, sizeof options - 1, out, &length, 1) !=
                0 ||
            sipxlate_udp_translate(NULL, 1, options, sizeof options - 1, out, &length, 1) != -1 ||
            sipxlate_udp_destroy(connection) != 0 || sipxlate_udp_destroy(NULL) != -1) {
            puts("SIP family results differ");
            ++failures;
        }
        sipxlate_destroy(connection);
    }
    voipxlate_setfunction(VOIPXLATE_LOG, NULL);
    voipxlate_setloglevel(0);
    printf("%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}
