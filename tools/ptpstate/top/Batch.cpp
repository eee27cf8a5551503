#include "tools/ptpstate/top/Batch.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <ostream>

#include "Holt/State/Json.h"
#include "Holt/Times.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// Integers as they are; what a cell shows shortened, in full.
Json cellJson(TopCell const& cell) {
   if (!cell.exists) {
      return nullptr;
   }
   if (cell.isBool) {
      return cell.text == "true";
   }
   if (!cell.isNumber) {
      return Holt::jsonOf(cell.text);
   }
   S64 whole = 0;
   char const* const end = cell.text.data() + cell.text.size();
   auto const result = std::from_chars(cell.text.data(), end, whole);
   return result.ec == std::errc() && result.ptr == end ? Json(whole) : Json(cell.number);
}

Sarn::String csvField(Sarn::String const& text) {
   if (text.find_first_of(",\"\r\n") == Sarn::String::npos) {
      return text;
   }
   Sarn::String quoted = "\"";
   for (char const c : text) {
      quoted += c == '"' ? "\"\"" : Sarn::String(1, c);
   }
   return quoted + "\"";
}

}  // namespace

void writeJsonSample(std::ostream& out, TopTable const& table,
                     std::vector<std::pair<Sarn::String, TopCell>> const& head) {
   Json json{{"time", timeText(wallNow(), TimeForm::universal)}};
   json["head"] = Json::object();
   for (auto const& [name, cell] : head) {
      json["head"][name] = cellJson(cell);
   }
   json["rows"] = Json::array();
   for (TopRow const& row : table.rows()) {
      Json object{{"key", Holt::jsonOf(row.key)}};
      for (std::size_t i = 0; i != row.cells.size(); ++i) {
         object[table.columns()[i].name] = cellJson(row.cells[i]);
      }
      json["rows"].push_back(std::move(object));
   }
   out << jsonLine(json) << '\n';
}

void writeCsvSample(std::ostream& out, TopTable const& table, bool heading) {
   if (heading) {
      out << "time,key";
      for (TopColumn const& column : table.columns()) {
         out << ',' << csvField(column.name);
      }
      out << '\n';
   }
   Sarn::String const time = timeText(wallNow(), TimeForm::universal);
   for (TopRow const& row : table.rows()) {
      out << time << ',' << csvField(row.key);
      for (TopCell const& cell : row.cells) {
         out << ',' << (cell.exists ? csvField(cell.text) : "");
      }
      out << '\n';
   }
}

}  // namespace Ptpstate
