// Management messages (IEEE 1588-2008, 15.4): a header of 34 octets, whom it is for, and one TLV.
#pragma once

#include "tools/ptp4lAgent/Rows.h"

namespace Ptp4lAgent {

/// What a message asks for or is (IEEE 1588-2008, 15.4.1.6).
enum class Action : U8 { get = 0, set = 1, response = 2, command = 3, acknowledge = 4 };

/// A message. In one that was read, `data` refers to its octets.
struct Message {
   U8 transportSpecific = 0;
   U8 domainNumber = 0;
   /// Who sends it. An answer comes from the port that answers, or from port 0 of the clock.
   Ptp::PortIdentity source;
   /// An answer has that of its request.
   U16 sequenceId = 0;
   /// For whom it is.
   Ptp::PortIdentity target = everyPort();
   Action action = Action::get;
   Id id = Id::defaultDataSet;
   /// Why a request was refused, in an answer that is MANAGEMENT_ERROR_STATUS; else 0.
   U16 error = 0;
   /// What follows the id in its TLV; empty in an error.
   Octets data;

   /// All ports of all clocks: every field is ones.
   static Ptp::PortIdentity everyPort() { return {Ptp::ClockIdentity(~U64{0}), U16{0xFFFF}}; }
};

/// What is wrong with a message that cannot be read.
enum class Fault : U8 {
   none,
   /// Fewer octets than the header of a management message has.
   tooShort,
   /// Not a management message of PTP version 2.
   notManagement,
   /// Its `messageLength` is not that of the datagram.
   wrongLength,
   /// The TLV is missing, exceeds the message, or is of an unknown type.
   wrongTlv,
};
char const* textOf(Fault fault) noexcept;

/// Reads a message.
Fault parse(Octets octets, Message& message) noexcept;
/// The octets of a message, with a MANAGEMENT TLV, or MANAGEMENT_ERROR_STATUS if it has an error.
std::vector<U8> format(Message const& message);

/// The name of a `managementErrorId` (IEEE 1588-2008, table 72); "error 0x1234" for any other.
Sarn::String errorText(U16 error);

}  // namespace Ptp4lAgent
