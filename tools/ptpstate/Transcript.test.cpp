// Golden transcripts: what every command says, as in a terminal.
//
// A file of testdata/transcripts is what a person would see: "$ ptpstate ..." is run. What follows,
// up to the next such line, is its standard output, then its standard error, and its exit status if
// that is not 0. "$ ptpstate ... &" runs in the background; "$ wait" shows its output. "> FILE" and
// "< FILE" redirect. "$ ptpstate serve" always runs in the background, and the test waits until it
// serves. Lines that begin with "#" after an empty one are comments. PTPSTATE_SOCKET names the
// socket, a file in the directory in which all commands run.
//
// PTPSTATE_UPDATE=1 rewrites the files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

std::filesystem::path const directory =
      std::filesystem::path(PTPLIB_SOURCE_DIR) / "tools/ptpstate/testdata/transcripts";

/// Splits a line into words as a shell does, with single quotes.
std::vector<std::string> wordsOf(std::string const& line) {
   std::vector<std::string> words;
   bool inside = false;
   bool quoted = false;
   for (char const c : line) {
      if (c == '\'') {
         quoted = !quoted;
         if (!inside) {
            words.emplace_back();
            inside = true;
         }
      } else if (c == ' ' && !quoted) {
         inside = false;
      } else {
         if (!inside) {
            words.emplace_back();
            inside = true;
         }
         words.back() += c;
      }
   }
   return words;
}

class Terminal {
public:
   /// Runs a line, given without its "$ ", and returns what it shows.
   std::string run(std::string const& line) {
      std::vector<std::string> words = wordsOf(line);
      if (words == std::vector<std::string>{"wait"}) {
         std::string seen;
         for (auto const& program : background_) {
            seen += text(program->finish());
         }
         background_.clear();
         return seen;
      }
      EXPECT_EQ(words.at(0), "ptpstate") << line;
      words.erase(words.begin());
      Surroundings in{0, scratch_.path(), "socket"};
      bool const behind = !words.empty() && words.back() == "&";
      if (behind) {
         words.pop_back();
      }
      in.input = redirected(words, "<");
      std::string const output = redirected(words, ">");
      if (!words.empty() && words[0] == "serve") {
         server_ = std::make_unique<Program>(words, in);
         auto const roots = std::count(words.begin(), words.end(), "--root");
         EXPECT_TRUE(server_->says("serving ", std::max(1, static_cast<int>(roots))))
               << text(server_->finish());
         return withoutTimes(server_->out());
      }
      if (behind) {
         background_.push_back(std::make_unique<Program>(words, in));
         EXPECT_TRUE(background_.back()->says(words.at(0) == "watch" ? "complete" : "recording "))
               << text(background_.back()->finish());
         return "";
      }
      Outcome outcome = Ptpstate::run(words, in);
      if (!output.empty()) {
         std::ofstream(output, std::ios::binary) << outcome.out;
         outcome.out.clear();
      }
      return text(outcome);
   }

private:
   /// Removes the file after `sign` from the words and returns it; empty without one.
   std::string redirected(std::vector<std::string>& words, std::string const& sign) const {
      for (std::size_t i = 0; i + 1 < words.size(); ++i) {
         if (words[i] == sign) {
            std::string const file = scratch_.file(words[i + 1]);
            words.erase(words.begin() + static_cast<std::ptrdiff_t>(i),
                        words.begin() + static_cast<std::ptrdiff_t>(i) + 2);
            return file;
         }
      }
      return "";
   }

   /// Removes what differs between runs: times, processes, and numbers of bytes, since the greeting
   /// to the asking peer may still be in the buffer.
   static std::string steady(std::string const& text) {
      static std::regex const date(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
      static std::regex const pid("pid \\d+, uid \\d+, gid \\d+");
      static std::regex const connected("connected  \\d.*");
      static std::regex const bytes("\\d+ bytes?");
      std::string steady = std::regex_replace(text, date, "TIME");
      steady = std::regex_replace(steady, pid, "PEER");
      steady = std::regex_replace(steady, connected, "connected  A WHILE");
      steady = std::regex_replace(steady, bytes, "N bytes");
      static std::regex const buffer("buffer     \\d+ of N bytes \\(\\d+ %\\)");
      return withoutTimes(std::regex_replace(steady, buffer, "buffer     N of N bytes (N %)"));
   }

   static std::string text(Outcome const& outcome) {
      std::string seen = steady(outcome.out) + outcome.err;
      if (!seen.empty() && seen.back() != '\n') {
         seen += '\n';
      }
      return outcome.status == 0 ? seen
                                 : seen + "[exit status " + std::to_string(outcome.status) + "]\n";
   }

   Scratch scratch_;
   std::unique_ptr<Program> server_;
   std::vector<std::unique_ptr<Program>> background_;
};

class Transcript : public testing::TestWithParam<std::string> {};

TEST_P(Transcript, IsWhatTheProgramSays) {
   std::filesystem::path const file = directory / (GetParam() + ".txt");
   std::string const expected = readFile(file);
   std::istringstream lines(expected);
   std::string seen;
   Terminal terminal;
   bool apart = true;  // from the output of the last command, which may have such lines
   for (std::string line; std::getline(lines, line); apart = line.empty()) {
      if (apart && line.starts_with("#")) {
         seen += (seen.empty() ? "" : "\n") + line + "\n";
      } else if (line.starts_with("$ ")) {
         seen += line + "\n" + terminal.run(line.substr(2));
      }
   }
   if (std::getenv("PTPSTATE_UPDATE") != nullptr) {
      std::ofstream(file, std::ios::binary) << seen;
   } else {
      EXPECT_EQ(seen, expected) << file << "; PTPSTATE_UPDATE=1 writes it anew";
   }
}

std::vector<std::string> names() {
   std::vector<std::string> found;
   for (auto const& entry : std::filesystem::directory_iterator(directory)) {
      found.push_back(entry.path().stem());
   }
   std::sort(found.begin(), found.end());
   return found;
}

INSTANTIATE_TEST_SUITE_P(All, Transcript, testing::ValuesIn(names()),
                         [](auto const& at) { return replaced(at.param, "-", "_"); });

}  // namespace
}  // namespace Ptpstate
