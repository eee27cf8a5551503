#include "Fleet/Consumer.h"

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "Fleet/Names.h"
#include "Fleet/StreamApi.h"
#include "Holt/State/Json.h"
#include "Kiv/Printable.h"

namespace Fleet {

using Holt::Json;

namespace {

/// What the reply subject of a message says: $JS.ACK.STREAM.CONSUMER.DELIVERED.NUMBER.OWN.TIME.LEFT
struct Position {
   U64 number = 0;
   U64 own = 0;
   U64 time = 0;
   U64 left = 0;
};

bool readNumber(std::string_view text, U64& number) {
   auto const end = text.data() + text.size();
   auto const read = std::from_chars(text.data(), end, number);
   return read.ec == std::errc() && read.ptr == end;
}

bool readPosition(std::string_view reply, Position& position) {
   if (!reply.starts_with("$JS.ACK.")) {
      return false;
   }
   // Newer servers put a domain and an account before the stream, and a random token last.
   std::vector<std::string_view> tokens = tokensOf(reply);
   std::size_t const first = tokens.size() >= 11 ? 4 : 2;
   return tokens.size() >= first + 7 && readNumber(tokens[first + 3], position.number) &&
          readNumber(tokens[first + 4], position.own) &&
          readNumber(tokens[first + 5], position.time) &&
          readNumber(tokens[first + 6], position.left);
}

}  // namespace

Consumer::Consumer(Connection& connection, Options options, Reader& reader)
      : connection_(connection),
        options_(std::move(options)),
        reader_(reader),
        patience_(options_.patience) {
   connection_.listenerAdd(*this);
   if (connection_.status().connected) {
      onConnected();
   }
}

Consumer::~Consumer() {
   connection_.listenerDel(*this);
   stop();
}

void Consumer::onConnected() {
   askStream();
}

void Consumer::onDisconnected() {
   subject_.clear();
   name_.clear();
   question_ = 0;
   due_ = 0;
   why_ = connection_.status().reason;
   reader_.onReading(why_);
}

void Consumer::restart() {
   stop();
   created_.clear();
   if (connection_.status().connected) {
      askStream();
   }
}

/// Ends the consumer on the server, too: it would send on for a while.
void Consumer::stop() {
   connection_.forget(question_);
   question_ = 0;
   due_ = 0;
   if (!subject_.empty()) {
      connection_.close(subject_);
      if (!name_.empty()) {
         connection_.publish("$JS.API.CONSUMER.DELETE." + options_.stream + "." + name_, {});
      }
      subject_.clear();
      name_.clear();
   }
}

void Consumer::failed(std::string const& why, U64 pause) {
   stop();
   why_ = Kiv::printable(why);
   later(pause);
   reader_.onReading(why_);
}

void Consumer::unanswered() {
   patience_ = std::min(2 * patience_, std::max(options_.patience, options_.longestPatience));
}

/// Nanoseconds without a message after which the server counts as silent.
U64 Consumer::silence() const noexcept {
   return std::max(3 * options_.heartbeat, patience_ - options_.patience);
}

void Consumer::onTurn(std::span<pollfd const>) {
   if (due_ == 0 || connection_.now() < due_) {
      return;
   }
   if (!subject_.empty()) {
      unanswered();
      failed("the server is silent", options_.pause);
   } else {
      due_ = 0;
      askStream();
   }
}

void Consumer::askStream() {
   question_ = connection_.ask("$JS.API.STREAM.INFO." + options_.stream, {}, patience_,
                               [this](Arrived const* answer) { onStream(answer); });
}

void Consumer::onStream(Arrived const* answer) {
   question_ = 0;
   if (!connection_.status().connected) {
      return;
   }
   StreamState state;
   if (answer == nullptr) {
      unanswered();
   }
   if (std::string const wrong = readStreamState(answer, options_.stream, options_.prefix, state);
       !wrong.empty()) {
      failed(wrong, options_.pause);
      return;
   }
   // The same stream has kept everything behind the last message, except what was deleted.
   fromBeginning_ = created_ != state.created || state.last < last_ || !caughtUp_;
   created_ = state.created;
   target_ = state.last;
   create();
}

void Consumer::create() {
   subject_ = connection_.open([this](Arrived const& message) { onMessage(message); });
   lastOwn_ = 0;
   Json config{{"deliver_subject", subject_},
               {"ack_policy", "none"},
               {"max_deliver", 1},
               {"filter_subject", options_.filter},
               {"flow_control", true},
               {"idle_heartbeat", options_.heartbeat},
               {"inactive_threshold", 5 * options_.heartbeat},
               {"mem_storage", true},
               {"num_replicas", 1},
               {"replay_policy", "instant"}};
   if (fromBeginning_) {
      config["deliver_policy"] = "last_per_subject";
   } else {
      config["deliver_policy"] = "by_start_sequence";
      config["opt_start_seq"] = last_ + 1;
   }
   ++restarts_;
   if (fromBeginning_) {
      last_ = 0;
      caughtUp_ = false;
      reader_.onBegin();
   }
   question_ = connection_.ask(
         "$JS.API.CONSUMER.CREATE." + options_.stream,
         Json{{"stream_name", options_.stream}, {"config", std::move(config)}}.dump(), patience_,
         [this](Arrived const* answer) { onCreated(answer); });
}

void Consumer::onCreated(Arrived const* answer) {
   question_ = 0;
   if (subject_.empty()) {
      return;
   }
   if (answer == nullptr) {
      unanswered();
   }
   Json reply;
   if (std::string const wrong = readApiReply(answer, options_.stream, reply); !wrong.empty()) {
      failed(wrong, options_.pause);
      return;
   }
   if (auto const name = reply.find("name"); name != reply.end() && name->is_string()) {
      name_ = name->get<std::string>();
   }
   later(silence());
   if (!why_.empty()) {
      why_.clear();
      reader_.onReading(why_);
   }
   auto const delivered = reply.find("delivered");
   bool const nothing = numberIn(reply, "num_pending") == 0 && lastOwn_ == 0 &&
                        (delivered == reply.end() || numberIn(*delivered, "consumer_seq") == 0);
   if (nothing) {
      // Later messages come one by one.
      last_ = std::max(last_, target_);
   }
   caughtUpIf(nothing);
}

void Consumer::onMessage(Arrived const& message) {
   if (message.status != 0 || message.data.empty()) {
      onStatus(message);
      return;
   }
   Position position;
   if (!readPosition(message.reply, position)) {
      return;  // somebody else has found the subject
   }
   if (position.own != lastOwn_ + 1) {
      failed("messages were lost on the way", 1);
      return;
   }
   later(silence());
   lastOwn_ = position.own;
   last_ = position.number;
   std::string const subject = subject_;
   reader_.onEntry({message.subject, message.data, position.number, position.time});
   if (subject == subject_) {  // the reader has not restarted it
      caughtUpIf(position.left == 0 || position.number >= target_);
   }
}

void Consumer::onStatus(Arrived const& message) {
   constexpr U32 alive = 100;
   if (message.status != alive) {
      failed("the server has ended the consumer", options_.pause);
      return;
   }
   later(silence());
   if (!message.reply.empty()) {
      // Everything before has been handled: the server may send on.
      connection_.publish(std::string(message.reply), {});
   }
   if (!message.stalled.empty()) {
      connection_.publish(std::string(message.stalled), {});
   }
   U64 sent = 0;
   if (!message.lastConsumer.empty() && readNumber(message.lastConsumer, sent) &&
       sent != lastOwn_) {
      failed("messages were lost on the way", 1);
   }
}

void Consumer::caughtUpIf(bool all) {
   if (!all || caughtUp_) {
      return;
   }
   caughtUp_ = true;
   patience_ = options_.patience;
   reader_.onCaughtUp();
}

}  // namespace Fleet
