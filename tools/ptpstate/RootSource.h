// Where commands that read get roots from.
#pragma once

#include <chrono>
#include <vector>

#include "Holt/State/Path.h"
#include "Kiv/Entity.h"

namespace Ptpstate {

/// The roots of one state, mirrored: those of a server at a socket, or of a switch of a fleet.
///
/// A `Holt::Failure` says why it cannot be read.
class RootSource {
public:
   RootSource() = default;
   RootSource(RootSource const&) = delete;
   RootSource& operator=(RootSource const&) = delete;
   virtual ~RootSource() = default;

   /// The roots that there are. May ask and wait.
   virtual std::vector<Holt::OfferedRoot> roots() = 0;
   /// The mirror of a root, which stays the same object; complete after `waitComplete`.
   virtual Sarn::Ptr<Kiv::NamedEntity> mirror(Holt::OfferedRoot const& root) = 0;
   /// Waits until all mirrors are complete.
   virtual void waitComplete() = 0;

   /// Keeps the mirrors up to date, for `timeout` at most or until `otherFd` is readable. Returns
   /// whether it is. A connection that is lost is made again.
   virtual bool turn(int otherFd, std::chrono::milliseconds timeout) = 0;
   /// Why the mirrors may be old; printable, empty if they are up to date.
   virtual Sarn::String trouble() const = 0;
   /// What ends a command that writes samples one after the other: the connection is lost. Empty if
   /// nothing does.
   virtual Sarn::String lostText() const = 0;
};

}  // namespace Ptpstate
