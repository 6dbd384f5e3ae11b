#include "asn1_test_support.h"

#include <map>

namespace asn1test {

const char* const colourNames[] = {"red", "green", "blue"};
const ENUMERATED::InfoType colourInfo = {&ENUMERATED::create, 10, false, 2, colourNames};
const ENUMERATED::InfoType colourExtInfo = {&ENUMERATED::create, 10, true, 2, colourNames};

namespace {
const void* const choice3Infos[] = {&Int0to255::theInfo, &BOOLEAN::theInfo, &Null::theInfo};
const char* const choice3Names[] = {"n", "flag", "none"};
const void* const choiceExtInfos[] = {&Int0to255::theInfo, &Null::theInfo, &BOOLEAN::theInfo};
const char* const choiceExtNames[] = {"n", "none", "flag"};

const void* const recInfos[] = {&Int0to255::theInfo, &BOOLEAN::theInfo, &IA5String::theInfo,
                                &emptySeqInfo};
const int recIds[] = {-1, 0, 0, 0};
const char* const recNames[] = {"a", "b", "c", "d"};

const void* const bareInfos[] = {&Int0to255::theInfo, &BOOLEAN::theInfo};
const int bareIds[] = {-1, 0};
const char* const bareNames[] = {"x", "y"};

const void* const extsInfos[] = {&Int0to255::theInfo, &Int0to255::theInfo};
const int extsIds[] = {0, 0};
const char* const extsNames[] = {"e1", "e2"};

const void* const nodeInfos[] = {&Null::theInfo, &nodeInfo};
const char* const nodeNames[] = {"leaf", "inner"};
} // namespace

const CHOICE::InfoType choice3Info = {&CHOICE::create, 0, false, choice3Infos, 3, 3, 0,
                                      choice3Names};
const CHOICE::InfoType choiceExtInfo = {&CHOICE::create, 0, true, choiceExtInfos, 2, 3, 0,
                                        choiceExtNames};

const SEQUENCE::InfoType emptySeqInfo = {&SEQUENCE::create, 16, false,  nullptr, nullptr, 0, 0, 0,
                                         nullptr,           0,  nullptr};
const SEQUENCE::InfoType recInfo = {&SEQUENCE::create, 16, true,    recInfos, recIds, 2, 2, 1,
                                    nullptr,           0,  recNames};
const SEQUENCE::InfoType bareInfo = {&SEQUENCE::create, 16, false,    bareInfos, bareIds, 2, 0, 1,
                                     nullptr,           0,  bareNames};
const SEQUENCE::InfoType extsInfo = {&SEQUENCE::create, 16, true,     extsInfos, extsIds, 0, 2, 0,
                                     nullptr,           0,  extsNames};

const SEQUENCE_OF_Base::InfoType treeInfo = {
    &SEQUENCE_OF_Base::create, 16, Unconstrained, 0, UINT_MAX, &treeInfo};
const CHOICE::InfoType nodeInfo = {&CHOICE::create, 0, false, nodeInfos, 2, 2, 0, nodeNames};

// X.691 30.5.4: the permitted alphabet in canonical (code) order; 13 characters need 4 bits,
// fewer than IA5String's 7, so characters are written as their index.
const AbstractString::InfoType dialedDigitsInfo = {
    &AbstractString::create, 22, FixedConstraint, 1, 128, "#*,0123456789", 13, 7, 4, 4};

namespace {
typedef Constrained_OpenData<Int0to255> OpenByte;
const void* const msgInfos[] = {&recInfo,
                                &SEQUENCE_OF<Null>::theInfo,
                                &choiceExtInfo,
                                &OBJECT_IDENTIFIER::theInfo,
                                &BMPString::theInfo,
                                &OpenByte::theInfo,
                                &dialedDigitsInfo,
                                &Int0to255::theInfo};
const int msgIds[] = {-1, -1, -1, -1, -1, -1, -1, -1};
const char* const msgNames[] = {"rec", "nodes", "pick", "oid", "name", "open", "digits", "tail"};

// Pruned ::= CHOICE { a NULL, (an alternative the module leaves out), c BOOLEAN }
const void* const prunedInfos[] = {&Null::theInfo, nullptr, &BOOLEAN::theInfo};
const char* const prunedNames[] = {"a", "", "c"};
const CHOICE::InfoType prunedInfo = {&CHOICE::create, 0, false, prunedInfos, 3, 3, 0, prunedNames};

// X.691 Annex A.2: PersonnelRecord. SET components go in canonical tag order (X.691 21.1),
// [APPLICATION] before context tags.
const void* const nameInfos[] = {&VisibleString::theInfo, &VisibleString::theInfo,
                                 &VisibleString::theInfo};
const int nameIds[] = {-1, -1, -1};
const char* const nameNames[] = {"givenName", "initial", "familyName"};
const SEQUENCE::InfoType nameInfo = {&SEQUENCE::create, 16, false,    nameInfos, nameIds, 3, 0, 0,
                                     nullptr,           0,  nameNames};
const void* const childInfos[] = {&nameInfo, &VisibleString::theInfo};
const int childIds[] = {-1, -1};
const char* const childNames[] = {"name", "dateOfBirth"};
const SEQUENCE::InfoType childInfo = {
    &SEQUENCE::create, 17, false, childInfos, childIds, 2, 0, 0, nullptr, 0, childNames};
const SEQUENCE_OF_Base::InfoType childrenInfo = {
    &SEQUENCE_OF_Base::create, 16, Unconstrained, 0, UINT_MAX, &childInfo};
const void* const recordInfos[] = {
    &nameInfo, &INTEGER::theInfo, &VisibleString::theInfo, &VisibleString::theInfo,
    &nameInfo, &childrenInfo};
const int recordIds[] = {-1, -1, -1, -1, -1, 0};
const char* const recordNames[] = {"name",       "number",       "title",
                                   "dateOfHire", "nameOfSpouse", "children"};
const SEQUENCE::InfoType recordInfo = {
    &SEQUENCE::create, 17, false, recordInfos, recordIds, 6, 0, 1, nullptr, 0, recordNames};
} // namespace

const SEQUENCE::InfoType msgInfo = {&SEQUENCE::create, 16, false,   msgInfos, msgIds, 8, 0, 0,
                                    nullptr,           0,  msgNames};

const void* TypeNamed(const std::string& name) {
    static const std::map<std::string, const void*> types = {
        {"NULL", &Null::theInfo},
        {"BOOLEAN", &BOOLEAN::theInfo},
        {"INTEGER", &INTEGER::theInfo},
        {"INTEGER (0..7)", &Int0to7::theInfo},
        {"INTEGER (0..255)", &Int0to255::theInfo},
        {"INTEGER (1..65535)", &Int1to65535::theInfo},
        {"INTEGER (0..4294967295)", &Int0to4G::theInfo},
        {"INTEGER (-5..5)", &IntMinus5to5::theInfo},
        {"INTEGER (3..3)", &Int3to3::theInfo},
        {"INTEGER (0..7, ...)", &Int0to7Ext::theInfo},
        {"INTEGER (10..MAX)", &IntFrom10::theInfo},
        {"Colour", &colourInfo},
        {"ColourExt", &colourExtInfo},
        {"OBJECT IDENTIFIER", &OBJECT_IDENTIFIER::theInfo},
        {"OCTET STRING", &OCTET_STRING::theInfo},
        {"OCTET STRING (SIZE (2))", &Constrained_OCTET_STRING<SizeConstraint<2u, 2, 2u>>::theInfo},
        {"OCTET STRING (SIZE (0..7))",
         &Constrained_OCTET_STRING<SizeConstraint<2u, 0, 7u>>::theInfo},
        {"OCTET STRING (SIZE (0..65535))",
         &Constrained_OCTET_STRING<SizeConstraint<2u, 0, 65535u>>::theInfo},
        {"BIT STRING", &BIT_STRING::theInfo},
        {"BIT STRING (SIZE (0..31))", &Constrained_BIT_STRING<SizeConstraint<2u, 0, 31u>>::theInfo},
        {"IA5String", &IA5String::theInfo},
        {"IA5String (SIZE (1..128))", &Constrained_IA5String<SizeConstraint<2u, 1, 128u>>::theInfo},
        {"IA5String (SIZE (1))", &Constrained_IA5String<SizeConstraint<2u, 1, 1u>>::theInfo},
        {"PrintableString", &PrintableString::theInfo},
        {"VisibleString", &VisibleString::theInfo},
        {"NumericString (SIZE (1..16))",
         &Constrained_NumericString<SizeConstraint<2u, 1, 16u>>::theInfo},
        {"DialedDigits", &dialedDigitsInfo},
        {"BMPString", &BMPString::theInfo},
        {"BMPString (SIZE (1..128))", &Constrained_BMPString<SizeConstraint<2u, 1, 128u>>::theInfo},
        {"GeneralizedTime", &GeneralizedTime::theInfo},
        {"Choice3", &choice3Info},
        {"ChoiceExt", &choiceExtInfo},
        {"Pruned", &prunedInfo},
        {"Rec", &recInfo},
        {"Exts", &extsInfo},
        {"SEQUENCE OF NULL", &SEQUENCE_OF<Null>::theInfo},
        {"SEQUENCE OF INTEGER (0..255)", &SEQUENCE_OF<Int0to255>::theInfo},
        {"SEQUENCE (SIZE (1..4)) OF INTEGER (0..255)",
         &SEQUENCE_OF<Int0to255, SizeConstraint<2u, 1, 4u>>::theInfo},
        {"SEQUENCE OF IA5String", &SEQUENCE_OF<IA5String>::theInfo},
        {"SEQUENCE OF SEQUENCE OF NULL", &SEQUENCE_OF<SEQUENCE_OF<Null>>::theInfo},
        {"Tree", &treeInfo},
        {"Node", &nodeInfo},
        {"open type", &OpenData::theInfo},
        {"open INTEGER (0..255)", &OpenByte::theInfo},
        {"PersonnelRecord", &recordInfo},
        {"Msg", &msgInfo},
    };
    const auto found = types.find(name);
    return found == types.end() ? nullptr : found->second;
}

} // namespace asn1test
