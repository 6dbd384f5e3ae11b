// Header values the host reads from or writes into an H.225.0 PDU outside the translation path:
// a party's alias from SETUP, and the vendor identity (H.225.0 VendorIdentifier) of a message.
#include "asn1/asn_codec.h"
#include "h225/call.h"
#include "h225/q931.h"
#include "host/registry.h"

#include <cstring>

using namespace H323_MESSAGES;

const char* H225TranslatorContext::getHeaderStringH225(const unsigned char* pdu,
                                                       unsigned int length, int selector) {
    VF_LOG_NOEOL(HostContext(), logsource::kH225, 5) << "H.225\t get header value from PDU \n";
    q931::UserUserPayload payload;
    if (q931::FindUserUser(pdu, length, payload) != 1)
        return nullptr;
    H323_UserInformation information;
    if (ASN1::ASNDecode(pdu + payload.offset, payload.length, information) != 1)
        return nullptr;
    H323_UU_PDU_h323_message_body& body = information.ref_h323_uu_pdu().ref_h323_message_body();
    if (!body.setup_isSelected()) {
        VF_LOG_NOEOL(HostContext(), logsource::kH225, 5)
            << "H.225\tNon H.225 Message type not parsed\n";
        return nullptr;
    }
    return getHeaderSetup(body.ref_setup(), selector);
}

const char* H225TranslatorContext::getHeaderSetup(Setup_UUIE& setup, int selector) {
    headerString_.clear();
    bool source;
    switch (selector) {
    case 1:
    case 3:
        source = true;
        break;
    case 2:
    case 4:
        source = false;
        break;
    default:
        return headerString_.c_str();
    }
    if (source ? !setup.sourceAddress_isPresent() : !setup.destinationAddress_isPresent())
        return headerString_.c_str();
    auto& aliases = source ? setup.ref_sourceAddress() : setup.ref_destinationAddress();
    // Only the textual forms a host can show or match on; the last one listed wins.
    for (unsigned i = 0; i < aliases.size(); ++i) {
        AliasAddress& alias = aliases[i];
        if (alias.dialedDigits_isSelected())
            headerString_ = static_cast<const std::string&>(alias.ref_dialedDigits());
        else if (alias.email_ID_isSelected())
            headerString_ = static_cast<const std::string&>(alias.ref_email_ID());
    }
    return headerString_.c_str();
}

int H225TranslatorContext::setVendor(VendorIdentifier& vendor, char* value) {
    const ASN1::OctetBuffer product(value, value + std::strlen(value));
    // The version is always one zero octet, whatever the product text: the version of the
    // endpoint behind the firewall is not to be told at all.
    const ASN1::OctetBuffer version(1, '\0');
    vendor.set_productId(product);
    vendor.set_versionId(version);
    return 1;
}

int H225TranslatorContext::setHeaderStringH225(const unsigned char* pdu, unsigned int length,
                                               int /*selector: the vendor identity is the only
                                                     value that can be set*/
                                               ,
                                               char* value, unsigned char* out,
                                               unsigned int* outLength) {
    VF_LOG_NOEOL(HostContext(), logsource::kH225, 5) << "H.225\tTranslating PDU from call \n";
    q931::UserUserPayload payload;
    const int found = q931::FindUserUser(pdu, length, payload);
    if (found != 1)
        return found;
    if (out == nullptr || outLength == nullptr || value == nullptr || *outLength < payload.offset)
        return -1;

    H323_UserInformation information;
    const int decoded = ASN1::ASNDecode(pdu + payload.offset, payload.length, information);
    if (decoded < 0)
        return decoded;

    H323_UU_PDU_h323_message_body& body = information.ref_h323_uu_pdu().ref_h323_message_body();
    EndpointType* endpoint = nullptr;
    if (body.setup_isSelected()) {
        endpoint = &body.ref_setup().ref_sourceInfo();
    } else if (body.callProceeding_isSelected()) {
        endpoint = &body.ref_callProceeding().ref_destinationInfo();
    } else if (body.connect_isSelected()) {
        endpoint = &body.ref_connect().ref_destinationInfo();
    } else if (body.alerting_isSelected()) {
        endpoint = &body.ref_alerting().ref_destinationInfo();
    } else if (body.progress_isSelected()) {
        endpoint = &body.ref_progress().ref_destinationInfo();
    } else if (body.facility_isSelected()) {
        // FACILITY's destinationInfo is optional.
        Facility_UUIE& facility = body.ref_facility();
        if (facility.destinationInfo_isPresent())
            endpoint = &facility.ref_destinationInfo();
    } else {
        VF_LOG_NOEOL(HostContext(), logsource::kH225, 5)
            << "H.225\tNon H.225 Message type not parsed\n";
    }
    // An endpoint that announces no vendor identity has none to hide: the message is re-encoded
    // as it is (endpoints often leave it out, so this is ordinary traffic, not an error).
    if (endpoint != nullptr && endpoint->vendor_isPresent())
        setVendor(endpoint->ref_vendor(), value);

    unsigned int encoded = *outLength - payload.offset;
    const int result = ASN1::ASNEncode(information, out + payload.offset, &encoded);
    if (result != 1)
        return result;
    const unsigned int rest = length - payload.offset - payload.length;
    const unsigned int size = payload.offset + encoded + rest;
    if (*outLength < size || encoded + 1 > 0xFFFFu)
        return -1;
    // Everything before the user-user contents is kept, the element stays where it stood, and
    // the elements after it follow the new contents.
    std::memcpy(out, pdu, payload.offset - 3);
    out[payload.offset - 3] = static_cast<unsigned char>((encoded + 1) >> 8);
    out[payload.offset - 2] = static_cast<unsigned char>((encoded + 1) & 0xFF);
    out[payload.offset - 1] = pdu[payload.offset - 1];
    std::memcpy(out + payload.offset + encoded, pdu + payload.offset + payload.length, rest);
    *outLength = size;
    return 1;
}
