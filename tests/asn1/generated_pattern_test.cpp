// The shape in which generated module classes sit on the runtime: a class per type deriving from
// its kind, its own descriptor and create, typed accessors asserting presence and selection. This
// pins what the runtime must offer them (protected fields and selection, typed templates, the
// assertion macro) and the exact accessor assertion texts.
#include "asn1_test_support.h"

#include "asn1/asn_codec.h"

#include <gtest/gtest.h>

using namespace asn1test;

namespace {

// TransportAddress ::= CHOICE { ipAddress SEQUENCE { ip OCTET STRING (SIZE (4)),
//   port INTEGER (0..65535) }, ip6Address ..., ... } (cut down to two alternatives)
class TransportAddress_ipAddress : public SEQUENCE {
public:
    static const InfoType theInfo;
    static const void* const fieldInfos[];
    static const int fieldIds[];
    static const char* const fieldNames[];
    typedef Constrained_OCTET_STRING<SizeConstraint<2u, 4, 4u>> ip_type;
    typedef Constrained_INTEGER<(ConstraintType)2, 0, 65535u> port_type;

    explicit TransportAddress_ipAddress(const void* info = &theInfo) : SEQUENCE(info) {}
    static AbstractData* create(const void* info) { return new TransportAddress_ipAddress(info); }
    ip_type& ref_ip() { return static_cast<ip_type&>(*fields[0]); }
    const port_type& get_port() const { return static_cast<const port_type&>(*fields[1]); }
    port_type& ref_port() { return static_cast<port_type&>(*fields[1]); }

protected:
    AbstractData* do_clone() const override { return new TransportAddress_ipAddress(*this); }
};

const void* const TransportAddress_ipAddress::fieldInfos[] = {&ip_type::theInfo,
                                                              &port_type::theInfo};
const int TransportAddress_ipAddress::fieldIds[] = {-1, -1};
const char* const TransportAddress_ipAddress::fieldNames[] = {"ip", "port"};
const SEQUENCE::InfoType TransportAddress_ipAddress::theInfo = {&TransportAddress_ipAddress::create,
                                                                16,
                                                                false,
                                                                fieldInfos,
                                                                fieldIds,
                                                                2,
                                                                0,
                                                                0,
                                                                nullptr,
                                                                0,
                                                                fieldNames};

class TransportAddress : public CHOICE {
public:
    static const InfoType theInfo;
    static const void* const selectionInfos[];
    static const char* const selectionNames[];
    struct ipAddress {
        enum { id_ = 0 };
    };
    struct netBios {
        enum { id_ = 1 };
    };

    explicit TransportAddress(const void* info = &theInfo) : CHOICE(info) {}
    static AbstractData* create(const void* info) { return new TransportAddress(info); }
    // The assertion text is the expression as written, so the formatter must keep off it.
    // clang-format off
    TransportAddress_ipAddress& ref_ipAddress() {
        ASN1_ASSERT(currentSelection() ==ipAddress::id_);
        return static_cast<TransportAddress_ipAddress&>(*selection);
    }
    // clang-format on
    bool ipAddress_isSelected() const { return currentSelection() == ipAddress::id_; }

protected:
    AbstractData* do_clone() const override { return new TransportAddress(*this); }
};

const void* const TransportAddress::selectionInfos[] = {&TransportAddress_ipAddress::theInfo,
                                                        &OCTET_STRING::theInfo};
const char* const TransportAddress::selectionNames[] = {"ipAddress", "netBios"};
const CHOICE::InfoType TransportAddress::theInfo = {
    &TransportAddress::create, 0, true, selectionInfos, 2, 2, 0, selectionNames};

// Setup-UUIE ::= SEQUENCE { ..., sourceCallSignalAddress TransportAddress OPTIONAL (an extension) }
class Setup_UUIE : public SEQUENCE {
public:
    static const InfoType theInfo;
    static const void* const fieldInfos[];
    static const int fieldIds[];
    static const char* const fieldNames[];
    enum { e_sourceCallSignalAddress = 0 };

    explicit Setup_UUIE(const void* info = &theInfo) : SEQUENCE(info) {}
    static AbstractData* create(const void* info) { return new Setup_UUIE(info); }
    bool sourceCallSignalAddress_isPresent() const {
        return hasOptionalField(e_sourceCallSignalAddress);
    }
    const TransportAddress& get_sourceCallSignalAddress() const {
        ASN1_ASSERT(hasOptionalField(e_sourceCallSignalAddress));
        return static_cast<const TransportAddress&>(*fields[0]);
    }
    TransportAddress& set_sourceCallSignalAddress(const TransportAddress& value) {
        TransportAddress& field =
            static_cast<TransportAddress&>(*includeOptionalField(e_sourceCallSignalAddress, 0));
        field = value;
        return field;
    }

protected:
    AbstractData* do_clone() const override { return new Setup_UUIE(*this); }
};

const void* const Setup_UUIE::fieldInfos[] = {&TransportAddress::theInfo};
const int Setup_UUIE::fieldIds[] = {0};
const char* const Setup_UUIE::fieldNames[] = {"sourceCallSignalAddress"};
const SEQUENCE::InfoType Setup_UUIE::theInfo = {
    &Setup_UUIE::create, 16, true, fieldInfos, fieldIds, 0, 1, 0, nullptr, 0, fieldNames};

TEST(GeneratedPattern, TypedAccessorsOverADecodedTree) {
    TransportAddress address;
    ASSERT_TRUE(address.select(TransportAddress::ipAddress::id_));
    address.ref_ipAddress().ref_ip() = fromHex("c0a80001");
    address.ref_ipAddress().ref_port() = 1720;
    Setup_UUIE setup;
    EXPECT_FALSE(setup.sourceCallSignalAddress_isPresent());
    setup.set_sourceCallSignalAddress(address);

    OCTET_STRING octets;
    ASSERT_EQ(1, ASNEncode(setup, octets));
    // Extension bit, one-bit extension map, then the open type: CHOICE index, ip and port.
    EXPECT_EQ(stripBlanks("80 80 07 00 c0a80001 06b8"), Hex(octets));
    Setup_UUIE back;
    ASSERT_EQ(1, ASNDecode(octets, back));
    ASSERT_TRUE(back.sourceCallSignalAddress_isPresent());
    // The decoder created the generated classes themselves, so the typed downcasts are sound.
    const TransportAddress& decoded = back.get_sourceCallSignalAddress();
    EXPECT_EQ(typeid(TransportAddress), typeid(decoded));
    EXPECT_EQ(1720, decoded.getSelection()
                        ? static_cast<const TransportAddress_ipAddress&>(*decoded.getSelection())
                              .get_port()
                              .getValue()
                        : -1);
    std::unique_ptr<AbstractData> copy(back.clone());
    const AbstractData& copied = *copy;
    EXPECT_EQ(typeid(Setup_UUIE), typeid(copied));
    EXPECT_EQ(0, copy->compare(setup));
}

TEST(GeneratedPatternDeathTest, AccessorAssertionTexts) {
    TransportAddress address;
    address.select(TransportAddress::netBios::id_);
    EXPECT_DEATH(address.ref_ipAddress(),
                 "Assertion `currentSelection\\(\\) ==ipAddress::id_' failed");
    Setup_UUIE setup;
    EXPECT_DEATH(setup.get_sourceCallSignalAddress(),
                 "Assertion `hasOptionalField\\(e_sourceCallSignalAddress\\)' failed");
}

} // namespace
