#include "tools/ptpexport/Metrics/MetricFormat.h"

#include <algorithm>
#include <array>

#include "Kiv/Text.h"

namespace Ptpexport {

namespace {

std::string_view trimmed(std::string_view text) noexcept {
   constexpr char const* blanks = " \t";
   std::size_t const begin = text.find_first_not_of(blanks);
   return begin == text.npos ? std::string_view()
                             : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

/// Cuts `text` off before the first `separator` outside quotes, and returns what was there.
std::string_view cut(std::string_view& text, char separator) noexcept {
   bool quoted = false;
   std::size_t at = 0;
   for (; at != text.size() && (quoted || text[at] != separator); ++at) {
      if (text[at] == '"') {
         quoted = !quoted;
      } else if (quoted && text[at] == '\\' && at + 1 != text.size()) {
         ++at;
      }
   }
   std::string_view const front = text.substr(0, at);
   text.remove_prefix(std::min(at + 1, text.size()));
   return trimmed(front);
}

bool isSame(std::string_view a, std::string_view b) noexcept {
   return Kiv::isSameIgnoringCase(a, b);
}

/// Thousandths of a quality, "0.75"; -1 if it is none.
int qualityOf(std::string_view text) noexcept {
   if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1') ||
       (text.size() > 1 && text[1] != '.')) {
      return -1;
   }
   int quality = (text[0] - '0') * 1000;
   int weight = 100;
   for (std::size_t i = 2; i < text.size(); ++i, weight /= 10) {
      if (text[i] < '0' || text[i] > '9') {
         return -1;
      }
      quality += (text[i] - '0') * weight;
   }
   return quality <= 1000 ? quality : -1;
}

/// A format as ranges name it, and the most specific range that covers it so far.
struct Candidate {
   std::string_view type;
   std::string_view subtype;
   std::string_view version;
   /// 0 none, 1 any type, 2 the type, 3 the subtype, 4 with the version.
   int specific = 0;
   int quality = 0;

   void consider(std::string_view ofType, std::string_view ofSubtype, std::string_view ofVersion,
                 int withQuality) noexcept {
      int rank = 0;
      if (ofType == "*" && ofSubtype == "*") {
         rank = 1;
      } else if (isSame(ofType, type) && ofSubtype == "*") {
         rank = 2;
      } else if (isSame(ofType, type) && isSame(ofSubtype, subtype)) {
         rank = ofVersion.empty() ? 3 : ofVersion == version ? 4 : 0;
      }
      if (rank > specific || (rank == specific && rank != 0 && withQuality > quality)) {
         specific = rank;
         quality = withQuality;
      }
   }
};

void consider(std::array<Candidate*, 2> candidates, std::string_view range) noexcept {
   std::string_view subtype = cut(range, ';');
   std::string_view const type = cut(subtype, '/');
   std::string_view version;
   int quality = 1000;
   while (!range.empty()) {
      std::string_view value = cut(range, ';');
      std::string_view const name = cut(value, '=');
      value = trimmed(value);
      if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
         value = value.substr(1, value.size() - 2);
      }
      if (isSame(name, "q")) {
         quality = qualityOf(value);
      } else if (isSame(name, "version")) {
         version = value;
      }
   }
   if (quality >= 0) {
      for (Candidate* const candidate : candidates) {
         candidate->consider(type, trimmed(subtype), version, quality);
      }
   }
}

}  // namespace

MetricFormat formatFor(std::string_view accept) noexcept {
   Candidate text{"text", "plain", "0.0.4"};
   Candidate open{"application", "openmetrics-text", "1.0.0"};
   while (!accept.empty()) {
      consider({&text, &open}, cut(accept, ','));
   }
   bool const named = open.specific >= 3;
   return open.quality > text.quality ||
                      (named && open.quality != 0 && open.quality == text.quality)
                ? MetricFormat::openMetrics
                : MetricFormat::prometheus;
}

char const* contentTypeOf(MetricFormat format) noexcept {
   return format == MetricFormat::openMetrics
                ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                : "text/plain; version=0.0.4; charset=utf-8";
}

}  // namespace Ptpexport
