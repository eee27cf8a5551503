// What loading the libraries costs: time, relocations, initialisers, and the size of text and data.
// Opens them itself, in processes that have not loaded them before.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Files = std::vector<std::string>;

/// Each library comes after those that it needs.
Files const libraries = {PTPLIB_LIB_DIR "/libKiv.so", PTPLIB_LIB_DIR "/libPtpPlatform.so",
                         PTPLIB_LIB_DIR "/libPtpLib.so"};
/// The baseline: as many system libraries that are empty nowadays.
Files const emptyLibraries = {"libutil.so.1", "libdl.so.2", "librt.so.1"};

// ---- Time ----

/// Opens the libraries one after another and writes how long each took, in seconds.
[[noreturn]] void openAll(Files const& files, int out) {
   std::vector<double> times;
   for (std::string const& file : files) {
      auto const begin = std::chrono::steady_clock::now();
      if (dlopen(file.c_str(), RTLD_NOW) == nullptr) {
         std::fprintf(stderr, "%s\n", dlerror());
         _exit(1);
      }
      times.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
   }
   auto const size = times.size() * sizeof times[0];
   _exit(write(out, times.data(), size) == static_cast<ssize_t>(size) ? 0 : 1);
}

/// The times of one process that has none of the libraries.
std::vector<double> loadTimes(Files const& files) {
   int ends[2];
   if (pipe(ends) != 0) {
      throw std::runtime_error("a pipe cannot be created");
   }
   pid_t const child = fork();
   if (child == 0) {
      openAll(files, ends[1]);
   }
   close(ends[1]);
   std::vector<double> times(files.size());
   auto const size = static_cast<ssize_t>(times.size() * sizeof times[0]);
   ssize_t const got = read(ends[0], times.data(), static_cast<std::size_t>(size));
   close(ends[0]);
   int status = 0;
   if (child < 0 || waitpid(child, &status, 0) != child || status != 0 || got != size) {
      throw std::runtime_error("the libraries cannot be opened");
   }
   return times;
}

/// Medians over many processes, in seconds.
struct Medians {
   std::vector<double> each;
   /// Of all libraries together.
   double sum = 0;
};

class Samples {
public:
   void add(std::vector<double> const& times) {
      all_.resize(times.size());
      for (std::size_t i = 0; i != times.size(); ++i) {
         all_[i].push_back(times[i]);
      }
      sums_.push_back(std::accumulate(times.begin(), times.end(), 0.0));
   }
   Medians medians() {
      Medians medians;
      for (std::vector<double>& times : all_) {
         medians.each.push_back(median(times));
      }
      medians.sum = median(sums_);
      return medians;
   }

private:
   static double median(std::vector<double>& v) {
      auto const middle = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
      std::nth_element(v.begin(), middle, v.end());
      return *middle;
   }

   std::vector<std::vector<double>> all_;
   std::vector<double> sums_;
};

// ---- The content of the file ----

struct Content {
   std::size_t relative = 0;
   /// Relocations that look up a name.
   std::size_t byName = 0;
   std::size_t initialisers = 0;
   /// Bytes that are mapped and never written, and bytes that each process has for itself.
   std::size_t text = 0;
   std::size_t data = 0;
};

/// The path at which the loader finds a system library. A child process asks, since this one must
/// not open it.
std::string foundPath(std::string const& library) {
   int ends[2];
   if (pipe(ends) != 0) {
      throw std::runtime_error("a pipe cannot be created");
   }
   pid_t const child = fork();
   if (child == 0) {
      void* const handle = dlopen(library.c_str(), RTLD_NOW);
      link_map* map = nullptr;
      if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) {
         _exit(1);
      }
      auto const size = static_cast<ssize_t>(std::strlen(map->l_name));
      _exit(write(ends[1], map->l_name, static_cast<std::size_t>(size)) == size ? 0 : 1);
   }
   close(ends[1]);
   char path[4096];
   ssize_t const got = read(ends[0], path, sizeof path);
   close(ends[0]);
   int status = 0;
   if (child < 0 || waitpid(child, &status, 0) != child || status != 0 || got <= 0) {
      throw std::runtime_error(library + " cannot be opened");
   }
   return {path, static_cast<std::size_t>(got)};
}

class ElfFile {
public:
   explicit ElfFile(std::string const& path) {
      std::ifstream file(path, std::ios::binary);
      bytes_.assign(std::istreambuf_iterator<char>(file), {});
      if (bytes_.size() < sizeof(Elf64_Ehdr) || std::memcmp(bytes_.data(), ELFMAG, SELFMAG) != 0) {
         throw std::runtime_error(path + ": not an ELF file");
      }
   }

   Content content() const {
      Content all;
      auto const header = at<Elf64_Ehdr>(0);
      for (std::size_t i = 0; i != header.e_shnum; ++i) {
         add(all, at<Elf64_Shdr>(header.e_shoff + i * header.e_shentsize));
      }
      return all;
   }

private:
   /// `SHT_RELR`, which not every <elf.h> knows: an address, then words whose bits from 1 on each
   /// stand for one of the 63 next words of memory.
   static constexpr Elf64_Word packed = 19;

   void addPacked(Content& all, Elf64_Shdr const& section) const {
      for (std::size_t at = 0; at != section.sh_size; at += sizeof(Elf64_Xword)) {
         auto const entry = this->at<Elf64_Xword>(section.sh_offset + at);
         bool const isAddress = (entry & 1) == 0;
         all.relative += isAddress ? 1 : static_cast<std::size_t>(std::popcount(entry) - 1);
      }
   }

   template <class T>
   T at(std::size_t offset) const {
      T v;
      if (offset > bytes_.size() || bytes_.size() - offset < sizeof v) {
         throw std::runtime_error("truncated ELF file");
      }
      std::memcpy(&v, bytes_.data() + offset, sizeof v);
      return v;
   }

   void add(Content& all, Elf64_Shdr const& section) const {
      if ((section.sh_flags & SHF_ALLOC) == 0) {
         return;
      }
      ((section.sh_flags & SHF_WRITE) == 0 ? all.text : all.data) += section.sh_size;
      if (section.sh_type == SHT_INIT_ARRAY) {
         all.initialisers += section.sh_size / sizeof(Elf64_Addr);
      } else if (section.sh_type == packed) {
         addPacked(all, section);
      } else if (section.sh_type == SHT_RELA) {
         for (std::size_t at = 0; at != section.sh_size; at += sizeof(Elf64_Rela)) {
            auto const entry = this->at<Elf64_Rela>(section.sh_offset + at);
            bool const isRelative = ELF64_R_TYPE(entry.r_info) == R_X86_64_RELATIVE;
            ++(isRelative ? all.relative : all.byName);
         }
      }
   }

   std::vector<char> bytes_;
};

}  // namespace

int main() {
   try {
      Files empty;
      for (std::string const& file : emptyLibraries) {
         // By its path, like the others, so that the loader need not search for it. In a process of
         // its own, which does not count as having opened it.
         empty.push_back(foundPath(file));
      }
      // In turn, and each in a process of its own: the first library that a process opens costs
      // more than the next ones.
      Samples bare;
      Samples ours;
      for (int round = 0; round != 101; ++round) {
         bare.add(loadTimes(empty));
         ours.add(loadTimes(libraries));
      }
      std::printf("   %-20s %10s %12s %8s %13s %10s %10s\n", "", "load", "relocations", "by name",
                  "initialisers", "text", "data");
      auto const print = [](std::string const& name, double seconds, Content const& content) {
         std::printf("   %-20s %7.0f us %12zu %8zu %13zu %10zu %10zu\n", name.c_str(),
                     seconds * 1e6, content.relative + content.byName, content.byName,
                     content.initialisers, content.text, content.data);
      };
      auto const printAll = [&](Files const& files, Medians const& medians, char const* together) {
         Content sum;
         for (std::size_t i = 0; i != files.size(); ++i) {
            Content const content = ElfFile(files[i]).content();
            print(files[i].substr(files[i].rfind('/') + 1), medians.each[i], content);
            sum.relative += content.relative;
            sum.byName += content.byName;
            sum.initialisers += content.initialisers;
            sum.text += content.text;
            sum.data += content.data;
         }
         print(together, medians.sum, sum);
      };
      printAll(empty, bare.medians(), "three empty ones");
      printAll(libraries, ours.medians(), "all three");
   } catch (std::exception const& error) {
      std::fprintf(stderr, "bench_load: %s\n", error.what());
      return 1;
   }
   return 0;
}
