#include "Holt/Openconfig/Conversions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/Nearest.h"
#include "Holt/State/Values.h"
#include "Kiv/Exception.h"
#include "PtpPlatform/ClockIdentity.h"

namespace Holt::OpenconfigRows {

namespace {

constexpr char const* textKey = "@text";

/// What was given, for a message: short.
Sarn::String given(Json const& json) {
   constexpr std::size_t most = 60;
   if (json.is_structured()) {
      return json.is_array() ? "a list" : "an object";
   }
   Sarn::String text = jsonLine(json);
   if (text.size() > most) {
      text.resize(most);
      text += "...";
   }
   return text;
}

[[noreturn]] void refuse(Json const& json, Sarn::String const& what) {
   throw Failure(given(json) + ": " + what);
}

// ---- Numbers ----

Sarn::String rangeText(S64 least, S64 most) {
   return std::to_string(least) + " to " + std::to_string(most);
}

template <S64 least, S64 most>
Json numberToOurs(Json const& model) {
   if (!model.is_number_integer()) {
      refuse(model, "must be a number from " + rangeText(least, most));
   }
   bool const isBelow = model.is_number_unsigned() ? false : model.get<S64>() < least;
   bool const isAbove = model.is_number_unsigned() ? model.get<U64>() > static_cast<U64>(most)
                                                   : model.get<S64>() > most;
   if (isBelow || isAbove) {
      refuse(model, "is not allowed; the range is " + rangeText(least, most));
   }
   return model.get<S64>();
}

template <class T>
constexpr auto numberOf =
      numberToOurs<std::numeric_limits<T>::min(), std::numeric_limits<T>::max()>;

Json asItIs(Json const& ours) {
   return ours;
}

Json booleanToOurs(Json const& model) {
   if (!model.is_boolean()) {
      refuse(model, "must be true or false");
   }
   return model;
}

/// A 64-bit integer, which is a string in JSON of YANG.
S64 wideOf(Json const& model) {
   S64 number = 0;
   if (model.is_string()) {
      auto const& text = model.get_ref<std::string const&>();
      char const* const end = text.data() + text.size();
      auto const read = std::from_chars(text.data(), end, number);
      if (read.ec == std::errc::result_out_of_range && read.ptr == end) {
         refuse(model,
                "is not allowed; the range is " +
                      rangeText(std::numeric_limits<S64>::min(), std::numeric_limits<S64>::max()));
      }
      if (read.ec == std::errc() && read.ptr == end) {
         return number;
      }
   }
   refuse(model, "must be a string with a whole number, such as \"-65536\"");
}

/// `jsonOf` writes numbers that a double does not hold exactly as strings.
S64 wideOfOurs(Json const& ours) {
   return ours.is_string() ? wideOf(ours) : ours.get<S64>();
}

constexpr S64 perNanosecond = 65536;

Json timeIntervalToModel(Json const& ours) {
   S64 const nanoseconds = wideOfOurs(ours);
   S64 scaled = 0;
   if (__builtin_mul_overflow(nanoseconds, perNanosecond, &scaled)) {
      scaled = nanoseconds < 0 ? std::numeric_limits<S64>::min() : std::numeric_limits<S64>::max();
   }
   return std::to_string(scaled);
}

/// Rounds to the nearest nanosecond, halves away from zero.
Json timeIntervalToOurs(Json const& model) {
   S64 const scaled = wideOf(model);
   S64 const rest = scaled % perNanosecond;
   S64 const away = rest >= perNanosecond / 2 ? 1 : rest <= -perNanosecond / 2 ? -1 : 0;
   S64 const nanoseconds = scaled / perNanosecond + away;
   return jsonOf(Kiv::ValueRef(&nanoseconds));
}

// ---- Names ----

/// A name of the model, and what we call it.
struct NamePair {
   std::string_view model;
   std::string_view ours;
};

constexpr NamePair instanceTypes[] = {
      {"OC", "ordinary"},
      {"BC", "boundary"},
      {"P2P_TC", "transparentP2P"},
      {"E2E_TC", "transparentE2E"},
};

constexpr NamePair domainProfiles[] = {
      {"IEEE1588", "ptpDefault"},
      {"G8275.1", "g8275_1"},
      {"G8275.2", "g8275_2"},
};

template <auto& pairs>
Json nameToModel(Json const& ours) {
   for (NamePair const& pair : pairs) {
      if (ours == Json(pair.ours)) {
         return pair.model;
      }
   }
   return nullptr;
}

[[noreturn]] void refuseName(Json const& model, std::vector<std::string_view> const& names) {
   Sarn::String all;
   for (std::string_view const name : names) {
      all += (all.empty() ? "" : name == names.back() ? " or " : ", ") + Sarn::String(name);
   }
   refuse(model, "must be " + all +
                       (model.is_string() ? didYouMean(model.get<std::string>(), names) : ""));
}

template <auto& pairs>
Json nameToOurs(Json const& model) {
   std::vector<std::string_view> names;
   for (NamePair const& pair : pairs) {
      if (model == Json(pair.model)) {
         return pair.ours;
      }
      names.push_back(pair.model);
   }
   refuseName(model, names);
}

// ---- Identities ----

constexpr Identity classes[] = {
      {"CC_PRIMARY_SYNC", 6},
      {"CC_PRIMARY_SYNC_LOST", 7},
      {"CC_APPLICATION_SPECIFIC_SYNC", 13},
      {"CC_APPLICATION_SPECIFIC_SYNC_LOST", 14},
      {"CC_PRIMARY_SYNC_ALTERNATIVE_A", 52},
      {"CC_APPLICATION_SPECIFIC_ALTERNATIVE_A", 58},
      {"CC_PRIMARY_SYNC_ALTERNATIVE_B", 187},
      {"CC_APPLICATION_SPECIFIC_ALTERNATIVE_B", 193},
      {"CC_DEFAULT", 248},
      {"CC_SLAVE_ONLY", 255},
};

constexpr Identity accuracies[] = {
      {"CA_TIME_ACCURATE_TO_1_PS", 0x17},    {"CA_TIME_ACCURATE_TO_2_5_PS", 0x18},
      {"CA_TIME_ACCURATE_TO_10_PS", 0x19},   {"CA_TIME_ACCURATE_TO_25_PS", 0x1a},
      {"CA_TIME_ACCURATE_TO_100_PS", 0x1b},  {"CA_TIME_ACCURATE_TO_250_PS", 0x1c},
      {"CA_TIME_ACCURATE_TO_1_NS", 0x1d},    {"CA_TIME_ACCURATE_TO_2_5_NS", 0x1e},
      {"CA_TIME_ACCURATE_TO_10_NS", 0x1f},   {"CA_TIME_ACCURATE_TO_25_NS", 0x20},
      {"CA_TIME_ACCURATE_TO_100_NS", 0x21},  {"CA_TIME_ACCURATE_TO_250_NS", 0x22},
      {"CA_TIME_ACCURATE_TO_1_US", 0x23},    {"CA_TIME_ACCURATE_TO_2_5_US", 0x24},
      {"CA_TIME_ACCURATE_TO_10_US", 0x25},   {"CA_TIME_ACCURATE_TO_25_US", 0x26},
      {"CA_TIME_ACCURATE_TO_100_US", 0x27},  {"CA_TIME_ACCURATE_TO_250_US", 0x28},
      {"CA_TIME_ACCURATE_TO_1_MS", 0x29},    {"CA_TIME_ACCURATE_TO_2_5_MS", 0x2a},
      {"CA_TIME_ACCURATE_TO_10_MS", 0x2b},   {"CA_TIME_ACCURATE_TO_25_MS", 0x2c},
      {"CA_TIME_ACCURATE_TO_100_MS", 0x2d},  {"CA_TIME_ACCURATE_TO_250_MS", 0x2e},
      {"CA_TIME_ACCURATE_TO_1_S", 0x2f},     {"CA_TIME_ACCURATE_TO_10_S", 0x30},
      {"CA_TIME_ACCURATE_TO_GT_10_S", 0x31}, {"CA_UNKNOWN", 0xfe},
};

Sarn::String qualified(std::string_view name) {
   return Sarn::String(ownModule) + ":" + Sarn::String(name);
}

template <auto& identities>
Json identityToModel(Json const& ours) {
   for (Identity const& identity : identities) {
      if (ours == Json(identity.number)) {
         return qualified(identity.name);
      }
   }
   return nullptr;
}

template <auto& identities>
Json identityToOurs(Json const& model) {
   if (!model.is_string()) {
      refuse(model, "must be an identity, such as \"" + qualified(identities[0].name) + "\"");
   }
   auto const& text = model.get_ref<std::string const&>();
   std::size_t const colon = text.find(':');
   std::string_view const name = std::string_view(text).substr(colon + 1);  // npos + 1 is 0
   std::vector<std::string_view> names;
   for (Identity const& identity : identities) {
      if (identity.name == name) {
         Sarn::String const full = qualified(name);
         if (full != text) {
            refuse(model, "must be named with its module, \"" + full + "\"");
         }
         return identity.number;
      }
      names.push_back(identity.name);
   }
   refuse(model, "is no identity of " + Sarn::String(ownModule) + didYouMean(name, names));
}

// ---- Clock identities ----

constexpr char const* upperDigits = "0123456789ABCDEF";

Json clockIdentityToModel(Json const& ours) {
   if (!ours.is_string()) {
      return nullptr;
   }
   try {
      Sarn::String text;
      for (U8 const byte : Ptp::ClockIdentity(ours.get_ref<std::string const&>()).bytes()) {
         text += text.empty() ? "" : "-";
         text += {upperDigits[byte >> 4], upperDigits[byte & 15]};
      }
      return text;
   } catch (Kiv::Exception const&) {
      return nullptr;
   }
}

Json clockIdentityToOurs(Json const& model) {
   constexpr std::size_t size = 23;
   auto const fits = [](std::string const& text) {
      for (std::size_t i = 0; i != size; ++i) {
         bool const good =
               i % 3 == 2 ? text[i] == '-'
                          : std::string_view(upperDigits).find(text[i]) != std::string_view::npos;
         if (!good) {
            return false;
         }
      }
      return true;
   };
   if (!model.is_string() || model.get_ref<std::string const&>().size() != size ||
       !fits(model.get_ref<std::string const&>())) {
      refuse(model, "must be eight octets in upper case, such as \"00-1B-19-FF-FE-01-02-03\"");
   }
   return Sarn::String(Kiv::strRep(Ptp::ClockIdentity(model.get_ref<std::string const&>())));
}

// ---- Leaves of our own ----

bool isPlain(std::string_view text) {
   return !text.starts_with('"') &&
          std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

/// In quotes, with all but ASCII escaped: not every character may be in a string of YANG.
Sarn::String escaped(Sarn::String const& text) {
   Sarn::String result;
   for (char const c : valueText(Kiv::ValueRef(&text))) {
      if (c >= ' ' && c <= '~') {
         result += c;
      } else {
         auto const byte = static_cast<unsigned char>(c);
         std::array<char, 5> code;
         std::snprintf(code.data(), code.size(), "\\x%02x", byte);
         result += code.data();
      }
   }
   return result;
}

}  // namespace

std::span<Identity const> clockClasses() noexcept {
   return classes;
}

std::span<Identity const> clockAccuracies() noexcept {
   return accuracies;
}

Conversion const uint8{asItIs, numberOf<U8>};
Conversion const uint16{asItIs, numberOf<U16>};
Conversion const uint32{asItIs, numberOf<U32>};
Conversion const int16{asItIs, numberOf<S16>, "int16"};
Conversion const boolean{asItIs, booleanToOurs};
Conversion const timeInterval{timeIntervalToModel, timeIntervalToOurs, "int64"};
Conversion const instanceType{nameToModel<instanceTypes>, nameToOurs<instanceTypes>, "string"};
Conversion const domainProfile{nameToModel<domainProfiles>, nameToOurs<domainProfiles>, "string"};
Conversion const clockIdentity{clockIdentityToModel, clockIdentityToOurs, "string"};
Conversion const clockClass{identityToModel<classes>, identityToOurs<classes>, "uint8"};
Conversion const clockAccuracy{identityToModel<accuracies>, identityToOurs<accuracies>, "uint8"};

Json ownOf(Json const& ours, std::string_view ownType) {
   if (ownType == "int64") {
      return std::to_string(wideOfOurs(ours));
   }
   if (ownType != "string") {
      return ours;
   }
   if (ours.is_number()) {
      return ours.dump();  // an enumerator without a name
   }
   std::optional<Sarn::String> const text = stringOf(ours);
   return text && isPlain(*text) ? *text : escaped(text.value_or(""));
}

Json fromOwn(Json const& own, std::string_view ownType) {
   if (ownType == "uint8") {
      return numberOf<U8>(own);
   }
   if (ownType == "int16") {
      return numberOf<S16>(own);
   }
   if (ownType == "int64") {
      S64 const number = wideOf(own);
      return jsonOf(Kiv::ValueRef(&number));
   }
   if (!own.is_string()) {
      refuse(own, "must be a string");
   }
   return own.get_ref<std::string const&>().starts_with('"') ? Json{{textKey, own}} : own;
}

}  // namespace Holt::OpenconfigRows
