// Sockets on the libuv loop. Each libuv handle is allocated on its own and freed by its close
// callback, so the C++ object that owns it can be destroyed at any time, even from inside one of
// its own callbacks (it then must not be touched after the callback returns).
#ifndef VOIPFILTER_PROXY_NET_H
#define VOIPFILTER_PROXY_NET_H

#include <uv.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <voipfilter/voipfilter.h>

#include "config.h"

namespace proxy {

sockaddr_in toSockaddr(const Endpoint& endpoint);
Endpoint fromSockaddr(const sockaddr_in& address);
sockaddr_type toLibraryAddress(const Endpoint& endpoint);
// Only IPv4 addresses can be relayed; anything else gives nothing.
std::optional<Endpoint> fromLibraryAddress(const sockaddr_type& address);

class UdpSocket {
public:
    using Receive = std::function<void(const Endpoint& from, const uint8_t* data, size_t length)>;
    // Binds local; ok() tells whether that worked. receive must not destroy this socket.
    UdpSocket(uv_loop_t* loop, const Endpoint& local, Receive receive);
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    bool ok() const { return error_ == 0; }
    // (uv_strerror allocates a text for codes it does not know, such as 0.)
    const char* error() const { return error_ == 0 ? "" : uv_strerror(error_); }
    // Sends at once or not at all (a full socket buffer drops the datagram, as the network may).
    bool send(const Endpoint& to, const uint8_t* data, size_t length);

private:
    static void onReceive(uv_udp_t* handle, ssize_t length, const uv_buf_t* buffer,
                          const sockaddr* from, unsigned flags);
    uv_udp_t* handle_;
    Receive receive_;
    int error_ = 0;
};

class TcpConnection {
public:
    using Data = std::function<void(const uint8_t* data, size_t length)>;
    using Closed = std::function<void()>;
    using Connected = std::function<void(bool ok)>;

    explicit TcpConnection(uv_loop_t* loop);
    ~TcpConnection();
    TcpConnection(const TcpConnection&) = delete;
    TcpConnection& operator=(const TcpConnection&) = delete;

    uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(handle_); }
    // Connects from the local address (port chosen by the system) to remote.
    bool connect(const Endpoint& local, const Endpoint& remote, Connected connected);
    // Starts reading: data for every chunk received, closed once at the end of the stream or on
    // an error.
    void start(Data data, Closed closed);
    // Queues bytes; false when the peer does not keep up (more than a few megabytes queued).
    bool write(const uint8_t* data, size_t length);
    Endpoint peer() const;
    Endpoint local() const;

private:
    static void onRead(uv_stream_t* stream, ssize_t length, const uv_buf_t* buffer);
    uv_tcp_t* handle_;
    Data data_;
    Closed closed_;
    Connected connected_;
};

class TcpListener {
public:
    using Accept = std::function<void(std::unique_ptr<TcpConnection> connection)>;
    TcpListener(uv_loop_t* loop, const Endpoint& local, Accept accept);
    ~TcpListener();
    TcpListener(const TcpListener&) = delete;
    TcpListener& operator=(const TcpListener&) = delete;

    bool ok() const { return error_ == 0; }
    // (uv_strerror allocates a text for codes it does not know, such as 0.)
    const char* error() const { return error_ == 0 ? "" : uv_strerror(error_); }

private:
    uv_tcp_t* handle_;
    uv_loop_t* loop_;
    Accept accept_;
    int error_ = 0;
};

// Two TCP connections joined: what one receives the other sends. The outgoing one is connected
// by the splice; bytes that arrive before it is up wait.
class TcpSplice {
public:
    // activity is called for every chunk relayed, ended once when either side closes.
    TcpSplice(uv_loop_t* loop, std::unique_ptr<TcpConnection> accepted, const Endpoint& local,
              const Endpoint& remote, std::function<void()> activity, std::function<void()> ended);
    bool ended() const { return ended_; }

private:
    void end();
    std::unique_ptr<TcpConnection> accepted_;
    std::unique_ptr<TcpConnection> outgoing_;
    std::vector<uint8_t> pending_;
    bool up_ = false;
    bool ended_ = false;
    std::function<void()> activity_;
    std::function<void()> onEnded_;
};

} // namespace proxy

#endif
