<?php $db = new SQLite3('t.db'); $all = $db->query('SELECT name, amount FROM t'); $rows = 0; $sum = 0;
while ($row = $all->fetchArray(SQLITE3_ASSOC)) { $rows++; $sum += $row['amount']; } printf("%d %.2f\n", $rows, $sum);
