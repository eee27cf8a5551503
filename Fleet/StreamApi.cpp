#include "Fleet/StreamApi.h"

#include <nlohmann/json.hpp>

namespace Fleet {

using Holt::Json;

namespace {

constexpr U32 noResponders = 503;
constexpr U64 streamNotFound = 10059;

Json parsed(Arrived const* answer) {
   return answer != nullptr && !answer->data.empty() ? Json::parse(answer->data, nullptr, false)
                                                     : Json();
}

U64 errorCode(Json const& reply) {
   auto const error = reply.is_object() ? reply.find("error") : reply.end();
   return reply.is_object() && error != reply.end() && error->is_object() &&
                      error->contains("err_code") && (*error)["err_code"].is_number_unsigned()
                ? (*error)["err_code"].get<U64>()
                : 0;
}

std::string unsuitable(Json const& config, std::string const& prefix) {
   if (numberIn(config, "max_msgs_per_subject") < 1) {
      return "it keeps every message; a fleet needs 'max_msgs_per_subject' of 1";
   }
   if (numberIn(config, "max_age") != 0) {
      return "it forgets messages by their age ('max_age')";
   }
   auto const subjects = config.find("subjects");
   for (std::size_t i = 0; subjects != config.end() && subjects->is_array() && i < subjects->size();
        ++i) {
      if ((*subjects)[i] == prefix + ".>") {
         return {};
      }
   }
   return "it does not have the subjects '" + prefix + ".>'";
}

}  // namespace

S64 numberIn(Json const& object, char const* name) {
   auto const at = object.is_object() ? object.find(name) : object.end();
   return object.is_object() && at != object.end() && at->is_number_integer() ? at->get<S64>() : 0;
}

std::string readApiReply(Arrived const* answer, std::string const& stream, Json& reply) {
   if (answer == nullptr) {
      return "JetStream does not answer";
   }
   if (answer->status == noResponders) {
      return "the server has no JetStream, or this user may not use it";
   }
   reply = parsed(answer);
   if (!reply.is_object()) {
      return "JetStream has answered with what is no JSON object";
   }
   auto const error = reply.find("error");
   if (error == reply.end() || !error->is_object()) {
      return {};
   }
   if (errorCode(reply) == streamNotFound) {
      return "there is no stream '" + stream + "'; a publisher creates it";
   }
   auto const text = error->find("description");
   return "stream '" + stream + "': " +
          (text != error->end() && text->is_string() ? text->get<std::string>()
                                                     : "refused without a reason");
}

std::string readStreamState(Arrived const* answer, std::string const& stream,
                            std::string const& prefix, StreamState& state) {
   Json reply;
   if (std::string wrong = readApiReply(answer, stream, reply); !wrong.empty()) {
      return wrong;
   }
   auto const inner = reply.find("state");
   auto const config = reply.find("config");
   auto const created = reply.find("created");
   if (inner == reply.end() || !inner->is_object() || config == reply.end() ||
       !config->is_object() || created == reply.end() || !created->is_string() ||
       !inner->contains("last_seq") || !(*inner)["last_seq"].is_number_unsigned()) {
      return "stream '" + stream + "': JetStream's answer lacks 'created', 'config' or 'state'";
   }
   state.created = created->get<std::string>();
   state.last = (*inner)["last_seq"].get<U64>();
   state.unsuitable = unsuitable(*config, prefix);
   return {};
}

bool isError(Json const& reply, U64 code) {
   return errorCode(reply) == code;
}

bool isMissingStream(Arrived const* answer) {
   return errorCode(parsed(answer)) == streamNotFound;
}

Json streamConfig(StreamOptions const& options, std::string const& prefix) {
   return {{"name", options.name},
           {"description", "States of PTP switches: the last value of each entity"},
           {"subjects", Json::array({prefix + ".>"})},
           {"retention", "limits"},
           {"discard", "old"},
           {"storage", options.inMemory ? "memory" : "file"},
           {"num_replicas", options.replicas},
           {"max_msgs_per_subject", 1},
           {"max_consumers", -1},
           {"max_msgs", -1},
           {"max_bytes", -1},
           {"max_age", 0},
           {"max_msg_size", -1},
           {"duplicate_window", 1'000'000'000},
           {"allow_direct", true}};
}

}  // namespace Fleet
