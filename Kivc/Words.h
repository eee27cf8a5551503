// Facts about members in the words that comments, tables and messages use.
#pragma once

#include <string>

#include "Kivc/Model.h"

namespace Kivc {

/// The name of a bound in range messages: with a leading `::` as written, else fully qualified; a
/// number as written.
std::string boundName(Expr const& bound);

/// "50 to 500000000", "2 and above"; bounds whose value is not known stand by name. Empty without
/// a range.
std::string rangeInWords(Member const& member);

/// "500000000", "initializing", "empty", "given to the constructor"; empty where a member has no
/// initial value.
std::string defaultInWords(Member const& member);

/// "yes", "no" or "at creation".
std::string streamedInWords(Member const& member);

/// "U32", "Ptp::PortState by Dorn::IntfId", "S16 (messageType: Ptp::MessageTypeNumber)".
std::string typeInWords(Member const& member);

/// Decimal text of a number.
std::string decimal(WideInteger value);

/// "0xdc00".
std::string hexWord(std::uint16_t word);

}  // namespace Kivc
