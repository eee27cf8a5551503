// What Python gets when C++ throws.
#pragma once

#include <pybind11/pybind11.h>

#include <string>

namespace Bindings {

namespace py = pybind11;

/// The exception classes of the package, by name: `ptplib._errors` defines them.
PyObject* errorClass(char const* name);

/// Sets a Python error of a class of the package, and throws it.
[[noreturn]] void raise(char const* className, std::string const& message);
/// The same with a class of the language, such as `PyExc_TypeError`.
[[noreturn]] void raise(PyObject* type, std::string const& message);
/// Throws the Python error that is set.
[[noreturn]] void raiseSet();

/// Sets the Python error for the exception that is being handled.
void setErrorFromException() noexcept;

/// Runs `work` for the interpreter: an exception becomes a Python error, and the result `failed`.
template <class Result, class Work>
Result guarded(Result failed, Work&& work) noexcept {
   try {
      return work();
   } catch (...) {
      setErrorFromException();
      return failed;
   }
}

}  // namespace Bindings
