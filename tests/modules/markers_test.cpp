// The edition markers of the generated modules: field and alternative counts, optional-field
// indices, alternative numbers, the pruned H.223 multiplex-table alternatives, and the C++ types
// that constrained fields take.
#include "modules/h323_messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

namespace HM = H323_MESSAGES;
namespace MSC = MULTIMEDIA_SYSTEM_CONTROL;
namespace SEC = H235_SECURITY_MESSAGES;
using ASN1::ConstraintType;

struct ChoiceShape {
    const char* type;
    const ASN1::CHOICE::InfoType& info;
    unsigned root, total;
    const char* last;
};

TEST(Markers, ChoiceCountsAndLastAlternatives) {
    const ChoiceShape shapes[] = {
        {"h323-message-body", HM::H323_UU_PDU_h323_message_body::theInfo, 7, 13, "notify"},
        {"H.225 TransportAddress", HM::TransportAddress::theInfo, 7, 7, "nonStandardAddress"},
        {"MultimediaSystemControlMessage", MSC::MultimediaSystemControlMessage::theInfo, 4, 4,
         "indication"},
        {"RequestMessage", MSC::RequestMessage::theInfo, 11, 15, "logicalChannelRateRequest"},
        {"ResponseMessage", MSC::ResponseMessage::theInfo, 19, 24, "logicalChannelRateReject"},
        {"CommandMessage", MSC::CommandMessage::theInfo, 7, 12,
         "mobileMultilinkReconfigurationCommand"},
        {"IndicationMessage", MSC::IndicationMessage::theInfo, 14, 23,
         "mobileMultilinkReconfigurationIndication"},
        {"AudioCapability", MSC::AudioCapability::theInfo, 14, 22, "g729Extensions"},
        {"VideoCapability", MSC::VideoCapability::theInfo, 5, 6, "genericVideoCapability"},
        {"DataApplicationCapability.application",
         MSC::DataApplicationCapability_application::theInfo, 10, 14, "genericDataCapability"},
    };
    for (const ChoiceShape& s : shapes) {
        SCOPED_TRACE(s.type);
        EXPECT_TRUE(s.info.extendable);
        EXPECT_EQ(s.info.numChoices, s.root);
        EXPECT_EQ(s.info.totalChoices, s.total);
        EXPECT_STREQ(s.info.selectionNames[s.total - 1], s.last);
        EXPECT_EQ(s.info.reserved, 0u);
    }
}

TEST(Markers, SequenceCountsAndLastFields) {
    const ASN1::SEQUENCE::InfoType& setup = HM::Setup_UUIE::theInfo;
    EXPECT_EQ(setup.numFields, 13u);
    EXPECT_EQ(setup.knownExtensions, 26u);
    EXPECT_EQ(setup.numOptional, 7u);
    EXPECT_STREQ(setup.fieldNames[38], "additionalSourceAddresses");
    EXPECT_EQ(setup.defaultExtensions, nullptr);

    const ASN1::SEQUENCE::InfoType& uu = HM::H323_UU_PDU::theInfo;
    EXPECT_EQ(uu.numFields + uu.knownExtensions, 11u);
    EXPECT_STREQ(uu.fieldNames[10], "genericData");
    EXPECT_STREQ(uu.fieldNames[0], "h323-message-body"); // names keep their hyphens

    EXPECT_EQ(HM::EndpointType::theInfo.numFields, 8u);
    EXPECT_EQ(HM::EndpointType::theInfo.knownExtensions, 2u);
    EXPECT_EQ(HM::VendorIdentifier::theInfo.knownExtensions, 0u); // no enterpriseNumber in v4
    EXPECT_TRUE(HM::VendorIdentifier::theInfo.extendable);

    // Extension fields carry 0 in fieldIds; root fields their bit or -1.
    EXPECT_EQ(setup.fieldIds[0], -1); // protocolIdentifier
    EXPECT_EQ(setup.fieldIds[1], 0);  // h245Address
    EXPECT_EQ(setup.fieldIds[13], 0); // sourceCallSignalAddress, the first extension
    EXPECT_EQ(setup.fieldInfos[13], &HM::TransportAddress::theInfo);
}

TEST(Markers, OptionalFieldIndicesAndAlternativeNumbers) {
    EXPECT_EQ(HM::Setup_UUIE::e_h245Address, 0);
    EXPECT_EQ(HM::Setup_UUIE::e_sourceCallSignalAddress, 7);
    EXPECT_EQ(HM::Setup_UUIE::e_additionalSourceAddresses, 32);
    EXPECT_EQ(HM::EndpointType::e_vendor, 1);
    EXPECT_EQ(HM::VendorIdentifier::e_productId, 0);
    EXPECT_EQ(HM::VendorIdentifier::e_versionId, 1);
    EXPECT_EQ(HM::H323_UU_PDU::e_h245Control, 3);

    EXPECT_EQ(HM::TransportAddress::ipAddress::id_, 0);
    EXPECT_EQ(HM::TransportAddress::ip6Address::id_, 3);
    EXPECT_EQ(HM::TransportAddress::nonStandardAddress::id_, 6);
    EXPECT_EQ(MSC::DataType::data::id_, 4);
    EXPECT_EQ(MSC::AudioCapability::g729Extensions::id_, 21);
    EXPECT_EQ(MSC::VideoCapability::genericVideoCapability::id_, 5);
    EXPECT_EQ(MSC::DataApplicationCapability_application::t120::id_, 1);
    EXPECT_EQ(MSC::DataApplicationCapability_application::h224::id_, 6);
    EXPECT_EQ(MSC::DataApplicationCapability_application::t38fax::id_, 12);
    EXPECT_EQ(MSC::DataApplicationCapability_application::genericDataCapability::id_, 13);
    EXPECT_EQ(MSC::RequestMessage::openLogicalChannel::id_, 3);
    EXPECT_EQ(HM::H323_UU_PDU_h323_message_body::notify::id_, 12);
    // An alternative named like the static create function still gets its number.
    EXPECT_EQ(HM::Setup_UUIE_conferenceGoal::create::id_, 0);
}

struct Pruned {
    const ASN1::CHOICE::InfoType& info;
    std::vector<unsigned> positions;
};

TEST(Markers, MultiplexTableAlternativesArePruned) {
    const Pruned pruned[] = {{MSC::RequestMessage::theInfo, {6, 7}},
                             {MSC::ResponseMessage::theInfo, {10, 11, 12, 13}},
                             {MSC::IndicationMessage::theInfo, {6, 7, 11, 12}},
                             {MSC::CommandMessage::theInfo, {}}};
    for (const Pruned& p : pruned) {
        for (unsigned i = 0; i < p.info.totalChoices; ++i) {
            bool cut = std::find(p.positions.begin(), p.positions.end(), i) != p.positions.end();
            SCOPED_TRACE(std::to_string(i) + " " + p.info.selectionNames[i]);
            EXPECT_EQ(p.info.selectionInfos[i] == nullptr, cut);
            EXPECT_EQ(std::strlen(p.info.selectionNames[i]) == 0, cut);
        }
    }
    // Their neighbours are untouched.
    EXPECT_STREQ(MSC::RequestMessage::theInfo.selectionNames[5], "requestChannelClose");
    EXPECT_STREQ(MSC::RequestMessage::theInfo.selectionNames[8], "requestMode");
}

TEST(Markers, PrunedAlternativeIsRefused) {
    MSC::RequestMessage request;
    EXPECT_FALSE(request.select(6));
    EXPECT_TRUE(request.isUnknownSelection());
    EXPECT_EQ(request.getSelection(), nullptr);
    EXPECT_TRUE(request.select(MSC::RequestMessage::terminalCapabilitySet::id_));
    EXPECT_TRUE(request.terminalCapabilitySet_isSelected());

    // Extension bit 0, request (2 bits 00), extension bit 0, multiplexEntrySend (index 6 of 11 in
    // 4 bits: 0110): the first octet is 0x06. The decode must fail at the alternative.
    const unsigned char multiplexEntrySend[] = {0x06, 0x00, 0x00, 0x00};
    MSC::MultimediaSystemControlMessage message;
    EXPECT_EQ(ASN1::ASNDecode(multiplexEntrySend, sizeof multiplexEntrySend, message), -2);
    ASSERT_TRUE(message.request_isSelected());
    EXPECT_TRUE(message.ref_request().isUnknownSelection());
}

template <class A, class B> constexpr bool Same() {
    return std::is_same<A, B>::value;
}

TEST(Markers, ConstrainedFieldTypes) {
    typedef ASN1::Constrained_INTEGER<(ConstraintType)2, 0, 65535u> Port;
    static_assert(
        Same<decltype(std::declval<HM::TransportAddress_ipAddress&>().ref_port()), Port&>(),
        "port number");
    static_assert(Same<decltype(std::declval<HM::TransportAddress_ipAddress&>().ref_ip()),
                       ASN1::Constrained_OCTET_STRING<ASN1::SizeConstraint<2u, 4, 4u>>&>(),
                  "IPv4 address");
    static_assert(Same<decltype(std::declval<HM::VendorIdentifier&>().ref_productId()),
                       ASN1::Constrained_OCTET_STRING<ASN1::SizeConstraint<2u, 1, 256u>>&>(),
                  "productId");
    static_assert(Same<decltype(std::declval<HM::H323_UU_PDU&>().ref_h245Control()),
                       ASN1::SEQUENCE_OF<ASN1::OCTET_STRING, ASN1::EmptyConstraint>&>(),
                  "tunnelled H.245");
    static_assert(
        Same<decltype(std::declval<MSC::TerminalCapabilitySet&>().ref_capabilityTable()),
             ASN1::SET_OF<MSC::CapabilityTableEntry, ASN1::SizeConstraint<2u, 1, 256u>>&>(),
        "capability table");
    static_assert(Same<HM::EncodedFastStartToken, ASN1::Constrained_OpenData<HM::FastStartToken>>(),
                  "open type");
    static_assert(Same<decltype(std::declval<HM::CryptoH323Token&>().ref_cryptoFastStart()),
                       SEC::SIGNED<ASN1::Constrained_OpenData<HM::FastStartToken>>&>(),
                  "parameterized type");
    // The extensible INTEGER (0..16383, ...) of GenericIdentifier.standard.
    typedef ASN1::Constrained_INTEGER<ASN1::ExtendableConstraint, 0, 16383u> Standard;
    static_assert(
        Same<decltype(std::declval<HM::GenericIdentifier&>().ref_standard()), Standard&>(),
        "extensible range");

    // A permitted alphabet gets a descriptor of its own: dialedDigits is IA5String
    // (SIZE (1..128)) (FROM ("0123456789#*,")), 13 characters of 4 bits in both variants.
    const ASN1::AbstractString::InfoType& digits = HM::AliasAddress_dialedDigits::theInfo;
    EXPECT_EQ(digits.tag, 22u);
    EXPECT_EQ(digits.type, ASN1::FixedConstraint);
    EXPECT_EQ(digits.lowerLimit, 1);
    EXPECT_EQ(digits.upperLimit, 128u);
    EXPECT_STREQ(digits.characterSet, "#*,0123456789");
    EXPECT_EQ(digits.characterSetSize, 13u);
    EXPECT_EQ(digits.canonicalSetBits, 7u);
    EXPECT_EQ(digits.unalignedBits, 4u);
    EXPECT_EQ(digits.alignedBits, 4u);

    const ASN1::ConstrainedObject::InfoType& timeStamp = SEC::TimeStamp::theInfo;
    EXPECT_EQ(timeStamp.type, ASN1::FixedConstraint);
    EXPECT_EQ(timeStamp.lowerLimit, 1);
    EXPECT_EQ(timeStamp.upperLimit, 4294967295u);
}

TEST(Markers, ClassesCreateAndCloneTheirOwnType) {
    // What a descriptor creates is an object of the generated class, so the accessors' downcasts
    // are sound (UBSan checks them in the sanitizer build).
    std::unique_ptr<ASN1::AbstractData> created(
        ASN1::AbstractData::create(&HM::Setup_UUIE::theInfo));
    ASSERT_NE(dynamic_cast<HM::Setup_UUIE*>(created.get()), nullptr);
    HM::Setup_UUIE setup;
    EXPECT_NE(dynamic_cast<HM::ProtocolIdentifier*>(&setup.ref_protocolIdentifier()), nullptr);
    setup.set_sourceCallSignalAddress(HM::TransportAddress())
        .select(HM::TransportAddress::ip6Address::id_);
    setup.ref_sourceCallSignalAddress().ref_ip6Address().ref_port() = 1720;
    std::unique_ptr<HM::Setup_UUIE> copy(setup.clone());
    ASSERT_TRUE(copy->sourceCallSignalAddress_isPresent());
    EXPECT_EQ(copy->get_sourceCallSignalAddress().get_ip6Address().get_port(), 1720);
    EXPECT_EQ(copy->compare(setup), 0);
}

} // namespace
