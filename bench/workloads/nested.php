<?php for ($i = 1; $i <= @N@; $i++) { ?><tr><?php for ($j = 1; $j <= @N@; $j++) { ?><td><?=$i?>.<?=$j?></td><?php } echo "</tr>\n"; }
