// Between the messages of gNMI and what the rest of the program works on, which knows nothing of
// protobuf.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ptpgnmi/Model.h"
#include "tools/ptpgnmi/Value.h"

namespace Ptpgnmi {

/// Codes of gRPC that a request may be refused with.
enum class Code : U8 {
   ok = 0,
   invalidArgument = 3,
   notFound = 5,
   permissionDenied = 7,
   resourceExhausted = 8,
   unimplemented = 12,
   unavailable = 14,
};

/// A request that is refused.
class Refusal : public std::runtime_error {
public:
   Refusal(Code code, std::string const& message) : std::runtime_error(message), code_(code) {}
   Code code() const noexcept { return code_; }

private:
   Code code_;
};

/// The most that a client may ask for.
struct Limits {
   std::size_t subscribers = 256;
   /// Of one subscription, or of one Get.
   std::size_t paths = 128;
   /// Bytes of a request, and of the answer to a Get.
   std::size_t request = 1 << 20;
   std::size_t answer = 64 << 20;
   /// A message of a subscription is closed when it has this size.
   std::size_t message = 64 << 10;
   /// Deletions that wait for a subscriber; beyond them, it is sent everything again.
   std::size_t deletions = 4096;
   /// Nanoseconds: the shortest sample or heartbeat interval, and the shortest time between two
   /// messages of changes to a subscriber.
   U64 interval = 100'000'000;
   U64 gather = 10'000'000;
};

/// A path together with its prefix.
struct Asked {
   std::string origin;
   Elems elems;
};

enum class SubscriptionMode : U8 { targetDefined = 0, onChange = 1, sample = 2 };
enum class ListMode : U8 { stream = 0, once = 1, poll = 2 };

struct Subscription {
   Elems path;
   SubscriptionMode mode = SubscriptionMode::targetDefined;
   /// Nanoseconds.
   U64 sampleInterval = 0;
   U64 heartbeatInterval = 0;
   bool suppressRedundant = false;
};

struct SubscriptionList {
   std::string origin;
   std::string target;
   ListMode mode = ListMode::stream;
   Encoding encoding = Encoding::json;
   bool updatesOnly = false;
   std::vector<Subscription> subscriptions;
};

struct GetQuery {
   std::string target;
   Encoding encoding = Encoding::json;
   enum class Part : U8 { all, config, state };
   Part part = Part::all;
   std::vector<Asked> paths;
};

/// Reads a `gnmi.SubscribeRequest`; nothing for a poll. Throws `Refusal`.
std::optional<SubscriptionList> readSubscribe(std::string_view bytes, Limits const& limits);
/// Reads a `gnmi.GetRequest`. Throws `Refusal`.
GetQuery readGet(std::string_view bytes, Limits const& limits);

/// A `gnmi.Path`, encoded.
std::string pathBytes(Elems const& elems);
/// The prefix of a notification: a `gnmi.Path` with origin and target only.
std::string prefixBytes(std::string const& origin, std::string const& target);
/// A `gnmi.TypedValue`, encoded.
std::string valueBytes(Value const& value, Encoding encoding);
/// The same with a whole document as JSON.
std::string documentBytes(std::string const& json, Encoding encoding);
/// JSON text of a value.
std::string jsonText(Value const& value, Encoding encoding);

/// A `gnmi.CapabilityResponse`, encoded.
std::string capabilitiesBytes(std::vector<OfferedModel> const& models);

}  // namespace Ptpgnmi
