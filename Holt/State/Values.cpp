#include "Holt/State/Values.h"

#include <charconv>

#include "Holt/Failure.h"
#include "Holt/Nearest.h"
#include "Kiv/Text.h"
#include "Kiv/Visit.h"

namespace Holt {
namespace {

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

/// Compares the runs of digits at `i` and `j` by their value, and moves past them.
int compareNumbers(std::string_view a, std::size_t& i, std::string_view b, std::size_t& j) {
   auto const run = [](std::string_view text, std::size_t& at) {
      while (at + 1 < text.size() && text[at] == '0' && isDigit(text[at + 1])) {
         ++at;
      }
      std::size_t const begin = at;
      while (at < text.size() && isDigit(text[at])) {
         ++at;
      }
      return text.substr(begin, at - begin);
   };
   std::string_view const x = run(a, i);
   std::string_view const y = run(b, j);
   return x.size() != y.size() ? (x.size() < y.size() ? -1 : 1) : x.compare(y);
}

bool isNumber(std::string_view text, double& number) {
   auto const result = std::from_chars(text.data(), text.data() + text.size(), number);
   return result.ec == std::errc() && result.ptr == text.data() + text.size() && number == number;
}

/// Whether a number lies between two others of its type; what is no number does.
struct IsBetween {
   Kiv::ValueRef least;
   Kiv::ValueRef greatest;

   template <class T>
   bool operator()(T const& v) const {
      if constexpr (std::is_arithmetic_v<T>) {
         return v >= numberOf<T>(least) && v <= numberOf<T>(greatest);
      } else {
         return true;
      }
   }

private:
   template <class T>
   static T numberOf(Kiv::ValueRef value) {
      return visitValue(value, [](auto const& v) -> T {
         if constexpr (std::is_same_v<std::decay_t<decltype(v)>, T>) {
            return v;
         } else {
            return T();
         }
      });
   }
};

/// The name that may have been meant by an unknown one.
Sarn::String nameMeant(Kiv::TypeImpl const& type, std::string_view text) {
   std::vector<std::string_view> names;
   if (type.kind == Kiv::TypeKind::boolean) {
      names = {"true", "false"};
   }
   Kiv::forEachEnumerator(type, [&](U8, char const* name) { names.emplace_back(name); });
   return didYouMean(text, names);
}

}  // namespace

void parseValue(std::string_view text, Kiv::AnyValue& value) {
   Kiv::TypeImpl const& type = value.type();
   try {
      if (type.kind == Kiv::TypeKind::string && !text.starts_with('"')) {
         new (value.room()) Sarn::String(text);
         value.constructed();
         return;
      }
      Kiv::CharRange range(text);
      range.skipBlanks();
      type.genericIfStrepToValue(value.room(), range);
      value.constructed();
      range.expectEnd();
   } catch (Kiv::RangeException const& error) {
      throw Failure(error.what());
   } catch (Kiv::Exception const& error) {
      throw Failure("'" + Sarn::String(text) + "' is not a valid " + type.name + ": " +
                    error.what() + nameMeant(type, text));
   }
}

Sarn::String valueText(Kiv::ValueRef value) {
   return value.type->genericIfStrRep(value.address);
}

Sarn::String outOfBoundsText(Kiv::FieldDescriptor const& field, Kiv::ValueRef value) {
   Kiv::ValueRef const least = field.least();
   Kiv::ValueRef const greatest = field.greatest();
   if (least.address == nullptr || value.type != field.type ||
       visitValue(value, IsBetween{least, greatest})) {
      return {};
   }
   return valueText(value) + " is not allowed; the range is " + valueText(least) + " to " +
          valueText(greatest);
}

bool naturallyLess(std::string_view a, std::string_view b) {
   double x = 0;
   double y = 0;
   bool const aIsNumber = isNumber(a, x);
   bool const bIsNumber = isNumber(b, y);
   if (aIsNumber != bIsNumber) {
      return aIsNumber;  // all numbers before all texts, or the order would not be transitive
   }
   if (aIsNumber && x != y) {
      return x < y;
   }
   std::size_t i = 0;
   std::size_t j = 0;
   while (i < a.size() && j < b.size()) {
      if (isDigit(a[i]) && isDigit(b[j])) {
         if (int const order = compareNumbers(a, i, b, j); order != 0) {
            return order < 0;
         }
      } else if (a[i] != b[j]) {
         return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
      } else {
         ++i;
         ++j;
      }
   }
   if (i == a.size() && j == b.size()) {
      return a < b;  // they differ at most in leading zeros
   }
   return i == a.size();
}

}  // namespace Holt
