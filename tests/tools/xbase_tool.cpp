// xbase_tool: writes, prints, indexes and checks tables from a script, for tests that compare with
// other programs. Values are hexadecimal, so that any bytes go through a pipe.
//
//   xbase_tool create TABLE <INPUT      makes a table
//   xbase_tool append TABLE <INPUT      adds the records of INPUT, which has no field lines
//   xbase_tool dump TABLE               prints what create reads
//   xbase_tool index TABLE INDEX FIELD FLAGS
//   xbase_tool find INDEX KEY           prints the record numbers with that key, then of all behind
//   xbase_tool check TABLE [INDEX...]
//
// INPUT is "field NAME LETTER LENGTH DECIMALS" lines, then one line a record: "live" or "deleted",
// and for each field its value, or "-" for an empty one.

#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "fake_host.h"
#include "files/unix_file_manager.h"
#include "xbase/check/table_check.h"
#include "xbase/index/index_builder.h"
#include "xbase/index/xbase_index.h"
#include "xbase/table/xbase_table.h"

namespace vexa {
namespace {

std::string FromHex(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

std::string ToHex(std::string_view bytes) {
  if (bytes.empty()) return "-";
  std::string hex;
  char digits[3];
  for (char c : bytes) {
    std::snprintf(digits, sizeof digits, "%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    hex += digits;
  }
  return hex;
}

int Fail(const String& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  return 1;
}

class Tool {
 public:
  int Create(const String& path) {
    std::vector<XBaseField::Declaration> fields;
    std::string line;
    std::vector<std::string> records;
    while (std::getline(std::cin, line)) {
      std::istringstream words(line);
      std::string kind, name;
      char letter = 'C';
      XBaseField::Declaration field;
      words >> kind;
      if (kind == "field" && words >> name >> letter >> field.length >> field.decimalcount &&
          FieldTypeOfLetter(letter, field.type)) {
        field.name = name;
        fields.push_back(field);
      } else {
        records.push_back(line);
      }
    }
    if (table_.Create({path, path, "", ""}, fields) == 0) return Fail(table_.error());
    return Add(records);
  }
  int Append(const String& path) {
    if (table_.Open(path, path, OpenRead | OpenWrite) == 0) return Fail(table_.error());
    std::vector<std::string> records;
    for (std::string line; std::getline(std::cin, line);) records.push_back(line);
    return Add(records);
  }
  int Dump(const String& path) {
    if (table_.Open(path, path, OpenRead) == 0) return Fail(table_.error());
    for (const auto& field : table_.fields()) {
      const FieldDescriptor descriptor = field->Descriptor();
      std::printf("field %s %c %d %d\n", descriptor.name.c_str(), descriptor.letter,
                  descriptor.length, descriptor.decimalcount);
    }
    for (int n = 1; n <= table_.numrecords(); ++n) {
      if (table_.Goto(n) == 0) return Fail(table_.error());
      std::fputs(table_.deleted() != 0 ? "deleted" : "live", stdout);
      for (const auto& field : table_.fields()) std::printf(" %s", ToHex(field->data()).c_str());
      std::puts("");
    }
    return 0;
  }
  int Index(const String& path, const String& index, const String& field_name, uint32_t flags) {
    if (table_.Open(path, path, OpenRead) == 0) return Fail(table_.error());
    XBaseField* field = table_.FindField(field_name);
    if (field == nullptr) return Fail("There is no such field");
    XBaseIndexBuilder builder(files_, {field_name, flags, {}});
    for (int n = 1; n <= table_.numrecords(); ++n) {
      if (table_.Goto(n) == 0) return Fail(table_.error());
      builder.Add(static_cast<uint32_t>(n), field->data());
    }
    if (!builder.Write(index, index) || !builder.Install()) return Fail(builder.error());
    return 0;
  }
  int Find(const String& path, const String& key) {
    XBaseIndex index(files_);
    uint32_t record;
    if (index.Open(path, path, path) == 0) return Fail(index.error());
    int good = index.Find(key, 1, record);
    for (; good != 0 && record != 0; good = index.Next(record)) std::printf("%u\n", record);
    return good != 0 ? 0 : Fail(index.error());
  }
  int Check(const String& path, const std::vector<String>& indexes) {
    StringOutput out;
    const int result = CheckTable(files_, path, indexes, out);
    out.Flush();
    std::fputs(out.data().c_str(), stdout);
    return result;
  }

 private:
  int Add(const std::vector<std::string>& records) {
    for (const std::string& record : records) {
      std::istringstream words(record);
      std::string mark, value;
      words >> mark;
      for (const auto& field : table_.fields()) {
        words >> value;
        field->Set(String(value == "-" ? "" : FromHex(value)));
      }
      if (table_.Append() == 0) return Fail(table_.error());
      if (mark == "deleted" && table_.UpdateDeleted(1) == 0) return Fail(table_.error());
    }
    return 0;
  }

  FakeHost host_;
  UNIXFileManager files_{host_};
  XBaseTable table_{files_};
};

int Run(const std::vector<std::string>& words) {
  Tool tool;
  const std::string command = words.empty() ? "" : words[0];
  const auto word = [&](size_t i) { return String(words[i]); };
  if (command == "create" && words.size() == 2) return tool.Create(word(1));
  if (command == "append" && words.size() == 2) return tool.Append(word(1));
  if (command == "dump" && words.size() == 2) return tool.Dump(word(1));
  if (command == "find" && words.size() == 3) return tool.Find(word(1), word(2));
  if (command == "index" && words.size() == 5) {
    return tool.Index(word(1), word(2), word(3), static_cast<uint32_t>(std::stoul(words[4])));
  }
  if (command == "check" && words.size() >= 2) {
    return tool.Check(word(1), std::vector<String>(words.begin() + 2, words.end()));
  }
  return Fail("xbase_tool create|append|dump|index|find|check ...; see the source");
}

}  // namespace
}  // namespace vexa

int main(int argc, char** argv) {
  return vexa::Run(std::vector<std::string>(argv + 1, argv + argc));
}
