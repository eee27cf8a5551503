// What a publisher sends, and what becomes of it.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "Fleet/Impl/PublisherRoot.h"
#include "Kiv/Printable.h"

namespace Fleet {

namespace {

/// Nanoseconds for which nothing is sent after a refusal.
constexpr U64 afterRefusal = 1'000'000'000;
constexpr std::size_t purgesAtATime = 64;

}  // namespace

void Publisher::appendTo(std::vector<pollfd>&) {
   if (compareDue_) {
      compare();
   }
   if (status_.publishing) {
      pump();
      if (metaWhenDone_ && dirty_.empty()) {
         metaAt_ = now();
      }
      if (metaAt_ != 0 && now() >= metaAt_) {
         sendMeta(false);
      }
   }
}

U64 Publisher::deadline() const {
   U64 due = prepareAt_;
   auto const earlier = [&due](U64 time) {
      if (time != 0) {
         due = due == 0 ? time : std::min(due, time);
      }
   };
   if (reader_ != nullptr) {
      earlier(reader_->deadline());
   }
   if (status_.publishing) {
      earlier(metaAt_);
      if (!dirty_.empty() && inFlight_ < pace_.window() && inFlightBytes_ < options_.windowBytes) {
         earlier(std::max({dirty_.begin()->first, sendAt_, U64{1}}));
      }
      if (!purges_.empty()) {
         earlier(purges_.front().due);
      }
   }
   return due;
}

void Publisher::onTurn(std::span<pollfd const> polled) {
   if (reader_ != nullptr) {
      reader_->onTurn(polled);
   }
   if (prepareAt_ != 0 && now() >= prepareAt_) {
      prepare();
   }
   if (status_.publishing) {
      purge();
   }
}

void Publisher::pump() {
   U64 const time = now();
   while (!dirty_.empty() && inFlight_ < pace_.window() && inFlightBytes_ < options_.windowBytes &&
          dirty_.begin()->first <= time && sendAt_ <= time) {
      Node& node = *dirty_.begin()->second;
      dirty_.erase(dirty_.begin());
      node.second.dirty = false;
      if (!send(node)) {
         records_.erase(records_.find(node.first));
      }
   }
}

/// Returns false if nothing has to be remembered.
bool Publisher::send(Node& node) {
   Record& record = node.second;
   if (record.entity == nullptr) {
      if (record.digest == 0 && !record.unsure) {
         return false;
      }
      sendDeletion(node);
      return true;
   }
   value_.clear();
   text_.write(*record.entity, value_);
   U64 const digest = digestOf(node.first, value_);
   if (digest != record.digest || record.unsure) {
      sendValue(node, digest);
   }
   return true;
}

void Publisher::sendValue(Node& node, U64 digest) {
   Record& record = node.second;
   std::string message;
   writeMessage({.session = options_.session,
                 .sequence = sequence_ + 1,
                 .rootType = record.root->root->kivType().name,
                 .value = value_},
                message);
   std::size_t const subjectSize = subjects_.size() + node.first.size();
   bool const tooLong = subjectSize > longestSubject ||
                        message.size() + subjectSize > connection_.status().longestMessage;
   status_.leftOut += (tooLong ? 1 : 0) - (record.leftOut ? 1 : 0);
   record.leftOut = tooLong;
   if (tooLong) {
      return;
   }
   digestIs(record, record.root, digest);
   status_.bytes += value_.size();
   ask(node, std::move(message));
}

void Publisher::sendDeletion(Node& node) {
   Record& record = node.second;
   std::string message;
   writeMessage(
         {.session = options_.session, .sequence = sequence_ + 1, .rootType = "-", .value = {}},
         message);
   digestIs(record, nullptr, 0);
   record.unsure = true;
   ++status_.deletions;
   ask(node, std::move(message));
}

void Publisher::ask(Node& node, std::string message) {
   Record& record = node.second;
   ++sequence_;
   ++status_.messages;
   record.inFlight = true;
   record.sent = now();
   std::size_t const size = message.size() + node.first.size();
   ++inFlight_;
   inFlightBytes_ += size;
   connection_.ask(
         subjectOf(node.first), std::move(message), pace_.patience(),
         [this, held = epoch_, epoch = *epoch_, place = node.first, size](Arrived const* answer) {
            if (*held == epoch) {
               answered(place, size, answer);
            }
         });
}

void Publisher::answered(std::string const& place, std::size_t size, Arrived const* answer) {
   --inFlight_;
   inFlightBytes_ -= size;
   auto const at = records_.find(place);
   Record& record = at->second;
   record.inFlight = false;
   bool const wasDirty = std::exchange(record.dirty, false);
   Holt::Json reply;
   std::string const wrong = readApiReply(answer, options_.stream.name, reply);
   if (wrong.empty()) {
      pace_.acknowledged(now() - record.sent, now());
      record.unsure = false;
      stored_ = static_cast<U64>(std::max<S64>(0, numberIn(reply, "seq")));
      storedPlace_ = place;
      status_.reason.clear();
      if (record.entity == nullptr && record.digest == 0) {
         purges_.push_back(
               {place, static_cast<U64>(numberIn(reply, "seq")), now() + options_.deletions});
      }
      if (wasDirty) {
         mark(*at);
      } else if (record.entity == nullptr && record.digest == 0) {
         records_.erase(at);
      }
      return;
   }
   // It may be stored nevertheless. One message at a time, until one is.
   ++status_.repeated;
   status_.reason = Kiv::printable(wrong);
   record.unsure = true;
   pace_.failed();
   if (answer != nullptr) {
      sendAt_ = now() + afterRefusal;
   }
   mark(*at);
}

/// Removes deletions from the stream that have been there for long enough, unless there is
/// something newer.
void Publisher::purge() {
   U64 const time = now();
   std::size_t sent = 0;
   std::erase_if(purges_, [&](Purge const& purge) {
      if (purge.due > time || sent == purgesAtATime) {
         return false;
      }
      ++sent;
      Holt::Json const request{{"filter", subjectOf(purge.place)}, {"seq", purge.number + 1}};
      connection_.publish("$JS.API.STREAM.PURGE." + options_.stream.name, request.dump());
      return true;
   });
}

std::string Publisher::ownMeta(bool ended) const {
   Meta meta;
   meta.session = options_.session;
   meta.sequence = sequence_;
   meta.time = Holt::wallNow();
   meta.every = options_.heartbeat;
   meta.pending = dirty_.size();
   meta.leftOut = status_.leftOut;
   meta.current = sourceCurrent_ && !ended;
   meta.since = sourceSince_;
   meta.reason = ended ? "the publisher has ended" : sourceReason_;
   meta.ended = ended;
   for (Root const& root : roots_) {
      meta.roots.push_back(
            {root.root->nameString(), root.root->kivType().name, root.entities, root.digest});
   }
   return metaText(meta);
}

void Publisher::sendMeta(bool ended) {
   connection_.publish(subjectOf(metaToken), ownMeta(ended));
   ++status_.heartbeats;
   metaAt_ = now() + options_.heartbeat;
   metaWhenDone_ = metaWhenDone_ && !dirty_.empty();
}

void Publisher::end() {
   if (status_.publishing && !ended_) {
      ended_ = true;
      pump();
      sendMeta(true);
   }
}

}  // namespace Fleet
