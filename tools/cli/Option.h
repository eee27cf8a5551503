// An option or an argument of a command.
#pragma once

#include <string>

#include "Sarn/Types.h"

namespace CLI {
class Option;
}

namespace Tools {

/// A handle of an option, `--socket`, or of an argument that has its place, `PATH`. It is valid as
/// long as the program's command line. The functions in the first group return the same handle, so
/// that they can be chained.
class Option {
public:
   explicit Option(CLI::Option& option) : option_(&option) {}

   /// What stands for the value in the help, such as "SECONDS".
   Option placeholder(std::string const& name) const;
   Option required(bool yes = true) const;
   /// Where the value comes from if the option is not given.
   Option environment(std::string const& variable) const;
   /// Bounds of the value, both inclusive.
   Option range(S32 least, S32 most) const;
   Option range(U64 least, U64 most) const;
   Option range(double least, double most) const;
   Option notEmpty() const;
   /// A number of bytes, with or without a unit of 1 024 or 1 000: "64M", "10 kB".
   Option bytes() const;
   /// A value contains several, with this between them. Of a vector.
   Option separatedBy(char separator) const;
   /// Takes this many values, no more and no fewer. Of a vector.
   Option exactly(int count) const;
   Option needs(Option const& other) const;
   Option excludes(Option const& other) const;

   /// "--socket", "-I", or the name of an argument.
   std::string name() const;
   /// Whether a word of the command line, without "=" and what follows it, is this option.
   bool isNamed(std::string const& word) const;
   std::string placeholder() const;
   std::string description() const;
   bool isArgument() const;
   bool isRequired() const;
   bool takesValue() const;
   bool repeats() const;

private:
   CLI::Option* option_;
};

}  // namespace Tools
