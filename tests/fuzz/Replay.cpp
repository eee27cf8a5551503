// Runs a fuzz target on the files and directories given on the command line. A build without
// libFuzzer uses this to run the seeds.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

void replay(std::filesystem::path const& path) {
   std::ifstream file(path, std::ios::binary);
   std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
   LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
   std::size_t inputs = 0;
   for (int i = 1; i < argc; ++i) {
      std::filesystem::path const path = argv[i];
      try {
         if (!std::filesystem::is_directory(path)) {
            replay(path);
            ++inputs;
            continue;
         }
         for (auto const& entry : std::filesystem::directory_iterator(path)) {
            replay(entry.path());
            ++inputs;
         }
      } catch (std::exception const& e) {
         std::fprintf(stderr, "%s: %s\n", path.c_str(), e.what());
         return 1;
      }
   }
   std::printf("%zu inputs\n", inputs);
   // Without its seeds, the test would check nothing.
   return inputs == 0 ? 1 : 0;
}
