#include "tools/ptpsnmp/Objects.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>

namespace Ptpsnmp {
namespace {

std::vector<std::string> fields(std::string const& line) {
   std::vector<std::string> all(1);
   for (char const c : line) {
      if (c == '\t') {
         all.emplace_back();
      } else {
         all.back() += c;
      }
   }
   all.resize(std::max<std::size_t>(all.size(), 6));
   return all;
}

char const* nameOf(Syntax syntax) {
   switch (syntax) {
      case Syntax::integer32:
         return "Integer32";
      case Syntax::unsigned32:
         return "Unsigned32";
      case Syntax::gauge32:
         return "Gauge32";
      case Syntax::counter32:
         return "Counter32";
      case Syntax::counter64:
         return "Counter64";
      case Syntax::octetString:
         return "OctetString";
      case Syntax::objectId:
         return "ObjectIdentifier";
   }
   return "";
}

/// Types that the files of the MIB use and do not define.
std::map<std::string, std::string> standardTypes() {
   return {{"TruthValue", "Integer32"},
           {"AutonomousType", "ObjectIdentifier"},
           {"InterfaceIndexOrZero", "Integer32"},
           {"DisplayString", "OctetString"}};
}

TEST(Objects, AreThoseOfTheMib) {
   char const* const directory = std::getenv("PTPLIB_MIB_DIR");
   if (directory == nullptr) {
      GTEST_SKIP() << "PTPLIB_MIB_DIR does not name a directory with the MIB's objects";
   }
   std::map<std::string, std::string> types = standardTypes();
   std::string line;
   std::ifstream typeFile(std::string(directory) + "/types.tsv");
   while (std::getline(typeFile, line)) {
      auto const row = fields(line);
      types[row[0]] = row[1];
   }
   auto const base = [&types](std::string name) {
      while (types.contains(name)) {
         name = types[name];
      }
      return name;
   };
   std::vector<std::string> theirs;
   std::ifstream objectFile(std::string(directory) + "/ptpbase.tsv");
   while (std::getline(objectFile, line)) {
      auto const row = fields(line);
      if (row[2] == "Table" || row[2] == "identity" || row[2] == "kind") {
         continue;
      }
      std::string syntax = row[3];
      if (syntax.empty() && row[2] == "TableColumn") {
         // Defined in place, under a name made of the object's.
         std::string name = row[1];
         name[0] = static_cast<char>(name[0] - 'a' + 'A');
         syntax = "_" + name + "_Type";
      }
      theirs.push_back("." + row[0] + " " + row[1] + " " + base(syntax) + " " + row[4] + " " +
                       (row[2] == "TableRow" ? row[5] : ""));
   }
   std::vector<std::string> ours;
   for (Table const& table : tables()) {
      Oid oid = mibObjects;
      oid.add(table.group);
      oid.add(table.number);
      if (table.index != Index::none) {
         oid.add(1);
         std::string entry = table.name;
         entry.replace(entry.size() - 5, 5, "Entry");
         std::string index;
         for (Column const& column : table.columns) {
            if (column.isIndex()) {
               index += (index.empty() ? "" : ", ") + std::string(column.name);
            }
         }
         ours.push_back(oid.text() + " " + entry + "   " + index);
      }
      U32 number = 0;
      for (Column const& column : table.columns) {
         Oid its = oid;
         if (table.index != Index::none) {
            its.add(++number);
         }
         ours.push_back(its.text() + " " + column.name + " " + nameOf(column.syntax) + " " +
                        (column.isIndex() ? "not-accessible " : "read-only "));
      }
   }
   EXPECT_GT(theirs.size(), 100u);
   EXPECT_EQ(ours, theirs);
}

TEST(Objects, EachIsInTheDocumentWithItsSource) {
   std::ifstream file(PTPLIB_SOURCE_DIR "/docs/snmp.md");
   std::ostringstream read;
   read << file.rdbuf();
   std::string const text = read.str();
   std::string lines;
   for (Table const& table : tables()) {
      EXPECT_NE(text.find(std::string("`") + table.name + "`"),
                std::string::npos || table.index == Index::none)
            << table.name;
      for (Column const& column : table.columns) {
         if (!column.isIndex()) {
            std::string const line =
                  std::string("| `") + column.name + "` | " + column.source + " |\n";
            if (text.find(line) == std::string::npos) {
               lines += line;
            }
         }
      }
   }
   EXPECT_EQ(lines, "") << "docs/snmp.md lacks these lines";
}

TEST(Objects, ATimeIntervalHasSixteenFractionalBits) {
   EXPECT_EQ(timeInterval(0), "0000 0000 0000 0000");
   EXPECT_EQ(timeInterval(1), "0000 0000 0001 0000");
   EXPECT_EQ(timeInterval(-1), "FFFF FFFF FFFF 0000");
   EXPECT_EQ(timeInterval(0x7FFFFFFFFFFF), "7FFF FFFF FFFF 0000");
   EXPECT_EQ(timeInterval(-0x7FFFFFFFFFFF), "8000 0000 0001 0000");
}

TEST(Objects, ATimeIntervalBeyondTheRangeIsTheNearestInIt) {
   EXPECT_EQ(timeInterval(0x800000000000), "7FFF FFFF FFFF FFFF");
   EXPECT_EQ(timeInterval(std::numeric_limits<S64>::max()), "7FFF FFFF FFFF FFFF");
   EXPECT_EQ(timeInterval(-0x800000000000), "8000 0000 0000 0000");
   EXPECT_EQ(timeInterval(std::numeric_limits<S64>::min()), "8000 0000 0000 0000");
}

}  // namespace
}  // namespace Ptpsnmp
