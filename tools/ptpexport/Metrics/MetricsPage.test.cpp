// The table of docs/metrics.md is what the code says.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tools/ptpexport/Metrics/Scrape.h"

namespace Ptpexport::MetricsTest {
namespace {

char const* kindOf(MetricFamily const& family) {
   switch (family.kind) {
      case MetricKind::counter:
         return "counter";
      case MetricKind::info:
         return "info";
      case MetricKind::states:
         return "states";
      case MetricKind::flags:
         return "flags";
      default:
         return "gauge";
   }
}

/// The members that a family shows: "`portState`".
std::string membersOf(MetricFamily const& family) {
   if (family.kind != MetricKind::info) {
      return *family.member == '\0' ? std::string() : '`' + std::string(family.member) + '`';
   }
   std::string all;
   for (MetricLabel const& label : family.labels) {
      if (*label.member != '\0') {
         all += (all.empty() ? "`" : ", `") + std::string(label.member) + '`';
      }
   }
   return all;
}

std::string labelsOf(MetricFamily const& family, bool ofPort) {
   std::string all = ofPort ? "`interface`, `vlan`" : "";
   for (MetricLabel const& label : family.labels) {
      all += (all.empty() ? "`" : ", `") + std::string(label.name) + '`';
   }
   return all;
}

void appendRow(std::string& out, MetricFamily const& family, bool ofPort) {
   out += "| `" + sampleName(family) + "` | " + kindOf(family) + " | " + labelsOf(family, ofPort) +
          " | " + membersOf(family) + " | " + family.help + " |\n";
}

/// Everything between the markers.
std::string generated() {
   std::string const head = "| metric | kind | labels | attribute | |\n|---|---|---|---|---|\n";
   std::string out = "### The program\n\n" + head;
   for (MetricFamily const& family : healthFamilies()) {
      appendRow(out, family, false);
   }
   std::string type;
   for (BoundFamily const& family : boundFamilies()) {
      if (family.family->type != type) {
         type = family.family->type;
         out += "\n### `" + type + "`\n\n" + head;
      }
      appendRow(out, *family.family, family.place->toCollection != 0);
   }
   out += "\n## What is left out\n\n| type | attribute | because |\n|---|---|---|\n";
   for (LeftOut const& one : leftOutOfMetrics()) {
      out += "| `" + std::string(one.type) + "` | `" + one.member + "` | " + one.reason + " |\n";
   }
   return out;
}

TEST(MetricsPage, IsWhatTheTableSays) {
   std::string const path = PTPLIB_SOURCE_DIR "/docs/metrics.md";
   std::string const begin = "<!-- generated from the table of metrics -->\n";
   std::string const end = "<!-- end of the generated part -->\n";
   std::stringstream file;
   file << std::ifstream(path).rdbuf();
   std::string page = file.str();
   std::size_t const from = page.find(begin);
   std::size_t const to = page.find(end);
   ASSERT_NE(from, page.npos);
   ASSERT_NE(to, page.npos);
   std::size_t const inside = from + begin.size();
   if (std::getenv("PTPEXPORT_UPDATE") != nullptr) {
      page.replace(inside, to - inside, generated());
      std::ofstream(path) << page;
   } else {
      EXPECT_EQ(page.substr(inside, to - inside), generated())
            << "PTPEXPORT_UPDATE=1 ptpexport_test --gtest_filter='MetricsPage.*' rewrites it";
   }
}

}  // namespace
}  // namespace Ptpexport::MetricsTest
