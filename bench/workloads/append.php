<?php $s = ""; for ($i = 1; $i <= @N@; $i++) $s = $s . $i . ","; echo strlen($s), "\n";
