#include "Csv.h"

#include <algorithm>
#include <functional>
#include <ostream>

namespace VelaTool {

namespace {

std::string escaped(const std::string& text) {
  if (text.find_first_of(",\"\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

void visitFields(const std::string& name, const Json& value,
                 const std::function<void(const std::string&, const std::string&)>& visit) {
  if (value.is_object()) {
    for (const auto& [inner, field] : value.items()) {
      std::string whole = name;
      if (!name.empty()) whole += '.';
      visitFields(whole += inner, field, visit);
    }
  } else {
    visit(name, value.is_string() ? value.get<std::string>() : value.is_null() ? "" : value.dump());
  }
}

}  // namespace

void CsvTable::lineIs(const Json& line) {
  auto& fields = lines_.emplace_back();
  visitFields("", line, [&](const std::string& name, const std::string& value) {
    fields[name] = value;
    if (std::find(columns_.begin(), columns_.end(), name) == columns_.end()) {
      columns_.push_back(name);
    }
  });
}

void CsvTable::write(std::ostream& out) const {
  const char* separator = "";
  for (const std::string& column : columns_) {
    out << separator << escaped(column);
    separator = ",";
  }
  out << '\n';
  for (const auto& line : lines_) {
    separator = "";
    for (const std::string& column : columns_) {
      const auto field = line.find(column);
      out << separator << (field == line.end() ? "" : escaped(field->second));
      separator = ",";
    }
    out << '\n';
  }
}

}  // namespace VelaTool
