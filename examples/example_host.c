/*
 * A minimal host: what a firewall's VoIP proxy does around the library.
 *
 * At start-up it registers its callbacks and a log level. Per SIP association it creates a
 * connection with the addresses the firewall knows, hands over every datagram, and sends either
 * the rewritten message (result 1) or the datagram as it came (0), or drops it (< 0).
 */
#include <voipfilter/voipfilter.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

static void print_log_line(void* ctx, const char* file, int line, int level, const char* text) {
    (void)ctx;
    (void)file;
    (void)line;
    printf("  log %d: %s", level, text);
}

/* A media pinhole on the firewall's public address; the other side must send there. */
static int open_rtp_channel(void* ctx, int direction, voipxlate_mediasessioninformation* session,
                            int32_t* handle) {
    sockaddr_type* rtp =
        direction ? &session->forwardRTPTranslated : &session->reverseRTPTranslated;
    sockaddr_type* rtcp =
        direction ? &session->forwardRTCPTranslated : &session->reverseRTCPTranslated;
    static const uint8_t public_address[4] = {203, 0, 113, 1};
    (void)ctx;
    memcpy(rtp->addr, public_address, 4);
    memcpy(rtcp->addr, public_address, 4);
    rtp->port = htons(40000);
    rtcp->port = htons(40001);
    *handle = 1;
    printf("  host: pinhole for session %d (%s) on 203.0.113.1:40000\n", session->sessionID,
           direction ? "forward" : "reverse");
    return 0;
}

static int close_rtp_channel(void* ctx, int32_t handle, int direction) {
    (void)ctx;
    printf("  host: close channel %d (%s)\n", handle, direction ? "forward" : "reverse");
    return 0;
}

/* Codec policy. SIP media lines keep only the rtpmap codecs this callback allows. */
static int allow_codec(void* ctx, int kind, const char* codec) {
    (void)ctx;
    printf("  host: allow %s codec %s\n", kind == VOIPXLATE_MEDIA_AUDIO ? "audio" : "other", codec);
    return 1;
}

static sockaddr_type ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t port) {
    sockaddr_type s;
    memset(&s, 0, sizeof s);
    s.family = VOIPXLATE_FAMILY_IPV4;
    s.addr[0] = a;
    s.addr[1] = b;
    s.addr[2] = c;
    s.addr[3] = d;
    s.port = htons(port);
    return s;
}

static const char invite[] = "INVITE sip:bob@example.com SIP/2.0\r\n"
                             "Via: SIP/2.0/UDP 192.168.1.10:5060;branch=z9hG4bKexample1\r\n"
                             "From: <sip:alice@example.com>;tag=a1\r\n"
                             "To: <sip:bob@example.com>\r\n"
                             "Call-ID: example-call-1\r\n"
                             "CSeq: 1 INVITE\r\n"
                             "Content-Type: application/sdp\r\n"
                             "Content-Length: 119\r\n"
                             "\r\n"
                             "v=0\r\n"
                             "o=alice 1 1 IN IP4 192.168.1.10\r\n"
                             "s=-\r\n"
                             "c=IN IP4 192.168.1.10\r\n"
                             "t=0 0\r\n"
                             "m=audio 5004 RTP/AVP 0\r\n"
                             "a=rtpmap:0 PCMU/8000\r\n";

int main(void) {
    sockaddr_type inside = ipv4(192, 168, 1, 10, 5060), outside = ipv4(198, 51, 100, 7, 5060);
    sockaddr_type inside_public = ipv4(203, 0, 113, 1, 5060);
    unsigned char out[2048];
    unsigned int out_length = sizeof out;
    SIPConnection* connection;
    int result;

    voipxlate_setfunction(VOIPXLATE_LOG, (voipxlate_function)print_log_line);
    voipxlate_setfunction(VOIPXLATE_OPEN_RTP_CHANNEL, (voipxlate_function)open_rtp_channel);
    voipxlate_setfunction(VOIPXLATE_CLOSE_RTP_CHANNEL, (voipxlate_function)close_rtp_channel);
    voipxlate_setfunction(VOIPXLATE_ALLOW_CODEC, (voipxlate_function)allow_codec);
    voipxlate_setloglevel(1);

    /* The inside phone calls out; the firewall announces it as 203.0.113.1. */
    connection = sipxlate_create(NULL, &inside, &outside, &inside_public, &outside);
    result = sipxlate_udp_translate(connection, 1, (const unsigned char*)invite,
                                    (unsigned int)strlen(invite), out, &out_length, 1);
    printf("INVITE from the inside phone: result %d\n", result);
    if (result == 1)
        printf("send this instead:\n%.*s\n", (int)out_length, (const char*)out);

    sipxlate_udp_destroy(connection);
    sipxlate_destroy(connection);
    return result == 1 ? 0 : 1;
}
