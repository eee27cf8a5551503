// Stands in for a ptp4l(8): answers at a UNIX socket with what a real one has answered.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/ptp4lAgent/ClockDataSets.h"
#include "tools/ptp4lAgent/Message.h"
#include "tools/ptp4lAgent/PortDataSets.h"

namespace Ptp4lAgent {

/// Answers when `serve` is called, in the thread of the test. Whatever a fault test needs to be
/// wrong can be made wrong.
class StandIn {
public:
   /// `recording`: a file in testdata/, written by ptp4lCapture.
   explicit StandIn(std::string path, std::string const& recording);
   ~StandIn();
   StandIn(StandIn const&) = delete;
   StandIn& operator=(StandIn const&) = delete;

   /// Answers all requests that are waiting. Returns how many there were.
   int serve();
   /// Ends as after SIGKILL, which leaves the socket's file, or as after SIGTERM.
   void kill() { end(false); }
   void terminate() { end(true); }
   /// Begins to listen, as at first.
   void start();

   /// Changes what is answered for a data set by port `number`; 0 for the clock.
   template <class DataSet>
   void change(U16 number, std::function<void(DataSet&)> const& how) {
      for (Answer& answer : answers_[DataSet::id]) {
         if (answer.port == number) {
            auto set = decode<DataSet>(answer.data);
            how(*set);
            // Texts and addresses in it refer to the old data.
            answer.data = encode(*set);
         }
      }
   }
   /// Answers a data set that was not recorded.
   void answerIs(Id id, U16 number, std::vector<U8> data);
   /// Refuses to tell a data set.
   void forget(Id id) { answers_.erase(id); }
   /// Forgets what a port answers.
   void removePort(U16 number);
   /// Sends an event to whoever has subscribed to events.
   void notify(Id id, U16 number);
   /// Sends octets to whoever has sent the last request.
   void send(std::vector<U8> const& octets) const;

   /// Refuses to set a data set, with this error.
   std::map<Id, U16> refused;
   /// Does not answer the next request for this data set.
   std::optional<Id> unheard;
   /// Answers nothing, though it goes on reading.
   bool silent = false;
   /// Reads nothing.
   bool hangs = false;
   /// Keeps answers back until `release`.
   bool holds = false;
   void release();
   /// Applied to the answers of a request before they are sent.
   std::function<void(std::vector<std::vector<U8>>&)> spoil;

   U8 domainNumber = 0;
   U8 transportSpecific = 0;
   /// Only "GET" is allowed.
   bool readOnly = false;
   /// Requests so far, by id.
   std::map<Id, int> asked;
   /// The data of what was set last, by id, and to which port.
   std::map<Id, std::vector<U8>> lastSet;
   std::map<Id, U16> lastTarget;
   U16 subscribedFor = 0;

private:
   struct Answer {
      U16 port;
      U16 error;
      std::vector<U8> data;
   };

   void end(bool removes);
   void answer(Message const& request);
   void set(Message const& request);
   std::vector<U8> answerOf(Message const& request, Answer const& answer, Id id) const;

   std::string path_;
   int fd_ = -1;
   Ptp::ClockIdentity clock_;
   std::map<Id, std::vector<Answer>> answers_;
   std::vector<std::vector<U8>> held_;
   /// Of the last request.
   std::string client_;
   Message lastRequest_;
   std::vector<U8> lastOctets_;
};

}  // namespace Ptp4lAgent
