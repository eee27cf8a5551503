// Paths as gNMI has them: elements with keys, in one of several trees.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Sarn/Types.h"

namespace Ptpgnmi {

/// "portDS[key=Ethernet1]". In a pattern, the name "*" fits any element, "..." any number of them;
/// a key that is missing or "*" fits any.
struct Elem {
   std::string name;
   std::map<std::string, std::string> keys;

   bool operator==(Elem const&) const = default;
   auto operator<=>(Elem const&) const = default;
};

using Elems = std::vector<Elem>;

/// "/tree[name=ptp/status]/portDS[key=Ethernet1]", with a backslash before "]" and "\" in a key:
/// for messages.
std::string pathText(Elems const& elems);

/// Which places in a tree a path leads to, here and below: an automaton that walks of a tree take
/// along, so that they skip what cannot fit.
///
/// Bit i of a `State` says that the first i elements of the pattern fit those so far; the last one,
/// that the place or one above it is what the pattern names. 0: nothing fits, here or below.
class Pattern {
public:
   using State = U64;
   /// What a pattern may have.
   static constexpr std::size_t mostElems = 62;

   /// REQUIRES: no more than `mostElems`.
   explicit Pattern(Elems elems);

   Elems const& elems() const noexcept { return elems_; }
   State start() const noexcept { return start_; }
   State step(State state, Elem const& elem) const;
   State steps(State state, Elems const& elems) const;
   /// Whether the place, with all below it, is meant.
   bool fits(State state) const noexcept { return (state >> elems_.size() & 1) != 0; }

private:
   State closed(State state) const noexcept;

   Elems elems_;
   State start_;
};

}  // namespace Ptpgnmi
