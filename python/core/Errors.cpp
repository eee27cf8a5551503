#include "python/core/Errors.h"

#include "Holt/Failure.h"
#include "Kiv/Exception.h"

namespace Bindings {

PyObject* errorClass(char const* name) {
   // The package keeps its classes as long as the interpreter lives.
   return py::module_::import("ptplib._errors").attr(name).ptr();
}

void raiseSet() {
   throw py::error_already_set();
}

void raise(PyObject* type, std::string const& message) {
   PyErr_SetString(type, message.c_str());
   raiseSet();
}

void raise(char const* className, std::string const& message) {
   raise(errorClass(className), message);
}

namespace {

void set(char const* className, char const* message) {
   PyErr_SetString(errorClass(className), message);
}

void setFromException() {
   try {
      throw;
   } catch (py::error_already_set& error) {
      error.restore();
   } catch (Holt::Failure const& failure) {
      set(failure.status() == Holt::Exit::connection ? "ConnectionLost" : "Error", failure.what());
   } catch (Kiv::RangeException const& error) {
      set("RangeError", error.what());
   } catch (Kiv::ParseException const& error) {
      set("ValueFault", error.what());
   } catch (Kiv::ReadOnlyProxyException const& error) {
      set("ReadOnlyError", error.what());
   } catch (Kiv::TypeException const& error) {
      PyErr_SetString(PyExc_TypeError, error.what());
   } catch (Kiv::NewEntityArgsException const& error) {
      PyErr_SetString(PyExc_TypeError, error.what());
   } catch (Kiv::Exception const& error) {
      set("Error", error.what());
   } catch (std::bad_alloc const&) {
      PyErr_NoMemory();
   } catch (std::exception const& error) {
      PyErr_SetString(PyExc_RuntimeError, error.what());
   }
}

}  // namespace

void setErrorFromException() noexcept {
   try {
      setFromException();
   } catch (py::error_already_set& error) {  // the package's classes cannot be imported
      error.restore();
   } catch (...) {
      PyErr_SetString(PyExc_RuntimeError, "an unknown exception");
   }
}

}  // namespace Bindings
