// The subjects of a fleet: how the places of a state are named in NATS.
//
//     ptp.edge-7.status.portDS.Ethernet1
//      |    |      |      |        '- a key, escaped
//      |    |      |      '- an attribute
//      |    |      '- a root: "ptp/status"
//      |    '- a switch, escaped
//      '- the prefix of the fleet
//
// Each token consists of letters, digits, '-' and '_'; every other byte is '%' and two hexadecimal
// digits in upper case, and the empty text is "%" alone. So each text has exactly one token.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kiv/Entity.h"

namespace Fleet {

/// The longest subject that is published, in bytes: NATS servers refuse a longer line.
inline constexpr std::size_t longestSubject = 2048;

/// The token of a switch's heartbeat, which is no root's.
inline constexpr std::string_view metaToken = "meta";

/// Appends `text` as a token.
void appendToken(std::string& subject, std::string_view text);
/// The text of a token; nothing if it is not what `appendToken` writes.
std::optional<std::string> tokenText(std::string_view token);

/// The token of a root: that of X for a root "ptp/X", else that of "/" and the name.
std::string rootToken(std::string_view rootName);
/// The root's name; nothing if the token is not what `rootToken` writes.
std::optional<std::string> rootName(std::string_view token);

/// The part of a subject after the switch: from the token of the root on. `entity` must have a
/// `Kiv::NamedEntity` as its root. O(depth), except below a collection whose children do not know
/// their keys, where it is O(siblings).
std::string placeOf(Kiv::Entity const& entity);

/// Appends ".attribute" or ".attribute.key" for a child. `key`: null for a singleton child.
void appendChild(std::string& place, Kiv::FieldDescriptor const& field, void const* key);

/// The tokens of a subject. A subject has no empty ones.
std::vector<std::string_view> tokensOf(std::string_view subject);

}  // namespace Fleet
