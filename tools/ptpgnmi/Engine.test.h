// What the tests of the engine share: a client's end of a stream, and a state.
#pragma once

#include "tools/ptpgnmi/Engine.h"

#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <deque>

#include "PtpLib/PtpStatusStatedbTypes.h"
#include "tools/ptpgnmi/gnmi.pb.h"

namespace Ptpgnmi {

inline U64 testNow = 0;
inline U64 testClock() noexcept {
   return testNow;
}

inline constexpr U64 millisecond = 1'000'000;
inline constexpr U64 second = 1000 * millisecond;

/// A client's end.
class TestStream final : public Stream {
public:
   void write(std::string text) override {
      EXPECT_FALSE(writing) << "the message before has not been sent";
      writing = true;
      largest = std::max(largest, text.size());
      bytes += text.size();
      EXPECT_TRUE(sent.emplace_back().ParseFromString(text));
   }
   void readNext() override { ++reads; }
   void finish(Code c, std::string const& m) override {
      finished = true;
      code = c;
      message = m;
   }

   bool writing = false;
   bool finished = false;
   Code code = Code::ok;
   std::string message;
   int reads = 0;
   std::size_t largest = 0;
   std::size_t bytes = 0;
   std::deque<gnmi::SubscribeResponse> sent;
};

inline std::string text(gnmi::Path const& path) {
   Elems elems;
   for (auto const& elem : path.elem()) {
      elems.push_back({elem.name(), {elem.key().begin(), elem.key().end()}});
   }
   return pathText(elems);
}

inline std::string text(gnmi::TypedValue const& value) {
   google::protobuf::TextFormat::Printer printer;
   printer.SetSingleLineMode(true);
   std::string out;
   printer.PrintToString(value, &out);
   return out.substr(0, out.size() - 1);
}

/// One line for each thing that a client is told, in order.
inline std::string text(gnmi::SubscribeResponse const& response) {
   if (response.sync_response()) {
      return "sync\n";
   }
   std::string out;
   for (auto const& path : response.update().delete_()) {
      out += "delete " + text(path) + "\n";
   }
   for (auto const& update : response.update().update()) {
      out += text(update.path()) + " " + text(update.val()) +
             (update.duplicates() != 0 ? " +" + std::to_string(update.duplicates()) : "") + "\n";
   }
   return out;
}

/// Reads "/tree[name=ptp/status]/portDS[key=*]". Keys here contain no "]".
inline void pathIs(gnmi::Path& path, std::string_view textOf) {
   while (textOf.size() > 1) {
      textOf.remove_prefix(1);
      std::size_t end = 0;
      for (int depth = 0; end != textOf.size() && (depth != 0 || textOf[end] != '/'); ++end) {
         depth += textOf[end] == '[' ? 1 : textOf[end] == ']' ? -1 : 0;
      }
      std::string_view elem = textOf.substr(0, end);
      textOf.remove_prefix(end);
      gnmi::PathElem& to = *path.add_elem();
      to.set_name(std::string(elem.substr(0, elem.find('['))));
      for (std::size_t at = elem.find('['); at < elem.size(); at = elem.find('[', at + 1)) {
         std::string_view const pair = elem.substr(at + 1, elem.find(']', at) - at - 1);
         std::size_t const equals = pair.find('=');
         (*to.mutable_key())[std::string(pair.substr(0, equals))] = pair.substr(equals + 1);
      }
   }
}

class GnmiEngine : public testing::Test {
protected:
   GnmiEngine() {
      testNow = 100 * second;
      limits.gather = 0;
      make();
   }
   void make() {
      engine = std::make_unique<Engine>(limits, &testClock);
      engine->rootIs(status);
      engine->readyIs(true);
   }

   std::shared_ptr<TestStream> open() {
      auto const stream = std::make_shared<TestStream>();
      engine->opened(stream);
      return stream;
   }
   static gnmi::SubscribeRequest request(gnmi::SubscriptionList::Mode mode,
                                         std::vector<std::string> const& paths,
                                         gnmi::Encoding encoding = gnmi::PROTO,
                                         std::string const& origin = "ptplib") {
      gnmi::SubscribeRequest request;
      auto& list = *request.mutable_subscribe();
      list.set_mode(mode);
      list.set_encoding(encoding);
      list.mutable_prefix()->set_origin(origin);
      for (std::string const& path : paths) {
         auto& subscription = *list.add_subscription();
         subscription.set_mode(gnmi::ON_CHANGE);
         pathIs(*subscription.mutable_path(), path);
      }
      return request;
   }
   void send(std::shared_ptr<TestStream> const& stream, gnmi::SubscribeRequest const& message) {
      engine->received(*stream, message.SerializeAsString());
   }
   std::shared_ptr<TestStream> subscribe(gnmi::SubscribeRequest const& message) {
      auto const stream = open();
      send(stream, message);
      return stream;
   }
   void turn() {
      std::vector<pollfd> none;
      engine->appendTo(none);
   }
   /// Reads all that the server has to say now.
   std::string read(std::shared_ptr<TestStream> const& stream) {
      std::string said;
      for (int i = 0; i != 1000 && !stream->finished; ++i) {
         turn();
         if (stream->sent.empty()) {
            break;
         }
         said += text(stream->sent.front());
         stream->sent.pop_front();
         stream->writing = false;
         engine->written(*stream);
      }
      if (stream->finished) {
         said += "finished " + std::to_string(static_cast<int>(stream->code)) +
                 (stream->message.empty() ? "" : " " + stream->message) + "\n";
      }
      return said;
   }
   std::string get(std::string const& path, gnmi::Encoding encoding = gnmi::PROTO,
                   std::string const& origin = "ptplib",
                   gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL) {
      gnmi::GetRequest request;
      request.set_encoding(encoding);
      request.set_type(type);
      gnmi::Path& to = *request.add_path();
      to.set_origin(origin);
      pathIs(to, path);
      try {
         gnmi::GetResponse response;
         EXPECT_TRUE(response.ParseFromString(engine->get(request.SerializeAsString())));
         std::string said;
         for (auto const& notification : response.notification()) {
            for (auto const& update : notification.update()) {
               said += text(update.path()) + " " + text(update.val()) + "\n";
            }
         }
         return said;
      } catch (Refusal const& refusal) {
         return std::to_string(static_cast<int>(refusal.code())) + " " + refusal.what();
      }
   }
   static Ptp::PortDSKey key(char const* name) {
      return Ptp::PortDSKey(Dorn::IntfId(name), Bridging::VlanIdOrNone());
   }
   Sarn::Ptr<Ptp::PortDS> port(char const* name) {
      return status->portDSIs(key(name), Ptp::PortIdentity());
   }

   Limits limits;
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   std::unique_ptr<Engine> engine;
};

inline constexpr char const* port1 = "/tree[name=ptp/status]/portDS[key=Ethernet1]";

}  // namespace Ptpgnmi
