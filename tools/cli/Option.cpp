#include "tools/cli/Option.h"

#include <CLI/CLI.hpp>

namespace Tools {

Option Option::placeholder(std::string const& name) const {
   option_->type_name(name);
   return *this;
}

Option Option::required(bool yes) const {
   option_->required(yes);
   return *this;
}

Option Option::environment(std::string const& variable) const {
   option_->envname(variable);
   return *this;
}

Option Option::range(S32 least, S32 most) const {
   option_->check(CLI::Range(least, most));
   return *this;
}

Option Option::range(U64 least, U64 most) const {
   option_->check(CLI::Range(least, most));
   return *this;
}

Option Option::range(double least, double most) const {
   option_->check(CLI::Range(least, most));
   return *this;
}

Option Option::notEmpty() const {
   option_->check([](std::string const& text) {
      return text.empty() ? std::string("is empty") : std::string();
   });
   return *this;
}

Option Option::bytes() const {
   option_->transform(CLI::AsSizeValue(false));
   return *this;
}

Option Option::separatedBy(char separator) const {
   option_->delimiter(separator);
   return *this;
}

Option Option::exactly(int count) const {
   option_->expected(count);
   return *this;
}

Option Option::needs(Option const& other) const {
   option_->needs(other.option_);
   return *this;
}

Option Option::excludes(Option const& other) const {
   option_->excludes(other.option_);
   return *this;
}

std::string Option::name() const {
   if (isArgument()) {
      return option_->get_single_name();
   }
   return option_->get_lnames().empty() ? "-" + option_->get_snames().at(0)
                                        : "--" + option_->get_lnames().at(0);
}

bool Option::isNamed(std::string const& word) const {
   return !isArgument() && option_->check_name(word);
}

std::string Option::placeholder() const {
   // CLI11 appends the bounds after a colon.
   std::string const name = option_->get_type_name();
   return name.substr(0, name.find(':'));
}

std::string Option::description() const {
   return option_->get_description();
}

bool Option::isArgument() const {
   return option_->get_positional();
}

bool Option::isRequired() const {
   return option_->get_required();
}

bool Option::takesValue() const {
   return option_->get_expected_max() != 0;
}

bool Option::repeats() const {
   return option_->get_expected_max() > 1;
}

}  // namespace Tools
