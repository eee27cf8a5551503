#include "tools/ptpexport/EventStream.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/State/Json.h"
#include "Holt/State/Match.h"
#include "Holt/State/Place.h"
#include "Holt/Times.h"
#include "Kiv/Visit.h"
#include "tools/ptpexport/Health.h"

namespace Ptpexport {

using Holt::Json;

namespace {

Json timed() {
   return Json{{"time", Holt::timeText(Holt::wallNow(), Holt::TimeForm::universal)}};
}

/// Whether `path` is at `above` or below it.
bool isWithin(std::string_view path, std::string_view above) {
   return path.starts_with(above) &&
          (path.size() == above.size() || path[above.size()] == '.' || path[above.size()] == '[');
}

}  // namespace

std::string eventText(char const* event, std::string const& line) {
   return (event != nullptr ? "event: " + std::string(event) + "\n" : "") + "data: " + line +
          "\n\n";
}

EventStream::EventStream(Events& events, std::vector<Selected> selected)
      : events_(events), selected_(std::move(selected)) {
   events_.streams_.push_back(this);
   // How long a browser waits before it connects again.
   text_ = "retry: 2000\n\n";
   if (!events_.feed_.status().current) {
      text_ += eventText("source", healthJson(events_.feed_));
   }
}

EventStream::~EventStream() {
   std::erase(events_.streams_, this);
}

bool EventStream::selects(Holt::OfferedRoot const& root, std::string_view path) const {
   return selected_.empty() || std::ranges::any_of(selected_, [&](Selected const& one) {
             return Holt::isSame(one.root, root) && Holt::concerns(path, one.below);
          });
}

void EventStream::ready() {
   if (wake) {
      wake();
   }
}

void EventStream::enqueue(Message const& message) {
   backlog_.push_back(message);
   queued_ += message->size();
}

void EventStream::change(Holt::OfferedRoot const& root, Sarn::String const& path, bool isEntity,
                         bool isDeleted, Message const& message) {
   if (!isBehind() && queued_ + message->size() <= events_.limits_.backlog) {
      enqueue(message);
   } else {
      remember(root, path, isEntity, isDeleted);
   }
   ready();
}

void EventStream::source() {
   sourceDue_ = true;
   ready();
}

void EventStream::tell(Message const& message) {
   enqueue(message);
   ready();
}

void EventStream::comment() {
   if (backlog_.empty() && !isBehind()) {
      commentDue_ = true;
      ready();
   }
}

//--- What is not kept -----------------------------------------------------------------------------

void EventStream::remember(Holt::OfferedRoot const& root, Sarn::String const& path, bool isEntity,
                           bool isDeleted) {
   ++coalesced_;
   if (far_) {
      return;
   }
   bool deleted = isDeleted;
   if (isEntity) {
      // What was below an entity is gone with it, and what is below a new one follows it.
      if (auto const at = places_.find(path); at != places_.end()) {
         deleted = deleted || at->second->deleted;
      }
      forgetBelow(path);
   } else if (places_.contains(path)) {
      return;
   }
   if (behind_.size() == events_.limits_.paths) {
      far_ = true;
      places_.clear();
      behind_.clear();
      behindBytes_ = 0;
      return;
   }
   auto known = std::ranges::find_if(
         roots_, [&root](Holt::OfferedRoot const& one) { return Holt::isSame(one, root); });
   if (known == roots_.end()) {
      known = roots_.insert(known, root);
   }
   behind_.push_back({&*known, path, deleted});
   places_.emplace(behind_.back().path, std::prev(behind_.end()));
   behindBytes_ += path.size() + sizeof(Behind);
}

std::list<EventStream::Behind>::iterator EventStream::forget(std::list<Behind>::iterator at) {
   behindBytes_ -= at->path.size() + sizeof(Behind);
   places_.erase(at->path);
   return behind_.erase(at);
}

void EventStream::forgetBelow(Sarn::String const& path) {
   for (auto at = behind_.begin(); at != behind_.end();) {
      at = isWithin(at->path, path) ? forget(at) : std::next(at);
   }
}

//--- What is sent ---------------------------------------------------------------------------------

std::size_t EventStream::read(std::span<char> into) {
   if (sent_ == text_.size()) {
      text_.clear();
      sent_ = 0;
      render(into.size());
   }
   std::size_t const size = std::min(into.size(), text_.size() - sent_);
   std::memcpy(into.data(), text_.data() + sent_, size);
   sent_ += size;
   return size;
}

void EventStream::render(std::size_t most) {
   while (text_.size() < most && (!backlog_.empty() || isBehind())) {
      if (!backlog_.empty()) {
         queued_ -= backlog_.front()->size();
         text_ += *backlog_.front();
         backlog_.pop_front();
      } else {
         renderBehind();
      }
   }
   if (commentDue_ && text_.empty()) {
      text_ = ":\n\n";
   }
   commentDue_ = false;
}

void EventStream::renderBehind() {
   if (coalesced_ != 0) {
      Json json = timed();
      json["event"] = "coalesced";
      json["changes"] = coalesced_;
      text_ += eventText(nullptr, Holt::jsonLine(json));
      coalesced_ = 0;
   } else if (!behind_.empty()) {
      renderPlace(behind_.front());
      forget(behind_.begin());
   } else {
      std::string line = healthJson(events_.feed_);
      if (far_) {
         line.insert(line.size() - 1, ",\"again\":true");
      }
      text_ += eventText("source", line);
      far_ = false;
      sourceDue_ = false;
   }
}

void EventStream::renderPlace(Behind const& behind) {
   Sarn::Ptr<Kiv::Entity> const root = events_.mirrorOf(*behind.root);
   if (root == nullptr) {
      return;
   }
   auto const say = [this, &behind](char const* what, Json const* value) {
      Json json = timed();
      json["path"] = behind.path;
      json["change"] = what;
      if (value != nullptr) {
         json["new"] = *value;
      }
      text_ += eventText(nullptr, Holt::jsonLine(json));
   };
   try {
      Holt::Place const place(
            root, behind.root->name,
            Holt::parseSteps(std::string_view(behind.path).substr(behind.root->name.size())));
      if (place.leadsToEntity()) {
         Kiv::Entity const* const entity = place.entity();
         if (behind.deleted || entity == nullptr) {
            say("deleted", nullptr);
         }
         if (entity != nullptr) {
            Json given = Json::object();
            Kiv::forEachGivenMember(entity->kivType(), [&](Kiv::FieldDescriptor const& field) {
               given[field.name] = Holt::jsonOf(Kiv::Present(*entity, field).value());
            });
            say("created", &given);
         }
      } else if (place.isCollection()) {
         say("set", nullptr);
      } else if (place.exists()) {
         Json const value = Holt::jsonOf(place.value()->ref());
         say("set", &value);
      } else {
         say("deleted", nullptr);
      }
   } catch (Holt::Failure const&) {
      // What contains it is gone, which is another change.
   }
}

}  // namespace Ptpexport
