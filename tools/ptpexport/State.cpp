#include "tools/ptpexport/State.h"

#include "Holt/Failure.h"
#include "Holt/State/Match.h"
#include "tools/ptpexport/Health.h"
#include "tools/ptpexport/StateBody.h"

namespace Ptpexport {

using Kiv::Entity;

namespace {

Holt::OfferedRoot offered(Kiv::NamedEntity const& root) {
   return {root.kivType().name, root.nameString()};
}

void addPlaces(std::vector<StateBody::At>& places, Kiv::NamedEntity& root, Holt::Path const& path) {
   Sarn::Ptr<Entity> const entity(&root);
   for (Holt::Path const& match : Holt::matchesOf(entity, path)) {
      Holt::Place place(entity, match.root.name, match.steps);
      if (!place.exists()) {
         throw Holt::Failure(place.path() + ": does not exist");
      }
      places.push_back({match, std::move(place)});
   }
}

}  // namespace

Reply stateReply(Feed const& feed, Request const& request) {
   std::vector<Kiv::NamedEntity*> const roots = feed.roots();
   if (roots.empty()) {
      return refusal(503, feed.status().reason);
   }
   return stateReply(roots, feed.status().current, request.rest);
}

Reply stateReply(std::vector<Kiv::NamedEntity*> const& roots, bool current,
                 std::string const& path) {
   std::vector<StateBody::At> places;
   if (path.empty()) {
      for (Kiv::NamedEntity* const root : roots) {
         addPlaces(places, *root, {offered(*root), {}});
      }
   } else {
      std::vector<Holt::OfferedRoot> known;
      for (Kiv::NamedEntity const* const root : roots) {
         known.push_back(offered(*root));
      }
      Holt::Path const wanted = Holt::parsePath(path, known);
      for (std::size_t i = 0; i != roots.size(); ++i) {
         if (Holt::isSame(known[i], wanted.root)) {
            addPlaces(places, *roots[i], wanted);
         }
      }
   }
   Reply reply;
   reply.contentType = "application/json";
   if (!current) {
      reply.headers.emplace_back("Warning", staleWarning);
   }
   reply.body = std::make_unique<StateBody>(std::move(places));
   return reply;
}

}  // namespace Ptpexport
