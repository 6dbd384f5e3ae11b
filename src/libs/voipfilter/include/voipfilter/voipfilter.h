/*
 * voipfilter - VoIP signalling translation for NAT firewalls.
 *
 * The host (a firewall's VoIP proxy) owns every socket. It hands each signalling message that
 * crosses the firewall to one of the translate functions below, says from which side of the call
 * it came, and gets back the rewritten message, the word that it may pass unchanged, or the word
 * that it must be refused. Network work the translation needs (media pinholes, H.245 relays,
 * address mappings) is asked of the host through the callback table set with
 * voipxlate_setfunction().
 *
 * Results follow one convention throughout: negative = error (drop the message), 0 = forward the
 * bytes as they came, positive = the message changed and the new bytes are to be used. A null
 * handle gives -1 (or null from functions returning pointers).
 *
 * Threads: the callback table and log level are process-wide; set them before translating. One
 * call object, and the SIP family as a whole, must be used from one thread at a time.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef VOIPFILTER_VOIPFILTER_H
#define VOIPFILTER_VOIPFILTER_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#if defined(VOIPFILTER_BUILDING) && defined(__GNUC__)
#define VOIPXLATE_API __attribute__((visibility("default")))
#else
#define VOIPXLATE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------------------
 * Socket address
 * ------------------------------------------------------------------------------------------- */

/** IP version numbers used in sockaddr_type.family (not operating-system AF_ constants). */
#define VOIPXLATE_FAMILY_IPV4 4
#define VOIPXLATE_FAMILY_IPV6 6

/**
 * One address and port, exactly 20 bytes, copied by value across the API.
 * family: 4 for IPv4, 6 for IPv6, anything else is an unknown family.
 * port:   network byte order; 0 means "no port".
 * addr:   IPv4 uses bytes 0..3 (most significant first) and leaves the rest zero; IPv6 uses all.
 */
typedef struct sockaddr_type {
    uint16_t family;
    uint16_t port;
    uint8_t addr[16];
} sockaddr_type;

/* Compile-time layout check that works in C99 and C++ alike. */
typedef char voipxlate_sockaddr_type_is_20_bytes[(sizeof(sockaddr_type) == 20) ? 1 : -1];

/* ---------------------------------------------------------------------------------------------
 * Call and media session records
 * ------------------------------------------------------------------------------------------- */

/** Flag bits of voipxlate_mediasessioninformation.flags. */
#define VOIPXLATE_SESSION_IN_USE 0x80000000u
#define VOIPXLATE_SESSION_ANSWERED 0x40000000u
#define VOIPXLATE_SESSION_FORWARD_OPEN 0x20000000u
#define VOIPXLATE_SESSION_REVERSE_OPEN 0x10000000u

/** Media kinds passed to allowCodecFunction and stored in the session records. */
#define VOIPXLATE_MEDIA_UNKNOWN 0
#define VOIPXLATE_MEDIA_AUDIO 1
#define VOIPXLATE_MEDIA_VIDEO 2
#define VOIPXLATE_MEDIA_DATA 3    /* H.245 data applications */
#define VOIPXLATE_MEDIA_MESSAGE 4 /* SIP message sessions (m=message) */

/**
 * One media session of a call. "Forward" addresses are those announced by the call's originator,
 * "reverse" those announced by the destination. The host reads these records through the call
 * information record and writes the translated addresses of one direction when it opens a
 * channel (openRTPChannelFunction, openIMChannelFunction).
 *
 * SIP calls keep the media port in sessionID and leave the channel numbers and codec name zero.
 */
typedef struct voipxlate_mediasessioninformation {
    uint32_t flags;              /* VOIPXLATE_SESSION_* bits */
    int32_t sessionID;           /* H.245 session ID (SIP: the media port) */
    uint32_t originatorChannel;  /* forwardLogicalChannelNumber of the originator's OLC */
    uint32_t destinationChannel; /* forwardLogicalChannelNumber of the destination's OLC */
    int32_t mediaKind;           /* VOIPXLATE_MEDIA_* */
    const char* codecName;       /* static text, or null */
    sockaddr_type forwardRTP;    /* as announced by the originator */
    sockaddr_type forwardRTPTranslated;
    sockaddr_type forwardRTCP;
    sockaddr_type forwardRTCPTranslated;
    int32_t forwardUserData;  /* host's handle for the forward channel */
    sockaddr_type reverseRTP; /* as announced by the destination */
    sockaddr_type reverseRTPTranslated;
    sockaddr_type reverseRTCP;
    sockaddr_type reverseRTCPTranslated;
    int32_t reverseUserData; /* host's handle for the reverse channel */
} voipxlate_mediasessioninformation;

#define VOIPXLATE_MAX_SESSIONS 10

/** H.225 call states held in voipxlate_callinformation.state. */
#define VOIPXLATE_H225_IDLE 0
#define VOIPXLATE_H225_SETUP 1
#define VOIPXLATE_H225_CONNECTED 2

/** SIP dialog states held in voipxlate_callinformation.state. */
#define VOIPXLATE_SIP_NONE 0
#define VOIPXLATE_SIP_INVITED 1
#define VOIPXLATE_SIP_ESTABLISHED 2
#define VOIPXLATE_SIP_FAILED 4
#define VOIPXLATE_SIP_CONNECTED 5

/**
 * The record through which the host sees a call.
 * status:    H.225 calls: 1 from creation on.
 * state:     the call state (H.225: VOIPXLATE_H225_*; SIP: VOIPXLATE_SIP_*); the three bytes
 *            after it are reserved and zero.
 * startTime: seconds since the epoch when the call was created.
 * reserved:  zero; never written by the library after creation.
 * sessions:  the call's media sessions.
 */
typedef struct voipxlate_callinformation {
    int32_t status;
    uint8_t state;
    uint8_t stateReserved[3];
    int64_t startTime;
    uint32_t reserved;
    voipxlate_mediasessioninformation sessions[VOIPXLATE_MAX_SESSIONS];
} voipxlate_callinformation;

/* ---------------------------------------------------------------------------------------------
 * Host callbacks
 *
 * Sixteen slots, set with voipxlate_setfunction(index, (voipxlate_function)fn). Every caller
 * tests its slot for null first: an empty slot switches the feature off. "ctx" is the host
 * context given when the call object was created.
 * ------------------------------------------------------------------------------------------- */

/** Generic storage type of one slot; cast to and from the slot's own type. */
typedef void (*voipxlate_function)(void);

enum voipxlate_slot {
    VOIPXLATE_LOG = 0,                   /* voipxlate_log_function */
    VOIPXLATE_OPEN_RTP_CHANNEL = 1,      /* voipxlate_open_channel_function */
    VOIPXLATE_CLOSE_RTP_CHANNEL = 2,     /* voipxlate_close_channel_function */
    VOIPXLATE_ALLOW_CODEC = 3,           /* voipxlate_allow_codec_function */
    VOIPXLATE_OPEN_H245_CHANNEL = 4,     /* voipxlate_open_h245_channel_function */
    VOIPXLATE_SPARE_5 = 5,               /* voipxlate_spare_function */
    VOIPXLATE_SPARE_6 = 6,               /* voipxlate_spare_function */
    VOIPXLATE_SPARE_7 = 7,               /* voipxlate_spare_function */
    VOIPXLATE_CALL_INFORMATION = 8,      /* voipxlate_call_information_function */
    VOIPXLATE_REWRITE_NOTIFY = 9,        /* voipxlate_rewrite_notify_function */
    VOIPXLATE_TRANSLATE_ADDR = 10,       /* voipxlate_translate_addr_function */
    VOIPXLATE_REMOVE_MAPPING = 11,       /* voipxlate_remove_mapping_function */
    VOIPXLATE_TRANSLATE_MEDIA_ADDR = 12, /* voipxlate_translate_media_addr_function */
    VOIPXLATE_SPARE_13 = 13,             /* voipxlate_spare_function */
    VOIPXLATE_CALL_ON_HOLD = 14,         /* voipxlate_call_on_hold_function */
    VOIPXLATE_OPEN_IM_CHANNEL = 15,      /* voipxlate_open_im_channel_function */
    VOIPXLATE_SLOT_COUNT = 16
};

/** Slot 0, logFunction: one log line (text usually ends with a line end). */
typedef void (*voipxlate_log_function)(void* ctx, const char* file, int line, int level,
                                       const char* text);

/**
 * Slots 1 (openRTPChannelFunction) and 15 (openIMChannelFunction): open the channel of one
 * direction of a media session (direction 1 = forward, the originator's addresses; 0 = reverse).
 * On entry the translated addresses of that direction hold copies of the announced ones; the host
 * overwrites them with what the other endpoint must use and stores its handle in *handle.
 * @return 0 opened; anything else: failed (the message is refused).
 */
typedef int (*voipxlate_open_channel_function)(void* ctx, int direction,
                                               voipxlate_mediasessioninformation* session,
                                               int32_t* handle);

/** Slot 15, openIMChannelFunction: as slot 1, for a message-session (MSRP) media line. */
typedef voipxlate_open_channel_function voipxlate_open_im_channel_function;

/** Slots 5, 6, 7 and 13 are spare: the library never calls them. */
typedef voipxlate_function voipxlate_spare_function;

/** Slot 2, closeRTPChannelFunction: close a channel (direction 1 forward handle, 0 reverse). */
typedef int (*voipxlate_close_channel_function)(void* ctx, int32_t handle, int direction);

/**
 * Slot 3, allowCodecFunction: may this codec pass? kind is VOIPXLATE_MEDIA_*.
 * @return non-zero keep it, 0 filter it out.
 */
typedef int (*voipxlate_allow_codec_function)(void* ctx, int kind, const char* codec);

/**
 * Slot 4, openH245ChannelFunction: relay a separate H.245 connection. direction 1 = the PDU came
 * from the originator. announced is the address in the PDU; the host writes the one to announce
 * instead into replacement (pre-filled with a copy of announced).
 * @return 0 the relay is set up; anything else refuses the call.
 */
typedef int (*voipxlate_open_h245_channel_function)(void* ctx, int direction,
                                                    const sockaddr_type* announced,
                                                    sockaddr_type* replacement);

/** Slot 8, callInformationFunction: a new SIP dialog and its record. */
typedef void (*voipxlate_call_information_function)(voipxlate_callinformation* call);

/** The header list of a SIP message (opaque to C hosts). */
typedef struct SIPMIMEType SIPMIMEType;

/**
 * Slot 9, rewriteNotifyFunction: the SIP message is about to be emitted; the host may edit its
 * headers. No host context is passed. The result is OR-ed into the translation result, so a
 * positive value forces the message to be re-emitted.
 */
typedef int (*voipxlate_rewrite_notify_function)(bool fromSource, bool isRequest,
                                                 SIPMIMEType* headers);

/**
 * Slot 10, translateAddrFunction (RAS): translate a registered call-signalling address.
 * replacement is pre-filled with a copy of found; *mapping is null on entry and may receive a
 * handle that is handed back to removeMappingFunction.
 */
typedef void (*voipxlate_translate_addr_function)(void* ctx, int direction,
                                                  const sockaddr_type* found,
                                                  sockaddr_type* replacement, void** mapping);

/** Slot 11, removeMappingFunction (RAS): withdraw a mapping made by slot 10. */
typedef void (*voipxlate_remove_mapping_function)(void* ctx, void* mapping);

/**
 * Slot 12, translateMediaAddrFunction: translate a T.120 separate-stack address. replacement is
 * pre-filled with a copy of found. scratch points to a writable area of at least 20 bytes that
 * the library never reads afterwards.
 * @return 0 translated; anything else refuses the message.
 */
typedef int (*voipxlate_translate_media_addr_function)(void* ctx, int direction,
                                                       const sockaddr_type* found,
                                                       sockaddr_type* replacement, void* scratch);

/** Slot 14, callOnHoldFunction: the call was put on hold (flag is always 1). @return -1 fails. */
typedef int (*voipxlate_call_on_hold_function)(void* ctx, int flag);

/* ---------------------------------------------------------------------------------------------
 * Registry
 * ------------------------------------------------------------------------------------------- */

/**
 * Stores a callback in slot index (0..15). An index outside 0..15 changes nothing. Passing null
 * switches the slot off; for slot 0 that also removes the built-in standard-error writer.
 * @return 0 always.
 */
VOIPXLATE_API int voipxlate_setfunction(int index, voipxlate_function fn);

/**
 * Sets the log level: a line of level L is composed and sent to slot 0 only when the level is at
 * least L. 0 (the start value) logs nothing; 1 errors and refusals; 2 decisions; 3 address
 * translations; 4 progress; 5 whole messages.
 * @return the level just stored.
 */
VOIPXLATE_API int voipxlate_setloglevel(int level);

/* ---------------------------------------------------------------------------------------------
 * H.225 call family: one handle per H.323 call
 *
 * For every H.225.0 call signalling PDU (a Q.931 message without its TPKT header) from either
 * side: decodeh225pdu, then translateh225pdu, then, when that returned 1, encodeh225pdu into the
 * buffer to send. PDUs of a separate H.245 connection go to translateh245pdu. "fromOriginator"
 * is non-zero when the PDU comes from the side that sent SETUP.
 * ------------------------------------------------------------------------------------------- */

/** One H.323 call (opaque). */
#ifdef __cplusplus
class H225TranslatorContext; /* the library's class, opaque to hosts */
#else
typedef struct H225TranslatorContext H225TranslatorContext;
#endif

/**
 * Creates a call. expectedOriginator: the address the SETUP comes from; expectedDestination: the
 * address the originator called; announcedOriginator: written into SETUP's
 * sourceCallSignalAddress; announcedDestination: written into its destCallSignalAddress. The
 * addresses are copied; a null pointer stands for an all-zero address.
 * @return the new call, never null. Free it with h323xlate_h225_destroy().
 */
VOIPXLATE_API H225TranslatorContext* h323xlate_h225_create(void* hostContext,
                                                           sockaddr_type* expectedOriginator,
                                                           sockaddr_type* expectedDestination,
                                                           sockaddr_type* announcedOriginator,
                                                           sockaddr_type* announcedDestination);

/** Frees a call and everything it holds; null is ignored. The host's channels are not closed. */
VOIPXLATE_API void h323xlate_h225_destroy(H225TranslatorContext* call);

/**
 * Takes a Q.931 frame apart and decodes its H.225.0 user information, for the translate and
 * encode calls that follow.
 * @return 1 decoded; -1 null call or pdu, or a malformed frame (shorter than 5 bytes, a call
 *         reference that is not 2 bytes long, an element running past the end, no user-user
 *         element or an empty one); -2 the user information does not decode.
 */
VOIPXLATE_API int h323xlate_h225_decodeh225pdu(H225TranslatorContext* call,
                                               const unsigned char* pdu, unsigned int length);

/**
 * Writes the PDU decoded last, as translated, into buffer. *length is the buffer's size on entry
 * and the PDU's size after success. The header and the other information elements are kept byte
 * for byte; the user-user element is written last.
 * @return 1 written; 0 the PDU was not changed (nothing written: forward the received bytes);
 *         -1 null call, a buffer too small (partly written) or an encode failure.
 */
VOIPXLATE_API int h323xlate_h225_encodeh225pdu(H225TranslatorContext* call, unsigned char* buffer,
                                               unsigned int* length);

/**
 * Translates the PDU decoded last. *status (if given) is set to -1 first, then to the message
 * tag (0 SETUP, 1 CALL PROCEEDING, 2 CONNECT, 3 ALERTING, 4 INFORMATION, 5 RELEASE COMPLETE,
 * 6 FACILITY, 7 PROGRESS, 8 EMPTY, 9 STATUS, 10 STATUS INQUIRY, 11 SETUP ACKNOWLEDGE, 12 NOTIFY)
 * when the result is 0 or 1 for a known message; it stays -1 for an unknown message and for the
 * results -1 and -2. Before any successful decode there is no message: the result is 0.
 * @return 1 changed: call h323xlate_h225_encodeh225pdu(); 0 forward the PDU as received (also for
 *         an unknown message); -1 null call, or the message came from the wrong call leg (drop
 *         it); -2 the message was refused: shut the call down.
 */
VOIPXLATE_API int h323xlate_h225_translateh225pdu(H225TranslatorContext* call, int fromOriginator,
                                                  int* status);

/**
 * Translates one PDU of the call's separate H.245 connection (no TPKT header). *outputLength is
 * the output buffer's size on entry and the new PDU's size after a rewrite.
 * @return 1 rewritten into output; 0 forward the input unchanged; -1 null call, null input, a
 *         refused media channel or an output buffer too small; -2 the input does not decode.
 */
VOIPXLATE_API int h323xlate_h225_translateh245pdu(H225TranslatorContext* call, int fromOriginator,
                                                  const unsigned char* input, unsigned int length,
                                                  unsigned char* output,
                                                  unsigned int* outputLength);

/**
 * @return the call's information record (state, start time, media sessions), valid until the
 *         call is destroyed; null for a null call.
 */
VOIPXLATE_API voipxlate_callinformation* h323xlate_h225_getcallstatus(H225TranslatorContext* call);

/**
 * Writes a copy of the Q.931 frame pdu into output with the vendor identity of the sending
 * endpoint replaced: productId becomes value, versionId a single zero byte. The user-user
 * element stays where it stood. selector is reserved. *outputLength is the buffer's size on
 * entry and the new size after success. Messages other than SETUP, CALL PROCEEDING, ALERTING,
 * CONNECT, PROGRESS and FACILITY, and messages whose endpoint announces no vendor identity, are
 * copied with their user information re-encoded unchanged. The call's state is not used or
 * changed.
 * @return 1 written; 0 no user-user element; -1 null call, value or output, a malformed frame,
 *         or an output buffer too small; -2 the user information does not decode.
 */
VOIPXLATE_API int h323xlate_h225_setheaderstring(H225TranslatorContext* call,
                                                 const unsigned char* pdu, unsigned int length,
                                                 int selector, char* value, unsigned char* output,
                                                 unsigned int* outputLength);

/**
 * Reads an alias of a SETUP: selector 1 or 3 the sourceAddress, 2 or 4 the destinationAddress.
 * The last dialledDigits or email-ID entry of the list is returned.
 * @return the text (empty when the list is absent, has no such entry, or the selector is
 *         another value), valid until the next call of this function on the call; null for a
 *         null call, a malformed frame, undecodable user information or a message other than
 *         SETUP.
 */
VOIPXLATE_API const char* h323xlate_h225_getheaderstring(H225TranslatorContext* call,
                                                         const unsigned char* pdu,
                                                         unsigned int length, int selector);

/* ---------------------------------------------------------------------------------------------
 * RAS family: one handle per endpoint-to-gatekeeper association (H.225.0 RAS over UDP)
 * ------------------------------------------------------------------------------------------- */

#ifdef __cplusplus
class RASTranslatorContext; /* the library's class, opaque to hosts */
#else
typedef struct RASTranslatorContext RASTranslatorContext;
#endif

/**
 * Creates a RAS translator. first: the endpoint's address as the host received it; third: the
 * address to announce in its place (GatekeeperRequest and RegistrationRequest RAS addresses equal
 * to first are rewritten to third). second and fourth are stored and not used. A null address
 * pointer counts as an all-zero address.
 * @return a new handle (never null).
 */
VOIPXLATE_API RASTranslatorContext* h323xlate_ras_create(void* ctx, const sockaddr_type* first,
                                                         const sockaddr_type* second,
                                                         const sockaddr_type* third,
                                                         const sockaddr_type* fourth);

/**
 * Destroys a RAS translator; null is ignored. Mappings still held are not withdrawn through
 * removeMappingFunction: the host withdraws them itself.
 */
VOIPXLATE_API void h323xlate_ras_destroy(RASTranslatorContext* handle);

/**
 * Translates one RAS message. direction: non-zero when it comes from the endpoint side.
 * *outLength holds out's size on entry and the new message's size after a rewrite. *status (when
 * given) is set to -1 first and then to the RasMessage alternative index once the message decodes
 * (0 GatekeeperRequest, 3 RegistrationRequest, 4 RegistrationConfirm, 5 RegistrationReject,
 * 6 UnregistrationRequest, ...).
 * @return 1 out holds the rewritten message; 0 forward the input unchanged; -1 null handle, null
 *         input, a non-IP address in a request that is rewritten, or out too small; -2 the
 *         input does not decode.
 */
VOIPXLATE_API int h323xlate_ras_translatepdu(RASTranslatorContext* handle, int direction,
                                             const unsigned char* in, unsigned int inLength,
                                             unsigned char* out, unsigned int* outLength,
                                             int* status);

/* ---------------------------------------------------------------------------------------------
 * SIP family (SIP over UDP with SDP bodies)
 *
 * One SIPConnection per host-side SIP association. All SIP connections share one dialog table
 * (created on first use, never destroyed), so the SIP functions must not be called from several
 * threads at once. A dialog is found by Call-ID and topmost Via branch; INVITEs and their 183 and
 * 2xx answers have their SDP media lines rewritten after the host opened the media channels
 * (openRTPChannelFunction / openIMChannelFunction), rtpmap attributes pass allowCodecFunction,
 * sendonly/recvonly call callOnHoldFunction, and a new dialog is reported to
 * callInformationFunction.
 * ------------------------------------------------------------------------------------------- */

/** One SIP association of the host (opaque). */
typedef struct SIPConnection SIPConnection;

/**
 * Creates a connection. a: the originator as the host sees it; b: the destination as the host
 * sees it; c: the originator's address to announce towards the destination; d: the destination's
 * address to announce towards the originator. The addresses are copied. Creates no dialog.
 * @return the new handle; null only when one of the four addresses is null.
 */
VOIPXLATE_API SIPConnection* sipxlate_create(void* context, const sockaddr_type* a,
                                             const sockaddr_type* b, const sockaddr_type* c,
                                             const sockaddr_type* d);

/** Frees the connection (null is ignored). Dialogs it took part in stay in the table. */
VOIPXLATE_API void sipxlate_destroy(SIPConnection* connection);

/**
 * Translates one SIP datagram (in, inLength). *outLength is the capacity of out on entry.
 * direction (non-zero = from the originator) is accepted but the side is taken from the From tag.
 * option 0 keeps the endpoints' own media addresses in the SDP (no media proxy); any other value
 * writes the addresses that the host's open callbacks returned.
 * @return 1: out holds the rewritten message, NUL-terminated, and *outLength its length (without
 *            the NUL);
 *         0: forward the datagram unchanged (nothing to translate, a message of an unknown
 *            dialog, or one that could not be understood well enough to translate);
 *         -1: drop it: null connection, empty datagram, null out or outLength, out too small,
 *            a refused SDP (every codec of a media line vetoed, a bogus media port, a failed
 *            channel open or hold callback);
 *         other values: a positive value the host's rewriteNotifyFunction OR-ed in (out then
 *            holds the message and *outLength its length, as for 1).
 */
VOIPXLATE_API int sipxlate_udp_translate(SIPConnection* connection, int direction,
                                         const unsigned char* in, unsigned int inLength,
                                         unsigned char* out, unsigned int* outLength, int option);

/**
 * Removes the dialog whose last SDP media line had the same port as the last one this connection
 * carried, closes its media channels (closeRTPChannelFunction) and deletes it. A connection that
 * never carried a media line matches nothing.
 * @return -1 for a null connection, else 0.
 */
VOIPXLATE_API int sipxlate_udp_destroy(SIPConnection* connection);

#ifdef __cplusplus
}
#endif

#endif /* VOIPFILTER_VOIPFILTER_H */
