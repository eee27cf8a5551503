#include "tools/ptp4lAgent/StandIn.test.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "tools/ptp4lAgent/Hex.test.h"

namespace Ptp4lAgent {

namespace {

constexpr U16 noSuchId = 2;
constexpr U16 notSupported = 6;

sockaddr_un addressOf(std::string const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
   return address;
}

}  // namespace

StandIn::StandIn(std::string path, std::string const& recording) : path_(std::move(path)) {
   std::string const name =
         std::string(PTPLIB_SOURCE_DIR) + "/tools/ptp4lAgent/testdata/" + recording;
   std::ifstream file(name);
   if (!file) {
      throw std::runtime_error(name + " cannot be read");
   }
   for (std::string line; std::getline(file, line);) {
      if (line.starts_with('#')) {
         continue;
      }
      std::vector<U8> const bytes = octets(line);
      Message message;
      if (parse(bytes, message) != Fault::none) {
         throw std::runtime_error(name + ": not a message: " + line);
      }
      domainNumber = message.domainNumber;
      transportSpecific = message.transportSpecific;
      clock_ = message.source.clockIdentity();
      answers_[message.id].push_back({message.source.portNumber(),
                                      message.error,
                                      {message.data.begin(), message.data.end()}});
   }
   start();
}

StandIn::~StandIn() {
   end(true);
}

void StandIn::start() {
   ::unlink(path_.c_str());
   fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   sockaddr_un const address = addressOf(path_);
   if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
      throw std::runtime_error(path_ + " cannot be bound");
   }
}

void StandIn::end(bool removes) {
   if (fd_ >= 0) {
      ::close(fd_);
      fd_ = -1;
   }
   if (removes) {
      ::unlink(path_.c_str());
   }
}

int StandIn::serve() {
   int count = 0;
   while (fd_ >= 0 && !hangs) {
      std::array<U8, 2048> buffer;
      sockaddr_un from{};
      socklen_t size = sizeof from;
      ssize_t const length = ::recvfrom(fd_, buffer.data(), buffer.size(), 0,
                                        reinterpret_cast<sockaddr*>(&from), &size);
      if (length < 0) {
         break;
      }
      ++count;
      client_ = from.sun_path;
      lastOctets_.assign(buffer.begin(), buffer.begin() + length);
      Message request;
      bool const understood = parse(lastOctets_, request) == Fault::none &&
                              request.domainNumber == domainNumber &&
                              request.transportSpecific == transportSpecific;
      if (understood) {
         ++asked[request.id];
      }
      if (understood && unheard == request.id) {
         unheard.reset();
      } else if (understood && !silent) {
         lastRequest_ = request;
         request.action == Action::set ? set(request) : answer(request);
      }
   }
   return count;
}

std::vector<U8> StandIn::answerOf(Message const& request, Answer const& answer, Id id) const {
   Message message;
   message.domainNumber = domainNumber;
   message.transportSpecific = transportSpecific;
   message.source = Ptp::PortIdentity(clock_, answer.port);
   message.target = request.source;
   message.sequenceId = request.sequenceId;
   message.action = Action::response;
   message.id = id;
   message.error = answer.error;
   message.data = answer.data;
   return format(message);
}

void StandIn::answer(Message const& request) {
   std::vector<std::vector<U8>> datagrams;
   U16 const port = request.target.portNumber();
   for (Answer const& answer : answers_[request.id]) {
      if (!isOfPort(request.id) || port == 0xFFFF || port == answer.port || answer.error != 0) {
         datagrams.push_back(answerOf(request, answer, request.id));
      }
   }
   if (datagrams.empty()) {
      datagrams.push_back(answerOf(request, {0, noSuchId, {}}, request.id));
   }
   if (spoil) {
      spoil(datagrams);
   }
   for (std::vector<U8>& datagram : datagrams) {
      if (holds) {
         held_.push_back(std::move(datagram));
      } else {
         send(datagram);
      }
   }
}

void StandIn::set(Message const& request) {
   auto const refusal = refused.find(request.id);
   U16 const error = readOnly ? notSupported : refusal != refused.end() ? refusal->second : U16{0};
   if (error != 0) {
      send(answerOf(request, {0, error, {}}, request.id));
      return;
   }
   lastSet[request.id] = {request.data.begin(), request.data.end()};
   lastTarget[request.id] = request.target.portNumber();
   if (request.id == Id::priority1 || request.id == Id::priority2) {
      U8 const value = request.data[0];
      change<DefaultDataSet>(0, [&](DefaultDataSet& set) {
         (request.id == Id::priority1 ? set.priority1 : set.priority2) = value;
      });
   } else if (request.id == Id::grandmasterSettingsNp) {
      auto const settings = decode<GrandmasterSettingsNp>(request.data);
      change<DefaultDataSet>(
            0, [&](DefaultDataSet& set) { set.clockQuality = settings->clockQuality; });
   } else if (request.id == Id::portDataSetNp) {
      auto const wanted = decode<PortDataSetNp>(request.data);
      change<PortDataSetNp>(request.target.portNumber(), [&](PortDataSetNp& set) {
         set.neighborPropDelayThresh = wanted->neighborPropDelayThresh;
      });
   } else if (request.id == Id::subscribeEventsNp) {
      subscribedFor = decode<SubscribeEventsNp>(request.data)->duration;
   }
   U16 const port = isOfPort(request.id) ? request.target.portNumber() : U16{0};
   send(answerOf(request, {port, 0, {request.data.begin(), request.data.end()}}, request.id));
}

void StandIn::answerIs(Id id, U16 number, std::vector<U8> data) {
   std::erase_if(answers_[id], [&](Answer const& a) { return a.port == number || a.error != 0; });
   answers_[id].push_back({number, 0, std::move(data)});
}

void StandIn::removePort(U16 number) {
   for (auto& [id, answers] : answers_) {
      if (isOfPort(id)) {
         std::erase_if(answers, [&](Answer const& answer) { return answer.port == number; });
      }
   }
   change<DefaultDataSet>(0, [](DefaultDataSet& set) { --set.numberPorts; });
}

void StandIn::notify(Id id, U16 number) {
   Message event = lastRequest_;
   event.sequenceId = 1;  // a daemon counts the events of each subscriber
   for (Answer const& answer : answers_[id]) {
      if (answer.port == number) {
         send(answerOf(event, answer, id));
      }
   }
}

void StandIn::send(std::vector<U8> const& octets) const {
   sockaddr_un const to = addressOf(client_);
   ::sendto(fd_, octets.data(), octets.size(), 0, reinterpret_cast<sockaddr const*>(&to),
            sizeof to);
}

void StandIn::release() {
   for (std::vector<U8> const& datagram : held_) {
      send(datagram);
   }
   held_.clear();
}

}  // namespace Ptp4lAgent
