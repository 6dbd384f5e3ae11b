// Value model of the ASN.1 runtime: construction, copying, comparison, the visitor walks and
// the per-kind operations. Codecs, printer and checkers live in their own files.
#include "asn1/asn1.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <typeinfo>

namespace ASN1 {

const unsigned MaximumStringSize = 16384;
const unsigned MaximumArraySize = 128;

int lexicographic_compare_bytes(const char* a, const char* aEnd, const char* b, const char* bEnd) {
    for (; a != aEnd && b != bEnd; ++a, ++b) {
        const signed char x = static_cast<signed char>(*a);
        const signed char y = static_cast<signed char>(*b);
        if (x != y)
            return x < y ? -1 : 1;
    }
    if (a != aEnd)
        return 1;
    if (b != bEnd)
        return -1;
    return 0;
}

namespace {

// The other operand of a comparison, which must be of the same kind.
template <class Kind> const Kind& sameKind(const AbstractData& other) {
    const Kind* that = dynamic_cast<const Kind*>(&other);
    ASN1_ASSERT(that != nullptr);
    return *that;
}

// this - other with 32-bit wrap-around.
int difference(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

template <class Container> int compareBytes(const Container& a, const Container& b) {
    return lexicographic_compare_bytes(a.data(), a.data() + a.size(), b.data(),
                                       b.data() + b.size());
}

// n >= lower with lower taken as unsigned, as for every size constraint.
bool sizeAtLeast(std::size_t n, int lower) {
    return n >= static_cast<unsigned>(lower);
}

} // namespace

// ------------------------------------------------------------------------------------------------
AbstractData* AbstractData::create(const void* info) {
    if (info == nullptr)
        return nullptr;
    return static_cast<const Null::InfoType*>(info)->create(info);
}

// ------------------------------------------------------------------------------------------------
const Null::InfoType Null::theInfo = {&Null::create, 5};

AbstractData* Null::create(const void* info) {
    return new Null(info);
}

AbstractData* Null::do_clone() const {
    ASN1_ASSERT(typeid(*this) == typeid(Null));
    return new Null(*this);
}

int Null::do_compare(const AbstractData& other) const {
    ASN1_ASSERT(typeid(other) == typeid(Null));
    return 0;
}

bool Null::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool Null::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

// ------------------------------------------------------------------------------------------------
const BOOLEAN::InfoType BOOLEAN::theInfo = {&BOOLEAN::create, 1};

AbstractData* BOOLEAN::create(const void* info) {
    return new BOOLEAN(info);
}

AbstractData* BOOLEAN::do_clone() const {
    ASN1_ASSERT(typeid(*this) == typeid(BOOLEAN));
    return new BOOLEAN(*this);
}

int BOOLEAN::do_compare(const AbstractData& other) const {
    return static_cast<int>(value) - static_cast<int>(sameKind<BOOLEAN>(other).value);
}

bool BOOLEAN::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool BOOLEAN::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

// ------------------------------------------------------------------------------------------------
// Bounds that cover every 32-bit value, so that a plain INTEGER is always valid.
const INTEGER::InfoType INTEGER::theInfo = {&INTEGER::create, 2, Unconstrained, INT_MIN,
                                            0x7FFFFFFFu};

AbstractData* INTEGER::create(const void* info) {
    return new INTEGER(info);
}
AbstractData* INTEGER::do_clone() const {
    return new INTEGER(*this);
}

int INTEGER::do_compare(const AbstractData& other) const {
    return difference(value, sameKind<INTEGER>(other).value);
}

bool INTEGER::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool INTEGER::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

bool INTEGER::isStrictValid() const {
    const int lower = getLowerLimit();
    const unsigned upper = getUpperLimit();
    if (lower < 0)
        return lower <= value && value <= static_cast<int>(upper);
    return lower <= value && static_cast<unsigned>(value) <= upper;
}

bool INTEGER::isValid() const {
    return isStrictValid() || getConstraintType() == ExtendableConstraint;
}

// ------------------------------------------------------------------------------------------------
AbstractData* IntegerWithNamedNumber::create(const void* info) {
    return new IntegerWithNamedNumber(info);
}

AbstractData* IntegerWithNamedNumber::do_clone() const {
    return new IntegerWithNamedNumber(*this);
}

bool IntegerWithNamedNumber::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool IntegerWithNamedNumber::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

namespace {
struct NameEntryCmp {
    bool operator()(const IntegerWithNamedNumber::NameEntry& entry, int value) const {
        return entry.value < value;
    }
};
} // namespace

bool IntegerWithNamedNumber::getName(std::string& out) const {
    const NameEntry* first = info()->nameEntries;
    const NameEntry* last = first + info()->entryCount;
    const NameEntry* found = std::lower_bound(first, last, getValue(), NameEntryCmp());
    if (found == last || found->value != getValue())
        return false;
    out = found->name;
    return true;
}

bool IntegerWithNamedNumber::setFromName(const std::string& name) {
    for (unsigned i = 0; i < info()->entryCount; ++i) {
        if (name == info()->nameEntries[i].name) {
            INTEGER::operator=(info()->nameEntries[i].value);
            return true;
        }
    }
    return false;
}

// ------------------------------------------------------------------------------------------------
ENUMERATED::ENUMERATED(const void* info) : AbstractData(info), value(0) {
    ASN1_ASSERT(getMaximum() > 0);
}

AbstractData* ENUMERATED::create(const void* info) {
    return new ENUMERATED(info);
}
AbstractData* ENUMERATED::do_clone() const {
    return new ENUMERATED(*this);
}

int ENUMERATED::do_compare(const AbstractData& other) const {
    return difference(value, sameKind<ENUMERATED>(other).value);
}

bool ENUMERATED::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool ENUMERATED::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

const char* ENUMERATED::getName() const {
    if (value < 0 || value > getMaximum())
        return nullptr;
    return info()->names[value];
}

bool ENUMERATED::setFromName(const std::string& name) {
    for (int i = 0; i <= getMaximum(); ++i) {
        if (name == info()->names[i]) {
            value = i;
            return true;
        }
    }
    return false;
}

// ------------------------------------------------------------------------------------------------
const OBJECT_IDENTIFIER::InfoType OBJECT_IDENTIFIER::theInfo = {&OBJECT_IDENTIFIER::create, 6};

AbstractData* OBJECT_IDENTIFIER::create(const void* info) {
    return new OBJECT_IDENTIFIER(info);
}
AbstractData* OBJECT_IDENTIFIER::do_clone() const {
    return new OBJECT_IDENTIFIER(*this);
}

int OBJECT_IDENTIFIER::do_compare(const AbstractData& other) const {
    const OBJECT_IDENTIFIER& that = sameKind<OBJECT_IDENTIFIER>(other);
    const std::size_t common = std::min(value.size(), that.value.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (value[i] != that.value[i])
            return static_cast<int>(value[i] - that.value[i]);
    }
    return static_cast<int>(value.size()) - static_cast<int>(that.value.size());
}

bool OBJECT_IDENTIFIER::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool OBJECT_IDENTIFIER::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

namespace {
// X.690 8.19.2: one subidentifier in base 128, most significant group first.
void appendSubidentifier(OctetBuffer& out, unsigned arc) {
    char groups[5];
    int n = 0;
    do {
        groups[n++] = static_cast<char>(arc & 0x7F);
        arc >>= 7;
    } while (arc != 0);
    while (n > 1)
        out.push_back(static_cast<char>(groups[--n] | 0x80));
    out.push_back(groups[0]);
}
} // namespace

void OBJECT_IDENTIFIER::encodeCommon(OctetBuffer& out) const {
    out.clear();
    if (value.size() < 2)
        return;
    // X.690 8.19.4: the first two arcs share one subidentifier.
    appendSubidentifier(out, value[0] * 40 + value[1]);
    for (std::size_t i = 2; i < value.size(); ++i)
        appendSubidentifier(out, value[i]);
}

bool OBJECT_IDENTIFIER::decodeCommon(const char* data, unsigned length) {
    value.clear();
    unsigned arc = 0;
    bool inArc = false;
    for (unsigned i = 0; i < length; ++i) {
        const unsigned char octet = static_cast<unsigned char>(data[i]);
        if (arc > (UINT_MAX >> 7))
            return false; // would not fit 32 bits
        arc = (arc << 7) | (octet & 0x7F);
        inArc = (octet & 0x80) != 0;
        if (inArc)
            continue;
        if (value.empty()) {
            const unsigned first = arc < 40 ? 0 : arc < 80 ? 1 : 2;
            value.push_back(first);
            value.push_back(arc - first * 40);
        } else {
            value.push_back(arc);
        }
        arc = 0;
    }
    return !inArc;
}

// ------------------------------------------------------------------------------------------------
const BIT_STRING::InfoType BIT_STRING::theInfo = {&BIT_STRING::create, 3, Unconstrained, 0,
                                                  UINT_MAX};

AbstractData* BIT_STRING::create(const void* info) {
    return new BIT_STRING(info);
}
AbstractData* BIT_STRING::do_clone() const {
    return new BIT_STRING(*this);
}

int BIT_STRING::do_compare(const AbstractData& other) const {
    return compareBytes(bitData, sameKind<BIT_STRING>(other).bitData);
}

bool BIT_STRING::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool BIT_STRING::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

void BIT_STRING::resize(unsigned bits) {
    totalBits = bits;
    bitData.resize((static_cast<std::size_t>(bits) + 7) / 8);
}

bool BIT_STRING::operator[](unsigned i) const {
    return i < totalBits && (bitData[i / 8] & (0x80 >> (i % 8))) != 0;
}

void BIT_STRING::set(unsigned i) {
    if (i < totalBits)
        bitData[i / 8] = static_cast<char>(bitData[i / 8] | (0x80 >> (i % 8)));
}

void BIT_STRING::clear(unsigned i) {
    if (i < totalBits)
        bitData[i / 8] = static_cast<char>(bitData[i / 8] & ~(0x80 >> (i % 8)));
}

bool BIT_STRING::isValid() const {
    return sizeAtLeast(totalBits, getLowerLimit()) &&
           (getConstraintType() != FixedConstraint || totalBits <= getUpperLimit());
}

bool BIT_STRING::isStrictlyValid() const {
    return sizeAtLeast(totalBits, getLowerLimit()) && totalBits <= getUpperLimit();
}

// ------------------------------------------------------------------------------------------------
const OCTET_STRING::InfoType OCTET_STRING::theInfo = {&OCTET_STRING::create, 4, Unconstrained, 0,
                                                      UINT_MAX};

AbstractData* OCTET_STRING::create(const void* info) {
    return new OCTET_STRING(info);
}
AbstractData* OCTET_STRING::do_clone() const {
    return new OCTET_STRING(*this);
}

int OCTET_STRING::do_compare(const AbstractData& other) const {
    return compareBytes(static_cast<const ContainerType&>(*this),
                        static_cast<const ContainerType&>(sameKind<OCTET_STRING>(other)));
}

bool OCTET_STRING::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool OCTET_STRING::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

bool OCTET_STRING::isValid() const {
    return sizeAtLeast(size(), getLowerLimit()) &&
           (getConstraintType() != FixedConstraint || size() <= getUpperLimit());
}

bool OCTET_STRING::isStrictlyValid() const {
    return sizeAtLeast(size(), getLowerLimit()) && size() <= getUpperLimit();
}

// ------------------------------------------------------------------------------------------------
const char IA5String::characterSet[] = {
    0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,  16,  17,  18,
    19,  20,  21,  22,  23,  24,  25,  26,  27,  28,  29,  30,  31,  32,  33,  34,  35,  36,  37,
    38,  39,  40,  41,  42,  43,  44,  45,  46,  47,  48,  49,  50,  51,  52,  53,  54,  55,  56,
    57,  58,  59,  60,  61,  62,  63,  64,  65,  66,  67,  68,  69,  70,  71,  72,  73,  74,  75,
    76,  77,  78,  79,  80,  81,  82,  83,  84,  85,  86,  87,  88,  89,  90,  91,  92,  93,  94,
    95,  96,  97,  98,  99,  100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113,
    114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 126, 127};
const char PrintableString::characterSet[] =
    " '()+,-./0123456789:=?ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
const char VisibleString::characterSet[] =
    " !\"#$%&'()*+,-./"
    "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~";
const char NumericString::characterSet[] = " 0123456789";
const char GeneralString::characterSet[] = "";

#define VOIPFILTER_ASN1_STRING_INFO(Name)                                                          \
    const AbstractString::InfoType Name::theInfo = {&Name::create,                                 \
                                                    Name::tagNumber,                               \
                                                    Unconstrained,                                 \
                                                    0,                                             \
                                                    UINT_MAX,                                      \
                                                    Name::characterSet,                            \
                                                    Name::characterSetSize,                        \
                                                    Name::canonicalSetBits,                        \
                                                    Name::unalignedBits,                           \
                                                    Name::alignedBits}
VOIPFILTER_ASN1_STRING_INFO(IA5String);
VOIPFILTER_ASN1_STRING_INFO(PrintableString);
VOIPFILTER_ASN1_STRING_INFO(VisibleString);
VOIPFILTER_ASN1_STRING_INFO(NumericString);
VOIPFILTER_ASN1_STRING_INFO(GeneralString);
#undef VOIPFILTER_ASN1_STRING_INFO

AbstractData* AbstractString::create(const void* info) {
    return new AbstractString(info);
}
AbstractData* AbstractString::do_clone() const {
    return new AbstractString(*this);
}

int AbstractString::do_compare(const AbstractData& other) const {
    return compareBytes(static_cast<const std::string&>(*this),
                        static_cast<const std::string&>(sameKind<AbstractString>(other)));
}

bool AbstractString::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool AbstractString::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

// The permitted alphabet is searched over its stated size, so that an alphabet that includes
// NUL (IA5String's) works.
bool AbstractString::charactersValid() const {
    const unsigned setSize = getCharacterSetSize();
    if (setSize == 0)
        return true;
    const char* set = getCharacterSet();
    for (char c : static_cast<const std::string&>(*this)) {
        if (std::memchr(set, c, setSize) == nullptr)
            return false;
    }
    return true;
}

bool AbstractString::isValid() const {
    return sizeAtLeast(size(), getLowerLimit()) && (size() <= getUpperLimit() || extendable()) &&
           charactersValid();
}

bool AbstractString::isStrictlyValid() const {
    return sizeAtLeast(size(), getLowerLimit()) && size() <= getUpperLimit() && charactersValid();
}

// ------------------------------------------------------------------------------------------------
const BMPString::InfoType BMPString::theInfo = {
    &BMPString::create, 30, Unconstrained, 0, UINT_MAX, 0, 0xFFFF, 16, 16};

AbstractData* BMPString::create(const void* info) {
    return new BMPString(info);
}
AbstractData* BMPString::do_clone() const {
    return new BMPString(*this);
}

int BMPString::do_compare(const AbstractData& other) const {
    const BMPString& that = sameKind<BMPString>(other);
    return lexicographic_compare_bytes(reinterpret_cast<const char*>(data()),
                                       reinterpret_cast<const char*>(data() + size()),
                                       reinterpret_cast<const char*>(that.data()),
                                       reinterpret_cast<const char*>(that.data() + that.size()));
}

bool BMPString::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool BMPString::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

BMPString::size_type BMPString::first_illegal_at() const {
    size_type i = 0;
    while (i < size() && legalCharacter((*this)[i]))
        ++i;
    return i;
}

bool BMPString::isValid() const {
    return sizeAtLeast(size(), getLowerLimit()) && (size() <= getUpperLimit() || extendable()) &&
           first_illegal_at() == size();
}

bool BMPString::isStrictlyValid() const {
    return sizeAtLeast(size(), getLowerLimit()) && size() <= getUpperLimit() &&
           first_illegal_at() == size();
}

// ------------------------------------------------------------------------------------------------
const GeneralizedTime::InfoType GeneralizedTime::theInfo = {&GeneralizedTime::create, 24};

GeneralizedTime::GeneralizedTime(const void* info)
    : AbstractData(info), year(0), month(0), day(0), hour(0), minute(0), second(0), millisec(0),
      mindiff(0), utc(false) {}

GeneralizedTime::GeneralizedTime() : GeneralizedTime(static_cast<const void*>(&theInfo)) {}

GeneralizedTime::GeneralizedTime(const char* text)
    : GeneralizedTime(static_cast<const void*>(&theInfo)) {
    set(text);
}

GeneralizedTime::GeneralizedTime(int year_, int month_, int day_, int hour_, int minute_,
                                 int second_, int millisec_, int mindiff_, bool utc_)
    : AbstractData(&theInfo), year(year_), month(month_), day(day_), hour(hour_), minute(minute_),
      second(second_), millisec(millisec_), mindiff(mindiff_), utc(utc_) {}

GeneralizedTime& GeneralizedTime::operator=(const GeneralizedTime& other) {
    year = other.year;
    month = other.month;
    day = other.day;
    hour = other.hour;
    minute = other.minute;
    second = other.second;
    millisec = other.millisec;
    mindiff = other.mindiff;
    utc = other.utc;
    return *this;
}

AbstractData* GeneralizedTime::create(const void* info) {
    return new GeneralizedTime(info);
}
AbstractData* GeneralizedTime::do_clone() const {
    return new GeneralizedTime(*this);
}

int GeneralizedTime::do_compare(const AbstractData& other) const {
    const GeneralizedTime& that = sameKind<GeneralizedTime>(other);
    const int mine[] = {year, month, day, hour, minute, second, millisec, mindiff, utc};
    const int theirs[] = {that.year,   that.month,    that.day,     that.hour, that.minute,
                          that.second, that.millisec, that.mindiff, that.utc};
    for (std::size_t i = 0; i < sizeof mine / sizeof mine[0]; ++i) {
        if (mine[i] != theirs[i])
            return mine[i] < theirs[i] ? -1 : 1;
    }
    return 0;
}

bool GeneralizedTime::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool GeneralizedTime::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

// X.680 46 text YYYYMMDDHHMMSS[.fff][Z|+hhmm]. The offset is read as its digits (+0130 gives
// 130) but written as minutes split into hours and minutes; the two forms are kept as they are.
void GeneralizedTime::set(const char* text) {
    year = month = day = hour = minute = second = 0;
    millisec = mindiff = 0;
    utc = false;
    std::sscanf(text, "%4d%2d%2d%2d%2d%2d", &year, &month, &day, &hour, &minute, &second);
    const std::size_t len = std::strlen(text);
    if (len > 14 && text[14] == '.') {
        float fraction = 0;
        std::sscanf(text + 14, "%f", &fraction);
        millisec = static_cast<int>(fraction * 1000);
    }
    if (len > 0 && text[len - 1] == 'Z')
        utc = true;
    else if (len >= 5 && (text[len - 5] == '+' || text[len - 5] == '-'))
        std::sscanf(text + len - 5, "%d", &mindiff);
}

std::string GeneralizedTime::get() const {
    char text[96];
    int n = std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02d", year, month, day, hour,
                          minute, second);
    if (millisec != 0)
        n += std::snprintf(text + n, sizeof text - n, ".%03d", millisec);
    if (utc)
        std::snprintf(text + n, sizeof text - n, "Z");
    else if (mindiff != 0)
        std::snprintf(text + n, sizeof text - n, "%+03d%02d", mindiff / 60, mindiff % 60);
    return text;
}

namespace {
// Days since 1970-01-01 of a proleptic Gregorian date (civil calendar arithmetic).
long daysFromCivil(long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long>(doe) - 719468;
}
} // namespace

// The fields taken as UTC.
long GeneralizedTime::get_time_t() const {
    return daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400L +
           hour * 3600L + minute * 60L + second;
}

void GeneralizedTime::set_time_t(long t) {
    long days = t / 86400;
    long rest = t % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    // Inverse of daysFromCivil.
    days += 719468;
    const long era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(days - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    year = static_cast<int>(static_cast<long>(yoe) + era * 400 + (month <= 2));
    hour = static_cast<int>(rest / 3600);
    minute = static_cast<int>(rest / 60 % 60);
    second = static_cast<int>(rest % 60);
    millisec = 0;
    mindiff = 0;
    utc = true;
}

void GeneralizedTime::swap(GeneralizedTime& other) {
    std::swap(year, other.year);
    std::swap(month, other.month);
    std::swap(day, other.day);
    std::swap(hour, other.hour);
    std::swap(minute, other.minute);
    std::swap(second, other.second);
    std::swap(millisec, other.millisec);
    std::swap(mindiff, other.mindiff);
    std::swap(utc, other.utc);
}

bool GeneralizedTime::isStrictlyValid() const {
    return year >= 1 && month >= 1 && month <= 12 && day >= 1 && day <= 31 && hour >= 0 &&
           hour <= 24 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59 &&
           mindiff >= -720 && mindiff <= 720;
}

// ------------------------------------------------------------------------------------------------
CHOICE::CHOICE(const void* info, int id, AbstractData* value)
    : AbstractData(info), selection(value), choiceID(id) {}

CHOICE::CHOICE(const CHOICE& other)
    : AbstractData(other), selection(other.selection ? other.selection->clone() : nullptr),
      choiceID(other.choiceID) {}

CHOICE& CHOICE::operator=(const CHOICE& other) {
    ASN1_ASSERT(info_ == other.info_);
    if (this != &other) {
        AbstractData* copy = other.selection ? other.selection->clone() : nullptr;
        delete selection;
        selection = copy;
        choiceID = other.choiceID;
    }
    return *this;
}

CHOICE::~CHOICE() {
    delete selection;
}

AbstractData* CHOICE::create(const void* info) {
    return new CHOICE(info);
}
AbstractData* CHOICE::do_clone() const {
    return new CHOICE(*this);
}

bool CHOICE::select(int id) {
    if (id == choiceID)
        return true;
    choiceID = id;
    return createSelection();
}

void CHOICE::setSelection(int id, AbstractData* value) {
    if (value != selection)
        delete selection;
    selection = value;
    choiceID = id;
}

bool CHOICE::createSelection() {
    if (choiceID >= 0 && static_cast<unsigned>(choiceID) < info()->totalChoices &&
        info()->selectionInfos[choiceID] != nullptr) {
        AbstractData* value = AbstractData::create(info()->selectionInfos[choiceID]);
        delete selection;
        selection = value;
        return true;
    }
    // An alternative this module does not know (or one it leaves out): no value.
    choiceID = unknownSelection_;
    delete selection;
    selection = nullptr;
    return false;
}

const char* CHOICE::getSelectionName() const {
    ASN1_ASSERT(choiceID >= 0);
    ASN1_ASSERT(choiceID < static_cast<int>(info()->totalChoices));
    return info()->selectionNames[choiceID];
}

void CHOICE::swap(CHOICE& other) {
    ASN1_ASSERT(info_ == other.info_);
    std::swap(selection, other.selection);
    std::swap(choiceID, other.choiceID);
}

int CHOICE::do_compare(const AbstractData& other) const {
    const CHOICE& that = sameKind<CHOICE>(other);
    if (choiceID < 0 || choiceID != that.choiceID)
        return difference(choiceID, that.choiceID);
    if (selection == nullptr || that.selection == nullptr)
        return (selection != nullptr) - (that.selection != nullptr);
    return selection->compare(*that.selection);
}

bool CHOICE::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool CHOICE::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

bool CHOICE::isValid() const {
    if (choiceID < 0 || selection == nullptr)
        return false;
    if (static_cast<unsigned>(choiceID) >= getNumChoices() && !extendable())
        return false;
    return selection->isValid();
}

bool CHOICE::isStrictlyValid() const {
    return choiceID >= 0 && static_cast<unsigned>(choiceID) < getNumChoices() &&
           selection != nullptr && selection->isStrictlyValid();
}

// ------------------------------------------------------------------------------------------------
SEQUENCE::FieldVector::FieldVector(const FieldVector& other) : FieldSlots() {
    reserve(other.size());
    for (AbstractData* field : other)
        push_back(field ? field->clone() : nullptr);
}

SEQUENCE::FieldVector::~FieldVector() {
    for (AbstractData* field : *this)
        delete field;
}

SEQUENCE::BitMap::BitMap(const BitMap& other) {
    *this = other;
}

SEQUENCE::BitMap& SEQUENCE::BitMap::operator=(const BitMap& other) {
    if (this != &other) {
        resize(other.totalBits);
        std::memcpy(bytes(), other.bytes(), (other.totalBits + 7u) / 8);
    }
    return *this;
}

SEQUENCE::BitMap::~BitMap() {
    if (capacity > kInlineBytes)
        detail::PoolRelease(heapBytes, capacity);
}

void SEQUENCE::BitMap::resize(unsigned n) {
    const unsigned oldBytes = (totalBits + 7u) / 8;
    const unsigned newBytes = static_cast<unsigned>((static_cast<std::size_t>(n) + 7) / 8);
    if (newBytes > capacity) {
        char* grown = static_cast<char*>(detail::PoolAllocate(newBytes));
        std::memcpy(grown, bytes(), oldBytes);
        if (capacity > kInlineBytes)
            detail::PoolRelease(heapBytes, capacity);
        heapBytes = grown;
        capacity = newBytes;
    }
    // Octets a map grows into start cleared, as do the bits past the new end of a kept last
    // octet, so that growing shows zeros.
    char* data = bytes();
    for (unsigned i = oldBytes; i < newBytes; ++i)
        data[i] = 0;
    totalBits = n;
    if (n % 8 != 0)
        data[n / 8] = static_cast<char>(data[n / 8] & (0xFF00 >> (n % 8)));
}

void SEQUENCE::BitMap::swap(BitMap& other) {
    std::swap(totalBits, other.totalBits);
    std::swap(capacity, other.capacity);
    char storage[kInlineBytes];
    std::memcpy(storage, inlineBytes, kInlineBytes);
    std::memcpy(inlineBytes, other.inlineBytes, kInlineBytes);
    std::memcpy(other.inlineBytes, storage, kInlineBytes);
}

bool SEQUENCE::BitMap::any() const {
    const char* data = bytes();
    for (unsigned i = 0; i < (totalBits + 7u) / 8; ++i) {
        if (data[i] != 0)
            return true;
    }
    return false;
}

SEQUENCE::SEQUENCE(const void* info)
    : AbstractData(info), fields(static_cast<const InfoType*>(info)->numFields +
                                 static_cast<const InfoType*>(info)->knownExtensions),
      optionalMap_(static_cast<const InfoType*>(info)->numOptional) {
    const InfoType* desc = this->info();
    for (unsigned i = 0; i < desc->numFields; ++i) {
        if (desc->fieldIds[i] == -1)
            fields[i] = AbstractData::create(desc->fieldInfos[i]);
    }
    if (desc->defaultExtensions != nullptr) {
        extensionMap_.resize(desc->knownExtensions);
        for (unsigned k = 0; k < desc->knownExtensions; ++k) {
            if (desc->defaultExtensions[k] != 0) {
                extensionMap_.set(k);
                fields[desc->numFields + k] =
                    AbstractData::create(desc->fieldInfos[desc->numFields + k]);
            }
        }
    }
}

SEQUENCE::SEQUENCE(const SEQUENCE& other)
    : AbstractData(other), fields(other.fields), optionalMap_(other.optionalMap_),
      extensionMap_(other.extensionMap_) {}

SEQUENCE& SEQUENCE::operator=(const SEQUENCE& that) {
    ASN1_ASSERT(info_ == that.info_);
    if (this != &that) {
        FieldVector copy(that.fields);
        fields.swap(copy);
        optionalMap_ = that.optionalMap_;
        extensionMap_ = that.extensionMap_;
    }
    return *this;
}

AbstractData* SEQUENCE::create(const void* info) {
    return new SEQUENCE(info);
}
AbstractData* SEQUENCE::do_clone() const {
    return new SEQUENCE(*this);
}

AbstractData* SEQUENCE::getField(unsigned pos) const {
    ASN1_ASSERT(pos < fields.size());
    return fields[pos];
}

AbstractData* SEQUENCE::includeOptionalField(unsigned optionalIndex, unsigned fieldPosition) {
    if (optionalIndex < optionalMap_.size()) {
        optionalMap_.set(optionalIndex);
    } else {
        ASN1_ASSERT(extendable());
        const unsigned bit = optionalIndex - optionalMap_.size();
        if (extensionMap_.size() < bit + 1)
            extensionMap_.resize(bit + 1);
        extensionMap_.set(bit);
    }
    AbstractData*& field = fields[fieldPosition];
    if (field == nullptr)
        field = AbstractData::create(info()->fieldInfos[fieldPosition]);
    return field;
}

void SEQUENCE::removeOptionalField(unsigned optionalIndex) {
    if (optionalIndex < optionalMap_.size()) {
        optionalMap_.clear(optionalIndex);
    } else {
        ASN1_ASSERT(extendable());
        extensionMap_.clear(optionalIndex - optionalMap_.size());
    }
}

void SEQUENCE::swap(SEQUENCE& that) {
    ASN1_ASSERT(info_ == that.info_);
    fields.swap(that.fields);
    optionalMap_.swap(that.optionalMap_);
    extensionMap_.swap(that.extensionMap_);
}

// Root fields stop at the first difference. Known extensions are compared without early exit and
// the last position's result is returned, so an earlier difference can be masked by a later equal
// field; this is the comparison as it is relied upon, not an oversight to correct.
int SEQUENCE::do_compare(const AbstractData& other) const {
    const SEQUENCE& that = sameKind<SEQUENCE>(other);
    ASN1_ASSERT(info_ == that.info_);
    const InfoType* desc = info();
    auto compareField = [&](unsigned i, int optionalIndex) {
        if (optionalIndex == -1)
            return fields[i]->compare(*that.fields[i]);
        const bool here = hasOptionalField(optionalIndex);
        const bool there = that.hasOptionalField(optionalIndex);
        if (here && there)
            return fields[i]->compare(*that.fields[i]);
        return static_cast<int>(here) - static_cast<int>(there);
    };
    int lastOptional = -1;
    for (unsigned i = 0; i < desc->numFields; ++i) {
        const int opt = desc->fieldIds[i];
        if (opt != -1)
            lastOptional = opt;
        const int result = compareField(i, opt);
        if (result != 0)
            return result;
    }
    int result = 0;
    for (std::size_t i = desc->numFields; i < fields.size(); ++i)
        result = compareField(static_cast<unsigned>(i), ++lastOptional);
    return result;
}

bool SEQUENCE::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool SEQUENCE::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

// ------------------------------------------------------------------------------------------------
SEQUENCE_OF_Base::SEQUENCE_OF_Base(const SEQUENCE_OF_Base& other) : ConstrainedObject(other) {
    container.reserve(other.container.size());
    for (const AbstractData* element : other.container)
        container.push_back(element->clone());
}

SEQUENCE_OF_Base& SEQUENCE_OF_Base::operator=(const SEQUENCE_OF_Base& other) {
    if (this != &other) {
        SEQUENCE_OF_Base copy(other);
        container.swap(copy.container);
    }
    return *this;
}

SEQUENCE_OF_Base::~SEQUENCE_OF_Base() {
    clear();
}

AbstractData* SEQUENCE_OF_Base::create(const void* info) {
    return new SEQUENCE_OF_Base(info);
}
AbstractData* SEQUENCE_OF_Base::do_clone() const {
    return new SEQUENCE_OF_Base(*this);
}

void SEQUENCE_OF_Base::resize(unsigned n) {
    if (n < container.size()) {
        erase(container.begin() + n, container.end());
        return;
    }
    container.reserve(n);
    while (container.size() < n)
        container.push_back(createElement());
}

void SEQUENCE_OF_Base::clear() {
    erase(container.begin(), container.end());
}

void SEQUENCE_OF_Base::insert(iterator position, unsigned count, const AbstractData& prototype) {
    Container copies;
    copies.reserve(count);
    for (unsigned i = 0; i < count; ++i)
        copies.push_back(prototype.clone());
    container.insert(position, copies.begin(), copies.end());
}

void SEQUENCE_OF_Base::insert(iterator position, const_iterator first, const_iterator last) {
    Container copies;
    copies.reserve(static_cast<std::size_t>(last - first));
    for (; first != last; ++first)
        copies.push_back((*first)->clone());
    container.insert(position, copies.begin(), copies.end());
}

SEQUENCE_OF_Base::iterator SEQUENCE_OF_Base::erase(iterator first, iterator last) {
    for (iterator it = first; it != last; ++it)
        delete *it;
    return container.erase(first, last);
}

AbstractData* SEQUENCE_OF_Base::createElement() const {
    return AbstractData::create(info()->elementInfo);
}

void SEQUENCE_OF_Base::swap(SEQUENCE_OF_Base& that) {
    ASN1_ASSERT(info() == that.info());
    container.swap(that.container);
}

int SEQUENCE_OF_Base::do_compare(const AbstractData& other) const {
    const SEQUENCE_OF_Base& that = sameKind<SEQUENCE_OF_Base>(other);
    const std::size_t common = std::min(container.size(), that.container.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int result = container[i]->compare(*that.container[i]);
        if (result != 0)
            return result;
    }
    return static_cast<int>(container.size()) - static_cast<int>(that.container.size());
}

bool SEQUENCE_OF_Base::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool SEQUENCE_OF_Base::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

bool SEQUENCE_OF_Base::isValid() const {
    if (!sizeAtLeast(size(), getLowerLimit()) || (size() > getUpperLimit() && !extendable()))
        return false;
    for (const AbstractData* element : container) {
        if (!element->isValid())
            return false;
    }
    return true;
}

bool SEQUENCE_OF_Base::isStrictlyValid() const {
    if (!sizeAtLeast(size(), getLowerLimit()) || size() > getUpperLimit())
        return false;
    for (const AbstractData* element : container) {
        if (!element->isStrictlyValid())
            return false;
    }
    return true;
}

// ------------------------------------------------------------------------------------------------
const OpenData::InfoType OpenData::theInfo = {&OpenData::create, 0};

OpenData::OpenData(const OpenData& other)
    : AbstractData(other), data(other.data ? other.data->clone() : nullptr),
      buf(other.buf ? new std::vector<char>(*other.buf) : nullptr) {}

OpenData& OpenData::operator=(const OpenData& other) {
    if (this != &other) {
        std::unique_ptr<AbstractData> dataCopy(other.data ? other.data->clone() : nullptr);
        std::unique_ptr<std::vector<char>> bufCopy(other.buf ? new std::vector<char>(*other.buf)
                                                             : nullptr);
        data.swap(dataCopy);
        buf.swap(bufCopy);
    }
    return *this;
}

AbstractData* OpenData::create(const void* info) {
    return new OpenData(info);
}
AbstractData* OpenData::do_clone() const {
    return new OpenData(*this);
}

void OpenData::swap(OpenData& other) {
    data.swap(other.data);
    buf.swap(other.buf);
}

int OpenData::do_compare(const AbstractData& other) const {
    const OpenData& that = sameKind<OpenData>(other);
    if (has_data() && that.has_data())
        return data->compare(*that.data);
    if (has_buf() && that.has_buf())
        return compareBytes(*buf, *that.buf);
    if (isEmpty() && that.isEmpty())
        return 0;
    return has_data() ? 1 : -1;
}

bool OpenData::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool OpenData::do_accept(ConstVisitor& v) const {
    return v.visit(*this);
}

bool OpenData::isValid() const {
    return has_data() ? data->isValid() : has_buf();
}
bool OpenData::isStrictlyValid() const {
    return has_data() ? data->isStrictlyValid() : has_buf();
}

TypeConstrainedOpenData::TypeConstrainedOpenData(const void* info)
    : OpenData(AbstractData::create(static_cast<const InfoType*>(info)->containedInfo), info) {}

AbstractData* TypeConstrainedOpenData::create(const void* info) {
    return new TypeConstrainedOpenData(info);
}

AbstractData* TypeConstrainedOpenData::do_clone() const {
    return new TypeConstrainedOpenData(*this);
}

bool TypeConstrainedOpenData::do_accept(Visitor& v) {
    return v.visit(*this);
}
bool TypeConstrainedOpenData::do_accept(ConstVisitor& v) const {
    return v.visit(static_cast<const OpenData&>(*this));
}

// ------------------------------------------------------------------------------------------------
bool Visitor::do_visit(IntegerWithNamedNumber& v) {
    return do_visit(static_cast<INTEGER&>(v));
}
int Visitor::preVisitExtensionRoots(SEQUENCE&) {
    return 3;
}
int Visitor::visitExtensionRoot(SEQUENCE&, int, int) {
    return 0;
}
int Visitor::preVisitExtensions(SEQUENCE&) {
    return 3;
}
int Visitor::visitKnownExtension(SEQUENCE&, int, int) {
    return 0;
}
bool Visitor::visitUnknownExtensions(SEQUENCE&) {
    return true;
}

// Hooks answer 0 failure, 1 stop with success, 2 continue without extensions, 3 continue with
// extensions.
bool Visitor::visit(SEQUENCE& seq) {
    const int roots = preVisitExtensionRoots(seq);
    if (roots < 2)
        return roots != 0;
    const SEQUENCE::InfoType* desc = seq.info();
    int lastOptional = -1;
    for (unsigned i = 0; i < desc->numFields; ++i) {
        const int opt = desc->fieldIds[i];
        const int result = visitExtensionRoot(seq, static_cast<int>(i), opt);
        if (result < 2)
            return result != 0;
        if (opt != -1)
            lastOptional = opt;
    }
    if (roots != 3)
        return true;
    const int extensions = preVisitExtensions(seq);
    if (extensions != 3)
        return extensions != 0;
    for (std::size_t i = desc->numFields; i < seq.fields.size(); ++i) {
        const int result = visitKnownExtension(seq, static_cast<int>(i), ++lastOptional);
        if (result != 3)
            return result != 0;
    }
    return visitUnknownExtensions(seq);
}

bool ConstVisitor::do_visit(const Null& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const BOOLEAN& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const INTEGER& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const IntegerWithNamedNumber& v) {
    return do_visit(static_cast<const INTEGER&>(v));
}
bool ConstVisitor::do_visit(const ENUMERATED& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const OBJECT_IDENTIFIER& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const BIT_STRING& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const OCTET_STRING& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const AbstractString& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const BMPString& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const CHOICE& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const OpenData& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const GeneralizedTime& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::do_visit(const SEQUENCE_OF_Base& v) {
    return do_visit(static_cast<const AbstractData&>(v));
}
bool ConstVisitor::preVisitExtensionRoots(const SEQUENCE&) {
    return true;
}
bool ConstVisitor::visitExtensionRoot(const SEQUENCE& seq, int position) {
    return seq.fields[position]->accept(*this);
}
bool ConstVisitor::preVisitExtensions(const SEQUENCE&) {
    return true;
}
bool ConstVisitor::visitKnownExtension(const SEQUENCE& seq, int position) {
    return seq.fields[position]->accept(*this);
}
bool ConstVisitor::afterVisitSequence(const SEQUENCE&) {
    return true;
}

bool ConstVisitor::visit(const SEQUENCE& value) {
    if (!preVisitExtensionRoots(value))
        return false;
    const SEQUENCE::InfoType* desc = value.info();
    int lastOptional = -1;
    for (unsigned i = 0; i < desc->numFields; ++i) {
        const int opt = desc->fieldIds[i];
        if (opt != -1)
            lastOptional = opt;
        if (opt == -1 || value.hasOptionalField(static_cast<unsigned>(opt))) {
            ASN1_ASSERT(value.fields[i]);
            if (!visitExtensionRoot(value, static_cast<int>(i)))
                return false;
        }
    }
    // The extension part is walked whenever the map has bits, set or not.
    if (value.extensionMap_.size() != 0) {
        ASN1_ASSERT(value.extendable());
        if (!preVisitExtensions(value))
            return false;
        for (std::size_t i = desc->numFields; i < value.fields.size(); ++i) {
            if (value.hasOptionalField(static_cast<unsigned>(++lastOptional))) {
                ASN1_ASSERT(value.fields[i]);
                if (!visitKnownExtension(value, static_cast<int>(i)))
                    return false;
            }
        }
    }
    return afterVisitSequence(value);
}

} // namespace ASN1
