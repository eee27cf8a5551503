#include "Kivc/DiffRun.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "Kiv/Printable.h"
#include "Kivc/Check.h"
#include "Kivc/Diff.h"
#include "Kivc/Loader.h"

namespace Kivc {

namespace fs = std::filesystem;

namespace {

bool isDirectory(std::string const& path) {
   std::error_code error;
   return fs::is_directory(path, error);
}

/// The declarations in a directory and directly below, sorted.
std::vector<fs::path> declarationsIn(fs::path const& directory) {
   std::vector<fs::path> directories{directory};
   std::error_code error;
   for (auto const& entry : fs::directory_iterator(directory, error)) {
      if (entry.is_directory(error)) {
         directories.push_back(entry.path());
      }
   }
   std::vector<fs::path> files;
   for (auto const& each : directories) {
      for (auto const& entry : fs::directory_iterator(each, error)) {
         if (entry.path().extension() == ".kiv" && entry.is_regular_file(error)) {
            files.push_back(entry.path());
         }
      }
   }
   std::sort(files.begin(), files.end());
   return files;
}

/// One version: the modules of a file or a directory, checked.
class Version {
public:
   Version(std::string const& path, std::vector<std::string> const& roots)
         : loader_(searchPath(path, roots), diagnostics_) {
      if (isDirectory(path)) {
         for (auto const& file : declarationsIn(path)) {
            if (find(file.stem().string()) == nullptr) {
               loader_.load(file.string());
            }
         }
      } else {
         main_ = loader_.load(path);
      }
      for (auto const& module : loader_.modules()) {
         check(*module, diagnostics_);
      }
   }

   Diagnostics const& diagnostics() const { return diagnostics_; }
   /// The module of the file; null for a directory.
   Module const* main() const { return main_; }
   Module const* find(std::string const& name) const {
      for (auto const& module : loader_.modules()) {
         if (module->name.text == name) {
            return module.get();
         }
      }
      return nullptr;
   }
   void addNames(std::set<std::string>& names) const {
      for (auto const& module : loader_.modules()) {
         names.insert(module->name.text);
      }
   }

private:
   /// A version's own modules come first.
   static std::vector<std::string> searchPath(std::string const& path,
                                              std::vector<std::string> const& roots) {
      std::vector<std::string> all;
      if (isDirectory(path)) {
         all.push_back(path);
      } else {
         auto const directory = fs::path(path).parent_path();
         all.push_back((directory / "..").string());
      }
      all.insert(all.end(), roots.begin(), roots.end());
      return all;
   }

   Diagnostics diagnostics_;
   Loader loader_;
   Module const* main_ = nullptr;
};

/// Prints what has changed, and remembers what the exit status depends on.
class Report {
public:
   explicit Report(std::ostream& out) : out_(out) {}

   void module(Module const& before, Module const& after) {
      auto const all = differences(before, after);
      bool const newHash = before.hashValue() != after.hashValue();
      if (all.empty() && !newHash) {
         return;
      }
      out_ << "module " << after.name.text << ": "
           << (newHash ? "hash 0x" + before.hash.text + " is now 0x" + after.hash.text
                       : "hash 0x" + after.hash.text)
           << '\n';
      bool changed = false;
      for (auto const& one : all) {
         line(one.effect, one.what, one.text);
         changed = changed || one.effect != Effect::documentation;
      }
      if (changed && !newHash) {
         out_ << "   hash: must change, since more than the documentation has changed\n";
         sameHash_ = true;
      } else if (!changed && newHash) {
         out_ << "   hash: need not change, since nothing but the documentation has\n";
      }
   }
   void added(Module const& module) {
      out_ << "module " << module.name.text << ": hash 0x" << module.hash.text << '\n';
      line(Effect::compatible, "", "added");
   }
   void removed(Module const& module) {
      out_ << "module " << module.name.text << ": hash 0x" << module.hash.text << '\n';
      line(Effect::incompatible, "", "removed");
   }

   DiffExit status() const {
      if (incompatible_) {
         return DiffExit::incompatible;
      }
      return sameHash_ ? DiffExit::sameHash : DiffExit::compatible;
   }

private:
   void line(Effect effect, std::string const& what, std::string const& text) {
      out_ << "   " << name(effect) << ": " << (what.empty() ? "the module" : what)
           << (text.empty() ? "" : ": ") << Kiv::printable(text) << '\n';
      incompatible_ = incompatible_ || effect == Effect::incompatible;
   }

   std::ostream& out_;
   bool incompatible_ = false;
   bool sameHash_ = false;
};

}  // namespace

DiffExit diff(DiffOptions const& options, std::ostream& out, std::ostream& errors) {
   bool const directories = isDirectory(options.before);
   if (directories != isDirectory(options.after)) {
      errors << "kivc: compare two files or two directories; see 'kivc diff --help'\n";
      return DiffExit::usage;
   }
   Version const before(options.before, options.roots);
   Version const after(options.after, options.roots);
   if (!before.diagnostics().empty() || !after.diagnostics().empty()) {
      errors << before.diagnostics().render() << after.diagnostics().render();
      return DiffExit::unreadable;
   }
   if (!directories && before.main()->name.text != after.main()->name.text) {
      errors << "kivc: the files declare different modules, '" << before.main()->name.text
             << "' and '" << after.main()->name.text << "'; see 'kivc diff --help'\n";
      return DiffExit::usage;
   }
   std::set<std::string> names;
   before.addNames(names);
   after.addNames(names);
   if (directories && names.empty()) {
      errors << "kivc: there are no modules in " << Kiv::printable(options.before) << " or "
             << Kiv::printable(options.after) << '\n';
      return DiffExit::unreadable;
   }
   Report report(out);
   for (auto const& name : names) {
      auto const* was = before.find(name);
      auto const* is = after.find(name);
      if (was != nullptr && is != nullptr) {
         report.module(*was, *is);
      } else if (directories && was != nullptr) {
         report.removed(*was);
      } else if (directories) {
         report.added(*is);
      }
   }
   return report.status();
}

}  // namespace Kivc
