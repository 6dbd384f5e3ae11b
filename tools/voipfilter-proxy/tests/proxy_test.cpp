// Unit tests of the proxy's own logic; the proxy on real networks is tested by
// scripts/proxy-netns.sh.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "config.h"
#include "port_pool.h"
#include "relay_book.h"
#include "sip_summary.h"
#include "test_util.h"
#include "tpkt.h"

namespace proxy {
namespace {

TEST(Config, FileThenCommandLine) {
    const char* argv[] = {"voipfilter-proxy",          "--log-level",        "3",
                          "--media_ports=30000-30099", "--sip-peer-outside", "198.51.100.7"};
    CommandLine line = parseCommandLine(6, argv);
    ASSERT_EQ(line.error, "");
    EXPECT_EQ(line.config.logLevel, 3);
    EXPECT_EQ(line.config.portLow, 30000);
    EXPECT_EQ(line.config.portHigh, 30099);
    EXPECT_EQ(endpointText(line.config.sipPeer[Outside]), "198.51.100.7:5060");

    Config config;
    EXPECT_EQ(applyConfigText(config, "# comment\n inside_address = 10.0.0.1 # trailing\n\n"
                                      "outside-address=203.0.113.1\n"
                                      "deny_codec = G729, gsm\ndeny_codec = PCMA\n"
                                      "h323_peer_inside = 10.0.0.9:1721\n"),
              "");
    EXPECT_EQ(validateConfig(config), "");
    EXPECT_EQ(config.deniedCodecs, (std::vector<std::string>{"G729", "gsm", "PCMA"}));
    EXPECT_EQ(endpointText(config.h323Peer[Inside]), "10.0.0.9:1721");
}

TEST(Cases, ConfigErrorsSipSummariesAndTpktFrames) {
    for (const std::vector<std::string>& row : TableRows("proxy/cases.tsv", 3)) {
        const std::string &kind = row[0], &expected = row[2], text = Unescape(row[1]);
        Config config;
        if (kind == "config") {
            EXPECT_EQ(expected, applyConfigText(config, text)) << row[1];
        }
        if (kind == "tpkt") {
            const Bytes stream = FromHex(row[1]);
            TpktReader reader(16);
            reader.append(stream.data(), stream.size());
            std::vector<uint8_t> payload;
            std::string frames;
            TpktReader::Result result;
            while ((result = reader.next(payload)) == TpktReader::Result::Frame)
                frames += Hex(payload) + "|";
            EXPECT_EQ(expected,
                      frames + (result == TpktReader::Result::NeedMore ? "more" : "error"))
                << row[1];
        }
        if (kind != "sip")
            continue;
        SipSummary summary = summarizeSip(text.data(), text.size());
        EXPECT_EQ(Unescape(expected), std::string(summary.valid ? "valid|" : "invalid|") +
                                          (summary.response ? "response|" : "request|") +
                                          std::to_string(summary.status) + "|" + summary.method +
                                          "|" + summary.callId)
            << row[1];
    }
    Config config;
    EXPECT_EQ(validateConfig(config), "no inside address (set inside_address or inside_interface)");
    const char* argv[] = {"voipfilter-proxy", "--log-level"};
    EXPECT_EQ(parseCommandLine(2, argv).error, "--log-level needs a value");
    std::string end = dialogEndMessage("c1@h");
    SipSummary summary = summarizeSip(end.data(), end.size());
    EXPECT_TRUE(summary.valid && summary.response && summary.method == "BYE");
    EXPECT_EQ(summary.callId, "c1@h");
}

TEST(PortPool, PairsAreEvenAndPortsComeBackLast) {
    PortPool pool(20001, 20008); // even pairs: 20002, 20004, 20006
    EXPECT_EQ(pool.allocatePair(), 20002);
    EXPECT_EQ(pool.allocatePair(), 20004);
    pool.releasePair(20002);
    // The freed pair is not the next one handed out.
    EXPECT_EQ(pool.allocatePair(), 20006);
    EXPECT_EQ(pool.allocatePair(), 20002);
    EXPECT_EQ(pool.allocatePair(), std::nullopt);
    EXPECT_EQ(pool.allocateOne(), 20008);
    EXPECT_EQ(pool.allocateOne(), 20001);
    EXPECT_EQ(pool.allocateOne(), std::nullopt);
    EXPECT_EQ(pool.inUse(), pool.size());
    pool.release(20001);
    pool.release(20001); // twice changes nothing
    pool.release(40000); // outside the range
    EXPECT_EQ(pool.inUse(), pool.size() - 1);
}

// Records what the relay book asks of the sockets; can be told to fail.
struct FakeIo : RelayIo {
    bool start(Relay& relay) override {
        started.insert(relay.id);
        return !fail;
    }
    void stop(Relay& relay) override { started.erase(relay.id); }
    std::set<int32_t> started;
    bool fail = false;
};

Endpoint at(const char* text) {
    return *parseEndpoint(text, 0);
}

TEST(RelayBook, OneRelayPerSessionLivesWhileADirectionIsOpen) {
    PortPool pool(20000, 20015);
    FakeIo io;
    RelayBook book(pool, io);
    int session1 = 0;
    int session2 = 0;
    int32_t forward = 0;
    int32_t reverse = 0;
    Relay* relay = book.open(7, &session1, RelayKind::Media, Outside, Forward,
                             at("198.51.100.7:4000"), at("198.51.100.7:4001"), 10, forward);
    ASSERT_NE(relay, nullptr);
    // Both legs hold a port pair; the destination (inside) is told the inside leg.
    EXPECT_EQ(pool.inUse(), 4u);
    EXPECT_EQ(relay->legFor(Forward), Inside);
    EXPECT_EQ(book.open(7, &session1, RelayKind::Media, Outside, Reverse, at("10.0.0.5:5000"),
                        at("10.0.0.5:5001"), 11, reverse),
              relay);
    EXPECT_NE(reverse, forward);
    int32_t other = 0;
    ASSERT_NE(book.open(7, &session2, RelayKind::Media, Outside, Forward, at("198.51.100.7:4002"),
                        at("198.51.100.7:4003"), 12, other),
              nullptr);
    EXPECT_EQ(book.size(), 2u);

    EXPECT_TRUE(book.close(forward));
    EXPECT_FALSE(book.close(forward)); // already closed
    EXPECT_EQ(book.size(), 2u);        // the reverse direction keeps it
    EXPECT_TRUE(book.close(reverse));
    EXPECT_EQ(book.size(), 1u);
    EXPECT_FALSE(book.close(reverse)); // its relay is gone

    book.releaseCall(7);
    EXPECT_EQ(book.size(), 0u);
    EXPECT_EQ(pool.inUse(), 0u);
    EXPECT_TRUE(io.started.empty());
}

TEST(RelayBook, FailuresGiveThePortsBackAndIdleRelaysExpire) {
    PortPool pool(20000, 20005); // room for one media relay (two pairs) and a pair
    FakeIo io;
    RelayBook book(pool, io);
    int session = 0;
    int32_t handle = 0;
    io.fail = true;
    EXPECT_EQ(book.open(1, &session, RelayKind::Media, Inside, Forward, at("10.0.0.5:5000"),
                        at("10.0.0.5:5001"), 0, handle),
              nullptr);
    EXPECT_EQ(pool.inUse(), 0u);
    io.fail = false;
    ASSERT_NE(book.open(1, &session, RelayKind::Media, Inside, Forward, at("10.0.0.5:5000"),
                        at("10.0.0.5:5001"), 100, handle),
              nullptr);
    int other = 0;
    EXPECT_EQ(book.open(2, &other, RelayKind::Media, Inside, Forward, at("10.0.0.6:5000"),
                        at("10.0.0.6:5001"), 100, handle),
              nullptr); // no second pair left: the one it took goes back
    EXPECT_EQ(pool.inUse(), 4u);

    auto signalling = [](uint64_t call) -> uint64_t { return call == 1 ? 150 : 0; };
    EXPECT_EQ(book.expire(200, 60, signalling), 0u); // the call's signalling keeps it
    EXPECT_EQ(book.expire(210, 60, signalling), 1u);
    EXPECT_EQ(book.size(), 0u);
    EXPECT_EQ(pool.inUse(), 0u);
    EXPECT_FALSE(book.close(handle)); // the library may still close it later
}

TEST(Tpkt, FrameAcrossChunks) {
    const uint8_t payload[] = {1, 2, 3};
    const std::vector<uint8_t> frame = tpktFrame(payload, sizeof payload);
    TpktReader reader(16);
    std::vector<uint8_t> out;
    reader.append(frame.data(), 5); // a header and one byte
    EXPECT_EQ(reader.next(out), TpktReader::Result::NeedMore);
    reader.append(frame.data() + 5, frame.size() - 5);
    ASSERT_EQ(reader.next(out), TpktReader::Result::Frame);
    EXPECT_EQ(out, std::vector<uint8_t>(payload, payload + 3));
}

} // namespace
} // namespace proxy
