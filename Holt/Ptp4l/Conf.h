// Configuration files of the linuxptp daemon ptp4l(8), as text: what they say, where, and nothing
// about what it means. `Load.h` gives it meaning.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Sarn/Types.h"

namespace Holt {

/// One `key value` line.
struct Ptp4lSetting {
   std::string key;
   /// All behind the key, without the blanks around it; may contain blanks.
   std::string value;
   /// Line in the file, from 1.
   U32 line = 0;
};

/// The lines below one `[header]`.
struct Ptp4lSection {
   enum class Kind : U8 {
      global,              ///< `[global]`: the clock, and defaults of all ports
      port,                ///< `[NAME]`: what is special to the port on interface NAME
      unicastMasterTable,  ///< `[unicast_master_table]`: masters to ask for unicast service
      unknown,             ///< a header that names nothing; its lines count for nothing
   };

   Kind kind = Kind::unknown;
   /// The interface of a port; else empty.
   std::string name;
   /// Line of the header.
   U32 line = 0;
   /// In the order of the file; a key may stand there more than once.
   std::vector<Ptp4lSetting> settings;

   /// The setting that counts: the last of that key, or null.
   Ptp4lSetting const* find(std::string_view key) const;
};

/// Something to tell the user about a line.
struct Ptp4lRemark {
   U32 line = 0;
   /// The key it is about; may be empty.
   std::string key;
   std::string message;
};

/// A configuration file, read.
struct Ptp4lConf {
   /// As given; opens every message.
   std::string file;
   /// In the order of the file. A section may occur more than once.
   std::vector<Ptp4lSection> sections;
   /// Lines that are no settings, in the order of the file.
   std::vector<Ptp4lRemark> errors;
};

/// "FILE:LINE: key: message", without the key where it is empty.
std::string remarkText(std::string const& file, Ptp4lRemark const& remark);

/// Reads `text`; `file` is only a name. Lines are taken as ptp4l(8) takes them: blanks around them
/// do not count, nor do empty lines and those that begin with `#`; a `#` further on is part of the
/// value; the names of the fixed sections are taken in any case of letters. Nothing is thrown:
/// what is wrong goes to `errors`.
Ptp4lConf parsePtp4lConf(std::string_view text, std::string file);

/// Reads a file. Throws std::system_error if it cannot be read.
Ptp4lConf readPtp4lConf(std::string const& path);

/// Reads a whole number as the daemon does: decimal, `0x` hexadecimal or, with a leading 0, octal,
/// with or without a sign. False if `text` is nothing of the kind or beyond 64 bits.
bool parsePtp4lNumber(std::string_view text, S64& number);

}  // namespace Holt
