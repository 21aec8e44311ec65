#include "linux_usercommon/BusProbe.h"

#include <fmt/format.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/write.hpp>
#include <iterator>
#include <string_view>
#include <utility>

namespace cmn {

namespace {

using boost::asio::local::stream_protocol;
using ErrorCode = boost::system::error_code;

constexpr std::size_t kLongestAnswer = 4096;

constexpr std::chrono::milliseconds kPauseBetweenQuestions{10};

// Of a message, the part of a fixed size.
constexpr std::size_t kHeaderSize = 16;

// The opening of the authentication: a NUL, then the user id in hexadecimal digits of its decimal text.
std::string AuthenticationRequest() {
    const std::string user = fmt::format("{}", ::getuid());
    std::string request("\0AUTH EXTERNAL ", 15);
    for (const char digit : user) {
        fmt::format_to(std::back_inserter(request), "{:02x}", static_cast<unsigned char>(digit));
    }
    return request + "\r\n";
}

void AppendNumber(std::string& bytes, std::size_t number) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>((number >> shift) & 0xFFU);
    }
}

void Align(std::string& bytes) {
    bytes.resize((bytes.size() + 7) / 8 * 8, '\0');
}

void AppendField(std::string& fields, char code, char type, std::string_view text) {
    Align(fields);
    fields.append({code, '\1', type, '\0'});
    AppendNumber(fields, text.size());
    fields.append(text).append(1, '\0');
}

// The end of the authentication, and the call with which every client of a bus begins: little endian, a
// method call, no flags, version 1; no body, serial number 1; path, interface, member and destination.
std::string HelloRequest() {
    std::string fields;
    AppendField(fields, 1, 'o', "/org/freedesktop/DBus");
    AppendField(fields, 2, 's', "org.freedesktop.DBus");
    AppendField(fields, 3, 's', "Hello");
    AppendField(fields, 6, 's', "org.freedesktop.DBus");
    std::string call("l\1\0\1", 4);
    AppendNumber(call, 0);
    AppendNumber(call, 1);
    AppendNumber(call, fields.size());
    call += fields;
    Align(call);
    return "BEGIN\r\n" + call;
}

// Whether a message begins like an answer, be it an error.
bool IsAnswer(std::string_view message) {
    constexpr char kMethodReturn = 2;
    constexpr char kError = 3;
    return (message[0] == 'l' || message[0] == 'B') &&
           (message[1] == kMethodReturn || message[1] == kError) && message[3] == 1;
}

// Lives as long as its operations.
class Probe : public std::enable_shared_from_this<Probe> {
 public:
    Probe(boost::asio::io_context& context, std::vector<BusAddress> addresses,
          std::chrono::milliseconds deadline, BusProbeHandler handler)
        : strand_(boost::asio::make_strand(context)),
          socket_(strand_),
          timer_(strand_),
          addresses_(std::move(addresses)),
          deadline_(deadline),
          handler_(std::move(handler)) {}

    void start() {
        boost::asio::dispatch(strand_, [self = shared_from_this()] { self->tryNext(); });
    }

 private:
    void tryNext() {
        if (next_ == addresses_.size()) {
            handler_(
                {std::nullopt, addresses_.empty() ? "no local socket is known for it" : failure_, false});
            return;
        }
        const std::string& name = addresses_[next_].socketName;
        if (name.size() >= sizeof(sockaddr_un::sun_path)) {
            fail("the socket's name is too long");
            return;
        }
        timer_.expires_after(deadline_);
        timer_.async_wait([self = shared_from_this(), attempt = next_](const ErrorCode& error) {
            if (!error && self->next_ == attempt) {
                self->timedOut_ = true;
                ErrorCode ignored;
                self->socket_.close(ignored);
            }
        });
        socket_.async_connect(
            stream_protocol::endpoint(name),
            [self = shared_from_this()](const ErrorCode& error) { self->proceed(error, &Probe::ask); });
    }

    void proceed(const ErrorCode& error, void (Probe::*next)()) {
        if (error) {
            fail(error.message());
        } else {
            (this->*next)();
        }
    }

    void ask() { send(authentication_, &Probe::listen); }

    void send(const std::string& request, void (Probe::*next)()) {
        boost::asio::async_write(socket_, boost::asio::buffer(request),
                                 [self = shared_from_this(), next](const ErrorCode& error, std::size_t) {
                                     self->proceed(error, next);
                                 });
    }

    void listen() {
        boost::asio::async_read_until(socket_, boost::asio::dynamic_buffer(answer_, kLongestAnswer), "\r\n",
                                      [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                                          self->proceed(error, &Probe::judge);
                                      });
    }

    void judge() {
        if (answer_.starts_with("OK")) {
            send(hello_, &Probe::listenForHello);
        } else if (answer_.starts_with("REJECTED")) {
            succeed(false);  // a bus that wants another kind of authentication is alive, too
        } else {
            fail("what answers is not a message bus");
        }
    }

    void listenForHello() {
        answer_.assign(kHeaderSize, '\0');
        boost::asio::async_read(socket_, boost::asio::buffer(answer_),
                                [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                                    self->proceed(error, &Probe::judgeHello);
                                });
    }

    void judgeHello() {
        if (IsAnswer(answer_)) {
            succeed(true);
        } else {
            fail("what answers is not a message bus");
        }
    }

    void succeed(bool saidHello) {
        timer_.cancel();
        handler_({addresses_[next_].address, {}, saidHello});
    }

    void fail(const std::string& why) {
        timer_.cancel();
        if (!failure_.empty()) {
            failure_ += "; ";
        }
        failure_ += fmt::format("{}: {}", addresses_[next_].address,
                                timedOut_ ? fmt::format("no answer within {} ms", deadline_.count()) : why);
        timedOut_ = false;
        answer_.clear();
        ErrorCode ignored;
        socket_.close(ignored);
        ++next_;
        tryNext();
    }

    boost::asio::strand<boost::asio::io_context::executor_type> strand_;
    stream_protocol::socket socket_;
    boost::asio::steady_timer timer_;
    const std::vector<BusAddress> addresses_;
    const std::chrono::milliseconds deadline_;
    const BusProbeHandler handler_;
    const std::string authentication_ = AuthenticationRequest();
    const std::string hello_ = HelloRequest();
    std::string answer_;
    std::string failure_;
    std::size_t next_ = 0;
    bool timedOut_ = false;
};

}  // namespace

void ProbeBus(const std::shared_ptr<TaskPool>& pool, std::vector<BusAddress> addresses,
              std::chrono::milliseconds deadline, BusProbeHandler handler) {
    // Started on the pool: there its context is known to be alive.
    pool->post([pool = std::weak_ptr(pool), addresses = std::move(addresses), deadline,
                handler = std::move(handler)]() mutable {
        if (const auto alive = pool.lock()) {
            std::make_shared<Probe>(alive->context(), std::move(addresses), deadline, std::move(handler))
                ->start();
        }
    });
}

BusProbeResult ProbeBus(std::vector<BusAddress> addresses, std::chrono::milliseconds deadline,
                        const std::function<bool()>& goOn) {
    BusProbeResult result{std::nullopt, "nobody waits for it any more", false};
    boost::asio::io_context context;
    std::make_shared<Probe>(context, std::move(addresses), deadline, [&result](const BusProbeResult& found) {
        result = found;
    })->start();
    while (!context.stopped() && goOn()) {
        context.run_for(kPauseBetweenQuestions);
    }
    return result;
}

}  // namespace cmn
