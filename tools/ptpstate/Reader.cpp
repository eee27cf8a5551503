#include "tools/ptpstate/Reader.h"

#include <iostream>
#include <optional>
#include <streambuf>

#include "Holt/Failure.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/ServerRoots.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// Passes text on with a prefix before each line.
class Prefixed final : public std::streambuf {
public:
   Prefixed(std::streambuf& to, std::string prefix) : to_(to), prefix_(std::move(prefix)) {}

private:
   bool put(char const* text, std::streamsize size) { return to_.sputn(text, size) == size; }
   bool begin() {
      return !std::exchange(fresh_, false) ||
             put(prefix_.data(), static_cast<std::streamsize>(prefix_.size()));
   }

   int_type overflow(int_type c) override {
      char const one = traits_type::to_char_type(c);
      return traits_type::eq_int_type(c, traits_type::eof()) || xsputn(&one, 1) == 1
                   ? traits_type::not_eof(c)
                   : traits_type::eof();
   }
   std::streamsize xsputn(char const* text, std::streamsize size) override {
      std::string_view rest(text, static_cast<std::size_t>(size));
      while (!rest.empty()) {
         std::size_t const newline = rest.find('\n');
         std::string_view const line = rest.substr(0, newline + (newline != rest.npos ? 1 : 0));
         if (!begin() || !put(line.data(), static_cast<std::streamsize>(line.size()))) {
            return size - static_cast<std::streamsize>(rest.size());
         }
         fresh_ = newline != rest.npos;
         rest.remove_prefix(line.size());
      }
      return size;
   }

   std::streambuf& to_;
   std::string prefix_;
   bool fresh_ = true;
};

}  // namespace

void addReaderOptions(Tools::Command const& command, ReaderOptions& options) {
   addClientOptions(command, options, false);
   addFleetOptions(command, options.fleet);
}

void requireState(ReaderOptions const& options) {
   if (options.fleet.areGiven() && options.fleet.switches.empty()) {
      throw Tools::UsageError("--fleet needs --switch NAME");
   }
   if (!options.fleet.areGiven() && options.socket.empty()) {
      throw Tools::UsageError("--socket is required");
   }
}

std::vector<NamedState> openStates(ReaderOptions const& options, int interruptFd) {
   requireState(options);
   if (options.fleet.areGiven()) {
      return openFleet(options.fleet, options.patience(), interruptFd);
   }
   std::vector<NamedState> states;
   states.push_back({"", std::make_unique<ServerRoots>(options, interruptFd)});
   return states;
}

std::unique_ptr<RootSource> openState(ReaderOptions const& options, int interruptFd) {
   if (options.fleet.isPattern()) {
      throw Failure("--switch " + options.fleet.switches + ": only one switch can be shown",
                    Exit::usage);
   }
   return std::move(openStates(options, interruptFd).front().source);
}

void printStates(std::vector<NamedState> const& states, bool named,
                 std::function<void(RootSource&, std::ostream&)> const& print) {
   std::optional<Failure> failed;
   bool any = false;
   for (NamedState const& state : states) {
      Prefixed prefixed(*std::cout.rdbuf(), named ? Kiv::printable(state.name) + ":" : "");
      std::ostream out(&prefixed);
      try {
         print(*state.source, out);
         any = true;
      } catch (Failure const& failure) {
         failed = failure;
      }
      if (!out) {
         std::cout.setstate(std::ios::badbit);
      }
   }
   if (!any && failed) {
      throw Failure(*failed);
   }
}

}  // namespace Ptpstate
