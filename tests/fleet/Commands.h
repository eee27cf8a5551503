// What drives a program of the test: lines on its standard input.
#pragma once

#include <functional>
#include <string>

#include "Holt/Loop.h"

namespace FleetLoad {

/// Hands over each line. The end of the input ends the program: nothing is left behind when the
/// script that has started it ends, for whatever reason.
class Commands final : public Holt::Source {
public:
   explicit Commands(std::function<void(std::string const&)> line) : line_(std::move(line)) {}

   bool ended() const noexcept { return ended_; }

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   std::function<void(std::string const&)> line_;
   std::string begun_;
   bool ended_ = false;
};

/// Calls something at regular times, which it makes up for if it was late, by a second at most.
class Every final : public Holt::Source {
public:
   /// `period`: nanoseconds.
   Every(U64 period, std::function<void()> call)
         : period_(period), next_(Holt::steadyNow() + period), call_(std::move(call)) {}

   /// How many calls were left out.
   U64 missed() const noexcept { return missed_; }

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override { return next_; }
   void onTurn(std::span<pollfd const> polled) override;

private:
   U64 period_;
   U64 next_;
   U64 missed_ = 0;
   std::function<void()> call_;
};

}  // namespace FleetLoad
