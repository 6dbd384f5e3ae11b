// Shapes of a decoded value that the PER encoder deliberately does not write back as they were
// received, so that the round-trip property (per_roundtrip.h) does not count them as faults:
//  - unknown SEQUENCE extensions: their presence bits are kept but their octets are not;
//  - an extension bit map without a set bit: written after an extension bit of 0;
//  - a negative INTEGER whose magnitude m lies in (2^(8k-1), 2^(8k)]: the length-prefixed form
//    counts the magnitude's bits without a sign bit and writes it in one octet too few.
#ifndef VOIPFILTER_FUZZ_REENCODING_SHAPES_H
#define VOIPFILTER_FUZZ_REENCODING_SHAPES_H

#include "asn1/asn1.h"

namespace fuzzshape {

class Scanner : public ASN1::ConstVisitor {
public:
    bool changesOnReencoding = false;

private:
    bool do_visit(const ASN1::AbstractData&) override { return true; }
    bool do_visit(const ASN1::INTEGER& v) override {
        const int value = v.getValue();
        if (value < 0 && ASN1::CountBits(0u - static_cast<unsigned>(value)) % 8 == 0)
            changesOnReencoding = true;
        return true;
    }
    bool do_visit(const ASN1::SEQUENCE_OF_Base& v) override {
        for (const ASN1::AbstractData* element : v)
            element->accept(*this);
        return true;
    }
    bool do_visit(const ASN1::OpenData& v) override {
        if (v.has_data())
            v.get_data().accept(*this);
        return true;
    }
    bool do_visit(const ASN1::CHOICE& v) override {
        if (v.getSelection() != nullptr)
            v.getSelection()->accept(*this);
        return true;
    }
    bool preVisitExtensionRoots(const ASN1::SEQUENCE& seq) override {
        const ASN1::SEQUENCE::BitMap& map = seq.extensionMap();
        if (map.size() > 0 && !map.any())
            changesOnReencoding = true;
        for (unsigned i = seq.getKnownExtensions(); i < map.size(); ++i)
            if (map[i])
                changesOnReencoding = true;
        return true;
    }
};

inline bool ChangesOnReencoding(const ASN1::AbstractData& value) {
    Scanner scanner;
    value.accept(scanner);
    return scanner.changesOnReencoding;
}

} // namespace fuzzshape

#endif
