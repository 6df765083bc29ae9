<?php $sum = 0; for ($i = 1; $i <= @N@; $i++) $sum += (float) sprintf("%.2f", $i / 7); printf("%.2f\n", $sum);
