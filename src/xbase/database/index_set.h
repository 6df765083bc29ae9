// XBaseIndexSet: the open indexes of a database with their parsed key expressions. One of them, or
// none, is primary: it gives the order of the records.
//
// Operations that fail leave the message in error(), but for those that an expression ended.

#ifndef VEXA_XBASE_DATABASE_INDEX_SET_H_
#define VEXA_XBASE_DATABASE_INDEX_SET_H_

#include <memory>
#include <vector>

#include "core/file.h"
#include "core/string.h"
#include "database.h"
#include "expr/expression.h"
#include "vexa.h"
#include "xbase/database/xbase_record.h"
#include "xbase/index/xbase_index.h"

namespace vexa {

class XBaseIndexSet {
 public:
  struct Member {
    explicit Member(FileManager& files) : index(files) {}
    XBaseIndex index;
    Expression key;
  };
  using Members = std::vector<std::unique_ptr<Member>>;

  // Both are borrowed and must outlive the set.
  XBaseIndexSet(Vexa& host, XBaseRecord& record) : host_(host), record_(record) {}
  XBaseIndexSet(const XBaseIndexSet&) = delete;
  XBaseIndexSet& operator=(const XBaseIndexSet&) = delete;

  // Opens the indexes of a comma-separated list in the place of the open ones; the first is
  // primary. On failure the open ones stay.
  [[nodiscard]] DataResult Open(const String& list);
  // Takes one more open index, in the place of one at the same path.
  void Add(std::unique_ptr<Member> member);
  // Makes the index primary that was opened as `name`; null when there is none.
  [[nodiscard]] XBaseIndex* SetPrimary(const String& name);
  void Close();

  [[nodiscard]] const Members& members() const { return members_; }
  [[nodiscard]] bool empty() const { return members_.empty(); }
  // Null for the order of record numbers.
  [[nodiscard]] Member* primary() const { return primary_; }
  // Changes whenever an index is opened, closed or made primary.
  [[nodiscard]] int version() const { return version_; }

  // The key that the record's values give in `member`.
  [[nodiscard]] DataResult Key(const Member& member, String& key);
  // The keys for all indexes, in the order of members().
  [[nodiscard]] DataResult Keys(std::vector<String>& keys);
  // The key of the record as it was read, without what was assigned since.
  [[nodiscard]] DataResult OriginalKey(const Member& member, String& key);
  // Takes the exclusive locks of all indexes, in the order that is the same everywhere.
  [[nodiscard]] DataResult Lock(std::vector<XBaseIndexLock>& locks);

  // Whether an operation failed because an index bears the mark of an unfinished change.
  [[nodiscard]] bool unfinished() const;
  void ForgetUnfinished();
  [[nodiscard]] const String& error() const { return error_; }

 private:
  [[nodiscard]] DataResult OpenMember(const String& name, std::unique_ptr<Member>& member);

  Vexa& host_;
  XBaseRecord& record_;
  Members members_;
  Member* primary_ = nullptr;  // one of members_
  int version_ = 0;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_INDEX_SET_H_
