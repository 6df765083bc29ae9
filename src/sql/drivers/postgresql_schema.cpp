// What tables and indexes of a server hold, from its catalogues. Names are values here as well:
// pg_catalog is named everywhere, so that no table of the search path takes the place of one of the
// server's.

#include <algorithm>
#include <utility>

#include "core/number.h"
#include "sql/drivers/postgresql_driver.h"
#include "sql/drivers/postgresql_values.h"
#include "sql/drivers/sql_text.h"

namespace vexa {

namespace {

// The table or view that one of two names means (the server takes one that is too long for its
// beginning), quoted, and whether rules or triggers change its
// rows after a statement has told what they are.
constexpr std::string_view kTable = R"(
SELECT pg_catalog.format('%I.%I', n.nspname, c.relname), c.relkind IN ('r','p','f') AND (
  c.relhasrules OR EXISTS (SELECT FROM pg_catalog.pg_trigger g
    WHERE g.tgrelid = c.oid AND NOT g.tgisinternal AND g.tgtype::int & 66 = 0))
FROM pg_catalog.pg_class c JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace
WHERE c.oid = COALESCE(pg_catalog.to_regclass($1), pg_catalog.to_regclass($2))
  AND c.relname::text IN ($3, $4)
  AND c.relkind IN ('r','p','f','v','m'))";

// Its columns: name; the type as statements write it, with a collation of the column's own; number
// and modifier of the type behind domains; whether it is one of texts; has a default; is computed;
// place in the primary key, from 0.
constexpr std::string_view kColumns = R"(
SELECT a.attname, pg_catalog.format_type(a.atttypid, a.atttypmod) ||
    CASE WHEN a.attcollation = t.typcollation THEN '' ELSE ' COLLATE ' || (
      SELECT pg_catalog.format('%I.%I', n.nspname, l.collname) FROM pg_catalog.pg_collation l
      JOIN pg_catalog.pg_namespace n ON n.oid = l.collnamespace WHERE l.oid = a.attcollation) END,
  b.oid::int8, b.modifier, t.typcategory = 'S',
  a.atthasdef AND a.attgenerated = '' OR a.attidentity <> '' OR t.typdefault IS NOT NULL,
  a.attgenerated <> '',
  COALESCE(pg_catalog.array_position(i.indkey::int2[], a.attnum), -1)
FROM pg_catalog.pg_attribute a JOIN pg_catalog.pg_type t ON t.oid = a.atttypid
CROSS JOIN LATERAL (
  WITH RECURSIVE base AS (
    SELECT t.oid, t.typtype, t.typbasetype, t.typtypmod, a.atttypmod AS modifier
    UNION ALL
    SELECT p.oid, p.typtype, p.typbasetype, p.typtypmod, d.typtypmod
    FROM base d JOIN pg_catalog.pg_type p ON p.oid = d.typbasetype WHERE d.typtype = 'd')
  SELECT oid, modifier FROM base WHERE typtype <> 'd') b
LEFT JOIN pg_catalog.pg_index i ON i.indrelid = a.attrelid AND i.indisprimary
WHERE a.attrelid = pg_catalog.to_regclass($1) AND a.attnum > 0 AND NOT a.attisdropped
ORDER BY a.attnum)";

// The terms of an index: column (none when it is another expression); function; falls; NULLs come
// first; collation when it is not the column's; whether the index gives an order that statements
// can ask for. The server writes an expression always in the same way.
constexpr std::string_view kTerms = R"(
SELECT a.attname, CASE k.attribute WHEN 0 THEN pg_catalog.left(k.text, 1) ELSE '' END,
  k.option & 1 = 1, k.option & 2 = 2,
  CASE WHEN o.opcname LIKE '%\_pattern\_ops' THEN 'pg_catalog."C"'
    WHEN k.collation = 0 OR k.collation = a.attcollation THEN '' ELSE (
      SELECT pg_catalog.format('%I.%I', n.nspname, l.collname) FROM pg_catalog.pg_collation l
      JOIN pg_catalog.pg_namespace n ON n.oid = l.collnamespace WHERE l.oid = k.collation) END,
  m.amname = 'btree' AND k.whole AND a.attname IS NOT NULL AND
    (o.opcdefault OR o.opcname = 'varchar_ops' OR o.opcname LIKE '%\_pattern\_ops')
FROM (SELECT i.indrelid AS relation, i.indpred IS NULL AS whole, c.relam, n.number,
    i.indkey[n.number] AS attribute, i.indoption[n.number] AS option,
    i.indcollation[n.number] AS collation, i.indclass[n.number] AS class,
    pg_catalog.pg_get_indexdef(i.indexrelid, n.number + 1, false) AS text
  FROM pg_catalog.pg_index i JOIN pg_catalog.pg_class c ON c.oid = i.indexrelid
  CROSS JOIN LATERAL pg_catalog.generate_series(0, i.indnkeyatts - 1) AS n(number)
  WHERE i.indrelid = pg_catalog.to_regclass($1) AND c.relname = $2) k
JOIN pg_catalog.pg_am m ON m.oid = k.relam
JOIN pg_catalog.pg_opclass o ON o.oid = k.class
LEFT JOIN pg_catalog.pg_attribute a ON a.attrelid = k.relation AND NOT a.attisdropped AND
  (a.attnum = k.attribute OR k.attribute = 0 AND a.attnum > 0 AND k.text IN (
    pg_catalog.format('upper(%I)', a.attname), pg_catalog.format('upper((%I)::text)', a.attname),
    pg_catalog.format('lower(%I)', a.attname), pg_catalog.format('lower((%I)::text)', a.attname)))
ORDER BY k.number)";

bool IsTrue(const SqlValue& value) { return value.integer != 0; }

}  // namespace

bool PostgresqlDriver::DescribeTable(const String& name, SqlTable& table, bool& found,
                                     SqlFault& fault) {
  // A name with a point means the table that is called so, else one of that schema.
  const size_t point = name.view().find('.');
  const String last = name.view().substr(point + 1);
  String split = QuotedName(last);
  if (point != std::string_view::npos) {
    split = String::Concat({QuotedName(name.view().substr(0, point)), ".", split});
  }
  std::vector<SqlRow> rows;
  if (!Ask(kTable,
           {SqlValue::Text(QuotedName(name)), SqlValue::Text(split), SqlValue::Text(name),
            SqlValue::Text(last)},
           rows, fault)) {
    return false;
  }
  found = !rows.empty();
  if (!found) return true;
  table = {};
  table.name = name;
  table.text = rows[0][0].text;
  table.changes_later = IsTrue(rows[0][1]);
  return DescribeColumns(table, fault);
}

bool PostgresqlDriver::DescribeColumns(SqlTable& table, SqlFault& fault) {
  std::vector<SqlRow> rows;
  if (!Ask(kColumns, {SqlValue::Text(table.text)}, rows, fault)) return false;
  std::vector<std::pair<int64_t, int>> key;  // places in the key, and columns
  for (const SqlRow& row : rows) {
    SqlColumn column;
    column.name = row[0].text;
    column.type = row[1].text;
    DescribePostgresqlType(static_cast<unsigned>(row[2].integer), static_cast<int>(row[3].integer),
                           column);
    if (IsTrue(row[4])) column.kind = SqlKind::Text;
    column.has_default = IsTrue(row[5]);
    column.computed = IsTrue(row[6]);
    const int64_t place = row[7].integer;
    if (place >= 0) key.emplace_back(place, static_cast<int>(table.columns.size()));
    table.columns.push_back(std::move(column));
  }
  std::ranges::sort(key);
  // As the index of the key has it; there is no NULL in one.
  for (const auto& [place, column] : key) {
    SqlTerm term;
    term.column = column;
    term.nulls_first = false;
    table.key.push_back(std::move(term));
  }
  return true;
}

bool PostgresqlDriver::DescribeIndex(const SqlTable& table, const String& name, SqlIndex& index,
                                     bool& found, SqlFault& fault) {
  std::vector<SqlRow> rows;
  if (!Ask(kTerms, {SqlValue::Text(table.text), SqlValue::Text(name)}, rows, fault)) return false;
  found = !rows.empty();
  index = {};
  index.name = name;
  for (const SqlRow& row : rows) {
    index.gives_order = index.gives_order && IsTrue(row[5]);
    if (!index.gives_order) break;
    const auto column = std::ranges::find(table.columns, row[0].text, &SqlColumn::name);
    // It was added since the table was described.
    if (column == table.columns.end()) {
      index.gives_order = false;
      break;
    }
    SqlTerm term;
    term.column = static_cast<int>(column - table.columns.begin());
    if (!row[1].text.empty()) {
      term.function = row[1].text == "u" ? SqlTerm::Function::Upper : SqlTerm::Function::Lower;
    }
    term.descending = IsTrue(row[2]);
    term.nulls_first = IsTrue(row[3]);
    term.collation = row[4].text;
    index.terms.push_back(std::move(term));
  }
  return true;
}

}  // namespace vexa
