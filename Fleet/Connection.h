// A connection to a NATS cluster, for the thread of a loop.
//
//     loop's thread                         threads of the connection
//     publish, ask  --- outgoing queue ---> sender  -> library -> server
//     Handler, Answer <-- incoming queue -- library's delivery <- server
//                       + eventfd
//
// All blocking work (connecting, looking up names, writing to a socket that is full) is on the
// sender's thread. What arrives is only put into a queue there, whose size is bounded, and handled
// by the loop.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Holt/Loop.h"

namespace Fleet {

/// A message as it arrives; valid only during the call that hands it over.
struct Arrived {
   std::string_view subject;
   /// Where to answer; empty if nowhere.
   std::string_view reply;
   std::string_view data;
   /// A status of the server, such as 100 or 503; 0 for a message of a client.
   U32 status = 0;
   /// Headers of a status: the last number that a consumer was sent, and where to ask it to go on.
   std::string_view lastConsumer;
   std::string_view stalled;
};

/// Connects to a cluster, and again whenever the connection is lost, for as long as it lives.
///
/// Threads: belongs to the thread of its loop; it starts threads of its own, which call nobody.
/// They inherit the signal mask: block what a `Holt::StopSignals` waits for before.
class Connection final : public Holt::Source {
public:
   struct Options {
      /// "nats://host:4222", "tls://host"; several are tried in turn, and those that a server tells
      /// of.
      std::vector<std::string> urls;
      /// Shown by the server among its clients.
      std::string name = "ptplib";
      std::string user = {};
      std::string password = {};
      /// Path of a file with a user's credentials.
      std::string credentials = {};
      /// Paths of PEM files: trusted certificates, own certificate, its key. Any of them, or
      /// `tls`, requires TLS.
      std::string tlsCa = {};
      std::string tlsCertificate = {};
      std::string tlsKey = {};
      bool tls = false;
      /// Prefix of the subjects on which it is answered; it must be allowed to subscribe to them.
      std::string inbox = "_INBOX";
      /// Nanoseconds from a failure to the next attempt; it doubles up to `longestPause`.
      U64 pause = 250'000'000;
      U64 longestPause = 4'000'000'000;
      /// Nanoseconds for an attempt, with each server.
      U64 patience = 2'000'000'000;
      /// Nanoseconds between two questions whether the server still answers; two that are not
      /// answered end the connection.
      U64 probe = 2'000'000'000;
      /// Bytes of messages that wait for the loop, at most; the server is told to wait then.
      std::size_t incoming = std::size_t{64} << 20;
      /// Must be the clock of the loop.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   struct Status {
      bool connected = false;
      /// Wall time, in nanoseconds since 1970, since when `connected` is what it is.
      U64 since = 0;
      /// Why it is not connected; printable, empty if it is.
      std::string reason;
      /// The server's URL.
      std::string url;
      /// Bytes of the longest message that it takes.
      U64 longestMessage = 0;
      /// How often a connection has been made.
      U64 connections = 0;
   };

   /// What follows the connection. Calls come from within its turn.
   class Listener {
   public:
      virtual void onConnected() = 0;
      /// Questions without an answer have been answered with null before.
      virtual void onDisconnected() = 0;
      /// The server refuses something, such as a subject: printable.
      virtual void onRefused(std::string const& what) { (void)what; }

   protected:
      ~Listener() = default;
   };

   /// Gets the answer, or null if there is none: in time, or before the connection was lost.
   using Answer = std::function<void(Arrived const*)>;
   using Handler = std::function<void(Arrived const&)>;

   /// Throws `Holt::Failure` for options that cannot be right: no URL, a file that cannot be read,
   /// a certificate without its key.
   explicit Connection(Options options);
   ~Connection();
   Connection(Connection const&) = delete;
   Connection& operator=(Connection const&) = delete;

   Status const& status() const noexcept { return status_; }
   U64 now() const noexcept { return options_.clock(); }

   /// A listener that is added while there is a connection is not told of it.
   void listenerAdd(Listener& listener) { listeners_.push_back(&listener); }
   void listenerDel(Listener const& listener) noexcept;

   /// Sends a message; it is lost if there is no connection, or before it has left.
   void publish(std::string subject, std::string data);
   /// Sends a message, and calls `answer` once: with the first answer, or with null after
   /// `patience` nanoseconds. Not called from within. Returns a number for `forget`.
   U64 ask(std::string subject, std::string data, U64 patience, Answer answer);
   /// The answer is of no use any more.
   void forget(U64 question) noexcept { questions_.erase(question); }
   /// A subject of this connection: what is sent there is given to `handler`, until `close` or the
   /// end of this connection. REQUIRES: connected.
   std::string open(Handler handler);
   void close(std::string_view subject);

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   struct Shared;
   struct Question {
      U64 deadline;
      Answer answer;
   };

   void take();
   void arrived(Arrived const& message, U64 subscription);
   void statusIs(bool connected, std::string const& reason);
   void expire();
   void tell(std::function<void(Listener&)> const& call);

   Options options_;
   Status status_;
   std::vector<Listener*> listeners_;
   std::string inbox_;
   /// Of this connection, among all attempts.
   U64 number_ = 0;
   U64 numbers_ = 0;
   std::map<U64, Question> questions_;
   std::map<U64, std::shared_ptr<Handler>> handlers_;
   /// No question is overdue before.
   U64 due_ = 0;
   std::unique_ptr<Shared> shared_;
};

}  // namespace Fleet
