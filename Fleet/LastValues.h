// Reads the last values below a subject once.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Fleet/Consumer.h"

namespace Fleet {

/// Asks a stream which subjects it has, and for the last message of each.
///
/// A consumer would do so with fewer requests, but costs a cluster far more: its servers agree on
/// each that comes and goes, a few in a second. Here a thousand publishers that connect again at
/// the same time, as after a failure of a server, make only requests that the stream's leader
/// answers by itself.
///
/// Threads: that of its connection.
class LastValues final : public Holt::Source {
public:
   struct Options {
      std::string stream = "PTP";
      /// A subject with wildcards.
      std::string filter;
      /// How many questions may be open.
      U32 window = 32;
      /// Nanoseconds from a failure to the next attempt.
      U64 pause = 500'000'000;
      /// Nanoseconds for an answer at first; twice as many after each that did not come.
      U64 patience = apiPatience;
   };

   /// REQUIRES: connected. It ends with the connection.
   LastValues(Connection& connection, Options options, Consumer::Reader& reader);
   ~LastValues() { ++*epoch_; }
   LastValues(LastValues const&) = delete;
   LastValues& operator=(LastValues const&) = delete;

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override { return due_; }
   void onTurn(std::span<pollfd const>) override;

private:
   void begin();
   void list();
   void onList(Arrived const* answer);
   void next();
   void onValue(std::string const& subject, Arrived const* answer);
   void ask(std::string subject, std::string data, Connection::Answer answer);
   void failed(std::string const& why, bool unanswered);

   Connection& connection_;
   Options options_;
   Consumer::Reader& reader_;
   std::vector<std::string> subjects_;
   std::size_t asked_ = 0;
   std::size_t open_ = 0;
   U64 patience_;
   /// When to begin again; 0: it reads, or has read.
   U64 due_ = 0;
   /// Answers to earlier attempts are of no use.
   std::shared_ptr<U64> epoch_ = std::make_shared<U64>(0);
};

}  // namespace Fleet
