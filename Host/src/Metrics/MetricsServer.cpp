#include "Metrics/MetricsServer.h"

#include "Log/Log.h"
#include "Process/StartThread.h"
#include "Transport/Asio.h"

// As in Transport/Asio.h.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnull-dereference"
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#pragma GCC diagnostic pop

#include <cerrno>
#include <chrono>
#include <exception>
#include <sys/socket.h>
#include <thread>
#include <utility>

namespace Host {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using ErrorCode = boost::system::error_code;
using Protocol = asio::generic::stream_protocol;
using Stream = boost::beast::basic_stream<Protocol>;

constexpr std::size_t mostConnections = 8;
constexpr std::chrono::seconds timeLimit{5}; // for a request, and for its answer
constexpr std::uint32_t headerLimit = 8'192;

/// One request and its answer. Keeps itself until the connection closes.
class Conversation : public std::enable_shared_from_this<Conversation>
{
public:
    Conversation(Protocol::socket socket, const MetricsServer::MakeText& makeText,
                 std::shared_ptr<void> place)
        : stream(std::move(socket))
        , makeText(makeText)
        , place(std::move(place))
    {
        parser.header_limit(headerLimit);
        parser.body_limit(0);
    }

    void Start()
    {
        stream.expires_after(timeLimit);
        http::async_read(stream, buffer, parser,
                         [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                             if (!error)
                                 self->Answer();
                         });
    }

private:
    void Answer()
    {
        Fill(parser.get());
        response.keep_alive(false);
        response.prepare_payload();
        stream.expires_after(timeLimit);
        http::async_write(
            stream, response, [self = shared_from_this()](const ErrorCode&, std::size_t) {
                ErrorCode ignored;
                self->stream.socket().shutdown(Protocol::socket::shutdown_send, ignored);
            });
    }

    void Fill(const http::request<http::empty_body>& request)
    {
        if (request.target() != "/metrics")
            response.result(http::status::not_found);
        else if (request.method() != http::verb::get)
            response.result(http::status::method_not_allowed);
        else if (auto text = makeText()) {
            response.set(http::field::content_type, "text/plain; version=0.0.4; charset=utf-8");
            response.body() = std::move(*text);
        } else {
            response.result(http::status::service_unavailable);
        }
    }

    Stream stream;
    const MetricsServer::MakeText& makeText;
    const std::shared_ptr<void> place; ///< among the connections
    boost::beast::flat_buffer buffer{headerLimit};
    http::request_parser<http::empty_body> parser;
    http::response<http::string_body> response;
};

} // namespace

class MetricsServer::Implementation
{
public:
    Implementation(MetricsListener listener, MakeText makeText)
        : makeText(std::move(makeText))
        , acceptor(context)
        , pause(context)
    {
        acceptor.assign(listener.socket.Release());
        WaitForConnection();
        thread = StartThread("to serve metrics", [this] { Run(); });
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    ~Implementation()
    {
        context.stop();
        thread.join();
    }

private:
    void Run()
    {
        while (!context.stopped()) {
            try {
                context.run();
            } catch (const std::exception& error) {
                Log(Core::LogLevel::Error, "Metrics", error.what());
            }
        }
    }

    void WaitForConnection()
    {
        acceptor.async_wait(asio::posix::stream_descriptor::wait_read,
                            [this](const ErrorCode& error) {
                                if (!error)
                                    Accept();
                            });
    }

    /// Without a descriptor for it, the connection waits in the system's queue.
    void WaitLonger()
    {
        pause.expires_after(std::chrono::seconds(1));
        pause.async_wait([this](const ErrorCode&) { WaitForConnection(); });
    }

    /// Closes connections beyond the limit at once.
    void Accept()
    {
        Support::Descriptor accepted(
            accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!accepted.IsOpen() && errno != EAGAIN && errno != ECONNABORTED && errno != EINTR)
            return WaitLonger();
        WaitForConnection();
        if (accepted.IsOpen() && places.use_count() <= static_cast<long>(mostConnections))
            Serve(std::move(accepted));
    }

    void Serve(Support::Descriptor accepted)
    {
        sockaddr_storage address{};
        socklen_t size = sizeof(address);
        if (getsockname(accepted.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
            return;
        Protocol::socket socket(context);
        socket.assign(Protocol(address.ss_family, 0), accepted.Get());
        static_cast<void>(accepted.Release()); // the socket's from here on
        std::make_shared<Conversation>(std::move(socket), makeText, places)->Start();
    }

    const MakeText makeText;
    const std::shared_ptr<void> places = std::make_shared<int>(); ///< held by each connection
    asio::io_context context;                                     // its handlers hold places
    asio::posix::stream_descriptor acceptor;
    asio::steady_timer pause;
    std::thread thread;
};

MetricsServer::MetricsServer(MetricsListener listener, MakeText makeText)
    : implementation(std::make_unique<Implementation>(std::move(listener), std::move(makeText)))
{}

MetricsServer::~MetricsServer() = default;

} // namespace Host
