// Shapes of a decoded value that the PER encoder deliberately does not write back as they were
// received, so that the round-trip property (per_roundtrip.h) does not count them as faults:
//  - unknown SEQUENCE extensions: their presence bits are kept but their octets are not;
//  - an extension bit map without a set bit: written after an extension bit of 0;
//  - a negative INTEGER written in the length-prefixed form: without a constraint, one whose
//    magnitude m lies in (2^(8k-1), 2^(8k)] (its bits are counted without a sign bit, so it is
//    written one octet short); semi-constrained or outside an extendable root, one written in
//    fewer than four octets (read back as a raw number, without sign extension).
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
        if (value >= 0)
            return true;
        const unsigned bits = ASN1::CountBits(0u - static_cast<unsigned>(value));
        switch (v.getConstraintType()) {
        case ASN1::Unconstrained:
            changesOnReencoding |= bits % 8 == 0;
            break;
        case ASN1::FixedConstraint:
            break; // an offset within its range
        case ASN1::ExtendableConstraint:
            if (v.getLowerLimit() < 0 && value >= v.getLowerLimit() &&
                static_cast<unsigned>(value - v.getLowerLimit()) <=
                    v.getUpperLimit() - static_cast<unsigned>(v.getLowerLimit()))
                break; // within the root: an offset within its range
            changesOnReencoding |= bits <= 24;
            break;
        default:
            changesOnReencoding |= bits <= 24;
            break;
        }
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
