// ASN.1 value notation (X.680 value syntax) of a value tree, as written into the most detailed
// log lines. Layout: one field per line, indented two blanks per level, fields separated by
// commas at the line ends.
#include "asn1/asn1.h"

#include <cstdlib>
#include <ostream>
#include <sstream>

namespace ASN1 {

int AbstractData::print_on(std::ostream& os) const {
    AVNEncoder encoder(os);
    return accept(encoder) ? 0 : 4;
}

std::ostream& operator<<(std::ostream& os, const AbstractData& value) {
    if (os.good() && value.print_on(os) != 0)
        os.setstate(std::ios_base::badbit);
    return os;
}

std::string AbstractData::asValueNotation() const {
    std::ostringstream os;
    print_on(os);
    return os.str();
}

bool AVNEncoder::printNested(const AbstractData& value) {
    if (depth >= MaximumNestingDepth)
        return false;
    ++depth;
    const bool ok = value.accept(*this);
    --depth;
    return ok;
}

bool AVNEncoder::do_visit(const AbstractData&) {
    return false;
}

bool AVNEncoder::do_visit(const Null&) {
    strm << "NULL";
    return strm.good();
}

bool AVNEncoder::do_visit(const BOOLEAN& value) {
    strm << (value ? "TRUE" : "FALSE");
    return strm.good();
}

bool AVNEncoder::do_visit(const INTEGER& value) {
    if (value.constrained() && value.getLowerLimit() >= 0)
        strm << static_cast<unsigned>(value.getValue());
    else
        strm << value.getValue();
    return strm.good();
}

bool AVNEncoder::do_visit(const IntegerWithNamedNumber& value) {
    std::string name;
    if (!value.getName(name))
        return do_visit(static_cast<const INTEGER&>(value));
    strm << name;
    return strm.good();
}

bool AVNEncoder::do_visit(const ENUMERATED& value) {
    const char* name = value.getName();
    if (name != nullptr)
        strm << name;
    else
        strm << value.asInt();
    return strm.good();
}

bool AVNEncoder::do_visit(const OBJECT_IDENTIFIER& value) {
    strm << "{ ";
    for (unsigned i = 0; i < value.levels(); ++i)
        strm << value[i] << ' ';
    strm << '}';
    return strm.good();
}

bool AVNEncoder::do_visit(const BIT_STRING& value) {
    strm << '\'';
    for (unsigned i = 0; i < value.size(); ++i)
        strm << (value[i] ? '1' : '0');
    strm << "'B";
    return strm.good();
}

namespace {
template <class Bytes> void printOctets(std::ostream& strm, const Bytes& octets) {
    const std::ios_base::fmtflags flags = strm.flags();
    strm << '\'' << std::hex << std::nouppercase;
    strm.fill('0');
    for (std::size_t i = 0; i < octets.size(); ++i) {
        if (i != 0)
            strm << ' ';
        strm.width(2);
        strm << static_cast<unsigned>(static_cast<unsigned char>(octets[i]));
    }
    strm.flags(flags);
    strm.fill(' ');
    strm << "'H";
}
} // namespace

bool AVNEncoder::do_visit(const OCTET_STRING& value) {
    printOctets(strm, value);
    return strm.good();
}

bool AVNEncoder::do_visit(const AbstractString& value) {
    strm << '"' << static_cast<const std::string&>(value) << '"';
    return strm.good();
}

bool AVNEncoder::do_visit(const BMPString& value) {
    const std::size_t length = std::wcstombs(nullptr, value.c_str(), 0);
    if (length != static_cast<std::size_t>(-1)) {
        std::string text(length, '\0');
        std::wcstombs(&text[0], value.c_str(), length + 1);
        strm << '"' << text << '"';
        return strm.good();
    }
    // Not representable in the current locale: each character as its { group, plane, row, cell }.
    strm << '{';
    for (std::size_t i = 0; i < value.size(); ++i) {
        const unsigned c = static_cast<unsigned>(value[i]);
        if (i != 0)
            strm << ", ";
        strm << "{ 0, 0, " << ((c >> 8) & 0xFF) << ", " << (c & 0xFF) << '}';
    }
    strm << '}';
    return strm.good();
}

bool AVNEncoder::do_visit(const GeneralizedTime& value) {
    strm << '"' << value.get() << '"';
    return strm.good();
}

bool AVNEncoder::do_visit(const CHOICE& value) {
    const AbstractData* selection = value.getSelection();
    if (value.currentSelection() < 0 || selection == nullptr)
        return false;
    strm << value.getSelectionName() << " : ";
    return printNested(*selection) && strm.good();
}

bool AVNEncoder::do_visit(const OpenData& value) {
    if (value.has_data())
        return printNested(value.get_data());
    if (value.has_buf())
        printOctets(strm, value.get_buf());
    return strm.good();
}

bool AVNEncoder::do_visit(const SEQUENCE_OF_Base& value) {
    strm << "{\n";
    indent += 2;
    bool first = true;
    for (const AbstractData* element : value) {
        if (!first)
            strm << ",\n";
        first = false;
        strm << std::string(indent, ' ');
        if (!printNested(*element))
            return false;
    }
    indent -= 2;
    if (!value.empty())
        strm << '\n';
    strm << std::string(indent, ' ') << '}';
    return strm.good();
}

bool AVNEncoder::preVisitExtensionRoots(const SEQUENCE&) {
    fieldWritten.push_back(false);
    strm << "{\n";
    return strm.good();
}

bool AVNEncoder::printField(const SEQUENCE& seq, int position) {
    if (fieldWritten.back())
        strm << ",\n";
    strm << std::string(indent + 2, ' ') << seq.getFieldName(static_cast<unsigned>(position))
         << ' ';
    indent += 2;
    const bool ok = printNested(*seq.fields[static_cast<unsigned>(position)]);
    indent -= 2;
    fieldWritten.back() = true;
    return ok && strm.good();
}

bool AVNEncoder::visitExtensionRoot(const SEQUENCE& seq, int position) {
    return printField(seq, position);
}

bool AVNEncoder::visitKnownExtension(const SEQUENCE& seq, int position) {
    return printField(seq, position);
}

bool AVNEncoder::afterVisitSequence(const SEQUENCE&) {
    if (fieldWritten.back())
        strm << '\n';
    fieldWritten.pop_back();
    strm << std::string(indent, ' ') << '}';
    return strm.good();
}

} // namespace ASN1
