<?php $db = new SQLite3('t.db'); $db->exec('PRAGMA synchronous=OFF'); $db->exec('CREATE TABLE t (name TEXT, amount NUMERIC)'); $db->exec('BEGIN');
$add = $db->prepare('INSERT INTO t VALUES (?, ?)');
for ($i = 1; $i <= @N@; $i++) { $add->bindValue(1, "name $i"); $add->bindValue(2, floor($i / 4 * 100) / 100); $add->execute(); } $db->exec('COMMIT');
