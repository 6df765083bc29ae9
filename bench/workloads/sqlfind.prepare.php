<?php $db = new SQLite3('f.db'); $db->exec('PRAGMA synchronous=OFF'); $db->exec('CREATE TABLE t (id TEXT, value TEXT)'); $db->exec('BEGIN');
$add = $db->prepare('INSERT INTO t VALUES (?, ?)');
for ($i = 1; $i <= 100000; $i++) { $add->bindValue(1, 'k' . ($i * 7919) % 100003); $add->bindValue(2, "value $i"); $add->execute(); }
$db->exec('CREATE INDEX tid ON t (id)'); $db->exec('COMMIT');
