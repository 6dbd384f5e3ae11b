// voipfilter-proxy: a VoIP proxy for Linux between an inside and an outside network, with the
// library translating every signalling message that crosses.
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <uv.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "config.h"
#include "proxy.h"

namespace {

// Fills in the address of a side that names only its interface: the interface's first IPv4
// address.
bool resolveInterfaces(proxy::Config& config, std::string& error) {
    for (proxy::Side side : {proxy::Inside, proxy::Outside}) {
        if (config.address[side] != 0 || config.interfaceName[side].empty()) {
            continue;
        }
        ifaddrs* list = nullptr;
        if (getifaddrs(&list) != 0) {
            error = "cannot list the network interfaces";
            return false;
        }
        for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
            if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
                config.interfaceName[side] == entry->ifa_name) {
                config.address[side] =
                    reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr;
                break;
            }
        }
        freeifaddrs(list);
        if (config.address[side] == 0) {
            error = "interface " + config.interfaceName[side] + " has no IPv4 address";
            return false;
        }
    }
    return true;
}

struct Signals {
    uv_signal_t terminate;
    uv_signal_t interrupt;
    uv_signal_t counters;
    proxy::Proxy* proxy;
};

void closeSignals(Signals& signals) {
    for (uv_signal_t* handle : {&signals.terminate, &signals.interrupt, &signals.counters}) {
        if (!uv_is_closing(reinterpret_cast<uv_handle_t*>(handle))) {
            uv_close(reinterpret_cast<uv_handle_t*>(handle), nullptr);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    proxy::CommandLine line = proxy::parseCommandLine(argc, argv);
    if (line.showVersion) {
        std::printf("voipfilter-proxy %s\n", VOIPFILTER_VERSION);
        return 0;
    }
    if (line.showHelp) {
        std::fputs(proxy::usageText(), stdout);
        return 0;
    }
    std::string error = line.error;
    if (error.empty() && resolveInterfaces(line.config, error)) {
        error = proxy::validateConfig(line.config);
    }
    if (!error.empty()) {
        std::fprintf(stderr, "voipfilter-proxy: %s\n(see --help)\n", error.c_str());
        return 1;
    }

    std::signal(SIGPIPE, SIG_IGN);
    uv_loop_t* loop = uv_default_loop();
    proxy::Proxy proxy(line.config, loop);
    if (!proxy.start()) {
        proxy.stop();
        uv_run(loop, UV_RUN_DEFAULT);
        return 2;
    }

    Signals signals{};
    signals.proxy = &proxy;
    for (uv_signal_t* handle : {&signals.terminate, &signals.interrupt, &signals.counters}) {
        uv_signal_init(loop, handle);
        handle->data = &signals;
    }
    auto shutdown = [](uv_signal_t* handle, int number) {
        auto& s = *static_cast<Signals*>(handle->data);
        std::fprintf(stderr, "voipfilter-proxy: %s, releasing every call\n", strsignal(number));
        s.proxy->stop();
        closeSignals(s);
    };
    uv_signal_start(&signals.terminate, shutdown, SIGTERM);
    uv_signal_start(&signals.interrupt, shutdown, SIGINT);
    uv_signal_start(
        &signals.counters,
        [](uv_signal_t* handle, int) {
            auto& s = *static_cast<Signals*>(handle->data);
            std::fputs(s.proxy->countersText().c_str(), stderr);
        },
        SIGUSR1);

    uv_run(loop, UV_RUN_DEFAULT);
    std::fputs(proxy.countersText().c_str(), stderr);
    std::fprintf(stderr, "at exit: %zu calls, %zu relays still open\n", proxy.activeCalls(),
                 proxy.openRelays());
    uv_loop_close(loop);
    return 0;
}
