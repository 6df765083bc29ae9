<?php @unlink('a.db'); $db = new SQLite3('a.db'); $db->exec('PRAGMA synchronous=OFF'); $db->exec('CREATE TABLE t (id TEXT, value TEXT)'); $db->exec('CREATE INDEX tid ON t (id)');
$add = $db->prepare('INSERT INTO t VALUES (?, ?)');
for ($i = 1; $i <= @N@; $i++) { $add->bindValue(1, 'k' . ($i * 7919) % 100003); $add->bindValue(2, "value $i"); $add->execute(); } echo $db->querySingle('SELECT count(*) FROM t'), "\n";
