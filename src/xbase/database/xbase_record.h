// XBaseRecord: the current record of a database as scripts see it, and the evaluation of
// expressions over it.
//
// It owns the variables of the record (field_variables.h). Assigning to one changes the field in
// memory and notes it as edited; reading another record drops what was edited. So an edit is what a
// page changed since the record was read, and it is all that an update may change in the table.
//
// Record numbers are from 1; 0 is no record, and then all fields are blank but for the edits.

#ifndef VEXA_XBASE_DATABASE_XBASE_RECORD_H_
#define VEXA_XBASE_DATABASE_XBASE_RECORD_H_

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "core/variables.h"
#include "database.h"
#include "expr/record_variables.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

class XBaseRecord final : public RecordVariables {
 public:
  struct Edit {
    XBaseField* field;
    String text;
  };
  // What the current record was, to come back to after looking at others.
  struct Position {
    int number;
    int generation;
    std::vector<Edit> edits;
    unsigned reads;  // how often a record had been read
  };

  // Both are borrowed and must outlive the record. `database` is the name used in messages.
  XBaseRecord(Vexa& host, XBaseTable& table, String database);

  // Makes the variables of the open table's fields. No record is current then.
  void Bind();
  // Forgets them, before the table is closed.
  void Unbind();

  // Makes record `number` current, without edits. 1, or 0 with the table's error set and the former
  // record still current.
  [[nodiscard]] int Read(int number);
  // Makes no record the current one.
  void Clear();
  // Takes note that the fields are now what the table holds as record `number`.
  void Stored(int number);
  [[nodiscard]] int current() const { return current_; }
  // Whether record, table and edits agree on what the current record is.
  [[nodiscard]] bool IsSound() const;
  // Whether the table was replaced since the current record was read: it has no number any more.
  [[nodiscard]] bool Lost() const { return current_ != 0 && generation_ != table_.generation(); }

  // Sets a field in memory, as the record would give it back.
  void Set(XBaseField& field, std::string_view text);
  [[nodiscard]] std::vector<Edit> Edits() const;
  void Apply(const std::vector<Edit>& edits);

  [[nodiscard]] Position Save() const { return {current_, generation_, Edits(), reads_}; }
  // Comes back; without a current record when the table was replaced meanwhile. 1, or 0 with the
  // table's error set; no record is current then.
  [[nodiscard]] int Restore(const Position& position);

  // As for all records; Failed, with the table's error set, when a memo text could not be read:
  // what comes out then is not the record's.
  [[nodiscard]] DataResult Evaluate(const Expression& expression, String& result);
  // The same for the key of the index that was opened as `index`, which may call less (key_rule.h).
  [[nodiscard]] DataResult EvaluateKey(const String& index, const Expression& expression,
                                       String& result);
  // Reads the key of the index that is opened as `index`. Failed, with `message` set, when it calls
  // what keys may not.
  [[nodiscard]] DataResult ParseKey(const String& index, std::string_view text,
                                    Expression& expression, String& message);
  [[nodiscard]] XBaseTable& table() const { return table_; }

 private:
  void Blank();

  XBaseTable& table_;
  std::vector<XBaseField*> edited_;
  int current_ = 0;
  int generation_ = 0;  // of the table, when the current record was read
  unsigned reads_ = 0;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_XBASE_RECORD_H_
