// Inputs that reach one of the library's documented assertion aborts are skipped by the fuzz
// targets, so that a fuzzing run reports everything else. The aborts are deliberate behaviour:
//  - the PER encoder cannot write an unconstrained length of 8192 or more ("len < 0x2000"),
//    which a re-encoded string or bit string of that size needs;
//  - writing an IPv6 media address into an H.245 message stops on
//    "currentSelection() ==iPAddress::id_";
//  - a forward fast-start proposal whose multiplex parameters are not H.225.0's stops on the
//    selection check of its H2250LogicalChannelParameters.
// Two shapes that do not re-encode to what was received are flagged too, so that the round-trip
// properties do not count them as faults: unknown SEQUENCE extensions (their octets are not kept)
// and an extension bit map without a set bit (written after an extension bit of 0).
#ifndef VOIPFILTER_FUZZ_DOCUMENTED_ABORTS_H
#define VOIPFILTER_FUZZ_DOCUMENTED_ABORTS_H

#include "asn1/asn_codec.h"
#include "modules/multimedia_system_control.h"

namespace fuzzscan {

class Scanner : public ASN1::ConstVisitor {
public:
    // nested: also read every OCTET STRING as the H.245 message or OpenLogicalChannel it may
    // carry (tunnelled H.245, fast start) and scan that.
    explicit Scanner(bool nested) : nested_(nested) {}

    bool longLength = false;         // a value whose re-encoding needs a length of 8192 or more
    bool ipv6MediaAddress = false;   // an H.245 unicast address holding iP6Address
    bool fastStartMultiplex = false; // a forward proposal without H.225.0 multiplex parameters
    bool unknownExtensions = false;
    bool emptyExtensionMap = false;

    bool Found() const { return longLength || ipv6MediaAddress || fastStartMultiplex; }

private:
    static constexpr unsigned kLimit = 8192;
    bool nested_;

    bool do_visit(const ASN1::AbstractData&) override { return true; }
    bool do_visit(const ASN1::BIT_STRING& v) override { return Size(v.size()); }
    bool do_visit(const ASN1::OCTET_STRING& v) override {
        Size(unsigned(v.size()));
        if (nested_ && !v.empty()) {
            MULTIMEDIA_SYSTEM_CONTROL::MultimediaSystemControlMessage message;
            if (ASN1::ASNDecode(v, message) == 1)
                message.accept(*this);
            MULTIMEDIA_SYSTEM_CONTROL::OpenLogicalChannel olc;
            if (ASN1::ASNDecode(v, olc) == 1) {
                if (!olc.reverseLogicalChannelParameters_isPresent() &&
                    !olc.get_forwardLogicalChannelParameters()
                         .get_multiplexParameters()
                         .h2250LogicalChannelParameters_isSelected())
                    fastStartMultiplex = true;
                olc.accept(*this);
            }
        }
        return true;
    }
    bool do_visit(const ASN1::AbstractString& v) override { return Size(unsigned(v.size())); }
    bool do_visit(const ASN1::BMPString& v) override { return Size(unsigned(v.size())); }
    bool do_visit(const ASN1::SEQUENCE_OF_Base& v) override {
        for (const ASN1::AbstractData* element : v)
            element->accept(*this);
        return true;
    }
    bool do_visit(const ASN1::OpenData& v) override {
        if (v.has_buf())
            Size(unsigned(v.get_buf().size()));
        if (v.has_data())
            v.get_data().accept(*this);
        return true;
    }
    bool do_visit(const ASN1::CHOICE& v) override {
        if (dynamic_cast<const MULTIMEDIA_SYSTEM_CONTROL::UnicastAddress*>(&v) != nullptr &&
            v.currentSelection() == MULTIMEDIA_SYSTEM_CONTROL::UnicastAddress::iP6Address::id_)
            ipv6MediaAddress = true;
        if (v.getSelection() != nullptr)
            v.getSelection()->accept(*this);
        return true;
    }
    bool preVisitExtensionRoots(const ASN1::SEQUENCE& seq) override {
        const ASN1::SEQUENCE::BitMap& map = seq.extensionMap();
        if (map.size() > 0 && !map.any())
            emptyExtensionMap = true;
        for (unsigned i = seq.getKnownExtensions(); i < map.size(); ++i)
            if (map[i])
                unknownExtensions = true;
        return true;
    }

    bool Size(unsigned n) {
        if (n >= kLimit)
            longLength = true;
        return true;
    }
};

struct Findings {
    bool documentedAbort;     // re-encoding or translating the value reaches a documented abort
    bool changesOnReencoding; // unknown extensions or an empty extension map
    bool Found() const { return documentedAbort; }
};

inline Findings Scan(const ASN1::AbstractData& value, bool nested) {
    Scanner scanner(nested);
    value.accept(scanner);
    return {scanner.Found(), scanner.unknownExtensions || scanner.emptyExtensionMap};
}
} // namespace fuzzscan

#endif
