// The H.245 message dispatcher shared by a separate H.245 connection and H.245 tunnelled in
// H.225.0 (H.323 8.2.1).
#include "h245/session.h"

#include "asn1/asn_codec.h"
#include "h245/capabilities.h"
#include "host/registry.h"

#include <cstring>

using namespace MULTIMEDIA_SYSTEM_CONTROL;

namespace {

const char* CallSide(bool fromOriginator) {
    return fromOriginator ? "originator" : "destination";
}

} // namespace

bool H245Session::RewriteInPlace(const MultimediaSystemControlMessage& message, bool canonical,
                                 const ASN1::LeafPositions& positions, const void* source,
                                 void* octets, unsigned int size) const {
    if (!canonical || !channels_.ShapeKept() || !positions.complete())
        return false;
    if (source != octets)
        std::memmove(octets, source, size);
    // With the shape kept every noted leaf keeps its width, so none is refused here.
    if (!ASN1::OverwriteLeaves(positions, static_cast<char*>(octets)))
        return false;
    ASN1::VerifyRewrittenInPlace(message, octets, size);
    return true;
}

int H245Session::TranslateH245(bool fromOriginator, const unsigned char* input, unsigned int length,
                               unsigned char* output, unsigned int* outputLength) {
    MultimediaSystemControlMessage message;
    ASN1::LeafPositions positions;
    bool canonical = false;
    const int decoded = ASN1::ASNDecode(input, length, message, positions, canonical);
    if (decoded < 0) {
        VF_LOG(channels_.HostContext(), logsource::kH245, 1)
            << "H.245\tcannot decode H.245 element";
        return decoded;
    }
    const int result = TranslateH245(fromOriginator, message);
    if (result <= 0)
        return result;
    if (output != nullptr && outputLength != nullptr && length <= *outputLength &&
        RewriteInPlace(message, canonical, positions, input, output, length)) {
        *outputLength = length;
        return 1;
    }
    return ASN1::ASNEncode(message, output, outputLength);
}

int H245Session::TranslateTunnelledH245(bool fromOriginator, OctetStringList& h245Control) {
    int changed = 0;
    for (unsigned i = 0; i < h245Control.size(); ++i) {
        ASN1::OCTET_STRING& element = h245Control[i];
        MultimediaSystemControlMessage message;
        ASN1::LeafPositions positions;
        bool canonical = false;
        if (ASN1::ASNDecode(element, message, positions, canonical) < 0) {
            VF_LOG(channels_.HostContext(), logsource::kH245, 1)
                << "H.245\tcannot decode H.245 element";
            continue;
        }
        const int result = TranslateH245(fromOriginator, message);
        if (result < 0) {
            VF_LOG(channels_.HostContext(), logsource::kH245, 1)
                << "H.245\terror translating H.245 element";
        } else if (result == 0) {
            VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                << "H.245\tH.245 element not translated";
        } else {
            VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                << "H.245\tTranslating H.245 element";
            if (!RewriteInPlace(message, canonical, positions, element.data(), element.data(),
                                static_cast<unsigned int>(element.size())))
                ASN1::ASNEncode(message, element);
            changed = 1;
        }
    }
    return changed;
}

int H245Session::TranslateH245(bool fromOriginator, MultimediaSystemControlMessage& message) {
    channels_.ResetShape();
    VF_LOG(channels_.HostContext(), logsource::kH245, 5)
        << "H.225\tTranslating H.245 from call " << CallSide(fromOriginator) << '\n'
        << message;

    int result = 0;
    if (message.request_isSelected()) {
        RequestMessage& request = message.ref_request();
        if (request.terminalCapabilitySet_isSelected()) {
            result = TranslateTerminalCapabilitySet(channels_.HostContext(),
                                                    request.ref_terminalCapabilitySet());
            channels_.ShapeChanged(); // codecs the host vetoed leave the set
        } else if (request.openLogicalChannel_isSelected()) {
            if (observer_ != nullptr)
                observer_->OnOpenLogicalChannel(fromOriginator);
            result = channels_.TranslateOpenLogicalChannel(fromOriginator,
                                                           request.ref_openLogicalChannel());
            if (result < 0) {
                VF_LOG(channels_.HostContext(), logsource::kH245, 1)
                    << "H.245\tOLC translation failed for H.245 message";
            } else if (result > 0) {
                VF_LOG(channels_.HostContext(), logsource::kH245, 2) << "H.245\tOLC translated";
            } else {
                VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                    << "H.245\tNo translation required for OLC";
            }
        }
    } else if (message.response_isSelected()) {
        ResponseMessage& response = message.ref_response();
        if (response.openLogicalChannelAck_isSelected()) {
            result = channels_.TranslateOpenLogicalChannelAck(fromOriginator,
                                                              response.ref_openLogicalChannelAck());
            if (result < 0) {
                VF_LOG(channels_.HostContext(), logsource::kH245, 1)
                    << "H.245\tOLCack translation failed for H.245 message";
            } else if (result > 0) {
                VF_LOG(channels_.HostContext(), logsource::kH245, 2) << "H.245\tOLCack translated";
            } else {
                VF_LOG(channels_.HostContext(), logsource::kH245, 2)
                    << "H.245\tNo translation required for OLCack";
            }
        }
    }
    return result;
}
