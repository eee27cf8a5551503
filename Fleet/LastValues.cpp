#include "Fleet/LastValues.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Kiv/Printable.h"

namespace Fleet {

using Holt::Json;

namespace {

constexpr U64 longestPatience = 120'000'000'000;

/// The bytes of a text in base64. What is not base64 ends it.
std::string fromBase64(std::string_view text) {
   constexpr std::string_view digits =
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
   std::string bytes;
   bytes.reserve(text.size() / 4 * 3);
   U32 bits = 0;
   U32 count = 0;
   for (char const c : text) {
      std::size_t const digit = digits.find(c);
      if (digit == std::string_view::npos) {
         break;
      }
      bits = (bits << 6 | static_cast<U32>(digit)) & 0xffffff;
      count += 6;
      if (count >= 8) {
         count -= 8;
         bytes += static_cast<char>(bits >> count & 0xff);
      }
   }
   return bytes;
}

}  // namespace

LastValues::LastValues(Connection& connection, Options options, Consumer::Reader& reader)
      : connection_(connection),
        options_(std::move(options)),
        reader_(reader),
        patience_(options_.patience) {
   begin();
}

void LastValues::onTurn(std::span<pollfd const>) {
   if (due_ != 0 && connection_.now() >= due_) {
      begin();
   }
}

void LastValues::begin() {
   due_ = 0;
   ++*epoch_;
   subjects_.clear();
   asked_ = open_ = 0;
   reader_.onBegin();
   list();
}

void LastValues::ask(std::string subject, std::string data, Connection::Answer answer) {
   connection_.ask(
         std::move(subject), std::move(data), patience_,
         [held = epoch_, epoch = *epoch_, answer = std::move(answer)](Arrived const* arrived) {
            if (*held == epoch) {
               answer(arrived);
            }
         });
}

/// Asks for the next part of the list.
void LastValues::list() {
   Json const request{{"subjects_filter", options_.filter}, {"offset", subjects_.size()}};
   ask("$JS.API.STREAM.INFO." + options_.stream, request.dump(),
       [this](Arrived const* answer) { onList(answer); });
}

void LastValues::onList(Arrived const* answer) {
   Json reply;
   if (std::string const wrong = readApiReply(answer, options_.stream, reply); !wrong.empty()) {
      failed(wrong, answer == nullptr);
      return;
   }
   std::size_t const before = subjects_.size();
   if (auto const state = reply.find("state"); state != reply.end() && state->is_object()) {
      auto const subjects = state->find("subjects");
      if (subjects != state->end() && subjects->is_object()) {
         for (auto const& each : subjects->items()) {
            subjects_.push_back(each.key());
         }
      }
   }
   auto const total = static_cast<std::size_t>(std::max<S64>(0, numberIn(reply, "total")));
   if (subjects_.size() != before && subjects_.size() < total) {
      list();
   } else {
      next();
   }
}

void LastValues::next() {
   while (open_ < options_.window && asked_ < subjects_.size()) {
      std::string const& subject = subjects_[asked_++];
      ++open_;
      ask("$JS.API.STREAM.MSG.GET." + options_.stream, Json{{"last_by_subj", subject}}.dump(),
          [this, subject](Arrived const* answer) { onValue(subject, answer); });
   }
   if (open_ == 0) {
      reader_.onCaughtUp();
   }
}

void LastValues::onValue(std::string const& subject, Arrived const* answer) {
   --open_;
   Json reply;
   if (std::string const wrong = readApiReply(answer, options_.stream, reply); !wrong.empty()) {
      if (!isError(reply, messageNotFound)) {  // it was purged meanwhile
         failed(wrong, answer == nullptr);
         return;
      }
   } else if (auto const message = reply.find("message");
              message != reply.end() && message->is_object()) {
      auto const data = message->find("data");
      std::string const bytes =
            data != message->end() && data->is_string() ? fromBase64(data->get<std::string>()) : "";
      reader_.onEntry({subject, bytes, static_cast<U64>(numberIn(*message, "seq")), 0});
   }
   next();
}

void LastValues::failed(std::string const& why, bool unanswered) {
   ++*epoch_;
   if (unanswered) {
      // A cluster works on what it was asked even if nobody waits for it any more.
      patience_ = std::min(2 * patience_, std::max(options_.patience, longestPatience));
   }
   due_ = connection_.now() + options_.pause;
   reader_.onReading(Kiv::printable(why));
}

}  // namespace Fleet
