<?php @unlink('a.db'); $db = new SQLite3('a.db'); $db->exec('CREATE TABLE t (id TEXT PRIMARY KEY, value TEXT)'); $db->exec('CREATE INDEX tid ON t (id)'); $db->exec('BEGIN');
$add = $db->prepare('INSERT INTO t VALUES (?, ?)');
for ($i = 1; $i <= @N@; $i++) { $add->bindValue(1, 'k' . ($i * 7919) % 100003); $add->bindValue(2, "value $i"); $add->execute(); } $db->exec('COMMIT'); echo $db->querySingle('SELECT count(*) FROM t'), "\n";
