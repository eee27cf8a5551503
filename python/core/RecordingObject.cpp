#include "python/core/RecordingObject.h"

#include <memory>
#include <optional>
#include <vector>

#include "Holt/Client.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogPlayer.h"
#include "Kiv/NboAttrLogRecorder.h"
#include "python/core/EntityObject.h"

namespace Bindings {

using Kiv::NboAttrLog::RecordingFile;
using Kiv::NboAttrLog::RecordingReader;

namespace {

/// Plays the files of a recording frame by frame.
class RecordingPlayer {
public:
   /// `path`: a file, or the name of a ring.
   explicit RecordingPlayer(std::string const& path)
         : files_(Kiv::NboAttrLog::recordingFiles(path)),
           player_([this](Kiv::NboAttrLog::OfferedRoot const& root) { return made(root); }) {
      if (files_.empty()) {
         raise("RecordingError",
               path + ": there is no such recording, nor a ring " + path + ".000001 ...");
      }
   }

   /// Plays the next frame. Returns when it was recorded, in nanoseconds since 1970; None at the
   /// end. Throws `RecordingError` at damage.
   py::object next() {
      for (;;) {
         if (!reader_ && !open()) {
            return py::none();
         }
         RecordingReader::Frame frame;
         if (reader_->next(frame)) {
            if (!player_.apply(frame)) {
               raise("RecordingError", file() + ": cannot be played after byte " +
                                             std::to_string(frame.offset) + ": " +
                                             player_.reason());
            }
            return py::int_(frame.at.wall);
         }
         if (reader_->damaged()) {
            raise("RecordingError", file() + ": damaged at byte " +
                                          std::to_string(reader_->offset()) + ": " +
                                          reader_->damage());
         }
         reader_.reset();
         ++index_;
      }
   }

   /// Called with each root before anything is played into it.
   py::object onRoot = py::none();

   bool complete() const noexcept { return player_.complete(); }
   bool sourceIsLost() const noexcept { return player_.sourceIsLost(); }

private:
   Sarn::Ptr<Kiv::NamedEntity> made(Kiv::NboAttrLog::OfferedRoot const& offered) const {
      if (Kiv::typeByName(offered.type) == nullptr) {
         return {};
      }
      Sarn::Ptr<Kiv::NamedEntity> root = Holt::newRoot(offered.type, offered.name);
      if (!onRoot.is_none()) {
         onRoot(py::reinterpret_steal<py::object>(wrapRoot(root, false, py::none())));
      }
      return root;
   }

   std::string const& file() const { return files_[index_]; }

   bool open() {
      if (index_ == files_.size()) {
         return false;
      }
      source_ = std::make_unique<RecordingFile>(file());
      reader_.emplace(*source_);
      return true;
   }

   std::vector<Sarn::String> files_;
   std::size_t index_ = 0;
   std::unique_ptr<RecordingFile> source_;
   std::optional<RecordingReader> reader_;
   Kiv::NboAttrLog::Player player_;
};

}  // namespace

void registerRecordings(py::module_& module) {
   py::class_<RecordingPlayer>(module, "RecordingPlayer")
         .def(py::init<std::string const&>())
         .def("next", &RecordingPlayer::next)
         .def_readwrite("onRoot", &RecordingPlayer::onRoot)
         .def_property_readonly("complete", &RecordingPlayer::complete)
         .def_property_readonly("sourceIsLost", &RecordingPlayer::sourceIsLost);
}

}  // namespace Bindings
