#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "Holt/Loop.h"
#include "tools/ptpexport/Http/Listening.h"
#include "tools/ptpexport/Http/Reply.h"

struct MHD_Connection;
struct MHD_Daemon;

namespace Ptpexport {

/// Answers GET and HEAD requests over HTTP/1.1, in the loop of its process, without threads.
///
///     HttpServer::Options options;
///     options.listen = {"127.0.0.1:9979"};
///     HttpServer server(options);
///     server.routeIs("/healthz", [&](Request const&) { return health.reply(); });
///     loop.add(server);
///
/// libmicrohttpd parses requests and, with a certificate, speaks TLS. The server decides whom it
/// serves, so that no client can keep others from being served:
///
/// - A client must finish its first request within `Options::request`, however slowly the bytes
///   arrive, and take an answer within `Options::answer`. A reader of an endless answer must take
///   something within `Options::stall`.
/// - There are at most `Options::clients` connections. For one more, that one is closed whose time
///   for a request is over first. If all are being answered, the new one gets 503.
/// - Request line and headers together are bounded to `Options::requestBytes`, bodies of requests
///   are not read: a request with one gets 413. Requests other than GET and HEAD get 405.
/// - If it listens at loopback addresses only, `Host` must be an address or localhost: the pages
///   that a browser on this machine shows cannot read its answers under a name of their own.
/// - An answer is rendered slice by slice as the client takes it; see `Body`.
///
/// Errors: the constructor throws `Holt::Failure` if it cannot listen, or if key and certificate do
/// not fit. Threads: a server belongs to one thread.
class HttpServer final : public Holt::Source {
public:
   struct Options {
      /// Where it listens; see `Listening`.
      std::vector<std::string> listen;
      /// Certificate chain and private key as PEM; both empty for HTTP without TLS.
      std::string certificate;
      std::string key;
      /// Connections.
      std::size_t clients = 64;
      /// Bytes of the request line and the headers, and of what is kept for a connection besides
      /// the slice that is being sent.
      std::size_t requestBytes = std::size_t(1) << 15;
      /// Bytes that the kernel keeps for a client that does not read; it takes twice as many. Left
      /// to itself, it would take megabytes, and what a slow client gets would be as old.
      int sendBuffer = 1 << 17;
      /// Nanoseconds from accepting a connection to the end of its first request; with TLS, the
      /// handshake is part of it.
      U64 request = 10'000'000'000;
      /// From the end of an answer to the end of the next request.
      U64 idle = 60'000'000'000;
      /// From a request to the end of its answer.
      U64 answer = 60'000'000'000;
      /// For which the reader of an endless answer may take nothing while there is something.
      U64 stall = 300'000'000'000;
      /// Measures these times; must be the clock of the loop that the server is in.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   /// Listens at once; requests are answered from the first turn on.
   explicit HttpServer(Options options);
   /// Closes all connections.
   ~HttpServer();
   HttpServer(HttpServer const&) = delete;
   HttpServer& operator=(HttpServer const&) = delete;

   /// Answers requests for a path: for itself, or, if it ends in a slash, for everything below it
   /// and itself with and without that slash. The longest path that fits a request answers it.
   void routeIs(std::string path, Handler handler);

   /// Where it listens, with the ports that the system has chosen.
   std::vector<std::string> addresses() const;
   bool isTls() const noexcept { return !options_.certificate.empty(); }
   /// Open connections.
   std::size_t clients() const noexcept { return visits_.size(); }

   struct Counters {
      /// Connections that were accepted.
      U64 accepted = 0;
      /// Connections that got 503 since all others were being answered.
      U64 refused = 0;
      /// Connections that were closed to make room for another, or since their time was over.
      U64 evicted = 0;
      U64 late = 0;
      U64 requests = 0;
   };
   Counters const& counters() const noexcept { return counters_; }

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   struct Callbacks;
   struct Exchange;
   struct Reading;
   /// An open connection.
   struct Visit {
      enum class Phase { asking, answering, endless };

      int fd;
      Phase phase = Phase::asking;
      /// When it is closed unless something happens.
      U64 ends;
      /// Whether it is shut down already, and only waits for libmicrohttpd to notice.
      bool over = false;
      /// The answer that is being read, if it has a body.
      Reading* reading = nullptr;
   };
   struct Route {
      std::string path;
      Handler handler;
   };

   U64 now() const noexcept { return options_.clock(); }
   void startDaemon();
   void acceptFrom(int listening);
   bool makeRoom();
   void add(int fd, void const* address, unsigned size);
   void shut(Visit& visit);
   void closeLate();
   Reply replyTo(Exchange& exchange, std::string const& method);
   bool queue(MHD_Connection* connection, Visit& visit, Reply reply);

   Options options_;
   std::list<Listening> listening_;
   /// Whether only this machine reaches it.
   bool isLocal_ = true;
   std::vector<Route> routes_;
   std::list<Visit> visits_;
   Counters counters_;
   /// When it accepts again, after there was no descriptor left; 0 if it does.
   U64 acceptAgain_ = 0;
   /// What libmicrohttpd has said last.
   std::string said_;
   MHD_Daemon* daemon_ = nullptr;
   int epollFd_ = -1;
};

}  // namespace Ptpexport
