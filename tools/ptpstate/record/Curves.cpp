#include "tools/ptpstate/record/Curves.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <list>
#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/State/Match.h"
#include "Kiv/Printable.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// Names of more curves than these would cover the picture.
constexpr std::size_t mostNames = 16;

/// A number as JSON has it; large ones, and those that JSON lacks, are strings there.
std::optional<double> numberIn(Json const& value) {
   if (value.is_number()) {
      return value.get<double>();
   }
   if (!value.is_string()) {
      return std::nullopt;
   }
   auto const& text = value.get_ref<std::string const&>();
   double number = 0;
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
   return error == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                   : std::nullopt;
}

/// The places that a path leads to now; none if it is below another root.
std::list<Place> placesOf(Sarn::Ptr<Kiv::Entity> const& root, OfferedRoot const& offered,
                          std::string const& text) {
   std::list<Place> places;
   try {
      for (Path const& path : matchesOf(root, parsePath(text, {offered}))) {
         places.emplace_back(root, offered.name, path.steps);
      }
   } catch (Failure const&) {
      // An entity on the way does not exist, or nothing fits a pattern.
   }
   return places;
}

/// As a string of gnuplot.
std::string quoted(std::string const& text) {
   std::string out = "'";
   for (char const c : Kiv::printable(text)) {
      out += c == '\'' ? "''" : std::string(1, c);
   }
   return out + "'";
}

/// Seconds since 1970 as a clock on the wall shows them, which is what gnuplot takes for UTC.
double localSeconds(U64 wall) {
   auto const seconds = static_cast<std::time_t>(wall / 1'000'000'000);
   std::tm local{};
   ::localtime_r(&seconds, &local);
   return static_cast<double>(seconds + local.tm_gmtoff) +
          static_cast<double>(wall % 1'000'000'000) / 1e9;
}

std::string numberText(double number) {
   char text[32];
   auto const result = std::to_chars(text, text + sizeof(text), number);
   return {text, result.ptr};
}

}  // namespace

void Curves::complete(U64 wall, Kiv::NamedEntity& root, bool) {
   begin_ = begin_ == 0 ? wall : begin_;
   if (std::find(roots_.begin(), roots_.end(), &root) == roots_.end()) {
      roots_.push_back(&root);
   }
   scan(wall);
}

void Curves::change(U64 wall, ChangeText const& text) {
   end_ = wall;
   if (curves_.contains(text.path)) {
      Json const json = changeJson(text);
      if (json.contains("new")) {
         add(wall, text.path, json["new"]);
      } else {
         end(wall, curves_.at(text.path));
      }
   } else {
      // Something around a place, or the value that a place is in.
      scan(wall);
   }
}

void Curves::lost(U64 wall) {
   for (auto& [path, curve] : curves_) {
      end(wall, curve);
   }
}

void Curves::back(U64 wall) {
   scan(wall);
}

void Curves::scan(U64 wall) {
   end_ = wall;
   std::vector<std::string> found;
   for (Kiv::NamedEntity* const root : roots_) {
      OfferedRoot const offered{root->kivType().name, root->nameString()};
      for (std::string const& text : paths_) {
         for (Place const& place : placesOf(Sarn::Ptr<Kiv::Entity>(root), offered, text)) {
            if (place.entity() != nullptr || place.isCollection()) {
               throw Failure("'" + text + "' is not a single value");
            }
            if (place.exists()) {
               add(wall, place.path(), jsonOf(place.value()->ref()));
               found.push_back(place.path());
            }
         }
      }
   }
   for (auto& [path, curve] : curves_) {
      if (std::find(found.begin(), found.end(), path) == found.end()) {
         end(wall, curve);
      }
   }
}

void Curves::add(U64 wall, std::string const& path, Json const& value) {
   Curve& curve = curves_[path];
   std::optional<double> number = numberIn(value);
   if (number && !std::isfinite(*number)) {
      number.reset();  // no line reaches there
   } else if (!number && !value.is_null()) {
      if (value.is_structured()) {
         throw Failure("'" + path + "' is not a single value; plot one of its fields");
      }
      std::string const name = value.is_string() ? value.get<std::string>() : jsonLine(value);
      auto const at = std::find(names_.begin(), names_.end(), name);
      number = static_cast<double>(at - names_.begin());
      if (at == names_.end()) {
         names_.push_back(name);
      }
      curve.named = true;
   }
   curve.last = number;
   curve.series.add({wall, number});
}

void Curves::end(U64 wall, Curve& curve) {
   if (curve.last) {
      curve.last.reset();
      curve.series.add({wall, std::nullopt});
   }
}

bool Curves::areNamed() const {
   std::string const* named = nullptr;
   std::string const* other = nullptr;
   for (auto const& [path, curve] : curves_) {
      (curve.named ? named : other) = &path;
   }
   if (named != nullptr && other != nullptr) {
      throw Failure("'" + *named + "' has names and '" + *other +
                    "' numbers, which share no axis; plot them one after the other");
   }
   return named != nullptr;
}

std::string Curves::axes() const {
   std::string text;
   U64 const seconds = (end_ - begin_) / 1'000'000'000;
   text += "set xtics time\nset format x " +
           std::string(seconds > 172'800 ? "'%d %b %H:%M'"
                       : seconds > 1'800 ? "'%H:%M'"
                                         : "'%H:%M:%S'") +
           " timedate\n";
   if (end_ > begin_) {
      text += "set xrange [" + numberText(localSeconds(begin_)) + ":" +
              numberText(localSeconds(end_)) + "]\n";
   }
   if (!names_.empty()) {
      text += "set yrange [-0.5:" + numberText(static_cast<double>(names_.size()) - 0.5) +
              "]\nset ytics (";
      for (std::size_t i = 0; i != names_.size(); ++i) {
         text += (i == 0 ? "" : ", ") + quoted(names_[i]) + " " + std::to_string(i);
      }
      text += ")\n";
   }
   return text;
}

std::string Curves::program() const {
   if (curves_.empty()) {
      throw Failure("the recording has nothing at " +
                    (paths_.size() == 1 ? "'" + paths_.front() + "'" : "these paths"));
   }
   bool const steps = areNamed();
   std::string text =
         "set terminal svg noenhanced size 1200,420 dynamic background rgb 'white'\n"
         "set grid\n";
   text += curves_.size() <= mostNames ? "set key outside below\n" : "set key off\n";
   text += axes();
   std::string plot;
   std::size_t n = 0;
   for (auto const& [path, curve] : curves_) {
      std::string const block = "$curve" + std::to_string(n++);
      text += block + " << EOD\n";
      for (Sample const& sample : curve.series.samples()) {
         text += sample.value ? numberText(localSeconds(sample.wall)) + " " +
                                      numberText(*sample.value) + "\n"
                              : "\n";  // the line is interrupted
      }
      if (curve.last) {
         text += numberText(localSeconds(end_)) + " " + numberText(*curve.last) + "\n";
      }
      text += "EOD\n";
      plot += (plot.empty() ? "plot " : ", ") + block + " using 1:2 with " +
              (steps ? "steps" : "lines") + " title " + quoted(path);
   }
   return text + plot + "\n";
}

}  // namespace Ptpstate
