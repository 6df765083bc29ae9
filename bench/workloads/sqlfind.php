<?php $db = new SQLite3('f.db'); $find = $db->prepare('SELECT value FROM t WHERE id = ?'); $found = 0;
for ($i = 1; $i <= @N@; $i++) { $find->bindValue(1, 'k' . ($i * 4111) % 100003); if ($find->execute()->fetchArray(SQLITE3_NUM)) $found++; $find->reset(); } echo "$found\n";
