// Q.931 framing as H.225.0 uses it (Q.931 4, H.225.0 7): the message header and the walk over the
// information elements that follow it.
#ifndef VOIPFILTER_H225_Q931_H
#define VOIPFILTER_H225_Q931_H

namespace q931 {

// Protocol discriminator, call reference length, two-octet call reference, message type.
constexpr unsigned int kHeaderSize = 5;
// Q.931 4.5.1: an identifier with bit 8 set is a single-octet information element.
constexpr unsigned char kSingleOctetElement = 0x80;
// The user-user element, as H.225.0 uses it, has a two-octet length (unlike Q.931's one octet).
constexpr unsigned char kUserUserElement = 0x7E;
// Identifier, two length octets and the protocol discriminator in front of the PER payload.
constexpr unsigned int kUserUserHeaderSize = 4;

// The header of an H.225.0 frame is complete and its call reference is two octets long (Q.931
// 4.3: H.225.0 always uses a two-octet call reference).
inline bool HasHeader(const unsigned char* pdu, unsigned int length) {
    return pdu != nullptr && length >= kHeaderSize && pdu[1] == 2;
}

// One information element: where it starts in the frame and its size, identifier included. For
// the user-user element, contents counts the octets after the two length octets.
struct Element {
    unsigned char identifier;
    unsigned int offset;
    unsigned int size;
    unsigned int contents;
};

// Calls visit(element) for each information element after the header, in order, until visit
// returns false or the frame ends. Returns false when an element runs past the end of the frame.
template <class Visit>
bool WalkElements(const unsigned char* pdu, unsigned int length, Visit&& visit) {
    unsigned int offset = kHeaderSize;
    while (offset < length) {
        Element element{pdu[offset], offset, 1, 0};
        const unsigned int remaining = length - offset;
        if (element.identifier == kUserUserElement) {
            if (remaining < 3)
                return false;
            element.contents = (unsigned(pdu[offset + 1]) << 8) | pdu[offset + 2];
            element.size = 3 + element.contents;
        } else if (!(element.identifier & kSingleOctetElement)) {
            if (remaining < 2)
                return false;
            element.size = 2 + pdu[offset + 1];
        }
        if (element.size > remaining)
            return false;
        if (!visit(element))
            return true;
        offset += element.size;
    }
    return true;
}

// Where the user-user payload of a frame lies: offset of the PER octets and their count.
struct UserUserPayload {
    unsigned int offset = 0;
    unsigned int length = 0;
};

// Finds the first user-user element of a frame. @return 1 found, 0 no user-user element, -1 a
// malformed frame (an empty user-user element included).
inline int FindUserUser(const unsigned char* pdu, unsigned int length, UserUserPayload& found) {
    if (!HasHeader(pdu, length))
        return -1;
    int result = 0;
    const bool complete = WalkElements(pdu, length, [&](const Element& element) {
        if (element.identifier != kUserUserElement)
            return true;
        if (element.contents == 0) {
            result = -1;
        } else {
            found.offset = element.offset + kUserUserHeaderSize;
            found.length = element.contents - 1;
            result = 1;
        }
        return false;
    });
    return complete ? result : -1;
}

} // namespace q931

#endif
