// The edition markers of the generated modules: the descriptors of the types the translators walk
// (field and alternative counts, names, optional-field bits, pruned H.223 multiplex-table
// alternatives, the permitted alphabet of dialedDigits) rendered as text and compared with
// tests/data/modules/markers.txt; and the numbers that accessors give.
#include "golden.h"

#include "modules/h323_messages.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

namespace HM = H323_MESSAGES;
namespace MSC = MULTIMEDIA_SYSTEM_CONTROL;
namespace SEC = H235_SECURITY_MESSAGES;

void Render(std::ostream& out, const char* type, const ASN1::CHOICE::InfoType& info) {
    out << type << ": CHOICE, " << info.numChoices << " of " << info.totalChoices
        << " alternatives in the root" << (info.extendable ? ", extendable" : "")
        << (info.reserved != 0 ? ", reserved set" : "") << "\n";
    for (unsigned i = 0; i < info.totalChoices; ++i)
        out << "  " << i << " "
            << (info.selectionInfos[i] == nullptr ? "(pruned)" : info.selectionNames[i]) << "\n";
}

void Render(std::ostream& out, const char* type, const ASN1::SEQUENCE::InfoType& info) {
    out << type << ": SEQUENCE, " << info.numFields << " root fields (" << info.numOptional
        << " optional), " << info.knownExtensions << " known extensions"
        << (info.extendable ? ", extendable" : "")
        << (info.defaultExtensions != nullptr ? ", default extensions" : "") << "\n";
    for (unsigned i = 0; i < info.numFields + info.knownExtensions; ++i)
        out << "  " << i << " " << info.fieldNames[i] << " (bit " << info.fieldIds[i] << ")\n";
}

TEST(Markers, DescriptorsOfTheTypesTheTranslatorsWalk) {
    std::ostringstream out;
    Render(out, "H323-UU-PDU.h323-message-body", HM::H323_UU_PDU_h323_message_body::theInfo);
    Render(out, "H.225 TransportAddress", HM::TransportAddress::theInfo);
    Render(out, "Setup-UUIE", HM::Setup_UUIE::theInfo);
    Render(out, "H323-UU-PDU", HM::H323_UU_PDU::theInfo);
    Render(out, "EndpointType", HM::EndpointType::theInfo);
    Render(out, "VendorIdentifier", HM::VendorIdentifier::theInfo);
    Render(out, "MultimediaSystemControlMessage", MSC::MultimediaSystemControlMessage::theInfo);
    Render(out, "RequestMessage", MSC::RequestMessage::theInfo);
    Render(out, "ResponseMessage", MSC::ResponseMessage::theInfo);
    Render(out, "CommandMessage", MSC::CommandMessage::theInfo);
    Render(out, "IndicationMessage", MSC::IndicationMessage::theInfo);
    Render(out, "DataType", MSC::DataType::theInfo);
    Render(out, "AudioCapability", MSC::AudioCapability::theInfo);
    Render(out, "VideoCapability", MSC::VideoCapability::theInfo);
    Render(out, "DataApplicationCapability.application",
           MSC::DataApplicationCapability_application::theInfo);
    const ASN1::AbstractString::InfoType& digits = HM::AliasAddress_dialedDigits::theInfo;
    out << "AliasAddress.dialedDigits: tag " << digits.tag << ", constraint " << digits.type
        << ", SIZE (" << digits.lowerLimit << ".." << digits.upperLimit << "), FROM (\""
        << digits.characterSet << "\"), " << digits.characterSetSize << " characters, "
        << digits.canonicalSetBits << " canonical bits, " << digits.unalignedBits << " unaligned, "
        << digits.alignedBits << " aligned\n";
    const ASN1::ConstrainedObject::InfoType& timeStamp = SEC::TimeStamp::theInfo;
    out << "TimeStamp: constraint " << timeStamp.type << ", (" << timeStamp.lowerLimit << ".."
        << timeStamp.upperLimit << ")\n";
    ExpectGolden("modules/markers.txt", out.str());
}

// The numbers the accessors use: optional-field bits count on through the extensions.
TEST(Markers, AccessorNumbers) {
    EXPECT_EQ(HM::Setup_UUIE::e_sourceCallSignalAddress, 7);
    EXPECT_EQ(HM::Setup_UUIE::e_additionalSourceAddresses, 32);
    EXPECT_EQ(HM::TransportAddress::ip6Address::id_, 3);
    EXPECT_EQ(MSC::DataApplicationCapability_application::t38fax::id_, 12);
    // An alternative named like the static create function still gets its number.
    EXPECT_EQ(HM::Setup_UUIE_conferenceGoal::create::id_, 0);
}

} // namespace
