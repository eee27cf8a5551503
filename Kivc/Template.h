// Text with holes: what emitters write reads like what they produce.
//
//    Template text;
//    text.set("type", "U32").set("name", "ttl");
//    text.append(R"(
//    @type@ @name@() const { return @name@_; }
//    )");
//    out = text.finish();
//
// Rules: `@key@` is replaced by the key's value and `@@` by `@`. The first line break of a template
// is dropped, so that raw strings can begin on a line of their own, and so is the indentation that
// all its lines share. A hole that stands alone on its line is a block: each line of its value gets
// the hole's indentation, and an empty value removes the line. A key that is not set, or one that
// is set and used by nothing, is a mistake in the emitter and throws `TemplateError`.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Kivc {

class TemplateError : public std::logic_error {
public:
   using std::logic_error::logic_error;
};

class Template {
public:
   Template() = default;
   Template(Template const&) = delete;
   Template& operator=(Template const&) = delete;

   /// Gives a key its value; setting it again replaces it and needs a use in between.
   Template& set(std::string const& key, std::string value);

   /// A nested scope, which sees this one's keys and may hide them. This one must outlive it.
   Template fork() { return Template(this); }

   /// Fills in `text` and adds it to the result.
   Template& append(std::string_view text);

   /// The result. Throws if a key of this scope was never used.
   std::string finish();

private:
   struct Entry {
      std::string value;
      bool isUsed = false;
   };

   explicit Template(Template* outer) : outer_(outer) {}

   std::string const& look(std::string const& key, std::string_view line);
   void appendLine(std::string_view line);

   Template* outer_ = nullptr;
   std::map<std::string, Entry> entries_;
   std::string result_;
};

}  // namespace Kivc
