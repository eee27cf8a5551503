// The extension `ptplib._ptplib`: the generic interface for Python. `ptplib` is what users import.
#include "python/core/Classes.h"
#include "python/core/Collections.h"
#include "python/core/Connection.h"
#include "python/core/EntityObject.h"
#include "python/core/ObserverObject.h"
#include "python/core/RecordingObject.h"

PYBIND11_MODULE(_ptplib, module) {
   using namespace Bindings;

   py::register_exception_translator([](std::exception_ptr thrown) {
      try {
         std::rethrow_exception(thrown);
      } catch (py::error_already_set const&) {
         throw;  // pybind11's own: so are those that it throws for arguments
      } catch (py::builtin_exception const&) {
         throw;
      } catch (...) {
         setErrorFromException();
      }
   });
   registerTypes(module);
   registerEntity(module);
   registerCollections(module);
   registerObservers(module);
   registerConnection(module);
   registerRecordings(module);
}
