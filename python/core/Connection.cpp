#include "python/core/Connection.h"

#include <poll.h>

#include <algorithm>
#include <cmath>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "python/core/EntityObject.h"

namespace Bindings {

using Holt::Clock;
using Holt::MountMode;
using Kiv::NboAttrLog::Mount;
using std::chrono::milliseconds;

namespace {

milliseconds millisecondsOf(double seconds) {
   double const most = 1e9;  // the longest wait, in milliseconds: eleven days
   return milliseconds(static_cast<S64>(std::ceil(std::clamp(seconds * 1000, 0.0, most))));
}

/// Lets a signal end a wait, Ctrl-C above all. REQUIRES: the interpreter's lock.
void checkSignals() {
   if (PyErr_CheckSignals() != 0) {
      raiseSet();
   }
}

/// Waits without the interpreter's lock; observers that are called meanwhile take it.
class Connection {
public:
   Connection(std::string const& socket, double timeout)
         : socket_(socket), thread_(PyThread_get_thread_ident()) {
      py::gil_scoped_release const unlocked;
      client_ = std::make_unique<Holt::Client>(socket, millisecondsOf(timeout));
      client_->onWaiting = [](Holt::Client::Waiting const* waiting) {
         if (waiting != nullptr) {
            py::gil_scoped_acquire const locked;
            checkSignals();
         }
      };
   }

   py::list roots() {
      std::vector<Holt::OfferedRoot> offered;
      asking([&] { offered = client_->roots(); });
      py::list all;
      for (Holt::OfferedRoot const& root : offered) {
         all.append(py::make_tuple(root.type, root.name));
      }
      return all;
   }

   /// Mirrors a root, and waits for all of it. `owner`: a `ptplib.Client`.
   py::object mirror(std::string const& type, std::string const& name, std::string const& mode,
                     py::object const& owner) {
      MountMode const mount = mode == "read"    ? MountMode::reader
                              : mode == "write" ? MountMode::writer
                              : mode == "claim" ? MountMode::owner
                                                : (raise(PyExc_ValueError,
                                                         "the mode is \"read\", \"write\" or "
                                                         "\"claim\", not \"" +
                                                               mode + "\""),
                                                   MountMode::reader);
      Mount const* made = nullptr;
      asking([&] {
         made = &client_->mountIs({type, name}, mount);
         client_->waitComplete(*made);
      });
      mounts_.push_back(made);
      return py::reinterpret_steal<py::object>(wrapRoot(Sarn::Ptr<Kiv::NamedEntity>(&made->root()),
                                                        Kiv::NboAttrLog::writesBack(mount), owner));
   }

   void sync() {
      asking([&] { client_->sync(); });
   }

   /// Handles what has arrived; waits for it until the time is over, if `timeout` is not 0. Returns
   /// whether anything has arrived.
   bool turn(double timeout) {
      checkThread();
      auto const end = Clock::now() + millisecondsOf(timeout);
      for (;;) {
         throwIfOver();
         std::vector<pollfd> polled;
         client_->appendTo(polled);
         throwIfOver();  // the write may have failed
         int ready = 0;
         {
            py::gil_scoped_release const unlocked;
            auto const left = std::chrono::ceil<milliseconds>(end - Clock::now());
            ready = ::poll(polled.data(), polled.size(),
                           static_cast<int>(std::max(left, milliseconds(0)).count()));
         }
         checkSignals();
         if (ready > 0) {
            bool const heard = (polled[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0;
            client_->onTurn(polled);
            checkMounts();
            if (heard) {
               return true;
            }
         }
         if (Clock::now() >= end) {
            return false;
         }
      }
   }

   /// Sends what is pending, as far as the server takes it; returns whether more is left.
   bool flush() {
      checkThread();
      if (client_->over()) {
         return false;
      }
      std::vector<pollfd> polled;
      client_->appendTo(polled);
      return !client_->over() && (polled[0].events & POLLOUT) != 0;
   }

   int fileno() const {
      if (client_->over()) {
         return -1;
      }
      std::vector<pollfd> polled;
      client_->appendTo(polled);
      return polled[0].fd;
   }

   bool over() const noexcept { return client_->over(); }
   std::string reason() const { return client_->closeReason(); }

private:
   void checkThread() const {
      if (thread_ != PyThread_get_thread_ident()) {
         raise(PyExc_RuntimeError,
               "the connection to " + socket_ +
                     " belongs to the thread that made it; no other may use it");
      }
   }
   template <class Ask>
   void asking(Ask&& ask) {
      checkThread();
      py::gil_scoped_release const unlocked;
      client_->beginAnew();
      ask();
   }
   void throwIfOver() const {
      if (client_->over()) {
         raise("ConnectionLost", socket_ + ": the connection is lost: " + client_->closeReason());
      }
   }
   /// A root that is withdrawn stays as it is: whoever follows it must learn that.
   void checkMounts() {
      for (Mount const*& mount : mounts_) {
         if (mount->state() == Mount::State::gone) {
            std::string const name = mount->root().nameString();
            mount = mounts_.back();
            mounts_.pop_back();
            raise("RootGone", socket_ + ": the server no longer has the root " + name);
         }
      }
   }

   std::string socket_;
   unsigned long thread_;
   std::unique_ptr<Holt::Client> client_;
   std::vector<Mount const*> mounts_;
};

}  // namespace

void registerConnection(py::module_& module) {
   py::class_<Connection>(module, "Connection")
         .def(py::init<std::string const&, double>())
         .def("roots", &Connection::roots)
         .def("mirror", &Connection::mirror)
         .def("sync", &Connection::sync)
         .def("turn", &Connection::turn)
         .def("flush", &Connection::flush)
         .def("fileno", &Connection::fileno)
         .def_property_readonly("over", &Connection::over)
         .def_property_readonly("reason", &Connection::reason);
}

}  // namespace Bindings
