#include "tools/ptpgnmi/Engine.h"

#include <algorithm>

#include "tools/ptpgnmi/Document.h"
#include "tools/ptpgnmi/OpenconfigModel.h"
#include "tools/ptpgnmi/Wire.h"

namespace Ptpgnmi {

namespace {

/// How long a call may wait before its first request.
constexpr U64 patience = 10'000'000'000;

bool hasWildcard(Elems const& elems) {
   return std::any_of(elems.begin(), elems.end(), [](Elem const& elem) {
      return elem.name == "*" || elem.name == "..." ||
             std::any_of(elem.keys.begin(), elem.keys.end(),
                         [](auto const& key) { return key.second == "*"; });
   });
}

void addUpdate(std::string& notification, Elems const& path, std::string const& value) {
   std::string update;
   Wire::bytes(update, 1, pathBytes(path));
   Wire::bytes(update, 3, value);
   Wire::bytes(notification, 4, update);
}

}  // namespace

Engine::Engine(Limits const& limits, U64 (*clock)() noexcept) : limits_(limits), clock_(clock) {
   models_.push_back(std::make_unique<OwnModel>());
   models_.push_back(std::make_unique<OpenconfigModel>());
   for (auto const& model : models_) {
      trees_.push_back(std::make_unique<Tree>(*model));
   }
}

Engine::~Engine() = default;

void Engine::rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root) {
   for (auto const& tree : trees_) {
      tree->rootIs(root);
   }
}

void Engine::rootDel(Kiv::NamedEntity const& root) {
   for (auto const& tree : trees_) {
      tree->rootDel(root);
   }
}

void Engine::readyIs(bool ready, std::string const& why) {
   ready_ = ready;
   why_ = why;
}

void Engine::checkReady() const {
   if (!ready_) {
      throw Refusal(Code::unavailable, why_);
   }
}

Tree& Engine::treeOf(std::string const& origin) {
   std::string known;
   for (auto const& tree : trees_) {
      if (tree->model().origin() == origin) {
         return *tree;
      }
      known += (known.empty() ? "'" : ", '") + tree->model().origin() + "'";
   }
   throw Refusal(Code::invalidArgument, "there is no origin '" + origin + "'; there are: " + known);
}

std::string Engine::capabilities() const {
   std::vector<OfferedModel> models;
   for (auto const& model : models_) {
      models.push_back(model->offered());
   }
   return capabilitiesBytes(models);
}

//--- Get ------------------------------------------------------------------------------------------

std::string Engine::get(std::string_view request) {
   GetQuery const query = readGet(request, limits_);
   checkReady();
   std::string response;
   for (Asked const& asked : query.paths) {
      Wire::bytes(response, 1, notification(asked, query, limits_.answer - response.size()));
   }
   return response;
}

/// What is at one path, in no more than `room` bytes.
std::string Engine::notification(Asked const& asked, GetQuery const& query, std::size_t room) {
   Tree& tree = treeOf(asked.origin);
   Model const& model = tree.model();
   std::string const path = pathText(asked.elems);
   if (std::string const why = model.objection(asked.elems, tree.roots()); !why.empty()) {
      throw Refusal(Code::invalidArgument, path + ": " + why);
   }
   std::string notification;
   Wire::number(notification, 1, Holt::wallNow());
   Wire::bytes(notification, 2, prefixBytes(asked.origin, query.target));
   std::vector<std::pair<Elems, Document>> documents;
   std::size_t size = 0;
   bool found = false;
   tree.walk(Pattern(asked.elems), [&](Elems const& at, std::size_t named, Value const& value) {
      found = true;
      if (query.part != GetQuery::Part::all &&
          model.isConfig(at) != (query.part == GetQuery::Part::config)) {
         return;
      }
      if (query.encoding == Encoding::proto) {
         addUpdate(notification, at, valueBytes(value, query.encoding));
         size = notification.size();
      } else {
         Elems const place(at.begin(), at.begin() + static_cast<std::ptrdiff_t>(named));
         if (documents.empty() || documents.back().first != place) {
            documents.emplace_back(place, Document(model, query.encoding));
         }
         documents.back().second.add(at, named, value);
         size += at.back().name.size() + 8;  // at least
      }
      if (size > room) {
         throw Refusal(Code::resourceExhausted,
                       path + ": the answer would be longer than " +
                             std::to_string(limits_.answer) +
                             " bytes; ask for less, or subscribe with mode ONCE");
      }
   });
   if (!found && !hasWildcard(asked.elems)) {
      throw Refusal(Code::notFound, path + ": there is nothing");
   }
   for (auto const& [place, document] : documents) {
      addUpdate(notification, place, documentBytes(document.text(), query.encoding));
   }
   if (notification.size() > room) {
      throw Refusal(Code::resourceExhausted, path + ": the answer is longer than " +
                                                   std::to_string(limits_.answer) + " bytes");
   }
   return notification;
}

//--- Subscribe ------------------------------------------------------------------------------------

void Engine::opened(std::shared_ptr<Stream> const& stream) {
   calls_.emplace(stream.get(), Call{stream, nullptr, clock_()});
   stream->readNext();
}

void Engine::refuse(Stream& stream, Refusal const& refusal) {
   stream.finish(refusal.code(), refusal.what());
   calls_.erase(&stream);
}

void Engine::received(Stream& stream, std::string_view request) {
   auto const at = calls_.find(&stream);
   if (at == calls_.end()) {
      return;
   }
   Call& call = at->second;
   try {
      std::optional<SubscriptionList> list = readSubscribe(request, limits_);
      if (call.subscriber != nullptr) {
         if (list) {
            throw Refusal(Code::invalidArgument, "a stream has one subscription; open another");
         }
         if (!call.subscriber->polled()) {
            throw Refusal(Code::invalidArgument, "a poll requires a subscription of mode POLL");
         }
         return;
      }
      if (!list) {
         throw Refusal(Code::invalidArgument, "a poll before the subscription");
      }
      checkReady();
      Tree& tree = treeOf(list->origin);
      call.subscriber =
            std::make_unique<Subscriber>(call.stream, tree, std::move(*list), limits_, clock_());
   } catch (Refusal const& refusal) {
      refuse(stream, refusal);
   }
}

void Engine::closed(Stream& stream) {
   auto const at = calls_.find(&stream);
   if (at == calls_.end()) {
      return;
   }
   // A client that only listens may say so, and a client that polls is done then.
   if (at->second.subscriber == nullptr || at->second.subscriber->mode() == ListMode::poll) {
      stream.finish(Code::ok, "");
      calls_.erase(at);
   }
}

void Engine::written(Stream& stream) {
   auto const at = calls_.find(&stream);
   if (at != calls_.end() && at->second.subscriber != nullptr) {
      at->second.subscriber->written();
   }
}

void Engine::gone(Stream& stream) {
   calls_.erase(&stream);
}

void Engine::appendTo(std::vector<pollfd>&) {
   U64 const now = clock_();
   U64 const wall = Holt::wallNow();
   for (auto at = calls_.begin(); at != calls_.end();) {
      Call& call = at->second;
      bool goesOn = true;
      if (call.subscriber != nullptr) {
         goesOn = call.subscriber->flush(now, wall);
      } else if (now >= call.opened + patience) {
         call.stream->finish(Code::invalidArgument, "no subscription came within 10 seconds");
         goesOn = false;
      }
      at = goesOn ? std::next(at) : calls_.erase(at);
   }
}

U64 Engine::deadline() const {
   U64 first = 0;
   for (auto const& [stream, call] : calls_) {
      U64 const at =
            call.subscriber != nullptr ? call.subscriber->deadline() : call.opened + patience;
      first = at != 0 && (first == 0 || at < first) ? at : first;
   }
   return first;
}

std::size_t Engine::subscriberBytes() const noexcept {
   std::size_t bytes = 0;
   for (auto const& [stream, call] : calls_) {
      bytes += call.subscriber != nullptr ? call.subscriber->bytes() : 0;
   }
   return bytes;
}

}  // namespace Ptpgnmi
