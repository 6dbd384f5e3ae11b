#include "config.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

namespace proxy {

const char* sideName(Side side) {
    return side == Inside ? "inside" : "outside";
}

namespace {

std::string trim(const std::string& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) {
        ++begin;
    }
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    return text.substr(begin, end - begin);
}

std::optional<unsigned long> parseNumber(const std::string& text, unsigned long max) {
    if (text.empty() || text.size() > 10 || !std::all_of(text.begin(), text.end(), [](char c) {
            return std::isdigit(static_cast<unsigned char>(c));
        })) {
        return std::nullopt;
    }
    unsigned long value = std::stoul(text);
    if (value > max) {
        return std::nullopt;
    }
    return value;
}

std::optional<uint32_t> parseIp(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return address.s_addr;
}

// The sided settings: NAME_inside / NAME_outside (and inside_NAME / outside_NAME for the two
// address settings, which read better that way round).
bool sidedKey(const std::string& key, const std::string& name, Side& side) {
    if (key == name + "_inside" || key == "inside_" + name) {
        side = Inside;
        return true;
    }
    if (key == name + "_outside" || key == "outside_" + name) {
        side = Outside;
        return true;
    }
    return false;
}

std::string setPort(uint16_t& port, const std::string& value) {
    std::optional<unsigned long> number = parseNumber(value, 65535);
    if (!number || *number == 0) {
        return "expects a port from 1 to 65535";
    }
    port = static_cast<uint16_t>(*number);
    return "";
}

std::string setSeconds(unsigned& seconds, const std::string& value) {
    std::optional<unsigned long> number = parseNumber(value, 86400 * 30);
    if (!number || *number == 0) {
        return "expects a number of seconds (1 or more)";
    }
    seconds = static_cast<unsigned>(*number);
    return "";
}

std::string setPeer(Endpoint& peer, const std::string& value, uint16_t defaultPort) {
    std::optional<Endpoint> endpoint = parseEndpoint(value, defaultPort);
    if (!endpoint) {
        return "expects an IPv4 address with an optional :PORT";
    }
    peer = *endpoint;
    return "";
}

} // namespace

std::optional<Endpoint> parseEndpoint(const std::string& text, uint16_t defaultPort) {
    std::string host = text;
    uint16_t port = defaultPort;
    size_t colon = text.find(':');
    if (colon != std::string::npos) {
        host = text.substr(0, colon);
        std::optional<unsigned long> number = parseNumber(text.substr(colon + 1), 65535);
        if (!number || *number == 0) {
            return std::nullopt;
        }
        port = static_cast<uint16_t>(*number);
    }
    std::optional<uint32_t> ip = parseIp(host);
    if (!ip) {
        return std::nullopt;
    }
    return Endpoint{*ip, htons(port)};
}

std::string endpointText(const Endpoint& endpoint) {
    char text[INET_ADDRSTRLEN] = "";
    in_addr address{};
    address.s_addr = endpoint.ip;
    inet_ntop(AF_INET, &address, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(endpoint.port));
}

std::string applySetting(Config& config, const std::string& rawKey, const std::string& rawValue) {
    std::string key = trim(rawKey);
    std::replace(key.begin(), key.end(), '-', '_');
    const std::string value = trim(rawValue);
    std::string error;
    Side side = Inside;
    if (sidedKey(key, "interface", side)) {
        if (value.empty()) {
            error = "expects an interface name";
        }
        config.interfaceName[side] = value;
    } else if (sidedKey(key, "address", side)) {
        std::optional<uint32_t> ip = parseIp(value);
        if (!ip || *ip == 0) {
            error = "expects an IPv4 address";
        } else {
            config.address[side] = *ip;
        }
    } else if (sidedKey(key, "sip_peer", side)) {
        error = setPeer(config.sipPeer[side], value, 5060);
    } else if (sidedKey(key, "h323_peer", side)) {
        error = setPeer(config.h323Peer[side], value, 1720);
    } else if (sidedKey(key, "gatekeeper", side)) {
        error = setPeer(config.gatekeeper[side], value, 1719);
    } else if (key == "sip_port") {
        error = setPort(config.sipPort, value);
    } else if (key == "h323_port") {
        error = setPort(config.h323Port, value);
    } else if (key == "ras_port") {
        error = setPort(config.rasPort, value);
    } else if (key == "ras_discovery_port") {
        error = setPort(config.rasDiscoveryPort, value);
    } else if (key == "media_ports") {
        size_t dash = value.find('-');
        std::optional<unsigned long> low, high;
        if (dash != std::string::npos) {
            low = parseNumber(trim(value.substr(0, dash)), 65535);
            high = parseNumber(trim(value.substr(dash + 1)), 65535);
        }
        if (!low || !high || *low < 1024 || *high < *low + 3) {
            error = "expects LOW-HIGH, from 1024 up, at least four ports";
        } else {
            config.portLow = static_cast<uint16_t>(*low);
            config.portHigh = static_cast<uint16_t>(*high);
        }
    } else if (key == "media_timeout") {
        error = setSeconds(config.mediaTimeout, value);
    } else if (key == "call_timeout") {
        error = setSeconds(config.callTimeout, value);
    } else if (key == "registration_timeout") {
        error = setSeconds(config.registrationTimeout, value);
    } else if (key == "max_frame") {
        std::optional<unsigned long> number = parseNumber(value, 65531);
        if (!number || *number < 64) {
            error = "expects a size in bytes from 64 to 65531";
        } else {
            config.maxFrame = static_cast<unsigned>(*number);
        }
    } else if (key == "deny_codec") {
        std::stringstream list(value);
        std::string codec;
        while (std::getline(list, codec, ',')) {
            codec = trim(codec);
            if (!codec.empty()) {
                config.deniedCodecs.push_back(codec);
            }
        }
    } else if (key == "log_level") {
        std::optional<unsigned long> number = parseNumber(value, 5);
        if (!number) {
            error = "expects a level from 0 to 5";
        } else {
            config.logLevel = static_cast<int>(*number);
        }
    } else {
        return "unknown setting '" + key + "'";
    }
    return error.empty() ? "" : key + " " + error + " (got '" + value + "')";
}

std::string applyConfigText(Config& config, const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        size_t hash = line.find('#');
        if (hash != std::string::npos) {
            line.erase(hash);
        }
        if (trim(line).empty()) {
            continue;
        }
        size_t equals = line.find('=');
        if (equals == std::string::npos) {
            return "line " + std::to_string(number) + ": expected key = value";
        }
        std::string error = applySetting(config, line.substr(0, equals), line.substr(equals + 1));
        if (!error.empty()) {
            return "line " + std::to_string(number) + ": " + error;
        }
    }
    return "";
}

std::string validateConfig(const Config& config) {
    for (Side side : {Inside, Outside}) {
        if (config.address[side] == 0) {
            return std::string("no ") + sideName(side) + " address (set " + sideName(side) +
                   "_address or " + sideName(side) + "_interface)";
        }
    }
    if (config.address[Inside] == config.address[Outside]) {
        return "inside and outside addresses are the same";
    }
    return "";
}

CommandLine parseCommandLine(int argc, const char* const* argv) {
    CommandLine result;
    std::string configFile;
    std::vector<std::pair<std::string, std::string>> overrides;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--version") {
            result.showVersion = true;
        } else if (arg == "-h" || arg == "--help") {
            result.showHelp = true;
        } else if (arg == "-c" || arg == "--config") {
            if (i + 1 >= argc) {
                result.error = arg + " needs a file name";
                return result;
            }
            configFile = argv[++i];
        } else if (arg.size() > 2 && arg.compare(0, 2, "--") == 0) {
            std::string key = arg.substr(2);
            std::string value;
            size_t equals = key.find('=');
            if (equals != std::string::npos) {
                value = key.substr(equals + 1);
                key.erase(equals);
            } else if (i + 1 < argc) {
                value = argv[++i];
            } else {
                result.error = arg + " needs a value";
                return result;
            }
            overrides.emplace_back(key, value);
        } else {
            result.error = "unexpected argument '" + arg + "'";
            return result;
        }
    }
    if (result.showVersion || result.showHelp) {
        return result;
    }
    if (!configFile.empty()) {
        std::ifstream file(configFile);
        if (!file) {
            result.error = "cannot read " + configFile;
            return result;
        }
        std::stringstream text;
        text << file.rdbuf();
        std::string error = applyConfigText(result.config, text.str());
        if (!error.empty()) {
            result.error = configFile + ": " + error;
            return result;
        }
    }
    for (const auto& [key, value] : overrides) {
        std::string error = applySetting(result.config, key, value);
        if (!error.empty()) {
            result.error = "--" + error;
            return result;
        }
    }
    return result;
}

const char* usageText() {
    return "usage: voipfilter-proxy [-c FILE] [--SETTING VALUE]...\n"
           "       voipfilter-proxy --version | --help\n"
           "\n"
           "A VoIP proxy between an inside and an outside network: SIP over UDP, H.323 call\n"
           "signalling with separate H.245, RAS, and relays for the media the calls negotiate.\n"
           "Every setting of the configuration file (see voipfilter-proxy(8)) can be given on\n"
           "the command line and wins over the file, e.g.\n"
           "  --inside-address 10.0.0.1 --outside-address 203.0.113.1\n"
           "  --sip-peer-outside 198.51.100.7 --media-ports 20000-29999 --log-level 2\n"
           "\n"
           "signals: SIGUSR1 prints the counters, SIGTERM or SIGINT releases every call and\n"
           "exits (printing the counters).\n";
}

} // namespace proxy
