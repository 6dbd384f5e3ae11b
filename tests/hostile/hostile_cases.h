// Messages a peer can send that reach one of the value model's assertions, or that the library
// can only half encode, with the host configurations that expose them. The default flavour of
// the library stops the process on the assertions and sends the half encodings as they stand;
// the hardened flavour refuses every one of them and the call goes on. The two test programs
// (one per flavour) run the same cases.
#ifndef VOIPFILTER_TESTS_HOSTILE_CASES_H
#define VOIPFILTER_TESTS_HOSTILE_CASES_H

#include "h323_test_support.h"

#include <string>
#include <vector>

enum class MediaHost {
    Recording,        // every callback set, pinholes on an IPv4 address
    NoMediaCallbacks, // no openRTPChannelFunction and no translateMediaAddrFunction
    AnswersIPv6,      // pinholes opened on an IPv6 address
    VetoesEveryCodec, // allowCodecFunction refuses every codec
};

// Which entry point a case's messages go to.
enum class Entry {
    H225,        // decodeh225pdu, translateh225pdu and, when asked for, encodeh225pdu
    H245,        // translateh245pdu (a separate H.245 connection)
    HeaderString // setheaderstring (the vendor identity), with the step's vendor
};

struct Step {
    bool fromOriginator;
    Bytes pdu;
    std::string vendor; // HeaderString only
};

struct HostileCase {
    std::string name;
    MediaHost host;
    Entry entry;
    std::vector<Step> steps;
    // Default flavour: the assertion it stops on, or else (empty) the half encoding it sends (hex).
    std::string assertion;
    std::string designedBytes;
    std::string hardened; // the results in the hardened flavour
};

const std::vector<HostileCase>& HostileCases();

// Installs the recording test host, changed as the case asks.
void ConfigureHost(MediaHost host);

// Sends the steps on the call and returns the results of the entry points in order, for example
// "decode=1 translate=1 encode=-2". out gets the last output written.
std::string Send(Entry entry, const std::vector<Step>& steps, TestCall& call, Bytes& out);

// A message of the kind the case sent that every host translates, to send after it.
std::vector<Step> FollowUp(Entry entry);

#endif
