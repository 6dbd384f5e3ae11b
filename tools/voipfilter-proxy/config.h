// The proxy's configuration: one file of "key = value" lines, every key also a command-line
// option (--key value), the command line winning over the file.
#ifndef VOIPFILTER_PROXY_CONFIG_H
#define VOIPFILTER_PROXY_CONFIG_H

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace proxy {

// The firewall's two networks. Index arrays by side.
enum Side : int { Inside = 0, Outside = 1 };
inline Side otherSide(Side side) {
    return side == Inside ? Outside : Inside;
}
const char* sideName(Side side);

// An IPv4 address and port in network byte order (port 0 when none was given).
struct Endpoint {
    uint32_t ip = 0; // network order
    uint16_t port = 0;
    bool operator==(const Endpoint& o) const { return ip == o.ip && port == o.port; }
    bool operator<(const Endpoint& o) const { return ip != o.ip ? ip < o.ip : port < o.port; }
};

// "A.B.C.D" or "A.B.C.D:PORT"; a missing port gives defaultPort.
std::optional<Endpoint> parseEndpoint(const std::string& text, uint16_t defaultPort);
std::string endpointText(const Endpoint& endpoint);

struct Config {
    std::string interfaceName[2]; // optional; the address is taken from it when not given
    uint32_t address[2] = {0, 0}; // the proxy's own address on each side, network order

    uint16_t sipPort = 5060;
    uint16_t h323Port = 1720;
    uint16_t rasPort = 1719;
    uint16_t rasDiscoveryPort = 1718;

    // Where a message that arrives on one side goes on the other: sipPeer[Outside] receives what
    // inside phones send, sipPeer[Inside] what comes from outside. Unset (ip 0) refuses.
    Endpoint sipPeer[2];
    Endpoint h323Peer[2];
    Endpoint gatekeeper[2];

    uint16_t portLow = 20000; // relays take their ports from this range
    uint16_t portHigh = 29999;
    unsigned mediaTimeout = 60;         // seconds without a packet before a relay is freed
    unsigned callTimeout = 300;         // seconds without signalling before a call is released
    unsigned registrationTimeout = 900; // seconds without RAS before an association ends
    unsigned maxFrame = 65531;          // largest H.225 / H.245 message carried, in bytes
    std::vector<std::string> deniedCodecs;
    int logLevel = 1;
};

// Applies one setting; key may use '-' or '_'. Returns an error text, empty on success.
std::string applySetting(Config& config, const std::string& key, const std::string& value);

// Applies a configuration file's text; errors name the line.
std::string applyConfigText(Config& config, const std::string& text);

// The checks that need the whole configuration (addresses present, port range sane).
std::string validateConfig(const Config& config);

// Command line: -c/--config FILE, --KEY VALUE or --KEY=VALUE for every setting, --version,
// --help. The file is read first, the other options override it.
struct CommandLine {
    Config config;
    bool showVersion = false;
    bool showHelp = false;
    std::string error;
};
CommandLine parseCommandLine(int argc, const char* const* argv);

const char* usageText();

} // namespace proxy

#endif
