// Reads the last values of subjects from a stream, and then what is published.
#pragma once

#include "Fleet/Connection.h"
#include "Fleet/StreamApi.h"

namespace Fleet {

/// An ordered consumer of a JetStream stream: the last message of each subject that fits a filter,
/// then every later one, in the order of the stream and without a gap.
///
///     asking --> replaying --> following
///        ^           |             |        lost connection, gap, silence of the server
///        '-----------+-------------'        then goes on behind the last message, if the stream
///                                           is the same; else from the beginning
///
/// The server sends only as much as has been handled, plus what it holds to be on its way.
/// Threads: that of its connection.
class Consumer final : public Holt::Source, Connection::Listener {
public:
   struct Options {
      std::string stream = "PTP";
      /// The first token of all subjects.
      std::string prefix = "ptp";
      /// A subject with wildcards.
      std::string filter;
      /// Nanoseconds between two signs of life of a server that has nothing to send; after three
      /// without one, it is asked again.
      U64 heartbeat = 2'000'000'000;
      /// Nanoseconds from a failure to the next attempt.
      U64 pause = 500'000'000;
      /// Nanoseconds for an answer at first; twice as many after each that did not come. A cluster
      /// works on what it was asked even if nobody waits for it any more: who asks again too early
      /// only adds to its work.
      U64 patience = apiPatience;
      U64 longestPatience = 120'000'000'000;
   };

   struct Entry {
      std::string_view subject;
      std::string_view data;
      /// Its number in the stream.
      U64 number;
      /// Wall time of the server, in nanoseconds since 1970, at which it was stored.
      U64 time;
   };

   class Reader {
   public:
      /// All last values follow: what is not among them, or among what comes later, is gone.
      virtual void onBegin() = 0;
      virtual void onEntry(Entry const& entry) = 0;
      /// Everything that was there at the beginning has been given.
      virtual void onCaughtUp() = 0;
      /// `why`: empty if it reads.
      virtual void onReading(std::string const& why) { (void)why; }

   protected:
      ~Reader() = default;
   };

   Consumer(Connection& connection, Options options, Reader& reader);
   ~Consumer();
   Consumer(Consumer const&) = delete;
   Consumer& operator=(Consumer const&) = delete;

   bool caughtUp() const noexcept { return caughtUp_; }
   /// Why it does not read; printable, empty if it does.
   std::string const& why() const noexcept { return why_; }
   /// How often it has begun again, with all last values or behind the last message.
   U64 restarts() const noexcept { return restarts_; }

   /// Reads all last values again.
   void restart();

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override { return due_; }
   void onTurn(std::span<pollfd const>) override;

private:
   void onConnected() override;
   void onDisconnected() override;

   void askStream();
   void onStream(Arrived const* answer);
   void create();
   void onCreated(Arrived const* answer);
   void onMessage(Arrived const& message);
   void onStatus(Arrived const& message);
   void caughtUpIf(bool all);
   void failed(std::string const& why, U64 pause);
   void stop();
   void unanswered();
   U64 silence() const noexcept;
   void later(U64 pause) { due_ = connection_.now() + pause; }

   Connection& connection_;
   Options options_;
   Reader& reader_;
   /// Where messages come; empty while there is no consumer.
   std::string subject_;
   /// The consumer's name on the server.
   std::string name_;
   U64 question_ = 0;
   U64 patience_;
   /// When something is overdue; 0: nothing is.
   U64 due_ = 0;
   /// What identifies the stream, and its last message when this consumer was made.
   std::string created_;
   U64 target_ = 0;
   /// The number of the last message that was handled, in the stream and of the consumer.
   U64 last_ = 0;
   U64 lastOwn_ = 0;
   bool fromBeginning_ = true;
   bool caughtUp_ = false;
   U64 restarts_ = 0;
   std::string why_ = "not connected yet";
};

}  // namespace Fleet
