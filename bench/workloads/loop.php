<?php $i = 0; while ($i < @N@) $i = $i + 1; echo "$i\n";
