// Small ASN.1 types for the runtime's tests, described the way the generated modules describe
// theirs, and hex and codec helpers for the vector tables.
#ifndef VOIPFILTER_TESTS_ASN1_TEST_SUPPORT_H
#define VOIPFILTER_TESTS_ASN1_TEST_SUPPORT_H

#include "asn1/PERDecoder.h"
#include "asn1/PEREncoder.h"
#include "asn1/asn1.h"
#include "test_util.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <vector>

namespace asn1test {

using namespace ASN1;

inline OctetBuffer fromHex(const std::string& hex) {
    return FromHex<OctetBuffer>(hex);
}

// Encoding as hex; "FAIL:" and what was written when the encoder reports failure.
inline std::string encodeHex(const AbstractData& value, bool aligned = true) {
    OctetBuffer out;
    PEREncoder encoder(out, aligned);
    const bool ok = value.accept(encoder);
    encoder.finish();
    return (ok ? "" : "FAIL:") + Hex(out);
}

// Decodes from an exactly sized heap copy, so that a read past the end is seen by ASan.
// canonical, when given, says whether the decoder vouched that the input is the value's encoding.
inline bool decodeBytes(const OctetBuffer& bytes, AbstractData& value, bool aligned = true,
                        bool* canonical = nullptr) {
    std::unique_ptr<char[]> exact(new char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    PERDecoder decoder(exact.get(), exact.get() + bytes.size(), nullptr, aligned);
    const bool ok = value.accept(decoder);
    if (canonical != nullptr)
        *canonical = ok && decoder.endsCanonically();
    return ok;
}

inline bool decodeHex(const std::string& hex, AbstractData& value) {
    return decodeBytes(fromHex(hex), value);
}

// --- Constrained numbers and strings ---------------------------------------------------------
typedef Constrained_INTEGER<FixedConstraint, 0, 7u> Int0to7;
typedef Constrained_INTEGER<FixedConstraint, 0, 255u> Int0to255;
typedef Constrained_INTEGER<FixedConstraint, 1, 65535u> Int1to65535;
typedef Constrained_INTEGER<FixedConstraint, 0, 4294967295u> Int0to4G;
typedef Constrained_INTEGER<FixedConstraint, -5, 5u> IntMinus5to5;
typedef Constrained_INTEGER<FixedConstraint, 3, 3u> Int3to3;
typedef Constrained_INTEGER<ExtendableConstraint, 0, 7u> Int0to7Ext;
typedef Constrained_INTEGER<PartiallyConstrained, 10, 4294967295u> IntFrom10;

// --- ENUMERATED { red, green, blue } and { red, green, blue, ... } ----------------------------
extern const char* const colourNames[];
extern const ENUMERATED::InfoType colourInfo;
extern const ENUMERATED::InfoType colourExtInfo;

// --- CHOICE { n INTEGER (0..255), flag BOOLEAN, none NULL } ----------------------------------
extern const CHOICE::InfoType choice3Info;
// --- CHOICE { n INTEGER (0..255), none NULL, ..., flag BOOLEAN } -----------------------------
extern const CHOICE::InfoType choiceExtInfo;

// --- Empty ::= SEQUENCE {} ------------------------------------------------------------------
extern const SEQUENCE::InfoType emptySeqInfo;

// --- Rec ::= SEQUENCE { a INTEGER (0..255), b BOOLEAN OPTIONAL, ..., c IA5String, d Empty } --
extern const SEQUENCE::InfoType recInfo;
// --- Bare ::= SEQUENCE { x INTEGER (0..255), y BOOLEAN OPTIONAL } (not extendable) -----------
extern const SEQUENCE::InfoType bareInfo;
// --- Exts ::= SEQUENCE { ..., e1 INTEGER (0..255), e2 INTEGER (0..255) } ----------------------
extern const SEQUENCE::InfoType extsInfo;

// --- Tree ::= SEQUENCE OF Tree; Node ::= CHOICE { leaf NULL, inner Node } --------------------
extern const SEQUENCE_OF_Base::InfoType treeInfo;
extern const CHOICE::InfoType nodeInfo;

// --- Msg ::= SEQUENCE { rec Rec, nodes SEQUENCE OF NULL, pick CHOICE {..., ...}, oid OBJECT
//   IDENTIFIER, name BMPString, open INTEGER (0..255) in an open type, digits DialedDigits,
//   tail INTEGER (0..255) }: one of every kind, for the truncation and corruption tests
extern const SEQUENCE::InfoType msgInfo;

// --- Permitted alphabet: IA5String (SIZE (1..128)) (FROM ("0123456789#*,")) -----------------
extern const AbstractString::InfoType dialedDigitsInfo;

// The descriptor of a type of the vector table (tests/data/asn1/per.tsv) by its name there; null
// for a name it does not know.
const void* TypeNamed(const std::string& name);

} // namespace asn1test

#endif
