// Opening, indexes, views and queries; see sql_database.h.

#include "sql/sql_database.h"

#include <algorithm>
#include <utility>

#include "core/encoding.h"
#include "core/number.h"
#include "core/text.h"
#include "core/variables.h"
#include "sql/index_expression.h"
#include "sql/query_text.h"
#include "sql/sql_variables.h"
#include "xbase/table/field_list.h"

namespace vexa {

namespace {

constexpr std::string_view kNoTable = "DATABASE names no table";

// The letter of a declared type, and of a column for who asks for the structure.
char LetterOf(XBaseFieldType type) {
  switch (type) {
    case XBaseFieldType::NUMBER:
      return 'N';
    case XBaseFieldType::DATE:
      return 'D';
    case XBaseFieldType::BOOL:
      return 'L';
    case XBaseFieldType::MEMO:
      return 'M';
    case XBaseFieldType::CHAR:
      break;
  }
  return 'C';
}

char LetterOf(const SqlColumn& column) {
  switch (column.kind) {
    case SqlKind::Integer:
    case SqlKind::Number:
      return 'N';
    case SqlKind::Date:
      return 'D';
    case SqlKind::Boolean:
      return 'L';
    case SqlKind::Time:
      return 'T';
    case SqlKind::Bytes:
      return 'B';
    default:
      return column.precision < 0 ? 'M' : 'C';
  }
}

String DoesNotExist(std::string_view table) {
  return String::Concat({"Table '", table, "' does not exist"});
}

}  // namespace

SqlDatabase::SqlDatabase(Vexa& host, const String& name, MakeDriver make_driver)
    : host_(host), name_(name), make_driver_(make_driver), type_(make_driver(host)->type()) {}

SqlDatabase::~SqlDatabase() { Close(); }

DataResult SqlDatabase::Fail(std::string_view message) {
  error_ = EntityEncoded(message);
  return DataResult::Failed;
}

// --- Opening and creating --------------------------------------------------------------------

SqlDatabase::Place SqlDatabase::TakeApart(const String& database) {
  const size_t hash = database.view().rfind('#');
  if (hash == std::string_view::npos) return {database, {}};
  return {database.view().substr(0, hash), database.view().substr(hash + 1)};
}

std::shared_ptr<SqlSession> SqlDatabase::SessionAt(const SqlPlace& place, String& message) {
  std::unique_ptr<SqlDriver> driver = make_driver_(host_);
  String identity;
  SqlFault fault;
  if (driver->Identify(place, identity, fault)) {
    for (const auto& open : host_.databases()) {
      if (!(open->type() == type_)) continue;
      auto* const other = static_cast<SqlDatabase*>(open.get());
      if (other->session_ != nullptr && other->session_->identity() == identity)
        return other->session_;
    }
    if (session_ != nullptr && session_->identity() == identity) return session_;
    if (driver->Connect(place, fault)) {
      // The file may be new: only now it has an identity of its own.
      (void)driver->Identify(place, identity, fault);
      return std::make_shared<SqlSession>(host_, std::move(driver), identity, name_);
    }
  }
  message = SqlSession::Worded(fault);
  if (fault.kind != SqlFault::Kind::NoLibrary) {
    message = String::Concat({"Error opening database '", EntityEncoded(name_), "': ", message});
  }
  return nullptr;
}

bool SqlDatabase::Connect(const SqlPlace& place) {
  place_ = place;
  session_ = SessionAt(place, error_);
  if (session_ != nullptr) session_->AddUser(this);
  return session_ != nullptr;
}

DataResult SqlDatabase::Open(const String& database, const String& user, const String& password) {
  Close();
  error_.clear();
  const Place place = TakeApart(database);
  if (!Connect({place.place, user, password, false})) return DataResult::Failed;
  return place.table.empty() ? DataResult::Done : OpenTable(place.table);
}

DataResult SqlDatabase::Create(const String& database, const String& fields) {
  Close();
  error_.clear();
  const Place place = TakeApart(database);
  if (place.table.empty()) return Fail(kNoTable);
  std::vector<XBaseField::Declaration> declared;
  String message;
  if (!ParseFieldList(fields, declared, message)) return Fail(message);
  std::vector<SqlField> columns;
  for (const XBaseField::Declaration& field : declared) {
    columns.push_back({field.name.lower(), LetterOf(field.type), field.length, field.decimalcount});
  }
  if (!ConnectForNew(place)) return DataResult::Failed;
  return MakeTable(place.table, columns);
}

bool SqlDatabase::ConnectForNew(const Place& place) {
  if (!Connect({place.place, place_.user, place_.password, true})) return false;
  SqlTable table;
  bool found;
  SqlFault fault;
  if (!session_->MayRun(error_)) return false;
  if (!session_->driver().DescribeTable(place.table, table, found, fault)) {
    return session_->Failed(fault, error_);
  }
  if (found) (void)Fail(String::Concat({"Table '", place.table, "' already exists"}));
  return !found;
}

DataResult SqlDatabase::MakeTable(const String& table, const std::vector<SqlField>& columns) {
  const auto statements = session_->driver().CreateTable(table, columns);
  if (!session_->ChangeTogether(statements, error_)) return DataResult::Failed;
  return OpenTable(table);
}

DataResult SqlDatabase::OpenTable(const String& table) {
  bool found;
  SqlFault fault;
  if (!session_->MayRun(error_)) return DataResult::Failed;
  if (!session_->driver().DescribeTable(table, table_, found, fault)) {
    (void)session_->Failed(fault, error_);
    return DataResult::Failed;
  }
  if (!found) return Fail(DoesNotExist(table));
  auto view = std::make_unique<SqlView>(*this, name_, table_);
  table_view_ = view.get();
  if (!table_.key.empty()) return OpenRows(std::move(view));
  // Without a key there is no way from one row to the next but a result.
  int id;
  int64_t count;
  SqlTable ignored;
  const SqlStatement all = {String::Concat({"SELECT * FROM ", table_.text}), {}};
  if (!session_->Keep(all, id, ignored.columns, count, error_)) return DataResult::Failed;
  view->Keep(id, count, false);
  return OpenRows(std::move(view));
}

DataResult SqlDatabase::OpenRows(std::unique_ptr<SqlView> view) {
  SqlView& opened = *view;
  AddView(std::move(view));
  const DataResult result = opened.Go(kFirstRow);
  if (result == DataResult::Done || result == DataResult::EndOfData) return DataResult::Done;
  error_ = opened.error();
  RemoveView(&opened);
  return result;
}

void SqlDatabase::Close() {
  primary_view_ = nullptr;
  table_view_ = nullptr;
  view_pointers_.clear();
  views_.clear();
  indexes_.clear();
  primary_index_ = 0;
  table_ = {};
  if (session_ != nullptr) session_->RemoveUser(this);
  session_.reset();
}

bool SqlDatabase::RevealStructure(const SqlTable& table, const String& database, String& message) {
  Place place = TakeApart(database);
  // A name that begins with # means a table beside this one.
  if (place.place.empty()) place.place = place_.place;
  SqlDatabase shown(host_, name_, make_driver_);
  shown.place_ = place_;
  if (place.table.empty()) (void)shown.Fail(kNoTable);
  bool alone;
  if (place.table.empty() || !shown.ConnectForNew(place) ||
      !shown.session_->BeginTogether(alone, shown.error_)) {
    message = shown.error_;
    return false;
  }
  bool done = shown.MakeTable(place.table, {{"field_name", 'C', 64, 0},
                                            {"field_type", 'C', 1, 0},
                                            {"field_len", 'N', 10, 0},
                                            {"field_dec", 'N', 3, 0}}) == DataResult::Done;
  for (const SqlColumn& column : table.columns) {
    done = done && (column.hidden || shown.AddColumnRow(column));
  }
  const bool ended = shown.session_->EndTogether(alone, done, shown.error_);
  message = shown.error_;
  return ended;
}

bool SqlDatabase::AddColumnRow(const SqlColumn& column) {
  String letter;
  letter.cat(LetterOf(column));
  const String values[] = {column.name, letter, PrintInteger(std::max(column.precision, 0)),
                           PrintInteger(std::max(column.decimals, 0))};
  const std::string_view names[] = {"field_name", "field_type", "field_len", "field_dec"};
  for (size_t i = 0; i < std::size(names); ++i) {
    (void)table_view_->FindVariable(Symbol(names[i]))->SetValue(values[i]);
  }
  const DataResult added = table_view_->Add();
  if (added != DataResult::Done) error_ = table_view_->error();
  return added == DataResult::Done;
}

// --- Indexes ---------------------------------------------------------------------------------

bool SqlDatabase::HasTable() {
  if (table_view_ == nullptr) (void)Fail(kNoTable);
  return table_view_ != nullptr;
}

void SqlDatabase::ApplyOrder() {
  if (table_view_ == nullptr || table_.key.empty()) return;
  table_view_->OrderBy(indexes_.empty() ? nullptr : &indexes_[primary_index_]);
}

DataResult SqlDatabase::GoFirst() {
  const DataResult result = table_view_->Go(kFirstRow);
  if (result == DataResult::Done || result == DataResult::EndOfData) return DataResult::Done;
  error_ = table_view_->error();
  return result;
}

DataResult SqlDatabase::DescribeIndexes(const String& list, std::vector<SqlIndex>& indexes) {
  for (PieceReader names(list, ","); names.Next();) {
    const String name = Stripped(names.piece());
    SqlIndex index;
    bool found;
    SqlFault fault;
    if (!session_->MayRun(error_)) return DataResult::Failed;
    if (!session_->driver().DescribeIndex(table_, name, index, found, fault)) {
      (void)session_->Failed(fault, error_);
      return DataResult::Failed;
    }
    if (!found) {
      return Fail(String::Concat({"Table '", table_.name, "' has no index '", name, "'"}));
    }
    if (!index.gives_order || index.terms.empty()) {
      return Fail(String::Concat({"Index '", name, "' gives no order"}));
    }
    indexes.push_back(std::move(index));
  }
  return DataResult::Done;
}

DataResult SqlDatabase::OpenIndexes(const String& indexes) {
  error_.clear();
  if (!MayBegin(error_) || !HasTable()) return DataResult::Failed;
  std::vector<SqlIndex> opened;
  if (DescribeIndexes(indexes, opened) != DataResult::Done) return DataResult::Failed;
  indexes_ = std::move(opened);
  primary_index_ = 0;
  ApplyOrder();
  return GoFirst();
}

DataResult SqlDatabase::SetPrimaryIndex(const String& index) {
  error_.clear();
  if (!MayBegin(error_)) return DataResult::Failed;
  for (size_t i = 0; i < indexes_.size(); ++i) {
    if (!(indexes_[i].name == index)) continue;
    primary_index_ = i;
    ApplyOrder();
    return DataResult::Done;
  }
  return Fail(String::Concat({"Index '", index, "' is not open"}));
}

DataResult SqlDatabase::CreateIndex(const String& indexfile, const String& expression,
                                    const String& flags) {
  error_.clear();
  if (!MayBegin(error_) || !HasTable()) return DataResult::Failed;
  SqlIndexFlags read;
  String message;
  if (!ReadIndexFlags(flags, read, message)) return Fail(message);
  SqlNewIndex index;
  index.table = table_;
  index.name = indexfile;
  index.unique = read.unique;
  if (!ReadIndexExpression(expression, table_, index.terms)) {
    return Fail(String::Concat(
        {"Index expressions of databases of type '", type_, "' are columns joined by $"}));
  }
  for (SqlTerm& term : index.terms) {
    term.descending = read.descending;
    term.nulls_first = !read.descending;
  }
  if (!session_->MayRun(error_)) return DataResult::Failed;
  const std::vector<String> statements = session_->driver().CreateIndex(index);
  if (!session_->ChangeTogether(statements, error_)) return DataResult::Failed;
  std::vector<SqlIndex> made;
  if (DescribeIndexes(indexfile, made) != DataResult::Done) return DataResult::Failed;
  const auto open = std::find_if(indexes_.begin(), indexes_.end(), [&](const SqlIndex& known) {
    return known.name == made.front().name;
  });
  if (open == indexes_.end()) {
    indexes_.push_back(std::move(made.front()));
  } else {
    *open = std::move(made.front());
  }
  ApplyOrder();
  return DataResult::Done;
}

// --- Views -----------------------------------------------------------------------------------

void SqlDatabase::ListViews() {
  view_pointers_.clear();
  if (primary_view_ != nullptr) view_pointers_.push_back(primary_view_);
  for (const auto& view : views_) {
    if (view.get() != primary_view_) view_pointers_.push_back(view.get());
  }
}

void SqlDatabase::AddView(std::unique_ptr<SqlView> view) {
  views_.push_back(std::move(view));
  if (primary_view_ == nullptr) primary_view_ = views_.back().get();
  ListViews();
}

DatabaseView* SqlDatabase::FindView(std::string_view name) {
  for (const auto& view : views_) {
    if (EqualsIgnoreCase(view->name(), name)) return view.get();
  }
  return nullptr;
}

void SqlDatabase::SetPrimaryView(DatabaseView* view) {
  primary_view_ = view;
  ListViews();
}

void SqlDatabase::RemoveView(DatabaseView* view) {
  if (view == nullptr) return;
  if (view == primary_view_) primary_view_ = nullptr;
  if (view == table_view_) table_view_ = nullptr;
  const auto is_it = [view](const auto& open) { return open.get() == view; };
  const auto found = std::find_if(views_.begin(), views_.end(), is_it);
  if (found == views_.end()) return;
  const std::unique_ptr<SqlView> removed = std::move(*found);
  views_.erase(found);
  ListViews();
}

void SqlDatabase::RolledBack(uint64_t transaction) {
  for (size_t i = views_.size(); i-- > 0;) {
    if (transaction != 0 && views_[i]->kept_in() == transaction) RemoveView(views_[i].get());
  }
}

bool SqlDatabase::InUse() const {
  return std::any_of(views_.begin(), views_.end(), [](const auto& view) { return view->busy(); });
}

bool SqlDatabase::MayBegin(String& message) {
  for (const auto& view : views_) {
    if (!view->busy()) continue;
    message = view->BusyMessage();
    return false;
  }
  return true;
}

DataResult SqlDatabase::OpenView(const String& name, const String& query) {
  error_.clear();
  if (query.empty()) return Fail("VxOPENVIEW requires the QUERY attribute to be specified");
  SqlStatement statement;
  if (!MayBegin(error_) || !ReadQuery(query, statement)) return DataResult::Failed;
  SqlTable table;
  table.name = name;
  int id;
  int64_t count;
  if (!session_->Keep(statement, id, table.columns, count, error_)) {
    if (!error_.empty()) return DataResult::Failed;
    return Fail(String::Concat({"View '", name, "' must read only"}));
  }
  auto view = std::make_unique<SqlView>(*this, name, std::move(table));
  view->Keep(id, count, true);
  return OpenRows(std::move(view));
}

// --- Queries ---------------------------------------------------------------------------------

bool SqlDatabase::ReadQuery(const String& query, SqlStatement& statement) {
  QueryText read;
  String message;
  if (!ReadQueryText(query, session_->driver(), read, message)) {
    (void)Fail(message);
    return false;
  }
  statement.text = std::move(read.text);
  for (const String& name : read.names) {
    Variable* const variable = host_.vars().Find(name);
    if (variable != nullptr && variable->of_sql_row()) {
      statement.parameters.push_back(static_cast<SqlVariable*>(variable)->AsParameter());
    } else {
      statement.parameters.push_back(
          SqlValue::Text(variable == nullptr ? String() : variable->value()));
    }
  }
  return true;
}

DataResult SqlDatabase::RunQuery(const String& query, QueryOutcome& outcome) {
  error_.clear();
  SqlStatement statement;
  if (!MayBegin(error_) || !ReadQuery(query, statement)) return DataResult::Failed;
  SqlResult result;
  if (!session_->Query(statement, {1}, result, error_)) return DataResult::Failed;
  outcome.rows = result.yields ? result.yielded : result.changed;
  if (result.rows.empty() || result.rows[0].empty()) return DataResult::Done;
  // The text that a variable of such a column would have.
  const std::vector<SqlColumn> columns(1);
  SqlRecord record(host_, columns, {});
  record.Come({{std::move(result.rows[0][0])}, 0, 0, 0});
  outcome.value = record.Text(0);
  return DataResult::Done;
}

DataResult SqlDatabase::RunAlone(const String& statement) {
  error_.clear();
  if (!MayBegin(error_)) return DataResult::Failed;
  SqlResult ignored;
  return session_->Change({statement, {}}, {}, ignored, error_) ? DataResult::Done
                                                                : DataResult::Failed;
}

DataResult SqlDatabase::Pack() {
  const DataResult packed = RunAlone(session_->driver().PackText(table_));
  return packed == DataResult::Done && table_view_ != nullptr ? GoFirst() : packed;
}

DataResult SqlDatabase::Reindex() {
  error_.clear();
  if (!HasTable()) return DataResult::Failed;
  return RunAlone(session_->driver().ReindexText(table_));
}

}  // namespace vexa
