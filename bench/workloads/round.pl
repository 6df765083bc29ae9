my $sum = 0; for (my $i = 1; $i <= @N@; $i++) { $sum += sprintf("%.2f", $i / 7); } printf("%.2f\n", $sum);
