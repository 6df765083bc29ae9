<?php $db = new SQLite3(getenv('DATA') . '/t.db');
$db->exec('CREATE TABLE t (name TEXT, amount INTEGER)');
$add = $db->prepare('INSERT INTO t VALUES (?, ?)');
for ($i = 1; $i <= 50; $i++) { $add->bindValue(1, "name $i"); $add->bindValue(2, $i * 4); $add->execute(); } ?>done
