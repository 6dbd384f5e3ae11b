#include "asn1_test_support.h"

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

const void* const pairInfos[] = {&INTEGER::theInfo, &BOOLEAN::theInfo};
const int pairIds[] = {-1, -1};
const char* const pairNames[] = {"a", "b"};

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
const SEQUENCE::InfoType pairInfo = {&SEQUENCE::create, 16, false,    pairInfos, pairIds, 2, 0, 0,
                                     nullptr,           0,  pairNames};
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

} // namespace asn1test
