#include "Holt/Times.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>

#include "Holt/Failure.h"

namespace Holt {
namespace {

constexpr U64 second = 1'000'000'000;

template <class Clock>
U64 nanoseconds() noexcept {
   auto const now = Clock::now().time_since_epoch();
   return static_cast<U64>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

/// Reads "12" or "12.345" at the front; digits beyond nanoseconds are ignored.
std::optional<U64> takeSeconds(std::string_view& text, std::size_t mostDigits = 10) {
   U64 whole = 0;
   std::size_t digits = 0;
   for (; digits != text.size() && text[digits] >= '0' && text[digits] <= '9'; ++digits) {
      if (digits == mostDigits) {
         return std::nullopt;
      }
      whole = whole * 10 + static_cast<U64>(text[digits] - '0');
   }
   if (digits == 0) {
      return std::nullopt;
   }
   text.remove_prefix(digits);
   U64 time = whole * second;
   if (!text.empty() && text[0] == '.') {
      text.remove_prefix(1);
      for (U64 unit = second / 10; !text.empty() && text[0] >= '0' && text[0] <= '9'; unit /= 10) {
         time += unit * static_cast<U64>(text[0] - '0');
         text.remove_prefix(1);
      }
   }
   return time;
}

std::optional<U64> localTime(std::tm parts, U64 rest) {
   parts.tm_isdst = -1;
   std::time_t const seconds = std::mktime(&parts);
   return seconds < 0 ? std::nullopt
                      : std::optional<U64>(static_cast<U64>(seconds) * second + rest);
}

/// Reads ":SS.fff" after hours and minutes, or nothing.
bool takeRest(std::string_view text, std::tm& parts, U64& rest) {
   if (!text.empty()) {
      if (text[0] != ':') {
         return false;
      }
      text.remove_prefix(1);
      std::optional<U64> const seconds = takeSeconds(text, 2);
      if (!seconds || *seconds >= 61 * second) {
         return false;
      }
      parts.tm_sec = static_cast<int>(*seconds / second);
      rest = *seconds % second;
   }
   return text.empty();
}

std::optional<U64> read(Sarn::String const& text, U64 begin) {
   std::string_view view = text;
   if (!view.empty() && (view[0] == '+' || view[0] == '@')) {
      view.remove_prefix(1);
      std::optional<U64> const seconds = takeSeconds(view);
      return seconds && view.empty()
                   ? std::optional<U64>(text[0] == '+' ? begin + *seconds : *seconds)
                   : std::nullopt;
   }
   std::tm parts{};
   U64 rest = 0;
   for (char const* const form : {"%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M"}) {
      parts = {};
      char const* const end = ::strptime(text.c_str(), form, &parts);
      if (end != nullptr) {
         return takeRest(end, parts, rest) ? localTime(parts, rest) : std::nullopt;
      }
   }
   std::tm clock{};
   char const* const end = ::strptime(text.c_str(), "%H:%M", &clock);
   if (end == nullptr || !takeRest(end, clock, rest)) {
      return std::nullopt;
   }
   auto const seconds = static_cast<std::time_t>(begin / second);
   localtime_r(&seconds, &parts);
   parts.tm_hour = clock.tm_hour;
   parts.tm_min = clock.tm_min;
   parts.tm_sec = clock.tm_sec;
   std::optional<U64> const today = localTime(parts, rest);
   if (today && *today < begin) {
      ++parts.tm_mday;
      return localTime(parts, rest);
   }
   return today;
}

}  // namespace

Sarn::String timeText(U64 wall, TimeForm form) {
   static constexpr char const* formats[] = {"%Y-%m-%d %H:%M:%S", "%H:%M:%S", "%H:%M:%S",
                                             "%Y-%m-%dT%H:%M:%S"};
   auto const seconds = static_cast<std::time_t>(wall / second);
   std::tm parts{};
   if (form == TimeForm::universal) {
      gmtime_r(&seconds, &parts);
   } else {
      localtime_r(&seconds, &parts);
   }
   char text[64];
   std::size_t const length =
         std::strftime(text, sizeof text, formats[static_cast<std::size_t>(form)], &parts);
   if (form != TimeForm::seconds) {
      std::snprintf(text + length, sizeof text - length, ".%03u%s",
                    static_cast<unsigned>(wall % second / 1'000'000),
                    form == TimeForm::universal ? "Z" : "");
   }
   return text;
}

Sarn::String durationText(U64 nanoseconds) {
   U64 const ms = nanoseconds / 1'000'000;
   U64 const seconds = ms / 1000;
   char text[64];
   if (seconds < 60) {
      std::snprintf(text, sizeof text, "%u.%03u s", static_cast<unsigned>(seconds),
                    static_cast<unsigned>(ms % 1000));
   } else {
      std::snprintf(text, sizeof text, "%llu:%02u:%02u",
                    static_cast<unsigned long long>(seconds / 3600),
                    static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60));
   }
   return text;
}

Sarn::String staleText(U64 since, U64 now) {
   if (since == 0) {
      return "stale";
   }
   constexpr U64 halfDay = 43'200'000'000'000;
   U64 const age = now - std::min(since, now);
   Sarn::String const date = timeText(since, TimeForm::date);
   return "stale since " +
          (age > halfDay ? date.substr(0, date.rfind('.')) : timeText(since, TimeForm::seconds)) +
          " (" + durationText(age) + ")";
}

U64 wallNow() noexcept {
   return nanoseconds<std::chrono::system_clock>();
}

U64 steadyNow() noexcept {
   return nanoseconds<std::chrono::steady_clock>();
}

U64 parseTime(Sarn::String const& text, U64 begin) {
   if (std::optional<U64> const time = read(text, begin)) {
      return *time;
   }
   throw Failure("invalid time '" + text +
                       "': expected HH:MM:SS, 'YYYY-MM-DD HH:MM:SS', +SECONDS from the beginning, "
                       "or @SECONDS since 1970",
                 Exit::usage);
}

}  // namespace Holt
