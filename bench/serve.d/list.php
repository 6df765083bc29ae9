<ul><?php $db = new SQLite3(getenv('DATA') . '/t.db', SQLITE3_OPEN_READONLY);
$all = $db->query('SELECT name, amount FROM t');
while ($row = $all->fetchArray(SQLITE3_ASSOC)) { ?><li><?= htmlspecialchars($row['name']) ?> <?= $row['amount'] ?></li><?php } ?></ul>
