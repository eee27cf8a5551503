// complete: what ptpstate.bash calls. It is not listed among the commands.
#include <iostream>

#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/complete/Complete.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct CompleteOptions {
   std::string line;
   std::size_t point = 0;
   std::string word;
};

/// Prints candidates as bash expects them: replacements for the word as bash sees it, which begins
/// after the last character that breaks words.
Exit complete(Command const& program, CompleteOptions const& options) {
   ShellWords const line = shellWords(options.line.substr(0, options.point));
   std::string const word = plainArgument(options.word);
   bool const known = line.raw.ends_with(word);
   std::string const before = known ? line.raw.substr(0, line.raw.size() - word.size()) : "";
   std::string const plain = before.empty() ? "" : shellWords(before).words.back();
   for (std::string candidate : candidates(program, line)) {
      if (line.quote != 0 && candidate.ends_with(' ')) {
         candidate.pop_back();  // the quote must be closed first
      }
      std::cout << shellQuoted(Kiv::printable(candidate.substr(plain.size())), line.quote) << '\n';
   }
   return Exit::ok;
}

}  // namespace

void addComplete(Command const& program, Run& run) {
   auto const options = std::make_shared<CompleteOptions>();
   Command const command = program.command("complete");  // for the shell, so without a description
   command.option("line", options->line).required();
   command.option("point", options->point).required();
   command.option("word", options->word);
   command.onChosen([options, program, &run] {
      run = [options, program] { return complete(program, *options); };
   });
}

}  // namespace Ptpstate
