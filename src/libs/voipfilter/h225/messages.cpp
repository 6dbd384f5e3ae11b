// Translation of the individual H.225.0 call signalling messages (H.225.0 user-user information):
// the call signalling addresses of SETUP, separate H.245 channels announced in h245Address,
// tunnelled H.245 (H.323 8.2.1) and the hand-over to fast start.
#include "h225/call.h"
#include "h225/transport_address.h"
#include "host/registry.h"
#include "host/sockaddr.h"

#include <cstring>

using namespace H323_MESSAGES;

// The steps of SETUP are defined inline: they stay apart in the source, and the per-message
// path pays no calls for the split.

namespace {

// The fast start answer in CALL PROCEEDING, PROGRESS, ALERTING or CONNECT (H.323 8.1.7):
// fastConnectRefused, or the accepted channels. Folds the outcome into result.
template <class UUIE>
int CheckFastStartReply(H225TranslatorContext& call, bool fromOriginator, UUIE& body, int result) {
    FastStart& fastStart = call.FastStartProcedure();
    if (body.fastConnectRefused_isPresent()) {
        VF_LOG(call.HostContext(), logsource::kH225, 1) << "H225\tfastStart refused";
        fastStart.RefuseFastStart();
    } else if (body.fastStart_isPresent()) {
        const int r = fastStart.AcceptFastStartReply(fromOriginator, body.ref_fastStart());
        if (r < 0) {
            VF_LOG(call.HostContext(), logsource::kH225, 1) << "H225\tfastStart translation failed";
            result = -1;
        } else if (r > 0) {
            VF_LOG(call.HostContext(), logsource::kH225, 1)
                << "H225\tfastStart translation succeeded";
            result = 1;
        } else {
            VF_LOG(call.HostContext(), logsource::kH225, 1) << "H225\tno fastStart translation";
        }
    }
    return result;
}

} // namespace

int H225TranslatorContext::TranslateSetup(bool fromOriginator, H323_UU_PDU& pdu) {
    if (callInfo_.state != VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1)
            << "H.225\tSETUP received when not in Idle state";
        return -1;
    }
    // Taken before the contents are checked: a refused SETUP still ends the Idle state, so a
    // retried SETUP on this call is refused as well.
    callInfo_.state = VOIPXLATE_H225_SETUP;

    Setup_UUIE& setup = pdu.ref_h323_message_body().ref_setup();
    int r = 0;

    if (setup.callIdentifier_isPresent()) {
        setupFlags_ |= setupflag::kCallIdentifier;
        const auto& guid = setup.get_callIdentifier().get_guid();
        std::memcpy(callIdentifier_, guid.data(),
                    guid.size() < sizeof callIdentifier_ ? guid.size() : sizeof callIdentifier_);
    }

    if (setup.h245Address_isPresent())
        r |= TranslateH245ChannelRequest(fromOriginator, setup.ref_h245Address(), "SETUP");

    const int addresses = TranslateSetupAddresses(setup);
    if (addresses < 0)
        return -1;
    r |= addresses;
    const bool fastStartOffered = setup.fastStart_isPresent();
    fastStart_.SetOffered(fastStartOffered);
    if (fastStartOffered) {
        // With fast start, any tunnelled H.245 is left as it is: the channels are those of the
        // fast start offer until the callee chooses otherwise.
        const int f = TranslateSetupFastStart(setup.ref_fastStart());
        if (f == -1)
            return -1;
        r = f == -2 ? -2 : r | f;
    } else if (pdu.h245Control_isPresent()) {
        const int t = h245_.TranslateTunnelledH245(fromOriginator, pdu.ref_h245Control());
        if (t < 0) {
            VF_LOG(HostContext(), logsource::kH225, 1)
                << "H.225\twarning - cannot translate tunneled H.245";
            r = -1;
        } else if (t > 0) {
            VF_LOG(HostContext(), logsource::kH225, 2) << "H.225\tTunneled H.245 was translated";
            r |= 1;
        }
    }

    // parallelH245Control would start H.245 procedures alongside fast start
    // that this translator cannot follow. Removing it does not by itself make the PDU count as
    // changed: it is dropped only when the PDU is re-encoded for another reason.
    if (setup.parallelH245Control_isPresent()) {
        VF_LOG(HostContext(), logsource::kH225, 2) << "H.225\tRemoving parallelH245Control";
        setup.removeOptionalField(Setup_UUIE::e_parallelH245Control);
        inPlace_ = false;
    }
    return r;
}

inline int H225TranslatorContext::TranslateSetupAddresses(Setup_UUIE& setup) {
    int r = 0;
    if (setup.sourceCallSignalAddress_isPresent()) {
        setupFlags_ |= setupflag::kSourceCallSignalAddress;
        sockaddr_type found;
        if (!DecodeH225TransportAddress(setup.get_sourceCallSignalAddress(), found)) {
            VF_LOG(HostContext(), logsource::kH225, 1)
                << "H.225\terror: SETUP contains non-IP sourceCallSignalAddress";
            return -1;
        }
        if (!(found == expectedOriginator_)) {
            VF_LOG(HostContext(), logsource::kH225, 1)
                << "H.225\twarning: srcCallSigAddr in SETUP (" << found
                << ") does not match address provided by proxy (" << expectedOriginator_ << ")";
        }
        WriteTransportAddress(announcedOriginator_, setup.ref_sourceCallSignalAddress());
        r = 1;
    }
    if (setup.destCallSignalAddress_isPresent()) {
        sockaddr_type found;
        if (!DecodeH225TransportAddress(setup.get_destCallSignalAddress(), found)) {
            VF_LOG(HostContext(), logsource::kH225, 1)
                << "H.225\terror: setup contains non-IP destCallSignalAddress";
            return -1;
        }
        if (!(found == expectedDestination_)) {
            VF_LOG(HostContext(), logsource::kH225, 1)
                << "H.225\twarning: dstCallSigAddr in SETUP (" << found
                << ") does not match address provided by proxy (" << expectedDestination_ << ")";
        }
        WriteTransportAddress(announcedDestination_, setup.ref_destCallSignalAddress());
        r = 1;
    }
    return r;
}

inline int H225TranslatorContext::TranslateSetupFastStart(OctetStringList& fastStart) {
    const unsigned offered = fastStart.size();
    const int f = fastStart_.TranslateFastStartRequest(fastStart);
    if (fastStart.size() != offered)
        inPlace_ = false; // elements left the list
    if (f > 0 && fastStart.empty()) {
        VF_LOG(HostContext(), logsource::kH225, 2)
            << "H.225\tCall shutdown triggered as all fastStart elements were filtered out";
        return -2;
    }
    return f < 0 ? -1 : f;
}

int H225TranslatorContext::TranslateProceeding(bool fromOriginator, H323_UU_PDU& pdu) {
    if (callInfo_.state == VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1)
            << "H.225\tCALL PROCEEDING received when in Idle state";
        return -1;
    }
    CallProceeding_UUIE& body = pdu.ref_h323_message_body().ref_callProceeding();
    int r = 0;
    if (body.h245Address_isPresent())
        r = TranslateH245ChannelRequest(fromOriginator, body.ref_h245Address(), "PROCEEDING");
    if (r >= 0)
        r |= CheckFastStartReply(*this, fromOriginator, body, 0);
    return r;
}

namespace {

// PROGRESS, ALERTING and CONNECT share their handling: fast start answer, H.245 address, then
// the tunnelling state and tunnelled H.245.
template <class UUIE>
int TranslateReply(H225TranslatorContext& call, bool fromOriginator, H323_UU_PDU& pdu, UUIE& body,
                   const char* name) {
    int r = CheckFastStartReply(call, fromOriginator, body, 0);
    if (r >= 0 && body.h245Address_isPresent())
        r |= call.TranslateH245ChannelRequest(fromOriginator, body.ref_h245Address(), name);
    if (r >= 0)
        r |= call.CheckH245(fromOriginator, pdu, r);
    return r;
}

} // namespace

int H225TranslatorContext::TranslateProgress(bool fromOriginator, H323_UU_PDU& pdu) {
    if (callInfo_.state == VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1) << "H.225\tPROGRESS received when in Idle state";
        return -1;
    }
    return TranslateReply(*this, fromOriginator, pdu, pdu.ref_h323_message_body().ref_progress(),
                          "PROGRESS");
}

int H225TranslatorContext::TranslateAlerting(bool fromOriginator, H323_UU_PDU& pdu) {
    if (callInfo_.state == VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1) << "H.225\tALERTING received when in Idle state";
        return -1;
    }
    return TranslateReply(*this, fromOriginator, pdu, pdu.ref_h323_message_body().ref_alerting(),
                          "ALERTING");
}

int H225TranslatorContext::TranslateConnect(bool fromOriginator, H323_UU_PDU& pdu) {
    if (callInfo_.state == VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1) << "H.225\tCONNECT received when in Idle state";
        return -1;
    }
    const int r = TranslateReply(*this, fromOriginator, pdu,
                                 pdu.ref_h323_message_body().ref_connect(), "CONNECT");
    if (r >= 0)
        callInfo_.state = VOIPXLATE_H225_CONNECTED;
    return r;
}

int H225TranslatorContext::TranslateFacility(bool fromOriginator, H323_UU_PDU& pdu) {
    if (callInfo_.state == VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1) << "H.225\tFACILITY received when in Idle state";
        return -1;
    }
    Facility_UUIE& body = pdu.ref_h323_message_body().ref_facility();
    int r = 0;
    if (body.h245Address_isPresent())
        r = TranslateH245ChannelRequest(fromOriginator, body.ref_h245Address(), "FACILITY");
    if (r >= 0)
        r |= CheckH245(fromOriginator, pdu, 0);
    return r;
}

int H225TranslatorContext::TranslateInformation(bool fromOriginator, H323_UU_PDU& pdu) {
    if (callInfo_.state == VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1)
            << "H.225\tINFORMATION received when in Idle state";
        return -1;
    }
    return CheckH245(fromOriginator, pdu, 0);
}

int H225TranslatorContext::TranslateEmpty(bool fromOriginator, H323_UU_PDU& pdu) {
    // An EMPTY message is logged with the INFORMATION text: both are H.225.0 messages without
    // call control content, and log readers match on that one line.
    if (callInfo_.state == VOIPXLATE_H225_IDLE) {
        VF_LOG(HostContext(), logsource::kH225, 1)
            << "H.225\tINFORMATION received when in Idle state";
        return -1;
    }
    // An EMPTY body only carries tunnelled H.245, which is how an endpoint sends
    // the empty capability set of a third-party pause. The host is told of every
    // EMPTY message and decides for itself.
    auto onHold =
        VoIPTranslator::Current().Callback<voipxlate_call_on_hold_function>(VOIPXLATE_CALL_ON_HOLD);
    if (onHold != nullptr) {
        VF_LOG(HostContext(), logsource::kH225, 2) << "H.225\tHold notification received";
        if (onHold(HostContext(), 1) != 0)
            return -1;
    }
    return CheckH245(fromOriginator, pdu, 0);
}

int H225TranslatorContext::CheckH245(bool fromOriginator, H323_UU_PDU& pdu, int previous) {
    // H.323 8.2.1: h245Tunnelling must be set in every message while tunnelling is in use;
    // once a message goes without it, tunnelling is off for the rest of the call.
    if (!(setupFlags_ & setupflag::kTunnellingOff) &&
        (!pdu.h245Tunneling_isPresent() || !static_cast<bool>(pdu.get_h245Tunneling()))) {
        setupFlags_ |= setupflag::kTunnellingOff;
        VF_LOG(HostContext(), logsource::kH225, 2) << "H.225\tH.245 tunnelling disabled";
    }
    if (!pdu.h245Control_isPresent())
        return previous;
    const int t = h245_.TranslateTunnelledH245(fromOriginator, pdu.ref_h245Control());
    if (t < 0) {
        VF_LOG(HostContext(), logsource::kH225, 1)
            << "H.225\twarning - cannot translate tunneled H.245";
        return -1;
    }
    if (t > 0) {
        VF_LOG(HostContext(), logsource::kH225, 2) << "H.225\tTunneled H.245 was translated";
        return 1;
    }
    return previous;
}

int H225TranslatorContext::TranslateH245ChannelRequest(bool fromOriginator,
                                                       TransportAddress& h245Address,
                                                       const char* messageName) {
    if (setupFlags_ & setupflag::kH245AddressHandled) {
        // One relay per call: a later h245Address gets the address chosen for the first.
        VF_LOG(HostContext(), logsource::kH225, 1)
            << "H.225\twarning: repeated request for H.245 address in " << messageName;
    } else {
        setupFlags_ |= setupflag::kH245AddressHandled;
        if (!DecodeH225TransportAddress(h245Address, peerH245_)) {
            VF_LOG(HostContext(), logsource::kH225, 1)
                << "H.225\terror: " << messageName << " contains non-IP H.245 address";
            return 0;
        }
        announcedH245_ = peerH245_;
        auto openH245 = VoIPTranslator::Current().Callback<voipxlate_open_h245_channel_function>(
            VOIPXLATE_OPEN_H245_CHANNEL);
        if (openH245 != nullptr &&
            openH245(HostContext(), fromOriginator ? 1 : 0, &peerH245_, &announcedH245_) != 0)
            return -1;
    }
    if (announcedH245_ == peerH245_)
        return 0;
    WriteTransportAddress(announcedH245_, h245Address);
    return 1;
}
