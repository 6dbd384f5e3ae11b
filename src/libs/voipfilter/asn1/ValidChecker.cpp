// The checkers behind AbstractData::isValid() and isStrictlyValid(): each kind answers for itself,
// and a SEQUENCE is valid when every present field is.
#include "asn1/asn1.h"

namespace ASN1 {

bool AbstractData::isValid() const {
    ValidChecker checker;
    return accept(checker);
}

bool AbstractData::isStrictlyValid() const {
    StrictlyValidChecker checker;
    return accept(checker);
}

bool ValidChecker::do_visit(const AbstractData&) {
    return false;
}
bool ValidChecker::do_visit(const Null&) {
    return true;
}
bool ValidChecker::do_visit(const BOOLEAN&) {
    return true;
}
bool ValidChecker::do_visit(const INTEGER& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const IntegerWithNamedNumber& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const ENUMERATED& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const OBJECT_IDENTIFIER& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const BIT_STRING& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const OCTET_STRING& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const AbstractString& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const BMPString& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const CHOICE& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const OpenData& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const GeneralizedTime& v) {
    return v.isValid();
}
bool ValidChecker::do_visit(const SEQUENCE_OF_Base& v) {
    return v.isValid();
}
bool ValidChecker::visitExtensionRoot(const SEQUENCE& seq, int position) {
    return seq.fields[static_cast<unsigned>(position)]->isValid();
}
bool ValidChecker::visitKnownExtension(const SEQUENCE& seq, int position) {
    return seq.fields[static_cast<unsigned>(position)]->isValid();
}

// The INTEGER, named-number INTEGER and fallback entries ask the value's tree-wide
// isStrictlyValid() again rather than INTEGER::isStrictValid(), which starts a new checker on the
// same value: the call never returns for a tree holding an INTEGER. Nothing calls the strict check
// on such a tree; the entries are kept deliberately.
bool StrictlyValidChecker::do_visit(const AbstractData& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const Null&) {
    return true;
}
bool StrictlyValidChecker::do_visit(const BOOLEAN&) {
    return true;
}
bool StrictlyValidChecker::do_visit(const INTEGER& v) {
    return v.AbstractData::isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const IntegerWithNamedNumber& v) {
    return v.AbstractData::isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const ENUMERATED& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const OBJECT_IDENTIFIER& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const BIT_STRING& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const OCTET_STRING& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const AbstractString& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const BMPString& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const CHOICE& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const OpenData& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const GeneralizedTime& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::do_visit(const SEQUENCE_OF_Base& v) {
    return v.isStrictlyValid();
}
bool StrictlyValidChecker::visitExtensionRoot(const SEQUENCE& seq, int position) {
    return seq.fields[static_cast<unsigned>(position)]->isStrictlyValid();
}
bool StrictlyValidChecker::visitKnownExtension(const SEQUENCE& seq, int position) {
    return seq.fields[static_cast<unsigned>(position)]->isStrictlyValid();
}

} // namespace ASN1
