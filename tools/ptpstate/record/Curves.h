// What a recording tells of some attributes, as curves.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/ptpstate/record/Replay.h"
#include "tools/ptpstate/record/Series.h"

namespace Ptpstate {

/// Collects the values at paths while a recording is replayed. A path may be a pattern: each place
/// that fits has a curve, from when it appears until it is gone.
///
/// Numbers and durations are drawn as they are. All others are drawn as steps between names: states
/// and booleans.
class Curves final : public ReplayView {
public:
   explicit Curves(std::vector<std::string> paths) : paths_(std::move(paths)) {}

   void complete(U64 wall, Kiv::NamedEntity& root, bool before) override;
   void change(U64 wall, Holt::ChangeText const& text) override;
   void lost(U64 wall) override;
   void back(U64 wall) override;

   /// A program for gnuplot(1) that writes an SVG drawing to its standard output. Throws `Failure`
   /// if there is nothing to draw, or if numbers and names would share an axis.
   std::string program() const;

private:
   struct Curve {
      Series series;
      std::optional<double> last;
      /// Whether its values are names.
      bool named = false;
   };

   void add(U64 wall, std::string const& path, Holt::Json const& value);
   void end(U64 wall, Curve& curve);
   /// Reads all places anew.
   void scan(U64 wall);
   bool areNamed() const;
   std::string axes() const;

   std::vector<std::string> paths_;
   std::vector<Kiv::NamedEntity*> roots_;
   /// By path.
   std::map<std::string, Curve> curves_;
   /// Names in the order in which they appeared; each is drawn at its index.
   std::vector<std::string> names_;
   U64 begin_ = 0;
   U64 end_ = 0;
};

}  // namespace Ptpstate
