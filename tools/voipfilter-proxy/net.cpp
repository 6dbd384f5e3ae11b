#include "net.h"

#include <cstring>

namespace proxy {

namespace {

// Every read lands in this buffer: the loop is single-threaded and each read callback is done
// with the bytes before the next read.
uint8_t receiveBuffer[65536];

void allocate(uv_handle_t*, size_t, uv_buf_t* buffer) {
    *buffer = uv_buf_init(reinterpret_cast<char*>(receiveBuffer), sizeof receiveBuffer);
}

template <typename Handle> Handle* newHandle(void* owner) {
    auto* any = new uv_any_handle;
    std::memset(any, 0, sizeof *any);
    auto* handle = reinterpret_cast<Handle*>(any);
    handle->data = owner;
    return handle;
}

void closeHandle(uv_handle_t* handle) {
    handle->data = nullptr;
    if (!uv_is_closing(handle)) {
        uv_close(handle,
                 [](uv_handle_t* closed) { delete reinterpret_cast<uv_any_handle*>(closed); });
    }
}

constexpr size_t kMaxQueued = 4 * 1024 * 1024;

} // namespace

sockaddr_in toSockaddr(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = endpoint.ip;
    address.sin_port = endpoint.port;
    return address;
}

Endpoint fromSockaddr(const sockaddr_in& address) {
    return Endpoint{address.sin_addr.s_addr, address.sin_port};
}

sockaddr_type toLibraryAddress(const Endpoint& endpoint) {
    sockaddr_type address{};
    address.family = VOIPXLATE_FAMILY_IPV4;
    address.port = endpoint.port; // both in network order
    std::memcpy(address.addr, &endpoint.ip, 4);
    return address;
}

std::optional<Endpoint> fromLibraryAddress(const sockaddr_type& address) {
    if (address.family != VOIPXLATE_FAMILY_IPV4) {
        return std::nullopt;
    }
    Endpoint endpoint;
    std::memcpy(&endpoint.ip, address.addr, 4);
    endpoint.port = address.port;
    return endpoint;
}

UdpSocket::UdpSocket(uv_loop_t* loop, const Endpoint& local, Receive receive)
    : handle_(newHandle<uv_udp_t>(this)), receive_(std::move(receive)) {
    uv_udp_init(loop, handle_);
    sockaddr_in address = toSockaddr(local);
    error_ = uv_udp_bind(handle_, reinterpret_cast<const sockaddr*>(&address), 0);
    if (error_ == 0) {
        error_ = uv_udp_recv_start(handle_, allocate, onReceive);
    }
}

UdpSocket::~UdpSocket() {
    closeHandle(reinterpret_cast<uv_handle_t*>(handle_));
}

void UdpSocket::onReceive(uv_udp_t* handle, ssize_t length, const uv_buf_t* buffer,
                          const sockaddr* from, unsigned /*flags*/) {
    auto* self = static_cast<UdpSocket*>(handle->data);
    if (self == nullptr || length < 0 || from == nullptr || from->sa_family != AF_INET) {
        return;
    }
    self->receive_(fromSockaddr(*reinterpret_cast<const sockaddr_in*>(from)),
                   reinterpret_cast<const uint8_t*>(buffer->base), static_cast<size_t>(length));
}

bool UdpSocket::send(const Endpoint& to, const uint8_t* data, size_t length) {
    sockaddr_in address = toSockaddr(to);
    uv_buf_t buffer = uv_buf_init(const_cast<char*>(reinterpret_cast<const char*>(data)),
                                  static_cast<unsigned>(length));
    return uv_udp_try_send(handle_, &buffer, 1, reinterpret_cast<const sockaddr*>(&address)) >= 0;
}

TcpConnection::TcpConnection(uv_loop_t* loop) : handle_(newHandle<uv_tcp_t>(this)) {
    uv_tcp_init(loop, handle_);
}

TcpConnection::~TcpConnection() {
    closeHandle(reinterpret_cast<uv_handle_t*>(handle_));
}

bool TcpConnection::connect(const Endpoint& local, const Endpoint& remote, Connected connected) {
    connected_ = std::move(connected);
    sockaddr_in from = toSockaddr(Endpoint{local.ip, 0});
    sockaddr_in to = toSockaddr(remote);
    if (uv_tcp_bind(handle_, reinterpret_cast<const sockaddr*>(&from), 0) != 0) {
        return false;
    }
    auto* request = new uv_connect_t;
    int error = uv_tcp_connect(request, handle_, reinterpret_cast<const sockaddr*>(&to),
                               [](uv_connect_t* done, int status) {
                                   // A connection closed while connecting is reported here as
                                   // cancelled; its owner is gone.
                                   auto* self =
                                       status == UV_ECANCELED
                                           ? nullptr
                                           : static_cast<TcpConnection*>(done->handle->data);
                                   delete done;
                                   if (self != nullptr) {
                                       Connected callback = self->connected_;
                                       callback(status == 0);
                                   }
                               });
    if (error != 0) {
        delete request;
        return false;
    }
    return true;
}

void TcpConnection::start(Data data, Closed closed) {
    data_ = std::move(data);
    closed_ = std::move(closed);
    uv_tcp_nodelay(handle_, 1);
    uv_tcp_keepalive(handle_, 1, 60);
    if (uv_read_start(stream(), allocate, onRead) != 0) {
        Closed callback = closed_;
        callback();
    }
}

void TcpConnection::onRead(uv_stream_t* stream, ssize_t length, const uv_buf_t* buffer) {
    auto* self = static_cast<TcpConnection*>(stream->data);
    if (self == nullptr || length == 0) {
        return;
    }
    // The handlers may destroy this connection: they run on copies and nothing is touched after.
    if (length < 0) {
        Closed callback = self->closed_;
        callback();
        return;
    }
    Data callback = self->data_;
    callback(reinterpret_cast<const uint8_t*>(buffer->base), static_cast<size_t>(length));
}

bool TcpConnection::write(const uint8_t* data, size_t length) {
    if (uv_stream_get_write_queue_size(stream()) > kMaxQueued) {
        return false;
    }
    struct Write {
        uv_write_t request;
        std::vector<uint8_t> bytes;
    };
    auto* write = new Write{{}, std::vector<uint8_t>(data, data + length)};
    write->request.data = write;
    uv_buf_t buffer = uv_buf_init(reinterpret_cast<char*>(write->bytes.data()),
                                  static_cast<unsigned>(write->bytes.size()));
    if (uv_write(&write->request, stream(), &buffer, 1,
                 [](uv_write_t* done, int) { delete static_cast<Write*>(done->data); }) != 0) {
        delete write;
        return false;
    }
    return true;
}

Endpoint TcpConnection::peer() const {
    sockaddr_storage address{};
    int length = sizeof address;
    if (uv_tcp_getpeername(handle_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        address.ss_family != AF_INET) {
        return Endpoint{};
    }
    return fromSockaddr(*reinterpret_cast<const sockaddr_in*>(&address));
}

Endpoint TcpConnection::local() const {
    sockaddr_storage address{};
    int length = sizeof address;
    if (uv_tcp_getsockname(handle_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        address.ss_family != AF_INET) {
        return Endpoint{};
    }
    return fromSockaddr(*reinterpret_cast<const sockaddr_in*>(&address));
}

TcpListener::TcpListener(uv_loop_t* loop, const Endpoint& local, Accept accept)
    : handle_(newHandle<uv_tcp_t>(this)), loop_(loop), accept_(std::move(accept)) {
    uv_tcp_init(loop, handle_);
    sockaddr_in address = toSockaddr(local);
    error_ = uv_tcp_bind(handle_, reinterpret_cast<const sockaddr*>(&address), 0);
    if (error_ == 0) {
        error_ = uv_listen(
            reinterpret_cast<uv_stream_t*>(handle_), 128, [](uv_stream_t* server, int status) {
                auto* self = static_cast<TcpListener*>(server->data);
                if (self == nullptr || status < 0) {
                    return;
                }
                auto connection = std::make_unique<TcpConnection>(self->loop_);
                if (uv_accept(server, connection->stream()) != 0) {
                    return;
                }
                Accept callback = self->accept_; // the handler may destroy the listener
                callback(std::move(connection));
            });
    }
}

TcpListener::~TcpListener() {
    closeHandle(reinterpret_cast<uv_handle_t*>(handle_));
}

TcpSplice::TcpSplice(uv_loop_t* loop, std::unique_ptr<TcpConnection> accepted,
                     const Endpoint& local, const Endpoint& remote, std::function<void()> activity,
                     std::function<void()> ended)
    : accepted_(std::move(accepted)), outgoing_(std::make_unique<TcpConnection>(loop)),
      activity_(std::move(activity)), onEnded_(std::move(ended)) {
    accepted_->start(
        [this](const uint8_t* data, size_t length) {
            activity_();
            if (!up_) {
                pending_.insert(pending_.end(), data, data + length);
                if (pending_.size() > kMaxQueued) {
                    end();
                }
            } else if (!outgoing_->write(data, length)) {
                end();
            }
        },
        [this] { end(); });
    bool started = outgoing_->connect(local, remote, [this](bool ok) {
        if (!ok) {
            end();
            return;
        }
        up_ = true;
        outgoing_->start(
            [this](const uint8_t* data, size_t length) {
                activity_();
                if (!accepted_->write(data, length)) {
                    end();
                }
            },
            [this] { end(); });
        if (!pending_.empty() && !outgoing_->write(pending_.data(), pending_.size())) {
            end();
        }
        pending_.clear();
    });
    if (!started) {
        ended_ = true;
        accepted_.reset();
        outgoing_.reset();
    }
}

void TcpSplice::end() {
    if (ended_) {
        return;
    }
    ended_ = true;
    accepted_.reset();
    outgoing_.reset();
    onEnded_();
}

} // namespace proxy
