// The lines that this program writes for people.
#pragma once

#include "Holt/LogOutput.h"

namespace Statedb {

/// With the time, or, in a journal, with the priority that systemd reads (sd-daemon(3)).
class Log {
public:
   Log(Holt::LogOutput& output, bool journal) : output_(output), journal_(journal) {}

   void info(std::string const& text) { line("<6>", text); }
   void warning(std::string const& text) { line("<4>", text); }
   void error(std::string const& text) { line("<3>", text); }

private:
   void line(char const* priority, std::string const& text);

   Holt::LogOutput& output_;
   bool journal_;
};

}  // namespace Statedb
