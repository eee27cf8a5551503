#include "Kivc/Diagnostics.h"
#include "Kiv/Printable.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Kivc {

namespace {

using Message = Diagnostics::Message;

std::size_t characters(std::string_view text) {
   return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
      return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80U;
   }));
}

/// The blanks in front of a caret, below the text `before` it; tabs are kept.
std::string padding(std::string_view before) {
   std::string result;
   for (char const byte : before) {
      if ((static_cast<unsigned char>(byte) & 0xc0U) != 0x80U) {
         result += byte == '\t' ? '\t' : ' ';
      }
   }
   return result;
}

/// Part of a line as a terminal may show it, with its tabs.
std::string shown(std::string_view part) {
   std::string result;
   for (bool more = true; more;) {
      std::size_t const tab = part.find('\t');
      more = tab != std::string_view::npos;
      result += Kiv::printable(std::string(part.substr(0, tab)));
      if (more) {
         result += '\t';
         part.remove_prefix(tab + 1);
      }
   }
   return result;
}

void renderMessage(std::string& out, Message const& message, std::string_view label) {
   if (message.span.source == nullptr) {
      out.append(label).append(": ").append(Kiv::printable(message.text)).append("\n");
      return;
   }
   Source const& source = *message.span.source;
   auto const at = source.position(message.span.begin);
   auto const line = source.line(at.line);
   out += Kiv::printable(std::string(source.path())) + ":" + std::to_string(at.line) + ":" +
          std::to_string(at.column) + ": ";
   out.append(label).append(": ").append(Kiv::printable(message.text)).append("\n");

   auto covered = message.span.text();
   covered = covered.substr(0, covered.find('\n'));
   auto const width = characters(shown(covered));
   auto const lineBegin = static_cast<std::size_t>(line.data() - source.text().data());
   auto const before = line.substr(0, message.span.begin - lineBegin);
   out.append(shown(line)).append("\n");
   out += padding(shown(before)) + "^" + std::string(width > 1 ? width - 1 : 0, '~') + "\n";
}

auto placeOf(Message const& message) {
   auto const* source = message.span.source;
   return std::tuple(source == nullptr ? 0 : source->order(), message.span.begin);
}

std::size_t editDistance(std::string_view a, std::string_view b) {
   std::vector<std::size_t> row(b.size() + 1);
   for (std::size_t j = 0; j <= b.size(); ++j) {
      row[j] = j;
   }
   for (std::size_t i = 1; i <= a.size(); ++i) {
      std::size_t diagonal = row[0];
      row[0] = i;
      for (std::size_t j = 1; j <= b.size(); ++j) {
         auto const above = row[j];
         auto const replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
         row[j] = std::min({replaced, above + 1, row[j - 1] + 1});
         diagonal = above;
      }
   }
   return row[b.size()];
}

}  // namespace

Diagnostics::Error& Diagnostics::Error::note(Span span, std::string text) {
   notes.push_back({span, std::move(text)});
   return *this;
}

Diagnostics::Error& Diagnostics::error(Span span, std::string text) {
   errors_.push_back({{span, std::move(text)}, {}});
   return errors_.back();
}

std::string Diagnostics::render(std::size_t cap) const {
   auto sorted = errors_;
   std::stable_sort(sorted.begin(), sorted.end(), [](Error const& a, Error const& b) {
      return placeOf(a.message) < placeOf(b.message);
   });
   auto const same = [](Error const& a, Error const& b) {
      return placeOf(a.message) == placeOf(b.message);
   };
   sorted.erase(std::unique(sorted.begin(), sorted.end(), same), sorted.end());

   std::string out;
   auto const shown = std::min(cap, sorted.size());
   for (std::size_t i = 0; i < shown; ++i) {
      renderMessage(out, sorted[i].message, "error");
      for (auto const& note : sorted[i].notes) {
         renderMessage(out, note, "note");
      }
   }
   if (shown < sorted.size()) {
      out += "kivc: " + std::to_string(sorted.size() - shown) + " more errors not shown\n";
   }
   return out;
}

std::string nearestName(std::string_view name, std::vector<std::string> const& candidates) {
   std::string best;
   // A third of the letters may differ, but never all of them.
   auto bestDistance = std::min(std::max<std::size_t>(1, name.size() / 3) + 1, name.size());
   for (auto const& candidate : candidates) {
      auto const distance = editDistance(name, candidate);
      if (distance < bestDistance) {
         bestDistance = distance;
         best = candidate;
      }
   }
   return best;
}

std::string suggestion(std::string_view name, std::vector<std::string> const& candidates) {
   auto const nearest = nearestName(name, candidates);
   return nearest.empty() ? std::string() : "; did you mean '" + nearest + "'?";
}

}  // namespace Kivc
