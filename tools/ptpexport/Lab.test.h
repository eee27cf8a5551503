// The whole program in one loop: a server of a state, what mirrors it, and HTTP.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "Holt/Server.h"
#include "PtpLib/PtpStatusStatedbTypes.h"
#include "tools/ptpexport/Events.h"
#include "tools/ptpexport/Health.h"
#include "tools/ptpexport/HistoryReply.h"
#include "tools/ptpexport/Http/HttpServer.h"
#include "tools/ptpexport/Http/Peer.test.h"
#include "tools/ptpexport/State.h"

namespace Ptpexport {

class Lab : public testing::Test {
protected:
   Lab() {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptpexport.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      http.listen = {"127.0.0.1:0"};
   }
   ~Lab() override {
      http_.reset();
      history.reset();
      events.reset();
      feed.reset();
      source.reset();
      std::filesystem::remove_all(directory);
   }

   std::string socket() const { return directory + "/socket"; }
   std::string address() const { return http_->addresses().front(); }

   /// Serves the status, and a configuration.
   void serveSource() {
      Holt::Server::Options options;
      options.socket = socket();
      source.emplace(options);
      source->rootIs(Sarn::Ptr<Kiv::NamedEntity>(status));
      source->rootIs(Sarn::Ptr<Kiv::NamedEntity>(config));
      loop.add(*source);
   }
   void endSource() {
      loop.remove(*source);
      loop.turn(-1, std::chrono::milliseconds(0));
      source.reset();
   }
   void start() {
      Feed::Options options;
      options.socket = socket();
      options.pause = 10'000'000;
      options.longestPause = 50'000'000;
      options.probe = 20'000'000;
      options.silence = 200'000'000;
      options.rootsEvery = 20'000'000;
      feed.emplace(options);
      events.emplace(*feed, limits);
      history.emplace(*feed);
      http_.emplace(http);
      http_->routeIs("/healthz",
                     [this](Request const& request) { return healthReply(*feed, request); });
      http_->routeIs("/state/",
                     [this](Request const& request) { return stateReply(*feed, request); });
      http_->routeIs("/events", [this](Request const& request) { return events->reply(request); });
      http_->routeIs("/history/",
                     [this](Request const& request) { return historyReply(*history, request); });
      loop.add(*feed);
      loop.add(*history);
      loop.add(*events);
      loop.add(*http_);
   }
   /// Both, until the mirrors are complete.
   void startAll() {
      serveSource();
      start();
      EXPECT_TRUE(isCurrent());
   }
   bool isCurrent() {
      return turnUntil(loop, [this] { return feed->status().current; });
   }
   bool isOld() {
      return turnUntil(loop, [this] { return !feed->status().current; });
   }
   std::string answer(std::string const& target) { return Peer(loop, address()).answer(target); }
   /// The status code, and the body.
   std::string brief(std::string const& target) {
      std::string const text = answer(target);
      return text.substr(9, 3) + " " + bodyOf(text);
   }
   Sarn::Ptr<Ptp::PortDS> addPort(int number) {
      return status->portDSIs(Ptp::PortDSKey(Dorn::IntfId("Ethernet" + std::to_string(number)),
                                             Bridging::VlanIdOrNone()),
                              Ptp::PortIdentity(Ptp::ClockIdentity(), static_cast<U16>(number)));
   }

   std::string directory;
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
   Events::Limits limits;
   HttpServer::Options http;
   Holt::Loop loop;
   std::optional<Holt::Server> source;
   std::optional<Feed> feed;
   std::optional<Events> events;
   std::optional<History> history;
   std::optional<HttpServer> http_;
};

}  // namespace Ptpexport
