#include "tools/ptpexport/Events.h"

#include <nlohmann/json.hpp>

#include "Holt/State/Changes.h"
#include "Holt/State/Json.h"
#include "Holt/Times.h"
#include "tools/ptpexport/EventStream.h"

namespace Ptpexport {

using Holt::Json;

/// A root whose changes are reported.
struct Events::Watched final : Kiv::Observer {
   Watched(Events& owner, Sarn::Ptr<Kiv::NamedEntity> const& mirror)
         : events(owner), root(mirror), offered{mirror->kivType().name, mirror->nameString()} {
      root->observerAdd(*this, Kiv::Scope::subtree);
   }
   ~Watched() { root->observerDel(*this, Kiv::Scope::subtree); }
   Watched(Watched const&) = delete;
   Watched& operator=(Watched const&) = delete;

   void onChange(Kiv::Change const& change) override;

   Events& events;
   Sarn::Ptr<Kiv::NamedEntity> root;
   Holt::OfferedRoot offered;
};

void Events::Watched::onChange(Kiv::Change const& change) {
   if (events.streams_.empty()) {
      return;
   }
   Holt::ChangeText const text = Holt::changeText(change);
   // All readers share the message.
   EventStream::Message message;
   bool isEntity = false;
   bool isDeleted = false;
   for (EventStream* const stream : events.streams_) {
      if (!stream->selects(offered, text.path)) {
         continue;
      }
      if (message == nullptr) {
         Json json{{"time", Holt::timeText(Holt::wallNow(), Holt::TimeForm::universal)}};
         json.update(Holt::changeJson(text));
         isDeleted = json["change"] == "deleted";
         Kiv::FieldDescriptor const* const field =
               Kiv::entityOf(change).kivType().field(change.attributeId);
         isEntity = field != nullptr && field->type != nullptr &&
                    field->type->kind == Kiv::TypeKind::entity;
         message = std::make_shared<std::string const>(eventText(nullptr, Holt::jsonLine(json)));
      }
      stream->change(offered, text.path, isEntity, isDeleted, message);
   }
}

Events::Events(Feed& feed, Limits const& limits) : feed_(feed), limits_(limits) {
   feed_.listenerAdd(*this);
}

Events::~Events() {
   feed_.listenerDel(*this);
}

Reply Events::reply(Request const& request) {
   if (feed_.roots().empty()) {
      return refusal(503, feed_.status().reason);
   }
   std::vector<std::string> const paths = request.target.values("path");
   if (paths.size() > limits_.asked) {
      return refusal(400, std::to_string(paths.size()) + " paths; at most " +
                                std::to_string(limits_.asked) + " are allowed");
   }
   std::vector<Holt::OfferedRoot> known;
   for (Watched const& watched : watched_) {
      known.push_back(watched.offered);
   }
   std::vector<EventStream::Selected> selected;
   for (std::string const& text : paths) {
      Holt::Path const path = Holt::parsePath(text, known);
      Sarn::Ptr<Kiv::Entity> const root = mirrorOf(path.root);
      selected.push_back({path.root, Holt::canonicalPath(root->kivType(), path)});
   }
   Reply reply;
   reply.contentType = "text/event-stream";
   reply.endless = true;
   if (streams_.empty()) {
      due_ = limits_.clock() + limits_.comment;
   }
   reply.body = std::make_unique<EventStream>(*this, std::move(selected));
   return reply;
}

std::size_t Events::heldBytes() const noexcept {
   std::size_t all = 0;
   for (EventStream const* const stream : streams_) {
      all += stream->heldBytes();
   }
   return all;
}

Sarn::Ptr<Kiv::Entity> Events::mirrorOf(Holt::OfferedRoot const& root) const {
   for (Watched const& watched : watched_) {
      if (Holt::isSame(watched.offered, root)) {
         return Sarn::Ptr<Kiv::Entity>(watched.root);
      }
   }
   return {};
}

void Events::onStatus(Feed::Status const&) {
   for (EventStream* const stream : streams_) {
      stream->source();
   }
}

void Events::onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) {
   watched_.emplace_back(*this, root);
}

void Events::onRootGone(Kiv::NamedEntity& root) {
   Json const json{{"time", Holt::timeText(Holt::wallNow(), Holt::TimeForm::universal)},
                   {"event", "gone"},
                   {"root", root.nameString()}};
   auto const message =
         std::make_shared<std::string const>(eventText(nullptr, Holt::jsonLine(json)));
   for (EventStream* const stream : streams_) {
      if (stream->selects({root.kivType().name, root.nameString()}, root.nameString())) {
         stream->tell(message);
      }
   }
   watched_.remove_if([&root](Watched const& watched) { return watched.root.get() == &root; });
}

void Events::onTurn(std::span<pollfd const>) {
   if (streams_.empty() || limits_.clock() < due_) {
      return;
   }
   due_ = limits_.clock() + limits_.comment;
   for (EventStream* const stream : streams_) {
      stream->comment();
   }
}

}  // namespace Ptpexport
