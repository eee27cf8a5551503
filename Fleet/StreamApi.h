// Requests to JetStream, as JSON, and its answers. The library's own functions for them wait.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "Fleet/Connection.h"
#include "Holt/State/Json.h"

namespace Fleet {

/// Nanoseconds for the answer to a request.
inline constexpr U64 apiPatience = 5'000'000'000;

/// The error that there is no such message.
inline constexpr U64 messageNotFound = 10037;

/// How a fleet's stream is kept.
struct StreamOptions {
   std::string name = "PTP";
   /// Copies on servers of a cluster: 1, 3 or 5.
   U32 replicas = 1;
   /// Whether it is kept in memory instead of in files.
   bool inMemory = false;
};

struct StreamState {
   /// When it was created, as the server writes it: another stream of this name has another time.
   std::string created;
   /// The number of its last message.
   U64 last = 0;
   /// What of it does not suit a fleet; empty if it does. Storage and replicas are the
   /// administrator's decision.
   std::string unsuitable;
};

/// Reads an answer. Returns what is wrong, for people; or an empty text.
std::string readApiReply(Arrived const* answer, std::string const& stream, Holt::Json& reply);
/// Reads the answer to STREAM.INFO or .CREATE, about a stream for the subjects below `prefix`.
std::string readStreamState(Arrived const* answer, std::string const& stream,
                            std::string const& prefix, StreamState& state);
/// A member that is a whole number, else 0.
S64 numberIn(Holt::Json const& object, char const* name);
/// Whether a reply that `readApiReply` has read is the error of this number.
bool isError(Holt::Json const& reply, U64 code);
/// Whether the answer says that there is no such stream.
bool isMissingStream(Arrived const* answer);

/// The configuration of a stream for the subjects below `prefix`: one message per subject.
Holt::Json streamConfig(StreamOptions const& options, std::string const& prefix);

}  // namespace Fleet
