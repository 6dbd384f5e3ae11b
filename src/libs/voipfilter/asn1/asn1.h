// ASN.1 value model: every value kind of the H.225.0, H.245 and H.235 modules as a polymorphic
// object bound to a constant descriptor record, the visitors that codecs derive from, the typed
// templates the generated modules are built from, and the always-on assertion macro.
#ifndef VOIPFILTER_ASN1_ASN1_H
#define VOIPFILTER_ASN1_ASN1_H

#include "asn1/pool.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace ASN1 {

// Misuse of the value model stops the work at hand, in Release builds too. The library comes in
// two flavours that differ only in what that means (asn1/assertion.cpp is built once for each):
//  - default: the process aborts with the C library's assertion message (the texts are relied on
//    by death tests and by whoever reads a crash log);
//  - hardened: the failure is thrown as a Refusal whose text is the assertion's, and the exported
//    entry point that was running refuses the message instead, so that no peer's datagram can
//    end the host process.
[[noreturn]] void assertionFailed(const char* expr, const char* file, unsigned line,
                                  const char* function);

// Called when the PER encoder gave up half-way through a value. Default flavour: returns, and the
// octets written so far stand as the encoding. Hardened flavour: throws a Refusal, so that no
// rewritten message goes out that its own decoder could not read.
void encodingIncomplete();

// True in the hardened flavour.
bool hardenedBuild() noexcept;

// What the hardened flavour throws; never thrown in the default flavour. The text is static.
class Refusal {
public:
    explicit Refusal(const char* reason) noexcept : reason_(reason) {}
    const char* reason() const noexcept { return reason_; }

private:
    const char* reason_;
};

#define ASN1_ASSERT(expr)                                                                          \
    ((expr) ? static_cast<void>(0)                                                                 \
            : ::ASN1::assertionFailed(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))

// Largest length accepted for OCTET STRING, BIT STRING (in bits) and the character strings.
extern const unsigned MaximumStringSize; // 16384
// Largest element count of a SEQUENCE OF and largest number of SEQUENCE extension bits.
extern const unsigned MaximumArraySize; // 128
// Deepest nesting of values that the codecs and the printer walk; deeper trees are refused
// (H.245 has recursive types, and a hostile peer must not exhaust the stack).
constexpr unsigned MaximumNestingDepth = 64;

// Least b (0..32) with 2^b >= n; 32 for n = 0 (a range that wrapped around).
inline unsigned CountBits(unsigned n) {
    if (n <= 1)
        return n == 0 ? 32 : 0;
    // 2^b >= n exactly when 2^b > n - 1: the bit length of n - 1.
    return 32u - static_cast<unsigned>(__builtin_clz(n - 1));
}

class AbstractData;
class Null;
class BOOLEAN;
class INTEGER;
class IntegerWithNamedNumber;
class ENUMERATED;
class OBJECT_IDENTIFIER;
class BIT_STRING;
class OCTET_STRING;
class AbstractString;
class BMPString;
class GeneralizedTime;
class CHOICE;
class SEQUENCE;
class SEQUENCE_OF_Base;
class OpenData;
class TypeConstrainedOpenData;
class Visitor;
class ConstVisitor;

// Opaque environment handed from an outer decoder to the decoders it starts for open types.
class CoderEnv;

typedef AbstractData* (*CreateFun)(const void* info);

enum ConstraintType : unsigned {
    Unconstrained = 0,
    PartiallyConstrained = 1, // lower bound only
    FixedConstraint = 2,
    ExtendableConstraint = 3 // bounds with an extension marker
};

namespace detail {
// Per-kind allocation marker. Every kind shares the one small-block pool, which AbstractData's
// own operator new and delete draw on; the marker itself adds nothing.
template <class Kind> class Allocator {};
} // namespace detail

// -1 or 1 at the first differing byte (compared as signed chars), else -1 when the first range is
// shorter, 1 when it is longer, 0 when equal.
int lexicographic_compare_bytes(const char* a, const char* aEnd, const char* b, const char* bEnd);

// Octets of a value and of an encoding, drawn from the small-block pool: the octets of an
// OCTET STRING live as long as its node, and an encoder's output as long as one encode.
typedef std::vector<char, detail::PoolAllocator<char>> OctetBuffer;

// ------------------------------------------------------------------------------------------------
class AbstractData {
public:
    virtual ~AbstractData() = default;

    // Values are recycled through the small-block pool. The sized delete receives the size of
    // the dynamic type (the destructor is virtual), which selects the block's size class.
    static void* operator new(std::size_t size) { return detail::PoolAllocate(size); }
    static void operator delete(void* block, std::size_t size) noexcept {
        detail::PoolRelease(block, size);
    }

    int compare(const AbstractData& other) const { return do_compare(other); }
    AbstractData* clone() const { return do_clone(); }
    bool accept(Visitor& v) { return do_accept(v); }
    bool accept(ConstVisitor& v) const { return do_accept(v); }

    bool isValid() const;
    bool isStrictlyValid() const;

    // Value notation: 0 when every visit succeeded, else 4 (std::ios_base::badbit).
    int print_on(std::ostream& os) const;
    std::string asValueNotation() const;

    const void* getInfo() const { return info_; }

    // Null for a null info; otherwise the create function stored first in the descriptor.
    static AbstractData* create(const void* info);

protected:
    explicit AbstractData(const void* info) : info_(info) {}
    AbstractData(const AbstractData&) = default;
    // The descriptor is fixed at construction; assignment copies contents only.
    AbstractData& operator=(const AbstractData&) { return *this; }

    const void* info_;

    // Virtual slots in this order: destructor, do_compare, do_clone, do_accept (Visitor),
    // do_accept (ConstVisitor).
private:
    virtual int do_compare(const AbstractData& other) const = 0;

protected:
    // Copy into a new object of the same class. Every derived class that a descriptor can create
    // overrides it (`return new Foo(*this);`) so that clones keep their dynamic type.
    virtual AbstractData* do_clone() const = 0;

private:
    virtual bool do_accept(Visitor& v) = 0;
    virtual bool do_accept(ConstVisitor& v) const = 0;
};

std::ostream& operator<<(std::ostream& os, const AbstractData& value);

// ------------------------------------------------------------------------------------------------
class Null : public AbstractData, public detail::Allocator<Null> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
    };
    static const InfoType theInfo;

    explicit Null(const void* info = &theInfo) : AbstractData(info) {}
    static AbstractData* create(const void* info);
    Null* clone() const { return static_cast<Null*>(do_clone()); }

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
};

// ------------------------------------------------------------------------------------------------
class BOOLEAN : public AbstractData, public detail::Allocator<BOOLEAN> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
    };
    static const InfoType theInfo;

    explicit BOOLEAN(const void* info = &theInfo) : AbstractData(info), value(false) {}
    BOOLEAN(bool b, const void* info = &theInfo) : AbstractData(info), value(b) {}
    BOOLEAN(const BOOLEAN& other) = default;
    BOOLEAN& operator=(const BOOLEAN& other) {
        value = other.value;
        return *this;
    }
    BOOLEAN& operator=(bool b) {
        value = b;
        return *this;
    }
    operator bool() const { return value; }
    static AbstractData* create(const void* info);
    BOOLEAN* clone() const { return static_cast<BOOLEAN*>(do_clone()); }

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

    bool value;
};

// ------------------------------------------------------------------------------------------------
// A kind whose descriptor carries a constraint: bounds of the value (INTEGER) or of the size
// (strings, SEQUENCE OF).
class ConstrainedObject : public AbstractData {
public:
    // The prefix shared by the descriptors of all constrained kinds.
    struct InfoType {
        CreateFun create;
        unsigned tag;
        ConstraintType type;
        int lowerLimit;
        unsigned upperLimit;
    };

    ConstraintType getConstraintType() const { return constraintInfo()->type; }
    int getLowerLimit() const { return constraintInfo()->lowerLimit; }
    unsigned getUpperLimit() const { return constraintInfo()->upperLimit; }
    bool constrained() const { return getConstraintType() != Unconstrained; }
    bool extendable() const { return getConstraintType() == ExtendableConstraint; }
    // Whether an extendable constraint's extension bit is set for value (a number, or a size).
    // The comparison with the upper bound is unsigned, so a negative number counts as outside.
    bool outsideRoot(unsigned value) const {
        const int lower = getLowerLimit();
        return value > getUpperLimit() ||
               (lower < 0 ? static_cast<int>(value) < lower : value < static_cast<unsigned>(lower));
    }

protected:
    explicit ConstrainedObject(const void* info) : AbstractData(info) {}
    ConstrainedObject(const ConstrainedObject&) = default;
    ConstrainedObject& operator=(const ConstrainedObject&) = default;

private:
    const InfoType* constraintInfo() const { return static_cast<const InfoType*>(info_); }
};

// ------------------------------------------------------------------------------------------------
class INTEGER : public ConstrainedObject, public detail::Allocator<INTEGER> {
public:
    typedef ConstrainedObject::InfoType InfoType;
    static const InfoType theInfo; // unconstrained

    explicit INTEGER(const void* info = &theInfo) : ConstrainedObject(info), value(0) {}
    INTEGER(int v, const void* info) : ConstrainedObject(info), value(v) {}
    INTEGER(const INTEGER& other) = default;
    INTEGER& operator=(const INTEGER& other) {
        value = other.value;
        return *this;
    }
    INTEGER& operator=(int v) {
        value = v;
        return *this;
    }
    int getValue() const { return value; }
    operator int() const { return value; }
    static AbstractData* create(const void* info);
    INTEGER* clone() const { return static_cast<INTEGER*>(do_clone()); }

    bool isStrictValid() const;
    bool isValid() const;
    bool isStrictlyValid() const { return isStrictValid(); }

protected:
    AbstractData* do_clone() const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

private:
    int do_compare(const AbstractData& other) const override;

    int value;
};

// ------------------------------------------------------------------------------------------------
class IntegerWithNamedNumber : public INTEGER, public detail::Allocator<IntegerWithNamedNumber> {
public:
    struct NameEntry {
        int value;
        const char* name;
    };
    struct InfoType {
        CreateFun create;
        unsigned tag;
        ConstraintType type;
        int lowerLimit;
        unsigned upperLimit;
        const NameEntry* nameEntries; // sorted by value
        unsigned entryCount;
    };

    explicit IntegerWithNamedNumber(const void* info) : INTEGER(info) {}
    IntegerWithNamedNumber(int v, const void* info) : INTEGER(v, info) {}
    IntegerWithNamedNumber& operator=(int v) {
        INTEGER::operator=(v);
        return *this;
    }
    static AbstractData* create(const void* info);
    IntegerWithNamedNumber* clone() const {
        return static_cast<IntegerWithNamedNumber*>(do_clone());
    }

    // True, with the name in out, only when an entry has exactly this value.
    bool getName(std::string& out) const;
    bool setFromName(const std::string& name);

protected:
    AbstractData* do_clone() const override;

private:
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
    const InfoType* info() const { return static_cast<const InfoType*>(info_); }
};

// ------------------------------------------------------------------------------------------------
class ENUMERATED : public AbstractData, public detail::Allocator<ENUMERATED> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
        bool extendable;
        int maxEnumValue;         // largest root value
        const char* const* names; // indexed by value
    };

    explicit ENUMERATED(const void* info);
    ENUMERATED(const ENUMERATED& other) = default;
    ENUMERATED& operator=(const ENUMERATED& other) {
        value = other.value;
        return *this;
    }
    static AbstractData* create(const void* info);
    ENUMERATED* clone() const { return static_cast<ENUMERATED*>(do_clone()); }

    int asInt() const { return value; }
    void setFromInt(int v) { value = v; }
    int getMaximum() const { return info()->maxEnumValue; }
    bool extendable() const { return info()->extendable; }
    // The value's name, or null when it is negative or above the root maximum.
    const char* getName() const;
    bool setFromName(const std::string& name);

    bool isValid() const { return extendable() || isStrictlyValid(); }
    bool isStrictlyValid() const { return value <= getMaximum(); }

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
    const InfoType* info() const { return static_cast<const InfoType*>(info_); }

    int value;
};

// ------------------------------------------------------------------------------------------------
class OBJECT_IDENTIFIER : public AbstractData, public detail::Allocator<OBJECT_IDENTIFIER> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
    };
    static const InfoType theInfo;

    explicit OBJECT_IDENTIFIER(const void* info = &theInfo) : AbstractData(info) {}
    OBJECT_IDENTIFIER(std::initializer_list<unsigned> arcs, const void* info = &theInfo)
        : AbstractData(info), value(arcs) {}
    OBJECT_IDENTIFIER(const OBJECT_IDENTIFIER& other) = default;
    OBJECT_IDENTIFIER& operator=(const OBJECT_IDENTIFIER& other) {
        value = other.value;
        return *this;
    }
    static AbstractData* create(const void* info);
    OBJECT_IDENTIFIER* clone() const { return static_cast<OBJECT_IDENTIFIER*>(do_clone()); }

    void append(unsigned arc) { value.push_back(arc); }
    unsigned levels() const { return static_cast<unsigned>(value.size()); }
    unsigned operator[](unsigned i) const { return value[i]; }
    void clear() { value.clear(); }

    // X.690 8.19 contents octets: first two arcs as 40a + b, then base 128 with 0x80 on every
    // octet but the last of an arc. Fewer than two arcs give no octets.
    void encodeCommon(OctetBuffer& out) const;
    // False when the octets end inside an arc.
    bool decodeCommon(const char* data, unsigned length);

    bool isValid() const { return isStrictlyValid(); }
    bool isStrictlyValid() const { return !value.empty(); }

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

    std::vector<unsigned, detail::PoolAllocator<unsigned>> value;
};

// ------------------------------------------------------------------------------------------------
class BIT_STRING : public ConstrainedObject, public detail::Allocator<BIT_STRING> {
public:
    typedef ConstrainedObject::InfoType InfoType;
    static const InfoType theInfo; // unconstrained size

    explicit BIT_STRING(const void* info = &theInfo) : ConstrainedObject(info), totalBits(0) {}
    BIT_STRING(const BIT_STRING& other) = default;
    BIT_STRING& operator=(const BIT_STRING& other) {
        totalBits = other.totalBits;
        bitData = other.bitData;
        return *this;
    }
    static AbstractData* create(const void* info);
    BIT_STRING* clone() const { return static_cast<BIT_STRING*>(do_clone()); }

    unsigned size() const { return totalBits; }
    void resize(unsigned bits);
    // False for i >= size().
    bool operator[](unsigned i) const;
    void set(unsigned i);
    void clear(unsigned i);
    const std::vector<char>& getData() const { return bitData; }
    std::vector<char>& getData() { return bitData; }

    bool isValid() const;
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

    unsigned totalBits;
    std::vector<char> bitData; // most significant bit first
};

// ------------------------------------------------------------------------------------------------
class OCTET_STRING : public ConstrainedObject,
                     public OctetBuffer,
                     public detail::Allocator<OCTET_STRING> {
public:
    typedef ConstrainedObject::InfoType InfoType;
    typedef OctetBuffer ContainerType;
    static const InfoType theInfo; // unconstrained size

    explicit OCTET_STRING(const void* info = &theInfo) : ConstrainedObject(info) {}
    OCTET_STRING(size_type count, char fill, const void* info = &theInfo)
        : ConstrainedObject(info), ContainerType(count, fill) {}
    OCTET_STRING(const ContainerType& bytes, const void* info = &theInfo)
        : ConstrainedObject(info), ContainerType(bytes) {}
    OCTET_STRING(const OCTET_STRING& other) = default;
    OCTET_STRING& operator=(const OCTET_STRING& other) {
        ContainerType::operator=(other);
        return *this;
    }
    OCTET_STRING& operator=(const ContainerType& bytes) {
        ContainerType::operator=(bytes);
        return *this;
    }
    static AbstractData* create(const void* info);
    OCTET_STRING* clone() const { return static_cast<OCTET_STRING*>(do_clone()); }

    bool isValid() const;
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
};

// ------------------------------------------------------------------------------------------------
// The 8-bit character string kinds (IA5String, PrintableString, VisibleString, NumericString,
// GeneralString); the descriptor gives the permitted alphabet and the bits per character.
class AbstractString : public ConstrainedObject,
                       public std::string,
                       public detail::Allocator<AbstractString> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
        ConstraintType type;
        int lowerLimit;
        unsigned upperLimit;
        const char* characterSet; // permitted characters in canonical order
        unsigned characterSetSize;
        unsigned canonicalSetBits; // bits for a character of the whole (unconstrained) set
        unsigned unalignedBits;
        unsigned alignedBits;
    };

    explicit AbstractString(const void* info) : ConstrainedObject(info) {}
    AbstractString(const void* info, const std::string& s)
        : ConstrainedObject(info), std::string(s) {}
    AbstractString(const void* info, const char* s) : ConstrainedObject(info), std::string(s) {}
    AbstractString(const AbstractString& other) = default;
    AbstractString& operator=(const AbstractString& other) {
        std::string::operator=(other);
        return *this;
    }
    AbstractString& operator=(const std::string& s) {
        std::string::operator=(s);
        return *this;
    }
    AbstractString& operator=(const char* s) {
        std::string::operator=(s);
        return *this;
    }
    static AbstractData* create(const void* info);
    AbstractString* clone() const { return static_cast<AbstractString*>(do_clone()); }

    const char* getCharacterSet() const { return info()->characterSet; }
    unsigned getCharacterSetSize() const { return info()->characterSetSize; }
    unsigned getCanonicalSetBits() const { return info()->canonicalSetBits; }
    unsigned getNumBits(bool aligned) const {
        return aligned ? info()->alignedBits : info()->unalignedBits;
    }

    bool isValid() const;
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
    const InfoType* info() const { return static_cast<const InfoType*>(info_); }
    bool charactersValid() const;
};

// The standard kinds with their whole alphabets (X.680 41, X.691 30.5): universal tag, size of
// the alphabet, bits of its largest character, and bits per character unaligned and aligned. The
// attributes are compile-time constants so that constrained descriptors built from them are
// constant-initialised.
#define VOIPFILTER_ASN1_STRING_KIND(Name, Tag, SetSize, CanonicalBits, UnalignedBits, AlignedBits) \
    class Name : public AbstractString {                                                           \
    public:                                                                                        \
        static constexpr unsigned tagNumber = Tag;                                                 \
        static constexpr unsigned characterSetSize = SetSize;                                      \
        static constexpr unsigned canonicalSetBits = CanonicalBits;                                \
        static constexpr unsigned unalignedBits = UnalignedBits;                                   \
        static constexpr unsigned alignedBits = AlignedBits;                                       \
        static const char characterSet[];                                                          \
        static const InfoType theInfo;                                                             \
        explicit Name(const void* info = &theInfo) : AbstractString(info) {}                       \
        Name(const std::string& s, const void* info = &theInfo) : AbstractString(info, s) {}       \
        Name(const char* s, const void* info = &theInfo) : AbstractString(info, s) {}              \
        Name& operator=(const std::string& s) {                                                    \
            AbstractString::operator=(s);                                                          \
            return *this;                                                                          \
        }                                                                                          \
        Name& operator=(const char* s) {                                                           \
            AbstractString::operator=(s);                                                          \
            return *this;                                                                          \
        }                                                                                          \
        static AbstractData* create(const void* info) { return new Name(info); }                   \
        Name* clone() const { return static_cast<Name*>(do_clone()); }                             \
                                                                                                   \
    protected:                                                                                     \
        AbstractData* do_clone() const override { return new Name(*this); }                        \
    }

VOIPFILTER_ASN1_STRING_KIND(IA5String, 22, 128, 7, 7, 8);
VOIPFILTER_ASN1_STRING_KIND(PrintableString, 19, 74, 7, 7, 8);
VOIPFILTER_ASN1_STRING_KIND(VisibleString, 26, 95, 7, 7, 8);
VOIPFILTER_ASN1_STRING_KIND(NumericString, 18, 11, 4, 4, 4);
// GeneralString has no known-multiplier alphabet: any octet passes (an empty set means no check).
VOIPFILTER_ASN1_STRING_KIND(GeneralString, 27, 0, 8, 8, 8);
#undef VOIPFILTER_ASN1_STRING_KIND

// ------------------------------------------------------------------------------------------------
// The characters live in the small-block pool like the nodes themselves.
typedef std::basic_string<wchar_t, std::char_traits<wchar_t>, detail::PoolAllocator<wchar_t>>
    BMPCharacters;

class BMPString : public ConstrainedObject,
                  public BMPCharacters,
                  public detail::Allocator<BMPString> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
        ConstraintType type;
        int lowerLimit;
        unsigned upperLimit;
        wchar_t firstChar; // permitted code-point range
        wchar_t lastChar;
        unsigned unalignedBits;
        unsigned alignedBits;
    };
    static const InfoType theInfo;

    explicit BMPString(const void* info = &theInfo) : ConstrainedObject(info) {}
    BMPString(const wchar_t* s, const void* info = &theInfo)
        : ConstrainedObject(info), BMPCharacters(s) {}
    BMPString(const BMPString& other) = default;
    BMPString& operator=(const BMPString& other) {
        BMPCharacters::operator=(other);
        return *this;
    }
    BMPString& operator=(const std::wstring& s) {
        BMPCharacters::assign(s.data(), s.size());
        return *this;
    }
    static AbstractData* create(const void* info);
    BMPString* clone() const { return static_cast<BMPString*>(do_clone()); }

    void assign(const wchar_t* s, size_type count) { BMPCharacters::assign(s, count); }
    wchar_t getFirstChar() const { return info()->firstChar; }
    wchar_t getLastChar() const { return info()->lastChar; }
    unsigned getNumBits(bool aligned) const {
        return aligned ? info()->alignedBits : info()->unalignedBits;
    }
    bool legalCharacter(wchar_t c) const { return getFirstChar() <= c && c <= getLastChar(); }
    // Index of the first character outside the permitted range, or the length.
    size_type first_illegal_at() const;

    bool isValid() const;
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
    const InfoType* info() const { return static_cast<const InfoType*>(info_); }
};

// ------------------------------------------------------------------------------------------------
class GeneralizedTime : public AbstractData, public detail::Allocator<GeneralizedTime> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
    };
    static const InfoType theInfo;

    explicit GeneralizedTime(const void* info);
    GeneralizedTime();
    explicit GeneralizedTime(const char* text);
    GeneralizedTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                    int millisec = 0, int mindiff = 0, bool utc = false);
    GeneralizedTime(const GeneralizedTime& other) = default;
    GeneralizedTime& operator=(const GeneralizedTime& other);
    static AbstractData* create(const void* info);
    GeneralizedTime* clone() const { return static_cast<GeneralizedTime*>(do_clone()); }

    void set(const char* text);
    std::string get() const;
    long get_time_t() const;
    void set_time_t(long t);
    void swap(GeneralizedTime& other);

    int getYear() const { return year; }
    int getMonth() const { return month; }
    int getDay() const { return day; }
    int getHour() const { return hour; }
    int getMinute() const { return minute; }
    int getSecond() const { return second; }
    int getMillisec() const { return millisec; }
    int getMindiff() const { return mindiff; }
    bool getUtc() const { return utc; }

    bool isValid() const { return isStrictlyValid(); }
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

    int year, month, day, hour, minute, second, millisec, mindiff;
    bool utc;
};

// ------------------------------------------------------------------------------------------------
class CHOICE : public AbstractData, public detail::Allocator<CHOICE> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
        bool extendable;
        const void* const* selectionInfos; // root alternatives, then known extensions
        unsigned numChoices;               // root alternatives
        unsigned totalChoices;             // root plus known extension alternatives
        unsigned reserved;                 // zero, not read
        const char* const* selectionNames;
    };
    enum { unselected_ = -1, unknownSelection_ = -2 };

    explicit CHOICE(const void* info, int id = -1, AbstractData* value = nullptr);
    CHOICE(const CHOICE& other);
    CHOICE& operator=(const CHOICE& other);
    ~CHOICE() override;
    static AbstractData* create(const void* info);
    CHOICE* clone() const { return static_cast<CHOICE*>(do_clone()); }

    // Selects alternative id, creating its value unless id is already selected. An id the module
    // does not know leaves the CHOICE unknown (-2) without a value and returns false.
    bool select(int id);
    // Takes ownership of value; the id is not checked.
    void setSelection(int id, AbstractData* value);
    bool createSelection();

    int currentSelection() const { return choiceID; }
    bool isUnknownSelection() const { return choiceID == unknownSelection_; }
    AbstractData* getSelection() { return selection; }
    const AbstractData* getSelection() const { return selection; }
    const char* getSelectionName() const;
    unsigned getNumChoices() const { return info()->numChoices; }
    bool extendable() const { return info()->extendable; }
    void swap(CHOICE& other);

    bool isValid() const;
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;
    const InfoType* info() const { return static_cast<const InfoType*>(info_); }

    AbstractData* selection;
    int choiceID;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
};

// ------------------------------------------------------------------------------------------------
class SEQUENCE : public AbstractData, public detail::Allocator<SEQUENCE> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
        bool extendable;
        const void* const* fieldInfos; // root fields, then known extension fields
        const int* fieldIds;           // optional-field bit index per root field, -1 mandatory
        unsigned numFields;            // root fields
        unsigned knownExtensions;
        unsigned numOptional;
        const char* defaultExtensions; // one byte per known extension, non-zero = present
        unsigned reserved;             // zero, not read
        const char* const* fieldNames;
    };

    typedef std::vector<AbstractData*, detail::PoolAllocator<AbstractData*>> FieldSlots;
    class FieldVector : public FieldSlots {
    public:
        FieldVector() = default;
        explicit FieldVector(std::size_t slots) : FieldSlots(slots) {} // every slot null
        FieldVector(const FieldVector& other);
        FieldVector& operator=(const FieldVector&) = delete;
        ~FieldVector();
        void swap(FieldVector& other) { FieldSlots::swap(other); }
    };

    // Presence bits, most significant bit first. Maps of up to 64 bits (nearly every one) are
    // held in the object itself; longer ones take a block of the pool.
    class BitMap {
    public:
        BitMap() = default;
        explicit BitMap(unsigned n) {
            if (n <= kInlineBytes * 8)
                totalBits = n; // the inline octets start cleared
            else
                resize(n);
        }
        BitMap(const BitMap& other);
        BitMap& operator=(const BitMap& other);
        ~BitMap();
        unsigned size() const { return totalBits; }
        void resize(unsigned n);
        bool operator[](unsigned i) const {
            return i < totalBits && (bytes()[i / 8] & (0x80 >> (i % 8))) != 0;
        }
        void set(unsigned i) {
            if (i < totalBits)
                bytes()[i / 8] = static_cast<char>(bytes()[i / 8] | (0x80 >> (i % 8)));
        }
        void clear(unsigned i) {
            if (i < totalBits)
                bytes()[i / 8] = static_cast<char>(bytes()[i / 8] & ~(0x80 >> (i % 8)));
        }
        void swap(BitMap& other);
        bool any() const;
        // ceil(size() / 8) octets.
        char* bytes() { return capacity <= kInlineBytes ? inlineBytes : heapBytes; }
        const char* bytes() const { return capacity <= kInlineBytes ? inlineBytes : heapBytes; }

    private:
        static constexpr unsigned kInlineBytes = 8;

        unsigned totalBits = 0;
        unsigned capacity = kInlineBytes; // octets the storage holds
        union {
            char inlineBytes[kInlineBytes] = {};
            char* heapBytes;
        };
    };

    explicit SEQUENCE(const void* info);
    SEQUENCE(const SEQUENCE& other);
    SEQUENCE& operator=(const SEQUENCE& other);
    static AbstractData* create(const void* info);
    SEQUENCE* clone() const { return static_cast<SEQUENCE*>(do_clone()); }

    AbstractData* getField(unsigned pos) const;
    const char* getFieldName(unsigned i) const { return info()->fieldNames[i]; }
    unsigned getNumFields() const { return info()->numFields; }
    unsigned getKnownExtensions() const { return info()->knownExtensions; }
    bool extendable() const { return info()->extendable; }

    // Root optional fields are numbered first, then the known extensions.
    bool hasOptionalField(unsigned optionalIndex) const {
        if (optionalIndex < optionalMap_.size())
            return optionalMap_[optionalIndex];
        return extensionMap_[optionalIndex - optionalMap_.size()];
    }
    AbstractData* includeOptionalField(unsigned optionalIndex, unsigned fieldPosition);
    void removeOptionalField(unsigned optionalIndex);
    void swap(SEQUENCE& other);

    const BitMap& optionalMap() const { return optionalMap_; }
    const BitMap& extensionMap() const { return extensionMap_; }

protected:
    AbstractData* do_clone() const override;
    const InfoType* info() const { return static_cast<const InfoType*>(info_); }

    FieldVector fields;
    BitMap optionalMap_;
    BitMap extensionMap_;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

    friend class Visitor;
    friend class ConstVisitor;
    friend class PERDecoder;
    friend class PEREncoder;
    friend class AVNEncoder;
    friend class ValidChecker;
    friend class StrictlyValidChecker;
};

// ------------------------------------------------------------------------------------------------
class SEQUENCE_OF_Base : public ConstrainedObject, public detail::Allocator<SEQUENCE_OF_Base> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
        ConstraintType type; // size constraint
        int lowerLimit;
        unsigned upperLimit;
        const void* elementInfo;
    };
    typedef std::vector<AbstractData*, detail::PoolAllocator<AbstractData*>> Container;
    typedef Container::iterator iterator;
    typedef Container::const_iterator const_iterator;

    explicit SEQUENCE_OF_Base(const void* info) : ConstrainedObject(info) {}
    SEQUENCE_OF_Base(const SEQUENCE_OF_Base& other);
    SEQUENCE_OF_Base& operator=(const SEQUENCE_OF_Base& other);
    ~SEQUENCE_OF_Base() override;
    static AbstractData* create(const void* info);
    SEQUENCE_OF_Base* clone() const { return static_cast<SEQUENCE_OF_Base*>(do_clone()); }

    unsigned size() const { return static_cast<unsigned>(container.size()); }
    bool empty() const { return container.empty(); }
    iterator begin() { return container.begin(); }
    iterator end() { return container.end(); }
    const_iterator begin() const { return container.begin(); }
    const_iterator end() const { return container.end(); }
    void reserve(unsigned n) { container.reserve(n); }
    // Growing appends createElement() values; shrinking deletes the surplus.
    void resize(unsigned n);
    void clear();
    void push_back(AbstractData* element) { container.push_back(element); }
    void insert(iterator position, unsigned count, const AbstractData& prototype);
    void insert(iterator position, const_iterator first, const_iterator last);
    iterator erase(iterator first, iterator last);
    AbstractData* createElement() const;
    void swap(SEQUENCE_OF_Base& other);

    bool isValid() const;
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;
    const InfoType* info() const { return static_cast<const InfoType*>(info_); }

    Container container;

private:
    int do_compare(const AbstractData& other) const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

    friend class PERDecoder;
};

// ------------------------------------------------------------------------------------------------
// An open type (X.691 10.2): the decoded value, the octets as received, or both.
class OpenData : public AbstractData, public detail::Allocator<OpenData> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
    };
    static const InfoType theInfo;

    explicit OpenData(const void* info = &theInfo) : AbstractData(info) {}
    // Takes ownership of value.
    OpenData(AbstractData* value, const void* info) : AbstractData(info), data(value) {}
    OpenData(const OpenData& other);
    OpenData& operator=(const OpenData& other);
    static AbstractData* create(const void* info);
    OpenData* clone() const { return static_cast<OpenData*>(do_clone()); }

    bool has_data() const { return data != nullptr; }
    bool has_buf() const { return buf != nullptr; }
    bool isEmpty() const { return !has_data() && !has_buf(); }
    AbstractData& get_data() { return *data; }
    const AbstractData& get_data() const { return *data; }
    std::vector<char>& get_buf() { return *buf; }
    const std::vector<char>& get_buf() const { return *buf; }
    // Takes ownership of value, replacing any held one.
    void set_data(AbstractData* value) { data.reset(value); }
    // Takes ownership of buffer, replacing any held one.
    void grab(std::vector<char>* buffer) { buf.reset(buffer); }
    void swap(OpenData& other);

    bool isValid() const;
    bool isStrictlyValid() const;

protected:
    AbstractData* do_clone() const override;
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;

    std::unique_ptr<AbstractData> data;
    std::unique_ptr<std::vector<char>> buf;

private:
    int do_compare(const AbstractData& other) const override;
};

// An open type whose contained type is fixed by the descriptor; created holding a default value
// of that type.
class TypeConstrainedOpenData : public OpenData, public detail::Allocator<TypeConstrainedOpenData> {
public:
    struct InfoType {
        CreateFun create;
        unsigned tag;
        const void* containedInfo;
    };

    explicit TypeConstrainedOpenData(const void* info);
    TypeConstrainedOpenData(AbstractData* value, const void* info) : OpenData(value, info) {}
    static AbstractData* create(const void* info);
    TypeConstrainedOpenData* clone() const {
        return static_cast<TypeConstrainedOpenData*>(do_clone());
    }

protected:
    AbstractData* do_clone() const override;

private:
    bool do_accept(Visitor& v) override;
    bool do_accept(ConstVisitor& v) const override;
};

// ------------------------------------------------------------------------------------------------
// Visitor for filling a value tree (decoders). The sequence hooks return 0 failure, 1 stop with
// success, 2 continue without extensions, 3 continue with extensions.
class Visitor {
public:
    explicit Visitor(CoderEnv* env = nullptr) : env_(env) {}
    virtual ~Visitor() = default;
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

    CoderEnv* get_env() const { return env_; }

    bool visit(Null& v) { return do_visit(v); }
    bool visit(BOOLEAN& v) { return do_visit(v); }
    bool visit(INTEGER& v) { return do_visit(v); }
    bool visit(IntegerWithNamedNumber& v) { return do_visit(v); }
    bool visit(ENUMERATED& v) { return do_visit(v); }
    bool visit(OBJECT_IDENTIFIER& v) { return do_visit(v); }
    bool visit(OCTET_STRING& v) { return do_visit(v); }
    bool visit(BIT_STRING& v) { return do_visit(v); }
    bool visit(AbstractString& v) { return do_visit(v); }
    bool visit(BMPString& v) { return do_visit(v); }
    bool visit(CHOICE& v) { return do_visit(v); }
    bool visit(SEQUENCE_OF_Base& v) { return do_visit(v); }
    bool visit(OpenData& v) { return do_visit(v); }
    bool revisit(OpenData& v) { return do_revisit(v); }
    bool visit(TypeConstrainedOpenData& v) { return do_visit(v); }
    bool visit(GeneralizedTime& v) { return do_visit(v); }
    // Drives the sequence hooks over root fields, known extensions and unknown extensions.
    bool visit(SEQUENCE& seq);

private:
    virtual bool do_visit(Null& v) = 0;
    virtual bool do_visit(BOOLEAN& v) = 0;
    virtual bool do_visit(INTEGER& v) = 0;
    virtual bool do_visit(IntegerWithNamedNumber& v);
    virtual bool do_visit(ENUMERATED& v) = 0;
    virtual bool do_visit(OBJECT_IDENTIFIER& v) = 0;
    virtual bool do_visit(OCTET_STRING& v) = 0;
    virtual bool do_visit(BIT_STRING& v) = 0;
    virtual bool do_visit(AbstractString& v) = 0;
    virtual bool do_visit(BMPString& v) = 0;
    virtual bool do_visit(CHOICE& v) = 0;
    virtual bool do_visit(SEQUENCE_OF_Base& v) = 0;
    virtual bool do_visit(OpenData& v) = 0;
    virtual bool do_revisit(OpenData& v) = 0;
    virtual bool do_visit(TypeConstrainedOpenData& v) = 0;
    virtual bool do_visit(GeneralizedTime& v) = 0;
    virtual int preVisitExtensionRoots(SEQUENCE& seq);
    virtual int visitExtensionRoot(SEQUENCE& seq, int position, int optionalIndex);
    virtual int preVisitExtensions(SEQUENCE& seq);
    virtual int visitKnownExtension(SEQUENCE& seq, int position, int optionalIndex);
    virtual bool visitUnknownExtensions(SEQUENCE& seq);

    CoderEnv* env_;
};

// Visitor for reading a value tree (encoders, printers, checkers). Every kind not overridden falls
// back to do_visit(AbstractData const&).
class ConstVisitor {
public:
    ConstVisitor() = default;
    virtual ~ConstVisitor() = default;
    ConstVisitor(const ConstVisitor&) = delete;
    ConstVisitor& operator=(const ConstVisitor&) = delete;

    bool visit(const Null& v) { return do_visit(v); }
    bool visit(const BOOLEAN& v) { return do_visit(v); }
    bool visit(const INTEGER& v) { return do_visit(v); }
    bool visit(const IntegerWithNamedNumber& v) { return do_visit(v); }
    bool visit(const ENUMERATED& v) { return do_visit(v); }
    bool visit(const OBJECT_IDENTIFIER& v) { return do_visit(v); }
    bool visit(const BIT_STRING& v) { return do_visit(v); }
    bool visit(const OCTET_STRING& v) { return do_visit(v); }
    bool visit(const AbstractString& v) { return do_visit(v); }
    bool visit(const BMPString& v) { return do_visit(v); }
    bool visit(const CHOICE& v) { return do_visit(v); }
    bool visit(const OpenData& v) { return do_visit(v); }
    bool visit(const GeneralizedTime& v) { return do_visit(v); }
    bool visit(const SEQUENCE_OF_Base& v) { return do_visit(v); }
    // Walks the present root fields and the present known extensions through the hooks.
    bool visit(const SEQUENCE& value);

private:
    virtual bool do_visit(const AbstractData& v) = 0;
    virtual bool do_visit(const Null& v);
    virtual bool do_visit(const BOOLEAN& v);
    virtual bool do_visit(const INTEGER& v);
    virtual bool do_visit(const IntegerWithNamedNumber& v);
    virtual bool do_visit(const ENUMERATED& v);
    virtual bool do_visit(const OBJECT_IDENTIFIER& v);
    virtual bool do_visit(const BIT_STRING& v);
    virtual bool do_visit(const OCTET_STRING& v);
    virtual bool do_visit(const AbstractString& v);
    virtual bool do_visit(const BMPString& v);
    virtual bool do_visit(const CHOICE& v);
    virtual bool do_visit(const OpenData& v);
    virtual bool do_visit(const GeneralizedTime& v);
    virtual bool do_visit(const SEQUENCE_OF_Base& v);
    virtual bool preVisitExtensionRoots(const SEQUENCE& seq);
    // Default: visit the field.
    virtual bool visitExtensionRoot(const SEQUENCE& seq, int position);
    virtual bool preVisitExtensions(const SEQUENCE& seq);
    // Default: visit the field.
    virtual bool visitKnownExtension(const SEQUENCE& seq, int position);
    virtual bool afterVisitSequence(const SEQUENCE& seq);
};

// ------------------------------------------------------------------------------------------------
// Value notation printer (X.680 value syntax, as written into the most detailed log lines).
class AVNEncoder : public ConstVisitor {
public:
    explicit AVNEncoder(std::ostream& os) : strm(os), indent(0), depth(0) {}

private:
    bool do_visit(const AbstractData& v) override;
    bool do_visit(const Null& v) override;
    bool do_visit(const BOOLEAN& v) override;
    bool do_visit(const INTEGER& v) override;
    bool do_visit(const IntegerWithNamedNumber& v) override;
    bool do_visit(const ENUMERATED& v) override;
    bool do_visit(const OBJECT_IDENTIFIER& v) override;
    bool do_visit(const BIT_STRING& v) override;
    bool do_visit(const OCTET_STRING& v) override;
    bool do_visit(const AbstractString& v) override;
    bool do_visit(const BMPString& v) override;
    bool do_visit(const CHOICE& v) override;
    bool do_visit(const OpenData& v) override;
    bool do_visit(const GeneralizedTime& v) override;
    bool do_visit(const SEQUENCE_OF_Base& v) override;
    bool preVisitExtensionRoots(const SEQUENCE& seq) override;
    bool visitExtensionRoot(const SEQUENCE& seq, int position) override;
    bool visitKnownExtension(const SEQUENCE& seq, int position) override;
    bool afterVisitSequence(const SEQUENCE& seq) override;

    bool printField(const SEQUENCE& seq, int position);
    bool printNested(const AbstractData& value);

    std::ostream& strm;
    unsigned indent;
    std::vector<bool> fieldWritten; // per SEQUENCE being printed: a field has been written
    unsigned depth;
};

// ------------------------------------------------------------------------------------------------
// Constraint checkers behind isValid() (extensible constraints admit values beyond the root) and
// isStrictlyValid() (every value within the root).
class ValidChecker : public ConstVisitor {
private:
    bool do_visit(const AbstractData& v) override;
    bool do_visit(const Null& v) override;
    bool do_visit(const BOOLEAN& v) override;
    bool do_visit(const INTEGER& v) override;
    bool do_visit(const IntegerWithNamedNumber& v) override;
    bool do_visit(const ENUMERATED& v) override;
    bool do_visit(const OBJECT_IDENTIFIER& v) override;
    bool do_visit(const BIT_STRING& v) override;
    bool do_visit(const OCTET_STRING& v) override;
    bool do_visit(const AbstractString& v) override;
    bool do_visit(const BMPString& v) override;
    bool do_visit(const CHOICE& v) override;
    bool do_visit(const OpenData& v) override;
    bool do_visit(const GeneralizedTime& v) override;
    bool do_visit(const SEQUENCE_OF_Base& v) override;
    bool visitExtensionRoot(const SEQUENCE& seq, int position) override;
    bool visitKnownExtension(const SEQUENCE& seq, int position) override;
};

class StrictlyValidChecker : public ConstVisitor {
private:
    bool do_visit(const AbstractData& v) override;
    bool do_visit(const Null& v) override;
    bool do_visit(const BOOLEAN& v) override;
    bool do_visit(const INTEGER& v) override;
    bool do_visit(const IntegerWithNamedNumber& v) override;
    bool do_visit(const ENUMERATED& v) override;
    bool do_visit(const OBJECT_IDENTIFIER& v) override;
    bool do_visit(const BIT_STRING& v) override;
    bool do_visit(const OCTET_STRING& v) override;
    bool do_visit(const AbstractString& v) override;
    bool do_visit(const BMPString& v) override;
    bool do_visit(const CHOICE& v) override;
    bool do_visit(const OpenData& v) override;
    bool do_visit(const GeneralizedTime& v) override;
    bool do_visit(const SEQUENCE_OF_Base& v) override;
    bool visitExtensionRoot(const SEQUENCE& seq, int position) override;
    bool visitKnownExtension(const SEQUENCE& seq, int position) override;
};

// ================================================================================================
// Typed templates for the generated modules. Each instance has one static, constant-initialised
// theInfo, and its create makes an object of the instance itself so that typed accessors may
// downcast what a decoder created.

// A size constraint: SizeConstraint<2u, 1, 256u> is SIZE (1..256).
template <unsigned Type, int Lower, unsigned Upper> struct SizeConstraint {
    static constexpr ConstraintType type = static_cast<ConstraintType>(Type);
    static constexpr int lower = Lower;
    static constexpr unsigned upper = Upper;
};

// No size constraint.
struct EmptyConstraint {
    static constexpr ConstraintType type = Unconstrained;
    static constexpr int lower = 0;
    static constexpr unsigned upper = UINT32_MAX;
};

template <ConstraintType Type, int Lower, unsigned Upper>
class Constrained_INTEGER : public INTEGER {
public:
    static const InfoType theInfo;

    explicit Constrained_INTEGER(const void* info = &theInfo) : INTEGER(info) {}
    Constrained_INTEGER(int v, const void* info = &theInfo) : INTEGER(v, info) {}
    Constrained_INTEGER(const Constrained_INTEGER& other) = default;
    Constrained_INTEGER& operator=(const Constrained_INTEGER& other) {
        INTEGER::operator=(other);
        return *this;
    }
    // Stores, then checks: an out-of-range value of a non-extensible type aborts.
    Constrained_INTEGER& operator=(int v) {
        INTEGER::operator=(v);
        ASN1_ASSERT(isValid());
        return *this;
    }
    static AbstractData* create(const void* info) { return new Constrained_INTEGER(info); }
    Constrained_INTEGER* clone() const { return static_cast<Constrained_INTEGER*>(do_clone()); }

protected:
    AbstractData* do_clone() const override { return new Constrained_INTEGER(*this); }
};

template <ConstraintType Type, int Lower, unsigned Upper>
const typename Constrained_INTEGER<Type, Lower, Upper>::InfoType
    Constrained_INTEGER<Type, Lower, Upper>::theInfo = {&Constrained_INTEGER::create, 2, Type,
                                                        Lower, Upper};

template <class Constraint> class Constrained_OCTET_STRING : public OCTET_STRING {
public:
    static const InfoType theInfo;

    explicit Constrained_OCTET_STRING(const void* info = &theInfo) : OCTET_STRING(info) {}
    Constrained_OCTET_STRING(const ContainerType& bytes, const void* info = &theInfo)
        : OCTET_STRING(bytes, info) {}
    Constrained_OCTET_STRING(const Constrained_OCTET_STRING& other) = default;
    Constrained_OCTET_STRING& operator=(const Constrained_OCTET_STRING& other) {
        OCTET_STRING::operator=(other);
        return *this;
    }
    Constrained_OCTET_STRING& operator=(const ContainerType& bytes) {
        OCTET_STRING::operator=(bytes);
        return *this;
    }
    static AbstractData* create(const void* info) { return new Constrained_OCTET_STRING(info); }
    Constrained_OCTET_STRING* clone() const {
        return static_cast<Constrained_OCTET_STRING*>(do_clone());
    }

protected:
    AbstractData* do_clone() const override { return new Constrained_OCTET_STRING(*this); }
};

template <class Constraint>
const typename Constrained_OCTET_STRING<Constraint>::InfoType
    Constrained_OCTET_STRING<Constraint>::theInfo = {&Constrained_OCTET_STRING::create, 4,
                                                     Constraint::type, Constraint::lower,
                                                     Constraint::upper};

template <class Constraint> class Constrained_BIT_STRING : public BIT_STRING {
public:
    static const InfoType theInfo;

    explicit Constrained_BIT_STRING(const void* info = &theInfo) : BIT_STRING(info) {}
    Constrained_BIT_STRING(const Constrained_BIT_STRING& other) = default;
    Constrained_BIT_STRING& operator=(const Constrained_BIT_STRING& other) {
        BIT_STRING::operator=(other);
        return *this;
    }
    static AbstractData* create(const void* info) { return new Constrained_BIT_STRING(info); }
    Constrained_BIT_STRING* clone() const {
        return static_cast<Constrained_BIT_STRING*>(do_clone());
    }

protected:
    AbstractData* do_clone() const override { return new Constrained_BIT_STRING(*this); }
};

template <class Constraint>
const typename Constrained_BIT_STRING<Constraint>::InfoType
    Constrained_BIT_STRING<Constraint>::theInfo = {
        &Constrained_BIT_STRING::create, 3, Constraint::type, Constraint::lower, Constraint::upper};

// A character string kind (IA5String, ...) with a size constraint and the kind's whole alphabet.
// A permitted-alphabet constraint (FROM) needs its own descriptor instead.
template <class StringKind, class Constraint> class Constrained_String : public StringKind {
public:
    typedef typename StringKind::InfoType InfoType;
    static const InfoType theInfo;

    explicit Constrained_String(const void* info = &theInfo) : StringKind(info) {}
    Constrained_String(const std::string& s, const void* info = &theInfo) : StringKind(s, info) {}
    Constrained_String(const char* s, const void* info = &theInfo) : StringKind(s, info) {}
    Constrained_String(const Constrained_String& other) = default;
    Constrained_String& operator=(const Constrained_String& other) {
        StringKind::operator=(other);
        return *this;
    }
    Constrained_String& operator=(const std::string& s) {
        StringKind::operator=(s);
        return *this;
    }
    Constrained_String& operator=(const char* s) {
        StringKind::operator=(s);
        return *this;
    }
    static AbstractData* create(const void* info) { return new Constrained_String(info); }
    Constrained_String* clone() const { return static_cast<Constrained_String*>(this->do_clone()); }

protected:
    AbstractData* do_clone() const override { return new Constrained_String(*this); }
};

template <class StringKind, class Constraint>
const typename Constrained_String<StringKind, Constraint>::InfoType
    Constrained_String<StringKind, Constraint>::theInfo = {&Constrained_String::create,
                                                           StringKind::tagNumber,
                                                           Constraint::type,
                                                           Constraint::lower,
                                                           Constraint::upper,
                                                           StringKind::characterSet,
                                                           StringKind::characterSetSize,
                                                           StringKind::canonicalSetBits,
                                                           StringKind::unalignedBits,
                                                           StringKind::alignedBits};

template <class Constraint> using Constrained_IA5String = Constrained_String<IA5String, Constraint>;
template <class Constraint>
using Constrained_PrintableString = Constrained_String<PrintableString, Constraint>;
template <class Constraint>
using Constrained_VisibleString = Constrained_String<VisibleString, Constraint>;
template <class Constraint>
using Constrained_NumericString = Constrained_String<NumericString, Constraint>;
template <class Constraint>
using Constrained_GeneralString = Constrained_String<GeneralString, Constraint>;

template <class Constraint> class Constrained_BMPString : public BMPString {
public:
    static const InfoType theInfo;

    explicit Constrained_BMPString(const void* info = &theInfo) : BMPString(info) {}
    Constrained_BMPString(const wchar_t* s, const void* info = &theInfo) : BMPString(s, info) {}
    Constrained_BMPString(const Constrained_BMPString& other) = default;
    Constrained_BMPString& operator=(const Constrained_BMPString& other) {
        BMPString::operator=(other);
        return *this;
    }
    Constrained_BMPString& operator=(const std::wstring& s) {
        BMPString::operator=(s);
        return *this;
    }
    static AbstractData* create(const void* info) { return new Constrained_BMPString(info); }
    Constrained_BMPString* clone() const { return static_cast<Constrained_BMPString*>(do_clone()); }

protected:
    AbstractData* do_clone() const override { return new Constrained_BMPString(*this); }
};

template <class Constraint>
const typename Constrained_BMPString<Constraint>::InfoType
    Constrained_BMPString<Constraint>::theInfo = {&Constrained_BMPString::create,
                                                  30,
                                                  Constraint::type,
                                                  Constraint::lower,
                                                  Constraint::upper,
                                                  0,
                                                  0xFFFF,
                                                  16,
                                                  16};

// Typed element access over SEQUENCE_OF_Base; SEQUENCE_OF and SET_OF add the descriptor.
template <class T> class TypedSequenceOf : public SEQUENCE_OF_Base {
public:
    typedef T value_type;

    T& operator[](unsigned i) { return static_cast<T&>(*container[i]); }
    const T& operator[](unsigned i) const { return static_cast<const T&>(*container[i]); }
    // Takes ownership.
    void push_back(T* element) { SEQUENCE_OF_Base::push_back(element); }
    void push_back(const T& element) { SEQUENCE_OF_Base::push_back(element.clone()); }

protected:
    explicit TypedSequenceOf(const void* info) : SEQUENCE_OF_Base(info) {}
    TypedSequenceOf(const TypedSequenceOf& other) = default;
    TypedSequenceOf& operator=(const TypedSequenceOf& other) = default;
};

template <class T, class Constraint = EmptyConstraint>
class SEQUENCE_OF : public TypedSequenceOf<T> {
public:
    typedef SEQUENCE_OF_Base::InfoType InfoType;
    static const InfoType theInfo;

    explicit SEQUENCE_OF(const void* info = &theInfo) : TypedSequenceOf<T>(info) {}
    SEQUENCE_OF(const SEQUENCE_OF& other) = default;
    SEQUENCE_OF& operator=(const SEQUENCE_OF& other) = default;
    static AbstractData* create(const void* info) { return new SEQUENCE_OF(info); }
    SEQUENCE_OF* clone() const { return static_cast<SEQUENCE_OF*>(this->do_clone()); }

protected:
    AbstractData* do_clone() const override { return new SEQUENCE_OF(*this); }
};

template <class T, class Constraint>
const typename SEQUENCE_OF<T, Constraint>::InfoType SEQUENCE_OF<T, Constraint>::theInfo = {
    &SEQUENCE_OF::create, 16, Constraint::type, Constraint::lower, Constraint::upper, &T::theInfo};

template <class T, class Constraint = EmptyConstraint> class SET_OF : public TypedSequenceOf<T> {
public:
    typedef SEQUENCE_OF_Base::InfoType InfoType;
    static const InfoType theInfo;

    explicit SET_OF(const void* info = &theInfo) : TypedSequenceOf<T>(info) {}
    SET_OF(const SET_OF& other) = default;
    SET_OF& operator=(const SET_OF& other) = default;
    static AbstractData* create(const void* info) { return new SET_OF(info); }
    SET_OF* clone() const { return static_cast<SET_OF*>(this->do_clone()); }

protected:
    AbstractData* do_clone() const override { return new SET_OF(*this); }
};

template <class T, class Constraint>
const typename SET_OF<T, Constraint>::InfoType SET_OF<T, Constraint>::theInfo = {
    &SET_OF::create, 17, Constraint::type, Constraint::lower, Constraint::upper, &T::theInfo};

// An open type whose contents are a T.
template <class T> class Constrained_OpenData : public TypeConstrainedOpenData {
public:
    typedef T value_type;
    static const InfoType theInfo;

    explicit Constrained_OpenData(const void* info = &theInfo) : TypeConstrainedOpenData(info) {}
    Constrained_OpenData(const Constrained_OpenData& other) = default;
    Constrained_OpenData& operator=(const Constrained_OpenData& other) {
        TypeConstrainedOpenData::operator=(other);
        return *this;
    }
    static AbstractData* create(const void* info) { return new Constrained_OpenData(info); }
    Constrained_OpenData* clone() const { return static_cast<Constrained_OpenData*>(do_clone()); }

    T& get_data() { return static_cast<T&>(OpenData::get_data()); }
    const T& get_data() const { return static_cast<const T&>(OpenData::get_data()); }

protected:
    AbstractData* do_clone() const override { return new Constrained_OpenData(*this); }
};

template <class T>
const typename Constrained_OpenData<T>::InfoType Constrained_OpenData<T>::theInfo = {
    &Constrained_OpenData::create, 0, &T::theInfo};

} // namespace ASN1

#endif
