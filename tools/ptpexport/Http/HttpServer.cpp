#include "tools/ptpexport/Http/HttpServer.h"

#include <microhttpd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Holt/Failure.h"
#include "tools/ptpexport/Http/Host.h"

namespace Ptpexport {

namespace {

/// Bytes that a body renders at a time, at most.
constexpr std::size_t slice = std::size_t(1) << 15;
/// Connections that are accepted in one turn, so that a flood of them does not occupy the loop.
constexpr int acceptedInATurn = 16;
/// Nanoseconds to wait when the process has no descriptor left.
constexpr U64 exhaustedPause = 100'000'000;

constexpr char busy[] =
      "HTTP/1.1 503 Service Unavailable\r\n"
      "Content-Type: text/plain; charset=utf-8\r\n"
      "Retry-After: 1\r\n"
      "Connection: close\r\n"
      "Content-Length: 17\r\n"
      "\r\n"
      "too many clients\n";

}  // namespace

/// One request and its answer.
struct HttpServer::Exchange final : Request {
   std::string header(char const* name) const override {
      char const* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
      return value != nullptr ? value : "";
   }

   /// Whether the connection can be used for another request after this one.
   bool mayKeep(std::string const& method) const {
      return (method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD) && !hasBody();
   }
   bool hasBody() const {
      std::string const length = header(MHD_HTTP_HEADER_CONTENT_LENGTH);
      return !header(MHD_HTTP_HEADER_TRANSFER_ENCODING).empty() ||
             (!length.empty() && length != "0");
   }

   MHD_Connection* connection = nullptr;
   /// Whether the headers have been looked at.
   bool begun = false;
   /// The target as it was sent.
   std::string raw;
};

/// A body that libmicrohttpd reads; it outlives neither its answer nor its connection.
struct HttpServer::Reading {
   std::unique_ptr<Body> body;
   HttpServer& server;
   MHD_Connection* connection;
   Visit& visit;
   /// Whether libmicrohttpd does not read until it is woken.
   bool suspended = false;
   /// Whether `wake` was called since the last read began.
   bool woken = false;

   void wake() {
      woken = true;
      if (suspended) {
         suspended = false;
         visit.ends = server.now() + server.options_.stall;
         MHD_resume_connection(connection);
      }
   }
};

struct HttpServer::Callbacks {
   static void said(void* self, char const* format, va_list arguments) {
      char text[512];
      std::vsnprintf(text, sizeof text, format, arguments);
      static_cast<HttpServer*>(self)->said_ = text;
   }

   static void* begun(void*, char const* uri, MHD_Connection* connection) {
      auto* const exchange = new Exchange;
      exchange->connection = connection;
      exchange->raw = uri;
      return exchange;
   }

   static Visit& visitOf(MHD_Connection* connection) {
      return *static_cast<Visit*>(
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)
                  ->socket_context);
   }

   static MHD_Result asked(void* self, MHD_Connection* connection, char const*, char const* method,
                           char const*, char const*, std::size_t* uploaded, void** state) {
      HttpServer& server = *static_cast<HttpServer*>(self);
      if (*state == nullptr || *uploaded != 0) {
         return MHD_NO;
      }
      Exchange& exchange = *static_cast<Exchange*>(*state);
      exchange.connection = connection;
      // An answer to the first call, which comes before the body of a request, closes the
      // connection. The second comes at once if there is no body.
      if (!exchange.begun && exchange.mayKeep(method)) {
         exchange.begun = true;
         return MHD_YES;
      }
      ++server.counters_.requests;
      return server.queue(connection, visitOf(connection), server.replyTo(exchange, method))
                   ? MHD_YES
                   : MHD_NO;
   }

   static void completed(void* self, MHD_Connection* connection, void** state,
                         MHD_RequestTerminationCode) {
      HttpServer const& server = *static_cast<HttpServer*>(self);
      Visit& visit = visitOf(connection);
      visit.phase = Visit::Phase::asking;
      visit.ends = server.now() + server.options_.idle;
      delete static_cast<Exchange*>(*state);
      *state = nullptr;
   }

   static void connected(void* self, MHD_Connection* connection, void** context,
                         MHD_ConnectionNotificationCode code) {
      HttpServer& server = *static_cast<HttpServer*>(self);
      if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
         std::erase_if(server.visits_,
                       [context](Visit const& visit) { return &visit == *context; });
         return;
      }
      int const fd =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
      server.visits_.push_back({.fd = fd, .ends = server.now() + server.options_.request});
      *context = &server.visits_.back();
   }

   static ssize_t read(void* state, std::uint64_t, char* into, std::size_t room) {
      Reading& reading = *static_cast<Reading*>(state);
      if (reading.visit.phase == Visit::Phase::endless) {
         reading.visit.ends = reading.server.now() + reading.server.options_.stall;
      }
      reading.woken = false;
      std::size_t size = 0;
      try {
         size = reading.body->read({into, std::min(room, slice)});
      } catch (std::exception const&) {
         return MHD_CONTENT_READER_END_WITH_ERROR;  // the client sees that the answer is cut off
      }
      if (size != 0) {
         return static_cast<ssize_t>(size);
      }
      if (reading.body->ended()) {
         return MHD_CONTENT_READER_END_OF_STREAM;
      }
      if (!reading.woken && !reading.visit.over) {
         reading.suspended = true;
         reading.visit.ends = ~U64{0};
         MHD_suspend_connection(reading.connection);
      }
      return 0;
   }

   static void readEnds(void* state) {
      auto* const reading = static_cast<Reading*>(state);
      reading->visit.reading = nullptr;
      delete reading;
   }
};

HttpServer::HttpServer(Options options) : options_(std::move(options)) {
   for (std::string const& address : options_.listen) {
      listening_.emplace_back(address);
      isLocal_ = isLocal_ && isLoopback(address);
   }
   startDaemon();
}

void HttpServer::startDaemon() {
   unsigned flags =
         MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG;
   std::vector<MHD_OptionItem> more;
   if (isTls()) {
      if (MHD_is_feature_supported(MHD_FEATURE_TLS) != MHD_YES) {
         throw Holt::Failure("this libmicrohttpd is built without TLS");
      }
      flags |= MHD_USE_TLS;
      more.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, options_.certificate.data()});
      more.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, options_.key.data()});
   }
   more.push_back({MHD_OPTION_END, 0, nullptr});
   // The limits of libmicrohttpd are beyond ours: it would let those that wait in silence keep the
   // others out.
   auto const most = static_cast<unsigned>(options_.clients * 2 + 64);
   daemon_ = MHD_start_daemon(
         flags, 0, nullptr, nullptr, &Callbacks::asked, this,  //
         MHD_OPTION_EXTERNAL_LOGGER, &Callbacks::said, this,   //
         MHD_OPTION_URI_LOG_CALLBACK, &Callbacks::begun, this, MHD_OPTION_NOTIFY_COMPLETED,
         &Callbacks::completed, this, MHD_OPTION_NOTIFY_CONNECTION, &Callbacks::connected, this,
         MHD_OPTION_CONNECTION_LIMIT, most, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
         options_.requestBytes, MHD_OPTION_CONNECTION_TIMEOUT, 0U, MHD_OPTION_STRICT_FOR_CLIENT, 1,
         MHD_OPTION_SIGPIPE_HANDLED_BY_APP, 1, MHD_OPTION_ARRAY, more.data(), MHD_OPTION_END);
   if (daemon_ == nullptr) {
      while (said_.ends_with('\n')) {
         said_.pop_back();
      }
      throw Holt::Failure((isTls() ? "cannot serve TLS with this certificate and key: "
                                   : "cannot start the HTTP server: ") +
                          said_);
   }
   MHD_DaemonInfo const* const info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
   epollFd_ = info->epoll_fd;
}

HttpServer::~HttpServer() {
   for (Visit& visit : visits_) {
      shut(visit);
   }
   MHD_stop_daemon(daemon_);
}

void HttpServer::routeIs(std::string path, Handler handler) {
   routes_.push_back({std::move(path), std::move(handler)});
   std::ranges::stable_sort(
         routes_, [](Route const& a, Route const& b) { return a.path.size() > b.path.size(); });
}

std::vector<std::string> HttpServer::addresses() const {
   std::vector<std::string> all;
   for (Listening const& listening : listening_) {
      all.push_back(listening.address());
   }
   return all;
}

//--- Connections ----------------------------------------------------------------------------------

void HttpServer::shut(Visit& visit) {
   if (!visit.over) {
      visit.over = true;
      visit.ends = ~U64{0};
      ::shutdown(visit.fd, SHUT_RDWR);
      if (visit.reading != nullptr) {
         visit.reading->wake();
      }
   }
}

void HttpServer::closeLate() {
   U64 const time = now();
   for (Visit& visit : visits_) {
      if (time >= visit.ends) {
         ++counters_.late;
         shut(visit);
      }
   }
}

/// Makes room for another connection, at the cost of the one whose time for a request is over
/// first.
bool HttpServer::makeRoom() {
   std::size_t open = 0;
   Visit* oldest = nullptr;
   for (Visit& visit : visits_) {
      open += visit.over ? 0 : 1;
      if (!visit.over && visit.phase == Visit::Phase::asking &&
          (oldest == nullptr || visit.ends < oldest->ends)) {
         oldest = &visit;
      }
   }
   if (open < options_.clients) {
      return true;
   }
   if (oldest == nullptr) {
      return false;
   }
   ++counters_.evicted;
   shut(*oldest);
   return true;
}

void HttpServer::acceptFrom(int listening) {
   for (int i = 0; i != acceptedInATurn; ++i) {
      sockaddr_storage address{};
      socklen_t size = sizeof address;
      int const fd = ::accept4(listening, reinterpret_cast<sockaddr*>(&address), &size,
                               SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (fd < 0) {
         if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            acceptAgain_ = now() + exhaustedPause;
         }
         return;
      }
      if (!makeRoom()) {
         ++counters_.refused;
         if (!isTls()) {
            // What the client does not take at once, it does not get.
            (void)::send(fd, busy, sizeof busy - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
         }
         ::close(fd);
         continue;
      }
      ++counters_.accepted;
      int const buffer = options_.sendBuffer;
      ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
      // Takes the descriptor, also if it fails.
      MHD_add_connection(daemon_, fd, reinterpret_cast<sockaddr*>(&address), size);
   }
}

//--- Requests -------------------------------------------------------------------------------------

Reply HttpServer::replyTo(Exchange& exchange, std::string const& method) {
   exchange.head = method == MHD_HTTP_METHOD_HEAD;
   if (method != MHD_HTTP_METHOD_GET && !exchange.head) {
      Reply reply = refusal(MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD are allowed");
      reply.headers.emplace_back(MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
      return reply;
   }
   if (exchange.hasBody()) {
      return refusal(MHD_HTTP_CONTENT_TOO_LARGE, "a request has no body");
   }
   if (isLocal_ && !isAddressOrLocalhost(exchange.header(MHD_HTTP_HEADER_HOST))) {
      return refusal(MHD_HTTP_MISDIRECTED_REQUEST,
                     "only an address or localhost leads here; see --listen for names");
   }
   if (std::string const wrong = parseTarget(exchange.raw, exchange.target); !wrong.empty()) {
      return refusal(MHD_HTTP_BAD_REQUEST, wrong);
   }
   std::string const& path = exchange.target.path;
   for (Route const& route : routes_) {
      bool const below = route.path.ends_with('/') && path.starts_with(route.path);
      if (!below && path != route.path && path + "/" != route.path) {
         continue;
      }
      exchange.rest = below ? path.substr(route.path.size()) : "";
      try {
         return route.handler(exchange);
      } catch (Holt::Failure const& failure) {
         return refusal(MHD_HTTP_NOT_FOUND, failure.what());
      } catch (std::exception const& error) {
         return refusal(MHD_HTTP_INTERNAL_SERVER_ERROR, error.what());
      }
   }
   return refusal(MHD_HTTP_NOT_FOUND, "there is nothing at " + path);
}

bool HttpServer::queue(MHD_Connection* connection, Visit& visit, Reply reply) {
   MHD_Response* response = nullptr;
   visit.phase = reply.endless ? Visit::Phase::endless : Visit::Phase::answering;
   visit.ends = now() + (reply.endless ? options_.stall : options_.answer);
   if (reply.body != nullptr) {
      std::unique_ptr<Reading> reading(
            new Reading{std::move(reply.body), *this, connection, visit});
      reading->body->wake = [raw = reading.get()] { raw->wake(); };
      response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, slice, &Callbacks::read,
                                                   reading.get(), &Callbacks::readEnds);
      if (response != nullptr) {
         visit.reading = reading.release();
      }
   } else {
      response = MHD_create_response_from_buffer(reply.text.size(), reply.text.data(),
                                                 MHD_RESPMEM_MUST_COPY);
   }
   if (response == nullptr) {
      return false;
   }
   MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.contentType.c_str());
   MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
   bool cached = false;
   for (auto const& [name, value] : reply.headers) {
      cached = cached || name == MHD_HTTP_HEADER_CACHE_CONTROL;
      MHD_add_response_header(response, name.c_str(), value.c_str());
   }
   if (!cached) {
      MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
   }
   bool const queued = MHD_queue_response(connection, reply.status, response) == MHD_YES;
   MHD_destroy_response(response);
   return queued;
}

//--- The loop -------------------------------------------------------------------------------------

void HttpServer::appendTo(std::vector<pollfd>& polled) {
   polled.push_back({epollFd_, POLLIN, 0});
   for (Listening const& listening : listening_) {
      polled.push_back({acceptAgain_ == 0 ? listening.fd() : -1, POLLIN, 0});
   }
}

U64 HttpServer::deadline() const {
   U64 first = acceptAgain_ != 0 ? acceptAgain_ : ~U64{0};
   for (Visit const& visit : visits_) {
      first = std::min(first, visit.ends);
   }
   MHD_UNSIGNED_LONG_LONG left = 0;
   if (MHD_get_timeout(daemon_, &left) == MHD_YES) {
      first = std::min<U64>(first, now() + left * 1'000'000);
   }
   return first != ~U64{0} ? std::max<U64>(first, 1) : 0;
}

void HttpServer::onTurn(std::span<pollfd const> polled) {
   if (acceptAgain_ != 0 && now() >= acceptAgain_) {
      acceptAgain_ = 0;
   }
   for (pollfd const& listening : polled.subspan(1)) {
      if (listening.revents != 0) {
         acceptFrom(listening.fd);
      }
   }
   closeLate();
   MHD_run(daemon_);
}

}  // namespace Ptpexport
