#include "tools/ptpgnmi/Codec.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "Holt/State/Json.h"
#include "Kiv/Text.h"
#include "tools/ptpgnmi/Wire.h"
#include "tools/ptpgnmi/gnmi.pb.h"

namespace Ptpgnmi {

namespace {

[[noreturn]] void refuse(Code code, std::string const& message) {
   throw Refusal(code, message);
}

template <class Message>
Message parsed(std::string_view bytes) {
   Message message;
   if (!message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
      refuse(Code::invalidArgument, "the request is no valid " + message.GetTypeName());
   }
   return message;
}

template <class Extensions>
void checkExtensions(Extensions const& extensions) {
   for (gnmi_ext::Extension const& extension : extensions) {
      if (extension.has_history()) {
         refuse(Code::unimplemented, "the extension 'history' is not implemented");
      }
      if (extension.has_depth() && extension.depth().level() != 0) {
         refuse(Code::unimplemented, "the extension 'depth' is not implemented");
      }
   }
}

Encoding encodingOf(int number) {
   switch (number) {
      case gnmi::JSON:
         return Encoding::json;
      case gnmi::PROTO:
         return Encoding::proto;
      case gnmi::JSON_IETF:
         return Encoding::jsonIetf;
      default:
         refuse(Code::unimplemented,
                "the encoding " +
                      (gnmi::Encoding_IsValid(number)
                             ? gnmi::Encoding_Name(static_cast<gnmi::Encoding>(number))
                             : std::to_string(number)) +
                      " is not implemented; JSON, PROTO and JSON_IETF are");
   }
}

/// A path below a prefix.
Asked asked(gnmi::Path const& prefix, gnmi::Path const& path) {
   Asked asked;
   for (gnmi::Path const* const part : {&prefix, &path}) {
      for (gnmi::PathElem const& elem : part->elem()) {
         Elem& made = asked.elems.emplace_back();
         made.name = elem.name();
         made.keys.insert(elem.key().begin(), elem.key().end());
      }
   }
   std::string const text = pathText(asked.elems);
   if (prefix.element_size() + path.element_size() != 0) {
      refuse(Code::invalidArgument, text + ": 'element' is not supported; use 'elem'");
   }
   if (!path.origin().empty() && !prefix.origin().empty() && path.origin() != prefix.origin()) {
      refuse(Code::invalidArgument, text + ": the origin is '" + path.origin() +
                                          "', but that of the prefix is '" + prefix.origin() + "'");
   }
   if (!path.target().empty()) {
      refuse(Code::invalidArgument, text + ": only the prefix may have a target");
   }
   if (asked.elems.size() > Pattern::mostElems) {
      refuse(Code::invalidArgument, "a path has " + std::to_string(asked.elems.size()) +
                                          " elements; at most " +
                                          std::to_string(Pattern::mostElems) + " are allowed");
   }
   for (Elem const& elem : asked.elems) {
      if (elem.name.empty()) {
         refuse(Code::invalidArgument, text + ": an element has no name");
      }
   }
   asked.origin = !path.origin().empty() ? path.origin() : prefix.origin();
   if (asked.origin.empty()) {
      asked.origin = "openconfig";
   }
   return asked;
}

void checkCount(int count, Limits const& limits) {
   if (static_cast<std::size_t>(count) > limits.paths) {
      refuse(Code::resourceExhausted, "the request has " + std::to_string(count) +
                                            " paths; at most " + std::to_string(limits.paths) +
                                            " are allowed");
   }
}

void checkInterval(char const* what, U64 interval, Elems const& path, Limits const& limits) {
   if (interval != 0 && interval < limits.interval) {
      refuse(Code::invalidArgument, pathText(path) + ": the " + what + " is " +
                                          std::to_string(interval) + " ns; at least " +
                                          std::to_string(limits.interval) + " ns are possible");
   }
}

Subscription subscriptionOf(gnmi::Subscription const& from, Elems path, Limits const& limits) {
   Subscription subscription;
   subscription.path = std::move(path);
   if (!gnmi::SubscriptionMode_IsValid(from.mode())) {
      refuse(Code::invalidArgument,
             pathText(subscription.path) + ": there is no mode " + std::to_string(from.mode()));
   }
   subscription.mode = static_cast<SubscriptionMode>(from.mode());
   checkInterval("sample interval", from.sample_interval(), subscription.path, limits);
   checkInterval("heartbeat interval", from.heartbeat_interval(), subscription.path, limits);
   subscription.sampleInterval = from.sample_interval();
   subscription.heartbeatInterval = from.heartbeat_interval();
   subscription.suppressRedundant = from.suppress_redundant();
   return subscription;
}

/// A message as bytes that are always the same.
std::string serialized(google::protobuf::MessageLite const& message) {
   std::string bytes;
   google::protobuf::io::StringOutputStream stream(&bytes);
   google::protobuf::io::CodedOutputStream out(&stream);
   out.SetSerializationDeterministic(true);
   message.SerializeToCodedStream(&out);
   out.Trim();
   return bytes;
}

struct JsonText {
   bool quoted;

   std::string operator()(bool v) const { return v ? "true" : "false"; }
   std::string operator()(U64 v) const { return number(std::to_string(v)); }
   std::string operator()(S64 v) const { return number(std::to_string(v)); }
   std::string operator()(double v) const {
      Sarn::String text;
      Kiv::printDouble(text, v);
      return std::isfinite(v) ? number(std::string(text)) : "\"" + std::string(text) + "\"";
   }
   std::string operator()(std::string const& v) const {
      return Holt::jsonLine(Holt::jsonOf(Sarn::String(v)));
   }
   std::string number(std::string const& text) const { return quoted ? "\"" + text + "\"" : text; }
};

struct Scalar {
   gnmi::TypedValue& to;

   void operator()(bool v) const { to.set_bool_val(v); }
   void operator()(U64 v) const { to.set_uint_val(v); }
   void operator()(S64 v) const { to.set_int_val(v); }
   void operator()(double v) const { to.set_double_val(v); }
   /// A proto string is UTF-8.
   void operator()(std::string const& v) const {
      if (Holt::jsonOf(Sarn::String(v)).is_string()) {
         to.set_string_val(v);
      } else {
         to.set_bytes_val(v);
      }
   }
};

}  // namespace

std::optional<SubscriptionList> readSubscribe(std::string_view bytes, Limits const& limits) {
   auto const request = parsed<gnmi::SubscribeRequest>(bytes);
   checkExtensions(request.extension());
   if (request.has_poll()) {
      return std::nullopt;
   }
   if (!request.has_subscribe()) {
      refuse(Code::invalidArgument, "a request has neither 'subscribe' nor 'poll'");
   }
   gnmi::SubscriptionList const& from = request.subscribe();
   SubscriptionList list;
   if (!gnmi::SubscriptionList_Mode_IsValid(from.mode())) {
      refuse(Code::invalidArgument, "there is no mode " + std::to_string(from.mode()));
   }
   list.mode = static_cast<ListMode>(from.mode());
   list.encoding = encodingOf(from.encoding());
   list.updatesOnly = from.updates_only();
   list.target = from.prefix().target();
   checkCount(from.subscription_size(), limits);
   if (from.subscription_size() == 0) {
      refuse(Code::invalidArgument, "the subscription has no paths");
   }
   for (gnmi::Subscription const& subscription : from.subscription()) {
      Asked path = asked(from.prefix(), subscription.path());
      if (!list.subscriptions.empty() && path.origin != list.origin) {
         refuse(Code::invalidArgument, pathText(path.elems) + ": the origin is '" + path.origin +
                                             "', that of the first path '" + list.origin +
                                             "'; a subscription can have one");
      }
      list.origin = path.origin;
      list.subscriptions.push_back(subscriptionOf(subscription, std::move(path.elems), limits));
   }
   return list;
}

GetQuery readGet(std::string_view bytes, Limits const& limits) {
   auto const request = parsed<gnmi::GetRequest>(bytes);
   checkExtensions(request.extension());
   GetQuery query;
   query.encoding = encodingOf(request.encoding());
   query.target = request.prefix().target();
   query.part = request.type() == gnmi::GetRequest::ALL      ? GetQuery::Part::all
                : request.type() == gnmi::GetRequest::CONFIG ? GetQuery::Part::config
                                                             : GetQuery::Part::state;
   checkCount(request.path_size(), limits);
   for (gnmi::Path const& path : request.path()) {
      query.paths.push_back(asked(request.prefix(), path));
   }
   if (query.paths.empty()) {
      query.paths.push_back(asked(request.prefix(), gnmi::Path()));
   }
   return query;
}

std::string pathBytes(Elems const& elems) {
   gnmi::Path path;
   for (Elem const& elem : elems) {
      gnmi::PathElem& to = *path.add_elem();
      to.set_name(elem.name);
      for (auto const& [name, value] : elem.keys) {
         (*to.mutable_key())[name] = value;
      }
   }
   return serialized(path);
}

std::string prefixBytes(std::string const& origin, std::string const& target) {
   gnmi::Path path;
   path.set_origin(origin);
   path.set_target(target);
   return serialized(path);
}

std::string jsonText(Value const& value, Encoding encoding) {
   return std::visit(JsonText{value.quoted && encoding == Encoding::jsonIetf}, value.of);
}

std::string documentBytes(std::string const& json, Encoding encoding) {
   gnmi::TypedValue typed;
   if (encoding == Encoding::jsonIetf) {
      typed.set_json_ietf_val(json);
   } else {
      typed.set_json_val(json);
   }
   return serialized(typed);
}

std::string valueBytes(Value const& value, Encoding encoding) {
   if (encoding != Encoding::proto) {
      return documentBytes(jsonText(value, encoding), encoding);
   }
   gnmi::TypedValue typed;
   std::visit(Scalar{typed}, value.of);
   return serialized(typed);
}

std::string capabilitiesBytes(std::vector<OfferedModel> const& models) {
   gnmi::CapabilityResponse response;
   for (OfferedModel const& model : models) {
      gnmi::ModelData& to = *response.add_supported_models();
      to.set_name(model.name);
      to.set_organization(model.organization);
      to.set_version(model.version);
   }
   for (gnmi::Encoding const encoding : {gnmi::JSON, gnmi::PROTO, gnmi::JSON_IETF}) {
      response.add_supported_encodings(encoding);
   }
   response.set_gnmi_version("0.10.0");
   return serialized(response);
}

}  // namespace Ptpgnmi
