// Parses configuration files of the linuxptp daemon ptp4l(8) into sections and settings with their
// lines. `Load.h` gives them meaning.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Sarn/Types.h"

namespace Holt {

/// One `key value` line.
struct Ptp4lSetting {
   std::string key;
   /// Everything after the key, without surrounding blanks; may contain blanks.
   std::string value;
   /// Line in the file, from 1.
   U32 line = 0;
};

/// The lines below a `[header]`.
struct Ptp4lSection {
   enum class Kind : U8 {
      /// `[global]`: the clock, and defaults for all ports.
      global,
      /// `[NAME]`: the port on interface NAME.
      port,
      /// `[unicast_master_table]`: masters to ask for unicast service.
      unicastMasterTable,
      /// An invalid header; its lines are ignored.
      unknown,
   };

   Kind kind = Kind::unknown;
   /// The interface of a port; else empty.
   std::string name;
   /// Line of the header; 0 if the section is not in the file.
   U32 line = 0;
   /// In the order of the file; a key may occur more than once.
   std::vector<Ptp4lSetting> settings;

   /// The last setting with that key, which is the one that counts; or null.
   Ptp4lSetting const* find(std::string_view key) const;
};

/// An error or a note about a line.
struct Ptp4lRemark {
   /// From 1; 0 if it is about something that is not in the file.
   U32 line = 0;
   /// The key in question; may be empty.
   std::string key;
   std::string message;
};

/// A configuration file, read.
struct Ptp4lConf {
   /// Its name as it was given; begins every message.
   std::string file;
   /// In the order of the file. A section may occur more than once.
   std::vector<Ptp4lSection> sections;
   /// Invalid lines, in the order of the file.
   std::vector<Ptp4lRemark> errors;
};

/// Adds a port that is not in the file, as ptp4l(8) does with its option -i; none if the file has
/// the port.
void addInterface(Ptp4lConf& conf, std::string const& name);

/// "FILE:LINE: key: message", without the line if it is 0 and the key if it is empty; one printable
/// line.
std::string remarkText(std::string const& file, Ptp4lRemark const& remark);

/// Parses `text`; `file` is its name for messages. Lines are read as ptp4l(8) reads them:
/// surrounding blanks, empty lines and lines that begin with `#` are ignored; a `#` further on is
/// part of the value; the fixed section names are matched regardless of case. Does not throw:
/// faults go to `errors`.
Ptp4lConf parsePtp4lConf(std::string_view text, std::string file);

/// Parses a file. Throws std::system_error if it cannot be read.
Ptp4lConf readPtp4lConf(std::string const& path);

/// Reads a whole number as the daemon does: decimal, hexadecimal after `0x`, or octal after `0`,
/// with an optional sign. Returns false if `text` is anything else or exceeds 64 bits.
bool parsePtp4lNumber(std::string_view text, S64& number);

}  // namespace Holt
