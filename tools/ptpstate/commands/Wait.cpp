// wait
#include <optional>

#include "Holt/State/Match.h"
#include "Kiv/Visit.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using std::chrono::milliseconds;

struct WaitOptions {
   std::string socket;
   std::string path;
   std::string value;
   /// In seconds; none if zero.
   double timeout = 0;
};

/// How long to wait for the server when the wait itself has no limit.
constexpr milliseconds serverPatience(10000);

class Wait {
public:
   explicit Wait(WaitOptions const& options)
         : options_(options),
           limit_(static_cast<S64>(options.timeout * 1000)),
           end_(Clock::now() + limit_),
           client_(options.socket, limited() ? limit_ : serverPatience) {
      Tools::showWaiting(client_);
      path_ = parsePath(options.path, client_.roots());
      root_ = newRoot(path_.root.type, path_.root.name);
      wanted();
      mount_ = &client_.mountIs(root_, MountMode::reader);
      client_.waitComplete(*mount_);
   }

   void run() {
      while (!reached()) {
         if (client_.over()) {
            throw Failure(options_.socket + ": the connection is lost: " + client_.closeReason() +
                                "; " + stateText(),
                          Exit::connection);
         }
         if (!mount_->complete()) {
            throw Failure(path_.root.name + ": the server has withdrawn it; " + stateText(),
                          Exit::connection);
         }
         auto const left = std::chrono::ceil<milliseconds>(end_ - Clock::now());
         if (limited() && left <= milliseconds::zero()) {
            throw Failure("the time is over; " + stateText());
         }
         client_.turn(-1, limited() ? left : milliseconds(-1));
      }
   }

private:
   bool limited() const { return limit_ > milliseconds::zero(); }

   /// Reads the value to wait for.
   void wanted() {
      Destination const to = destinationOf(root_->kivType(), path_);
      if (to.type->kind == Kiv::TypeKind::entity ||
          (to.field != nullptr && to.field->keyType != nullptr && !to.keyed)) {
         throw Failure(to.path +
                       ": is not a value; wait needs an attribute, a field or an element");
      }
      where_ = to.path;
      wanted_.emplace(*to.type);
      try {
         parseValue(options_.value, *wanted_);
      } catch (Failure const& error) {
         throw Failure(to.path + ": " + error.what());
      }
   }

   /// The value at a place; null if nothing is there.
   std::unique_ptr<Kiv::AnyValue> valueAt(Path const& path) const {
      try {
         return Place(root_, path.root.name, path.steps).value();
      } catch (Failure const&) {
         return nullptr;
      }
   }

   std::vector<Path> places() const {
      try {
         return matchesOf(root_, path_);
      } catch (Failure const&) {
         return {};  // nothing fits the pattern now
      }
   }

   bool reached() const {
      Sarn::String const wanted = valueText(*wanted_);
      for (Path const& path : places()) {
         auto const value = valueAt(path);
         if (value != nullptr && valueText(*value) == wanted) {
            return true;
         }
      }
      return false;
   }

   /// "ptp/config.priority1 is 128, not 7".
   Sarn::String stateText() const {
      Sarn::String const wanted = valueText(*wanted_);
      if (isPattern(path_)) {
         return where_ + " is " + wanted + " nowhere";
      }
      auto const value = valueAt(path_);
      return value != nullptr ? where_ + " is " + valueText(*value) + ", not " + wanted
                              : where_ + " does not exist";
   }

   WaitOptions const& options_;
   milliseconds limit_;
   Clock::time_point end_;
   Client client_;
   Path path_;
   Sarn::Ptr<Kiv::NamedEntity> root_;
   Mount* mount_ = nullptr;
   Sarn::String where_;
   std::optional<Kiv::AnyValue> wanted_;
};

}  // namespace

void addWait(Command const& program, Run& run) {
   auto const options = std::make_shared<WaitOptions>();
   Command const command = program.command(
         "wait",
         "Waits until an attribute, a field or an element has a value. It need not exist yet. "
         "If a key of the path contains *, one place with that value is enough.\n"
         "\n"
         "When the time is over, the status is 1 and the message gives the value at that time. "
         "When the connection is lost, the status is 3.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate wait --socket /tmp/ptp ptp/status.portDS[Ethernet1].portState slave\n"
         "  $ ptpstate wait --timeout 30 'ptp/status.portDS[*].portState' slave");
   Tools::addSocketOption(command, options->socket);
   command
         .option("--timeout", options->timeout,
                 "Give up after this time, including connecting; by default, never")
         .placeholder("SECONDS")
         .range(0.001, 1e6);
   command.option("path", options->path).placeholder("PATH").required();
   command.option("value", options->value).placeholder("VALUE").required();
   command.onChosen([options, &run] {
      run = [options] {
         options->value = plainArgument(options->value);
         Wait(*options).run();
         return Exit::ok;
      };
   });
}

}  // namespace Ptpstate
